#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

#include <unistd.h>

namespace HostKit {

/*
 * Files of a few values, in folders of this user alone. Any thread.
 *
 * A write goes to a temporary file that is then renamed over the old one, so that a reader sees the
 * old content or the new, never a part, and a crash leaves one of them. Nothing is synced to the
 * disk: what is kept here is of no use after a power failure, and waiting for the disk would hold
 * up every start.
 */

/*! An open file, closed with this object. */
class Descriptor {
public:
    explicit Descriptor(int descriptor)
        : value(descriptor)
    {
    }
    ~Descriptor()
    {
        if (value >= 0)
            ::close(value);
    }
    Q_DISABLE_COPY_MOVE(Descriptor)
    operator int() const { return value; }

private:
    const int value;
};

/*! Returns what \a file holds, or nothing if it cannot be read or holds more than \a most bytes. */
std::optional<QByteArray> readAll(const Descriptor& file, int most);

/*!
    Has the file \a path hold \a content, creating its folder where that is missing. Returns whether
    it does now; else errno tells why not.
*/
bool replaceFile(const QString& path, const QByteArray& content);

} // namespace HostKit

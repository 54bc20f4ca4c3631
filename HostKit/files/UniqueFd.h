#pragma once

#include <QtCore/QtGlobal>

#include <unistd.h>

namespace HostKit {

/*! Owns a file descriptor, or -1 for none, and closes it. Any thread. */
class UniqueFd {
public:
    explicit UniqueFd(int descriptor)
        : value(descriptor)
    {
    }
    ~UniqueFd()
    {
        if (value >= 0)
            ::close(value);
    }
    Q_DISABLE_COPY_MOVE(UniqueFd)

    int get() const { return value; }
    bool isValid() const { return value >= 0; }

private:
    const int value;
};

} // namespace HostKit

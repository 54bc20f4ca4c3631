#pragma once

#include <QtCore/QtGlobal>

#include <unistd.h>

#include <utility>

namespace HostKit {

/*! Owns a file descriptor, or -1 for none, and closes it. Any thread. */
class UniqueFd {
public:
    explicit UniqueFd(int descriptor = -1)
        : value(descriptor)
    {
    }
    ~UniqueFd() { reset(); }
    Q_DISABLE_COPY_MOVE(UniqueFd)

    int get() const { return value; }
    bool isValid() const { return value >= 0; }

    /*! Closes what it owns, and takes \a descriptor. */
    void reset(int descriptor = -1)
    {
        const int old = std::exchange(value, descriptor);
        if (old >= 0)
            ::close(old);
    }

private:
    int value;
};

} // namespace HostKit

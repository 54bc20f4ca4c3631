#pragma once

#include <QtCore/QString>

#include <chrono>
#include <memory>

namespace HostKit {

/*!
    A lock between processes, on a file. The file is created if it is missing, and never removed.

    The kernel holds the lock for the open file and releases it when the holder dies. A program that
    the holder starts does not inherit it; a forked child that does not call exec() does.
    Shared locks exclude exclusive ones, but not each other. A destroyed object releases its lock.
    Move-only. Use an object from one thread at a time.
*/
class FileLock {
public:
    enum class Kind { Exclusive, Shared };

    /*! Holds no lock. */
    FileLock();
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock();
    Q_DISABLE_COPY(FileLock)

    /*!
        Takes a lock on the file \a path, and waits up to \a timeout for other holders. Warns if the
        file cannot be opened or locked.
    */
    static FileLock take(const QString& path, Kind kind, std::chrono::milliseconds timeout);

    /*! Returns whether this object holds the lock. */
    bool isTaken() const;

    /*! Returns whether another holder kept the lock for the whole timeout. */
    bool hasTimedOut() const;

private:
    struct State;
    std::shared_ptr<State> state; // shared with a thread that waits
    bool isHeldByOther = false;
};

} // namespace HostKit

#pragma once

#include <QtCore/QString>

#include <chrono>
#include <memory>

namespace HostKit {

/*!
    A lock between processes on a file, which is created where it is missing and never removed.

    The kernel holds it for the open file: it goes with its holder, however that dies, and a program
    that the holder starts does not inherit it. (A child that is forked and runs no other program
    does.) Shared locks exclude exclusive ones, and not each other. An object that is destroyed
    releases its lock. Move-only; use an object from one thread at a time.
*/
class FileLock {
public:
    enum class Kind { Exclusive, Shared };

    /*! Has no lock. */
    FileLock();
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock();
    Q_DISABLE_COPY(FileLock)

    /*!
        Takes a lock on the file \a path, waiting up to \a patience for other holders; without
        waiting at all, if that is 0. Returns an object that says whether it did: a file that cannot
        be opened counts as not taken, and is warned of.
    */
    static FileLock take(const QString& path, Kind kind, std::chrono::milliseconds patience);

    /*! Returns whether this object has the lock. */
    bool isTaken() const;

private:
    struct State;
    static void wait(const std::shared_ptr<State>& state, std::chrono::milliseconds patience);

    std::shared_ptr<State> state; // shared with a thread that waits
};

} // namespace HostKit

#pragma once

#include <QtCore/QString>

#include <chrono>
#include <memory>

namespace HostKit {

/*!
    A lock between processes on a file, which is created where it is missing and never removed.

    The kernel holds it for the open file: it goes with its holder, however that dies, and a program
    that the holder starts does not inherit it. (A child that is forked and runs no other program
    does.) An object that is destroyed releases the lock; if it still waits, its thread takes the
    lock later, for a moment. Move-only; use an object from one thread at a time.
*/
class Q_DECL_HIDDEN FileLock {
public:
    /*! Neither has a lock nor waits for one. */
    FileLock();
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock();
    Q_DISABLE_COPY(FileLock)

    /*!
        Takes the lock on the file \a path, waiting up to \a patience for another holder. Returns
        an object that says whether it did: a file that cannot be opened counts as not taken, and
        is warned of.
    */
    static FileLock take(const QString& path, std::chrono::milliseconds patience);

    /*! Returns at once an object that takes the lock on the file \a path as soon as it is free. */
    static FileLock request(const QString& path);

    /*! Returns whether this object has the lock now. */
    bool isTaken() const;

private:
    static FileLock attempt(const QString& path);

    struct State;
    std::shared_ptr<State> state; // shared with a thread that waits
};

} // namespace HostKit

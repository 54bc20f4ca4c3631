#pragma once

#include <QtCore/QString>

#include <chrono>

namespace HostKit {

/*!
    A lock between processes on a file, which is created where it is missing and never removed.

    The kernel holds it for the open file: it goes with its holder, however that dies, and a program
    that the holder starts does not inherit it. (A child that is forked and runs no other program
    does.) Move-only; use an object from one thread at a time.
*/
class Q_DECL_HIDDEN FileLock {
public:
    FileLock() = default;
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock();
    Q_DISABLE_COPY(FileLock)

    /*!
        Takes the lock on the file \a path, waiting up to \a patience for another holder. Returns
        an object that says whether it did: a file that cannot be opened counts as not taken.
    */
    static FileLock take(const QString& path, std::chrono::milliseconds patience);

    bool isTaken() const { return descriptor >= 0; }

private:
    explicit FileLock(int lockedDescriptor)
        : descriptor(lockedDescriptor)
    {
    }

    int descriptor = -1;
};

} // namespace HostKit

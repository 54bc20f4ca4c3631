#include "FileLock.h"

#include "Directories.h"

#include <DetachedTask.h>

#include <QtCore/QFile>

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace HostKit {

namespace {

int openForWriting(const QByteArray& name)
{
    return ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
}

int openLockFile(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    int file = openForWriting(name);
    if (file < 0 && errno == ENOENT && createParentOf(path))
        file = openForWriting(name);
    const int reason = errno;
    if (file < 0) // in a read-only folder, a lock file that exists will do
        file = ::open(name.constData(), O_RDONLY | O_CLOEXEC);
    // Root may have created the file, under sudo. Then this user needs another one.
    if (file < 0 && reason == EACCES)
        file = openForWriting(name + '.' + QByteArray::number(::geteuid()));
    errno = reason;
    return file;
}

} // namespace

/* The last owner releases the lock. */
struct FileLock::State {
    State(const QString& path, Kind kind)
        : file(openLockFile(path))
        , operation(kind == Kind::Shared ? LOCK_SH : LOCK_EX)
    {
    }
    ~State()
    {
        // A forked child has the same open file. It must not release the lock.
        if (file >= 0 && ::getpid() == process)
            ::flock(file, LOCK_UN);
        if (file >= 0)
            ::close(file);
    }
    Q_DISABLE_COPY_MOVE(State)

    bool wait() { return lock(operation); }
    bool attempt() { return lock(operation | LOCK_NB); }

    std::atomic<bool> isLocked = false;

private:
    bool lock(int how)
    {
        int result = 0;
        do
            result = ::flock(file, how);
        while (result != 0 && errno == EINTR);
        if (file < 0)
            errno = openError;
        isLocked = result == 0;
        return isLocked;
    }

    const int file;
    const int openError = errno;
    const int operation;
    const pid_t process = ::getpid();
};

FileLock::FileLock() = default;
FileLock::FileLock(FileLock&& other) noexcept = default;
FileLock& FileLock::operator=(FileLock&& other) noexcept = default;
FileLock::~FileLock() = default;

bool FileLock::isTaken() const
{
    return state && state->isLocked;
}

bool FileLock::hasTimedOut() const
{
    return isHeldByOther;
}

FileLock FileLock::take(const QString& path, Kind kind, std::chrono::milliseconds timeout)
{
    FileLock taken;
    taken.state = std::make_shared<State>(path, kind);
    taken.isHeldByOther = !taken.state->attempt() && errno == EWOULDBLOCK;
    if (!taken.isTaken() && !taken.isHeldByOther)
        qWarning("HostKit: cannot lock %s: %s", qPrintable(path), std::strerror(errno));
    if (taken.isHeldByOther && timeout.count() > 0) {
        // flock() has no timeout. So it blocks another thread, which may be left behind.
        SingleInstance::DetachedTask([state = taken.state] { state->wait(); }).waitFor(timeout);
        taken.isHeldByOther = !taken.isTaken();
    }
    if (!taken.isTaken())
        taken.state.reset(); // the thread releases a lock that comes too late
    return taken;
}

} // namespace HostKit

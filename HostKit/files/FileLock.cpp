#include "FileLock.h"

#include "ApplicationFolder.h"

#include <DetachedTask.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QThread>

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr unsigned long retryInterval = 20; // ms, where there is no thread to wait

int openLockFile(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    const auto open = [&name] {
        return ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    };
    int file = open();
    if (file < 0 && errno == ENOENT && createFolderOf(path))
        file = open();
    const int reason = errno;
    if (file < 0) // in a read-only folder a lock file that is there serves as well
        file = ::open(name.constData(), O_RDONLY | O_CLOEXEC);
    errno = reason;
    return file;
}

} // namespace

/* Released by whoever is the last to have a part in it. */
struct FileLock::State {
    State(const QString& path, Kind kind)
        : file(openLockFile(path))
        , operation(kind == Kind::Shared ? LOCK_SH : LOCK_EX)
    {
    }
    ~State()
    {
        // A forked child has the same open file: it must not keep the lock, nor release it.
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

/* flock() knows no time limit, so that a thread waits in it on behalf of one that goes on. */
void FileLock::wait(const std::shared_ptr<State>& state, std::chrono::milliseconds patience)
{
    const SingleInstance::DetachedTask waiting([state] { state->wait(); });
    if (waiting.hasStarted()) {
        waiting.waitFor(patience);
        return;
    }
    const QDeadlineTimer deadline(patience);
    while (!state->attempt() && errno == EWOULDBLOCK && !deadline.hasExpired())
        QThread::msleep(retryInterval);
}

FileLock FileLock::take(const QString& path, Kind kind, std::chrono::milliseconds patience)
{
    FileLock taken;
    taken.state = std::make_shared<State>(path, kind);
    const bool isOthers = !taken.state->attempt() && errno == EWOULDBLOCK;
    if (!taken.isTaken() && !isOthers)
        qWarning("HostKit: cannot lock %s: %s", qPrintable(path), std::strerror(errno));
    if (isOthers && patience.count() > 0)
        wait(taken.state, patience);
    return taken.isTaken() ? std::move(taken) : FileLock();
}

} // namespace HostKit

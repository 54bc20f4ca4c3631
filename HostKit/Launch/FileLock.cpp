#include "FileLock.h"

#include "ApplicationFolder.h"

#include <QtCore/QFile>

#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace HostKit {

namespace {

int openLockFile(const QString& path)
{
    createFolderOf(path);
    const QByteArray name = QFile::encodeName(path);
    const int file = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    // In a read-only folder a lock file that is there serves as well.
    return file >= 0 ? file : ::open(name.constData(), O_RDONLY | O_CLOEXEC);
}

bool lock(int file, int operation)
{
    int result = 0;
    do
        result = ::flock(file, operation);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

/* flock() knows no time limit, so that a thread waits in it on behalf of one that has to go on. */
struct Waiting {
    std::mutex mutex;
    std::condition_variable ended;
    bool locked = false;
    bool failed = false;
    bool abandoned = false;
};

void waitInKernel(int file, const std::shared_ptr<Waiting>& waiting)
{
    const bool locked = lock(file, LOCK_EX);
    const std::lock_guard<std::mutex> guard(waiting->mutex);
    waiting->locked = locked;
    waiting->failed = !locked;
    if (waiting->abandoned)
        ::close(file); // nobody wants the lock any more
    waiting->ended.notify_one();
}

/* Starts a thread that leaves all signals to the host's own threads. Returns whether it did. */
bool startWaiting(int file, const std::shared_ptr<Waiting>& waiting)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool started = true;
    try {
        std::thread(waitInKernel, file, waiting).detach();
    } catch (const std::system_error&) {
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

/* Returns whether the lock was taken; closes the file, sooner or later, if it was not. */
bool lockWithin(int file, std::chrono::milliseconds patience)
{
    if (lock(file, LOCK_EX | LOCK_NB))
        return true;
    const auto waiting = std::make_shared<Waiting>();
    if (errno != EWOULDBLOCK || patience.count() <= 0 || !startWaiting(file, waiting)) {
        ::close(file);
        return false;
    }
    std::unique_lock<std::mutex> guard(waiting->mutex);
    waiting->ended.wait_for(guard, patience,
                            [&waiting] { return waiting->locked || waiting->failed; });
    waiting->abandoned = !waiting->locked && !waiting->failed;
    if (waiting->failed)
        ::close(file);
    return waiting->locked;
}

} // namespace

FileLock::FileLock(FileLock&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1))
{
}

FileLock& FileLock::operator=(FileLock&& other) noexcept
{
    std::swap(descriptor, other.descriptor);
    return *this;
}

FileLock::~FileLock()
{
    if (descriptor >= 0)
        ::close(descriptor);
}

FileLock FileLock::take(const QString& path, std::chrono::milliseconds patience)
{
    const int file = openLockFile(path);
    return file >= 0 && lockWithin(file, patience) ? FileLock(file) : FileLock();
}

} // namespace HostKit

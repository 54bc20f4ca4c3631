#include "FileLock.h"

#include "ApplicationFolder.h"

#include <QtCore/QFile>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>

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

/* Starts a thread that leaves all signals to the host's own threads; without one, nobody waits. */
void startThread(const std::function<void()>& work)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread(work).detach();
    } catch (const std::system_error&) {
        qWarning("HostKit: cannot start a thread to wait for a lock");
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

/*
 * flock() knows no time limit, so that a thread waits in it on behalf of one that has to go on. The
 * file is closed, and the lock released with it, by whoever is the last to have a part in it.
 */
struct FileLock::State {
    explicit State(int openFile)
        : file(openFile)
    {
    }
    ~State()
    {
        if (file < 0)
            return;
        ::flock(file, LOCK_UN); // for a forked child has the same open file
        ::close(file);
    }
    Q_DISABLE_COPY_MOVE(State)

    static void wait(const std::shared_ptr<State>& state)
    {
        const bool locked = lock(state->file, LOCK_EX);
        const std::lock_guard<std::mutex> guard(state->mutex);
        state->ended = true;
        state->locked = locked;
        state->changed.notify_one();
    }

    const int file;
    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false; // the waiting
    bool locked = false;
};

FileLock::FileLock() = default;
FileLock::FileLock(FileLock&& other) noexcept = default;
FileLock& FileLock::operator=(FileLock&& other) noexcept = default;
FileLock::~FileLock() = default;

bool FileLock::isTaken() const
{
    if (!state)
        return false;
    const std::lock_guard<std::mutex> guard(state->mutex);
    return state->locked;
}

/* Tries once, without waiting. Whoever is held up by another holder alone may wait. */
FileLock FileLock::attempt(const QString& path)
{
    FileLock attempted;
    attempted.state = std::make_shared<State>(openLockFile(path));
    State& state = *attempted.state;
    state.locked = state.file >= 0 && lock(state.file, LOCK_EX | LOCK_NB);
    state.ended = state.file < 0 || state.locked || errno != EWOULDBLOCK;
    if (state.ended && !state.locked)
        qWarning("HostKit: cannot lock %s: %s", qPrintable(path), std::strerror(errno));
    return attempted;
}

FileLock FileLock::request(const QString& path)
{
    FileLock requested = attempt(path);
    if (!requested.state->ended)
        startThread([state = requested.state] { State::wait(state); });
    return requested;
}

FileLock FileLock::take(const QString& path, std::chrono::milliseconds patience)
{
    FileLock taken = patience.count() > 0 ? request(path) : attempt(path);
    State& state = *taken.state;
    std::unique_lock<std::mutex> guard(state.mutex);
    const bool locked = state.locked || (state.changed.wait_for(guard, patience, [&state] {
                            return state.ended;
                        }) && state.locked);
    guard.unlock();
    return locked ? std::move(taken) : FileLock();
}

} // namespace HostKit

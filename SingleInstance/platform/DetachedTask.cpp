#include "DetachedTask.h"

#include <condition_variable>
#include <csignal>
#include <exception>
#include <mutex>
#include <thread>

namespace SingleInstance {

struct DetachedTask::Progress {
    std::mutex mutex;
    std::condition_variable changed;
    bool hasEnded = false;
};

namespace {

/* A thread begins with the signal mask of the one that starts it. */
class BlockedSignals {
public:
    BlockedSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before = {};
};

} // namespace

DetachedTask::DetachedTask(const std::function<void()>& work)
    : progress(std::make_shared<Progress>())
{
    const auto run = [work, progress = progress] {
        work();
        const std::lock_guard<std::mutex> lock(progress->mutex);
        progress->hasEnded = true;
        progress->changed.notify_all();
    };
    const BlockedSignals blocked;
    try {
        std::thread(run).detach();
    } catch (const std::exception&) { // no thread, or no memory for one
        progress.reset();
    }
}

bool DetachedTask::waitFor(std::chrono::milliseconds timeout) const
{
    if (!progress)
        return false;
    std::unique_lock<std::mutex> lock(progress->mutex);
    return progress->changed.wait_for(lock, timeout, [this] { return progress->hasEnded; });
}

} // namespace SingleInstance

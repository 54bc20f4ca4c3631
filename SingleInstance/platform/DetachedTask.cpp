#include "DetachedTask.h"

#include <condition_variable>
#include <csignal>
#include <mutex>
#include <system_error>
#include <thread>

namespace SingleInstance {

struct DetachedTask::Progress {
    std::mutex mutex;
    std::condition_variable changed;
    bool hasEnded = false;
};

DetachedTask::DetachedTask(const std::function<void()>& work)
    : progress(std::make_shared<Progress>())
{
    const auto run = [work, progress = progress] {
        work();
        const std::lock_guard<std::mutex> lock(progress->mutex);
        progress->hasEnded = true;
        progress->changed.notify_all();
    };
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // a thread begins with its parent's
    try {
        std::thread(run).detach();
    } catch (const std::system_error&) {
        progress.reset();
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

bool DetachedTask::hasStarted() const
{
    return progress != nullptr;
}

bool DetachedTask::waitFor(std::chrono::milliseconds patience) const
{
    if (!progress)
        return false;
    std::unique_lock<std::mutex> lock(progress->mutex);
    return progress->changed.wait_for(lock, patience, [this] { return progress->hasEnded; });
}

} // namespace SingleInstance

#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace SingleInstance {

/*!
    Runs a task that may block for ever, on a thread of its own. The thread blocks all signals.

    If the task does not end, the thread is left behind until the process ends. So the task may only
    touch what it owns or shares by shared_ptr. Copies of an object are the same task. Any thread.
*/
class DetachedTask {
public:
    explicit DetachedTask(const std::function<void()>& work);

    /*! Waits up to \a timeout for the end of the task. Returns whether it has ended. */
    bool waitFor(std::chrono::milliseconds timeout) const;

private:
    struct Progress;
    std::shared_ptr<Progress> progress; // shared with the thread; null if no thread could start
};

} // namespace SingleInstance

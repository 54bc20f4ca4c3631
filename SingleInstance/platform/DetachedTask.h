#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace SingleInstance {

/*!
    A work that may block for ever, on a thread of its own that takes no signals from the host.

    Nobody has to wait for it: the thread is left behind if the work does not end, and goes with the
    process. So the work may only touch what it shares in the ownership of. Copies of an object
    speak of the same work; any thread.
*/
class DetachedTask {
public:
    explicit DetachedTask(const std::function<void()>& work);

    /*! Returns whether there is a thread: the system may refuse one. */
    bool hasStarted() const;

    /*! Waits up to \a patience for the end of the work. Returns whether it has ended. */
    bool waitFor(std::chrono::milliseconds patience) const;

private:
    struct Progress;
    std::shared_ptr<Progress> progress; // shared with the thread; none without one
};

} // namespace SingleInstance

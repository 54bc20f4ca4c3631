#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>

#include <atomic>
#include <functional>
#include <memory>

namespace HostKit {

/*!
    Runs a callback in an event-loop iteration in which nothing else happened.

    A loop that was told to quit still finishes its iteration, and cannot be asked whether it was
    told. But some event tells it, as a rule. If no event was delivered from the beginning of one
    iteration to the beginning of the next, the loop goes on, and no request to quit waited among the
    events.

    An application that animates something may never be idle. After a tenth of a second an iteration
    will do that has no other posted events; after a second, any iteration that is not the last.

    Belongs to the application's thread. The callback may delete this object, or run an event loop.
*/
class IdleIteration : public QObject {
public:
    explicit IdleIteration(std::function<void()> callback);

    /*! Runs the callback once, in an iteration that begins after this call. Any thread. */
    void request();

    bool event(QEvent* event) override;
    bool eventFilter(QObject* receiver, QEvent* event) override;

private:
    class Mark;

    void beginIteration();
    void beginToWait();
    void endPostedEvents();
    void run(bool isBusy);

    const std::function<void()> callback;
    const std::shared_ptr<std::atomic<bool>> isPosted = std::make_shared<std::atomic<bool>>(false);
    int iterations = 0; // that began since the request
    QDeadlineTimer idleEnd; // for an idle iteration
    QDeadlineTimer end; // for one without other posted events
    QElapsedTimer sinceBusy; // since the callback ran in an iteration that was not idle
    bool isDisturbed = false; // by another event, in this iteration
    bool isAlone = false; // no other posted event was delivered in this iteration
};

} // namespace HostKit

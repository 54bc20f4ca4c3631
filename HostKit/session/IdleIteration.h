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

    A loop that was told to quit still finishes its iteration, and does not say that it was told.
    But usually an event tells it. If no event was delivered between the beginnings of two
    iterations, the loop goes on, and no request to quit was among its events.

    An application with an animation may never be idle. After a tenth of a second, an iteration
    without other posted events will do; after a second, any iteration that is not the last.

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
    int iterations = 0; // since the request
    QDeadlineTimer idleEnd; // until then only an idle iteration will do
    QDeadlineTimer end; // until then only one without other posted events will do
    QElapsedTimer sinceBusy; // since the callback ran in an iteration that was not idle
    bool hasOtherEvents = false; // in this iteration
    bool hasOtherPosted = false; // other posted events among them
};

} // namespace HostKit

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

    A loop that was told to quit still finishes its iteration, and cannot be asked. Usually an event
    tells it to quit. So if no event was delivered between the beginnings of two iterations, nothing
    told it to quit.

    An application with an animation may never be idle. After a tenth of a second, an iteration will
    do that has no posted events other than requests to paint. After a second, any iteration will do
    that is not the last.

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

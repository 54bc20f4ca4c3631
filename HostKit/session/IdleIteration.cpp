#include "IdleIteration.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>

#include <limits>
#include <utility>

/*
 * If an event is posted while another one is delivered, it is delivered in the next iteration at
 * the earliest. So each iteration posts two marks for the next iteration: one is delivered there
 * before all other posted events, the other after them. An iteration begins with its posted events.
 * Thus if the first mark is delivered, the iteration before was not the last. A filter on the
 * application notices all events between marks. It is installed only while a request waits.
 */

namespace HostKit {

namespace {

constexpr int first = std::numeric_limits<int>::max(); // priorities of the two marks
constexpr int last = std::numeric_limits<int>::min();
constexpr int idleTimeout = 100; // ms; then an iteration without other posted events will do
constexpr int timeout = 1000; // ms; then any iteration will do

QEvent::Type markType()
{
    static const int type = QEvent::registerEventType();
    return static_cast<QEvent::Type>(type);
}

} // namespace

/* An application may remove posted events. So a mark says when it is gone. */
class IdleIteration::Mark : public QEvent {
public:
    Mark(std::shared_ptr<std::atomic<bool>> flag, int itsPriority)
        : QEvent(markType())
        , priority(itsPriority)
        , isPosted(std::move(flag))
    {
    }
    ~Mark() override { delivered(); }
    Q_DISABLE_COPY_MOVE(Mark)

    void delivered()
    {
        if (isPosted && priority == first)
            *isPosted = false;
        isPosted = nullptr;
    }

    const int priority;

private:
    std::shared_ptr<std::atomic<bool>> isPosted;
};

IdleIteration::IdleIteration(std::function<void()> requestedCallback)
    : callback(std::move(requestedCallback))
{
}

void IdleIteration::request()
{
    if (isPosted->exchange(true))
        return;
    for (const int priority : {first, last})
        QCoreApplication::postEvent(this, new Mark(isPosted, priority), priority);
}

bool IdleIteration::event(QEvent* event)
{
    if (event->type() != markType())
        return QObject::event(event);
    auto* const mark = static_cast<Mark*>(event);
    mark->delivered();
    if (mark->priority == first)
        beginIteration();
    else
        endPostedEvents();
    return true;
}

void IdleIteration::beginIteration()
{
    if (iterations == 0)
        beginToWait();
    else if (!hasOtherEvents || end.hasExpired())
        return run(hasOtherEvents);
    ++iterations;
    hasOtherEvents = false;
    hasOtherPosted = false;
    request();
}

void IdleIteration::beginToWait()
{
    QCoreApplication::instance()->installEventFilter(this);
    end.setRemainingTime(timeout);
    if (!sinceBusy.isValid() || sinceBusy.hasExpired(idleTimeout)) // else it is as busy as before
        idleEnd.setRemainingTime(idleTimeout);
}

void IdleIteration::endPostedEvents()
{
    if (iterations > 0 && !hasOtherPosted && idleEnd.hasExpired())
        run(true);
}

void IdleIteration::run(bool isBusy)
{
    sinceBusy.invalidate();
    if (isBusy)
        sinceBusy.start();
    QCoreApplication::instance()->removeEventFilter(this);
    QCoreApplication::removePostedEvents(this, markType());
    iterations = 0;
    const auto requested = callback; // which goes with this object
    requested();
}

bool IdleIteration::eventFilter(QObject* receiver, QEvent* event)
{
    if (receiver == this)
        return false;
    hasOtherEvents = true;
    hasOtherPosted = hasOtherPosted || event->type() != QEvent::UpdateRequest;
    if (event->type() == QEvent::Close || event->type() == QEvent::Quit) {
        idleEnd.setRemainingTime(idleTimeout); // the application may end now: wait again
        end.setRemainingTime(timeout);
    }
    return false;
}

} // namespace HostKit

#include "QuietTurn.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>

#include <limits>
#include <utility>

/*
 * An event that is posted while another is handled is handled in the next turn at the earliest, and
 * with this priority before all others of that turn: where it is handled at all, the turn before
 * was not the last. So events of our own mark the turns, each posted by the one before, and a
 * filter on the application sees what comes between two of them. It is there for as long as
 * somebody waits, a few turns.
 */

namespace HostKit {

namespace {

constexpr int mostTurns = 20; // an application that animates something may never be quiet
constexpr int priority = std::numeric_limits<int>::max();

QEvent::Type turnType()
{
    static const int type = QEvent::registerEventType();
    return static_cast<QEvent::Type>(type);
}

} // namespace

/* Tells when it is gone, for an application may remove it: then the next request posts another. */
class QuietTurn::Turn : public QEvent {
public:
    explicit Turn(std::shared_ptr<std::atomic<bool>> flag)
        : QEvent(turnType())
        , isPosted(std::move(flag))
    {
    }
    ~Turn() override { handled(); }
    Q_DISABLE_COPY_MOVE(Turn)

    void handled()
    {
        if (isPosted)
            *isPosted = false;
        isPosted = nullptr;
    }

private:
    std::shared_ptr<std::atomic<bool>> isPosted;
};

QuietTurn::QuietTurn(std::function<void()> requestedWork)
    : work(std::move(requestedWork))
{
}

void QuietTurn::request()
{
    if (!isPosted->exchange(true))
        QCoreApplication::postEvent(this, new Turn(isPosted), priority);
}

bool QuietTurn::event(QEvent* event)
{
    if (event->type() != turnType())
        return QObject::event(event);
    static_cast<Turn*>(event)->handled();
    if (turns == 0)
        QCoreApplication::instance()->installEventFilter(this);
    if (turns > 0 && (!isDisturbed || turns > mostTurns)) {
        QCoreApplication::instance()->removeEventFilter(this);
        turns = 0;
        const auto requested = work; // which goes with this object
        requested();
    } else {
        ++turns;
        isDisturbed = false;
        request();
    }
    return true;
}

bool QuietTurn::eventFilter(QObject* receiver, QEvent* event)
{
    isDisturbed = isDisturbed || receiver != this;
    if (event->type() == QEvent::Close || event->type() == QEvent::Quit)
        turns = 1; // the end is near: wait for it as long as at first
    return false;
}

} // namespace HostKit

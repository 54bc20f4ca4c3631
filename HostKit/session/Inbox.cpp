#include "Inbox.h"

#include "HandOver.h"

#include <SingleInstanceController.h>

#include <chrono>
#include <utility>

/*
 * A hand-off is done for its sender once the operating system has it; the master may not have read
 * it yet, nor even accepted the connection. The kernel queues connections in order, so that a
 * message that the master sends to itself is accepted after all others. It may still be read before
 * them, since an event loop serves the sockets that are ready in any order, and a long message
 * takes more than one turn. So marks go one after the other until several in a row found nothing
 * between them: each takes two turns at least, in which all others were served.
 */

namespace HostKit {

using SingleInstance::SingleInstanceController;

namespace {

constexpr int quietMarks = 3;
constexpr int timeLimit = 1000; // ms

} // namespace

Inbox::Inbox(const QList<QStringList>& older)
    : lists(older)
{
}

void Inbox::fillFrom(SingleInstanceController& controller, const std::shared_ptr<Inbox>& inbox,
                     const std::function<void()>& arrived)
{
    QObject::connect(&controller, &SingleInstanceController::messageReceived,
                     [inbox, arrived, source = &controller] {
                         inbox->takeFrom(*source);
                         arrived();
                     });
    inbox->takeFrom(controller); // what came before the connection
}

void Inbox::takeFrom(SingleInstanceController& controller)
{
    const QStringList noArguments(QStringLiteral(" ")); // as they are sent
    const std::lock_guard<std::mutex> lock(mutex); // two threads at the start, but one order
    for (const QStringList& list : controller.takeMessages()) {
        ++allArrived;
        if (list == mark)
            ++marks;
        else
            lists.append(list == noArguments ? QStringList() : list);
    }
    changed.notify_one();
}

bool Inbox::isEmpty()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return lists.isEmpty();
}

QStringList Inbox::takeFirst()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return lists.takeFirst();
}

QList<QStringList> Inbox::takeAll()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(lists, {});
}

/* Returns whether it arrived in time. */
bool Inbox::sendMark(quint16 port, const QDeadlineTimer& deadline)
{
    if (!handOver(mark, port, deadline))
        return false;
    ++marksSent;
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(deadline.remainingTime()),
                            [this] { return marks >= marksSent; });
}

bool Inbox::flush(quint16 port)
{
    const QDeadlineTimer deadline(timeLimit);
    int seen = countArrived();
    for (int quiet = 0; quiet < quietMarks;) {
        if (!sendMark(port, deadline))
            return false;
        const int before = std::exchange(seen, countArrived());
        quiet = seen == before + 1 ? quiet + 1 : 0;
    }
    return true;
}

int Inbox::countArrived()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return allArrived;
}

} // namespace HostKit

#include "PendingLaunches.h"

#include "AnswerChannel.h"
#include "HandOff.h"
#include "MessageFormat.h"

#include <SingleInstanceController.h>

#include <QtCore/QDeadlineTimer>

#include <algorithm>
#include <chrono>
#include <utility>

/*
 * For its sender, a hand-off is done once the operating system has it. At that moment the master
 * may not have read it, nor even accepted the connection. The kernel queues connections in order: a
 * message that the master sends to itself is accepted after all earlier ones. But it may be read
 * before them, since an event loop serves sockets that are ready in any order, and a long message
 * takes more than one iteration. So the flush sends one mark after another, until several in a row
 * arrived with nothing between them. Each mark takes at least two iterations, in which all other
 * sockets are served.
 */

namespace HostKit {

using SingleInstance::packedSize;
using SingleInstance::SingleInstanceController;

namespace {

constexpr int quietMarks = 3;
constexpr int flushTimeout = 1000; // ms
constexpr qint64 maxSize = 64 << 20; // bytes: any local user may send
constexpr int maxIncomplete = 16; // launches: they hand over one after another

/* About as many bytes as it takes. */
qint64 sizeOf(const LaunchMessage& message)
{
    constexpr qint64 perString = 64;
    constexpr qint64 perLaunch = 2048; // with its token
    return packedSize(message.arguments) + perString * message.arguments.size()
        + packedSize(message.workingFolder) + perLaunch;
}

} // namespace

PendingLaunches::PendingLaunches(const QList<LaunchMessage>& older)
{
    for (const LaunchMessage& message : older)
        append(message);
}

void PendingLaunches::fillFrom(SingleInstanceController& controller,
                               const std::shared_ptr<PendingLaunches>& pending,
                               const std::function<void()>& arrived)
{
    QObject::connect(&controller, &SingleInstanceController::messageReceived,
                     [pending, arrived, source = &controller] {
                         pending->takeFrom(*source);
                         arrived();
                     });
    pending->takeFrom(controller); // what came before the connection
}

void PendingLaunches::takeFrom(SingleInstanceController& controller)
{
    const std::lock_guard<std::mutex> lock(mutex); // at the start two threads call this
    for (const QStringList& list : controller.takeMessages()) {
        ++allArrived;
        add(opened(list));
    }
    changed.notify_one();
}

void PendingLaunches::add(const Received& received)
{
    if (!received.mark.isEmpty())
        marks += received.mark == mark ? 1 : 0; // another mark is from an earlier owner of our port
    else if (received.chunkCount > 1)
        join(received);
    else
        append(received.message);
}

void PendingLaunches::append(const LaunchMessage& message)
{
    const qint64 added = sizeOf(message);
    if (size + added > maxSize)
        return refuse(message);
    messages.append(message);
    size += added;
    connectBack(messages.last());
}

void PendingLaunches::join(const Received& received)
{
    const auto isSame = [&received](const Incomplete& each) {
        return each.message.id == received.message.id;
    };
    if (std::none_of(incomplete.begin(), incomplete.end(), isSame)) {
        incomplete.append({received.message, {}, 0});
        incomplete.last().message.arguments.clear();
    }
    const auto launch = std::find_if(incomplete.begin(), incomplete.end(), isSame);
    if (launch->chunks.contains(received.chunk))
        return; // a launch that tries again sends its first chunks again
    const QString text = received.message.arguments.value(0);
    launch->chunks.insert(received.chunk, text);
    launch->size += packedSize(text);
    incompleteSize += packedSize(text);
    if (launch->chunks.size() == received.chunkCount) {
        const Incomplete whole = *launch;
        incomplete.erase(launch);
        incompleteSize -= whole.size;
        add(joined(whole.chunks));
    }
    while (incompleteSize > maxSize || incomplete.size() > maxIncomplete)
        refuseOldestIncomplete();
}

void PendingLaunches::refuse(const LaunchMessage& message)
{
    if (!std::exchange(isRefusing, true))
        qWarning("HostKit: launches are refused, since 64 MiB of arguments wait already");
    LaunchMessage refused = message;
    connectBack(refused);
    if (refused.channel)
        refused.channel->send({false, 1, QStringLiteral("too many launches wait already\n")});
}

/* It was killed half-way, or is hostile. */
void PendingLaunches::refuseOldestIncomplete()
{
    const Incomplete oldest = incomplete.takeFirst();
    incompleteSize -= oldest.size;
    refuse(oldest.message);
}

bool PendingLaunches::isEmpty()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return messages.isEmpty();
}

LaunchMessage PendingLaunches::takeFirst()
{
    const std::lock_guard<std::mutex> lock(mutex);
    LaunchMessage message = messages.takeFirst();
    size -= sizeOf(message);
    isRefusing = false;
    return message;
}

QList<LaunchMessage> PendingLaunches::takeAll()
{
    const std::lock_guard<std::mutex> lock(mutex);
    size = 0;
    return std::exchange(messages, {});
}

/* Returns whether it arrived in time. */
bool PendingLaunches::sendMark(quint16 port, const QDeadlineTimer& deadline)
{
    if (!sendList(markedList(mark), port))
        return false;
    ++marksSent;
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(deadline.remainingTime()),
                            [this] { return marks >= marksSent; });
}

bool PendingLaunches::flush(quint16 port)
{
    const QDeadlineTimer deadline(flushTimeout);
    int seen = countArrived();
    for (int quiet = 0; quiet < quietMarks;) {
        if (!sendMark(port, deadline))
            return false;
        const int before = std::exchange(seen, countArrived());
        quiet = seen == before + 1 ? quiet + 1 : 0;
    }
    return true;
}

int PendingLaunches::countArrived()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return allArrived;
}

} // namespace HostKit

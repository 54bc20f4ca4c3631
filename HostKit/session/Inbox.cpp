#include "Inbox.h"

#include "AnswerChannel.h"
#include "HandOff.h"
#include "MessageFormat.h"

#include <SingleInstanceController.h>

#include <QtCore/QDeadlineTimer>

#include <algorithm>
#include <chrono>
#include <utility>

/*
 * A hand-off is done for its sender once the operating system has it. The master may not have read
 * it yet, nor even accepted the connection. The kernel queues connections in order, so that a
 * message that the master sends to itself is accepted after all others. It may still be read before
 * them, since an event loop serves the sockets that are ready in any order, and a long message takes
 * more than one iteration. So marks go one after the other until several in a row found nothing
 * between them: each takes two iterations at least, in which all others were served.
 */

namespace HostKit {

using SingleInstance::packedSize;
using SingleInstance::SingleInstanceController;

namespace {

constexpr int quietMarks = 3;
constexpr int flushTimeout = 1000; // ms
constexpr qint64 maxSize = 64 << 20; // bytes: any local user may send
constexpr qint64 maxIncompleteSize = 32 << 20;

qint64 sizeOf(const LaunchMessage& message)
{
    return packedSize(enveloped(message)) + qint64(sizeof message);
}

/* Returns the launch whose chunks are all there. */
LaunchMessage joined(const QMap<int, Chunk>& chunks)
{
    LaunchMessage message = chunks.first().message;
    message.arguments.clear();
    for (const Chunk& chunk : chunks) {
        QStringList arguments = chunk.message.arguments;
        if (chunk.isContinued && !message.arguments.isEmpty() && !arguments.isEmpty())
            message.arguments.last() += arguments.takeFirst();
        message.arguments += arguments;
    }
    return message;
}

} // namespace

Inbox::Inbox(const QList<QStringList>& older)
{
    for (const QStringList& list : older)
        add(list);
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
    const std::lock_guard<std::mutex> lock(mutex); // two threads at the start, but one order
    for (const QStringList& list : controller.takeMessages()) {
        ++allArrived;
        add(list);
    }
    changed.notify_one();
}

void Inbox::add(const QStringList& list)
{
    const Chunk chunk = opened(list);
    if (!chunk.mark.isEmpty()) {
        marks += chunk.mark == mark ? 1 : 0; // another one is of a process that had our port
        return;
    }
    const qint64 added = sizeOf(chunk.message);
    if (size + added > maxSize) {
        if (!std::exchange(isRefusing, true))
            qWarning("HostKit: launches are refused, since 64 MiB of arguments wait already");
        if (chunk.message.isWaiting)
            AnswerChannel(chunk.message.id)
                .send(1, QStringLiteral("too many launches wait already\n"));
    } else if (chunk.count > 1 && !chunk.message.id.isEmpty()) {
        join(chunk, added);
    } else {
        messages.append(chunk.message);
        size += added;
    }
}

void Inbox::join(const Chunk& chunk, qint64 added)
{
    const QByteArray id = chunk.message.id;
    if (!incomplete.contains(id))
        incomplete[id].number = ++incompleteNumber;
    Incomplete& launch = incomplete[id];
    if (launch.chunks.contains(chunk.number))
        return; // a launch that hands over once more begins anew
    launch.chunks.insert(chunk.number, chunk);
    launch.size += added;
    incompleteSize += added;
    if (launch.chunks.size() == chunk.count) {
        const Incomplete whole = incomplete.take(id);
        incompleteSize -= whole.size;
        messages.append(joined(whole.chunks));
        size += sizeOf(messages.last());
    }
    while (incompleteSize > maxIncompleteSize)
        dropOldestIncomplete();
}

/* Its launch was killed, or is hostile: launches hand over one after the other. */
void Inbox::dropOldestIncomplete()
{
    const auto oldest = std::min_element(
        incomplete.begin(), incomplete.end(),
        [](const Incomplete& a, const Incomplete& b) { return a.number < b.number; });
    incompleteSize -= oldest->size;
    incomplete.erase(oldest);
}

bool Inbox::isEmpty()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return messages.isEmpty();
}

LaunchMessage Inbox::takeFirst()
{
    const std::lock_guard<std::mutex> lock(mutex);
    LaunchMessage message = messages.takeFirst();
    size -= sizeOf(message);
    isRefusing = false;
    return message;
}

QList<QStringList> Inbox::takeAll()
{
    const std::lock_guard<std::mutex> lock(mutex);
    size = 0;
    QList<QStringList> lists;
    for (const LaunchMessage& message : std::exchange(messages, {}))
        lists.append(enveloped(message));
    return lists;
}

/* Returns whether it arrived in time. */
bool Inbox::sendMark(quint16 port, const QDeadlineTimer& deadline)
{
    if (!sendList(markedList(mark), port))
        return false;
    ++marksSent;
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(deadline.remainingTime()),
                            [this] { return marks >= marksSent; });
}

bool Inbox::flush(quint16 port)
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

int Inbox::countArrived()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return allArrived;
}

} // namespace HostKit

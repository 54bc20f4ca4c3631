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
constexpr qint64 maxIncompleteSize = 32 << 20;

qint64 sizeOf(const LaunchMessage& message)
{
    return packedSize(message.arguments) + packedSize(message.workingFolder)
        + qint64(sizeof message);
}

} // namespace

Inbox::Inbox(const QList<LaunchMessage>& older)
{
    for (const LaunchMessage& message : older)
        append(message);
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
    const std::lock_guard<std::mutex> lock(mutex); // at the start two threads call this
    for (const QStringList& list : controller.takeMessages()) {
        ++allArrived;
        add(opened(list));
    }
    changed.notify_one();
}

void Inbox::add(const Received& received)
{
    if (!received.mark.isEmpty())
        marks += received.mark == mark
            ? 1
            : 0; // another mark is from a process that had our port before
    else if (received.chunkCount > 1)
        join(received);
    else
        append(received.message);
}

void Inbox::append(const LaunchMessage& message)
{
    LaunchMessage added = message;
    if (!added.channel)
        connectBack(added);
    if (size + sizeOf(added) <= maxSize) {
        messages.append(added);
        size += sizeOf(added);
        return;
    }
    if (!std::exchange(isRefusing, true))
        qWarning("HostKit: launches are refused, since 64 MiB of arguments wait already");
    if (added.channel)
        added.channel->send({false, 1, QStringLiteral("too many launches wait already\n")});
}

void Inbox::join(const Received& received)
{
    const QByteArray id = received.message.id;
    const QString text = received.message.arguments.value(0);
    if (!incomplete.contains(id))
        incomplete[id].number = ++incompleteNumber;
    Incomplete& launch = incomplete[id];
    if (launch.chunks.contains(received.chunk))
        return; // a launch that tries again sends its first chunks again
    launch.chunks.insert(received.chunk, text);
    const qint64 added = packedSize(text) + qint64(sizeof launch);
    launch.size += added;
    incompleteSize += added;
    if (launch.chunks.size() == received.chunkCount) {
        const Incomplete whole = incomplete.take(id);
        incompleteSize -= whole.size;
        if (const auto message = joined(whole.chunks))
            append(*message);
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

QList<LaunchMessage> Inbox::takeAll()
{
    const std::lock_guard<std::mutex> lock(mutex);
    size = 0;
    return std::exchange(messages, {});
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

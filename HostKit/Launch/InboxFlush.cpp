#include "InboxFlush.h"

#include "MasterSlot.h"

#include <SingleInstanceController.h>

#include <QtCore/QDataStream>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QSemaphore>
#include <QtCore/QUuid>
#include <QtCore/QtEndian>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpSocket>

#include <algorithm>
#include <memory>
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

namespace {

constexpr int quietMarks = 3;
constexpr int timeLimit = 1000; // ms

const QString& markName()
{
    static const QString name = QLatin1String("HostKit flush ") + QUuid::createUuid().toString();
    return name;
}

/* As the library packs it, whose own way to do so is its secret. */
QByteArray messageOf(const QStringList& list)
{
    QByteArray body;
    QDataStream stream(&body, QIODevice::WriteOnly);
    stream << list;
    QByteArray prefix(sizeof(quint16), '\0');
    qToLittleEndian(static_cast<quint16>(body.size()), prefix.data());
    return prefix + body;
}

bool sendMark(quint16 port, const QDeadlineTimer& deadline)
{
    const auto remaining = [&deadline] { return static_cast<int>(deadline.remainingTime()); };
    QTcpSocket socket;
    for (const auto address : {QHostAddress::LocalHostIPv6, QHostAddress::LocalHost}) {
        socket.connectToHost(QHostAddress(address), port, QIODevice::WriteOnly);
        if (socket.waitForConnected(remaining())) {
            socket.write(messageOf({markName()}));
            return socket.waitForBytesWritten(remaining());
        }
    }
    return false;
}

using SingleInstance::SingleInstanceController;

int marksIn(SingleInstanceController& controller)
{
    const auto inbox = controller.peekMessages();
    return static_cast<int>(std::count_if(inbox.begin(), inbox.end(), isFlushMark));
}

/* Sends marks until the inbox is quiet. Returns whether each arrived in time. */
bool sendMarks(SingleInstanceController& controller, quint16 port, QSemaphore& arrivals)
{
    const QDeadlineTimer deadline(timeLimit);
    auto seen = controller.peekMessages().size();
    for (int sent = 1, quiet = 0; quiet < quietMarks; ++sent) {
        if (!sendMark(port, deadline))
            return false;
        while (marksIn(controller) < sent) {
            if (!arrivals.tryAcquire(1, static_cast<int>(deadline.remainingTime())))
                return false;
        }
        const auto before = std::exchange(seen, controller.peekMessages().size());
        quiet = seen == before + 1 ? quiet + 1 : 0;
    }
    return true;
}

} // namespace

bool isFlushMark(const QStringList& list)
{
    return list.size() == 1 && list.first() == markName();
}

void flushInbox(SingleInstanceController& controller)
{
    const quint16 port = ownPort();
    if (port == 0)
        return;
    // Shared with the slot, which the server thread may still be running when we have given up.
    const auto arrivals = std::make_shared<QSemaphore>();
    const auto connection =
        QObject::connect(&controller, &SingleInstanceController::messageReceived,
                         [arrivals] { arrivals->release(); });
    if (!sendMarks(controller, port, *arrivals))
        qWarning("HostKit: what was handed over last may be lost, the master is too busy");
    QObject::disconnect(connection);
}

} // namespace HostKit

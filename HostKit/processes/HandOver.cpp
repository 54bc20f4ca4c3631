#include "HandOver.h"

#include "MessageFormat.h"

#include <QtNetwork/QHostAddress>
#include <QtNetwork/QNetworkProxy>
#include <QtNetwork/QTcpSocket>

#include <poll.h>
#include <sys/socket.h>

namespace HostKit {

using SingleInstance::packArguments;
using SingleInstance::prefixed;

namespace {

constexpr int orderPatience = 100; // ms

/* A master closes its end when it has read all; one that does not move must not hold us up. */
bool isRead(int connection)
{
    ::shutdown(connection, SHUT_WR);
    pollfd end = {connection, POLLIN, 0};
    return ::poll(&end, 1, orderPatience) > 0;
}

/* Waits until the list was read if the master \a isMoving, or sets that to false. */
bool handOver(const QStringList& list, quint16 port, const QDeadlineTimer& deadline, bool& isMoving)
{
    const QStringList noArguments(QStringLiteral(" ")); // as they are sent
    const auto remaining = [&deadline] { return static_cast<int>(deadline.remainingTime()); };
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy); // or Qt looks for one, and loads what it needs
    for (const auto address : {QHostAddress::LocalHostIPv6, QHostAddress::LocalHost}) {
        socket.connectToHost(QHostAddress(address), port, QIODevice::WriteOnly);
        if (!socket.waitForConnected(remaining()))
            continue;
        socket.write(prefixed(packArguments(list.isEmpty() ? noArguments : list)));
        while (socket.bytesToWrite() > 0 && socket.waitForBytesWritten(remaining())) { }
        if (socket.bytesToWrite() > 0)
            return false;
        isMoving = isMoving && isRead(static_cast<int>(socket.socketDescriptor()));
        return true;
    }
    return false;
}

} // namespace

bool handOver(const QStringList& list, quint16 port, const QDeadlineTimer& deadline)
{
    bool isMoving = true;
    return handOver(list, port, deadline, isMoving);
}

int handOverAll(const QList<QStringList>& lists, quint16 port, std::chrono::milliseconds patience)
{
    const QDeadlineTimer deadline(patience);
    bool isMoving = true;
    int handedOver = 0;
    while (handedOver < lists.size() && handOver(lists[handedOver], port, deadline, isMoving))
        ++handedOver;
    return handedOver;
}

} // namespace HostKit

#include "MessageSender.h"

#include "LogBridge.h"
#include "MessageFormat.h"
#include "SettingsSlot.h"

#include <QtNetwork/QHostAddress>
#include <QtNetwork/QNetworkProxy>
#include <QtNetwork/QTcpSocket>

namespace SingleInstance {

using torvane::LogLevel;

namespace {

constexpr int connectTimeout = 30000; // ms
constexpr int writeTimeout = 30000; // ms

void requireValid(const QByteArray& body)
{
    if (body.isEmpty())
        fatalError("sending empty message not supported!");
    if (body.size() > maxBodySize)
        fatalError("sending message is too long!");
}

bool connectTo(QTcpSocket& socket, QHostAddress::SpecialAddress address, quint16 port)
{
    socket.connectToHost(QHostAddress(address), port, QIODevice::WriteOnly);
    return socket.waitForConnected(connectTimeout);
}

bool connectByAnyProtocol(QTcpSocket& socket, quint16 port)
{
    const auto errorCode = [&socket] { return static_cast<int>(socket.error()); };
    if (connectTo(socket, QHostAddress::LocalHostIPv6, port)) {
        logLine(LogLevel::Info, "connected to the master by IPv6.");
        return true;
    }
    logLine(LogLevel::Debug, "failed to connect to the master by IPv6, error: ", errorCode);
    if (connectTo(socket, QHostAddress::LocalHost, port)) {
        logLine(LogLevel::Info, "connected to the master by IPv4.");
        return true;
    }
    logLine(LogLevel::Debug, "failed to connect to the master by IPv4, error: ", errorCode);
    logLine(LogLevel::Info, "sending message failed, no connection with the master.");
    return false;
}

void writeMessage(QTcpSocket& socket, const QByteArray& message)
{
    if (socket.write(message) != message.size())
        logLine(LogLevel::Warning, "failed to write all message data, socket error: ", [&socket] {
            return static_cast<int>(socket.error());
        });
    socket.flush();
    socket.waitForBytesWritten(writeTimeout);
    socket.close();
}

} // namespace

bool sendToMaster(const QByteArray& body)
{
    logLine(LogLevel::Info, "sending message to the master.");
    requireValid(body);
    const quint16 port = readMasterPort();
    if (port == 0) {
        logLine(LogLevel::Info, "sending message impossible, target port was not defined.");
        return false;
    }
    return sendTo(port, body);
}

bool sendTo(quint16 port, const QByteArray& body)
{
    requireValid(body);
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy); // Qt takes a while to find that loopback needs none
    if (!connectByAnyProtocol(socket, port))
        return false;
    writeMessage(socket, prefixed(body));
    logLine(LogLevel::Info, "sending message completed.");
    return true;
}

} // namespace SingleInstance

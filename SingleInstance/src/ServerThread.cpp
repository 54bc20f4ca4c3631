#include "ServerThread.h"

#include "AcceptGate.h"
#include "FileDescriptors.h"
#include "LogBridge.h"
#include "Receiver.h"
#include "SettingsSlot.h"
#include "Termination.h"

#include <QtCore/QScopeGuard>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpServer>

#include <utility>

namespace SingleInstance {

using torvane::LogLevel;

namespace {

bool listenOnLoopback(QTcpServer& server)
{
    if (server.listen(QHostAddress(QHostAddress::LocalHostIPv6), 0)) {
        logLine(LogLevel::Info, "the server has started listening on IPv6.");
        return true;
    }
    if (server.listen(QHostAddress(QHostAddress::LocalHost), 0)) {
        logLine(LogLevel::Info, "the server has started listening on IPv4.");
        return true;
    }
    return false;
}

bool slotHolds(quint16 expected)
{
    if (readMasterPort() == expected)
        return true;
    logLine(LogLevel::Info,
            "someone occupy the port's slot - other server started, stopping this server.");
    return false;
}

/*
 * Nobody locks the slot. If its value changed while the server opened, or did not stay after it was
 * written, another process is becoming master at this moment. A value that did not change may be
 * left from a crash.
 */
bool claimSlot(quint16 portBefore, quint16 port)
{
    if (!slotHolds(portBefore))
        return false;
    writeMasterPort(port);
    return slotHolds(port);
}

void serve(QTcpServer& server, const std::shared_ptr<MessageCallback>& messageCallback)
{
    std::unique_ptr<QTcpSocket> socket(server.nextPendingConnection());
    if (socket)
        receiveMessage(std::move(socket), messageCallback, &server);
}

class ServerThread : public QThread {
public:
    ServerThread(std::function<void(bool)> started,
                 std::function<void(const QStringList&)> received)
        : startedCallback(std::move(started))
        , messageCallback(std::move(received))
    {
    }
    ~ServerThread() override;

private:
    static MessageCallback terminable(MessageCallback callback);
    void run() override;
    void report(bool ok);

    std::function<void(bool)> startedCallback;
    std::function<void(const QStringList&)> messageCallback;
    qintptr leftListening = -1; // the socket of a thread that was terminated
};

/* A terminated thread leaves its socket open. Launches would connect, and nobody would read. */
ServerThread::~ServerThread()
{
    if (leftListening != -1)
        closeSocket(leftListening);
}

/* The host's slots may hang. */
MessageCallback ServerThread::terminable(MessageCallback callback)
{
    if (!callback)
        return callback;
    return [callback = std::move(callback)](const QStringList& arguments) {
        const HostCall call;
        callback(arguments);
    };
}

void ServerThread::run()
{
    forbidTermination();
    const quint16 portBefore = readMasterPort();
    const auto sharedCallback =
        std::make_shared<MessageCallback>(terminable(std::move(messageCallback)));
    QTcpServer server;
    connect(
        &server, &QTcpServer::newConnection, &server,
        [server = &server, sharedCallback] { serve(*server, sharedCallback); },
        Qt::DirectConnection);

    // If a terminated thread unwinds its stack, the server closes its socket.
    const auto closed = qScopeGuard([this] { leftListening = -1; });
    const bool ok = listenOnLoopback(server) && claimSlot(portBefore, server.serverPort());
    leftListening = server.socketDescriptor();
    if (ok)
        keepDescriptorsFree(server);
    report(ok);
    if (ok)
        QThread::run();

    // Deliberately no scope guard: a terminated thread may unwind its stack, and must leave its
    // port.
    if (readMasterPort() == server.serverPort())
        writeMasterPort(0);
    server.close();
}

void ServerThread::report(bool ok)
{
    if (startedCallback)
        startedCallback(ok);
    startedCallback = nullptr;
}

} // namespace

std::unique_ptr<QThread> makeServerThread(std::function<void(bool)> startedCallback,
                                          std::function<void(const QStringList&)> messageCallback)
{
    return std::make_unique<ServerThread>(std::move(startedCallback), std::move(messageCallback));
}

} // namespace SingleInstance

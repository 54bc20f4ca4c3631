#include "Receiver.h"

#include "LogBridge.h"
#include "MessageFormat.h"
#include "Termination.h"

#include <Core/Invokator.h>

#include <utility>

namespace SingleInstance {

using torvane::LogLevel;

namespace {

/*
 * One accepted connection. It reads exactly two bytes for the prefix, and then exactly the missing
 * bytes of the body. Bytes after the message are never read.
 */
class Receiver : public QObject {
public:
    Receiver(std::unique_ptr<QTcpSocket> socket, std::shared_ptr<MessageCallback> messageCallback,
             QObject* parent);
    ~Receiver() override;

private:
    void readMessage();
    bool readSize();
    void parseMessage();
    void closeConnection();
    void append(qint64 size) { receivedData.append(socket->read(size)); }
    qint64 missing() const { return qint64(messageSize) - receivedData.size(); }

    QByteArray receivedData;
    quint16 messageSize = 0; // 0 until the prefix has been read
    std::unique_ptr<QTcpSocket> socket;
    std::shared_ptr<MessageCallback> messageCallback;
    bool finished = false; // everything that still comes is ignored
};

Receiver::Receiver(std::unique_ptr<QTcpSocket> acceptedSocket,
                   std::shared_ptr<MessageCallback> callback, QObject* parent)
    : QObject(parent)
    , socket(std::move(acceptedSocket))
    , messageCallback(std::move(callback))
{
    if (!socket)
        fatalError("Receiver cannot work with a null socket!");
    socket->setParent(nullptr); // the server owned it
    connect(socket.get(), &QAbstractSocket::disconnected, this, &Receiver::closeConnection);
    connect(socket.get(), &QIODevice::readyRead, this, &Receiver::readMessage);
    const HostCall call;
    if (socket->bytesAvailable() >= prefixSize)
        Core::Invokator::invokeInCurrentThread([this] { readMessage(); }, this);
}

Receiver::~Receiver()
{
    socket->close();
}

void Receiver::readMessage()
{
    // The first read may be queued, and a readyRead may complete the message before it. A second
    // pass would hand the list on twice.
    if (finished)
        return;
    append(messageSize == 0 ? qint64(prefixSize) : missing());
    if (messageSize == 0 && !readSize())
        return;
    if (missing() > 0)
        return;
    logLine(LogLevel::Debug, "reading message of ", messageSize, " byte(s) completed.");
    // A slot in this thread may run an event loop of its own. That must not call this again.
    finished = true;
    socket->disconnect(this);
    parseMessage();
    closeConnection();
}

/*
 * Removes the prefix from the data and reads the part of the body that has arrived. Returns whether
 * the size is known now.
 */
bool Receiver::readSize()
{
    if (receivedData.isEmpty()) {
        logLine(LogLevel::Warning, "cannot read invalid message, received data size is 0.");
        closeConnection();
        return false;
    }
    if (receivedData.size() < prefixSize)
        return false;
    const quint16 announced = bodySize(receivedData);
    receivedData.remove(0, prefixSize);
    if (announced == 0) {
        logLine(LogLevel::Warning, "cannot read invalid message, received message size is 0.");
        closeConnection();
        return false;
    }
    messageSize = announced;
    logLine(LogLevel::Debug, "reading message of ", messageSize, " byte(s).");
    // A body of one byte waits for the next event, as docs/protocol.md says.
    if (socket->bytesAvailable() >= prefixSize)
        append(missing());
    return true;
}

void Receiver::parseMessage()
{
    if (!messageCallback || !*messageCallback)
        return;
    QStringList arguments;
    const QDataStream::Status status = unpackArguments(receivedData, arguments);
    if (status != QDataStream::Ok) {
        logLine(LogLevel::Warning, "invalid message received, stream status: ", [status] {
            return static_cast<int>(status);
        });
        return;
    }
    logLine(LogLevel::Info,
            "message received: ", [&arguments] { return arguments.join(QLatin1Char(' ')); });
    (*messageCallback)(arguments);
}

void Receiver::closeConnection()
{
    finished = true;
    socket->close(); // may emit disconnected() and call this again, which is harmless
    deleteLater();
}

} // namespace

void receiveMessage(std::unique_ptr<QTcpSocket> socket,
                    std::shared_ptr<MessageCallback> messageCallback, QObject* parent)
{
    // It deletes itself when it is done, unless its parent deletes it first.
    new Receiver(std::move(socket), std::move(messageCallback), parent);
}

} // namespace SingleInstance

#include "MessageFormat.h"
#include "Receiver.h"
#include "ScriptedHost.h"
#include "Table.h"

#include <QtNetwork/QTcpServer>

using namespace SingleInstance;

/* What a receiver makes of the bytes of a connection. */
class HandoffTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        ScriptedHost::reset();
        received.clear();
        client.abort();
        QVERIFY(server.isListening() || server.listen(QHostAddress::LocalHost));
    }

    /* The rows of docs/protocol.md that begin with bytes. */
    void keepsToTheProtocol_data()
    {
        addProtocolRows(R"(^\| `([0-9A-F ]+)` \| `?([^|`]+)`? \|)", "bytes", "outcome");
    }

    void keepsToTheProtocol()
    {
        QFETCH(QString, bytes);
        QFETCH(QString, outcome); // a list or a warning
        const QByteArray message = QByteArray::fromHex(bytes.toLatin1());
        QStringList list;
        for (const auto& text : QJsonDocument::fromJson(outcome.toUtf8()).array())
            list.append(text.toString());
        const QString sent = contentOf(PROTOCOL).section("## Messages that are ", 1, 1);
        QVERIFY(!sent.isEmpty());
        QVERIFY(!sent.contains("`" + bytes + "`") || prefixed(packArguments(list)) == message);
        const bool isList = outcome.startsWith('[');
        const QString reading = QString("1 reading message of %1 byte(s)").arg(bodySize(message));
        QStringList log = {reading + ".", reading + " completed."};
        if (bodySize(message) == 0)
            log.clear();
        log.append(isList ? "2 message received: " + list.join(' ') : "3 " + outcome);

        for (const int part : {int(message.size()), 1, 3}) {
            received.clear();
            const auto socket = receive();
            for (int i = 0; i < message.size(); i += part)
                write(socket, message.mid(i, part));
            QTRY_VERIFY(!socket);
            client.abort();
            QCOMPARE(received, isList ? QList<QStringList>{list} : QList<QStringList>());
            QVERIFY(!isList
                    || packArguments(received[0])
                        == packArguments(list)); // null and empty strings differ
            QCOMPARE(ScriptedHost::takeLog(), log);
        }
    }

    void readsOnceWhenTheFirstReadIsOvertaken()
    {
        const QStringList list(QString(32000, 'x'));
        const QByteArray message = prefixed(packArguments(list));
        const auto socket = receive(message.left(300));
        client.write(message.mid(300));
        client.waitForBytesWritten();
        while (received.isEmpty() && socket->waitForReadyRead(5000)) { }
        QTRY_VERIFY(!socket);
        QCOMPARE(received, QList<QStringList>{list});
    }

    void abandonsWhatIsNoMessage()
    {
        auto socket = receive(QByteArray(2, '\0')); // nothing comes after it
        QTRY_VERIFY(!socket);
        client.abort();
        QCOMPARE(ScriptedHost::takeLog(),
                 QStringList("3 cannot read invalid message, received message size is 0."));
        socket = receive();
        Q_EMIT socket->readyRead();
        QTRY_VERIFY(!socket);
        client.abort();
        socket = receive();
        write(socket, QByteArray("\x12\0\0\0\0", 5));
        client.disconnectFromHost();
        QTRY_VERIFY(!socket);
        QVERIFY(received.isEmpty());
        QCOMPARE(ScriptedHost::takeLog(),
                 (QStringList{"3 cannot read invalid message, received data size is 0.",
                              "1 reading message of 18 byte(s)."}));
    }

private:
    /* Starts a receiver for what the client sends. */
    QPointer<QTcpSocket> receive(const QByteArray& sentBefore = {})
    {
        client.connectToHost(server.serverAddress(), server.serverPort());
        server.waitForNewConnection(5000);
        QPointer<QTcpSocket> socket = server.nextPendingConnection();
        if (!sentBefore.isEmpty())
            write(socket, sentBefore);
        const auto callback = [this](const QStringList& list) {
            received.append(list);
            QCoreApplication::processEvents(); // as a slot may
        };
        receiveMessage(std::unique_ptr<QTcpSocket>(socket),
                       std::make_shared<MessageCallback>(callback), &server);
        return socket;
    }

    /* Sends \a bytes and waits until they are read, unless the connection is closed. */
    void write(const QPointer<QTcpSocket>& receiving, const QByteArray& bytes)
    {
        if (!receiving)
            return;
        const QSignalSpy read(receiving.data(), &QIODevice::readyRead);
        client.write(bytes);
        QTRY_VERIFY(!read.isEmpty() || !receiving);
    }

    QTcpServer server;
    QTcpSocket client;
    QList<QStringList> received;
};

QTEST_GUILESS_MAIN(HandoffTest)
#include "tst_handoff.moc"

#include "MessageFormat.h"
#include "MessageSender.h"
#include "Receiver.h"
#include "ScriptedHost.h"

#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <dlfcn.h>

using namespace SingleInstance;

namespace {

bool writesShort = false;

} // namespace

/* In front of Qt's own, to lose a byte. */
qint64 QIODevice::write(const char* data, qint64 size)
{
    using Write = qint64 (*)(QIODevice*, const char*, qint64);
    static const auto original =
        reinterpret_cast<Write>(::dlsym(RTLD_NEXT, "_ZN9QIODevice5writeEPKcx"));
    return original(this, data, writesShort ? size - 1 : size);
}

namespace {

QByteArray hex(const char* digits)
{
    return QByteArray::fromHex(digits);
}

QList<QByteArray> oneByOne(const QByteArray& bytes)
{
    QList<QByteArray> chunks;
    for (const char byte : bytes)
        chunks.append(QByteArray(1, byte));
    return chunks;
}

QByteArray longestMessage()
{
    QByteArray body = packArguments({QString(32763, QLatin1Char('x'))}) + '\0';
    return prefixed(body); // even through a list; the last byte is one too many and ignored
}

} // namespace

/* The bytes between two processes, seen from both ends. */
class HandoffTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void packs_data();
    void packs();
    void unpacksAsTheStreamDoes();
    void receives_data();
    void receives();
    void readsOnceWhenTheFirstReadIsOvertaken();
    void abandonsAReadEventWithoutData();
    void sends_data();
    void sends();
    void carriesOnAfterAShortWrite();

private:
    QTcpSocket* receive(); // the master's end of a new connection; client is the other
    void write(QIODevice* receiving, const QByteArray& bytes);

    QTcpServer server;
    QTcpSocket client;
    QList<QStringList> received;
};

void HandoffTest::init()
{
    ScriptedHost::reset();
    received.clear();
    client.abort();
    QVERIFY(server.isListening() || server.listen(QHostAddress::LocalHost));
}

void HandoffTest::packs_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("a space") << QStringList{" "} << hex("0A00 00000001 00000002 0020");
    QTest::newRow("two arguments")
        << QStringList{"-a", "b"} << hex("1200 00000002 00000004 002D0061 00000002 0062");
    QTest::newRow("a file") << QStringList{"a.txt"}
                            << hex("1200 00000001 0000000A 0061002E007400780074");
    QTest::newRow("an empty argument") << QStringList{""} << hex("0800 00000001 00000000");
    QTest::newRow("300 bytes") << QStringList{QString(146, QChar())}
                               << hex("2C01 00000001 00000124") + QByteArray(292, '\0');
}

void HandoffTest::packs()
{
    QFETCH(QStringList, arguments);
    QTEST(prefixed(packArguments(arguments)), "message");
}

/* Each byte of a body changed, and each length cut: status and list have to be the stock ones. */
void HandoffTest::unpacksAsTheStreamDoes()
{
    const QByteArray body = packArguments({"", QString(), "a.txt", QString(300, 'x'), "b"});
    QList<QByteArray> bodies;
    for (int i = 0; i < 40; ++i) {
        bodies.append(body.left(i));
        for (const int value : {0, 1, 2, 3, 5, 255})
            bodies.append(QByteArray(body).replace(i, 1, QByteArray(1, char(value))));
    }
    for (const QByteArray& candidate : bodies) {
        if (candidate.size() > 0 && candidate.at(0) != 0)
            continue; // for such a count the stock operator reserves gigabytes
        QDataStream stream(candidate);
        QStringList expected;
        stream >> expected;
        QStringList unpacked;
        const QDataStream::Status status = unpackArguments(candidate, unpacked);
        QVERIFY2(status == stream.status() && unpacked == expected, candidate.toHex());
    }
}

void HandoffTest::receives_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QList<QStringList>>("lists");
    QTest::addColumn<QStringList>("log");

    using Chunks = QList<QByteArray>;
    using Lists = QList<QStringList>;
    const QByteArray file = hex("1200 00000001 0000000A 0061002E007400780074");
    const QStringList fileLog = {"1 reading message of 18 byte(s).",
                                 "1 reading message of 18 byte(s) completed.",
                                 "2 message received: a.txt"};
    const Lists fileList = {{"a.txt"}};
    QTest::newRow("a message at once") << Chunks{file} << fileList << fileLog;
    QTest::newRow("a message byte by byte") << oneByOne(file) << fileList << fileLog;
    QTest::newRow("a prefix in two parts")
        << Chunks{file.left(1), file.mid(1, 2), file.mid(3)} << fileList << fileLog;
    QTest::newRow("a prefix and one byte")
        << Chunks{file.left(3), file.mid(3)} << fileList << fileLog;
    QTest::newRow("only the first of two") << Chunks{file + file} << fileList << fileLog;

    const auto accepted = [](const char* name, const QByteArray& message, const QStringList& list) {
        const QString size = QString::number(message.size() - prefixSize);
        QTest::newRow(name) << Chunks{message} << Lists{list}
                            << QStringList{"1 reading message of " + size + " byte(s).",
                                           "1 reading message of " + size + " byte(s) completed.",
                                           "2 message received: " + list.join(' ')};
    };
    accepted("an empty list", hex("0400 00000000"), {});
    accepted("a null string", hex("0800 00000001 FFFFFFFF"), {QString()});
    accepted("bytes behind the last string", hex("0900 00000001 00000000 AA"), {""});
    accepted("line breaks", prefixed(packArguments({"a\r\nb", "c"})), {"a\r\nb", "c"});
    accepted("a character of two units", hex("0C00 00000001 00000004 D83DDE00"),
             {QString::fromUtf8("\xF0\x9F\x98\x80")});

    QTest::newRow("half a pair of units")
        << Chunks{hex("0A00 00000001 00000002 D83D")} << Lists{{QString(QChar(0xD83D))}}
        << QStringList{"1 reading message of 10 byte(s).",
                       "1 reading message of 10 byte(s) completed.",
                       QString::fromUtf8("2 message received: \xEF\xBF\xBD")};
    QTest::newRow("a length of zero")
        << Chunks{hex("0000 AA")} << Lists{}
        << QStringList{"3 cannot read invalid message, received message size is 0."};
    QTest::newRow("an end before the body")
        << Chunks{file.left(9)} << Lists{} << QStringList(fileLog.first());
    QTest::newRow("an end before the prefix") << Chunks{file.left(1)} << Lists{} << QStringList();

    const auto rejected = [](const char* name, const QByteArray& message, int status) {
        const QString size = QString::number(message.size() - prefixSize);
        QTest::newRow(name) << Chunks{message} << Lists{}
                            << QStringList{"1 reading message of " + size + " byte(s).",
                                           "1 reading message of " + size + " byte(s) completed.",
                                           "3 invalid message received, stream status: "
                                               + QString::number(status)};
    };
    rejected("three strings announced and two held", hex("0C00 00000003 00000000 00000000"), 1);
    rejected("an odd text length", hex("0B00 00000001 00000003 006100"), 2);
    rejected("the largest signed count", hex("0800 7FFFFFFF 00000000"), 1);
    rejected("the largest count", hex("0800 FFFFFFFF 00000000"), 1);
    rejected("the largest text length", hex("0A00 00000001 FFFFFFFE 0061"), 1);
    rejected("a body without a count", hex("0300 000000"), 1);
}

QTcpSocket* HandoffTest::receive()
{
    client.connectToHost(server.serverAddress(), server.serverPort());
    server.waitForNewConnection(5000);
    return server.nextPendingConnection();
}

void HandoffTest::write(QIODevice* receiving, const QByteArray& bytes)
{
    const QPointer<QIODevice> end = receiving;
    QSignalSpy reads(receiving, &QIODevice::readyRead);
    client.write(bytes);
    QTRY_VERIFY(!end || !reads.isEmpty());
}

void HandoffTest::receives()
{
    QFETCH(QList<QByteArray>, chunks);
    QTcpSocket* const socket = receive();
    const QPointer<QTcpSocket> end = socket;
    receiveMessage(std::unique_ptr<QTcpSocket>(socket),
                   std::make_shared<MessageCallback>(
                       [this](const QStringList& arguments) { received.append(arguments); }),
                   &server);
    for (const QByteArray& chunk : chunks) {
        if (end)
            write(end, chunk);
    }
    client.disconnectFromHost();
    QTRY_VERIFY(!end);
    QTEST(received, "lists");
    QTEST(ScriptedHost::takeLog(), "log");
}

void HandoffTest::readsOnceWhenTheFirstReadIsOvertaken()
{
    ScriptedHost::holdInvoked();
    QTcpSocket* const socket = receive();
    const QPointer<QTcpSocket> end = socket;
    const QByteArray message = longestMessage();
    write(socket, message.left(300)); // waits in the socket when the reading begins
    receiveMessage(std::unique_ptr<QTcpSocket>(socket),
                   std::make_shared<MessageCallback>([this](const QStringList& arguments) {
                       received.append(arguments);
                       QCOMPARE(ScriptedHost::runInvoked(), 1);
                   }),
                   &server);
    write(socket, message.mid(300));
    QTRY_VERIFY(!end);
    QCOMPARE(received, QList<QStringList>{{QString(32763, QLatin1Char('x'))}});
}

void HandoffTest::abandonsAReadEventWithoutData()
{
    QTcpSocket* const socket = receive();
    const QPointer<QTcpSocket> end = socket;
    receiveMessage(std::unique_ptr<QTcpSocket>(socket), nullptr, &server);
    emit socket->readyRead();
    QTRY_VERIFY(!end);
    QCOMPARE(ScriptedHost::takeLog(),
             QStringList("3 cannot read invalid message, received data size is 0."));
}

void HandoffTest::sends_data()
{
    QTest::addColumn<QString>("listener"); // none if empty
    QTest::addColumn<QVariant>("slot");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("log");

    const QStringList sent = {"2 sending message to the master.",
                              "1 failed to connect to the master by IPv6, error: 0",
                              "2 connected to the master by IPv4.", "2 sending message completed."};
    const QString v4 = "127.0.0.1";
    const QString v6 = "::1";
    for (const int size : {1, 18, 300, 65535})
        QTest::addRow("%d bytes", size) << v4 << QVariant() << QByteArray(size, 'x') << sent;

    if (QTcpServer().listen(QHostAddress(v6)))
        QTest::newRow("by IPv6") << v6 << QVariant() << QByteArray(18, 'x')
                                 << QStringList{sent[0], "2 connected to the master by IPv6.",
                                                sent[3]};
    QTest::newRow("more than a port")
        << v4 << QVariant(0x10000) << QByteArray(1, 'x')
        << QStringList{sent[0], "2 sending message impossible, target port was not defined."};
    QTest::newRow("no number") << v4 << QVariant("x") << QByteArray(1, 'x')
                               << QStringList{sent[0],
                                              "2 sending message impossible, target port was not "
                                              "defined."};
    QTest::newRow("nobody there")
        << QString() << QVariant() << QByteArray(1, 'x')
        << QStringList{sent[0], sent[1], "1 failed to connect to the master by IPv4, error: 0",
                       "2 sending message failed, no connection with the master."};
}

void HandoffTest::sends()
{
    QFETCH(QString, listener);
    QFETCH(QVariant, slot);
    QFETCH(QByteArray, body);
    QTcpServer master;
    QVERIFY(master.listen(QHostAddress(listener.isEmpty() ? "127.0.0.1" : listener)));
    ScriptedHost::set("MasterPort", slot.isValid() ? slot : QVariant(master.serverPort()));
    if (listener.isEmpty())
        master.close();

    const bool delivered = sendToMaster(body);

    // A machine without IPv6 refuses it with another code than one where nobody listens.
    const QStringList log = ScriptedHost::takeLog().replaceInStrings(
        QRegularExpression("(IPv6, error:) \\d+"), "\\1 0");
    QTEST(log, "log");
    QCOMPARE(delivered, log.last() == "2 sending message completed.");
    if (!delivered)
        return;
    QVERIFY(master.waitForNewConnection(5000));
    QTcpSocket* const end = master.nextPendingConnection();
    QByteArray arrived;
    while (end->waitForReadyRead(5000))
        arrived += end->readAll();
    const int size = body.size();
    QCOMPARE(arrived, QByteArray(1, char(size & 0xFF)) + char(size >> 8) + body);
}

void HandoffTest::carriesOnAfterAShortWrite()
{
    ScriptedHost::set("MasterPort", server.serverPort());
    writesShort = true;
    QVERIFY(sendToMaster("body"));
    writesShort = false;
    const QStringList log = ScriptedHost::takeLog();
    QVERIFY(log.value(3).startsWith("3 failed to write all message data, socket error: "));
    QCOMPARE(log.value(4), "2 sending message completed.");
}

QTEST_GUILESS_MAIN(HandoffTest)
#include "tst_handoff.moc"

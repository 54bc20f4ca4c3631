#include "MessageFormat.h"
#include "MessageSender.h"
#include "Rounds.h"
#include "ScriptedHost.h"
#include "SingleInstanceController.h"

#include <Core/ObjectsPool.h>

#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

#include <cerrno>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace SingleInstance;

namespace {

int entries(const char* folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

double processorSeconds()
{
    rusage used = {};
    ::getrusage(RUSAGE_SELF, &used);
    return double(used.ru_utime.tv_sec + used.ru_stime.tv_sec)
        + double(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
}

QByteArray messageOf(const QString& argument)
{
    return prefixed(packArguments({argument}));
}

/* A thousand, or as many as the descriptors of both ends allow. */
int mostClients()
{
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    return int(std::min<rlim_t>(1000, (limit.rlim_cur - 200) / 2));
}

/* Descriptors that the host uses for something else. */
class UsedDescriptors {
public:
    ~UsedDescriptors() { release(); }
    size_t useAll()
    {
        for (int file = ::dup(0); file >= 0; file = ::dup(0))
            used.push_back(file);
        return used.size();
    }
    void release()
    {
        for (const int file : used)
            ::close(file);
        used.clear();
    }

private:
    std::vector<int> used;
};

/* Lowers the soft limit to so many descriptors above those in use. */
class DescriptorLimit {
public:
    explicit DescriptorLimit(int above)
    {
        ::getrlimit(RLIMIT_NOFILE, &before);
        const int next = ::dup(0);
        ::close(next);
        rlimit lowered = before;
        lowered.rlim_cur = static_cast<rlim_t>(next + above);
        ::setrlimit(RLIMIT_NOFILE, &lowered);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before); }

private:
    rlimit before = {};
};

/* A client whose descriptor is there before they run out. */
class Client {
public:
    Client()
    {
        address = QHostAddress::LocalHostIPv6;
        if (!socket.bind(address)) {
            address = QHostAddress::LocalHost;
            socket.bind(address);
        }
    }
    bool connectToMaster()
    {
        socket.connectToHost(address, quint16(ScriptedHost::setting("MasterPort").toUInt()));
        return socket.waitForConnected(5000);
    }
    void send(const QByteArray& bytes)
    {
        socket.write(bytes);
        socket.waitForBytesWritten(5000);
    }
    void close(bool reset)
    {
        const linger immediate = {1, 0};
        if (reset)
            ::setsockopt(int(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &immediate,
                         sizeof immediate);
        socket.close();
    }

private:
    QTcpSocket socket;
    QHostAddress address;
};

} // namespace

/* What a master has to stand for as long as the application runs. */
class EnduranceTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void recoversFromAFlood_data();
    void recoversFromAFlood();
    void starvesQuietly_data();
    void starvesQuietly();
    void leavesDescriptorsToTheHost();
    void leaksNothing();
    void stopsInSpiteOfASlot_data();
    void stopsInSpiteOfASlot();

private:
    void flood(const QByteArray& sent, bool reset);
    bool handOver(const QString& name); // and wait until it has arrived

    SingleInstanceController* controller = nullptr;
};

void EnduranceTest::init()
{
    ScriptedHost::reset();
    QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
    controller = static_cast<SingleInstanceController*>(
        Core::ObjectsPool::getInstance()
            .find("SingleInstance::SingleInstanceController", false)
            .first);
}

void EnduranceTest::cleanup()
{
    stopSingleInstance();
}

bool EnduranceTest::handOver(const QString& name)
{
    return sendToMaster(packArguments({name}))
        && QTest::qWaitFor([&] { return controller->takeMessages().contains({name}); });
}

void EnduranceTest::recoversFromAFlood_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<bool>("reset");

    QTest::newRow("idle connections") << QByteArray() << false;
    QTest::newRow("half a prefix") << QByteArray("\x12") << false;
    QTest::newRow("half a message") << prefixed(QByteArray(60000, 'x')).left(30000) << false;
    QTest::newRow("connections that reset") << QByteArray("\x12\0\0", 3) << true;
}

void EnduranceTest::recoversFromAFlood()
{
    QFETCH(QByteArray, sent);
    QFETCH(bool, reset);
    const int count = rounds("FLOOD_ROUNDS", 1);
    for (int round = 0; round < count && !QTest::currentTestFailed(); ++round)
        flood(sent, reset);
    qInfo("%d connections: %d rounds, recovered each time", mostClients(), count);
}

void EnduranceTest::flood(const QByteArray& sent, bool reset)
{
    QVERIFY(handOver("before"));
    const auto memory = ::mallinfo2().uordblks;
    const int files = entries("/proc/self/fd");
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < mostClients(); ++i) {
        clients.push_back(std::make_unique<Client>());
        QVERIFY(clients.back()->connectToMaster());
        clients.back()->send(sent);
    }
    QVERIFY(handOver("among them"));
    const double before = processorSeconds();
    QVERIFY(!QTest::qWaitFor([this] { return !controller->peekMessages().isEmpty(); }, 300));
    QVERIFY2(processorSeconds() - before < 0.2, "the master does not rest");

    for (const auto& client : clients)
        client->close(reset);
    clients.clear();
    QTRY_COMPARE(entries("/proc/self/fd"), files);
    QVERIFY(handOver("after"));
    QVERIFY(::mallinfo2().uordblks < memory + (1 << 20));
}

void EnduranceTest::starvesQuietly_data()
{
    QTest::addColumn<bool>("servedBefore");
    QTest::newRow("before the first connection") << false;
    QTest::newRow("after an earlier connection") << true;
}

void EnduranceTest::starvesQuietly()
{
    QFETCH(bool, servedBefore);
    QVERIFY(!servedBefore || handOver("early"));
    Client client;
    const DescriptorLimit limit(100);
    UsedDescriptors used;
    ScriptedHost::takeLog();
    used.useAll();

    const double before = processorSeconds();
    QVERIFY(client.connectToMaster()); // the kernel's queue takes it
    client.send(messageOf("starved"));
    QVERIFY(!QTest::qWaitFor([&] { return !controller->peekMessages().isEmpty(); }, 1000));
    QVERIFY2(processorSeconds() - before < 0.5, "the master spins");
    QCOMPARE(ScriptedHost::takeLog(), QStringList());

    used.release();
    QTRY_COMPARE(controller->peekMessages(), QList<QStringList>{{"starved"}});
    QVERIFY(handOver("late"));
}

void EnduranceTest::leavesDescriptorsToTheHost()
{
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 55; ++i)
        clients.push_back(std::make_unique<Client>());
    const DescriptorLimit limit(60);
    for (const auto& client : clients)
        QVERIFY(client->connectToMaster());
    clients.back()->send(messageOf("behind idle ones"));
    QTRY_VERIFY(entries("/proc/self/fd") > 55 + 20); // as many as it takes
    UsedDescriptors used;
    QVERIFY(used.useAll() >= 16);
    used.release();

    clients.erase(clients.begin(), clients.end() - 1);
    QTRY_COMPARE(controller->peekMessages(), QList<QStringList>{{"behind idle ones"}});
    clients.clear();
    QVERIFY(handOver("late"));
}

void EnduranceTest::leaksNothing()
{
    const auto cycle = [] {
        stopSingleInstance();
        startSingleInstance();
        QVERIFY(sendToMaster(packArguments({"never taken"})));
    };
    for (int i = 0; i < 50; ++i)
        cycle();
    ScriptedHost::takeLog();
    stopSingleInstance();
    startSingleInstance();
    const int files = entries("/proc/self/fd");
    const auto memory = ::mallinfo2().uordblks;
    for (int i = 0; i < 1000; ++i) {
        cycle();
        ScriptedHost::takeLog();
    }
    QTRY_COMPARE(entries("/proc/self/fd"), files);
    QTRY_COMPARE(entries("/proc/self/task"), 3); // the test's, the watchdog's and the master's
    QVERIFY(::mallinfo2().uordblks < memory + 256 * 1024);
}

void EnduranceTest::stopsInSpiteOfASlot_data()
{
    QTest::addColumn<bool>("hangs");
#ifdef TESTS_SANITIZED // which takes what a cancelled thread leaves on its stack for errors
    qInfo("not tried under AddressSanitizer: a slot that hangs");
#else
    QTest::newRow("that hangs") << true;
#endif
    QTest::newRow("that takes 11 s") << false;
}

/* One that hangs is cut off; one that computes comes to its end, and so does the thread. */
void EnduranceTest::stopsInSpiteOfASlot()
{
    QFETCH(bool, hangs);
    QSemaphore entered;
    connect(
        controller, &SingleInstanceController::messageReceived, this,
        [&entered, hangs] {
            const QDeadlineTimer end(11000);
            entered.release();
            while (!hangs && !end.hasExpired()) { }
            if (hangs)
                QThread::sleep(600);
        },
        Qt::DirectConnection);
    QVERIFY(sendToMaster(packArguments({"x"})));
    QVERIFY(entered.tryAcquire(1, 5000));
    const QVariant port = ScriptedHost::setting("MasterPort");
    ScriptedHost::takeLog();
    stopSingleInstance();
    QCOMPARE(ScriptedHost::takeLog(),
             (QStringList{"2 stopping.", "2 stopping the master.",
                          "3 master thread closing too long so terminate it...",
                          "2 the master is stopped.", "2 stopped."}));
    QCOMPARE(ScriptedHost::setting("MasterPort"), hangs ? port : QVariant(0u));
    QCOMPARE(startSingleInstance(), SingleInstanceStateMaster); // a stale port is no hindrance
}

QTEST_GUILESS_MAIN(EnduranceTest)
#include "tst_endurance.moc"

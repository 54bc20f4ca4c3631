#include "MessageFormat.h"
#include "MessageSender.h"
#include "Registry.h"
#include "Rounds.h"
#include "ScriptedHost.h"
#include "SingleInstanceController.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <mutex>
#include <vector>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace SingleInstance;

namespace {

int entries(const QString& folder)
{
    const auto all = QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot;
    return int(QDir("/proc/self/" + folder).entryList(all).size());
}

size_t usedMemory()
{
    return ::mallinfo2().uordblks;
}

/* Sets the soft limit of descriptors. */
void limitDescriptors(int count)
{
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min(rlim_t(count), limit.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

using Clients = std::vector<std::unique_ptr<QTcpSocket>>;

/* Makes \a count connections to the master, each of which sends \a bytes. */
Clients connectClients(size_t count, const QByteArray& bytes)
{
    static const bool hasIPv6 = QTcpServer().listen(QHostAddress::LocalHostIPv6);
    const QHostAddress address(hasIPv6 ? QHostAddress::LocalHostIPv6 : QHostAddress::LocalHost);
    const auto port = quint16(ScriptedHost::state()->settings["MasterPort"].toUInt());
    Clients clients;
    for (; clients.size() < count; clients.back()->waitForBytesWritten()) {
        clients.push_back(std::make_unique<QTcpSocket>());
        clients.back()->connectToHost(address, port);
        if (!clients.back()->waitForConnected())
            qFatal("no connection");
        clients.back()->write(bytes);
    }
    return clients;
}

std::mutex accepting;
std::atomic<bool> acceptFails = false;

} // namespace

/* Takes the place of the C library's, for Qt as well. */
extern "C" __attribute__((visibility("default"))) int accept4(int socket, sockaddr* address,
                                                              socklen_t* length, int flags)
{
    const std::lock_guard<std::mutex> lock(accepting);
    errno = EMFILE;
    return acceptFails ? -1 : int(::syscall(SYS_accept4, socket, address, length, flags));
}

/* What a master has to stand for as long as the application runs. */
class EnduranceTest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        limitDescriptors(2200); // for a thousand connections, of which both ends are ours
        ScriptedHost::reset();
        QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
        controller = findController();
    }

    void cleanup() { stopSingleInstance(); }

    void recoversFromAFlood_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<bool>("reset");

        QTest::newRow("that are idle") << QByteArray() << false;
        QTest::newRow("with half a prefix") << QByteArray("\x12") << false;
        QTest::newRow("with half a message")
            << prefixed(QByteArray(60000, 'x')).left(30000) << false;
        QTest::newRow("that reset") << QByteArray("\x12\0\0", 3) << true;
    }

    void recoversFromAFlood()
    {
        QFETCH(QByteArray, sent);
        QFETCH(bool, reset);
        const int count = rounds("FLOOD_ROUNDS", 1);
        for (int round = 0; round < count; ++round) {
            QVERIFY(handOver("before"));
            const size_t memory = usedMemory();
            const int files = entries("fd");
            Clients clients = connectClients(1000, sent);
            QVERIFY(handOver("among them"));
            QVERIFY(receivesNothingAndRests(300));

            const linger immediate = {1, 0};
            for (const auto& client : clients) {
                if (reset)
                    ::setsockopt(int(client->socketDescriptor()), SOL_SOCKET, SO_LINGER, &immediate,
                                 sizeof immediate);
            }
            clients.clear();
            QTRY_COMPARE(entries("fd"), files);
            QVERIFY(handOver("after"));
            QVERIFY(usedMemory() < memory + (1 << 20));
        }
        qInfo("1,000 connections %s: %d rounds, recovered each time", QTest::currentDataTag(),
              count);
    }

    void starvesQuietly_data()
    {
        QTest::addColumn<size_t>("idle"); // connections before
        QTest::newRow("before the first connection") << size_t(0);
        QTest::newRow("behind idle connections") << size_t(48);
    }

    void starvesQuietly()
    {
        QFETCH(size_t, idle);
        limitDescriptors(entries("fd") + 100);
        Clients clients;
        {
            const std::lock_guard<std::mutex> lock(accepting);
            clients = connectClients(idle, {}); // which are accepted in a row, then
        }
        QTRY_VERIFY(idle == 0 || entries("fd") > 70); // as many as it takes
        ScriptedHost::takeLog();
        std::vector<int> used; // by the host, for something else: all that there are
        for (int file = ::dup(0); file >= 0; file = ::dup(0))
            used.push_back(file);
        QVERIFY(used.size() > 16); // left to the host

        ::close(used.back());
        used.pop_back();
        Clients last = connectClients(1, prefixed(packArguments({"starved"})));
        QVERIFY(receivesNothingAndRests(1000)); // the kernel's queue has it
        QCOMPARE(ScriptedHost::takeLog(), QStringList());

        std::for_each(used.begin(), used.end(), ::close);
        clients.clear();
        QTRY_COMPARE(controller->peekMessages(), QList<QStringList>{{"starved"}});
        last.clear();
        QVERIFY(handOver("late"));
    }

    /* As when another thread takes the last descriptor at that moment. */
    void acceptsAfterAFailure()
    {
        acceptFails = true;
        QVERIFY(sendToMaster(packArguments({"x"})));
        QVERIFY(receivesNothingAndRests(200));
        acceptFails = false;
        QTRY_COMPARE(controller->peekMessages().size(), 1);
    }

#ifndef TESTS_SANITIZED // which takes what a cancelled thread leaves on its stack for errors
    void stopsInSpiteOfASlotThatHangs()
    {
        QSemaphore entered;
        connect(controller, &SingleInstanceController::messageReceived, [&entered] {
            entered.release();
            QThread::sleep(600);
        });
        QVERIFY(sendToMaster(packArguments({"x"})));
        QVERIFY(entered.tryAcquire(1, 5000));
        const QVariant port = ScriptedHost::state()->settings["MasterPort"];
        ScriptedHost::takeLog();
        stopSingleInstance();
        QCOMPARE(ScriptedHost::takeLog()[2], "3 master thread closing too long so terminate it...");
        QCOMPARE(ScriptedHost::state()->settings["MasterPort"], port);
        QCOMPARE(startSingleInstance(), SingleInstanceStateMaster); // it is no hindrance
    }
#endif

private:
    bool handOver(const QString& name)
    {
        return sendToMaster(packArguments({name}))
            && QTest::qWaitFor([&] { return controller->takeMessages().contains({name}); });
    }

    bool receivesNothingAndRests(int milliseconds)
    {
        const std::clock_t before = std::clock();
        const auto receives = [this] { return !controller->peekMessages().isEmpty(); };
        return !QTest::qWaitFor(receives, milliseconds)
            && std::clock() - before < milliseconds * (CLOCKS_PER_SEC / 2000);
    }

    SingleInstanceController* controller = nullptr;
};

QTEST_GUILESS_MAIN(EnduranceTest)
#include "tst_endurance.moc"

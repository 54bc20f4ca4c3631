#include "Master.h"
#include "Receiver.h"

#include <HostKit/Log.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <set>

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace SingleInstance;

namespace {

std::set<int> refusedFamilies; // bind() refuses these, as on a machine without them
std::mutex accepting; // while it is held, the master does not accept
std::atomic<bool> acceptFails = false;

int openFiles()
{
    return int(QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size());
}

/* Sets the soft limit of open files. */
void limitFiles(int count)
{
    const rlimit limit = {rlim_t(count), 2200};
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

/* Returns whether nothing arrives for a while, and hardly any processor time is used. */
bool rests(const Master& master, int milliseconds)
{
    const auto before = std::clock();
    const auto receives = [&master] { return !master.controller->peekMessages().isEmpty(); };
    return !QTest::qWaitFor(receives, milliseconds)
        && std::clock() - before < milliseconds * (CLOCKS_PER_SEC / 2000);
}

/* Returns whether \a name arrives. */
bool reaches(SingleInstanceController* controller, const QString& name)
{
    return handOver({name})
        && QTest::qWaitFor([&] { return controller->takeMessages().contains({name}); });
}

/* Connects all to the master. Each sends \a bytes. If there is a \a controller, waits for it. */
void connectAll(SingleInstanceController* controller, std::vector<QTcpSocket>& clients,
                const QByteArray& bytes, bool reset = false)
{
    int connected = 0;
    const linger end = {reset, 0};
    static const bool hasIPv6 = QTcpServer().listen(QHostAddress::LocalHostIPv6);
    for (QTcpSocket& client : clients) {
        client.connectToHost(hasIPv6 ? QHostAddress::LocalHostIPv6 : QHostAddress::LocalHost,
                             readMasterPort());
        if (!client.waitForConnected())
            qFatal("no connection");
        ::setsockopt(int(client.socketDescriptor()), SOL_SOCKET, SO_LINGER, &end, sizeof end);
        client.write(bytes);
        client.waitForBytesWritten();
        if (controller && ++connected % 25 == 0 && !reaches(controller, "paced"))
            qFatal("the queue is not served");
    }
}

} // namespace

/* These replace the functions of the C library, also for Qt. */
extern "C" __attribute__((visibility("default"))) int accept4(int socket, sockaddr* address,
                                                              socklen_t* length, int flags)
{
    const std::lock_guard<std::mutex> lock(accepting);
    errno = EMFILE;
    return acceptFails ? -1 : int(::syscall(SYS_accept4, socket, address, length, flags));
}

extern "C" __attribute__((visibility("default"))) int bind(int socket, const sockaddr* address,
                                                           socklen_t length) noexcept
{
    errno = EADDRNOTAVAIL;
    return refusedFamilies.count(address->sa_family) > 0
        ? -1
        : static_cast<int>(::syscall(SYS_bind, socket, address, length));
}

/* What happens when Linux refuses something, or when many connections come. */
class LimitsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        ScriptedHost::reset();
        refusedFamilies.clear();
    }

    void cleanup() { QCOMPARE(stopSingleInstance(), SingleInstanceStateInactive); }

    void endsTheProcessOnABrokenPrecondition_data() { addTable("preconditions.txt"); }

    void endsTheProcessOnABrokenPrecondition()
    {
        QFETCH(QString, size); // of a body; -1: a null socket
        const pid_t child = ::fork();
        if (child == 0) {
            HostKit::catchQtMessages(true);
            std::signal(SIGABRT, [](int) {
                const QByteArray message = "5 " + QByteArray(QTest::currentDataTag());
                ::_exit(ScriptedHost::takeLog().last() == QString(message) ? 0 : 1);
            });
            if (size == "-1")
                receiveMessage(nullptr, nullptr, nullptr);
            sendToMaster(QByteArray(size.toInt(), 'x'));
            ::_exit(2);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        QCOMPARE(status, 0);
    }

    void startsWithoutIPv6()
    {
        const Application application;
        for (const int family : {AF_INET6, AF_INET}) {
            refusedFamilies.insert(family);
            const bool isMaster = startSingleInstance() == SingleInstanceStateMaster;
            QCOMPARE(isMaster, family == AF_INET6);
            QCOMPARE(ScriptedHost::takeLog().value(4),
                     isMaster ? "2 the server has started listening on IPv4."
                              : "3 failed to start server.");
            QCOMPARE(handOver({"x"}), isMaster);
            stopSingleInstance();
            ScriptedHost::takeLog();
        }
    }

    void starvesQuietly()
    {
        const Master master;
        const int limit = openFiles() + 100;
        limitFiles(limit);
        const auto restore = qScopeGuard([] { limitFiles(2200); });
        for (const auto& [idle, held] : {std::pair(0U, 0), std::pair(48U, 0), std::pair(24U, 40)}) {
            std::vector<int> high; // the host holds these, and the numbers below are free
            for (int i = 0; i < held; ++i)
                high.push_back(::fcntl(0, F_DUPFD, limit - held));
            std::vector<QTcpSocket> clients(idle);
            {
                const std::lock_guard<std::mutex> noneYet(accepting);
                connectAll(nullptr, clients, {}); // then they are accepted one after another
                QThread::msleep(20); // a count may be as old as 10 ms
            }
            QTRY_VERIFY(idle == 0 || openFiles() > 70); // as many as the gate accepts
            ScriptedHost::takeLog();
            std::vector<int> used; // the host uses all that are free
            for (int file = ::dup(0); file >= 0; file = ::dup(0))
                used.push_back(file);
            QVERIFY(used.size() > 16); // these were left to the host

            ::close(used.back());
            used.pop_back();
            std::vector<QTcpSocket> last(1);
            connectAll(nullptr, last, prefixed(packArguments({"starved"})));
            QVERIFY(rests(master, 1000)); // the kernel's queue has it
            QCOMPARE(ScriptedHost::takeLog(), QStringList());

            std::for_each(used.begin(), used.end(), ::close);
            std::for_each(high.begin(), high.end(), ::close);
            clients = std::vector<QTcpSocket>();
            QTRY_COMPARE(master.controller->peekMessages(), QList<QStringList>{{"starved"}});
            last = std::vector<QTcpSocket>();
            QVERIFY(reaches(master.controller, "late"));
        }
    }

    /* As if another thread took the last descriptor at that moment. */
    void acceptsAfterAFailure()
    {
        const Master master;
        acceptFails = true;
        QVERIFY(handOver({"x"}));
        QVERIFY(rests(master, 200));
        acceptFails = false;
        QTRY_COMPARE(master.controller->peekMessages().size(), 1);
    }

    void recoversFromAFlood_data() { addTable("floods.txt"); }

    void recoversFromAFlood()
    {
        QFETCH(QString, bytes); // of a message, which each of them sends
        QFETCH(QString, end);
        const QByteArray sent = prefixed(QByteArray(60000, 'x')).left(bytes.toInt());
        const int count = std::max(1, qEnvironmentVariableIntValue("FLOOD_ROUNDS"));
        limitFiles(2200); // for both ends of a thousand connections
        const Master master;
        for (int round = 0; round < count; ++round) {
            QVERIFY(reaches(master.controller, "before"));
            const size_t memory = ::mallinfo2().uordblks;
            const int files = openFiles();
            std::vector<QTcpSocket> clients(1000);
            connectAll(master.controller, clients, sent, end == "reset");
            QVERIFY(reaches(master.controller, "among them"));
            QVERIFY(rests(master, 300));
            clients = std::vector<QTcpSocket>();
            QTRY_COMPARE(openFiles(), files);
            QVERIFY(reaches(master.controller, "after"));
            QVERIFY(::mallinfo2().uordblks < memory + (1 << 20));
        }
        qInfo("1,000 connections %s: %d rounds, recovered each time", QTest::currentDataTag(),
              count);
    }
};

QTEST_APPLESS_MAIN(LimitsTest)
#include "tst_limits.moc"

#include "Master.h"
#include "Receiver.h"

#include <HostKit/Log.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <set>

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace SingleInstance;

namespace {

std::set<int> refusedFamilies; // bind() refuses these, as on a machine without them
std::mutex accepting; // while it is held, the master does not accept
std::atomic<bool> acceptFails = false;

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

/* What happens when Linux refuses something. */
class LimitsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        ScriptedHost::reset();
        refusedFamilies.clear();
    }

    void cleanup() { QCOMPARE(stopSingleInstance(), SingleInstanceStateInactive); }

    void endsTheProcessOnABrokenPrecondition_data()
    {
        QTest::addColumn<int>("size"); // of a body; -1: a null socket
        QTest::newRow("sending empty message not supported!") << 0;
        QTest::newRow("sending message is too long!") << 65536;
        QTest::newRow("Receiver cannot work with a null socket!") << -1;
    }

    /* It stops to catch Qt's messages before. */
    void endsTheProcessOnABrokenPrecondition()
    {
        QFETCH(int, size);
        static QtMessageHandler usual = nullptr;
        const pid_t child = ::fork();
        if (child == 0) {
            usual = qInstallMessageHandler(nullptr);
            qInstallMessageHandler(usual);
            HostKit::catchQtMessages(true);
            std::signal(SIGABRT, [](int) {
                const QByteArray message = "5 " + QByteArray(QTest::currentDataTag());
                const bool isRight = qInstallMessageHandler(nullptr) == usual
                    && ScriptedHost::takeLog().last() == QString(message);
                ::_exit(isRight ? 0 : 1);
            });
            if (size < 0)
                receiveMessage(nullptr, nullptr, nullptr);
            else
                sendToMaster(QByteArray(size, 'x'));
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
            QVERIFY(master.rests(1000)); // the kernel's queue has it
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
        QVERIFY(master.rests(200));
        acceptFails = false;
        QTRY_COMPARE(master.controller->peekMessages().size(), 1);
    }
};

QTEST_APPLESS_MAIN(LimitsTest)
#include "tst_limits.moc"

#include "DesktopWindows.h"
#include "Foreground.h"
#include "MessageFormat.h"
#include "MessageSender.h"
#include "Registry.h"
#include "ScriptedHost.h"
#include "SingleInstanceController.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

#include <atomic>
#include <cerrno>
#include <future>
#include <set>
#include <vector>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

Q_DECLARE_METATYPE(SingleInstanceState)

using namespace SingleInstance;

namespace {

std::set<int> refusedFamilies; // by bind(), as on a machine that lacks them

constexpr DWORD gone = 0; // the owner of a window that is no more
std::vector<DWORD> windowOwners; // of each window, topmost first

} // namespace

/* A scripted desktop, in place of the platform layer. What is asked of it goes to the log. */
DWORD GetCurrentProcessId()
{
    return 4711;
}

DWORD GetCurrentThreadId()
{
    return 4712;
}

HDESK GetThreadDesktop(DWORD threadId)
{
    return threadId == GetCurrentThreadId() ? &windowOwners : nullptr;
}

BOOL EnumDesktopWindows(HDESK desktop, WNDENUMPROC callback, LPARAM context)
{
    for (HWND window = 0; desktop == &windowOwners && window < windowOwners.size(); ++window) {
        ScriptedHost::state()->log += QString("window %1 visited").arg(window);
        if (!callback(window, context))
            break;
    }
    return FALSE;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* processId)
{
    if (windowOwners[window] != gone)
        *processId = windowOwners[window];
    return 0;
}

BOOL SetForegroundWindow(HWND window)
{
    ScriptedHost::state()->log += QString("window %1 activated").arg(window);
    return FALSE; // nobody looks at it
}

/* Takes the place of the C library's, for Qt as well. */
extern "C" __attribute__((visibility("default"))) int bind(int socket, const sockaddr* address,
                                                           socklen_t length) noexcept
{
    errno = EADDRNOTAVAIL;
    return refusedFamilies.count(address->sa_family) > 0
        ? -1
        : static_cast<int>(::syscall(SYS_bind, socket, address, length));
}

namespace {

/* An application object with arguments of its own. */
struct Application {
    explicit Application(const QStringList& arguments = {})
    {
        for (const QString& argument : QStringList("program") + arguments)
            texts.push_back(argument.toUtf8());
        for (QByteArray& text : texts)
            pointers.push_back(text.data());
        application =
            std::make_unique<QCoreApplication>(count = int(texts.size()), pointers.data());
    }
    std::vector<QByteArray> texts;
    std::vector<char*> pointers;
    int count = 0;
    std::unique_ptr<QCoreApplication> application;
};

bool handOver(const QStringList& list)
{
    return sendToMaster(packArguments(list));
}

/* The lines of this machine, where IPv6 may be missing, as one that has it writes them. */
QStringList logWithIPv6()
{
    return ScriptedHost::takeLog()
        .replaceInStrings(QRegularExpression("^(2 .*) IPv4\\.$"), "\\1 IPv6.")
        .filter(QRegularExpression("^(?!1 failed to connect to the master by IPv6)"));
}

const QStringList sendingNowhere = {"2 sending message to the master.",
                                    "2 sending message impossible, target port was not defined."};
const QStringList sendingToNobody = {"2 sending message to the master.",
                                     "1 failed to connect to the master by IPv4, error: 0",
                                     "2 sending message failed, no connection with the master."};
const QStringList starting = {"2 starting."};
const QStringList listening = {"2 starting the master.",
                               "2 the server has started listening on IPv6."};
const QStringList serving = listening + QStringList{"2 the master is started.", "2 started."};
const QStringList losing = listening
    + QStringList{"2 someone occupy the port's slot - other server started, stopping this server.",
                  "3 failed to start server."};
const QStringList tryAgain = {"1 cannot start master so try to send command line arguments again."};
const QStringList oneMoreTime = {
    "1 cannot send command line arguments so try to start master one more time."};

const QStringList giveUp = {"2 cannot start master so give up."};
const QStringList tooLong = {"3 command line arguments sequence is too long (65536 bytes)!"};
const QStringList stopping = {"2 stopping.", "2 stopping the master.", "2 the master is stopped.",
                              "2 stopped."};
const QStringList stoppingNothing = {"2 stopping.", "2 no instance found, nothing to stop."};

QStringList handingOver(const QStringList& arguments)
{
    return {"2 sending message to the master.",
            "2 connected to the master by IPv6.",
            "2 sending message completed.",
            "2 command line arguments were transferred to the master: " + arguments.join(' '),
            "window 0 visited",
            "window 1 visited",
            "window 2 visited",
            "window 2 activated"};
}

} // namespace

class ControllerTest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ScriptedHost::reset();
        windowOwners = {6, gone, 5, 5};
        refusedFamilies.clear();
    }

    void cleanup()
    {
        QCOMPARE(stopSingleInstance(), SingleInstanceStateInactive);
        QVERIFY(!findController());
    }

    void arbitrates_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("hasOtherMaster");
        QTest::addColumn<QVariantList>("portReads");
        QTest::addColumn<SingleInstanceState>("state");
        QTest::addColumn<QStringList>("log");

        const auto master = SingleInstanceStateMaster;
        const auto secondary = SingleInstanceStateSecondary;
        const auto failed = SingleInstanceStateFailed;
        // How often a step reads the slot: sending once; starting before and after it listens,
        // after it claims the slot, and at its end.
        const QVariantList stored;
        const QVariantList nobody = {0};
        const QVariantList taken = {0, 7, 7};
        const QVariantList overwritten = {0, 0, 7, 7};
        const QStringList file = {"a.txt", "b"};
        QStringList most = QString(16381, ' ').split(' '); // 16,382 empty ones
        most.last() = "x"; // and 65,534 bytes
        const QStringList lostTwice =
            sendingNowhere + losing + tryAgain + sendingNowhere + oneMoreTime;
        const auto row = [](const char* name, const QStringList& arguments, bool hasOther,
                            const QVariantList& reads, SingleInstanceState state,
                            const QStringList& log) {
            QTest::newRow(name) << arguments << hasOther << reads << state << log;
        };
        row("handed over", file, true, stored, secondary, handingOver(file));
        row("without arguments", {}, true, stored, secondary, handingOver({" "}));
        row("as many as there can be", most, true, stored, secondary, handingOver(most));
        row("too many by one", QString(16382, ' ').split(' '), true, stored, failed, tooLong);
        row("handed over at the second attempt", file, true, nobody + taken, secondary,
            sendingNowhere + losing + tryAgain + handingOver(file));
        row("master", file, false, stored, master, sendingNowhere + serving);
        row("master, as nobody listens", file, false, {0x10001}, master,
            sendingToNobody + serving); // on port 1
        row("master, as that is no port", file, false, {0x10000}, master, sendingNowhere + serving);
        row("master, as that is no number", file, false, {"x"}, master, sendingNowhere + serving);
        row("master at the second attempt", file, false, nobody + overwritten + nobody, master,
            lostTwice + serving);
        row("neither", file, false, nobody + taken + nobody + overwritten, failed,
            lostTwice + losing + giveUp);
    }

    void arbitrates()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, hasOtherMaster);
        QFETCH(QVariantList, portReads);
        QFETCH(SingleInstanceState, state);
        const Application application(arguments);
        QTcpServer other;
        if (hasOtherMaster && other.listen(QHostAddress::LocalHost))
            ScriptedHost::state()->settings["MasterPort"] = other.serverPort();
        ScriptedHost::state()->settings["MasterPid"] = 5u;
        ScriptedHost::state()->portReads = portReads;

        QCOMPARE(SingleInstanceController::start(), state);

        QCOMPARE(getSingleInstanceState(), state);
        const bool isMaster = state == SingleInstanceStateMaster;
        QCOMPARE(ScriptedHost::state()->settings["MasterPid"].toUInt(), isMaster ? 4711u : 5u);
        QCOMPARE(findController() && findController()->isMasterProcess(), isMaster);
        QVERIFY(!isMaster || findController()->peekMessages().isEmpty());
        stopSingleInstance();
        QFETCH(QStringList, log);
        QCOMPARE(logWithIPv6(), starting + log + (isMaster ? stopping : stoppingNothing));
        if (state != SingleInstanceStateSecondary)
            return;
        QVERIFY(other.waitForNewConnection(5000));
        const std::unique_ptr<QTcpSocket> end(other.nextPendingConnection());
        while (end->waitForReadyRead(5000)) { }
        const QStringList sent = arguments.isEmpty() ? QStringList{" "} : arguments;
        QCOMPARE(end->readAll(), prefixed(packArguments(sent)));
    }

    void activatesNoWindowThatNobodyOwns()
    {
        windowOwners = {gone, gone};
        for (const QVariant& masterPid : {QVariant(), QVariant(7u), QVariant(~0u)}) {
            ScriptedHost::state()->settings["MasterPid"] = masterPid;
            bringMasterToForeground();
            QCOMPARE(ScriptedHost::takeLog(),
                     (QStringList{"window 0 visited", "window 1 visited"}));
        }
    }

    void startsOnceInAProcess()
    {
        const Application application;
        QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
        // A slot that runs in the server thread can end it.
        connect(findController(), &SingleInstanceController::messageReceived,
                [] { QThread::currentThread()->quit(); });
        const QStringList duplicate = {"3 other instance of the controller found while starting."};
        HostKit::setLogLevel(HostKit::LogLevel::Warning); // filters "starting."
        for (const auto state : {SingleInstanceStateMaster, SingleInstanceStateFailed}) {
            ScriptedHost::takeLog();
            QCOMPARE(startSingleInstance(), state);
            QCOMPARE(getSingleInstanceState(), state);
            QCOMPARE(ScriptedHost::takeLog(), duplicate);
            handOver({"x"});
            QTRY_VERIFY(!findController()->isMasterProcess());
        }
        QCOMPARE(findController()->takeMessages(), QList<QStringList>{{"x"}});
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

    void keepsAndAnnouncesLists()
    {
        const Application application;
        ScriptedHost::state()->settings["MasterPort"] = 1u; // left by a crash
        startSingleInstance();
        auto* const controller = findController();
        QThread* direct = nullptr;
        connect(controller, &SingleInstanceController::messageReceived, [&] {
            direct = QThread::currentThread();
            controller->peekMessages(); // would block if the inbox were locked
        });
        QSignalSpy queued(controller, &SingleInstanceController::messageReceived);

        const QList<QStringList> lists = {{"b"}, {}, {"a", ""}, {"b"}};
        for (int i = 0; i < lists.size(); ++i) {
            QVERIFY(handOver(lists[i]));
            QTRY_COMPARE(queued.size(), i + 1);
        }
        QVERIFY(direct && direct != QThread::currentThread());
        const auto peeked = controller->peekMessages();
        QCOMPARE(controller->takeMessages(), lists);
        QVERIFY(controller->takeMessages().isEmpty());
        QCOMPARE(peeked, lists);
    }

    /* What is taken and looked at without a pause arrives nevertheless. */
    void servesTwoThreads()
    {
        constexpr int lists = 300;
        const Application application;
        startSingleInstance();
        auto* const controller = findController();
        std::atomic<int> taken = 0;
        const QDeadlineTimer deadline(20000);
        const auto taking = std::async(std::launch::async, [&] {
            while (taken < lists && !deadline.hasExpired())
                taken += int(controller->takeMessages().size());
        });
        const auto peeking = std::async(std::launch::async, [&] {
            while (taken < lists && !deadline.hasExpired())
                controller->peekMessages();
        });
        for (int i = 0; i < lists; ++i)
            QVERIFY(handOver({"x"}));
        taking.wait();
        QCOMPARE(taken.load(), lists);
    }

    void waitsForAConnection()
    {
        const Application application;
        QTcpServer full; // its queue has place for one
        QVERIFY(full.listen(QHostAddress::LocalHost));
        full.pauseAccepting();
        ::listen(int(full.socketDescriptor()), 0);
        QTcpSocket first;
        first.connectToHost(full.serverAddress(), full.serverPort());
        QVERIFY(first.waitForConnected());
        ScriptedHost::state()->settings["MasterPort"] = full.serverPort();
        auto sent = std::async(std::launch::async, [] { return handOver({"x"}); });
        QCOMPARE(sent.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        full.resumeAccepting();
        QTRY_VERIFY(sent.wait_for(std::chrono::seconds(0)) == std::future_status::ready);
        QVERIFY(sent.get());
    }

    void stopsAtTheEnd()
    {
        const Application application;
        for (const bool isOvertaken : {false, true}) {
            startSingleInstance();
            QSemaphore entered; // a slot that takes its time, but not for ever
            connect(findController(), &SingleInstanceController::messageReceived, [&entered] {
                entered.release();
                QThread::msleep(100);
            });
            QVERIFY(handOver({"x"}));
            entered.acquire();
            ScriptedHost::takeLog();
            if (isOvertaken)
                ScriptedHost::state()->settings["MasterPort"] = 7u;
            QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
            QCoreApplication::exec();
            QVERIFY(!findController());
            QCOMPARE(ScriptedHost::takeLog(), stopping.mid(1, 2));
            const auto port = ScriptedHost::state()->settings["MasterPort"].toUInt();
            QCOMPARE(port, isOvertaken ? 7u : 0u); // another's stays
        }
    }
};

QTEST_APPLESS_MAIN(ControllerTest)
#include "tst_controller.moc"

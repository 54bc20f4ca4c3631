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

#include <cerrno>
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
const QStringList starting = {"2 starting the master.",
                              "2 the server has started listening on IPv6."};
const QStringList serving = starting + QStringList{"2 the master is started.", "2 started."};
const QStringList losing = starting
    + QStringList{"2 someone occupy the port's slot - other server started, stopping this server.",
                  "3 failed to start server."};
const QStringList tryAgain = {"1 cannot start master so try to send command line arguments again."};
const QStringList oneMoreTime = {
    "1 cannot send command line arguments so try to start master one more time."};

const QStringList giveUp = {"2 cannot start master so give up."};
const QStringList tooLong = {"3 command line arguments sequence is too long (65536 bytes)!"};

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
        QTest::newRow("handed over") << file << true << stored << secondary << handingOver(file);
        QTest::newRow("handed over without arguments")
            << QStringList() << true << stored << secondary << handingOver({" "});
        QTest::newRow("handed over, as many as there can be")
            << most << true << stored << secondary << handingOver(most);
        QTest::newRow("handed over at the second attempt")
            << file << true << nobody + taken << secondary
            << sendingNowhere + losing + tryAgain + handingOver(file);
        QTest::newRow("master") << file << false << stored << master << sendingNowhere + serving;
        QTest::newRow("master, as nobody listens") << file << false << QVariantList{0x10001}
                                                   << master << sendingToNobody + serving; // port 1
        for (const QVariant& noPort : {QVariant(0x10000), QVariant("x")})
            QTest::addRow("master, as %s is no port", noPort.toByteArray().constData())
                << file << false << QVariantList{noPort} << master << sendingNowhere + serving;
        QTest::newRow("master at the second attempt")
            << file << false << nobody + overwritten + nobody << master << lostTwice + serving;
        QTest::newRow("neither") << file << false << nobody + taken + nobody + overwritten << failed
                                 << lostTwice + losing + giveUp;
        QTest::newRow("too many by one")
            << QString(16382, ' ').split(' ') << true << stored << failed << tooLong;
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
        const QStringList log = logWithIPv6();
        QCOMPARE(log.first(), "2 starting.");
        QTEST(QStringList(log.mid(1)), "log");
        const bool isMaster = state == SingleInstanceStateMaster;
        QCOMPARE(ScriptedHost::state()->settings["MasterPid"].toUInt(), isMaster ? 4711u : 5u);
        QCOMPARE(findController() && findController()->isMasterProcess(), isMaster);
        QVERIFY(!isMaster || findController()->peekMessages().isEmpty());
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

    void stops_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QStringList>("log");

        const QStringList nothing = {"2 stopping.", "2 no instance found, nothing to stop."};
        const QStringList master = {"2 stopping the master.", "2 the master is stopped."};
        const QStringList all = nothing.mid(0, 1) + master + QStringList("2 stopped.");
        QTest::newRow("a master") << "master" << all;
        QTest::newRow("a master that quits") << "quit" << master + nothing;
        QTest::newRow("a master whose slot another one took") << "overtaken" << all;
        QTest::newRow("nothing") << "nothing" << nothing;
    }

    void stops()
    {
        QFETCH(QString, before);
        const Application application;
        if (before != "nothing")
            startSingleInstance();
        ScriptedHost::takeLog();
        if (before == "overtaken")
            ScriptedHost::state()->settings["MasterPort"] = 7u;
        if (before == "quit") {
            QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
            QCoreApplication::exec();
        }
        stopSingleInstance();
        QTEST(ScriptedHost::takeLog(), "log");
        QCOMPARE(getSingleInstanceState(), SingleInstanceStateInactive);
        QCOMPARE(ScriptedHost::state()->settings["MasterPort"].toUInt(),
                 before == "overtaken" ? 7u : 0u);
    }
};

QTEST_APPLESS_MAIN(ControllerTest)
#include "tst_controller.moc"

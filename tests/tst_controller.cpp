#include "DesktopWindows.h"
#include "Foreground.h"
#include "Master.h"

#include <atomic>

using namespace SingleInstance;

namespace {

constexpr DWORD gone = 0; // the owner of a window that does not exist any more
std::vector<DWORD> windowOwners; // of each window, topmost first

} // namespace

/* A scripted desktop, in place of the platform layer. It logs all calls. */
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
    return threadId == GetCurrentThreadId() ? reinterpret_cast<HDESK>(&windowOwners) : nullptr;
}

BOOL EnumDesktopWindows(HDESK desktop, WNDENUMPROC callback, LPARAM context)
{
    const bool isOurs = desktop == reinterpret_cast<HDESK>(&windowOwners);
    for (size_t i = 0; isOurs && i < windowOwners.size(); ++i) {
        ScriptedHost::state()->log += QString("window %1 visited").arg(i);
        if (!callback(reinterpret_cast<HWND>(i), context))
            break;
    }
    return FALSE;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* processId)
{
    const DWORD owner = windowOwners[reinterpret_cast<size_t>(window)];
    if (owner != gone)
        *processId = owner;
    return 0;
}

BOOL SetForegroundWindow(HWND window)
{
    ScriptedHost::state()->log +=
        QString("window %1 activated").arg(reinterpret_cast<size_t>(window));
    return FALSE; // the result must not matter
}

namespace {

/* Returns the log of this machine as a machine with IPv6 would write it. */
QStringList logWithIPv6()
{
    QStringList lines = ScriptedHost::takeLog();
    if (!QTcpServer().listen(QHostAddress::LocalHostIPv6))
        lines.replaceInStrings("listening on IPv4.", "listening on IPv6.");
    return lines.replaceInStrings(QRegularExpression("(by IPv6, error:) .*"), "\\1 any");
}

/* Returns the lines of log.txt under \a names. */
QStringList logOf(const QString& names)
{
    const QStringList texts = tableLines("log.txt");
    QStringList lines = {"2 starting."};
    for (const QString& name : names.split(' ')) {
        const auto first = texts.indexOf(name) + 1;
        lines += texts.mid(first, texts.indexOf(QString(), first) - first);
    }
    return lines;
}

} // namespace

class ControllerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        ScriptedHost::reset();
        windowOwners = {6, gone, 5, 5};
    }

    void cleanup()
    {
        QCOMPARE(stopSingleInstance(), SingleInstanceStateInactive);
        QVERIFY(!findController());
    }

    void arbitrates_data() { addTable("arbitration.txt"); }

    void arbitrates()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, master); // which there is
        QFETCH(QString, reads); // of the port, by each step: once to send; to start, before and
        QFETCH(QString, state); // after it listens, after it claims the slot, and at its end
        QFETCH(QString, log);
        QStringList list = arguments.split(' ', Qt::SkipEmptyParts);
        if (arguments == "MORE") // too long by one unit
            list = QString(16382, ' ').split(' ');
        if (arguments == "MOST")
            list = QStringList("x") + QString(16380, ' ').split(' '); // 65,534 bytes
        const Application application(list);
        QTcpServer other;
        if (master == "other" && other.listen(QHostAddress::LocalHost))
            ScriptedHost::state()->settings["MasterPort"] = other.serverPort();
        for (const QString& read : reads.split(' ', Qt::SkipEmptyParts))
            ScriptedHost::state()->portReads.append(read);
        ScriptedHost::state()->settings["MasterPid"] = 5u;

        QCOMPARE(SingleInstanceController::start(), state.toInt());

        QCOMPARE(getSingleInstanceState(), state.toInt());
        const bool isMaster = state.toInt() == SingleInstanceStateMaster;
        QCOMPARE(ScriptedHost::state()->settings["MasterPid"].toUInt(), isMaster ? 4711u : 5u);
        QCOMPARE(findController() && findController()->isMasterProcess(), isMaster);
        stopSingleInstance();
        if (list.isEmpty())
            list.append(" ");
        QCOMPARE(logWithIPv6(), logOf(log).replaceInStrings("%1", list.join(' ')));
        if (state.toInt() != SingleInstanceStateSecondary)
            return;
        QVERIFY(other.waitForNewConnection(5000));
        const std::unique_ptr<QTcpSocket> end(other.nextPendingConnection());
        while (end->waitForReadyRead(5000)) { }
        QCOMPARE(end->readAll(), prefixed(packArguments(list)));
    }

    /* If a window is gone, or there is no master, no window is the master's. */
    void bringsNoOtherWindowForward()
    {
        windowOwners = {6, gone, 5};
        for (const QVariant& master : {QVariant(7u), QVariant()}) {
            ScriptedHost::state()->settings["MasterPid"] = master;
            bringMasterToForeground();
            QCOMPARE(ScriptedHost::takeLog(),
                     QStringList({"window 0 visited", "window 1 visited", "window 2 visited"}));
        }
    }

    void startsOnceInAProcess()
    {
        const Master master;
        // A slot that runs in the server thread can end it.
        connect(master.controller, &SingleInstanceController::messageReceived,
                [] { QThread::currentThread()->quit(); });
        const QStringList duplicate = {"3 other instance of the controller found while starting."};
        HostKit::setLogLevel(HostKit::LogLevel::Warning); // filters "starting."
        for (const auto state : {SingleInstanceStateMaster, SingleInstanceStateFailed}) {
            ScriptedHost::takeLog();
            QCOMPARE(startSingleInstance(), state);
            QCOMPARE(getSingleInstanceState(), state);
            QCOMPARE(ScriptedHost::takeLog(), duplicate);
            handOver({"x"});
            QTRY_VERIFY(!master.controller->isMasterProcess());
        }
        QCOMPARE(master.controller->takeMessages(), QList<QStringList>{{"x"}});
    }

    void keepsAndAnnouncesLists()
    {
        ScriptedHost::state()->settings["MasterPort"] = 1u; // left by a crash
        const Master master;
        auto* const controller = master.controller;
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

    void stopsAtTheEnd()
    {
        const Application application;
        for (const bool isOvertaken : {false, true}) {
            startSingleInstance();
            QSemaphore entered; // the slot takes a while
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
            QCOMPARE(ScriptedHost::takeLog(), logOf("served").mid(6, 2));
            const auto port = ScriptedHost::state()->settings["MasterPort"].toUInt();
            QCOMPARE(port, isOvertaken ? 7u : 0u); // another's stays
        }
    }

#ifndef TESTS_SANITIZED // which reports what a cancelled thread leaves on its stack
    void stopsInSpiteOfAHostThatHangs_data()
    {
        QTest::addColumn<bool>("inTheLog");
        QTest::newRow("in a slot that has run an event loop of its own") << false;
        QTest::newRow("in its log") << true;
    }

    void stopsInSpiteOfAHostThatHangs()
    {
        QFETCH(bool, inTheLog);
        const Master master;
        QSemaphore entered;
        const auto hang = [&entered] {
            entered.release();
            QThread::sleep(600);
        };
        std::atomic<int> received = 0;
        connect(master.controller, &SingleInstanceController::messageReceived, [&] {
            if (++received > 1)
                return;
            while (received < 2)
                QEventLoop().processEvents(QEventLoop::WaitForMoreEvents);
            hang();
        });
        if (inTheLog)
            HostKit::setLogSink([&hang](HostKit::LogLevel, const QString& text) {
                if (text.endsWith("message received: y"))
                    hang();
            });
        QVERIFY(handOver({"x"}) && handOver({"y"}));
        QVERIFY(entered.tryAcquire(1, 5000));
        const QVariant port = ScriptedHost::state()->settings["MasterPort"];
        ScriptedHost::reset();
        ScriptedHost::state()->settings["MasterPort"] = port;
        stopSingleInstance();
        QCOMPARE(ScriptedHost::takeLog()[2], "3 master thread closing too long so terminate it...");
        QCOMPARE(ScriptedHost::state()->settings["MasterPort"], port);
        QCOMPARE(startSingleInstance(), SingleInstanceStateMaster); // the old port does not matter
    }
#endif
};

QTEST_APPLESS_MAIN(ControllerTest)
#include "tst_controller.moc"

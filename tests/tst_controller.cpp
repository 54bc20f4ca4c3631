#include "DesktopWindows.h"
#include "Foreground.h"
#include "MessageFormat.h"
#include "MessageSender.h"
#include "Receiver.h"
#include "Registry.h"
#include "ScriptedHost.h"
#include "SettingsSlot.h"
#include "SingleInstanceController.h"
#include "System.h"
#include "Table.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <future>
#include <memory>
#include <vector>

#include <unistd.h>

using namespace SingleInstance;

namespace {

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
    return FALSE; // nobody looks at it
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

/* That of a master in this process. */
struct Master : Application {
    const SingleInstanceState state = startSingleInstance();
    SingleInstanceController* const controller = findController();

    /* Whether nothing arrives for a while, for which hardly any time is spent. */
    bool rests(int milliseconds) const
    {
        const auto before = processorTime();
        const auto receives = [this] { return !controller->peekMessages().isEmpty(); };
        return !QTest::qWaitFor(receives, milliseconds)
            && processorTime() - before < std::chrono::milliseconds(milliseconds) / 2;
    }
};

bool handOver(const QStringList& list)
{
    return sendToMaster(packArguments(list));
}

/* Returns whether \a name arrives. */
bool reaches(SingleInstanceController* controller, const QString& name)
{
    return handOver({name})
        && QTest::qWaitFor([&] { return controller->takeMessages().contains({name}); });
}

/* The descriptor of a socket or server, in the type that the system gives it. */
template <typename Socket> auto descriptorOf(const Socket& socket)
{
    return static_cast<decltype(::socket(0, 0, 0))>(socket.socketDescriptor());
}

/* Connects all to the master, and has each send \a bytes; in step with \a controller, if given. */
void connectAll(SingleInstanceController* controller, std::vector<QTcpSocket>& clients,
                const QByteArray& bytes, bool reset = false)
{
    int connected = 0;
    static const bool hasIPv6 = QTcpServer().listen(QHostAddress::LocalHostIPv6);
    const linger end = {reset, 0};
    for (QTcpSocket& client : clients) {
        client.connectToHost(hasIPv6 ? QHostAddress::LocalHostIPv6 : QHostAddress::LocalHost,
                             readMasterPort());
        if (!client.waitForConnected())
            qFatal("no connection");
        ::setsockopt(descriptorOf(client), SOL_SOCKET, SO_LINGER,
                     reinterpret_cast<const char*>(&end), sizeof end);
        client.write(bytes);
        client.waitForBytesWritten();
        if (controller && ++connected % 25 == 0 && !reaches(controller, "paced"))
            qFatal("the queue is not served");
    }
}

/* The lines of this machine, where IPv6 may be missing, as one that has it writes them. */
QStringList logWithIPv6()
{
    return ScriptedHost::takeLog()
        .replaceInStrings("listening on IPv4.", "listening on IPv6.")
        .replaceInStrings(QRegularExpression("(by IPv6, error:) .*"), "\\1 any");
}

/* Returns the lines of the log that \a names stand for, one after the other. */
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
        refusedFamilies.clear();
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
        QFETCH(QString, master); // that there is
        QFETCH(QString, reads); // of the port, by each step: once to send; to start, before and
        QFETCH(QString, state); // after it listens, after it claims the slot, and at its end
        QFETCH(QString, log);
        QStringList list = arguments.split(' ', Qt::SkipEmptyParts);
        if (arguments == "MORE") // one too many to be empty
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

    /* A window that is gone, or no master: nothing is taken for the master's. */
    void bringsNoOtherWindowForward()
    {
        windowOwners = {6, gone, 5};
        for (const bool isKnown : {true, false}) {
            if (isKnown)
                ScriptedHost::state()->settings["MasterPid"] = 7u;
            else
                ScriptedHost::state()->settings.remove("MasterPid");
            bringMasterToForeground();
            QCOMPARE(ScriptedHost::takeLog(),
                     QStringList({"window 0 visited", "window 1 visited", "window 2 visited"}));
        }
    }

    void endsTheProcessOnABrokenPrecondition_data()
    {
        QTest::addColumn<int>("size"); // of a body; without one a socket is missing
        QTest::newRow("sending empty message not supported!") << 0;
        QTest::newRow("sending message is too long!") << 65536;
        QTest::newRow("Receiver cannot work with a null socket!") << -1;
    }

    /* And lets go of Qt's messages before. */
    void endsTheProcessOnABrokenPrecondition()
    {
        QFETCH(int, size);
        static QtMessageHandler usual = nullptr;
        if (!isLinux)
            QSKIP("there is no child process with the same memory");
        const int code = exitCodeOfChild([size] {
            usual = qInstallMessageHandler(nullptr);
            qInstallMessageHandler(usual);
            HostKit::catchQtMessages(true);
            std::signal(SIGABRT, [](int) {
                const QByteArray message = "5 " + QByteArray(QTest::currentDataTag());
                const bool isRight = qInstallMessageHandler(nullptr) == usual
                    && ScriptedHost::takeLog().last() == QString(message);
                std::_Exit(isRight ? 0 : 1);
            });
            if (size < 0)
                receiveMessage(nullptr, nullptr, nullptr);
            else
                sendToMaster(QByteArray(size, 'x'));
        });
        QCOMPARE(code, 0);
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

    void startsWithoutIPv6()
    {
        if (!isLinux)
            QSKIP("no function takes the place of bind()", 0);
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

    /* What is taken and looked at without a pause arrives nevertheless. */
    void servesTwoThreads()
    {
        constexpr int lists = 1000;
        const Master master;
        std::atomic<int> taken = 0;
        const QDeadlineTimer deadline(20000);
        const auto taking = std::async(std::launch::async, [&] {
            while (taken < lists && !deadline.hasExpired())
                taken += int(master.controller->takeMessages().size());
        });
        for (int i = 0; i < lists; ++i) {
            QVERIFY(handOver({"x"}));
            while (taken + 20 < i && !deadline.hasExpired()) // the kernel keeps 50
                master.controller->peekMessages();
        }
        taking.wait();
        QCOMPARE(taken.load(), lists);
    }

    void waitsForAConnection()
    {
        if (!isLinux)
            QSKIP("a queue that is full refuses there", 0);
        const Application application;
        QTcpServer full; // its queue has place for one
        QVERIFY(full.listen(QHostAddress::LocalHost));
        full.pauseAccepting();
        ::listen(descriptorOf(full), 0);
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
            QCOMPARE(ScriptedHost::takeLog(), logOf("served").mid(6, 2));
            const auto port = ScriptedHost::state()->settings["MasterPort"].toUInt();
            QCOMPARE(port, isOvertaken ? 7u : 0u); // another's stays
        }
    }

    void recoversFromAFlood_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("that are idle") << QByteArray();
        QTest::newRow("with half a prefix") << QByteArray("\x12");
        QTest::newRow("with half a message") << prefixed(QByteArray(60000, 'x')).left(30000);
        QTest::newRow("that reset") << QByteArray("\x12\0\0", 3);
    }

    void recoversFromAFlood()
    {
        QFETCH(QByteArray, sent);
        const bool reset = sent.size() == 3;
        const int count = std::max(1, qEnvironmentVariableIntValue("FLOOD_ROUNDS"));
        limitFiles(2200); // for a thousand connections, of which both ends are ours
        const Master master;
        for (int round = 0; round < count; ++round) {
            QVERIFY(reaches(master.controller, "before"));
            const size_t memory = usedMemory();
            const int files = openFiles();
            std::vector<QTcpSocket> clients(1000);
            connectAll(master.controller, clients, sent, reset);
            QVERIFY(reaches(master.controller, "among them"));
            QVERIFY(master.rests(300));
            clients = std::vector<QTcpSocket>();
            QTRY_COMPARE(openFiles(), files);
            QVERIFY(reaches(master.controller, "after"));
            QVERIFY(usedMemory() < memory + (1 << 20));
        }
        qInfo("1,000 connections %s: %d rounds, recovered each time", QTest::currentDataTag(),
              count);
    }

    void starvesQuietly()
    {
        if (!isLinux)
            QSKIP("there is no limit of open files", 0);
        const Master master;
        const int limit = openFiles() + 100;
        limitFiles(limit);
        const auto restore = qScopeGuard([] { limitFiles(2200); });
        for (const auto& [idle, held] : {std::pair(0U, 0), std::pair(48U, 0), std::pair(24U, 40)}) {
            std::vector<int> high = // that the host holds: the numbers below are free
                openDescriptors(limit - held, held);
            const auto closeHigh =
                qScopeGuard([&high] { std::for_each(high.begin(), high.end(), ::close); });
            std::vector<QTcpSocket> clients(idle);
            {
                const HeldAccepting noneYet;
                connectAll(nullptr, clients, {}); // which are accepted in a row, then
                QThread::msleep(20); // a count may be as old as 10 ms
            }
            QTRY_VERIFY(idle == 0 || openFiles() > 70); // as many as it takes
            ScriptedHost::takeLog();
            std::vector<int> used; // by the host, for something else: all that there are
            for (int file = ::dup(0); file >= 0; file = ::dup(0))
                used.push_back(file);
            QVERIFY(used.size() > 16); // left to the host

            ::close(used.back());
            used.pop_back();
            std::vector<QTcpSocket> last(1);
            connectAll(nullptr, last, prefixed(packArguments({"starved"})));
            QVERIFY(master.rests(1000)); // the kernel's queue has it
            QCOMPARE(ScriptedHost::takeLog(), QStringList());

            std::for_each(used.begin(), used.end(), ::close);
            clients = std::vector<QTcpSocket>();
            QTRY_COMPARE(master.controller->peekMessages(), QList<QStringList>{{"starved"}});
            last = std::vector<QTcpSocket>();
            QVERIFY(reaches(master.controller, "late"));
        }
    }

    /* As when another thread takes the last descriptor at that moment. */
    void acceptsAfterAFailure()
    {
        if (!isLinux)
            QSKIP("no function takes the place of accept()", 0);
        const Master master;
        failAccepting(true);
        QVERIFY(handOver({"x"}));
        QVERIFY(master.rests(200));
        failAccepting(false);
        QTRY_COMPARE(master.controller->peekMessages().size(), 1);
    }

#ifndef TESTS_SANITIZED // which takes what a cancelled thread leaves on its stack for errors
    void stopsInSpiteOfASlotThatHangs()
    {
        const Master master;
        QSemaphore entered;
        connect(master.controller, &SingleInstanceController::messageReceived, [&entered] {
            entered.release();
            QThread::sleep(600);
        });
        QVERIFY(handOver({"x"}));
        QVERIFY(entered.tryAcquire(1, 5000));
        const QVariant port = ScriptedHost::state()->settings["MasterPort"];
        ScriptedHost::takeLog();
        stopSingleInstance();
        QCOMPARE(ScriptedHost::takeLog()[2], "3 master thread closing too long so terminate it...");
        QCOMPARE(ScriptedHost::state()->settings["MasterPort"], port);
        QCOMPARE(startSingleInstance(), SingleInstanceStateMaster); // it is no hindrance
    }
#endif
};

QTEST_APPLESS_MAIN(ControllerTest)
#include "tst_controller.moc"

#include "MessageFormat.h"
#include "MessageSender.h"
#include "RefusedBind.h"
#include "ScriptedDesktop.h"
#include "ScriptedHost.h"
#include "ServerThread.h"
#include "SingleInstanceController.h"

#include <Core/ObjectsPool.h>

#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <vector>

#include <sys/socket.h>

Q_DECLARE_METATYPE(SingleInstanceState)

using namespace SingleInstance;

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

/* A master of another process, as far as anybody can tell. */
class OtherMaster {
public:
    OtherMaster()
        : thread(makeServerThread([this](bool ok) { started.release(ok ? 1 : 0); },
                                  [this](const QStringList& list) {
                                      lists.append(list);
                                      received.release();
                                  }))
    {
        thread->start();
        started.acquire();
    }
    ~OtherMaster()
    {
        thread->quit();
        thread->wait();
    }

    QSemaphore received;
    QList<QStringList> lists; // read after acquiring

private:
    QSemaphore started;
    std::unique_ptr<QThread> thread;
};

SingleInstanceController* registered()
{
    return qobject_cast<SingleInstanceController*>(
        Core::ObjectsPool::getInstance()
            .find("SingleInstance::SingleInstanceController", false)
            .second);
}

bool handOver(const QStringList& list)
{
    return sendToMaster(packArguments(list));
}

/* The lines of this machine, where IPv6 may be missing, as one that has it writes them. */
QStringList logWithIPv6()
{
    QStringList log = ScriptedHost::takeLog();
    if (!QTcpServer().listen(QHostAddress::LocalHostIPv6) && RefusedBind::families.empty()) {
        log.replaceInStrings(QRegularExpression("^(2 .*) IPv4\\.$"), "\\1 IPv6.");
        log = log.filter(QRegularExpression("^(?!1 failed to connect to the master by IPv6)"));
    }
    return log;
}

const QStringList sendingNowhere = {"2 sending message to the master.",
                                    "2 sending message impossible, target port was not defined."};
const QStringList starting = {"2 starting the master.",
                              "2 the server has started listening on IPv6."};
const QStringList serving = starting + QStringList{"2 the master is started.", "2 started."};
const QStringList losing = starting
    + QStringList{"2 someone occupy the port's slot - other server started, stopping this server.",
                  "3 failed to start server."};
const QString tryAgain = "1 cannot start master so try to send command line arguments again.";
const QString oneMoreTime =
    "1 cannot send command line arguments so try to start master one more time.";

QStringList handingOver(const QString& arguments)
{
    return {"2 sending message to the master.", "2 connected to the master by IPv6.",
            "2 sending message completed.",
            "2 command line arguments were transferred to the master: " + arguments};
}

} // namespace

class ControllerTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void arbitrates_data();
    void arbitrates();
    void startsOnceInAProcess();
    void startsWithoutIPv6_data();
    void startsWithoutIPv6();
    void readsTheSlotAsAPort();
    void keepsListsInOrder();
    void announcesInTheServerThread();
    void survivesANestedEventLoop();
    void stops_data();
    void stops();
};

void ControllerTest::init()
{
    ScriptedHost::reset();
    ScriptedDesktop::reset({{false, 5}}, TRUE);
    RefusedBind::families.clear();
    QCOMPARE(getSingleInstanceState(), SingleInstanceStateInactive);
}

void ControllerTest::cleanup()
{
    QCOMPARE(stopSingleInstance(), SingleInstanceStateInactive);
    QVERIFY(!registered());
}

void ControllerTest::arbitrates_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("otherMaster");
    QTest::addColumn<QVariantList>("portReads");
    QTest::addColumn<SingleInstanceState>("state");
    QTest::addColumn<QStringList>("log");

    // How often a step reads the slot: sending once; starting before and after it listens, after it
    // claims the slot, and at its end.
    const QVariantList nobody = {0};
    const QVariantList taken = {0, 7, 7};
    const QVariantList overwritten = {0, 0, 7, 7};
    const QStringList file = {"a.txt", "b"};
    QTest::newRow("handed over") << file << true << QVariantList() << SingleInstanceStateSecondary
                                 << handingOver("a.txt b");
    QTest::newRow("handed over without arguments")
        << QStringList() << true << QVariantList() << SingleInstanceStateSecondary
        << handingOver(" ");
    QTest::newRow("handed over at the second attempt")
        << file << true << nobody + taken << SingleInstanceStateSecondary
        << sendingNowhere + losing + QStringList{tryAgain} + handingOver("a.txt b");
    QTest::newRow("master") << file << false << QVariantList() << SingleInstanceStateMaster
                            << sendingNowhere + serving;
    QTest::newRow("master at the second attempt")
        << file << false << nobody + overwritten + nobody << SingleInstanceStateMaster
        << sendingNowhere + losing + QStringList{tryAgain} + sendingNowhere
            + QStringList{oneMoreTime} + serving;
    QTest::newRow("neither") << file << false << nobody + taken + nobody + overwritten
                             << SingleInstanceStateFailed
                             << sendingNowhere + losing + QStringList{tryAgain} + sendingNowhere
            + QStringList{oneMoreTime} + losing + QStringList{"2 cannot start master so give up."};

    QStringList empties;
    for (int i = 0; i < 16382; ++i)
        empties += "";
    QTest::newRow("handed over, as many as there can be")
        << empties << true << QVariantList() << SingleInstanceStateSecondary
        << handingOver(empties.join(' '));
    QTest::newRow("too many by one")
        << empties + QStringList{""} << true << QVariantList() << SingleInstanceStateFailed
        << QStringList{"3 command line arguments sequence is too long (65536 bytes)!"};
    QTest::newRow("too long by one")
        << QStringList{QString(32764, 'x')} << true << QVariantList() << SingleInstanceStateFailed
        << QStringList{"3 command line arguments sequence is too long (65536 bytes)!"};
}

void ControllerTest::arbitrates()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, otherMaster);
    QFETCH(QVariantList, portReads);
    QFETCH(SingleInstanceState, state);
    const Application application(arguments);
    const auto other = otherMaster ? std::make_unique<OtherMaster>() : nullptr;
    ScriptedHost::takeLog();
    ScriptedHost::set("MasterPid", 5u);
    ScriptedHost::scriptPortReads(portReads);
    ScriptedHost::setSink([record = torvane::GetLoggerDelegate()](auto level, const auto& text) {
        if (ScriptedDesktop::visit().walks > 0 && text.find(L"transferred") != text.npos)
            qFatal("the foreground comes after the line");
        record(level, text);
    });

    QCOMPARE(SingleInstanceController::start(), state);

    QCOMPARE(getSingleInstanceState(), state);
    QStringList log = logWithIPv6();
    if (otherMaster)
        log = log.filter(QRegularExpression("^(?!(1 reading|2 message received))"));
    QTEST(QStringList(log.mid(1)), "log");
    QCOMPARE(log.first(), "2 starting.");
    const bool isSecondary = state == SingleInstanceStateSecondary;
    QCOMPARE(ScriptedDesktop::visit().activated.size(), isSecondary ? 1u : 0u);
    if (isSecondary) {
        other->received.acquire();
        QCOMPARE(other->lists,
                 QList<QStringList>{arguments.isEmpty() ? QStringList{" "} : arguments});
    }
    const bool isMaster = state == SingleInstanceStateMaster;
    QCOMPARE(ScriptedHost::setting("MasterPid").toUInt(), isMaster ? 4711u : 5u);
    QCOMPARE(registered() && registered()->isMasterProcess(), isMaster);
    QVERIFY(!isMaster || registered()->peekMessages().isEmpty());
    ScriptedDesktop::reset({}, TRUE);
}

void ControllerTest::startsOnceInAProcess()
{
    const Application application;
    QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
    ScriptedHost::takeLog();
    const QStringList duplicate = {"2 starting.",
                                   "3 other instance of the controller found while starting."};
    QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
    QCOMPARE(ScriptedHost::takeLog(), duplicate);

    // A slot that runs in the server thread can end it.
    QObject::connect(registered(), &SingleInstanceController::messageReceived,
                     [] { QThread::currentThread()->quit(); });
    QVERIFY(handOver({"x"}));
    QTRY_VERIFY(!registered()->isMasterProcess());
    ScriptedHost::takeLog();
    QCOMPARE(startSingleInstance(), SingleInstanceStateFailed);
    QCOMPARE(getSingleInstanceState(), SingleInstanceStateFailed);
    QCOMPARE(ScriptedHost::takeLog(), duplicate);
    QCOMPARE(registered()->takeMessages().size(), 1);
}

void ControllerTest::startsWithoutIPv6_data()
{
    QTest::addColumn<QList<int>>("refused");
    QTest::addColumn<SingleInstanceState>("state");
    QTest::addColumn<QString>("line");

    QTest::newRow("IPv4 alone") << QList<int>{AF_INET6} << SingleInstanceStateMaster
                                << "2 the server has started listening on IPv4.";
    QTest::newRow("no loopback at all") << QList<int>{AF_INET6, AF_INET}
                                        << SingleInstanceStateFailed << "3 failed to start server.";
}

void ControllerTest::startsWithoutIPv6()
{
    QFETCH(QList<int>, refused);
    QFETCH(QString, line);
    RefusedBind::families.insert(refused.begin(), refused.end());
    const Application application;
    QTEST(startSingleInstance(), "state");
    const QStringList log = ScriptedHost::takeLog();
    QCOMPARE(log.value(4), line);
    QVERIFY(log.filter("IPv6").isEmpty());
    QCOMPARE(handOver({"x"}), registered() != nullptr);
}

void ControllerTest::readsTheSlotAsAPort()
{
    // What a crash left behind, or something that is no port, keeps nobody from becoming master.
    for (const QVariant& stale : {QVariant(1), QVariant(0x10000), QVariant("none")}) {
        const Application application;
        ScriptedHost::set("MasterPort", stale);
        QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
        QVERIFY(handOver({"x"}));
        stopSingleInstance();
        QCOMPARE(ScriptedHost::setting("MasterPort"), QVariant(0u));
        QCOMPARE(ScriptedHost::setting("MasterPid"), QVariant(4711u));
    }
}

void ControllerTest::keepsListsInOrder()
{
    const Application application;
    startSingleInstance();
    auto* const controller = registered();
    QVERIFY(controller->peekMessages().isEmpty());
    QVERIFY(controller->takeMessages().isEmpty());
    QSignalSpy announced(controller, &SingleInstanceController::messageReceived);

    const QList<QStringList> lists = {{"b"}, {}, {"a", ""}, {"b"}};
    for (int i = 0; i < lists.size(); ++i) {
        QVERIFY(handOver(lists[i]));
        QTRY_COMPARE(controller->peekMessages().size(), i + 1);
    }
    const auto peeked = controller->peekMessages();
    QVERIFY(handOver({"late"}));
    QTRY_COMPARE(controller->peekMessages().size(), lists.size() + 1);
    QCOMPARE(peeked, lists);
    QCOMPARE(controller->takeMessages(), lists + QList<QStringList>{{"late"}});
    QVERIFY(controller->takeMessages().isEmpty());
    QTRY_COMPARE(announced.size(), lists.size() + 1);
}

void ControllerTest::announcesInTheServerThread()
{
    const Application application;
    startSingleInstance();
    auto* const controller = registered();
    QSemaphore taken;
    QThread* direct = nullptr;
    QThread* queued = nullptr;
    QObject context;
    QObject::connect(controller, &SingleInstanceController::messageReceived, [&] {
        direct = QThread::currentThread();
        taken.release(controller->takeMessages().size()); // would block if the inbox were locked
    });
    QObject::connect(controller, &SingleInstanceController::messageReceived, &context,
                     [&] { queued = QThread::currentThread(); });
    QVERIFY(handOver({"x"}));
    QVERIFY(taken.tryAcquire(1, 5000));
    QVERIFY(direct != QThread::currentThread());
    QTRY_COMPARE(queued, QThread::currentThread());
}

/* As a slot that opens a modal dialog does. */
void ControllerTest::survivesANestedEventLoop()
{
    const Application application;
    startSingleInstance();
    auto* const controller = registered();
    QObject context;
    QList<QStringList> shown;
    QEventLoop dialog;
    QObject::connect(controller, &SingleInstanceController::messageReceived, &context, [&] {
        for (const QStringList& list : controller->takeMessages()) {
            shown.append(list);
            if (shown.size() == 1) {
                handOver({"b"});
                handOver({"c"});
                dialog.exec();
            }
        }
        if (shown.size() == 3)
            dialog.quit();
    });
    QVERIFY(handOver({"a"}));
    QTRY_COMPARE(shown.size(), 3);
    QCOMPARE(shown.first(), QStringList{"a"});
}

void ControllerTest::stops_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QStringList>("log");

    const QStringList nothing = {"2 stopping.", "2 no instance found, nothing to stop."};
    const QStringList master = {"2 stopping the master.", "2 the master is stopped."};
    QTest::newRow("a master") << "master" << nothing.mid(0, 1) + master + QStringList{"2 stopped."};
    QTest::newRow("a master that quits") << "quit" << master + nothing;
    QTest::newRow("a secondary") << "secondary" << nothing;
    QTest::newRow("nothing") << "nothing" << nothing;
    QTest::newRow("a master whose slot another one took")
        << "overtaken" << nothing.mid(0, 1) + master + QStringList{"2 stopped."};
}

void ControllerTest::stops()
{
    QFETCH(QString, before);
    const Application application;
    {
        const auto other = before == "secondary" ? std::make_unique<OtherMaster>() : nullptr;
        if (before != "nothing")
            startSingleInstance();
    }
    ScriptedHost::takeLog();
    if (before == "overtaken")
        ScriptedHost::set("MasterPort", 7u);
    if (before == "quit") {
        QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
        QCoreApplication::exec();
    }
    QCOMPARE(stopSingleInstance(), SingleInstanceStateInactive);
    QTEST(ScriptedHost::takeLog(), "log");
    QCOMPARE(getSingleInstanceState(), SingleInstanceStateInactive);
    QVERIFY(!handOver({"x"}));
    QCOMPARE(ScriptedHost::setting("MasterPort").toUInt(), before == "overtaken" ? 7u : 0u);
}

QTEST_APPLESS_MAIN(ControllerTest)
#include "tst_controller.moc"

#include "Activation.h"
#include "ApplicationFolder.h"
#include "FileLock.h"
#include "HandOver.h"
#include "Inbox.h"
#include "MessageFormat.h"
#include "Processes.h"
#include "QuietTurn.h"
#include "Registry.h"
#include "SettingsSlot.h"
#include "Successor.h"
#include "WaitingLists.h"

#include <Core/Settings.h>
#include <HostKit/InstanceSession.h>
#include <HostKit/Log.h>

#include <QtNetwork/QTcpSocket>

#include <array>
#include <csignal>
#include <future>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace HostKit;

namespace {

/* A session that does not start this program anew for what it has not received. */
struct Session : InstanceSession {
    Session() { setRestartCommand({}); }
};

QString value()
{
    return Core::Settings::getInstance()
        ->getValue("SingleInstance", "MasterPort", "none")
        .toString();
}

void setValue(const QString& value, const char* key = "MasterPort")
{
    Core::Settings::getInstance()->setValue("SingleInstance", key, value, true);
}

/* Has the time stand for @ and the seconds behind it. */
QString fromNow(const QString& text)
{
    const auto match = QRegularExpression("@([+-]\\d+)").match(text);
    const qint64 time = QDateTime::currentSecsSinceEpoch() + match.captured(1).toInt();
    return match.hasMatch() ? QString(text).replace(match.captured(), QString::number(time)) : text;
}

QString threadsThatTakeSignals()
{
    const QString command = "grep -l 'SigBlk:.*0000000000000000' /proc/%1/task/*/status";
    return output("sh", {"-c", command.arg(::getpid())});
}

} // namespace

/* The rooms of HostKit, each by its door. */
class RoomsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(!qEnvironmentVariableIsSet("HOSTKIT_STARTED_FOR")); }

    void init()
    {
        QCoreApplication::setOrganizationName("maker");
        QCoreApplication::setApplicationName("program"); // also in the name of the folder
        home = std::make_unique<QTemporaryDir>();
        QVERIFY(home->isValid());
        qputenv("HOME", QFile::encodeName(home->path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->filePath("settings")));
    }

    void keepsValuesApart()
    {
        for (const QString& name : {QString("../a b/ü"), QString(".."), // they lead nowhere else
                                    QString(200, QChar(0x42F)) + 'a', // too long for a file
                                    QString(200, QChar(0x42F)) + 'b'}) {
            QCoreApplication::setApplicationName(name);
            QCOMPARE(value(), "none");
            setValue(name);
            QCOMPARE(value(), name);
        }
        const QDir folder(home->filePath("settings/maker"));
        QCOMPARE(folder.entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden).size(),
                 4);
        QVERIFY(folder.exists("..%2Fa b%2F%C3%BC/SingleInstance/MasterPort"));
        qputenv("XDG_CONFIG_HOME", "settings"); // relative ones do not count
        QVERIFY(applicationFolder().startsWith(home->filePath(".config/maker/")));
    }

    void showsNoPartOfAValue()
    {
        const QStringList values = {QString(10, '1'), QString(5000, '2')};
        setValue(values.first());
        const auto writer = std::async(std::launch::async, [&values] {
            for (int i = 0; i < 2000; ++i)
                setValue(values[i % 2]);
        });
        while (writer.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
            QVERIFY(values.contains(value()));
        const QDir folder(applicationFolder() + "/SingleInstance");
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden), QStringList("MasterPort"));
        QVERIFY(QFile::remove(folder.filePath("MasterPort")) && folder.mkdir("MasterPort"));
        setValue("in the place of a folder");
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden), QStringList());
    }

    void dropsLinesThatNobodyReads()
    {
        const int usual = ::dup(STDERR_FILENO);
        std::array<int, 2> ends = {};
        QCOMPARE(::pipe2(ends.data(), O_CLOEXEC), 0);
        ::dup2(ends[1], STDERR_FILENO);
        const auto write = [](char letter) {
            writeToStandardError(HostKit::LogLevel::Info, QString(9000, letter));
        };
        for (int i = 0; i < 100; ++i)
            write('x'); // would block here
        std::array<char, 1 << 18> text = {};
        auto size = ::read(ends[0], text.data(), 1 << 17);
        const int kept = int(std::count(text.begin(), text.end(), '\n'));
        write('y');
        size += ::read(ends[0], text.data() + size, 1 << 17);
        const QByteArray read(text.data(), int(size));
        ::dup2(usual, STDERR_FILENO);
        ::close(usual);
        const QByteArray gap =
            " info: (" + QByteArray::number(100 - kept) + " lines before this were dropped) y";
        QVERIFY(kept > 0 && read.contains(gap));
        QCOMPARE(read.count('\n'), kept + 2); // behind what is left of the first that was dropped
    }

    void locksOutOthers()
    {
        const auto take = [](const char* name, int milliseconds) {
            return FileLock::take(applicationFolder() + name, FileLock::Kind::Exclusive,
                                  std::chrono::milliseconds(milliseconds));
        };
        FileLock lock = take("/lock", 0);
        QVERIFY(lock.isTaken());
        const QString threads = threadsThatTakeSignals();
        QVERIFY(!take("/lock", 20).isTaken()); // and leaves a thread that waits
        QCOMPARE(threadsThatTakeSignals(), threads);
        const pid_t child = ::fork(); // has the same open file
        if (child == 0)
            ::_exit(::pause());
        lock = FileLock();
        QVERIFY(take("/lock", 5000).isTaken());
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        // What can only be read, as a folder, serves as well.
        QVERIFY(QDir(applicationFolder()).mkpath("folder"));
        QVERIFY(take("/folder", 0).isTaken());
    }

    void putsAsideWhatIsNoFileOfLists_data() { addTable("waiting-lists.txt"); }

    void putsAsideWhatIsNoFileOfLists()
    {
        QFETCH(QString, change);
        QFETCH(QString, warning);
        if (change.startsWith("chown") && ::geteuid() != 0)
            QSKIP("root alone can give a file away", 0);
        const QString file = home->filePath("waiting.lists");
        const QList<QStringList> lists = {{"A", QString()}, {}, {QString(100000, 'x')}};
        QVERIFY(addWaitingLists(file, lists.mid(0, 1)) && addWaitingLists(file, lists.mid(1)));
        output("sh", {"-c", change, file});
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression("HostKit: .* is not used: it " + warning));
        QCOMPARE(takeWaitingLists(file), warning.isEmpty() ? lists : QList<QStringList>());
        QVERIFY(!hasWaitingLists(file));
    }

    void passesActivationTokensOn_data() { addTable("tokens.txt"); }

    void passesActivationTokensOn()
    {
        QFETCH(QString, value); // in the launch's environment
        QFETCH(QString, setting); // left by a launch before, @ seconds from now
        QFETCH(QString, token); // that the master has then
        QFETCH(QString, platform); // of the master
        QFETCH(QString, variable);
        const auto environment = [](const QString& name, QString text) {
            text.replace("LONG", QString(1024, 'x')).replace("\\n", "\n");
            qputenv(qPrintable(name), text.toUtf8());
        };
        qApp->setProperty("platformName", platform);
        setValue(fromNow("@+0 left"), "ActivationToken"); // by a launch that crashed
        ReceivedActivation received;
        received.noteWhatIsThere();
        for (const char* const each : {"XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID"})
            qunsetenv(each);
        environment(variable, value);
        if (!setting.isEmpty())
            setValue(fromNow(setting), "ActivationToken");
        leaveActivationToken(ownActivationToken());
        qputenv("XDG_ACTIVATION_TOKEN", "old"); // the master's own
        received.takeOver();
        environment("EXPECTED", token);
        QCOMPARE(qgetenv("XDG_ACTIVATION_TOKEN"), qgetenv("EXPECTED"));
    }

    void passesOneTokenOfLaunchesAtOnce()
    {
        qApp->setProperty("platformName", "wayland");
        Session session;
        QByteArrayList tokens;
        connect(&session, &InstanceSession::argumentsReceived, [&tokens] {
            tokens.append(qgetenv("XDG_ACTIVATION_TOKEN"));
            qunsetenv("XDG_ACTIVATION_TOKEN"); // as Qt does where it is used
        });
        for (const char* const token : {"a", "b", "c", "d", "e"}) {
            leaveActivationToken(token);
            handOver({token}, SingleInstance::readMasterPort(), QDeadlineTimer(5000));
        }
        QTRY_COMPARE(tokens, (QByteArrayList{"e", "", "", "", ""})); // the last is as good as any
    }

    void flushesWhatWasHandedOver()
    {
        qputenv("QT_NO_GLIB", "1"); // for a loop that serves its sockets in any order
        const auto restore = qScopeGuard([] { qunsetenv("QT_NO_GLIB"); });
        const QStringList list(QString(30000, 'x'));
        for (int master = 0; master < 16; ++master) {
            qSetGlobalQHashSeed(-1); // and in another one each time
            QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
            const auto stop = qScopeGuard([] { stopSingleInstance(); });
            auto* const controller = SingleInstance::findController();
            connect(controller, &SingleInstance::SingleInstanceController::messageReceived,
                    [] { QThread::msleep(3); }); // a slot that takes its time
            const quint16 port = SingleInstance::readMasterPort();
            QVERIFY(handOver({"early"}, port, QDeadlineTimer(5000)));
            QTRY_COMPARE(controller->peekMessages().size(), 1);
            const auto inbox = std::make_shared<Inbox>(QList<QStringList>{{"older"}});
            Inbox::fillFrom(*controller, inbox, [] {});
            QCOMPARE(inbox->takeAll(), (QList<QStringList>{{"older"}, {"early"}}));

            for (size_t launches = 1; launches <= 5; ++launches) {
                std::vector<QTcpSocket> sockets(launches);
                for (QTcpSocket& socket : sockets) {
                    socket.connectToHost(QHostAddress::LocalHostIPv6, port);
                    socket.waitForConnected();
                    socket.write(SingleInstance::prefixed(SingleInstance::packArguments(list)));
                    socket.waitForBytesWritten();
                }
                QVERIFY(inbox->flush(port));
                QCOMPARE(inbox->takeAll().size(), int(launches));
            }
        }
    }

    /* Without the lock another process may be master, and would show what is sent to it. */
    void flushesNobodyElse()
    {
        QVERIFY(QDir().mkpath(applicationFolder() + "/SingleInstance/MasterPid")); // not written
        QFile::link("/none/at/all", applicationFolder() + "/launch.lock");
        for (int i = 0; i < 2; ++i)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("HostKit: cannot lock .*"));
        QTest::ignoreMessage(QtWarningMsg,
                             "HostKit: what was handed over last may be lost, "
                             "the master cannot be reached");
        QCOMPARE(Session().state(), SingleInstanceStateMaster);
    }

    /* However many turns a loop has been busy for when it is told, or is about to be. */
    void worksInNoLastTurn()
    {
        for (int turns = 0; turns < 50; ++turns) {
            bool isQuitting = false;
            bool isLate = false;
            QuietTurn turn([&] { isLate = isQuitting; });
            int left = turns;
            std::function<void()> busy = [&] {
                isQuitting = left-- == 0;
                if (!isQuitting)
                    QMetaObject::invokeMethod(qApp, busy, Qt::QueuedConnection);
                else if (turns < 20) // for so long no work is done as long as anything happens
                    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
                else
                    QCoreApplication::quit();
                turn.request();
            };
            QMetaObject::invokeMethod(qApp, busy, Qt::QueuedConnection);
            QCoreApplication::exec();
            QVERIFY(!isLate);
        }
    }

    void startsAProgramThatInheritsNothing()
    {
        const Session session;
        const QString command = "cd \"$0\"; ls -l /proc/self/fd >files; "
                                "grep SigBlk /proc/self/status >signals && mv signals done";
        QVERIFY(startSuccessor({"sh", "-c", command, home->path()}));
        QTRY_COMPARE(contentOf(home->filePath("done")), "SigBlk:\t0000000000000000\n");
        const QString inherited = contentOf(home->filePath("files"));
        QVERIFY(inherited.contains("->") && !inherited.contains(QRegularExpression("lock|socket")));
        QCOMPARE(output("find", {home->filePath("settings"), "-perm", "/077"}), QString());
    }

    void refusesASessionThatCannotBe()
    {
        qputenv("SHAPE", "early");
        QCOMPARE(launch()->waitForEnd().value(0),
                 "HostKit: cannot open a session, there is no application object yet");
        const Session session;
        QCOMPARE(session.property("state").value<SingleInstanceState>(), SingleInstanceStateMaster);
        const QByteArray warning = "HostKit: cannot open a session, ";
        QTest::ignoreMessage(QtWarningMsg, warning + "there is one already");
        QCOMPARE(InstanceSession().state(), SingleInstanceStateFailed);
        QTest::ignoreMessage(QtWarningMsg, warning + "this is not the application's thread");
        auto other = std::async(std::launch::async, [] { return InstanceSession().state(); });
        QCOMPARE(other.get(), SingleInstanceStateFailed);
    }

    /* The sample of the page on the protocol. */
    void anyProgramHandsOver()
    {
        qApp->setProperty("platformName", "wayland");
        setValue(fromNow("@+0 left"), "ActivationToken");
        qunsetenv("XDG_ACTIVATION_TOKEN");
        const QString sender = contentOf(PROTOCOL).section("```python", 1).section("```", 0, 0);
        Session session;
        QSignalSpy received(&session, &InstanceSession::argumentsReceived);
        for (const QStringList& list :
             {QStringList{"while blocked"}, QStringList{"a.txt", "😀"}, QStringList()}) {
            session.blockSignals(list.contains("while blocked"));
            const QStringList script = {"-c", sender, applicationFolder()};
            QCOMPARE(output("python3", script + (list.isEmpty() ? QStringList(" ") : list)), "");
            if (session.signalsBlocked())
                QTest::qWait(50); // for what must not come
            else
                QTRY_VERIFY(!received.isEmpty() && received.last().first() == list);
        }
        QCOMPARE(received.takeFirst().first(), QStringList("while blocked"));
        QVERIFY(!qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN")); // no launch has left one since
    }

private:
    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(RoomsTest)
#include "tst_rooms.moc"

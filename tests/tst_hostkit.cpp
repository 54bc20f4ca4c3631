#include "ActivationToken.h"
#include "Directories.h"
#include "FileLock.h"
#include "HandOff.h"
#include "IdleIteration.h"
#include "LaunchSpool.h"
#include "MessageFormat.h"
#include "PendingLaunches.h"
#include "Processes.h"
#include "Registry.h"
#include "SettingsSlot.h"
#include "SuccessorProcess.h"

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

/* A session that never starts this program again. */
struct Session : InstanceSession {
    Session() { setRestartCommand({}); }
};

QString value()
{
    return Core::Settings::getInstance()
        ->getValue("SingleInstance", "MasterPort", "none")
        .toString();
}

void setValue(const QString& value)
{
    Core::Settings::getInstance()->setValue("SingleInstance", "MasterPort", value, true);
}

QList<LaunchMessage> launchesOf(const QList<QStringList>& lists)
{
    QList<LaunchMessage> launches;
    for (const QStringList& list : lists)
        launches.append(opened(list).message);
    return launches;
}

QList<QStringList> takeSpooledLists()
{
    QList<QStringList> lists;
    for (const LaunchMessage& launch : takeSpooled())
        lists.append(launch.arguments);
    return lists;
}

/* Returns how many warnings of HostKit \a action causes. */
int warningsOf(const std::function<void()>& action)
{
    static int warnings;
    warnings = 0;
    const auto usual =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
            warnings += int(text.startsWith("HostKit: "));
        });
    action();
    qInstallMessageHandler(usual);
    return warnings;
}

QString threadsThatTakeSignals()
{
    const QString command = "grep -l 'SigBlk:.*0000000000000000' /proc/%1/task/*/status";
    return output("sh", {"-c", command.arg(::getpid())});
}

} // namespace

/* The modules of HostKit, by their internal headers. */
class HostKitTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
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
        for (const QString& name :
             {QString("../a b/ü"), QString(".."), // they must not lead out of the folder
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
        qputenv("XDG_CONFIG_HOME", "settings"); // a relative one is ignored
        QVERIFY(configDirectory().startsWith(home->filePath(".config/maker/")));
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
        const QDir folder(configDirectory() + "/SingleInstance");
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden), QStringList("MasterPort"));
        output("sh", {"-c", "cd \"$0\"; rm *; mkfifo MasterPort", folder.path()});
        QCOMPARE(value(), ""); // nobody writes to the pipe, and nobody waits
        output("sh", {"-c", "cd \"$0\"; rm *; mkdir MasterPort", folder.path()});
        setValue("in the place of a folder");
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden), QStringList());
    }

    void logsWhatQtSays()
    {
        QStringList lines;
        setLogSink([&lines](HostKit::LogLevel level, const QString& text) {
            lines.append(QString::number(int(level)) + ' ' + text);
        });
        const int others = warningsOf([] {
            catchQtMessages(true);
            qCritical("c");
            qWarning("w");
            qInfo("i"); // below the threshold
            catchQtMessages(false);
            qWarning("HostKit: to the handler that was there before");
        });
        setLogSink(nullptr);
        QCOMPARE(lines, QStringList({"4 c", "3 w"}));
        QCOMPARE(others, 1);
    }

    void warnsOfOtherWriters_data() { addTable("writers.txt"); }

    void warnsOfOtherWriters()
    {
        QFETCH(QString, change); // by a shell, to the directory $0 in $1
        QFETCH(QString, warnings);
        if (change.startsWith("chown") && ::geteuid() != 0)
            QSKIP("root alone can give a folder away", 0);
        QVERIFY(QDir().mkpath(configDirectory()));
        output("sh", {"-c", change, configDirectory(), QFileInfo(configDirectory()).path()});
        QCOMPARE(warningsOf(warnIfWritableByOthers), warnings.toInt());
    }

    void dropsLinesThatNobodyReads()
    {
        const int usual = ::dup(STDERR_FILENO);
        std::array<int, 2> ends = {};
        QCOMPARE(::pipe2(ends.data(), O_CLOEXEC), 0);
        ::dup2(ends[1], STDERR_FILENO);
        for (int i = 0; i < 100; ++i) // would block here
            writeToStandardError(HostKit::LogLevel::Info, QString(9000, 'x'));
        std::array<char, 1 << 18> text = {}; // GCC warns of an overflow in a QByteArray
        auto size = ::read(ends[0], text.data(), 1 << 17);
        const auto kept = std::count(text.begin(), text.end(), '\n');
        writeToStandardError(HostKit::LogLevel::Info, QString("\x1b[7m") + QChar(0x202E));
        size += ::read(ends[0], text.data() + size, 1 << 17);
        ::dup2(usual, STDERR_FILENO);
        ::close(usual);
        const QString last =
            QString("(%1 lines before this were dropped) \\x1b[7m\\x202e\n").arg(100 - kept);
        QVERIFY(kept > 0 && QString::fromUtf8(text.data(), int(size)).endsWith(last));
    }

    void locksOutOthers()
    {
        const auto take = [](const char* name, int milliseconds) {
            return FileLock::take(configDirectory() + name, FileLock::Kind::Exclusive,
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
        // A folder, which cannot be written, can be locked as well.
        QVERIFY(QDir(configDirectory()).mkpath("folder"));
        QVERIFY(take("/folder", 0).isTaken());
    }

    void putsAsideWhatIsNoFileOfLists_data() { addTable("spool.txt"); }

    void putsAsideWhatIsNoFileOfLists()
    {
        QFETCH(QString, change);
        QFETCH(QString, warning);
        if (change.startsWith("chown") && ::geteuid() != 0)
            QSKIP("root alone can give a file away", 0);
        const QList<QStringList> lists = {{"A", QString()}, {}, {QString(100000, 'x')}};
        const QString file = spool(launchesOf(lists.mid(0, 1)));
        QVERIFY(!file.isEmpty() && !spool(launchesOf(lists.mid(1))).isEmpty());
        output("sh", {"-c", change, file});
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression("HostKit: .* are not used: it is " + warning));
        QCOMPARE(takeSpooledLists(), lists.mid(warning.isEmpty() ? 0 : 1));
        QVERIFY(!hasSpooled());
    }

    void keepsListsWhereThereIsPlace()
    {
        QVERIFY(QDir().mkpath(
            QFileInfo(configDirectory()).path())); // a file takes the place of the folder
        QVERIFY(QFile(configDirectory()).open(QFile::WriteOnly));
        qunsetenv("XDG_RUNTIME_DIR");
        QCOMPARE(warningsOf([] { QCOMPARE(spool(launchesOf({{"A"}})), QString()); }), 1);
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(home->path()));
        QVERIFY(!spool(launchesOf({{"A"}})).isEmpty());
        QCOMPARE(takeSpooledLists(), QList<QStringList>{{"A"}});
        const QStringList large(QString(20 << 20, 'x')); // 40 MiB
        QVERIFY(!spool(launchesOf({large})).isEmpty());
        const QList<LaunchMessage> more = launchesOf({{"small"}, large});
        QCOMPARE(warningsOf([&] { QVERIFY(!spool(more).isEmpty()); }), 1);
        QCOMPARE(takeSpooledLists(), (QList<QStringList>{large, {"small"}}));
    }

    /* The last table of docs/protocol.md. */
    void opensEnvelopes_data()
    {
        addProtocolRows(R"(^\| `(\[.*\])` \| `(\{.*\})` \|)", "list", "message");
    }

    void opensEnvelopes()
    {
        QFETCH(QString, list);
        QFETCH(QString, message);
        const auto texts = QJsonDocument::fromJson(list.toUtf8()).array().toVariantList();
        const Received received = opened(QVariant(texts).toStringList());
        const LaunchMessage& launch = received.message;
        QJsonObject found = {{"arguments", QJsonArray::fromStringList(launch.arguments)}};
        const auto add = [&found](const char* name, const QString& value) {
            if (!value.isEmpty())
                found.insert(name, value);
        };
        add("id", launch.id);
        add("folder", launch.workingFolder);
        add("token", launch.activationToken);
        add("wait", launch.isWaiting ? "yes" : "");
        if (received.chunkCount > 1)
            add("chunk", QString("%1 of %2").arg(received.chunk).arg(received.chunkCount));
        QCOMPARE(found, QJsonDocument::fromJson(message.toUtf8()).object());
    }

    void passesTokensOn()
    {
        QVERIFY(isValidToken(QByteArray(1024, 'x')) && !isValidToken(QByteArray(1025, 'x')));
        for (const QString platform : {"xcb", "wayland-egl"}) {
            qApp->setProperty("platformName", platform);
            Session session;
            int right = 0; // launches may arrive in another order
            const auto check = [&](const QStringList& list) {
                right += qgetenv("XDG_ACTIVATION_TOKEN") == (platform == "xcb" ? "" : list[0]);
            };
            connect(&session, &InstanceSession::argumentsReceived, this, check,
                    Qt::QueuedConnection); // it is still there
            for (const char* const token : {"b", "a", "c"}) {
                LaunchMessage message;
                message.activationToken = token;
                message.arguments.append(token);
                QVERIFY(handOff(message));
            }
            QTRY_COMPARE(right, 3);
            QTRY_VERIFY(
                !qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN")); // no slot used the last one
        }
    }

    void joinsWhatTravelsInChunks()
    {
        LaunchMessage message;
        message.id = newLaunchId();
        message.arguments = QStringList{"", QString(100000, 'x'), "b", QString(40000, 'y')};
        const auto chunks = chunksOf(message);
        QVERIFY(chunks.size() > 3);
        const Session session;
        QSignalSpy received(&session, &InstanceSession::argumentsReceived);
        const quint16 port = SingleInstance::readMasterPort();
        for (auto chunk = chunks.rbegin(); chunk != chunks.rend(); ++chunk) {
            QVERIFY(SingleInstance::packedSize(*chunk) <= SingleInstance::maxBodySize);
            QVERIFY(sendList(*chunk, port));
            QVERIFY(sendList({"between"}, port));
        }
        QVERIFY(sendList(chunks.first(), port)); // its other chunks do not follow
        QVERIFY(sendList({"last"}, port));
        QTRY_COMPARE(received.size(), chunks.size() + 2);
        received.removeAll({QStringList("between")});
        received.removeAll({QStringList("last")});
        QCOMPARE(received, QList<QVariantList>{{message.arguments}}); // all or nothing
    }

    void refusesWhatIsTooMuch()
    {
        const QStringList large(QString(10 << 20, 'x')); // 20 MiB
        const auto fill = [&large] {
            PendingLaunches pending(launchesOf({{"a"}, large, large, large, large, {"b"}}));
            QCOMPARE(pending.takeAll().size(), 5); // the fourth large one is missing
        };
        QCOMPARE(warningsOf(fill), 1);
    }

    void flushesWhatWasHandedOver()
    {
        qputenv("QT_NO_GLIB", "1"); // such an event loop serves its sockets in any order
        const auto restore = qScopeGuard([] { qunsetenv("QT_NO_GLIB"); });
        const QStringList list(QString(30000, 'x'));
        for (int master = 0; master < 16; ++master) {
            qSetGlobalQHashSeed(-1); // a different one each time
            QCOMPARE(startSingleInstance(), SingleInstanceStateMaster);
            const auto stop = qScopeGuard([] { stopSingleInstance(); });
            auto* const controller = SingleInstance::findController();
            connect(controller, &SingleInstance::SingleInstanceController::messageReceived,
                    [] { QThread::msleep(3); }); // a slow slot
            const quint16 port = SingleInstance::readMasterPort();
            QVERIFY(sendList({"early"}, port));
            QTRY_COMPARE(controller->peekMessages().size(), 1);
            const auto pending = std::make_shared<PendingLaunches>(launchesOf({{"older"}}));
            PendingLaunches::fillFrom(*controller, pending, [] {});
            QCOMPARE(pending->takeFirst().arguments, QStringList("older"));
            QCOMPARE(pending->takeFirst().arguments, QStringList("early"));

            for (size_t launches = 1; launches <= 5; ++launches) {
                std::vector<QTcpSocket> sockets(launches);
                for (QTcpSocket& socket : sockets) {
                    socket.connectToHost(QHostAddress::LocalHostIPv6, port);
                    socket.waitForConnected();
                    socket.write(SingleInstance::prefixed(SingleInstance::packArguments(list)));
                    socket.waitForBytesWritten();
                }
                QVERIFY(pending->flush(port));
                QCOMPARE(pending->takeAll().size(), int(launches));
            }
        }
    }

    /* Without the lock another process may be the master, and must not get the marks. */
    void flushesNobodyElse()
    {
        QVERIFY(QDir().mkpath(configDirectory() + "/SingleInstance/MasterPid")); // not written
        QFile::link("/none/at/all", configDirectory() + "/launch.lock");
        const auto run = [] { QCOMPARE(Session().state(), SingleInstanceStateMaster); };
        QCOMPARE(warningsOf(run), 4); // two of the lock, one of the process id, one of launches
    }

    /* Whether the loop is told to quit after few or many busy iterations. */
    void worksInNoLastIteration()
    {
        for (int iterations = 0; iterations < 50; ++iterations) {
            bool isQuitting = false;
            bool isLate = false;
            int done = 0;
            IdleIteration idle([&] {
                isLate = isQuitting;
                ++done;
            });
            int left = iterations;
            std::function<void()> busy = [&] {
                isQuitting = left-- == 0;
                if (!isQuitting)
                    QMetaObject::invokeMethod(qApp, busy, Qt::QueuedConnection);
                else if (iterations % 2 == 0)
                    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
                else
                    QCoreApplication::quit();
                idle.request();
            };
            QMetaObject::invokeMethod(qApp, busy, Qt::QueuedConnection);
            QCoreApplication::exec();
            QVERIFY(!isLate);
            isQuitting = false;
            QTRY_COMPARE(done, 1); // when the loop runs again
        }
    }

    /* A timer is always due; in the second round there are always posted events as well. */
    void worksWhereNoIterationIsIdle()
    {
        for (int left : {50, 2}) {
            QTimer frames;
            connect(&frames, &QTimer::timeout, [posts = left == 2] {
                QThread::msleep(16);
                if (posts)
                    QCoreApplication::postEvent(qApp, new QEvent(QEvent::User));
            });
            frames.start(0);
            std::unique_ptr<IdleIteration> idle;
            idle = std::make_unique<IdleIteration>([&] {
                if (--left > 0)
                    idle->request();
            });
            idle->request();
            QTRY_COMPARE_WITH_TIMEOUT(left, 0, 10000); // one or two seconds
        }
    }

    void startsAProgramThatInheritsNothing()
    {
        const QString count =
            "ls -l /proc/self/fd | grep -cE ' ([3-9]|[1-9][0-9]+) -> .*(lock|socket)'";
        const QString before = output("sh", {"-c", count}); // of what started this test
        const Session session;
        qputenv("XDG_ACTIVATION_TOKEN", "of this process");
        const auto restore = qScopeGuard([] { qunsetenv("XDG_ACTIVATION_TOKEN"); });
        const QString command = "cd \"$0\"; " + count
            + " >files; env >environment; "
              "grep SigBlk /proc/self/status >signals && mv signals done";
        QVERIFY(startSuccessor({"sh", "-c", command, home->path()}));
        QTRY_COMPARE(contentOf(home->filePath("done")), "SigBlk:\t0000000000000000\n");
        QCOMPARE(contentOf(home->filePath("files")).trimmed(), before);
        const QString environment = contentOf(home->filePath("environment"));
        QVERIFY(environment.contains("HOSTKIT_STARTED_FOR") && !environment.contains("TOKEN"));
        QCOMPARE(output("find", {home->filePath("settings"), "-perm", "/077"}), QString());
    }

    void refusesASessionThatCannotBe()
    {
        qputenv("SHAPE", "early");
        QCOMPARE(launch()->waitForEnd().value(0),
                 "HostKit: cannot open a session, there is no application object yet");
        QTest::ignoreMessage(
            QtWarningMsg, "HostKit: cannot open a session, this is not the application's thread");
        auto other = std::async(std::launch::async, [] { return InstanceSession().state(); });
        QCOMPARE(other.get(), SingleInstanceStateFailed);
    }

    /* The sender in docs/protocol.md. */
    void anyProgramHandsOver()
    {
        const QString sender = contentOf(PROTOCOL).section("```python", 1).section("```", 0, 0);
        Session session;
        QSignalSpy received(&session, &InstanceSession::argumentsReceived);
        for (const QStringList& list :
             {QStringList{"while blocked"}, QStringList{"a.txt", "😀"}, QStringList()}) {
            session.blockSignals(list.contains("while blocked"));
            const QStringList script = {"-c", sender, configDirectory()};
            QCOMPARE(output("python3", script + list), "");
            if (session.signalsBlocked())
                QTest::qWait(50); // nothing must come
            else
                QTRY_VERIFY(!received.isEmpty() && received.last().first() == list);
        }
        QCOMPARE(received.takeFirst().first(), QStringList("while blocked"));
    }

private:
    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(HostKitTest)
#include "tst_hostkit.moc"

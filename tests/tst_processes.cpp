#include "Family.h"
#include "Rounds.h"

#include <HostKit/InstanceSession.h>
#include <HostKit/LaunchLock.h>

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <array>
#include <future>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

using Launch = std::unique_ptr<Process>;

/* By a session, unless LAUNCH_MODE=bare asks what the bare entry points make of it. */
Launch launch(const QStringList& arguments = {"own"})
{
    const bool isBare = qEnvironmentVariable("LAUNCH_MODE") == "bare";
    return std::make_unique<Process>(isBare ? PROGRAMS "bare_launcher" : PROGRAMS "launcher",
                                     arguments);
}

Launch launchMaster(const QStringList& arguments = {"own"})
{
    Launch master = launch(arguments);
    return master->waitForLine("state .*") == "state 1" ? std::move(master) : nullptr;
}

/* The port that HostKit keeps for the application in \a folder. */
QString portFile(const QString& folder = "launcher")
{
    return qEnvironmentVariable("XDG_CONFIG_HOME") + '/' + folder + "/SingleInstance/MasterPort";
}

QByteArray port(const QString& folder = "launcher")
{
    QFile file(portFile(folder));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
}

void setPort(const QByteArray& port)
{
    QFile file(portFile());
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(port) > 0);
}

bool setIPv6(bool on)
{
    QFile file("/proc/sys/net/ipv6/conf/all/disable_ipv6");
    return file.open(QIODevice::WriteOnly) && file.write(on ? "0" : "1") == 1;
}

} // namespace

/* What HostKit keeps, and real processes that share it: each test in a folder of its own. */
class ProcessesTest : public QObject {
    Q_OBJECT

private slots:
    /* A session in this process would start it anew for lists that it has not received. */
    void initTestCase() { QVERIFY(!qEnvironmentVariableIsSet("HOSTKIT_STARTED_FOR")); }

    void init()
    {
        QCoreApplication::setOrganizationName("maker");
        QCoreApplication::setApplicationName("program"); // also in the name of the folder
        home = std::make_unique<QTemporaryDir>();
        QVERIFY(home->isValid());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->path()));
        qputenv("SINGLEINSTANCE_LOG_LEVEL", "2");
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }

    void keepsFilesPrivate()
    {
        QCoreApplication::setOrganizationName("../a b");
        QCoreApplication::setApplicationName(QString(200, QChar(0x42F))); // too long for a file
        HostKit::InstanceSession session;
        session.setRestartCommand({}); // not this program
        QCOMPARE(session.state(), SingleInstanceStateMaster);
        const HostKit::LaunchLock lock;
        for (const int milliseconds : {0, 20})
            QVERIFY(!HostKit::LaunchLock(milliseconds).isTaken());
        QCOMPARE(
            QDir(home->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList("..%2Fa b"));
        const QStringList openToOthers = {home->path(), "-perm", "/077"};
        QCOMPARE(Process("find", openToOthers).waitForEnd(), QStringList());
    }

    void viewerOpensWhatItCan()
    {
        const QString odd = QString::fromUtf8("Bücher & 本.txt");
        write(odd, "a");
        write("binary", QByteArray("\0", 1));
        const auto master = view({"/dev", "binary", "file:///no%6Ee"});
        QVERIFY(!master->waitForLine(".* not opened: “/dev” is a folder\\.").isEmpty());
        QVERIFY(!master->waitForLine(".* not opened: “.*/binary” is not a text file\\.").isEmpty());
        QVERIFY(!master->waitForLine(".* not opened: There is no file “/none”\\.").isEmpty());
        const auto second = view({odd, "/dev/zero", "/proc/self/mem", "\x1b[7m"});
        QVERIFY(!second->waitForLine("viewer: handed over to the window that is open").isEmpty());
        QVERIFY(!master->waitForLine(".*message received: .*\\\\x1b\\[7m").isEmpty());
        QVERIFY(!master->waitForLine(".* opened .*/" + QRegularExpression::escape(odd)).isEmpty());
        QVERIFY(!master->waitForLine(".* not opened: “/dev/zero” is not a regular.*").isEmpty());
        QVERIFY(!master->waitForLine(".* not opened: “/proc/self/mem” cannot be read.*").isEmpty());
    }

    void viewerStandsAloneWithoutSettings()
    {
        write("a.txt", "a");
        qputenv("XDG_CONFIG_HOME", "/dev/null/below");
        const auto alone = view({"a.txt"});
        QVERIFY(!alone->waitForLine(".*Settings: cannot write .*: Not a directory").isEmpty());
        QVERIFY(!alone->waitForLine(".*cannot start master so give up\\.").isEmpty());
        QVERIFY(!alone->waitForLine(".* opened .*/a\\.txt").isEmpty());
    }

    void refusesASessionThatCannotBe()
    {
        HostKit::InstanceSession session;
        session.setRestartCommand({});
        QCOMPARE(session.property("state").value<SingleInstanceState>(), SingleInstanceStateMaster);
        const QByteArray warning = "HostKit: cannot open a session, ";
        QTest::ignoreMessage(QtWarningMsg, warning + "there is one already");
        QCOMPARE(HostKit::InstanceSession().state(), SingleInstanceStateFailed);
        QTest::ignoreMessage(QtWarningMsg, warning + "this is not the application's thread");
        auto other =
            std::async(std::launch::async, [] { return HostKit::InstanceSession().state(); });
        QCOMPARE(other.get(), SingleInstanceStateFailed);
        qputenv("SHAPE", "early");
        Process early(PROGRAMS "shapes");
        QCOMPARE(early.waitForEnd(), QStringList(warning + "there is no application object yet"));
        QCOMPARE(QDir(home->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
                 QStringList("maker"));
    }

    void launchesAtOnce_data()
    {
        QTest::addColumn<int>("launches");
        QTest::addColumn<QByteArray>("shape"); // of those with windows
        for (const int launches : {2, 8, 32})
            QTest::addRow("%d launches", launches) << launches << QByteArray();
        QTest::newRow("32 launches with windows") << 32 << QByteArray("closing");
    }

    void launchesAtOnce()
    {
        QFETCH(int, launches);
        QFETCH(QByteArray, shape);
        qputenv("SHAPE", shape);
        const int count = rounds("STORM_ROUNDS", launches < 32 ? 3 : 1);
        Tally tally;
        qint64 milliseconds = 0;
        for (int round = 0; round < count; ++round) {
            const Family family;
            QElapsedTimer timer;
            timer.start();
            std::vector<Launch> all;
            for (int i = 0; i < launches; ++i)
                all.push_back(shape.isEmpty()
                                  ? launch({QString::number(i)})
                                  : std::make_unique<Process>(PROGRAMS "shapes",
                                                              QStringList(QString::number(i))));
            for (const Launch& each : all)
                tally.count(family, *each);
            milliseconds += timer.elapsed();
            tally.count(family);
        }
        qInfo("%s at once: %d rounds, %s, %lld ms a launch", QTest::currentDataTag(), count,
              tally.text().constData(), milliseconds / (count * launches));
        QVERIFY(tally.isClean()
                || qEnvironmentVariableIsSet("LAUNCH_MODE")); // bare promises nothing
    }

    void passesActivationTokensOn_data()
    {
        QTest::addColumn<QByteArray>("variable"); // of the launch's environment, and its value
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QByteArray>("platform"); // of the master
        QTest::addColumn<QByteArray>("setting"); // with @ for now, which is there before the launch
        QTest::addColumn<QString>("token");

        const QByteArray token = "XDG_ACTIVATION_TOKEN";
        const auto row = [token](const char* name, const QByteArray& value, const char* expected,
                                 const char* setting = "") {
            QTest::newRow(name) << token << value << QByteArray("wayland-egl")
                                << QByteArray(setting) << expected;
        };
        const QByteArray longest(1024, 'x');
        row("a token", "t-1", "t-1");
        row("none", "", "old");
        row("the longest", longest, longest);
        row("one too long", longest + 'x', "old");
        row("with a blank", "t 1", "old");
        row("with a line break", "t\n1", "old");
        row("not ASCII", "\xC3\xA4", "old");
        row("of a minute ago", "", "t", "@-50 t");
        row("of two minutes ago", "", "old", "@-120 t");
        row("from the future", "", "old", "@+120 t");
        row("damaged", "", "old", "@t");
        row("without a time", "", "old", " t");
        QTest::newRow("a start-up id") << QByteArray("DESKTOP_STARTUP_ID") << QByteArray("i_TIME1")
                                       << QByteArray("wayland") << QByteArray() << "i_TIME1";
        QTest::newRow("not on Wayland")
            << token << QByteArray("t") << QByteArray("xcb") << QByteArray() << "old";
    }

    void passesActivationTokensOn()
    {
        QFETCH(QByteArray, variable);
        QFETCH(QByteArray, value);
        QFETCH(QByteArray, platform);
        QFETCH(QByteArray, setting);
        QFETCH(QString, token);
        const auto restore = qScopeGuard([] {
            for (const char* const each :
                 {"XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID", "PLATFORM"})
                qunsetenv(each);
        });
        const auto at = [](int seconds) {
            return QByteArray::number(QDateTime::currentSecsSinceEpoch() + seconds);
        };
        const QString file = "launcher/SingleInstance/ActivationToken";
        QVERIFY(QDir(home->path()).mkpath("launcher/SingleInstance"));
        write(file, at(0) + " left"); // by a launch that crashed
        qputenv("XDG_ACTIVATION_TOKEN", "old"); // the master's own
        qputenv("PLATFORM", platform);
        const auto master = launchMaster();
        QVERIFY(master);
        qunsetenv("XDG_ACTIVATION_TOKEN");
        if (!setting.isEmpty()) {
            setting.replace("@-50", at(-50)).replace("@-120", at(-120)).replace("@+120", at(120));
            write(file, setting.replace('@', at(0)));
        }
        qputenv(variable, value);
        QCOMPARE(launch({"a"})->waitForEnd(), QStringList("state 2"));
        QCOMPARE(master->waitForLine("token .*"), "token " + token);
        QVERIFY(!master->waitForLine("list a").isEmpty());
    }

    /* Those of the README. */
    void samplesHandOver()
    {
        const auto samples = {std::pair("session_sample", "Example/Documents"), // and its settings
                              std::pair("parser_sample", "Example/Notes"),
                              std::pair("quick_sample", "Example/Pictures"),
                              std::pair("bare_sample", "bare_sample")};
        qputenv("QT_QUICK_BACKEND", "software");
        for (const auto& [name, folder] : samples) {
            const QString sample = QString(PROGRAMS) + name;
            const QString port = home->filePath(folder) + "/SingleInstance/MasterPort";
            Process master(sample);
            QVERIFY(QTest::qWaitFor([port] { return QFile::exists(port); }, 20000));
            Process second(sample, {"a.txt"});
            QVERIFY(second.waitForFinished());
            QCOMPARE(second.exitCode(), 0);
            QVERIFY(!master.waitForFinished(0));
        }
    }

    void takesNothingForItsOwn()
    {
        Process master(PROGRAMS "side_by_side");
        QCOMPARE(master.waitForLine("state .*"), "state 1, own calls 0");
        QCOMPARE(Process(PROGRAMS "side_by_side", {"a"}).waitForEnd(),
                 QStringList("state 2, own calls 0"));
        QVERIFY(!master.waitForLine("a").isEmpty());
    }

    /* The sample of the page on the protocol. */
    void anyProgramHandsOver()
    {
        QFile page(PROTOCOL);
        QVERIFY(page.open(QIODevice::ReadOnly));
        const QString sender =
            QString::fromUtf8(page.readAll()).section("```python", 1).section("```", 0, 0);
        HostKit::InstanceSession session;
        session.setRestartCommand({});
        QSignalSpy received(&session, &HostKit::InstanceSession::argumentsReceived);
        for (const QStringList& list : {QStringList{"a.txt", "😀"}, QStringList()}) {
            const QStringList script = {"-c", sender, home->filePath("maker/program")};
            const QStringList sent = list.isEmpty() ? QStringList(" ") : list;
            QCOMPARE(Process("python3", script + sent).waitForEnd(), QStringList());
            QTRY_COMPARE(received.size(), 1);
            QCOMPARE(received.takeFirst().first().toStringList(), list);
        }
    }

    void startsAfterAKill()
    {
        const int count = rounds("KILL_ROUNDS", 10);
        for (int round = 0; round < count; ++round) {
            const Family family;
            const bool atItsEnd = round % 2 == 0; // else anywhere in start or hand-over
            const auto killed = launch({"a"});
            const auto other = launch({"b"});
            if (atItsEnd) {
                killed->waitForLine("state .*");
                killed->write("quit\n");
                killed->waitForBytesWritten();
            }
            QTest::qWait(QRandomGenerator::global()->bounded(atItsEnd ? 4 : 40));
            killed->signal(SIGKILL);
            other->signal(SIGKILL);
            killed->waitForEnd();
            other->waitForEnd();
            QElapsedTimer timer;
            timer.start();
            const auto next = launch({"c"});
            const QString state = next->waitForLine("state .*");
            QVERIFY(timer.elapsed() < 5000); // a lock that is left costs 10 s
            // There may be one already that was started for what the first had not received.
            QVERIFY(state == "state 1" || (state == "state 2" && family.said("list c")));
        }
        qInfo("kill -9 at a random moment: %d rounds, the next launch was served each time", count);
    }

    void ignoresAStrangerOnTheOldPort()
    {
        QTcpServer stranger; // accepts and never reads
        QTcpServer rude; // closes at once
        connect(&rude, &QTcpServer::newConnection, &rude,
                [&] { delete rude.nextPendingConnection(); });
        for (QTcpServer* const listener : {&stranger, &rude}) {
            QVERIFY(launchMaster()); // and killed at once
            QVERIFY(listener->listen(QHostAddress::LocalHost));
            const QString port = "launcher/SingleInstance/MasterPort";
            QVERIFY(QFile::exists(home->filePath(port)));
            write(port, QByteArray::number(listener->serverPort()));
            QVERIFY(launchMaster({"a"}));
        }
    }

    void takesThePlaceOfAMasterThatCannotBeReached_data()
    {
        QTest::addColumn<int>("connections"); // to a master that is stopped; the kernel keeps 51
        QTest::addColumn<QString>("network"); // what becomes of it

        QTest::newRow("the master's queue is full") << 51 << "";
        QTest::newRow("the master's port is gone") << 0 << "port";
        if (qEnvironmentVariableIsSet(
                "OWN_NETWORK")) // of this test, which may do with it as it likes
            QTest::newRow("IPv6 is switched off") << 0 << "IPv6";
    }

    void takesThePlaceOfAMasterThatCannotBeReached()
    {
        QFETCH(int, connections);
        QFETCH(QString, network);
        const int count = rounds("UNREACHABLE_ROUNDS", 1);
        qint64 longest = 0;
        for (int round = 0; round < count; ++round) {
            const Family family;
            const auto old = launchMaster();
            QVERIFY(old);
            const QByteArray oldPort = port();
            QVERIFY(old->stop());
            QCOMPARE(launch({"before"})->waitForEnd(), QStringList("state 2"));
            std::vector<std::unique_ptr<QTcpSocket>> idle;
            while (int(idle.size()) < connections - 1) {
                idle.push_back(std::make_unique<QTcpSocket>());
                idle.back()->connectToHost(QHostAddress::LocalHostIPv6, oldPort.toUShort());
                QVERIFY(idle.back()->waitForConnected());
            }
            if (network == "port")
                setPort("1");
            QVERIFY(network != "IPv6" || setIPv6(false));

            QElapsedTimer timer;
            timer.start();
            std::vector<Launch> launches;
            for (int i = 0; i < 20; ++i)
                launches.push_back(launch({QString::number(i)}));
            Tally tally;
            for (const Launch& each : launches)
                tally.count(family, *each);
            longest = std::max(longest, timer.elapsed());
            QVERIFY2(tally.isClean() && tally.handedOver == 19, tally.text());

            const QByteArray newPort = port();
            QVERIFY(newPort != oldPort);
            old->write("quit\n");
            old->waitForBytesWritten();
            QVERIFY(network != "IPv6" || setIPv6(true));
            old->signal(SIGCONT);
            old->waitForEnd();
            QCOMPARE(port(), newPort);
            QVERIFY(network == "IPv6" || family.said("list before")); // passed on
        }
        qInfo("20 launches while %s: %d rounds, served in %.1f s "
              "at most",
              QTest::currentDataTag(), count, double(longest) / 1000);
        QVERIFY(longest < 20000); // 3 s, on a machine that has time
    }

    /* As after a crash that takes its time: the kernel frees the lock with the last of a process.
     */
    void becomesMasterBesideOneThatIsGoing()
    {
        QVERIFY(launchMaster()); // and killed at once
        const QByteArray path = QFile::encodeName(home->filePath("launcher/master.lock"));
        const int lock = ::open(path.constData(), O_RDWR | O_CLOEXEC);
        const auto close = qScopeGuard([lock] { ::close(lock); });
        QTRY_COMPARE(::flock(lock, LOCK_SH | LOCK_NB), 0);
        const auto master = launchMaster();
        QVERIFY(master);
        ::flock(lock, LOCK_UN);
        QVERIFY(::flock(lock, LOCK_EX | LOCK_NB) != 0);
        QCOMPARE(launch({"a"})->waitForEnd(), QStringList("state 2"));
        QCOMPARE(master->waitForLine("list .*"), "list a");
    }

    void handsOverToAMasterThatDoesNotMove()
    {
        const auto master = launchMaster();
        QVERIFY(master);
        QVERIFY(master->stop());
        QCOMPARE(launch({"a"})->waitForEnd(), QStringList("state 2"));
        master->signal(SIGCONT);
        QCOMPARE(master->waitForLine("list .*"), "list a");
        master->write("block\n"); // its main thread
        QVERIFY(!master->waitForLine("blocking").isEmpty());
        QCOMPARE(launch({"b"})->waitForEnd(), QStringList("state 2"));
        QVERIFY(master->readAll().isEmpty());
        QCOMPARE(master->waitForLine("list .*"), "list b");
    }

private:
    Launch view(const QStringList& arguments)
    {
        return std::make_unique<Process>(VIEWER, arguments, home->path());
    }

    void write(const QString& name, const QByteArray& content)
    {
        QFile file(home->filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) >= 0);
    }

    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(ProcessesTest)
#include "tst_processes.moc"

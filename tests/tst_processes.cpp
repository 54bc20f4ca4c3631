#include "Process.h"
#include "Rounds.h"

#include <Core/Settings.h>
#include <HostKit/InstanceSession.h>
#include <HostKit/LaunchLock.h>

#include <QtNetwork/QTcpServer>

#include <future>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

using Launch = std::unique_ptr<Process>;

/* By a session, unless LAUNCH_MODE=bare asks what the bare entry points make of it. */
Launch launch(const QStringList& arguments = {})
{
    const QString mode = qEnvironmentVariable("LAUNCH_MODE", "session");
    return std::make_unique<Process>(LAUNCHER, QStringList(mode) + arguments);
}

Launch launchMaster(const QStringList& arguments = {})
{
    Launch master = launch(arguments);
    return master->waitForLine("state .*") == "state 1" ? std::move(master) : nullptr;
}

/* What became of many launches. */
struct Tally {
    int twoMasters = 0;
    int failed = 0;
    int handedOver = 0;
    int lost = 0;
    int repeated = 0;

    /* Ends \a launches, which are all decided, and counts what the masters showed. */
    void count(const QStringList& states, const std::vector<Launch>& launches)
    {
        QStringList shown;
        for (const Launch& each : launches) {
            each->write("quit\n");
            shown += each->waitForEnd().filter("list ");
        }
        for (int i = 0; i < states.size(); ++i) {
            const auto times = shown.count("list " + launches[size_t(i)]->arguments().last());
            const bool isMaster = states[i] == "state 1";
            failed += isMaster || states[i] == "state 2" ? 0 : 1;
            handedOver += isMaster ? 0 : 1;
            lost += isMaster || times > 0 ? 0 : 1;
            repeated += times > 1 ? 1 : 0;
        }
    }
    bool isClean() const // a bare launch promises nothing; its faults are counted alone
    {
        return twoMasters + failed + lost + repeated == 0
            || qEnvironmentVariableIsSet("LAUNCH_MODE");
    }
    QByteArray text() const
    {
        const auto* const format = "%d with two masters, %d of %d lists lost, %d repeated, "
                                   "%d launches failed";
        return QString::asprintf(format, twoMasters, lost, handedOver, repeated, failed).toUtf8();
    }
};

QString portSetting()
{
    return Core::Settings::getInstance()
        ->getValue("SingleInstance", "MasterPort", QVariant("none"))
        .toString();
}

void setPort(const QString& port)
{
    Core::Settings::getInstance()->setValue("SingleInstance", "MasterPort", port, true);
}

} // namespace

/* What HostKit keeps, and real processes that share it: each test in a folder of its own. */
class ProcessesTest : public QObject {
    Q_OBJECT

private slots:
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

    void keepsValuesPrivate()
    {
        QCoreApplication::setApplicationName("../a b/ü"); // leads nowhere else
        QCOMPARE(portSetting(), "none");
        setPort("1");
        const QString path = "maker/..%2Fa b%2F%C3%BC/SingleInstance/MasterPort";
        QVERIFY(QFile::exists(home->filePath(path)));
        const HostKit::LaunchLock lock;
        for (const int milliseconds : {0, 20})
            QVERIFY(!HostKit::LaunchLock(std::chrono::milliseconds(milliseconds)).isTaken());
        const QStringList openToOthers = {home->path(), "-perm", "/077"};
        QCOMPARE(Process("find", openToOthers).waitForEnd(), QStringList());
    }

    void showsNoPartOfAValue()
    {
        const QStringList values = {QString(10, '1'), QString(5000, '2')};
        setPort(values.first());
        const auto writer = std::async(std::launch::async, [&values] {
            for (int i = 0; i < 2000; ++i)
                setPort(values[i % 2]);
        });
        while (writer.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
            QVERIFY(values.contains(portSetting()));
        const QDir folder(home->filePath("maker/program/SingleInstance"));
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden), QStringList("MasterPort"));
    }

    void viewerOpensWhatItCan()
    {
        const QString odd = QString::fromUtf8("Bücher & 本.txt");
        write(odd, "a");
        write("binary", QByteArray("\0", 1));
        const auto master = view({"/dev", "binary", "/none"});
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

    void launchesAtOnce_data()
    {
        QTest::addColumn<int>("launches");
        for (const int launches : {2, 8, 32})
            QTest::addRow("%d", launches) << launches;
    }

    void launchesAtOnce()
    {
        QFETCH(int, launches);
        const int count = rounds("STORM_ROUNDS", launches < 32 ? 3 : 1);
        Tally tally;
        qint64 milliseconds = 0;
        for (int round = 0; round < count; ++round) {
            init();
            QElapsedTimer timer;
            timer.start();
            std::vector<Launch> all;
            for (int i = 0; i < launches; ++i)
                all.push_back(launch({QString::number(i)}));
            QStringList states;
            for (const Launch& each : all)
                states.append(each->waitForLine("state .*"));
            milliseconds += timer.elapsed();
            tally.twoMasters += states.count("state 1") == 1 ? 0 : 1;
            tally.count(states, all);
        }
        qInfo("%d launches at once: %d rounds, %s, %lld ms a launch", launches, count,
              tally.text().constData(), milliseconds / (count * launches));
        QVERIFY(tally.isClean());
    }

    /* Those of the README. */
    void samplesHandOver()
    {
        const auto samples = {std::pair("session_sample", "Example/Documents"), // and its settings
                              std::pair("bare_sample", "bare_sample")};
        for (const auto& [name, folder] : samples) {
            const QString sample = QString(SAMPLES "/%1").arg(name);
            const QString port = home->filePath(folder) + "/SingleInstance/MasterPort";
            Process master(sample);
            QVERIFY(QTest::qWaitFor([port] { return QFile::exists(port); }, 20000));
            Process second(sample, {"a.txt"});
            QVERIFY(second.waitForFinished());
            QCOMPARE(second.exitCode(), 0);
            QVERIFY(!master.waitForFinished(0));
        }
    }

    /* The sample of the page on the protocol. */
    void anyProgramHandsOver()
    {
        QFile page(PROTOCOL);
        QVERIFY(page.open(QIODevice::ReadOnly));
        const QString sender =
            QString::fromUtf8(page.readAll()).section("```python", 1).section("```", 0, 0);
        const HostKit::InstanceSession session;
        QSignalSpy received(&session, &HostKit::InstanceSession::argumentsReceived);
        for (const QStringList& list : {QStringList{"a.txt", "😀"}, QStringList()}) {
            const QStringList script = {"-c", sender, home->filePath("maker/program")};
            const QStringList sent = list.isEmpty() ? QStringList(" ") : list;
            QCOMPARE(Process("python3", script + sent).waitForEnd(), QStringList());
            QTRY_COMPARE(received.size(), 1);
            QCOMPARE(received.takeFirst().first().toStringList(), list);
        }
    }

    void quitsWithoutLosingAList()
    {
        const int count = rounds("QUIT_ROUNDS", 5);
        Tally tally;
        for (int round = 0; round < count; ++round) {
            init();
            std::vector<Launch> all;
            all.push_back(launchMaster({"own"}));
            QVERIFY(all.front());
            for (int i = 0; i < 3; ++i)
                all.push_back(launch({QString::number(i)}));
            QTest::qWait(QRandomGenerator::global()->bounded(30)); // which of them is first varies
            all.front()->write("quit\n");
            QStringList states("state 1");
            for (size_t i = 1; i < all.size(); ++i)
                states.append(all[i]->waitForLine("state .*"));
            tally.twoMasters += states.count("state 1") > 2 ? 1 : 0; // one after the other
            tally.count(states, all);
        }
        qInfo("3 launches while the master quits: %d rounds, %s", count, tally.text().constData());
        QVERIFY(tally.isClean());
    }

    /* Which holds the launch lock, and hands over only now. */
    void quitsBehindALaunchThatIsHalfWay()
    {
        const auto master = launchMaster();
        QVERIFY(master);
        QCoreApplication::setOrganizationName({});
        QCoreApplication::setApplicationName("launcher");
        auto lock = std::make_unique<HostKit::LaunchLock>();
        master->write("save\n");
        QVERIFY(!master->waitForLine("quitting").isEmpty());
        QCOMPARE(Process(LAUNCHER, {"bare", "a"}).waitForEnd(), QStringList("state 2"));
        lock.reset();
        QVERIFY(!master->waitForLine("saving").isEmpty()); // and that holds up nobody
        QCOMPARE(launch({"b"})->waitForEnd(), QStringList("state 2"));
        QVERIFY(master->readAll().isEmpty());
        QCOMPARE(master->waitForLine("list .*"), "list a");
        QCOMPARE(master->waitForLine("list .*"), "list b");
        QVERIFY(!master->waitForLine("saving").isEmpty());
        QVERIFY(launchMaster());
        QCOMPARE(master->state(), QProcess::Running);
    }

    void startsAfterAKill()
    {
        const int count = rounds("KILL_ROUNDS", 10);
        for (int round = 0; round < count; ++round) {
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
            const auto next = launchMaster({"c"});
            QVERIFY(next && timer.elapsed() < 5000); // a lock that is left costs 10 s
        }
        qInfo("kill -9 at a random moment: %d rounds, the next launch became master each time",
              count);
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

    /* The crashed master is still going, or a launch hangs, while the next one becomes master. */
    void staysMasterWhenTheLockComesLate()
    {
        QVERIFY(launchMaster()); // and killed at once
        const QByteArray path = QFile::encodeName(home->filePath("launcher/master.lock"));
        const int lock = ::open(path.constData(), O_RDWR | O_CLOEXEC);
        const auto close = qScopeGuard([lock] { ::close(lock); });
        QTRY_COMPARE(::flock(lock, LOCK_EX | LOCK_NB), 0);
        const auto master = launchMaster();
        QVERIFY(master);
        ::flock(lock, LOCK_UN);
        QTRY_VERIFY(::flock(lock, LOCK_EX | LOCK_NB) != 0 || ::flock(lock, LOCK_UN) != 0);
        QCOMPARE(launch({"a"})->waitForEnd(), QStringList("state 2"));
        QCOMPARE(master->waitForLine("list .*"), "list a");
    }

    void handsOverToAMasterThatDoesNotMove()
    {
        const auto master = launchMaster();
        QVERIFY(master);
        master->signal(SIGSTOP);
        QCOMPARE(launch({"a"})->waitForEnd(), QStringList("state 2"));
        master->signal(SIGCONT);
        QCOMPARE(master->waitForLine("list .*"), "list a");
        master->write("block\n"); // its main thread
        QVERIFY(!master->waitForLine("blocking").isEmpty());
        QCOMPARE(launch({"b"})->waitForEnd(), QStringList("state 2"));
        QVERIFY(master->readAll().isEmpty());
        QCOMPARE(master->waitForLine("list .*"), "list b");
        master->signal(SIGSTOP);
        QCOMPARE(launch({"c"})->waitForEnd(), QStringList("state 2"));
        master->write("quit\n");
        master->waitForBytesWritten();
        master->signal(SIGCONT); // quits before it reads
        QCOMPARE(master->waitForLine("list .*"), "list c");
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

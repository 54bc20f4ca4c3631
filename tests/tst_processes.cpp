#include "Process.h"
#include "Rounds.h"

#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <csignal>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

/* By a session, unless LAUNCH_MODE=bare asks what the bare entry points make of it. */
std::unique_ptr<Process> launch(const QStringList& arguments, const char* mode = nullptr)
{
    const QString usual = qEnvironmentVariable("LAUNCH_MODE", "session");
    return std::make_unique<Process>(LAUNCHER, QStringList(mode ? mode : usual) + arguments);
}

QStringList statesOf(const std::vector<std::unique_ptr<Process>>& processes, size_t first = 0)
{
    QStringList states;
    for (size_t i = first; i < processes.size(); ++i)
        states.append(processes[i]->waitForLine("state .*"));
    return states;
}

/* What became of many launches. */
struct Tally {
    int twoMasters = 0;
    int failed = 0;
    int handedOver = 0;
    int lost = 0;
    int repeated = 0;

    /* Ends the masters among \a processes, which are all decided, and counts what they showed. */
    void count(const QStringList& states, const std::vector<std::unique_ptr<Process>>& processes)
    {
        QStringList shown;
        for (int i = 0; i < states.size(); ++i) {
            processes[size_t(i)]->write("quit\n");
            shown += processes[size_t(i)]->waitForEnd().filter("list ");
        }
        for (int i = 0; i < states.size(); ++i) {
            if (states[i] == "state 1")
                continue;
            failed += states[i] == "state 2" ? 0 : 1;
            ++handedOver;
            const int times = shown.count("list " + processes[size_t(i)]->arguments().last());
            lost += times == 0 ? 1 : 0;
            repeated += times > 1 ? 1 : 0;
        }
    }
    bool isClean() const { return twoMasters + failed + lost + repeated == 0; }
    QString text() const
    {
        return QString("%1 with two masters, %2 of %3 lists lost, %4 repeated, %5 launches failed")
            .arg(twoMasters)
            .arg(lost)
            .arg(handedOver)
            .arg(repeated)
            .arg(failed);
    }
};

} // namespace

/* Real processes, each test in a settings folder of its own. */
class ProcessesTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void viewerShowsAllDocuments();
    void viewerOpensWhatItCan_data();
    void viewerOpensWhatItCan();
    void viewerStandsAloneWithoutSettings();
    void bareLaunchesFindTheMaster();
    void launchesAtOnce_data();
    void launchesAtOnce();
    void quitsWithoutLosingAList();
    void startsAfterAKill();
    void ignoresAStrangerOnTheOldPort_data();
    void ignoresAStrangerOnTheOldPort();
    void staysMasterWhenTheLockComesLate();
    void handsOverToAStoppedMaster();
    void handsOverToABusyMaster();

private:
    std::unique_ptr<Process> view(const QStringList& arguments);
    QString write(const QString& name, const QByteArray& content);

    std::unique_ptr<QTemporaryDir> home;
};

void ProcessesTest::init()
{
    home = std::make_unique<QTemporaryDir>();
    QVERIFY(home->isValid());
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->path()));
    qputenv("SINGLEINSTANCE_LOG_LEVEL", "2");
    qputenv("QT_QPA_PLATFORM", "offscreen");
}

std::unique_ptr<Process> ProcessesTest::view(const QStringList& arguments)
{
    return std::make_unique<Process>(VIEWER, arguments, home->path());
}

QString ProcessesTest::write(const QString& name, const QByteArray& content)
{
    QFile file(home->filePath(name));
    return file.open(QIODevice::WriteOnly) && file.write(content) >= 0 ? file.fileName()
                                                                       : QString();
}

void ProcessesTest::viewerShowsAllDocuments()
{
    const QString odd = QString::fromUtf8("Bücher & 本.txt");
    write("a.txt", "a");
    write("b.txt", "b");
    write(odd, "c");
    const auto master = view({"a.txt"});
    QVERIFY(!master->waitForLine(".* opened .*/a\\.txt").isEmpty());
    for (const QString& name : {QString("b.txt"), odd}) {
        const auto second = view({name});
        QCOMPARE(second->waitForEnd(),
                 QStringList("viewer: handed over to the window that is open"));
        QCOMPARE(second->exitCode(), 0);
        QVERIFY(
            !master->waitForLine(".* opened " + QRegularExpression::escape(home->filePath(name)))
                 .isEmpty());
    }
}

void ProcessesTest::viewerOpensWhatItCan_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("problem");

    QTest::newRow("a folder") << "/dev"
                              << "“/dev” is a folder.";
    QTest::newRow("a missing file") << "/none"
                                    << "There is no file “/none”.";
    QTest::newRow("a device") << "/dev/zero"
                              << "“/dev/zero” is not a regular file.";
    QTest::newRow("a binary file") << "binary"
                                   << "“.*/binary” is not a text file.";
    QTest::newRow("an unreadable file") << "/proc/self/mem"
                                        << "“/proc/self/mem” cannot be read: .*";
}

void ProcessesTest::viewerOpensWhatItCan()
{
    QFETCH(QString, name);
    QFETCH(QString, problem);
    write("binary",
          QByteArray("\x7F"
                     "ELF\0",
                     5));
    write("a.txt", "a");
    const auto master = view({name, "a.txt"});
    QVERIFY(!master->waitForLine(".* not opened: " + problem).isEmpty());
    QVERIFY(!master->waitForLine(".* opened .*/a\\.txt").isEmpty());
}

void ProcessesTest::viewerStandsAloneWithoutSettings()
{
    write("a.txt", "a");
    qputenv("XDG_CONFIG_HOME", "/dev/null/below");
    const auto alone = view({"a.txt"});
    QVERIFY(!alone->waitForLine(".*Settings: cannot write .*: Not a directory").isEmpty());
    QVERIFY(!alone->waitForLine(".*cannot start master so give up\\.").isEmpty());
    QVERIFY(!alone->waitForLine(".* opened .*/a\\.txt").isEmpty());
}

void ProcessesTest::bareLaunchesFindTheMaster()
{
    const auto master = launch({"own"}, "bare");
    QCOMPARE(master->waitForLine("state .*"), "state 1");
    QCOMPARE(launch({"a", "b c"}, "bare")->waitForEnd(), QStringList("state 2"));
    QCOMPARE(master->waitForLine("list .*"), "list a|b c");
    master->write("quit\n");
    QCOMPARE(master->waitForEnd(), (QStringList{"state 1", "list a|b c"}));
    QCOMPARE(launch({}, "bare")->waitForLine("state .*"), "state 1");
}

void ProcessesTest::launchesAtOnce_data()
{
    QTest::addColumn<int>("launches");
    QTest::newRow("2") << 2;
    QTest::newRow("8") << 8;
    QTest::newRow("32") << 32;
}

void ProcessesTest::launchesAtOnce()
{
    QFETCH(int, launches);
    const int count = rounds("STORM_ROUNDS", launches < 32 ? 3 : 1);
    Tally tally;
    qint64 milliseconds = 0;
    for (int round = 0; round < count; ++round) {
        init();
        QElapsedTimer timer;
        timer.start();
        std::vector<std::unique_ptr<Process>> all;
        for (int i = 0; i < launches; ++i)
            all.push_back(launch({QString::number(i)}));
        const QStringList states = statesOf(all);
        milliseconds += timer.elapsed();
        tally.twoMasters += states.count("state 1") == 1 ? 0 : 1;
        tally.count(states, all);
    }
    qInfo("%d launches at once: %d rounds, %s, %lld ms a launch", launches, count,
          qPrintable(tally.text()), milliseconds / (count * launches));
    QVERIFY(tally.isClean());
}

void ProcessesTest::quitsWithoutLosingAList()
{
    const int count = rounds("QUIT_ROUNDS", 5);
    Tally tally;
    for (int round = 0; round < count; ++round) {
        init();
        std::vector<std::unique_ptr<Process>> all;
        all.push_back(launch({"own"}));
        QCOMPARE(all[0]->waitForLine("state .*"), "state 1");
        for (int i = 0; i < 3; ++i)
            all.push_back(launch({QString::number(i)}));
        QTest::qWait(QRandomGenerator::global()->bounded(30)); // which of them is first varies
        all[0]->write("quit\n");
        tally.count(QStringList("state 1") + statesOf(all, 1), all);
    }
    qInfo("3 launches while the master quits: %d rounds, %s", count, qPrintable(tally.text()));
    QVERIFY(tally.isClean());
}

void ProcessesTest::startsAfterAKill()
{
    const int count = rounds("KILL_ROUNDS", 10);
    int masters = 0;
    for (int round = 0; round < count; ++round) {
        const auto killed = launch({"a"});
        const auto other = launch({"b"});
        if (round % 2 == 0) { // somewhere in its end, else anywhere in start or hand-over
            killed->waitForLine("state .*");
            killed->write("quit\n");
            killed->waitForBytesWritten();
        }
        QTest::qWait(QRandomGenerator::global()->bounded(round % 2 == 0 ? 4 : 40));
        killed->signal(SIGKILL);
        other->signal(SIGKILL);
        killed->waitForEnd();
        other->waitForEnd();
        const auto next = launch({"c"});
        masters += next->waitForLine("state .*") == "state 1" ? 1 : 0;
        next->signal(SIGKILL);
    }
    QCOMPARE(masters, count);
    qInfo("kill -9 at a random moment: %d rounds, the next launch became master each time",
          masters);
}

void ProcessesTest::ignoresAStrangerOnTheOldPort_data()
{
    QTest::addColumn<bool>("closes");
    QTest::newRow("one that never reads") << false;
    QTest::newRow("one that closes at once") << true;
}

void ProcessesTest::ignoresAStrangerOnTheOldPort()
{
    QFETCH(bool, closes);
    QTcpServer stranger;
    QVERIFY(stranger.listen(QHostAddress::LocalHostIPv6)
            || stranger.listen(QHostAddress::LocalHost));
    if (closes)
        connect(&stranger, &QTcpServer::newConnection, &stranger,
                [&] { delete stranger.nextPendingConnection(); });
    const auto killed = launch({});
    QCOMPARE(killed->waitForLine("state .*"), "state 1");
    killed->signal(SIGKILL);
    killed->waitForEnd();
    const QString port = home->filePath("launcher/SingleInstance/MasterPort");
    QVERIFY(QFile::exists(port));
    write("launcher/SingleInstance/MasterPort", QByteArray::number(stranger.serverPort()));

    QCOMPARE(launch({"a"})->waitForLine("state .*"), "state 1");
}

/* The crashed master is still going, or a launch hangs, while the next one becomes master. */
void ProcessesTest::staysMasterWhenTheLockComesLate()
{
    QCOMPARE(launch({})->waitForLine("state .*"), "state 1"); // and killed at once
    const QByteArray path = QFile::encodeName(home->filePath("launcher/master.lock"));
    const int lock = ::open(path.constData(), O_RDWR | O_CLOEXEC);
    QTRY_COMPARE(::flock(lock, LOCK_EX | LOCK_NB), 0);
    const auto master = launch({});
    QCOMPARE(master->waitForLine("state .*"), "state 1");
    ::flock(lock, LOCK_UN);
    QTRY_VERIFY(::flock(lock, LOCK_EX | LOCK_NB) != 0 || ::flock(lock, LOCK_UN) != 0);
    ::close(lock);
    QCOMPARE(launch({"a"})->waitForEnd(), QStringList("state 2"));
    QCOMPARE(master->waitForLine("list .*"), "list a");
}

void ProcessesTest::handsOverToAStoppedMaster()
{
    const auto master = launch({});
    QCOMPARE(master->waitForLine("state .*"), "state 1");
    master->signal(SIGSTOP);
    QCOMPARE(launch({"a"})->waitForEnd(), QStringList("state 2"));
    master->signal(SIGCONT);
    QCOMPARE(master->waitForLine("list .*"), "list a");
}

void ProcessesTest::handsOverToABusyMaster()
{
    const auto master = launch({});
    QCOMPARE(master->waitForLine("state .*"), "state 1");
    master->write("block 10000\n");
    QVERIFY(!master->waitForLine("blocking").isEmpty());
    QCOMPARE(launch({"a"})->waitForEnd(), QStringList("state 2"));
    QVERIFY(master->state() == QProcess::Running && master->readAllStandardOutput().isEmpty());
    QCOMPARE(master->waitForLine("list .*"), "list a");
}

QTEST_GUILESS_MAIN(ProcessesTest)
#include "tst_processes.moc"

#include "Processes.h"

#include <HostKit/LaunchLock.h>

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <array>
#include <optional>
#include <vector>

#include <sys/file.h>

namespace {

/* Returns the file of the port. */
QString portFile()
{
    return qEnvironmentVariable("XDG_CONFIG_HOME") + "/application/SingleInstance/MasterPort";
}

/* Runs a shell command. Its $0 is the file of the port. */
void change(const QString& command)
{
    QCOMPARE(output("sh", {"-c", command, portFile()}), "");
}

std::vector<Launch> launchMany(int count)
{
    std::vector<Launch> all;
    while (int(all.size()) < count)
        all.push_back(launch({QString("/%1").arg(all.size())}));
    return all;
}

/* Returns a master that is stopped, and to which the \a lists were handed over. */
Launch stoppedMaster(const QString& name, const QStringList& lists)
{
    Launch master = launchMaster({name});
    const auto isSent = [](const QString& list) { return launched(list) == "state 2"; };
    if (!master->stop() || !std::all_of(lists.begin(), lists.end(), isSent))
        QTest::qFail("the master does not stop", __FILE__, __LINE__);
    return master;
}

/* Returns a launch that waits, after it has handed over. */
Launch waitingLaunch()
{
    qputenv("SHAPE", "closing");
    qputenv("LOUD", "1");
    Launch waiting = launch({"--wait", "/a"});
    if (waiting->waitForLine(".*sending message completed\\.").isEmpty())
        QTest::qFail("this launch hands nothing over", __FILE__, __LINE__);
    qunsetenv("LOUD");
    qunsetenv("SHAPE");
    return waiting;
}

/* Returns a number of milliseconds, to vary which process is first. */
int random(int maximum)
{
    return QRandomGenerator::global()->bounded(maximum);
}

/* Ends \a master as \a command says, and waits; if \a isStopped, it is suspended meanwhile. */
void end(Process& master, const QString& command, bool isStopped)
{
    const bool byKeys = command == "close" && qEnvironmentVariableIsSet("DISPLAY");
    const QStringList close = {"key", "alt+F4"}; // by the window manager
    QVERIFY(!isStopped || master.stop());
    if (byKeys) {
        output("xdotool", close);
    } else if (command == "TERM") { // one request often comes as two signals
        master.signal(SIGTERM);
        QTest::qWait(1); // one that is still pending would take up the next
        master.signal(SIGTERM);
    } else {
        master.command(command.toUtf8());
    }
    QTest::qWait(random(isStopped ? 60 : 1));
    master.signal(SIGCONT);
    if (byKeys && master.waitForLine("ends").isEmpty()) // the key is lost while the focus moves
        output("xdotool", close);
    master.waitForEnd();
    QCOMPARE(master.exitCode(), command == "exit" ? 3 : 0);
}

/* Connects to \a port and stays connected. */
std::vector<QTcpSocket> idleConnections(size_t count, quint16 port)
{
    std::vector<QTcpSocket> connections(count);
    for (QTcpSocket& each : connections) {
        each.connectToHost(QHostAddress::LocalHostIPv6, port);
        each.waitForConnected();
    }
    return connections;
}

} // namespace

/*
 * Sessions of real processes (support/application.cpp) that start, launch others, end and are
 * killed. Each list must be shown once, by a process whose window is visible.
 */
class SessionsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        qputenv("QT_QPA_PLATFORM", qEnvironmentVariableIsSet("DISPLAY") ? "xcb" : "offscreen");
        qputenv("QT_QUICK_BACKEND", "software");
        for (const char* const variable : {"SHAPE", "RESTART"})
            qunsetenv(variable);
        QCoreApplication::setApplicationName("application"); // as the processes do
        family.emplace();
    }

    void cleanup() { family.reset(); }

    void servesEachLaunch_data() { addTable("storms.txt"); }

    void servesEachLaunch()
    {
        QFETCH(QString, launches);
        QFETCH(QString, shape);
        QFETCH(QString, command); // to the master; without one there is no master yet
        QFETCH(QString, when);
        qputenv("SHAPE", shape.toUtf8());
        const bool hasWindow = command == "close" && qEnvironmentVariableIsSet("DISPLAY");
        const int count = std::max(1, qEnvironmentVariableIntValue("STORM_ROUNDS"));
        int handedOver = 0;
        for (int round = 0; round < count; ++round) {
            family.emplace();
            const auto master = command.isEmpty() ? nullptr : launchMaster();
            QVERIFY(!hasWindow || !windowOf(*master).isEmpty());
            const auto all = launchMany(launches.toInt());
            if (master) {
                QTest::qWait(random(60));
                end(*master, command, when == "stopped");
            }
            for (const Launch& each : all)
                QVERIFY(family->isServed(*each));
            // A master without a window would swallow this one.
            QVERIFY(family->isServed(*launch({"/last"})));
            QVERIFY(family->isInOrder());
            // No launch that hands over has built an application object before.
            QVERIFY(family->lines("arguments .*").size() <= family->lines("state 1").size());
            // No launch has sent an empty list.
            QVERIFY(command == "restart" || family->lines("list ").isEmpty());
            handedOver += family->handedOver;
        }
        qInfo("%s: %d rounds, %d lists handed over, each shown once", QTest::currentDataTag(),
              count, handedOver);
    }

    void startsAfterAKill()
    {
        const int count = std::max(10, qEnvironmentVariableIntValue("KILL_ROUNDS"));
        for (int round = 0; round < count; ++round) {
            family.emplace();
            const bool atItsEnd = round % 2 == 0; // otherwise at any moment of start or hand-off
            auto killed = launchMany(2);
            if (atItsEnd) {
                killed[0]->waitForLine("state .*");
                killed[0]->command("quit");
            }
            QTest::qWait(random(atItsEnd ? 4 : 40));
            for (const Launch& each : killed)
                each->kill();
            killed.clear(); // waits for their ends
            QElapsedTimer timer;
            timer.start();
            QVERIFY(family->isServed(*launch({"/last"})));
            QVERIFY(timer.elapsed() < 5000); // a lock that is left costs 10 s
        }
        qInfo("kill -9 at a random moment: %d rounds, the next launch was served each time", count);
    }

    void takesThePlaceOfAMasterThatCannotBeReached_data() { addTable("unreachable.txt"); }

    void takesThePlaceOfAMasterThatCannotBeReached()
    {
        QFETCH(QString, launches);
        QFETCH(QString, shape); // of these
        QFETCH(QString, connections); // to a master that is stopped; the kernel keeps 51
        QFETCH(QString, before); // by a shell, to the file of the port
        QFETCH(QString, after);
        const int rounds = std::max(1, qEnvironmentVariableIntValue("UNREACHABLE_ROUNDS"));
        if (before.contains("ipv6") && !qEnvironmentVariableIsSet("OWN_NETWORK"))
            QSKIP("it changes the network", 0);
        if (launches != "20" && rounds == 1)
            QSKIP("for scripts/soak.sh", 0);
        qint64 longest = 0;
        for (int round = 0; round < rounds; ++round) {
            family.emplace();
            const auto old = stoppedMaster("/own", {"/before"});
            const QString oldPort = contentOf(portFile());
            const auto idle = idleConnections(connections.toUInt(), oldPort.toUShort());
            change(before);

            qputenv("SHAPE", shape.toUtf8());
            QElapsedTimer timer;
            timer.start();
            const auto all = launchMany(launches.toInt());
            for (const Launch& each : all)
                QVERIFY(family->isServed(*each));
            QCOMPARE(family->handedOver, launches.toInt() - 1);
            longest = std::max(longest, timer.elapsed());
            const QString newPort = contentOf(portFile());
            QVERIFY(newPort != oldPort);
            qunsetenv("SHAPE");
            old->command("quit");
            change(after);
            old->signal(SIGCONT);
            old->waitForEnd();
            QCOMPARE(contentOf(portFile()), newPort);
            QVERIFY(!after.isEmpty() || family->said("list /before")); // passed on
        }
        qInfo("%s: %d rounds, served in %.1f s at most", QTest::currentDataTag(), rounds,
              double(longest) / 1000);
        QVERIFY(longest < 20000); // 3 s, on a machine that has time
    }

    /* As after a crash: the kernel frees the lock with the last of a process, which takes time. */
    void becomesMasterBesideOneThatIsGoing()
    {
        launchMaster(); // and killed at once
        const QByteArray file = family->path("settings/application/master.lock");
        const int lock = ::open(file.constData(), O_RDWR | O_CLOEXEC);
        const auto close = qScopeGuard([lock] { ::close(lock); });
        QTRY_COMPARE(::flock(lock, LOCK_SH | LOCK_NB), 0);
        const auto master = launchMaster();
        ::flock(lock, LOCK_UN);
        QVERIFY(::flock(lock, LOCK_EX | LOCK_NB) != 0);
        QCOMPARE(launched("/a"), "state 2");
        QCOMPARE(master->waitForLine("list .*"), "list /a");
    }

    void ignoresAStrangerOnTheOldPort()
    {
        launchMaster(); // and killed at once
        QTcpServer stranger; // accepts and never reads
        QVERIFY(stranger.listen(QHostAddress::LocalHost));
        change(QString("printf %1 >$0").arg(stranger.serverPort()));
        // On a full disk nobody can be served, but nothing goes to the stranger.
        Process full("sh", {"-c", "ulimit -f 0; exec $0 /a", PROGRAMS "application"});
        QCOMPARE(full.waitForLine("state .*"), "state 3");
        const QDir folder = QFileInfo(portFile()).dir();
        QCOMPARE(folder.entryList({"*.*"}, QDir::Files), QStringList()); // no part of a file either
        launchMaster();
    }

    /* That launch holds the lock, and hands over only now. */
    void endsBehindALaunchThatIsHalfWay()
    {
        const auto master = launchMaster();
        auto lock = std::make_unique<HostKit::LaunchLock>();
        const auto other = launch({"/other"});
        QVERIFY(!other->waitForReadyRead(1500)); // it waits for the lock
        master->command("save");
        QVERIFY(family->said("ends"));
        qputenv("SHAPE", "bare");
        QCOMPARE(launched("/A"), "state 2");
        qunsetenv("SHAPE");
        lock.reset();
        QVERIFY(family->said("list /A") && family->said("list /other"));
        QCOMPARE(launched("/B"), "state 2");
        QVERIFY(family->said("list /B"));
        QCOMPARE(master->state(), QProcess::Running); // its slow end delayed no launch
    }

    void leavesListsToTheNextLaunch_data() { addTable("leftovers.txt"); }

    void leavesListsToTheNextLaunch()
    {
        QFETCH(QString, shape);
        QFETCH(QString, restart);
        QFETCH(QString, masters);
        QFETCH(QString, warning);
        qputenv("SHAPE", shape.toUtf8());
        const QString program = QDir(PROGRAMS).absoluteFilePath(restart);
        qputenv("RESTART", restart.isEmpty() ? QByteArray() : program.toUtf8());
        const auto master = stoppedMaster("/own", {"/A"});
        master->command("quit");
        master->signal(SIGCONT);
        const QString line = ".*warning: HostKit: .* this process ";
        QVERIFY(warning.isEmpty() || !master->waitForLine(line + warning).isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(family->lines("ends").size(), masters.toInt(), 20000);
        QVERIFY(family->lines("list /A").isEmpty());
        qunsetenv("SHAPE");
        QTRY_VERIFY_WITH_TIMEOUT(family->haveEnded(), 20000);
        const auto last = launchMaster();
        QVERIFY(family->said("list /A"));
        QCOMPARE(family->lines("state 1").size(), masters.toInt() + 1);
    }

    void handsOverWhatTheApplicationWouldSee_data() { addTable("command-lines.txt"); }

    void handsOverWhatTheApplicationWouldSee()
    {
        QFETCH(QString, line);
        QFETCH(QString, arguments); // with ~ for the working folder
        qputenv("SHAPE", "closing");
        qputenv("QT_QPA_PLATFORM", "offscreen");
        arguments.replace('~', QFileInfo(family->path("")).canonicalFilePath());
        const QStringList words = line.split(' ', Qt::SkipEmptyParts);
        QVERIFY(QFile(family->path("mailto:there")).open(QFile::WriteOnly));
        const auto start = [&] { return launch(words, family->path("")); };
        QCOMPARE(start()->waitForLine("arguments.*"), "arguments " + arguments);

        const auto master = launchMaster();
        qputenv("QT_DEBUG_PLUGINS", "1");
        const QStringList said = start()->waitForEnd();
        qunsetenv("QT_DEBUG_PLUGINS");
        QCOMPARE(said, QStringList("state 2")); // Qt has searched for no plug-in
        QCOMPARE(master->waitForLine("list.*"), "list " + arguments);
    }

    void answersTheUser_data() { addTable("questions.txt"); }

    /* With and without a master, without a display, and without waiting for the lock. */
    void answersTheUser()
    {
        QFETCH(QString, command); // by a shell: $0 is the program, $1 a folder
        QFETCH(QString, code);
        QFETCH(QString, output);
        QFETCH(QString, error);
        qputenv("SHAPE", "closing");
        const auto master = launchMaster();
        const HostKit::LaunchLock lock; // nobody waits for it
        qputenv("QT_QPA_PLATFORM", "none"); // which would end the process
        for (const char* const settings : {"settings", "none"}) {
            qputenv("XDG_CONFIG_HOME", family->path(settings));
            QProcess shell;
            shell.start("sh", {"-c", command, PROGRAMS "application", family->path("gone")});
            QVERIFY(shell.waitForFinished());
            QCOMPARE(shell.exitCode(), code.toInt());
            const auto matches = [](const QByteArray& text, const QString& pattern) {
                return QRegularExpression("\\A" + pattern + "\\z").match(text).hasMatch();
            };
            QVERIFY2(matches(shell.readAllStandardOutput(), output), qPrintable(output));
            QVERIFY2(matches(shell.readAllStandardError(), error), qPrintable(error));
        }
        QVERIFY(!QFile::exists(family->path("none")));
        QVERIFY(family->lines("list.*").isEmpty());
    }

    void letsTheUserHaveOneMoreProcess()
    {
        const auto master = launchMaster();
        qputenv("SHAPE", "closing");
        const auto another = launch({"--new-instance", "/b"});
        QCOMPARE(another->waitForLine("state .*"), "state 0");
        qunsetenv("SHAPE");
        QCOMPARE(launched("/a"), "state 2");
        QCOMPARE(master->waitForLine("list .*"), "list /a");
        master->command("quit");
        master->waitForEnd();
        launchMaster();
    }

    void handsOverAnyNumberOfFiles()
    {
        QStringList files = {'/' + QString(40000, 'x')};
        while (files.size() < 3000)
            files.append(QString("/%1").arg(files.size(), 100));
        qputenv("SHAPE", "closing");
        const auto master = launchMaster(files);
        QCOMPARE(master->waitForLine("arguments.*"), "arguments " + files.join('|'));
        QVERIFY(master->stop());
        QCOMPARE(launch(files)->waitForEnd(), QStringList("state 2"));
        master->signal(SIGCONT);
        QCOMPARE(master->waitForLine("list .*"), "list " + files.join('|'));
    }

    void waits_data() { addTable("waits.txt"); }

    void waits()
    {
        QFETCH(QString, received); // whether the master is not stopped
        QFETCH(QString, event); // a command to the master, or a signal to somebody
        QFETCH(QString, code);
        QFETCH(QString, error);
        const auto master = launchMaster();
        QVERIFY(received == "yes" || master->stop());
        const auto waiting = waitingLaunch();
        QVERIFY(received != "yes" || family->said("list --wait\\|/a"));
        QVERIFY(!waiting->waitForFinished(100));
        if (event == "KILL")
            master->kill();
        else if (event == "INT")
            waiting->signal(SIGINT);
        else
            master->command(event.toUtf8());
        const QRegularExpression ofItsOwn("^(?!state|\\d)"); // not of the log
        QCOMPARE(waiting->waitForEnd().filter(ofItsOwn).join('\n'), error);
        QCOMPARE(waiting->exitCode(), code.toInt());
        if (event == "INT") {
            master->command("ask");
            QVERIFY(!master->waitForLine("waiting 0").isEmpty());
        }
        const QDir folder(family->path("settings/application"));
        QCOMPARE(folder.entryList({"hostkit-*"}, QDir::System), QStringList());
    }

    /* Each with a code of its own, while something happens to the master or to one of them. */
    void endsEachWait()
    {
        using Event = std::pair<int, int>; // to the master, and how many answers it may cost
        const std::array events = {Event(SIGCONT, 0), Event(SIGKILL, 10), Event(SIGTERM, 10),
                                   Event(SIGSTOP, 0), Event(0, 1)};
        const int rounds =
            std::max(int(events.size()), qEnvironmentVariableIntValue("WAIT_ROUNDS"));
        int answered = 0;
        for (int round = 0; round < rounds; ++round) {
            family.emplace();
            const auto& [signal, maxLost] = events.at(size_t(round) % events.size());
            const auto master = launchMaster();
            qputenv("SHAPE", "closing");
            std::vector<Launch> waiting;
            for (int code = 10; code < (round == 0 ? 60 : 20); ++code)
                waiting.push_back(launch({"--wait", QString("/code%1").arg(code)}));
            qunsetenv("SHAPE"); // of a process that the master starts
            QTest::qWait(random(60));
            if (signal == SIGSTOP)
                master->stop(); // at once SIGCONT would take back a signal that is still pending
            else if (signal == 0)
                waiting.front()->kill();
            else
                master->signal(signal);
            master->signal(SIGCONT);
            int lost = 0;
            for (const Launch& each : waiting) {
                // Then it waits for nobody.
                const auto isMaster = [&] { return family->isMaster(*each); };
                QVERIFY(QTest::qWaitFor([&] { return each->hasEnded() || isMaster(); }, 20000));
                const QString code = each->arguments().last().section("code", 1);
                const bool isAnswered = each->exitCode() == code.toInt();
                QVERIFY(isMaster() || isAnswered
                        || QList<int>({0, 1, SIGKILL}).contains(each->exitCode()));
                lost += !isMaster() && !isAnswered;
                answered += isAnswered;
            }
            QVERIFY(lost <= maxLost);
        }
        qInfo("10 or 50 launches that wait, the master answers, dies, quits or stops: %d rounds, "
              "all ended, %d with an answer of their own",
              rounds, answered);
    }

    /* A launch follows what it handed over, until somebody receives it. */
    void waitsForTheNextProcess()
    {
        const auto master = stoppedMaster("once", {"/first"}); // at which it quits
        const auto waiting = waitingLaunch();
        master->signal(SIGCONT);
        QVERIFY(family->said("list --wait\\|/a"));
        QVERIFY(family->isInOrder());
        QVERIFY(!waiting->waitForFinished(100));
    }

    /* The first launch is not ready for the others in time: its user has to answer a question. */
    void leavesItsArgumentsToAProcessThatStarts()
    {
        qputenv("SHAPE", "wizard");
        const auto first = launch({"/first"});
        const QByteArray lock = family->path("settings/application/launch.lock");
        QTRY_VERIFY(QFile::exists(lock) && !HostKit::LaunchLock(0).isTaken());
        qputenv("SHAPE", "closing");
        const auto behind = launchMany(2);
        for (const Launch& each : behind) {
            QCOMPARE(each->waitForEnd().filter("the arguments wait for it").size(), 1);
            QCOMPARE(each->exitCode(), 0);
        }
        first->kill();
        const auto next = launchMaster();
        QVERIFY(family->said("list /0") && family->said("list /1"));
    }

    void keepsAwayFromAnotherNetwork()
    {
        if (::geteuid() != 0)
            QSKIP("root alone can make a network namespace", 0);
        const auto master = launchMaster();
        const QString port = contentOf(portFile());
        Process other("unshare", {"--net", PROGRAMS "application", "/a"});
        QVERIFY(!other.waitForLine(".*HostKit: the master lives in another network.*").isEmpty());
        QCOMPARE(other.waitForLine("state .*"), "state 3");
        QCOMPARE(contentOf(portFile()), port);
    }

    /* Of the README; and of an application whose own functions have the names of those that the
     * library calls. */
    void handsOverInAnyProgram()
    {
        for (const auto& [name, folder] :
             {std::pair("session_sample", "Example/Documents"),
              std::pair("quick_sample", "Example/Pictures"),
              std::pair("bare_sample", "bare_sample"), std::pair("side_by_side", "application")}) {
            const QString port = family->path("settings/") + folder + "/SingleInstance/MasterPort";
            Process master(QString(PROGRAMS) + name);
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(port), 20000);
            Process second(QString(PROGRAMS) + name, {"a.txt"});
            second.waitForEnd();
            QCOMPARE(second.exitCode(), 0);
            QVERIFY(!master.waitForFinished(0));
        }
    }

private:
    std::optional<Family> family;
};

QTEST_GUILESS_MAIN(SessionsTest)
#include "tst_sessions.moc"

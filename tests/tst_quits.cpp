#include "Desktop.h"
#include "Family.h"
#include "Rounds.h"

#include <HostKit/LaunchLock.h>

namespace {

/* A launch with the argument \a name; returns the state that it came to. */
QString launched(const QString& name)
{
    return Process(PROGRAMS "shapes", {name}).waitForLine("state .*");
}

std::unique_ptr<Process> launchMaster(const QString& argument = "own")
{
    auto master = std::make_unique<Process>(PROGRAMS "shapes", QStringList(argument));
    return master->waitForLine("state .*") == "state 1" ? std::move(master) : nullptr;
}

/* Has \a process quit, or the window manager close its window, as a user does by keys. */
void end(Process& process, const QByteArray& command)
{
    if (command.contains('+')) {
        output("xdotool", {"key", command});
    } else {
        process.write(command + '\n');
        process.waitForBytesWritten();
    }
}

} // namespace

/*
 * Ends of applications of every shape (support/shapes.cpp) while others launch: what is handed over
 * is shown once, by somebody whose window is there.
 */
class QuitsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsSet("DISPLAY"))
            qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("QT_QUICK_BACKEND", "software");
        QCoreApplication::setApplicationName("launcher"); // that of the processes
    }

    void init()
    {
        qputenv("SHAPE", "plain");
        qunsetenv("RESTART");
    }

    void losesNoList_data()
    {
        QTest::addColumn<QByteArray>("shape");
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<bool>("isStopped"); // when it gets the command, and goes on later

        const auto row = [](const char* name, const char* shape, const char* command,
                            bool stopped = false) {
            QTest::newRow(name) << QByteArray(shape) << QByteArray(command) << stopped;
        };
        const char* const close = qEnvironmentVariableIsSet("DISPLAY") ? "alt+F4" : "close";
        row("by quit()", "plain", "quit");
        row("by a queued quit()", "plain", "queued");
        row("by a queued quit(), in the midst of work", "busy", "queued");
        row("by a timer", "plain", "timer");
        row("by exit()", "plain", "exit");
        row("by a restart", "plain", "restart");
        row("with a loop of its own", "loop", "quit");
        row("with another exec before", "prelude", "quit");
        row("with a window that deletes itself", "closing", close);
        row("with a window deleted at the end", "deleted", close);
        row("with a window and its session", "child", close);
        row("with a Qt Quick window", "quick", close);
        row("by quit(), stopped meanwhile", "plain", "quit", true);
        row("with a window, stopped meanwhile", "closing", close, true);
    }

    void losesNoList()
    {
        QFETCH(QByteArray, shape);
        QFETCH(QByteArray, command);
        QFETCH(bool, isStopped);
        qputenv("SHAPE", shape);
        const int count = rounds("QUIT_ROUNDS", 1);
        Tally tally;
        for (int round = 0; round < count; ++round) {
            const Family family;
            Process master(PROGRAMS "shapes", {"own"});
            QVERIFY(!master.waitForLine("state 1").isEmpty());
            QVERIFY(!command.contains('+') || !windowOf(master).isEmpty());
            std::vector<std::unique_ptr<Process>> launches;
            for (const char* const name : {"A", "B", "C"})
                launches.push_back(std::make_unique<Process>(PROGRAMS "shapes", QStringList(name)));
            QTest::qWait(QRandomGenerator::global()->bounded(60)); // which of them is first varies
            QVERIFY(!isStopped || master.stop());
            end(master, command);
            QTest::qWait(QRandomGenerator::global()->bounded(isStopped ? 60 : 1));
            master.signal(SIGCONT);
            for (const auto& launch : launches)
                tally.count(family, *launch);
            master.waitForEnd();
            QCOMPARE(master.exitCode(), command == "exit" ? 3 : 0);
            Process last(PROGRAMS "shapes",
                         {"last"}); // a master that nobody sees would swallow this
            tally.count(family, last);
            tally.count(family);
            QVERIFY(command == "restart" || family.count("list ") == 0); // nobody sent it
        }
        qInfo("3 launches while the master ends %s: %d rounds, %s", QTest::currentDataTag(), count,
              tally.text().constData());
        QVERIFY(tally.isClean());
    }

    /* Which holds the launch lock, and hands over only now. */
    void endsBehindALaunchThatIsHalfWay()
    {
        const Family family;
        const auto master = launchMaster();
        QVERIFY(master);
        auto lock = std::make_unique<HostKit::LaunchLock>();
        master->write("save\n");
        QVERIFY(family.said("ends"));
        QCOMPARE(Process(PROGRAMS "bare_launcher", {"A"}).waitForEnd(), QStringList("state 2"));
        lock.reset();
        QVERIFY(family.said("list A"));
        QCOMPARE(launched("B"), "state 2");
        QVERIFY(family.said("list B"));
        QCOMPARE(master->state(), QProcess::Running); // which held up nobody
    }

    void leavesWhatItHasNotReceived()
    {
        const Family family;
        const auto master = launchMaster("once"); // quits in the slot
        QVERIFY(master);
        const QString process = QString::number(master->processId());
        QVERIFY(master->stop());
        for (const char* const name : {"A", "B", "C"})
            QCOMPARE(launched(name), "state 2");
        master->signal(SIGCONT);
        for (const char* const name : {"A", "B", "C"}) {
            QVERIFY(family.said(QString("list ") + name));
            QCOMPARE(family.count(QString("list ") + name), 1);
        }
        QCOMPARE(family.lines().filter(process + " list").size(), 1);
    }

    void leavesListsToTheNextLaunch_data()
    {
        QTest::addColumn<QByteArray>("shape");
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<int>("processes");
        QTest::addColumn<QString>("warning");

        QTest::newRow("without a command")
            << QByteArray("plain") << QByteArray() << 2 << "is not to start another";
        QTest::newRow("with one that is no program")
            << QByteArray("plain") << QByteArray("/none") << 2 << "cannot start another";
        QTest::newRow("with one that receives nothing, either")
            << QByteArray("deaf") << QByteArray(PROGRAMS "shapes") << 3 << "";
    }

    void leavesListsToTheNextLaunch()
    {
        QFETCH(QByteArray, shape);
        QFETCH(QByteArray, command);
        QFETCH(int, processes);
        QFETCH(QString, warning);
        qputenv("SHAPE", shape);
        qputenv("RESTART", command);
        const Family family;
        const auto master = launchMaster();
        QVERIFY(master);
        QVERIFY(master->stop());
        QCOMPARE(launched("A"), "state 2");
        end(*master, "quit");
        master->signal(SIGCONT);
        QVERIFY(
            warning.isEmpty()
            || !master->waitForLine(".*warning: HostKit: .* this process " + warning).isEmpty());
        QTRY_COMPARE(family.count("ends"), processes - 1);
        QCOMPARE(family.count("list A"), 0);
        qputenv("SHAPE", "plain");
        QTRY_VERIFY(family.haveEnded());
        const auto last = launchMaster();
        QVERIFY(last);
        QVERIFY(family.said("list A"));
        QCOMPARE(family.processes().size(), size_t(processes) + 1);
    }

    /* What a session starts may start others, which have arguments of their own. */
    void isNoSuccessorWithOtherArguments()
    {
        const Family family;
        const auto master = launchMaster();
        QVERIFY(master);
        const auto restore = qScopeGuard([] { qunsetenv("HOSTKIT_STARTED_FOR"); });
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        qputenv("HOSTKIT_STARTED_FOR",
                family.path("settings/launcher") + '\n' + QByteArray::number(now) + "\n1");
        QCOMPARE(launched("A"), "state 2");
        QVERIFY(family.said("list A"));
    }

    void startsAProgramThatInheritsNothing()
    {
        qputenv("RESTART",
                "sh\n-c\nls -l /proc/self/fd >$XDG_CONFIG_HOME/files; "
                "exec grep SigBlk /proc/self/status >$XDG_CONFIG_HOME/signals");
        const Family family;
        const auto master = launchMaster("once");
        QVERIFY(master);
        QVERIFY(master->stop());
        launched("A");
        launched("B");
        master->signal(SIGCONT);
        QFile blocked(family.path("settings/signals"));
        QTRY_VERIFY(blocked.size() > 0);
        QVERIFY(blocked.open(QIODevice::ReadOnly));
        QCOMPARE(blocked.readAll(), QByteArray("SigBlk:\t0000000000000000\n"));
        QFile files(family.path("settings/files"));
        QVERIFY(files.open(QIODevice::ReadOnly));
        const QByteArray inherited = files.readAll();
        QVERIFY2(!inherited.contains("lock") && !inherited.contains("socket"), inherited);
    }

    void putsAsideWhatIsNoFileOfLists_data()
    {
        QTest::addColumn<QString>("change"); // to the file, by a shell
        QTest::addColumn<QString>("warning");

        QTest::newRow("damaged") << "printf x | dd of=$0 bs=1 seek=50 conv=notrunc"
                                 << "is damaged";
        QTest::newRow("cut off") << "truncate -s -1 $0"
                                 << "is damaged";
        QTest::newRow("empty") << "truncate -s 0 $0"
                               << "is damaged";
        QTest::newRow("of a later version") << "printf '\\2' | dd of=$0 bs=1 seek=7 conv=notrunc"
                                            << "is of another version";
        QTest::newRow("too large") << "truncate -s 100M $0"
                                   << "is too large";
        QTest::newRow("writable by others") << "chmod o+w $0"
                                            << "is open to others";
        QTest::newRow("a link") << "mv $0 $0.1 && ln -s $0.1 $0"
                                << "cannot be opened: .*";
        QTest::newRow("a pipe") << "rm $0 && mkfifo $0"
                                << "is no regular file";
        QTest::newRow("a folder") << "rm $0 && mkdir $0"
                                  << "is no regular file";
        if (::geteuid() == 0)
            QTest::newRow("of another user") << "chown nobody $0"
                                             << "is open to others";
    }

    void putsAsideWhatIsNoFileOfLists()
    {
        QFETCH(QString, change);
        QFETCH(QString, warning);
        qputenv("RESTART", "");
        const Family family;
        auto master = launchMaster();
        QVERIFY(master);
        QVERIFY(master->stop());
        launched("A");
        end(*master, "quit");
        master->signal(SIGCONT);
        master->waitForEnd();
        const QString file = family.path("settings/launcher/waiting.lists");
        QVERIFY(QFile::exists(file));
        Process("sh", {"-c", change, file}).waitForEnd();
        Process next(PROGRAMS "shapes", {"own"});
        QVERIFY(!next.waitForLine(".*warning: HostKit: .* is not used: it " + warning).isEmpty());
        QVERIFY(!next.waitForLine("state 1").isEmpty());
        QVERIFY(!QFile::exists(file));
        QCOMPARE(launched("B"), "state 2");
        QVERIFY(family.said("list B"));
        QCOMPARE(family.count("list A"), 0);
    }
};

QTEST_GUILESS_MAIN(QuitsTest)
#include "tst_quits.moc"

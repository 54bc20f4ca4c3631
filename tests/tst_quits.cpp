#include "Desktop.h"
#include "Family.h"
#include "Rounds.h"
#include "Table.h"

#include <HostKit/LaunchLock.h>

/*
 * Ends of applications of every shape (support/application.cpp) while others launch: what is handed
 * over is shown once, by somebody whose window is there.
 */
class QuitsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsSet("DISPLAY"))
            qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("QT_QUICK_BACKEND", "software");
        QCoreApplication::setApplicationName("application"); // as the processes do
    }

    void init()
    {
        qunsetenv("SHAPE");
        qunsetenv("RESTART");
    }

    void losesNoList_data() { addTable("quits.txt"); }

    void losesNoList()
    {
        QFETCH(QString, shape);
        QFETCH(QString, command);
        QFETCH(QString, when);
        qputenv("SHAPE", shape.toUtf8());
        const bool isStopped = when == "stopped"; // when it gets the command, and goes on later
        const bool byKeys = command == "close" && qEnvironmentVariableIsSet("DISPLAY");
        const int count = rounds("QUIT_ROUNDS", 1);
        Tally tally;
        for (int round = 0; round < count; ++round) {
            const Family family;
            const auto master = launchMaster();
            QVERIFY(master && (!byKeys || !windowOf(*master).isEmpty()));
            std::vector<Launch> launches;
            for (const char* const name : {"/A", "/B", "/C"})
                launches.push_back(launch({name}));
            QTest::qWait(QRandomGenerator::global()->bounded(60)); // which of them is first varies
            QVERIFY(!isStopped || master->stop());
            if (byKeys) // by the window manager
                output("xdotool", {"key", "alt+F4"});
            else
                master->command(command.toUtf8());
            QTest::qWait(QRandomGenerator::global()->bounded(isStopped ? 60 : 1));
            master->signal(SIGCONT);
            for (const Launch& each : launches)
                tally.count(family, *each);
            master->waitForEnd();
            QCOMPARE(master->exitCode(), command == "exit" ? 3 : 0);
            const auto last = launch({"/last"}); // a master that nobody sees would swallow this
            tally.count(family, *last);
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
        const auto other = launch({"/other"});
        QVERIFY(!other->waitForReadyRead(1500)); // it has patience
        master->command("save");
        QVERIFY(family.said("ends"));
        qputenv("SHAPE", "bare");
        QCOMPARE(launched("/A"), "state 2");
        qunsetenv("SHAPE");
        lock.reset();
        QVERIFY(family.said("list /A") && family.said("list /other"));
        QCOMPARE(launched("/B"), "state 2");
        QVERIFY(family.said("list /B"));
        QCOMPARE(master->state(), QProcess::Running); // which held up nobody
    }

    void leavesWhatItHasNotReceived()
    {
        const Family family;
        QStringList lists; // so long that it takes a while to have them all
        for (char name = 'A'; name <= 'Z'; ++name)
            lists.append('/' + QString(30000, name));
        const auto master = stoppedMaster("once", lists); // quits in the slot
        QVERIFY(master);
        const QString process = QString::number(master->processId());
        master->signal(SIGCONT);
        for (const QString& list : lists)
            QVERIFY(family.said("list " + list) && family.count("list " + list) == 1);
        QCOMPARE(family.lines().filter(process + " list").size(), 1);
    }

    void leavesListsToTheNextLaunch_data()
    {
        QTest::addColumn<QByteArray>("shape");
        QTest::addColumn<QByteArray>("restart");
        QTest::addColumn<int>("processes");
        QTest::addColumn<QString>("warning");

        const QByteArray none;
        const QByteArray itself(PROGRAMS "application");
        QTest::newRow("without a command") << none << none << 2 << "is not to start another";
        QTest::newRow("with no program") << none << QByteArray("/none") << 2 << "cannot start.*";
        QTest::newRow("with a deaf one") << QByteArray("deaf") << itself << 3 << "";
    }

    void leavesListsToTheNextLaunch()
    {
        QFETCH(QByteArray, shape);
        QFETCH(QByteArray, restart);
        QFETCH(int, processes);
        QFETCH(QString, warning);
        qputenv("SHAPE", shape);
        qputenv("RESTART", restart);
        const Family family;
        const auto master = stoppedMaster("/own", {"/A"});
        QVERIFY(master);
        master->command("quit");
        master->signal(SIGCONT);
        const QString line = ".*warning: HostKit: .* this process ";
        QVERIFY(warning.isEmpty() || !master->waitForLine(line + warning).isEmpty());
        QTRY_COMPARE(family.count("ends"), processes - 1);
        QCOMPARE(family.count("list /A"), 0);
        qunsetenv("SHAPE");
        QTRY_VERIFY(family.haveEnded());
        const auto last = launchMaster();
        QVERIFY(last && family.said("list /A"));
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
                family.path("settings/application") + '\n' + QByteArray::number(now) + "\n1");
        QCOMPARE(launched("/A"), "state 2");
        QVERIFY(family.said("list /A"));
    }

private:
    /* With \a name as its argument; it will find the \a lists when it goes on. */
    static Launch stoppedMaster(const QString& name, const QStringList& lists)
    {
        Launch master = launchMaster({name});
        const auto isSent = [](const QString& list) { return launched(list) == "state 2"; };
        const bool isReady =
            master && master->stop() && std::all_of(lists.begin(), lists.end(), isSent);
        return isReady ? std::move(master) : nullptr;
    }
};

QTEST_GUILESS_MAIN(QuitsTest)
#include "tst_quits.moc"

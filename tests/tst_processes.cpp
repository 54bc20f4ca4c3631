#include "Family.h"
#include "Rounds.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <vector>

#include <fcntl.h>
#include <sys/file.h>

namespace {

bool write(const QString& name, const QByteArray& content)
{
    QFile file(name);
    return file.open(QIODevice::WriteOnly) && file.write(content) >= 0;
}

bool setIPv6(bool on)
{
    return write("/proc/sys/net/ipv6/conf/all/disable_ipv6", on ? "0" : "1");
}

} // namespace

/* What HostKit keeps, and real processes that share it: each test in a folder of its own. */
class ProcessesTest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        home = std::make_unique<QTemporaryDir>();
        QVERIFY(home->isValid());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->path()));
        qputenv("SINGLEINSTANCE_LOG_LEVEL", "2");
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qunsetenv("SHAPE");
    }

    void viewerOpensWhatItCan()
    {
        const QString odd = QString::fromUtf8("Bücher & 本.txt");
        QVERIFY(write(path(odd), "a") && write(path("binary"), QByteArray("\0", 1)));
        const auto says = [](const Launch& viewer, const QString& pattern) {
            return !viewer->waitForLine(".* " + pattern).isEmpty();
        };
        const auto master = view({"/dev", "binary", "file:///no%6Ee"});
        QVERIFY(says(master, "not opened: “/dev” is a folder\\."));
        QVERIFY(says(master, "not opened: “.*/binary” is not a text file\\."));
        QVERIFY(says(master, "not opened: There is no file “/none”\\."));
        const auto second = view({odd, "/dev/zero", "/proc/self/mem", "\x1b[7m"});
        QVERIFY(says(second, "handed over to the window that is open"));
        QVERIFY(says(master, "message received: .*\\\\x1b\\[7m"));
        QVERIFY(says(master, "opened .*/" + QRegularExpression::escape(odd)));
        QVERIFY(says(master, "not opened: “/dev/zero” is not a regular.*"));
        QVERIFY(says(master, "not opened: “/proc/self/mem” cannot be read.*"));

        qputenv("XDG_CONFIG_HOME", "/dev/null/below");
        const auto alone = view({odd});
        QVERIFY(says(alone, "Settings: cannot write .*: Not a directory"));
        QVERIFY(says(alone, "opened .*/" + QRegularExpression::escape(odd)));
    }

    void launchesAtOnce_data()
    {
        QTest::addColumn<int>("launches");
        QTest::addColumn<QByteArray>("shape");
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
        for (int round = 0; round < count; ++round) {
            const Family family;
            std::vector<Launch> all;
            for (int i = 0; i < launches; ++i)
                all.push_back(launch({QString("/%1").arg(i)}));
            for (const Launch& each : all)
                tally.count(family, *each);
            tally.count(family);
        }
        qInfo("%s at once: %d rounds, %s", QTest::currentDataTag(), count,
              tally.text().constData());
        QVERIFY(tally.isClean());
    }

    /* Those of the README. */
    void samplesHandOver()
    {
        qputenv("QT_QUICK_BACKEND", "software");
        for (const auto& [name, folder] : {std::pair("session_sample", "Example/Documents"),
                                           std::pair("parser_sample", "Example/Notes"),
                                           std::pair("quick_sample", "Example/Pictures"),
                                           std::pair("bare_sample", "bare_sample")}) {
            const QString port = path(folder) + "/SingleInstance/MasterPort";
            Process master(QString(PROGRAMS) + name);
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(port), 20000);
            Process second(QString(PROGRAMS) + name, {"a.txt"});
            second.waitForEnd();
            QCOMPARE(second.exitCode(), 0);
            QVERIFY(!master.waitForFinished(0));
        }
    }

    /* An application whose own functions have the names of those that the library calls. */
    void takesNothingForItsOwn()
    {
        Process master(PROGRAMS "side_by_side", {"/own"});
        QCOMPARE(master.waitForLine("state .*"), "state 1");
        QCOMPARE(Process(PROGRAMS "side_by_side", {"/a"}).waitForEnd(), QStringList("state 2"));
        QCOMPARE(master.waitForLine("list .*"), "list /a");
    }

    void startsAfterAKill()
    {
        const int count = rounds("KILL_ROUNDS", 10);
        for (int round = 0; round < count; ++round) {
            const Family family;
            const bool atItsEnd = round % 2 == 0; // else anywhere in start or hand-over
            const auto killed = launch({"/a"});
            const auto other = launch({"/b"});
            if (atItsEnd) {
                killed->waitForLine("state .*");
                killed->command("quit");
            }
            QTest::qWait(QRandomGenerator::global()->bounded(atItsEnd ? 4 : 40));
            for (const Launch* const each : {&killed, &other})
                (*each)->signal(SIGKILL);
            killed->waitForEnd();
            other->waitForEnd();
            QElapsedTimer timer;
            timer.start();
            const QString state = launched("/c");
            QVERIFY(timer.elapsed() < 5000); // a lock that is left costs 10 s
            // There may be one already that was started for what the first had not received.
            QVERIFY(state == "state 1" || (state == "state 2" && family.said("list /c")));
        }
        qInfo("kill -9 at a random moment: %d rounds, the next launch was served each time", count);
    }

    void ignoresAStrangerOnTheOldPort()
    {
        QVERIFY(launchMaster()); // and killed at once
        QTcpServer stranger; // accepts and never reads
        QVERIFY(stranger.listen(QHostAddress::LocalHost));
        QVERIFY(QFile::exists(settingFile("MasterPort")));
        const auto strangersPort = QByteArray::number(stranger.serverPort());
        QVERIFY(write(settingFile("MasterPort"), strangersPort));
        // On a full disk the port stays: nobody can be served, but nothing goes to the stranger.
        Process full("sh", {"-c", "trap '' XFSZ; ulimit -f 0; exec $0 /a", PROGRAMS "application"});
        QCOMPARE(full.waitForLine("state .*"), "state 3");
        const QStringList left =
            QFileInfo(settingFile("MasterPort")).dir().entryList({"*.*"}, QDir::Files);
        QCOMPARE(left, QStringList()); // no part of a file either
        QVERIFY(launchMaster());

        qputenv("SHAPE", "early");
        const QString warning =
            "HostKit: cannot open a session, there is no application object yet";
        QCOMPARE(launch()->waitForEnd(), QStringList(warning));
    }

    void takesThePlaceOfAMasterThatCannotBeReached_data()
    {
        QTest::addColumn<int>("connections"); // to a master that is stopped; the kernel keeps 51
        QTest::addColumn<QString>("network"); // what becomes of it

        QTest::newRow("the master's queue is full") << 51 << "";
        QTest::newRow("the master's port is gone") << 0 << "port";
        if (qEnvironmentVariableIsSet("OWN_NETWORK")) // which the test may change as it likes
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
            QCOMPARE(launched("/before"), "state 2");
            std::vector<std::unique_ptr<QTcpSocket>> idle;
            while (int(idle.size()) < connections - 1) {
                idle.push_back(std::make_unique<QTcpSocket>());
                idle.back()->connectToHost(QHostAddress::LocalHostIPv6, oldPort.toUShort());
                QVERIFY(idle.back()->waitForConnected());
            }
            QVERIFY(network != "port" || write(settingFile("MasterPort"), "1"));
            QVERIFY(network != "IPv6" || setIPv6(false));

            QElapsedTimer timer;
            timer.start();
            std::vector<Launch> launches;
            for (int i = 0; i < 20; ++i)
                launches.push_back(launch({QString("/%1").arg(i)}));
            Tally tally;
            for (const Launch& each : launches)
                tally.count(family, *each);
            longest = std::max(longest, timer.elapsed());
            QVERIFY2(tally.isClean() && tally.handedOver == 19, tally.text());

            const QByteArray newPort = port();
            QVERIFY(newPort != oldPort);
            old->command("quit");
            QVERIFY(network != "IPv6" || setIPv6(true));
            old->signal(SIGCONT);
            old->waitForEnd();
            QCOMPARE(port(), newPort);
            QVERIFY(network == "IPv6" || family.said("list /before")); // passed on
        }
        qInfo("20 launches while %s: %d rounds, served in %.1f s at most", QTest::currentDataTag(),
              count, double(longest) / 1000);
        QVERIFY(longest < 20000); // 3 s, on a machine that has time
    }

    /* As after a crash: the kernel frees the lock with the last of a process, which takes time. */
    void becomesMasterBesideOneThatIsGoing()
    {
        QVERIFY(launchMaster()); // and killed at once
        const QByteArray file = QFile::encodeName(path("application/master.lock"));
        const int lock = ::open(file.constData(), O_RDWR | O_CLOEXEC);
        const auto close = qScopeGuard([lock] { ::close(lock); });
        QTRY_COMPARE(::flock(lock, LOCK_SH | LOCK_NB), 0);
        const auto master = launchMaster();
        QVERIFY(master);
        ::flock(lock, LOCK_UN);
        QVERIFY(::flock(lock, LOCK_EX | LOCK_NB) != 0);
        QCOMPARE(launched("/a"), "state 2");
        QCOMPARE(master->waitForLine("list .*"), "list /a");
    }

private:
    QString path(const QString& name) const { return home->filePath(name); }
    Launch view(const QStringList& arguments)
    {
        return std::make_unique<Process>(VIEWER, arguments, home->path());
    }

    /* The file of what HostKit keeps for the processes of a test. */
    static QString settingFile(const QString& name)
    {
        const QDir folder(qEnvironmentVariable("XDG_CONFIG_HOME") + "/application/SingleInstance");
        folder.mkpath(".");
        return folder.filePath(name);
    }

    static QByteArray port()
    {
        QFile file(settingFile("MasterPort"));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
    }

    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(ProcessesTest)
#include "tst_processes.moc"

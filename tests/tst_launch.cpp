#include "Process.h"
#include "Table.h"

#include <QtCore/QTemporaryDir>

/* HostKit::Launch, with a window system at hand (scripts/with-display.sh). */
class LaunchTest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        home = std::make_unique<QTemporaryDir>();
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->path()));
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("SHAPE", "closing");
    }

    void handsOverWhatTheApplicationWouldSee_data() { addTable("command-lines.txt"); }

    void handsOverWhatTheApplicationWouldSee()
    {
        QFETCH(QString, line);
        QFETCH(QString, arguments); // with ~ for the working folder
        arguments.replace('~', QFileInfo(home->path()).canonicalFilePath());
        const QStringList words = line.split(' ', Qt::SkipEmptyParts);
        QCOMPARE(start(words)->waitForLine("arguments.*"), "arguments " + arguments);

        const auto master = launchMaster();
        QVERIFY(master);
        qputenv("QT_DEBUG_PLUGINS", "1");
        const QStringList said = start(words)->waitForEnd();
        qunsetenv("QT_DEBUG_PLUGINS");
        QCOMPARE(said, QStringList("state 2")); // and no plug-in was looked for
        QCOMPARE(master->waitForLine("list.*"), "list " + arguments);
    }

    void handsOverAnyNumberOfFiles()
    {
        QStringList files;
        for (int i = 0; i < 3000; ++i)
            files.append(QString("/%1").arg(i, 100));
        const auto master = start(files);
        QCOMPARE(master->waitForLine("state.*"), "state 1");
        QCOMPARE(master->waitForLine("arguments.*"), "arguments " + files.join('|'));
        QCOMPARE(start(files)->waitForEnd(), QStringList("state 2"));
        QStringList received;
        while (received.size() < files.size()) {
            const QString list = master->waitForLine("list .*");
            QVERIFY(!list.isEmpty());
            received += list.mid(5).split('|');
        }
        QCOMPARE(received, files);

        const QStringList tooLong(QString(40000, 'x'));
        const auto failed = start(tooLong);
        QVERIFY(!failed->waitForLine(".*longer than a message can be").isEmpty());
        QCOMPARE(failed->waitForLine("state.*"), "state 3");
        master->terminate();
        master->waitForEnd();
        QCOMPARE(start(tooLong)->waitForLine("state.*"), "state 1");
    }

private:
    Launch start(const QStringList& arguments) const
    {
        return std::make_unique<Process>(PROGRAMS "application", arguments, home->path());
    }

    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(LaunchTest)
#include "tst_launch.moc"

#include "Process.h"

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
    }

    void handsOverWhatTheApplicationWouldSee_data()
    {
        QTest::addColumn<QString>("line"); // of arguments
        QTest::addColumn<QString>("arguments"); // with ~ for the working folder

        QTest::newRow("nothing") << ""
                                 << "";
        QTest::newRow("files") << "a.txt /b ../c"
                               << "~/a.txt|/b|~/../c";
        QTest::newRow("URLs") << "file:///a%20b#c http://d/e file://host/f mailto:g"
                              << "/a b|http://d/e|file://host/f|~/mailto:g";
        QTest::newRow("options of its own") << "--note a -x b new"
                                            << "--note|a|-x|~/b|new";
        QTest::newRow("all behind --") << "-- -x --note new"
                                       << "--|~/-x|~/--note|~/new";
        QTest::newRow("Qt's") << "-style fusion a --stylesheet none b -session c_d -reverse"
                              << "~/a|~/b";
        QTest::newRow("Qt's, assigned") << "-style=fusion --stylesheet=none a"
                                        << "~/a";
        QTest::newRow("Qt's, within each other") << "-style -reverse a"
                                                 << "~/a";
        QTest::newRow("Qt's, unfinished") << "a -session"
                                          << "~/a|-session";
        QTest::newRow("Qt's for windows") << "-qwindowtitle a -qwindowgeometry 9x9 b -qwindowicon"
                                          << "~/b";
        QTest::newRow("X11's, elsewhere") << "-title a -name b -nograb"
                                          << "-title|a|-name|b|-nograb";
        QTest::newRow("X11's") << "-platform xcb -title a -geometry 9x9 -icon b -name c -nograb d"
                               << "~/d";
        QTest::newRow("X11's, before it is asked for") << "-title a -platform xcb -name b c"
                                                       << "-title|a|~/c";
        QTest::newRow("X11's, unfinished") << "-platform xcb a -name"
                                           << "~/a|-name";
    }

    void handsOverWhatTheApplicationWouldSee()
    {
        QFETCH(QString, line);
        QFETCH(QString, arguments);
        arguments.replace('~', QFileInfo(home->path()).canonicalFilePath());
        const QStringList words = line.split(' ', Qt::SkipEmptyParts);
        QCOMPARE(launch(words)->waitForLine("arguments.*"), "arguments " + arguments);

        Process master(PROGRAMS "launcher", {"master"});
        QVERIFY(master.waitForLine("state 1").size() > 0);
        qputenv("QT_DEBUG_PLUGINS", "1");
        const QStringList said = launch(words)->waitForEnd();
        qunsetenv("QT_DEBUG_PLUGINS");
        QCOMPARE(said, QStringList("handed over")); // and no plug-in was looked for
        QCOMPARE(master.waitForLine("list.*"), "list " + arguments);
    }

    void handsOverAnyNumberOfFiles()
    {
        QStringList files;
        for (int i = 0; i < 3000; ++i)
            files.append(QString("/%1").arg(i, 100));
        const auto restore = qScopeGuard([] { qunsetenv("STAYS"); });
        qputenv("STAYS", "");
        const auto master = launch(files);
        QCOMPARE(master->waitForLine("arguments.*"), "arguments " + files.join('|'));
        QCOMPARE(master->waitForLine("state.*"), "state 1");
        QCOMPARE(launch(files)->waitForLine("handed over"), "handed over");
        QStringList received;
        while (received.size() < files.size()) {
            const QString list = master->waitForLine("list .*");
            QVERIFY(!list.isEmpty());
            received += list.mid(5).split('|');
        }
        QCOMPARE(received, files);

        const QString tooLong(40000, 'x');
        const auto failed = launch({tooLong});
        QVERIFY(!failed->waitForLine(".*longer than a message can be").isEmpty());
        QCOMPARE(failed->waitForLine("state.*"), "state 3");
        master->terminate();
        master->waitForEnd();
        QCOMPARE(launch({tooLong})->waitForLine("state.*"), "state 1");
    }

private:
    std::unique_ptr<Process> launch(const QStringList& arguments)
    {
        return std::make_unique<Process>(PROGRAMS "windowed", arguments, home->path());
    }

    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(LaunchTest)
#include "tst_launch.moc"

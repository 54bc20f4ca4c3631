#include "Desktop.h"

/*
 * A real server, a real window manager (scripts/with-display.sh) and real processes. Each test sees
 * another program in front first and the master's window then: what is in front at once may be left
 * from before.
 */
class DesktopTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("SINGLEINSTANCE_LOG_LEVEL", "2");
        other = view({}, "other");
        otherWindow = windowOf(*other);
        QVERIFY(!otherWindow.isEmpty());
    }

    void bringsTheWindowForward_data()
    {
        QTest::addColumn<QString>("before"); // what xdotool does to the master's window

        QTest::newRow("that is behind") << "windowlower %1";
        QTest::newRow("that is minimised") << "windowminimize %1";
        QTest::newRow("on another desktop") << "set_desktop_for_window %1 2";
    }

    void bringsTheWindowForward()
    {
        QFETCH(QString, before);
        const auto master = view();
        const QString window = windowOf(*master);
        QVERIFY(!window.isEmpty());
        output("xdotool", before.arg(window).split(' '));
        QVERIFY(putOtherInFront());
        QVERIFY(!view({"/dev/null"})->waitForLine("viewer: handed over.*").isEmpty());
        QVERIFY(becomesActive(window));
        QTRY_COMPARE(stacking().last(), window);
        const QString itsDesktop = output("xdotool", {"get_desktop_for_window", window});
        QTRY_COMPARE(output("xdotool", {"get_desktop"}), itsDesktop);
        QVERIFY(!output("xprop", {"-id", window, "_NET_WM_STATE"}).contains("HIDDEN"));
    }

    void bringsTheDialogForwardWithItsWindow()
    {
        QFile large(home.filePath("large.txt"));
        QVERIFY(large.open(QIODevice::WriteOnly) && large.write(QByteArray(2 << 20, 'x')) > 0);
        large.close();
        const auto master = view();
        const QString window = windowOf(*master);
        QVERIFY(!window.isEmpty());
        view({"large.txt"})->waitForEnd();
        QTRY_VERIFY_WITH_TIMEOUT(activeWindow() != window, 20000);
        const QString dialog = windowOf(*master);
        QVERIFY(!dialog.isEmpty() && dialog != window);
        QVERIFY(putOtherInFront());
        view({"/dev/null"})->waitForEnd();
        QVERIFY(becomesActive(dialog));
        QTRY_COMPARE(stacking().mid(1), (QStringList{window, dialog}));
        QVERIFY(!master->waitForLine(".*not opened.*").isEmpty()); // behind the open question
    }

    void handsOverWithoutAServer()
    {
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path()));
        const auto master = launchMaster(); // without windows
        QVERIFY(master);
        const auto restore = qScopeGuard([display = qgetenv("DISPLAY"), this] {
            qputenv("DISPLAY", display);
            ::kill(server, SIGCONT);
        });
        ::kill(server, SIGSTOP); // does not answer
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(launched("/a"), "state 2");
        QVERIFY(timer.elapsed() < 15000); // two seconds, on a machine that has time
        qputenv("DISPLAY", ":4242"); // is not there
        QCOMPARE(launched("/b"), "state 2");
        for (const char* const list : {"list /a", "list /b"})
            QCOMPARE(master->waitForLine("list .*"), list);
    }

private:
    Launch view(const QStringList& arguments = {}, const QString& settings = "own")
    {
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(settings)));
        return std::make_unique<Process>(VIEWER, arguments, home.path());
    }

    bool putOtherInFront()
    {
        output("xdotool", {"windowactivate", otherWindow});
        return becomesActive(otherWindow);
    }

    QTemporaryDir home;
    const int server = qEnvironmentVariableIntValue("DISPLAY_SERVER"); // its process
    Launch other;
    QString otherWindow;
};

QTEST_GUILESS_MAIN(DesktopTest)
#include "tst_desktop.moc"

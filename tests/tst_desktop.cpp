#include "Process.h"

#include <QtNetwork/QTcpServer>

/*
 * A real server, a real window manager and real processes. Each test sees another program in front
 * first and the master's window then: what is in front at once may be left from before.
 */
class DesktopTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void bringsTheWindowForward_data();
    void bringsTheWindowForward();
    void bringsTheDialogForwardWithItsWindow();
    void leavesTheDesktopToOthers_data();
    void leavesTheDesktopToOthers();
    void handsOverWithoutAServer_data();
    void handsOverWithoutAServer();

private:
    std::unique_ptr<Process> view(const QStringList& arguments,
                                  const QString& settings = "settings");
    std::unique_ptr<Process> launch(); // one without windows
    QString windowOf(Process& process, const QString& title); // once it is listed and active
    void putInFront(const QString& window);

    QTemporaryDir home;
    std::unique_ptr<Process> server;
    std::unique_ptr<Process> manager;
    std::unique_ptr<Process> other;
    QString otherWindow;
};

namespace {

QString output(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

QString rootProperty(const QString& name)
{
    return output("xprop", {"-root", "-notype", name}).section(QRegularExpression(" (=|#) "), 1);
}

QString activeWindow()
{
    return rootProperty("_NET_ACTIVE_WINDOW");
}

bool isListed(const QString& window)
{
    return rootProperty("_NET_CLIENT_LIST_STACKING").split(", ").contains(window);
}

/* The windows from the topmost down. */
QStringList stacking()
{
    QStringList windows = rootProperty("_NET_CLIENT_LIST_STACKING").split(", ");
    std::reverse(windows.begin(), windows.end());
    return windows;
}

} // namespace

void DesktopTest::initTestCase()
{
    QVERIFY(home.isValid());
    for (const char* variable : {"WAYLAND_DISPLAY", "XAUTHORITY", "DESKTOP_STARTUP_ID"})
        qunsetenv(variable);
    qputenv("HOME", QFile::encodeName(home.path()));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(home.path()));
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("SINGLEINSTANCE_LOG_LEVEL", "2");
    server = std::make_unique<Process>("Xvfb",
                                       QStringList{"-displayfd", "1", "-screen", "0", "1024x768x24",
                                                   "-nolisten", "tcp", "-noreset"});
    const QString display = server->waitForLine("\\d+");
    QVERIFY(!display.isEmpty());
    qputenv("DISPLAY", QByteArray(":") + display.toLatin1());
    manager = std::make_unique<Process>("openbox", QStringList());
    QVERIFY(QTest::qWaitFor(
        [] { return rootProperty("_NET_SUPPORTING_WM_CHECK").startsWith("0x"); }, 20000));
    other = view({"-qwindowtitle", "Other"}, "other");
    otherWindow = windowOf(*other, "Other");
    QVERIFY(!otherWindow.isEmpty());
}

void DesktopTest::init()
{
    QDir(home.filePath("settings")).removeRecursively();
}

std::unique_ptr<Process> DesktopTest::view(const QStringList& arguments, const QString& settings)
{
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(settings)));
    return std::make_unique<Process>(VIEWER, arguments, home.path());
}

std::unique_ptr<Process> DesktopTest::launch()
{
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath("settings")));
    return std::make_unique<Process>(LAUNCHER, QStringList("session"));
}

QString DesktopTest::windowOf(Process& process, const QString& title)
{
    QString window;
    const QString wanted = QString("%1\n\"%2\"").arg(process.processId()).arg(title);
    const bool appeared = QTest::qWaitFor(
        [&] {
            window = activeWindow();
            return isListed(window)
                && output("xprop", {"-id", window, "-notype", "_NET_WM_PID", "WM_NAME"})
                       .remove(QRegularExpression("^\\S+ = ", QRegularExpression::MultilineOption))
                == wanted;
        },
        20000);
    return appeared ? window : QString();
}

void DesktopTest::putInFront(const QString& window)
{
    output("xdotool", {"windowactivate", window});
    QVERIFY(QTest::qWaitFor([&] { return activeWindow() == window; }, 20000));
}

void DesktopTest::bringsTheWindowForward_data()
{
    QTest::addColumn<QStringList>("before"); // what xdotool does to the master's window

    QTest::newRow("that is behind") << QStringList();
    QTest::newRow("that is minimised") << QStringList{"windowminimize"};
    QTest::newRow("on another desktop") << QStringList{"set_desktop_for_window", "2"};
}

void DesktopTest::bringsTheWindowForward()
{
    QFETCH(QStringList, before);
    const auto master = view({});
    const QString window = windowOf(*master, "Viewer");
    QVERIFY(!window.isEmpty());
    if (!before.isEmpty())
        output("xdotool", QStringList{before.first(), window} + before.mid(1));
    putInFront(otherWindow);
    QCOMPARE(view({"/dev/null"})->waitForEnd().size(), 1); // it says that it handed over
    QVERIFY(QTest::qWaitFor([&] { return activeWindow() == window; }, 20000));
    QTRY_COMPARE(stacking().first(), window);
    const QString itsDesktop = output("xdotool", {"get_desktop_for_window", window});
    QTRY_COMPARE(output("xdotool", {"get_desktop"}), itsDesktop);
    QVERIFY(!output("xprop", {"-id", window, "_NET_WM_STATE"}).contains("HIDDEN"));

    // Already in front, it stays there.
    QCOMPARE(view({"/dev/null"})->waitForEnd().size(), 1);
    QVERIFY(!master->waitForLine(".*not opened.*").isEmpty());
    QVERIFY(!master->waitForLine(".*not opened.*").isEmpty());
    QCOMPARE(activeWindow(), window);
}

void DesktopTest::bringsTheDialogForwardWithItsWindow()
{
    QFile large(home.filePath("large.txt"));
    QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(9 * 1024 * 1024));
    const auto master = view({});
    const QString window = windowOf(*master, "Viewer");
    QVERIFY(!window.isEmpty());
    QCOMPARE(view({"large.txt"})->waitForEnd().size(), 1);
    QVERIFY(QTest::qWaitFor([&] { return isListed(activeWindow()) && activeWindow() != window; },
                            20000));
    const QString dialog = activeWindow();
    QVERIFY(dialog != otherWindow);

    putInFront(otherWindow);
    QCOMPARE(view({"/dev/null"})->waitForEnd().size(), 1);
    QVERIFY(QTest::qWaitFor([&] { return activeWindow() == dialog; }, 20000));
    QTRY_COMPARE(stacking().mid(0, 2), (QStringList{dialog, window}));
    QVERIFY(!master->waitForLine(".*not opened.*").isEmpty()); // behind the open question
}

void DesktopTest::leavesTheDesktopToOthers_data()
{
    QTest::addColumn<QStringList>("property"); // what xprop changes of the master's window

    QTest::newRow("without a process id") << QStringList{"-remove", "_NET_WM_PID"};
    QTest::newRow("with an id of another type")
        << QStringList{"-f", "_NET_WM_PID", "8s", "-set", "_NET_WM_PID", "1"};
    QTest::newRow("of another machine")
        << QStringList{"-f", "WM_CLIENT_MACHINE", "8s", "-set", "WM_CLIENT_MACHINE", "elsewhere"};
}

/* The master is without a window of its own: the one it is given belongs to another program. */
void DesktopTest::leavesTheDesktopToOthers()
{
    QFETCH(QStringList, property);
    const auto master = launch();
    QCOMPARE(master->waitForLine("state .*"), "state 1");
    const auto behind = view({}, "behind");
    const QString window = windowOf(*behind, "Viewer");
    QVERIFY(!window.isEmpty());
    output("xprop",
           {"-id", window, "-f", "_NET_WM_PID", "32c", "-set", "_NET_WM_PID",
            QString::number(master->processId())});
    putInFront(otherWindow);
    QCOMPARE(launch()->waitForEnd(), QStringList("state 2"));
    QVERIFY(QTest::qWaitFor([&] { return activeWindow() == window; }, 20000)); // only by the id

    output("xprop", QStringList{"-id", window} + property);
    putInFront(otherWindow);
    QCOMPARE(launch()->waitForEnd(), QStringList("state 2"));
    // The window manager obeys in order: had the launch asked it for the window, that came first.
    output("xdotool", {"set_desktop_for_window", window, "3"});
    QTRY_COMPARE(output("xdotool", {"get_desktop_for_window", window}), "3");
    QCOMPARE(activeWindow(), otherWindow);
}

void DesktopTest::handsOverWithoutAServer_data()
{
    QTest::addColumn<QString>("kind");
    for (const char* kind : {"none", "dead", "closing", "silent", "stopped"})
        QTest::newRow(kind) << kind;
}

void DesktopTest::handsOverWithoutAServer()
{
    QFETCH(QString, kind);
    const QByteArray display = qgetenv("DISPLAY");
    const auto restore = qScopeGuard([&] { qputenv("DISPLAY", display); });
    const auto master = launch();
    QCOMPARE(master->waitForLine("state .*"), "state 1");
    QTcpServer impostor;
    int port = 6000 + 99; // a display number is a port
    while (!impostor.listen(QHostAddress::LocalHost, quint16(port)) && port < 6200)
        ++port;
    QVERIFY(impostor.isListening());
    if (kind == "closing")
        connect(&impostor, &QTcpServer::newConnection, this,
                [&] { delete impostor.nextPendingConnection(); });
    if (kind == "dead")
        impostor.close();
    if (kind == "none")
        qunsetenv("DISPLAY");
    else if (kind == "stopped")
        server->signal(SIGSTOP);
    else
        qputenv("DISPLAY", "127.0.0.1:" + QByteArray::number(port - 6000));

    QElapsedTimer timer;
    timer.start();
    const auto second = launch();
    QCOMPARE(second->waitForEnd(), QStringList("state 2"));
    QCOMPARE(second->exitStatus(), QProcess::NormalExit);
    QVERIFY(timer.elapsed() < 15000); // two seconds, on a machine that has time
    server->signal(SIGCONT);
    QVERIFY(!master->waitForLine("list .*").isEmpty());
}

QTEST_GUILESS_MAIN(DesktopTest)
#include "tst_desktop.moc"

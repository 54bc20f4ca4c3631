#include "Processes.h"

#include <HostKit/LaunchLock.h>

#include <xcb/xcb.h>

#include <cstdlib>

namespace {

/* Observes requests to the window manager. */
class Requests {
public:
    Requests()
    {
        const uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(server)).data->root;
        xcb_change_window_attributes(server, root, XCB_CW_EVENT_MASK, &events);
        take();
    }
    ~Requests() { xcb_disconnect(server); }
    Q_DISABLE_COPY_MOVE(Requests)

    /* Returns the requests since the last call: "type number time window". The number is the first
     * of the data; time is 1 if the second is not 0. */
    QStringList take()
    {
        QStringList all;
        std::free(
            xcb_get_input_focus_reply(server, xcb_get_input_focus(server), nullptr)); // a barrier
        while (const auto event = std::unique_ptr<xcb_generic_event_t, decltype(&std::free)>{
                   xcb_poll_for_event(server), std::free}) {
            const auto* const message = reinterpret_cast<xcb_client_message_event_t*>(event.get());
            if ((event->response_type & 0x7F) != XCB_CLIENT_MESSAGE)
                continue;
            const QString range = QString("%1-%1").arg(message->type);
            all.append(QString("%1 %2 %3 0x%4")
                           .arg(output("xlsatoms", {"-range", range}).section('\t', 1))
                           .arg(message->data.data32[0])
                           .arg(message->data.data32[1] != 0)
                           .arg(message->window, 0, 16));
        }
        return all;
    }

private:
    xcb_connection_t* const server = xcb_connect(nullptr, nullptr);
};

} // namespace

/*
 * A real server, a real window manager (scripts/with-display.sh), and real processes. In each test
 * another program is in front before the master's window is.
 */
class DesktopTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("SINGLEINSTANCE_LOG_LEVEL", "2");
        other = view({}, "other");
        otherWindow = windowOf(*other);
        QVERIFY(!otherWindow.isEmpty());
    }

    /* The first thing that users try. */
    void isAnEditorForGit()
    {
        const auto master = view();
        const QString window = windowOf(*master);
        QVERIFY(!window.isEmpty());
        const QString command =
            R"(cd "$0" && git init -q . && git -c user.name=me -c user.email=me@here \
            -c core.editor="'$1' --wait" commit -q --allow-empty && git log --format=%s)";
        Process git("sh", {"-c", command, home.filePath("repository"), VIEWER});
        QVERIFY(QDir().mkpath(home.filePath("repository")));
        const QString opened = master->waitForLine(".* opened .*/COMMIT_EDITMSG");
        QFile message(opened.section("opened ", 1));
        QVERIFY(message.open(QFile::WriteOnly) && message.write("written meanwhile\n") > 0);
        message.close();
        QVERIFY(!git.waitForFinished(200));
        output("xdotool", {"key", "--window", window, "ctrl+w"}); // closes the tab
        QCOMPARE(git.waitForEnd().last(), "written meanwhile");
        const auto missing = view({"--wait", "/none"});
        QCOMPARE(missing->waitForEnd().last(), "viewer: There is no file “/none”.");
        QCOMPARE(missing->exitCode(), 1);
    }

    void bringsTheDialogForwardWithItsWindow()
    {
        output("sh", {"-c", R"(yes | head -c 2M >"$0")", home.filePath("large.txt")});
        const auto master = view();
        const QString window = windowOf(*master);
        QVERIFY(!window.isEmpty());
        view({"large.txt"})->waitForEnd();
        QTRY_VERIFY_WITH_TIMEOUT(activeWindow() != window, 20000);
        const QString dialog = windowOf(*master);
        QVERIFY(!dialog.isEmpty() && dialog != window);
        QVERIFY(putOtherInFront());
        Requests seen;
        view({"/dev/null"})->waitForEnd();
        QCOMPARE(
            seen.take().filter("ACTIVE_WINDOW 2").replaceInStrings(QRegularExpression(".* "), {}),
            (QStringList{window, dialog}));
        QVERIFY(becomesActive(dialog));
        QTRY_COMPARE(stacking().mid(1), (QStringList{window, dialog}));
        QVERIFY(!master->waitForLine(".*not opened.*").isEmpty()); // although a question is open
    }

    /* Checks what it asks the window manager, and the result. */
    void bringsTheWindowForward_data() { addTable("requests.txt"); }

    void bringsTheWindowForward()
    {
        QFETCH(QString, change); // by a shell, to the window $0
        QFETCH(QString, requests);
        output("xdotool", {"set_desktop", "0"}); // the desktop of the other program
        QTRY_COMPARE(output("xdotool", {"get_desktop"}), "0");
        const auto master = view();
        const QString window = windowOf(*master);
        QVERIFY(!window.isEmpty());
        Requests seen;
        QVERIFY(putOtherInFront());
        output("sh", {"-c", change, window});
        QVERIFY(master->stop()); // otherwise it would raise its window itself
        seen.take();
        qputenv("DESKTOP_STARTUP_ID", "id_TIME1");
        QVERIFY(!view({"/dev/null"})->waitForLine("viewer: handed over.*").isEmpty());
        qunsetenv("DESKTOP_STARTUP_ID");
        const QStringList all = seen.take().replaceInStrings(QRegularExpression(" 0x.*"), {});
        master->signal(SIGCONT);
        QCOMPARE(all.filter(QRegularExpression("ACTIVE_WINDOW 2|DESKTOP")).join('/'), requests);
        QCOMPARE(all.filter("_NET_STARTUP_INFO_BEGIN").size(), 1); // the busy cursor ends
        if (!requests.isEmpty()) {
            QVERIFY(becomesActive(window));
            QTRY_COMPARE(stacking().last(), window);
            QVERIFY(!output("xprop", {"-id", window, "_NET_WM_STATE"}).contains("HIDDEN"));
        }
    }

    void handsOverWithoutAServer()
    {
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path()));
        QCoreApplication::setApplicationName("application");
        const auto master = launchMaster(); // without windows
        const auto restore = qScopeGuard([display = qgetenv("DISPLAY"), this] {
            qputenv("DISPLAY", display);
            ::kill(server, SIGCONT);
        });
        ::kill(server, SIGSTOP); // does not answer
        const auto second = launch({"/a"});
        QCOMPARE(master->waitForLine("list .*"), "list /a");
        QVERIFY(HostKit::LaunchLock(5000).isTaken()); // no launch waits for the server
        QCOMPARE(second->waitForEnd(), QStringList("state 2"));
        qputenv("DISPLAY", ":4242"); // does not exist
        QCOMPARE(launched("/b"), "state 2");
        QCOMPARE(master->waitForLine("list .*"), "list /b");
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
        return becomesActive(otherWindow)
            && QTest::qWaitFor([this] { return stacking().last() == otherWindow; });
    }

    QTemporaryDir home;
    const int server = qEnvironmentVariableIntValue("DISPLAY_SERVER"); // its process
    Launch other;
    QString otherWindow;
};

QTEST_GUILESS_MAIN(DesktopTest)
#include "tst_desktop.moc"

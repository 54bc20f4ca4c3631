/*
 * An application whose kind is SHAPE in the environment:
 *
 *   (none)    no windows
 *   loop      no windows, and an event loop of its own
 *   prelude   no windows; one exec() ends before the one in which it receives lists
 *   deaf      no windows; never receives lists
 *   early     no application object yet
 *   bare      no windows and no session: the bare entry points, for a launch that hands over
 *   closing   a window that is deleted when it is closed
 *   deleted   a window that is deleted as the application quits
 *   child     a window, which is the parent of the session
 *   quick     a Qt Quick window, which is hidden when it is closed
 *   wizard    waits for ever between its launch and its session
 *   frames    no windows; a timer is always due, and takes 16 ms
 *
 * Kinds with windows use HostKit::Launch. The application says "arguments A|B", as its application
 * object has them; "state N"; "ends" when its end begins; and for each list "list A|B", or "hidden
 * A|B" if its window is hidden, or "late A|B" if it was told to quit before. It obeys lines of its
 * input: see obey(). With the argument "once" it quits when it has received a list. RESTART in the
 * environment is its restart command. LOUD makes it write the log.
 *
 * It ends with its input, with the pipe LAUNCH_LIFE, or after a minute. It also writes what it says
 * to the file LAUNCH_LOG, after its process id: the test may not have started it.
 */

#include <HostKit/InstanceSession.h>
#include <HostKit/Launch.h>
#include <HostKit/Log.h>
#include <HostKit/QuitOnSignals.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QSocketNotifier>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtGui/QWindow>
#include <QtQml/QQmlApplicationEngine>
#include <QtWidgets/QApplication>
#include <QtWidgets/QWidget>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using HostKit::InstanceSession;

namespace {

const QByteArray shape = qgetenv("SHAPE");
const bool hasWindow =
    QByteArrayList{"closing", "deleted", "child", "quick", "wizard"}.contains(shape);
bool isQuitting = false;
std::function<void()> quit = QCoreApplication::quit;

void say(const QByteArray& what, const QStringList& arguments = {})
{
    const QByteArray line = what + arguments.join('|').toUtf8() + '\n';
    std::fputs(line.constData(), stdout);
    std::fflush(stdout);
    QFile log(qEnvironmentVariable("LAUNCH_LOG"));
    if (!log.fileName().isEmpty() && log.open(QIODevice::Append | QIODevice::Unbuffered))
        log.write(QByteArray::number(::getpid()) + ' ' + line);
}

void beginEnd()
{
    if (!std::exchange(isQuitting, true))
        say("ends");
}

std::vector<HostKit::ReceivedLaunch> waiting; // for an answer

void obey(const QByteArray& command)
{
    if (command == "answer")
        return waiting.at(0).answer(3, "no such file\n");
    if (command == "drop")
        return waiting.clear();
    if (command == "ask")
        return say("waiting " + QByteArray::number(waiting.at(0).isWaiting()));
    beginEnd();
    if (command == "queued") { // and some work before it is handled
        QMetaObject::invokeMethod(qApp, quit, Qt::QueuedConnection);
        QThread::msleep(20);
    } else if (command == "timer") {
        QTimer::singleShot(0, qApp, quit);
    } else if (command == "exit") {
        std::exit(3);
    } else if (command == "close") {
        QGuiApplication::topLevelWindows().first()->close();
    } else {
        if (command == "restart")
            QProcess::startDetached(QCoreApplication::applicationFilePath(), {});
        if (command == "save") // which takes its time
            QObject::connect(qApp, &QCoreApplication::aboutToQuit, [] { QThread::sleep(30); });
        quit();
    }
}

void show(const QStringList& arguments)
{
    const auto windows = hasWindow ? QGuiApplication::topLevelWindows() : QWindowList();
    const bool isSeen =
        !hasWindow || std::any_of(windows.begin(), windows.end(), std::mem_fn(&QWindow::isVisible));
    say(isQuitting ? "late " : isSeen ? "list " : "hidden ", arguments);
    if (QCoreApplication::arguments().contains("once"))
        obey("quit");
}

/* A launch that asks for a code gets it after a while. The others wait for a command. */
void keep(const HostKit::ReceivedLaunch& launch)
{
    const int code =
        launch.arguments().value(launch.arguments().size() - 1).section("/code", 1).toInt();
    if (code > 0)
        QTimer::singleShot(code, qApp, [launch, code] { launch.answer(code); });
    else if (launch.isWaiting())
        waiting.push_back(launch);
}

void receive(InstanceSession& session)
{
    QObject::connect(&session, &InstanceSession::argumentsReceived, qApp, show);
    QObject::connect(&session, &InstanceSession::launchReceived, qApp, keep);
}

std::unique_ptr<QSocketNotifier> listenTo(int file)
{
    auto notifier = std::make_unique<QSocketNotifier>(file, QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, [file] {
        QByteArray line(64, '\0');
        const auto got = ::read(file, line.data(), size_t(line.size()));
        if (got <= 0)
            ::_exit(0); // without a quit, which tests look at
        obey(line.left(int(got)).trimmed());
    });
    return notifier;
}

int runWithWindow(std::unique_ptr<InstanceSession> session)
{
    std::unique_ptr<QQmlApplicationEngine> engine;
    QObject* window = nullptr;
    if (shape == "quick") {
        engine = std::make_unique<QQmlApplicationEngine>();
        engine->loadData("import QtQuick 2.0\nimport QtQuick.Window 2.0\n"
                         "Window { visible: true; width: 100; height: 100 }");
        window = engine->rootObjects().value(0);
    } else {
        auto* const widget = new QWidget; // it deletes itself, or stays
        widget->setAttribute(Qt::WA_DeleteOnClose, shape != "deleted");
        if (shape == "deleted")
            QObject::connect(qApp, &QCoreApplication::aboutToQuit, widget, &QObject::deleteLater);
        widget->show();
        window = widget;
    }
    QObject::connect(session.get(), &InstanceSession::argumentsReceived, window, show);
    QObject::connect(session.get(), &InstanceSession::launchReceived, window, keep);
    QObject::connect(qGuiApp, &QGuiApplication::lastWindowClosed, beginEnd);
    if (shape == "child")
        session.release()->setParent(window);
    return QGuiApplication::exec();
}

int runWithoutWindow(InstanceSession* session)
{
    if (shape == "prelude") {
        QTimer::singleShot(10, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
    }
    if (shape == "deaf" && QCoreApplication::arguments().size() == 1) // started by a session
        QTimer::singleShot(0, qApp, [] { obey("quit"); });
    else if (shape != "deaf")
        receive(*session);
    QTimer work;
    QObject::connect(&work, &QTimer::timeout, [] { QThread::msleep(16); });
    if (shape == "frames")
        work.start(0);
    QEventLoop loop;
    if (shape != "loop")
        return QCoreApplication::exec();
    quit = [&loop] { loop.quit(); };
    return loop.exec();
}

int run()
{
    if (shape == "bare") {
        say("state " + QByteArray::number(startSingleInstance()));
        return stopSingleInstance();
    }
    if (shape != "prelude") // its first aboutToQuit() is not the end
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, beginEnd);
    auto session = std::make_unique<InstanceSession>();
    if (qEnvironmentVariableIsSet("RESTART"))
        session->setRestartCommand(qEnvironmentVariable("RESTART").split('\n', Qt::SkipEmptyParts));
    say("state " + QByteArray::number(session->state()));
    if (hasWindow)
        say("arguments ", QCoreApplication::arguments().mid(1));
    if (session->state() != SingleInstanceStateMaster)
        return session->state() - SingleInstanceStateSecondary;
    return hasWindow ? runWithWindow(std::move(session)) : runWithoutWindow(session.get());
}

std::unique_ptr<HostKit::Launch> makeLaunch(int argc, char** argv, QCommandLineParser& parser)
{
    using HostKit::OptionRole;
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOptions({{"note", "", "text"}, {{"o", "output"}, "", "file"}, {"x", ""}});
    parser.addOptions({{"wait", ""}, {"new-instance", ""}});
    return std::make_unique<HostKit::Launch>(
        argc, argv, QString(), "application", parser,
        HostKit::OptionRoles{{"output", OptionRole::FileName},
                             {"wait", OptionRole::Wait},
                             {"new-instance", OptionRole::NewInstance}});
}

} // namespace

int main(int argc, char* argv[])
{
    if (shape == "early")
        return InstanceSession().state();
    ::alarm(60);
    HostKit::setLogSink(HostKit::writeToStandardError);
    HostKit::catchQtMessages(true);
    if (qEnvironmentVariableIsSet("LOUD"))
        HostKit::setLogLevel(HostKit::LogLevel::Info);
    QCoreApplication::setApplicationVersion("7");
    std::unique_ptr<HostKit::Launch> launch;
    std::unique_ptr<QCoreApplication> application;
    QCommandLineParser parser;
    if (hasWindow) {
        launch = makeLaunch(argc, argv, parser);
        if (launch->isDone()) {
            if (launch->isHandedOver())
                say("state 2");
            return launch->exitCode();
        }
        if (shape == "wizard") // waits for its user
            ::pause();
        if (shape == "quick")
            application = std::make_unique<QGuiApplication>(launch->argc(), launch->argv());
        else
            application = std::make_unique<QApplication>(launch->argc(), launch->argv());
    } else {
        application = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName("application");
    HostKit::quitOnSignals();
    // A process that a session started has an input that ends.
    const auto input = argc > 1 ? listenTo(STDIN_FILENO) : nullptr;
    const int file = ::open(qgetenv("LAUNCH_LIFE").constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const auto life = file >= 0 ? listenTo(file) : nullptr;
    return run();
}

/*
 * An application in one of the shapes that applications have, as SHAPE in the environment says:
 *
 *   (none)    no windows
 *   loop      no windows, and an event loop of its own
 *   prelude   no windows; an exec() that ends before the one in which it is ready for lists
 *   busy      no windows, and always something to do
 *   deaf      no windows; never ready for lists
 *   early     no application object yet
 *   bare      no windows and no session: the bare entry points, for a launch that hands over
 *   closing   a window that is deleted when it is closed
 *   deleted   a window that is deleted as the application quits
 *   child     a window that the session is a child of, and is deleted with
 *   quick     a Qt Quick window, which is hidden when it is closed
 *
 * Those with windows use HostKit::Launch. It says "arguments A|B" as the application object has
 * them, "state N", "ends" when its end begins, and for each list "list A|B"; "hidden A|B" if its
 * window is not to be seen by then, "late A|B" if it was told to quit before. It obeys lines of its
 * input; see obey(). With the argument "once" it quits when it has received a list. RESTART in the
 * environment is the command that it sets, in words.
 *
 * It ends with its input, or with the pipe LAUNCH_LIFE; after a minute at the latest. What it says
 * is also in the file LAUNCH_LOG, behind its number, since nobody in the test may have started it.
 */

#include <HostKit/InstanceSession.h>
#include <HostKit/Launch.h>
#include <HostKit/Log.h>

#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QPointer>
#include <QtCore/QProcess>
#include <QtCore/QSocketNotifier>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtQml/QQmlApplicationEngine>
#include <QtQuick/QQuickWindow>
#include <QtWidgets/QApplication>
#include <QtWidgets/QWidget>

#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

using HostKit::InstanceSession;

#ifdef TESTS_SANITIZED
/* Plug-ins stay loaded, so that what they leak has the name of one that may: leaks.supp. */
extern "C" __attribute__((visibility("default"))) int dlclose(void* /*library*/) noexcept
{
    return 0;
}
#endif

namespace {

const QByteArray shape = qgetenv("SHAPE");
bool isQuitting = false;
std::unique_ptr<QEventLoop> ownLoop;
std::unique_ptr<QQmlApplicationEngine> engine;
QPointer<QWidget> widget;

bool hasWindow()
{
    return shape == "quick" || shape == "closing" || shape == "deleted" || shape == "child";
}

void say(const QString& line)
{
    std::puts(qPrintable(line));
    std::fflush(stdout);
    QFile log(qEnvironmentVariable("LAUNCH_LOG"));
    if (!log.fileName().isEmpty() && log.open(QIODevice::Append | QIODevice::Unbuffered))
        log.write(QByteArray::number(::getpid()) + ' ' + line.toUtf8() + '\n');
}

void say(const char* what, const QStringList& arguments)
{
    say(QLatin1String(what) + arguments.join(QLatin1Char('|')));
}

void beginEnd()
{
    if (!std::exchange(isQuitting, true))
        say(QStringLiteral("ends"));
}

class Window : public QWidget {
public:
    bool event(QEvent* event) override
    {
        if (event->type() == QEvent::Close)
            beginEnd();
        return QWidget::event(event);
    }
};

QWindow* quickWindow()
{
    return engine ? qobject_cast<QWindow*>(engine->rootObjects().value(0)) : nullptr;
}

bool isSeen()
{
    return engine ? quickWindow()->isVisible()
                  : !qApp->inherits("QApplication") || (widget && widget->isVisible());
}

void quit()
{
    if (ownLoop)
        ownLoop->quit();
    else
        QCoreApplication::quit();
}

void obey(const QByteArray& command)
{
    beginEnd();
    if (command == "queued") { // and some work before it is handled
        QMetaObject::invokeMethod(qApp, quit, Qt::QueuedConnection);
        QThread::msleep(20);
    } else if (command == "timer") {
        QTimer::singleShot(0, qApp, quit);
    } else if (command == "exit") {
        std::exit(3);
    } else if (command == "close" && widget) {
        widget->close();
    } else if (command == "close" && engine) {
        quickWindow()->close();
    } else {
        if (command == "restart")
            QProcess::startDetached(QCoreApplication::applicationFilePath(), {});
        if (command == "save") // which takes its time
            QObject::connect(qApp, &QCoreApplication::aboutToQuit, [] { QThread::sleep(3); });
        quit();
    }
}

void show(const QStringList& arguments)
{
    say(isQuitting ? "late " : isSeen() ? "list " : "hidden ", arguments);
    if (QCoreApplication::arguments().contains(QLatin1String("once")))
        obey("quit");
}

std::unique_ptr<QSocketNotifier> listenTo(int file)
{
    auto notifier = std::make_unique<QSocketNotifier>(file, QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, [file] {
        QByteArray line(64, '\0');
        const auto got = ::read(file, line.data(), size_t(line.size()));
        if (got <= 0)
            ::_exit(0); // no quit: that is what tests look at
        obey(line.left(int(got)).trimmed());
    });
    return notifier;
}

template <typename Receiver> void receive(InstanceSession* session, Receiver* receiver)
{
    QObject::connect(session, &InstanceSession::argumentsReceived, receiver, show);
}

int runWindow(std::unique_ptr<InstanceSession> session)
{
    widget = new Window; // deletes itself, or is left
    if (shape != "deleted")
        widget->setAttribute(Qt::WA_DeleteOnClose);
    else
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, widget, &QObject::deleteLater);
    receive(session.get(), widget.data());
    if (shape == "child")
        session.release()->setParent(widget);
    widget->show();
    return QApplication::exec();
}

int runQuick(InstanceSession* session)
{
    engine = std::make_unique<QQmlApplicationEngine>();
    engine->loadData("import QtQuick 2.0\nimport QtQuick.Window 2.0\n"
                     "Window { visible: true; width: 100; height: 100 }");
    receive(session, quickWindow());
    const int result = QGuiApplication::exec();
    engine.reset();
    return result;
}

int runWithoutWindows(InstanceSession* session)
{
    if (shape == "prelude") {
        QTimer::singleShot(10, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
    }
    if (shape == "deaf")
        QTimer::singleShot(200, qApp, [] { obey("quit"); });
    else
        receive(session, qApp);
    QTimer work;
    if (shape == "busy")
        work.start(0);
    if (shape != "loop")
        return QCoreApplication::exec();
    ownLoop = std::make_unique<QEventLoop>();
    return ownLoop->exec();
}

int run()
{
    if (shape != "prelude") // where it is not the end
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, beginEnd);
    auto session = std::make_unique<InstanceSession>();
    if (qEnvironmentVariableIsSet("RESTART"))
        session->setRestartCommand(
            qEnvironmentVariable("RESTART").split(QLatin1Char('\n'), Qt::SkipEmptyParts));
    say(QStringLiteral("state %1").arg(session->state()));
    if (hasWindow())
        say("arguments ", QCoreApplication::arguments().mid(1));
    if (session->state() != SingleInstanceStateMaster)
        return 0;
    if (shape == "quick")
        return runQuick(session.get());
    if (qApp->inherits("QApplication"))
        return runWindow(std::move(session));
    return runWithoutWindows(session.get());
}

std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv)
{
    if (shape == "quick")
        return std::make_unique<QGuiApplication>(argc, argv);
    if (hasWindow())
        return std::make_unique<QApplication>(argc, argv);
    return std::make_unique<QCoreApplication>(argc, argv);
}

} // namespace

int main(int argc, char* argv[])
{
    if (shape == "early")
        return InstanceSession().state();
    ::alarm(60);
    const QString name = QStringLiteral("application");
    std::unique_ptr<HostKit::Launch> launch;
    if (hasWindow())
        launch = std::make_unique<HostKit::Launch>(
            argc, argv, QString(), name,
            QStringList{QStringLiteral("--note"), QStringLiteral("new")});
    if (launch && launch->isHandedOver()) {
        say(QStringLiteral("state 2"));
        return 0;
    }
    const auto application =
        makeApplication(launch ? launch->argc() : argc, launch ? launch->argv() : argv);
    QCoreApplication::setApplicationName(name);
    HostKit::setLogSink(HostKit::writeToStandardError);
    HostKit::catchQtMessages(true);
    if (shape == "bare") {
        say(QStringLiteral("state %1").arg(startSingleInstance()));
        return stopSingleInstance();
    }
    // One that a session started inherits an input that ends.
    const auto input = argc > 1 ? listenTo(STDIN_FILENO) : nullptr;
    const int file = ::open(qgetenv("LAUNCH_LIFE").constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const auto life = file >= 0 ? listenTo(file) : nullptr;
    return run();
}

/*
 * An application in one of the shapes that applications have, as SHAPE in the environment says:
 *
 *   plain     no windows
 *   loop      no windows, and an event loop of its own
 *   prelude   no windows; an exec() that ends before the one in which it is ready for lists
 *   deaf      no windows; never ready for lists
 *   early     no application object yet
 *   closing   a window that is deleted when it is closed
 *   deleted   a window that is deleted as the application quits
 *   child     a window that the session is a child of, and is deleted with
 *   quick     a Qt Quick window, which is hidden when it is closed
 *
 * It says "state N", "ends" when its end begins, and for each list "list A|B"; "hidden A|B" if its
 * window is not to be seen by then, "late A|B" if it was told to quit before. It obeys "quit" and
 * the like; see obey(). With the argument "once" it quits when it has received a list. RESTART in
 * the environment is the command that it sets, in words.
 */

#include "Telling.h"

#include <HostKit/InstanceSession.h>
#include <HostKit/Launch.h>
#include <HostKit/Log.h>

#include <QtCore/QEventLoop>
#include <QtCore/QPointer>
#include <QtCore/QProcess>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtQml/QQmlApplicationEngine>
#include <QtQuick/QQuickWindow>
#include <QtWidgets/QApplication>
#include <QtWidgets/QWidget>

#include <utility>

using HostKit::InstanceSession;

#ifdef TESTS_SANITIZED
/* Plug-ins stay loaded, so that what they leak has the name of one that may: leaks.supp. */
extern "C" __attribute__((visibility("default"))) int dlclose(void* /*library*/) noexcept
{
    return 0;
}
#endif

namespace {

bool isQuitting = false;
std::unique_ptr<QEventLoop> ownLoop;
std::unique_ptr<QQmlApplicationEngine> engine;
QPointer<QWidget> widget;

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
    if (command == "quit")
        quit();
    if (command == "queued") { // and some work before it is handled
        QMetaObject::invokeMethod(qApp, quit, Qt::QueuedConnection);
        QThread::msleep(20);
    }
    if (command == "timer")
        QTimer::singleShot(0, qApp, quit);
    if (command == "save") { // which takes its time
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, [] { QThread::sleep(3); });
        quit();
    }
    if (command == "exit")
        std::exit(3);
    if (command == "restart") {
        QProcess::startDetached(QCoreApplication::applicationFilePath(), {});
        quit();
    }
    if (command == "close" && widget)
        widget->close();
    if (command == "close" && engine)
        quickWindow()->close();
}

void show(const QStringList& arguments)
{
    const auto* const how = isQuitting ? "late " : isSeen() ? "list " : "hidden ";
    say(QLatin1String(how) + arguments.join(QLatin1Char('|')));
    if (QCoreApplication::arguments().contains(QLatin1String("once")))
        obey("quit");
}

template <typename Receiver> void receive(InstanceSession* session, Receiver* receiver)
{
    QObject::connect(session, &InstanceSession::argumentsReceived, receiver, show);
}

int runWindow(const QByteArray& shape, std::unique_ptr<InstanceSession> session)
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

int runWithoutWindows(const QByteArray& shape, InstanceSession* session)
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

int run(const QByteArray& shape)
{
    if (shape != "prelude") // where it is not the end
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, beginEnd);
    auto session = std::make_unique<InstanceSession>();
    if (qEnvironmentVariableIsSet("RESTART"))
        session->setRestartCommand(
            qEnvironmentVariable("RESTART").split(QLatin1Char('\n'), Qt::SkipEmptyParts));
    say(QStringLiteral("state %1").arg(session->state()));
    if (session->state() == SingleInstanceStateSecondary)
        return 0;
    if (shape == "quick")
        return runQuick(session.get());
    if (qApp->inherits("QApplication"))
        return runWindow(shape, std::move(session));
    return runWithoutWindows(shape, session.get());
}

bool hasWindow(const QByteArray& shape)
{
    return shape == "quick" || shape == "closing" || shape == "deleted" || shape == "child";
}

std::unique_ptr<QCoreApplication> makeApplication(const QByteArray& shape, int& argc, char** argv)
{
    if (shape == "quick")
        return std::make_unique<QGuiApplication>(argc, argv);
    if (hasWindow(shape))
        return std::make_unique<QApplication>(argc, argv);
    return std::make_unique<QCoreApplication>(argc, argv);
}

} // namespace

int main(int argc, char* argv[])
{
    const QByteArray shape = qgetenv("SHAPE");
    if (shape == "early")
        return HostKit::InstanceSession().state();
    QStringList words; // none of which is a file
    for (int i = 1; i < argc; ++i)
        words.append(QString::fromLocal8Bit(argv[i]));
    std::unique_ptr<HostKit::Launch> launch;
    if (hasWindow(shape))
        launch = std::make_unique<HostKit::Launch>(argc, argv, QString(),
                                                   QStringLiteral("launcher"), words);
    if (launch && launch->isHandedOver()) {
        say(QStringLiteral("state 2"));
        return 0;
    }
    const auto application =
        makeApplication(shape, launch ? launch->argc() : argc, launch ? launch->argv() : argv);
    QCoreApplication::setApplicationName(QStringLiteral("launcher"));
    const Telling telling(argc > 1, obey); // one that a session started inherits an input that ends
    HostKit::setLogSink(HostKit::writeToStandardError);
    HostKit::catchQtMessages(true);
    return run(shape);
}

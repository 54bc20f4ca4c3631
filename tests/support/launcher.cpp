/*
 * One launch of an application without windows, for the tests that need real processes; built a
 * second time, as BARE, by the bare entry points.
 *
 * It says "state N", then as the master "list A|B" for each list that it receives. It obeys "quit",
 * which it answers by "quitting", and "block", which it answers by "blocking" and ten seconds of a
 * busy main thread.
 */

#include "Telling.h"

#include <HostKit/Log.h>
#ifdef BARE
#include <Core/ObjectsPool.h>
#include <SingleInstanceController.h>
#else
#include <HostKit/InstanceSession.h>
#endif

#include <QtCore/QCoreApplication>
#include <QtCore/QThread>
#include <QtCore/QVariant>

namespace {

void show(const QStringList& arguments)
{
    if (qEnvironmentVariableIsSet("PLATFORM"))
        say(QLatin1String("token ") + qEnvironmentVariable("XDG_ACTIVATION_TOKEN"));
    say(QStringLiteral("list ") + arguments.join(QLatin1Char('|')));
}

void obey(const QByteArray& command)
{
    if (command == "block") {
        say(QStringLiteral("blocking"));
        QThread::sleep(10);
    } else {
        say(QStringLiteral("quitting"));
        QCoreApplication::quit();
    }
}

#ifdef BARE
int run()
{
    using SingleInstance::SingleInstanceController;
    say(QStringLiteral("state %1").arg(startSingleInstance()));
    const auto entry = Core::ObjectsPool::getInstance().find(
        QStringLiteral("SingleInstance::SingleInstanceController"), false);
    if (auto* const controller = qobject_cast<SingleInstanceController*>(entry.second)) {
        const auto showAll = [controller] {
            for (const QStringList& arguments : controller->takeMessages())
                show(arguments);
        };
        QObject::connect(controller, &SingleInstanceController::messageReceived, qApp, showAll);
        showAll();
        QCoreApplication::exec();
    }
    return stopSingleInstance();
}
#else
int run()
{
    HostKit::InstanceSession session;
    say(QStringLiteral("state %1").arg(session.state()));
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived, show);
    return session.state() == SingleInstanceStateMaster ? QCoreApplication::exec() : 0;
}
#endif

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("launcher"));
    application.setProperty("platformName", qEnvironmentVariable("PLATFORM"));
    const Telling telling(argc > 1, obey);
    HostKit::setLogSink(HostKit::writeToStandardError);
    return run();
}

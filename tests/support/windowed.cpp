/*
 * A launch of an application with windows, by HostKit::Launch. It says "handed over", or
 * "arguments A|B" as the application object has them, and ends; with STAYS set it goes on with a
 * session, says "state N", and "list A|B" for each list.
 */

#include "Telling.h"

#include <HostKit/InstanceSession.h>
#include <HostKit/Launch.h>

#include <QtWidgets/QApplication>

int main(int argc, char* argv[])
{
    HostKit::Launch launch(argc, argv, QString(), QStringLiteral("launcher"),
                           {QStringLiteral("--note"), QStringLiteral("new")});
    if (launch.isHandedOver()) {
        say(QStringLiteral("handed over"));
        return 0;
    }
    const QApplication application(launch.argc(), launch.argv());
    say("arguments " + QCoreApplication::arguments().mid(1).join('|'));
    if (!qEnvironmentVariableIsSet("STAYS"))
        return 0;
    const Telling telling(false);
    const HostKit::InstanceSession session;
    say(QStringLiteral("state %1").arg(session.state()));
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived,
                     [](const QStringList& arguments) { say("list " + arguments.join('|')); });
    return session.state() == SingleInstanceStateMaster ? QCoreApplication::exec() : 0;
}

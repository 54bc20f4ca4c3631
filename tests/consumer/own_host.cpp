#include <HostKit/InstanceSession.h>

#include "ScriptedHost.h"

#include <QtCore/QCoreApplication>

/* Whether it was this program's host that the library talked to, and not HostKit. */
int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    ScriptedHost::reset();
    const HostKit::InstanceSession session;
    const bool hasPort = ScriptedHost::state()->settings.contains(QStringLiteral("MasterPort"));
    const bool isLogged = ScriptedHost::takeLog().contains(QStringLiteral("2 started."));
    return session.state() == SingleInstanceStateMaster && hasPort && isLogged ? 0 : 1;
}

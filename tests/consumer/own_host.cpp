#include <HostKit/InstanceSession.h>

#include "ScriptedHost.h"

#include <QtCore/QCoreApplication>

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    ScriptedHost::reset();
    bool isMaster = false;
    QVariant port;
    {
        const HostKit::InstanceSession session;
        isMaster = session.state() == SingleInstanceStateMaster;
        port = ScriptedHost::setting(QStringLiteral("MasterPort"));
    }
    const bool isLogged = ScriptedHost::takeLog().contains(QStringLiteral("2 stopped."));
    return isMaster && port.toUInt() != 0 && isLogged ? 0 : 1;
}

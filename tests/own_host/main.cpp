#include <SingleInstanceController.h>

#include "ScriptedHost.h"

#include <QtCore/QCoreApplication>

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    ScriptedHost::reset();
    const bool isMaster = startSingleInstance() == SingleInstanceStateMaster;
    const QVariant port = ScriptedHost::setting(QStringLiteral("MasterPort"));
    stopSingleInstance();
    const bool isLogged = ScriptedHost::takeLog().contains(QStringLiteral("2 stopped."));
    return isMaster && port.toUInt() != 0 && isLogged ? 0 : 1;
}

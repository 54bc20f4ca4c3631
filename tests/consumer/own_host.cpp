#include <SingleInstanceController.h>

#include "ScriptedHost.h"

#include <QtCore/QCoreApplication>

/* Succeeds if the library has called the host of this program. */
int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    ScriptedHost::reset();
    const SingleInstanceState state = startSingleInstance();
    const bool hasPort = ScriptedHost::state()->settings.contains(QStringLiteral("MasterPort"));
    const bool isLogged = ScriptedHost::takeLog().contains(QStringLiteral("2 started."));
    stopSingleInstance();
    return state == SingleInstanceStateMaster && hasPort && isLogged ? 0 : 1;
}

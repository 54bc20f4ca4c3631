#include "Election.h"

#include "ApplicationFolder.h"
#include "Reachability.h"
#include "SettingsSlot.h"

#include <chrono>

namespace HostKit {

using SingleInstance::readMasterPort;
using SingleInstance::writeMasterPort;

namespace {

QString masterLockFile()
{
    return applicationFolder() + QLatin1String("/master.lock");
}

bool hasLivingMaster()
{
    const auto noPatience = std::chrono::milliseconds(0);
    return !FileLock::take(masterLockFile(), FileLock::Kind::Exclusive, noPatience).isTaken();
}

bool clearPort()
{
    if (readMasterPort() != 0)
        writeMasterPort(0);
    return readMasterPort() == 0;
}

} // namespace

FileLock takeMasterLock()
{
    // Free but for the moment in which another launch tries it: one that we did not wait for.
    return FileLock::take(masterLockFile(), FileLock::Kind::Shared, std::chrono::seconds(1));
}

quint16 answeringMaster()
{
    if (!hasLivingMaster())
        return 0;
    const quint16 port = readMasterPort();
    return port != 0 && isReachable(port) ? port : 0;
}

bool clearUnreachableMaster(bool isAlone)
{
    if (isAlone && !hasLivingMaster())
        return clearPort();
    const quint16 port = readMasterPort();
    if (port == 0 || isReachable(port))
        return true;
    qWarning("HostKit: the master on port %d cannot be reached, this process takes its place",
             port);
    return clearPort();
}

} // namespace HostKit

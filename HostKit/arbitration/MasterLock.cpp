#include "MasterLock.h"

#include "Directories.h"

#include <Core/Settings.h>

#include <QtCore/QVariant>

#include <chrono>

#include <sys/stat.h>

namespace HostKit {

namespace {

QString lockFile()
{
    return configDirectory() + QLatin1String("/master.lock");
}

QString group()
{
    return QStringLiteral("SingleInstance");
}

QString networkKey()
{
    return QStringLiteral("MasterNetwork");
}

/* Returns what identifies this process's network namespace, or nothing. */
QString ownNetwork()
{
    struct stat status = {};
    if (::stat("/proc/self/ns/net", &status) != 0)
        return {};
    return QStringLiteral("%1:%2").arg(status.st_dev).arg(status.st_ino);
}

} // namespace

FileLock takeMasterLock()
{
    FileLock lock = FileLock::take(lockFile(), FileLock::Kind::Shared, std::chrono::seconds(1));
    // Only the holder of the launch lock takes it exclusively, and that is this process.
    if (lock.hasTimedOut())
        qWarning("HostKit: %s is held by another process: the next launch will not find this one",
                 qPrintable(lockFile()));
    Core::Settings::getInstance()->setValue(group(), networkKey(), ownNetwork(), true);
    return lock;
}

bool hasLivingMaster()
{
    const auto exclusive = FileLock::Kind::Exclusive;
    return !FileLock::take(lockFile(), exclusive, std::chrono::milliseconds(0)).isTaken();
}

bool isMasterInOtherNetwork()
{
    const QString recorded =
        Core::Settings::getInstance()->getValue(group(), networkKey(), QVariant()).toString();
    const QString own = ownNetwork();
    return !recorded.isEmpty() && !own.isEmpty() && recorded != own;
}

} // namespace HostKit

#include <HostKit/LaunchLock.h>

#include "ApplicationFolder.h"
#include "FileLock.h"

namespace HostKit {

LaunchLock::LaunchLock(int patience)
    : file(std::make_unique<FileLock>(
        FileLock::take(applicationFolder() + QLatin1String("/launch.lock"),
                       FileLock::Kind::Exclusive, std::chrono::milliseconds(patience))))
{
}

LaunchLock::~LaunchLock() = default;

bool LaunchLock::isTaken() const
{
    return file->isTaken();
}

} // namespace HostKit

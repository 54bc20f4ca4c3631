#include <HostKit/LaunchLock.h>

#include "Directories.h"
#include "FileLock.h"

/* The launch lock, for hosts of the bare library. */

namespace HostKit {

LaunchLock::LaunchLock(int timeout)
    : file(std::make_unique<FileLock>(FileLock::take(launchLockFile(), FileLock::Kind::Exclusive,
                                                     std::chrono::milliseconds(timeout))))
{
}

LaunchLock::~LaunchLock() = default;

bool LaunchLock::isTaken() const
{
    return file->isTaken();
}

} // namespace HostKit

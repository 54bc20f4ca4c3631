#pragma once

#include "FileLock.h"

namespace HostKit {

/*
 * Each master holds master.lock as long as it lives. The lock is shared: there may be several
 * masters, although only one can be reached. Hold the launch lock during these functions, except
 * the last one. The application's thread.
 */

/*!
    Takes this master's share of the lock, which the returned object holds. Records in which network
    namespace the master listens. Blocks for a second at most.
*/
FileLock takeMasterLock();

/*!
    Returns whether a master lives. If none does, a port in the settings is left from a crash, and
    any process may listen on it.
*/
bool hasLivingMaster();

/*!
    Returns whether the last process that became master did so in another network namespace. This
    process cannot reach it there.
*/
bool isMasterInOtherNetwork();

} // namespace HostKit

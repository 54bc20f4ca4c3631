#pragma once

#include "FileLock.h"

namespace HostKit {

/*
 * Each master holds master.lock for its whole life. Masters share it: there may be several, of which
 * only one can be reached. Hold the launch lock around each of these functions. The application's
 * thread.
 */

/*!
    Takes this master's part in the lock, for as long as the object lives, and records in which
    network namespace the master listens. Blocks for a second at most.
*/
FileLock takeMasterLock();

/*!
    Returns whether a master lives. If none does, a port in the settings was left by a crash, and
    anybody may listen on it by now.
*/
bool hasLivingMaster();

/*!
    Returns whether the master that became one last did so in another network namespace, where this
    process cannot reach it.
*/
bool isMasterInOtherNetwork();

} // namespace HostKit

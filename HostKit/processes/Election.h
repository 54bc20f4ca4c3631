#pragma once

#include "FileLock.h"

namespace HostKit {

/*
 * Who is the master. Hold the launch lock around each of these, and use them in the application's
 * thread.
 *
 * master.lock is held by each master for its whole life, and shared by them: there may be several,
 * of which all but one cannot be reached. A launch that could take it for itself knows that no
 * master lives, and that a port in the settings was left by a crash. Anybody may be listening on it
 * by now, and would be taken for the master.
 */

/*! Takes a master's part in master.lock, for as long as the object lives. Blocks for a second. */
FileLock takeMasterLock();

/*! Returns the port of the living master that answers, or 0. Blocks for two seconds at most. */
quint16 answeringMaster();

/*!
    Has the settings name no port but that of a master that answers: another is cleared, and warned
    of if its master lives. Returns false where that cannot be done. Blocks as answeringMaster().

    Without the launch lock, \a isAlone is false: then a port at which somebody answers stays, for
    its master may be about to take its part in master.lock.
*/
bool clearUnreachableMaster(bool isAlone);

} // namespace HostKit

#pragma once

#include "Envelope.h"
#include "FileLock.h"

#include <chrono>

namespace HostKit {

/*
 * Decides once, under the launch lock, what a launch is.
 *
 * A launch holds launch.lock from the moment it looks for a master until it has handed over, or
 * until its session is master. So what it found stays true. Launches that come meanwhile wait, and
 * then hand over. A master that ends holds the lock until it has given its port back and has left
 * its launches to the next master. So no launch hands over to a master that has begun its last
 * flush.
 *
 * While a process holds the lock, no other process becomes master. If the holder is suspended, or
 * takes long to build its session, a launch gives up waiting. Then it hands over to a master that
 * can be reached, or leaves its arguments in the spool, where the next master finds them. If the
 * lock file cannot be opened, launches decide without it.
 *
 * The application's thread.
 */

enum class Outcome {
    HandedOver, // a master has the arguments
    Spooled, // the next master will get them
    NothingToDo, // this is a successor, and there is nothing left for it
    MasterToBe, // no master can be reached, and no other launch can become one now
    Failed, // none of these; a warning said why
};

struct Decision {
    Outcome outcome = Outcome::Failed;
    FileLock launchLock; // held until this process is master
    quint32 master = 0; // the process that got the arguments
};

/*!
    Decides for \a launch, and hands it over if a master can be reached. A successor has nothing to
    hand over. It becomes master only if launches are in the spool and no master can be reached.

    Usually blocks for milliseconds. At worst it waits 10 s for the launch lock, 2 s for a master
    that does not answer, and as long as the library's sender does.
*/
Decision decide(const LaunchMessage& launch);

/*! Asks the desktop to activate the master's window, and ends the busy cursor of \a startupId.
    Blocks for four seconds at most. */
void bringToFront(const QByteArray& startupId);

/*! Takes the launch lock, and waits up to \a timeout for it. */
FileLock takeLaunchLock(std::chrono::milliseconds timeout = std::chrono::seconds(10));

/*!
    Hands \a launches over to another master, if one can be reached. Tells those that wait for an
    answer to which. Returns those that it did not take. Hold the launch lock.
*/
QList<LaunchMessage> passOn(const QList<LaunchMessage>& launches);

} // namespace HostKit

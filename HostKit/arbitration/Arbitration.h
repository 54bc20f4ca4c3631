#pragma once

#include "Envelope.h"
#include "FileLock.h"

#include <chrono>

namespace HostKit {

/*
 * Decides what a launch is: once, under the launch lock.
 *
 * A launch holds launch.lock from the moment it looks for a master until it has handed over, or
 * until its session is master. A master that ends holds it until it has given its port back and left
 * its lists to the next. So nobody hands over to a master that is about to go, what a launch found
 * stays true, and launches behind a first one wait for it and then hand over.
 *
 * Nobody becomes master without the lock. A launch that waited in vain, because the holder is
 * suspended or takes its time before its session, hands over to a master that answers. Otherwise it
 * leaves its arguments in the spool, where the next master finds them.
 *
 * The application's thread.
 */

enum class Outcome {
    HandedOver, // a master has the arguments
    Spooled, // the next master will have them
    NothingToDo, // a successor that came too late, or not needed
    MasterToBe, // no master answers, and nobody else can become one now
    Failed, // neither, for a reason that was warned of
};

struct Decision {
    Outcome outcome = Outcome::Failed;
    FileLock launchLock; // of the master to be, until it is one
    quint32 master = 0; // the process that has the launch
};

/*!
    Decides for \a launch, and hands it over if a master answers. For a successor, which has nothing
    to hand over, decides whether it is needed for what waits in the spool.

    Blocks for milliseconds as a rule. At worst it waits 10 s for the launch lock, 2 s for a master
    that does not answer, and as long as the library's sender.
*/
Decision decide(const LaunchMessage& launch);

/*! Asks the desktop for the master's window, and ends the busy cursor of \a startupId. Blocks for
    four seconds at most. */
void bringToFront(const QByteArray& startupId);

/*! Takes the launch lock, and waits up to \a timeout for it. */
FileLock takeLaunchLock(std::chrono::milliseconds timeout = std::chrono::seconds(10));

/*!
    Hands \a launches over to another master, if one answers, and tells those that wait for an answer.
    Returns those that it did not take. Hold the launch lock.
*/
QList<LaunchMessage> passOn(const QList<LaunchMessage>& launches);

} // namespace HostKit

#pragma once

#include "Envelope.h"

namespace HostKit {

/*
 * Launches that wait for the next master, in private files: those that a process received and did
 * not deliver before it ended, and those that no master could take. Each call of spool() creates
 * one file in one step. So any number of processes may spool at once, and a kill leaves a whole
 * file or none. The application's thread.
 *
 * A file that is damaged, or that others may write to, is renamed with a warning and not used.
 */

/*! Returns whether launches wait. */
bool hasSpooled();

/*!
    Adds \a launches to the spool, and tells those that wait for an answer. Returns a name for
    unspool(), or nothing if none could be written. A warning says how many are lost, and why: the
    disk is full, or 64 MiB wait already.
*/
QString spool(const QList<LaunchMessage>& launches);

/*!
    Takes back what spool() wrote under the name \a name. Returns whether it was still there: then
    no other process has it.
*/
bool unspool(const QString& name);

/*!
    Returns all launches that wait, oldest first, and removes them, so that each is returned once.
    Connects to those that wait for an answer. A file that cannot be removed is not used. Hold the
    launch lock.
*/
QList<LaunchMessage> takeSpooled();

} // namespace HostKit

#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QStringList>

namespace HostKit {

/*
 * Lists that wait for the next master, in private files: what a process received and could not
 * deliver before it ended, and what a launch could hand to nobody. Each call of spool() makes a file
 * of its own in one step, so that any number of processes may do so at once, and a kill leaves a
 * whole file or none. The application's thread.
 *
 * A file that is damaged, or that others may write to, gets another name with a warning, and is not
 * used.
 */

/*! Returns whether lists wait. */
bool hasSpooledLists();

/*!
    Adds \a lists to those that wait. Returns a name for them, or nothing if none of them could be
    written. A warning tells how many are lost, and why: the disk is full, or 64 MiB wait already.
*/
QString spool(const QList<QStringList>& lists);

/*!
    Takes back what spool() gave the name \a name. Returns whether it was still there, so that no
    other process has it.
*/
bool unspool(const QString& name);

/*!
    Returns all lists that wait, oldest first, and removes them: each list is returned once. A file
    that cannot be removed is not used. Hold the launch lock.
*/
QList<QStringList> takeSpooledLists();

/*! Returns the directories in which lists may wait. */
QStringList spoolDirectories();

/*! Returns whether the launch with the identity \a id waits. Hold the launch lock. */
bool isSpooled(const QByteArray& id);

} // namespace HostKit

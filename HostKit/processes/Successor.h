#pragma once

#include <QtCore/QStringList>

namespace HostKit {

/*
 * The process that a session starts at its end to receive what it had not. It is told by its
 * environment, and tells nobody else. The application's thread.
 */

/*! Starts \a command, detached, as a successor. Returns whether it was started. */
bool startSuccessor(const QStringList& command);

/*!
    Returns whether a session of this application started this process, just now. What is started by
    what a session started, with arguments of its own, is an ordinary launch.
*/
bool isSuccessor();

/*! Has the environment no longer say so, so that what this process starts is no successor. */
void forgetSuccessor();

/*!
    Returns whether processes have been successors of each other for too many times in a row, each
    but for a short time: whoever sends lists without a pause would keep an application alive that
    its user quits.
*/
bool isLastSuccessor();

} // namespace HostKit

#pragma once

#include <QtCore/QStringList>

namespace HostKit {

/*
 * The process that a session starts at its end, to receive what the session could not deliver any
 * more. Its environment tells it so. The application's thread.
 */

/*!
    Returns the command that starts this application anew: the image that $APPIMAGE names if there
    is one, or else the application's file.
*/
QStringList defaultRestartCommand();

/*! Starts \a command, detached, as a successor. Returns whether it was started. */
bool startSuccessor(const QStringList& command);

/*!
    Returns whether a session of this application started this process, less than a minute ago. A
    process that a successor starts with other arguments is an ordinary launch.
*/
bool isSuccessor();

/*! Removes the note from the environment, so that what this process starts is no successor. */
void forgetSuccessor();

/*!
    Returns whether this process is the tenth successor in a row, each within a minute: a process
    that sends without a pause would keep an application alive that its user quits.
*/
bool isLastSuccessor();

} // namespace HostKit

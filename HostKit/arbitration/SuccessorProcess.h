#pragma once

#include <QtCore/QStringList>

namespace HostKit {

/*
 * The process that a session starts at its end, or a launch without a session. It receives the
 * launches in the spool. Its environment tells it that it is a successor. The application's thread.
 */

/*!
    Returns the command that starts this application again: the image that $APPIMAGE names, if there
    is one, or else the application's file.
*/
QStringList defaultRestartCommand();

/*! Starts \a command, detached, as a successor. Returns whether it was started. */
bool startSuccessor(const QStringList& command);

/*!
    Returns whether this process was started as a successor of this application, less than a minute
    ago.
*/
bool isSuccessor();

/*! Returns whether this process was started as a successor, at any time. */
bool wasSuccessor();

/*!
    Returns whether this process is the tenth successor in a row, each started within a minute of
    the one before. It must start no other: a process that sends without a pause could keep an
    application alive that its user quits.
*/
bool isLastSuccessor();

} // namespace HostKit

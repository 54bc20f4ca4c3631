#pragma once

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace HostKit {

/*
 * What was handed over to a process that ended before the application received it, kept in one
 * private file for the next. The application's thread.
 *
 * A file that is no such file, or not this user's alone, is put aside under another name with a
 * warning, and counts as none.
 */

/*! Returns whether lists wait in \a file, or something that is in their place. */
bool hasWaitingLists(const QString& file);

/*!
    Adds \a lists to those that wait in \a file already. Returns whether lists wait there now; a
    warning tells how many do not, and why. Hold the launch lock, or another process may do the same
    and take this one's place.
*/
bool addWaitingLists(const QString& file, const QList<QStringList>& lists);

/*!
    Returns the lists that wait in \a file, oldest first, and removes it: a list is returned once.
    A file that cannot be removed is not used.
*/
QList<QStringList> takeWaitingLists(const QString& file);

} // namespace HostKit

#pragma once

#include <QtCore/QString>

namespace HostKit {

/*!
    Returns this application's directory in the user's own configuration, without creating it: the
    names of organisation and application below XDG_CONFIG_HOME or ~/.config. The names are escaped,
    so that none leads out of there. Any thread.
*/
QString configDirectory();

/*! Returns the file of the lock that serialises launches. Any thread. */
QString launchLockFile();

/*! Returns the user's runtime directory, for all applications, or nothing. Any thread. */
QString runtimeDirectory();

/*!
    Warns if other users may write to configDirectory() or to a directory above it. They could
    change the port and get what later launches hand over.
*/
void warnIfWritableByOthers();

/*!
    Returns \a name as one component of a path. A name that is too long keeps its beginning and ends
    with a hash of the whole name.
*/
QString asFileName(const QString& name);

/*!
    Creates the directory of the file \a path for this user alone, unless it exists. Returns whether
    it exists now; if not, errno tells why.
*/
bool createParentOf(const QString& path);

} // namespace HostKit

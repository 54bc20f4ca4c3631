#pragma once

#include <QtCore/QString>

namespace HostKit {

/*!
    Returns the folder of this application in the user's own configuration, without creating it:
    organisation and application name of the application object below XDG_CONFIG_HOME, or below
    ~/.config. Names are escaped, so that none can lead elsewhere. Any thread.
*/
QString applicationFolder();

/*!
    Warns if others than this user may write to that folder: who can change the port gets what later
    launches hand over. A folder that exists keeps its mode.
*/
void warnOfOtherWriters();

/*!
    Returns \a name as a file name that is one component of a path. Of one that is too long there
    remain the beginning and a hash of the whole.
*/
QString asFileName(const QString& name);

/*!
    Creates the folder of the file \a path for this user alone, where it does not exist. Returns
    whether it exists now; else errno tells why not.
*/
bool createFolderOf(const QString& path);

} // namespace HostKit

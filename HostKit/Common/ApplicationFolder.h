#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace HostKit {

/*!
    Returns the folder of this application in the user's own configuration, without creating it:
    organisation and application name of the application object below XDG_CONFIG_HOME, or below
    ~/.config. Names are escaped, so that none can lead elsewhere. Any thread.
*/
Q_DECL_HIDDEN QString applicationFolder();

/*! Returns \a name as a file name that is one component of a path. */
Q_DECL_HIDDEN QString asFileName(const QString& name);

/*!
    Creates the folder of the file \a path for this user alone, where it does not exist. Returns
    whether it exists now; else errno tells why not.
*/
Q_DECL_HIDDEN bool createFolderOf(const QString& path);

} // namespace HostKit

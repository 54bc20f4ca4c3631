#pragma once

#include <QtCore/QString>

namespace HostKit {

/*! Returns the working folder with a slash at its end, or nothing if it was removed. Any thread. */
QString workingFolder();

/*!
    Returns the absolute path of the file that \a name names in \a folder, which ends with a slash.
    Returns nothing if \a name is relative and \a folder is empty.

    A file URL becomes its path. An absolute path stays as it is, and so does a URI of another
    scheme if no file has that name. Any thread; looks at the disk only for what could be a URI.
*/
QString absoluteFileName(const QString& name, const QString& folder);

} // namespace HostKit

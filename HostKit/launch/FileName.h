#pragma once

#include <QtCore/QByteArray>

namespace HostKit {

/*! Returns the working folder with a slash behind it, or nothing if it was removed. Any thread. */
QByteArray workingFolder();

/*! Returns whether \a argument names a file in the working folder. Any thread. */
bool isRelativeFileName(const QByteArray& argument);

/*!
    Returns the absolute path of the file that \a argument names in \a folder.

    A file URL becomes its path. An absolute path, an empty text, and a URI of another scheme where
    no file has that name, stay as they are. Works on bytes, since the application object decides
    later how they are decoded. Any thread; looks at the disk only for what could be a URI.
*/
QByteArray absoluteFileName(const QByteArray& argument, const QByteArray& folder);

} // namespace HostKit

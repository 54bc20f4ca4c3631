#pragma once

#include "UniqueFd.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

namespace HostKit {

/*
 * Files that only this user may read. Any thread.
 *
 * A write goes to a temporary file that then replaces the old one. A reader gets the old content or
 * the new content, never a part, and a crash leaves one of them. Nothing is synced to the disk:
 * after a power failure nobody needs these files, and to wait for the disk would delay every start.
 */

/*!
    Returns the content of \a file, or nothing if it cannot be read or has more than \a maxSize
    bytes.
*/
std::optional<QByteArray> readAll(const UniqueFd& file, int maxSize);

/*!
    Replaces the content of the file \a path, and creates its folder if that is missing. Returns
    whether it did; if not, errno tells why, and the file is as it was.
*/
bool replaceFile(const QString& path, const QByteArray& content);

} // namespace HostKit

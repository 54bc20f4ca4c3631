#pragma once

#include "UniqueFd.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

namespace HostKit {

/*
 * Small files in folders of this user alone. Any thread.
 *
 * A write goes to a temporary file, which is then renamed over the old one. A reader sees the old
 * content or the new one, never a part, and a crash leaves one of them. Nothing is synced to the
 * disk: these files are of no use after a power failure, and waiting for the disk would delay every
 * start.
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

#include "AbsoluteFileName.h"

#include <QtCore/QFile>
#include <QtCore/QUrl>

#include <array>
#include <climits>

#include <unistd.h>

namespace HostKit {

namespace {

/* Returns the path in a file URL of this machine, or nothing. */
QString pathOf(const QUrl& url)
{
    const bool isLocal =
        url.isLocalFile() && (url.host().isEmpty() || url.host() == QLatin1String("localhost"));
    const QString path = isLocal ? url.path(QUrl::FullyDecoded) : QString();
    return path.startsWith(QLatin1Char('/')) && !path.contains(QChar(0)) ? path : QString();
}

} // namespace

QString workingFolder()
{
    std::array<char, PATH_MAX> folder = {};
    return ::getcwd(folder.data(), folder.size())
        ? QFile::decodeName(folder.data()) + QLatin1Char('/')
        : QString();
}

QString absoluteFileName(const QString& name, const QString& folder)
{
    if (name.startsWith(QLatin1Char('/')))
        return name;
    const QUrl url(name);
    const bool isUri = url.scheme().size() > 1; // a letter and a colon may begin any name
    if (isUri && (folder.isEmpty() || !QFile::exists(folder + name))) {
        const QString path = pathOf(url);
        return path.isEmpty() ? name : path;
    }
    return folder.isEmpty() ? QString() : folder + name;
}

} // namespace HostKit

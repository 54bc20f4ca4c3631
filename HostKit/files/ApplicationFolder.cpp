#include "ApplicationFolder.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr int longestName =
    240; // bytes; a file system takes 255, of which temporary files add some

QString configurationFolder()
{
    const QString named = QFile::decodeName(qgetenv("XDG_CONFIG_HOME"));
    // A relative one has to be ignored; it would also differ between launches.
    return named.startsWith(QLatin1Char('/')) ? named
                                              : QDir::homePath() + QLatin1String("/.config");
}

} // namespace

QString asFileName(const QString& name)
{
    const bool dotsAlone = name == QLatin1String(".") || name == QLatin1String("..");
    QByteArray encoded =
        QUrl::toPercentEncoding(name, QByteArrayLiteral(" "), dotsAlone ? "." : QByteArray());
    if (encoded.size() > longestName) {
        const auto hash = QCryptographicHash::hash(name.toUtf8(), QCryptographicHash::Sha256);
        encoded = encoded.left(longestName - 2 * hash.size() - 1) + '-' + hash.toHex();
    }
    return QString::fromLatin1(encoded);
}

QString applicationFolder()
{
    QString folder = configurationFolder();
    for (const QString& name :
         {QCoreApplication::organizationName(), QCoreApplication::applicationName()}) {
        if (!name.isEmpty())
            folder += QLatin1Char('/') + asFileName(name);
    }
    return folder;
}

void warnOfOtherWriters()
{
    struct stat status = {};
    const QString folder = applicationFolder();
    if (::stat(QFile::encodeName(folder).constData(), &status) != 0)
        return;
    const bool isOthers = status.st_uid != ::geteuid() && status.st_uid != 0;
    if (isOthers || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        qWarning("HostKit: others may write to %s, and get what launches hand over",
                 qPrintable(folder));
}

bool createFolderOf(const QString& path)
{
    const QString folder = QFileInfo(path).path();
    const auto create = [&folder] {
        return ::mkdir(QFile::encodeName(folder).constData(), S_IRWXU) == 0 || errno == EEXIST;
    };
    return create() || (errno == ENOENT && createFolderOf(folder) && create());
}

} // namespace HostKit

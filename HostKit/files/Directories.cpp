#include "Directories.h"

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

constexpr int maxNameSize = 240; // bytes; a file system allows 255, and temporary files add some

/* Returns the directory in \a variable. A relative one would differ from launch to launch. */
QString directoryNamedBy(const char* variable)
{
    const QString named = QFile::decodeName(qgetenv(variable));
    return named.startsWith(QLatin1Char('/')) ? named : QString();
}

QString applicationPath()
{
    QString path;
    for (const QString& name :
         {QCoreApplication::organizationName(), QCoreApplication::applicationName()}) {
        if (!name.isEmpty())
            path += QLatin1Char('/') + asFileName(name);
    }
    return path;
}

/* Returns whether other users may rename or replace files in \a directory. */
bool isWritableByOthers(const QString& directory)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(directory).constData(), &status) != 0)
        return false;
    const bool isOthers = status.st_uid != ::geteuid() && status.st_uid != 0;
    const bool isShared =
        (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0;
    return isOthers || isShared;
}

} // namespace

QString asFileName(const QString& name)
{
    const bool dotsAlone = name == QLatin1String(".") || name == QLatin1String("..");
    QByteArray encoded =
        QUrl::toPercentEncoding(name, QByteArrayLiteral(" "), dotsAlone ? "." : QByteArray());
    if (encoded.size() > maxNameSize) {
        const auto hash = QCryptographicHash::hash(name.toUtf8(), QCryptographicHash::Sha256);
        encoded = encoded.left(maxNameSize - 2 * hash.size() - 1) + '-' + hash.toHex();
    }
    return QString::fromLatin1(encoded);
}

QString configDirectory()
{
    const QString named = directoryNamedBy("XDG_CONFIG_HOME");
    const QString home = QDir::homePath() + QLatin1String("/.config");
    return (named.isEmpty() ? home : named) + applicationPath();
}

QString launchLockFile()
{
    return configDirectory() + QLatin1String("/launch.lock");
}

QString runtimeDirectory()
{
    return directoryNamedBy("XDG_RUNTIME_DIR");
}

void warnIfWritableByOthers()
{
    const QString own = configDirectory();
    struct stat status = {};
    // In a parent, the sticky bit keeps others from replacing our directory. In our directory it
    // does not keep them from creating files.
    bool isOpen = ::stat(QFile::encodeName(own).constData(), &status) == 0
        && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    for (QString each = own; !isOpen && each != QLatin1String("/"); each = QFileInfo(each).path())
        isOpen = isWritableByOthers(each);
    if (isOpen)
        qWarning(
            "HostKit: other users may write to %s or to a directory above it, and can get what "
            "launches hand over",
            qPrintable(own));
}

bool createParentOf(const QString& path)
{
    const QString directory = QFileInfo(path).path();
    const auto create = [&directory] {
        return ::mkdir(QFile::encodeName(directory).constData(), S_IRWXU) == 0 || errno == EEXIST;
    };
    return create() || (errno == ENOENT && createParentOf(directory) && create());
}

} // namespace HostKit

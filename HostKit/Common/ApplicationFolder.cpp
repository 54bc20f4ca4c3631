#include "ApplicationFolder.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <cerrno>

#include <sys/stat.h>

namespace HostKit {

namespace {

QString configurationFolder()
{
    const QString named = QFile::decodeName(qgetenv("XDG_CONFIG_HOME"));
    // A relative one has to be ignored; it would also differ between launches.
    return QDir::isAbsolutePath(named) ? named : QDir::homePath() + QLatin1String("/.config");
}

} // namespace

QString asFileName(const QString& name)
{
    const bool dotsAlone = name == QLatin1String(".") || name == QLatin1String("..");
    return QString::fromLatin1(
        QUrl::toPercentEncoding(name, QByteArrayLiteral(" "), dotsAlone ? "." : QByteArray()));
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

bool createFolderOf(const QString& path)
{
    const QString folder = QFileInfo(path).path();
    const auto create = [&folder] {
        return ::mkdir(QFile::encodeName(folder).constData(), S_IRWXU) == 0 || errno == EEXIST;
    };
    return create() || (errno == ENOENT && createFolderOf(folder) && create());
}

} // namespace HostKit

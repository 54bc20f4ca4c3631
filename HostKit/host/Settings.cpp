#include <Core/Settings.h>

#include "AtomicFile.h"
#include "Directories.h"

#include <QtCore/QFile>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

/*
 * One small file for each value: <configuration directory>/<group>/<key>. Only this user may read
 * it. Nothing is cached or locked: each call reads the file as it is at that moment.
 */

namespace {

constexpr int maxSize = 64 * 1024;

QString pathOf(const QString& group, const QString& key)
{
    return HostKit::configDirectory() + QLatin1Char('/') + HostKit::asFileName(group)
        + QLatin1Char('/') + HostKit::asFileName(key);
}

} // namespace

namespace Core {

Settings* Settings::getInstance()
{
    static Settings settings; // has no data: the values are on the disk
    return &settings;
}

QVariant Settings::getValue(const QString& group, const QString& key,
                            const QVariant& defaultValue) const
{
    const QByteArray path = QFile::encodeName(pathOf(group, key));
    // A pipe in the place of the file must not block.
    const HostKit::UniqueFd file(::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    const auto content = HostKit::readAll(file, maxSize);
    return content ? QVariant(QString::fromUtf8(*content)) : defaultValue;
}

void Settings::setValue(const QString& group, const QString& key, const QVariant& value,
                        bool /*flag*/)
{
    const QString path = pathOf(group, key);
    if (HostKit::replaceFile(path, value.toString().toUtf8()))
        return;
    qWarning("HostKit: cannot write %s: %s", qPrintable(path), std::strerror(errno));
    ::unlink(QFile::encodeName(path).constData()); // on a full disk not even 0 can be written
}

} // namespace Core

#include "TextFile.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace {

QString decoded(const QByteArray& bytes)
{
    const QString text = QString::fromUtf8(bytes);
    return text.contains(QChar::ReplacementCharacter) ? QString::fromLatin1(bytes) : text;
}

} // namespace

TextFile readTextFile(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return {{}, QStringLiteral("There is no file “%1”.").arg(path)};
    if (info.isDir())
        return {{}, QStringLiteral("“%1” is a folder.").arg(path)};
    if (!info.isFile())
        return {{}, QStringLiteral("“%1” is not a regular file.").arg(path)};

    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {{}, QStringLiteral("“%1” cannot be read: %2.").arg(path, file.errorString())};
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return {{}, QStringLiteral("“%1” cannot be read: %2.").arg(path, file.errorString())};
    if (bytes.contains('\0'))
        return {{}, QStringLiteral("“%1” is not a text file.").arg(path)};
    return {decoded(bytes), {}};
}

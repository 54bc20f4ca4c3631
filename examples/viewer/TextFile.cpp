#include "TextFile.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QObject>

namespace {

QString decoded(const QByteArray& bytes)
{
    const QString text = QString::fromUtf8(bytes);
    return text.contains(QChar::ReplacementCharacter) ? QString::fromLatin1(bytes) : text;
}

} // namespace

TextFile readTextFile(const QString& path, qint64 most)
{
    const auto failed = [](const QString& problem) { return TextFile{{}, problem}; };
    const QFileInfo info(path);
    if (!info.exists())
        return failed(QObject::tr("There is no file “%1”.").arg(path));
    if (info.isDir())
        return failed(QObject::tr("“%1” is a folder.").arg(path));
    if (!info.isFile())
        return failed(QObject::tr("“%1” is not a regular file.").arg(path));

    QFile file(path);
    const bool isOpen = file.open(QIODevice::ReadOnly);
    const QByteArray bytes = isOpen ? file.read(most + 1) : QByteArray();
    if (file.error() != QFileDevice::NoError)
        return failed(QObject::tr("“%1” cannot be read: %2.").arg(path, file.errorString()));
    if (bytes.contains('\0'))
        return failed(QObject::tr("“%1” is not a text file.").arg(path));
    if (bytes.size() > most)
        return {{}, {}, true};
    return {decoded(bytes), {}};
}

#include "WaitingLists.h"

#include "MessageFormat.h"
#include "PrivateFile.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDataStream>
#include <QtCore/QFile>
#include <QtCore/QIODevice>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr quint32 magic = 0x484B5731; // HKW1
constexpr quint32 format = 1;
constexpr int longestFile = 64 << 20; // bytes; a thousand of the longest lists there are
constexpr auto streamVersion = QDataStream::Qt_5_0; // the same for all versions of the application

QByteArray digest(const QByteArray& content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Sha1);
}

QByteArray packed(const QList<QStringList>& lists)
{
    QByteArray content;
    QDataStream inner(&content, QIODevice::WriteOnly);
    inner.setVersion(streamVersion);
    for (const QStringList& list : lists)
        inner << SingleInstance::packArguments(list);
    QByteArray file;
    QDataStream outer(&file, QIODevice::WriteOnly);
    outer.setVersion(streamVersion);
    outer << magic << format << digest(content) << content;
    return file;
}

/* Without the last, if they are more than the file may hold: strangers may send any number. */
QList<QStringList> thoseThatFit(const QList<QStringList>& lists)
{
    qint64 size = 64; // what is around them
    const auto isTooMuch = [&size](const QStringList& list) {
        size += 8;
        for (const QString& text : list)
            size += 4 + 2 * static_cast<qint64>(text.size());
        return size > longestFile;
    };
    const auto end = std::find_if(lists.begin(), lists.end(), isTooMuch);
    return lists.mid(0, static_cast<int>(end - lists.begin()));
}

/* Returns the lists, or in \a problem what is wrong with the file. */
QList<QStringList> unpacked(const QByteArray& file, QString& problem)
{
    QDataStream outer(file);
    outer.setVersion(streamVersion);
    quint32 foundMagic = 0;
    quint32 foundFormat = 0;
    QByteArray foundDigest;
    QByteArray content;
    outer >> foundMagic >> foundFormat;
    if (foundMagic == magic && foundFormat != format)
        problem = QStringLiteral("is of another version");
    else if (outer >> foundDigest >> content;
             foundMagic != magic || !outer.atEnd() || foundDigest != digest(content))
        problem = QStringLiteral("is damaged");
    if (!problem.isEmpty())
        return {};
    QDataStream inner(content);
    inner.setVersion(streamVersion);
    QList<QStringList> lists;
    while (!inner.atEnd()) {
        QByteArray packedList;
        QStringList list;
        inner >> packedList;
        if (SingleInstance::unpackArguments(packedList, list) != QDataStream::Ok) {
            problem = QStringLiteral("is damaged");
            return {};
        }
        lists.append(list);
    }
    return lists;
}

/* Returns what the file holds, or in \a problem why that is not used. */
std::optional<QByteArray> contentOf(const QString& path, QString& problem)
{
    const QByteArray name = QFile::encodeName(path);
    const Descriptor file(::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status = {};
    if (file < 0 || ::fstat(file, &status) != 0)
        problem =
            QStringLiteral("cannot be opened: ") + QString::fromLocal8Bit(std::strerror(errno));
    else if (!S_ISREG(status.st_mode))
        problem = QStringLiteral("is no regular file");
    else if (status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        problem = QStringLiteral("is open to others");
    else if (status.st_size > longestFile)
        problem = QStringLiteral("is too large");
    if (!problem.isEmpty())
        return std::nullopt;
    auto content = readAll(file, longestFile);
    if (!content)
        problem = QStringLiteral("cannot be read");
    return content;
}

/*
 * Gives the file another name, so that it is this process's alone, and never stops one twice.
 * Returns that name, or nothing.
 */
QByteArray claim(const QByteArray& name)
{
    QByteArray claimed = name + ".taken-by-" + QByteArray::number(::getpid());
    if (std::rename(name.constData(), claimed.constData()) == 0)
        return claimed;
    if (errno != ENOENT)
        qWarning("HostKit: %s cannot be removed, so that it is not used: %s", name.constData(),
                 std::strerror(errno));
    return {};
}

/* Returns the lists in a file that was claimed. What is no such file is put aside. */
QList<QStringList> readClaimed(const QByteArray& claimed, const QByteArray& name)
{
    if (claimed.isEmpty())
        return {};
    QString problem;
    const auto content = contentOf(QFile::decodeName(claimed), problem);
    const auto lists = content ? unpacked(*content, problem) : QList<QStringList>();
    if (problem.isEmpty())
        return lists;
    std::rename(claimed.constData(), (name + ".unusable").constData());
    qWarning("HostKit: what was left for this process in %s is not used: it %s", name.constData(),
             qPrintable(problem));
    return {};
}

} // namespace

bool hasWaitingLists(const QString& file)
{
    struct stat status = {};
    return ::lstat(QFile::encodeName(file).constData(), &status) == 0;
}

QList<QStringList> takeWaitingLists(const QString& file)
{
    const QByteArray name = QFile::encodeName(file);
    const QByteArray claimed = claim(name);
    const auto lists = readClaimed(claimed, name);
    if (!claimed.isEmpty())
        ::unlink(claimed.constData());
    return lists;
}

bool addWaitingLists(const QString& file, const QList<QStringList>& lists)
{
    const QByteArray name = QFile::encodeName(file);
    const QByteArray claimed = claim(name);
    const QList<QStringList> all = readClaimed(claimed, name) + lists;
    const QList<QStringList> fitting = thoseThatFit(all);
    const bool isWritten = replaceFile(file, packed(fitting));
    const auto lost = isWritten ? all.size() - fitting.size() : lists.size();
    if (lost > 0)
        qWarning("HostKit: %d lists of arguments are lost, which %s cannot take: %s",
                 static_cast<int>(lost), name.constData(),
                 std::strerror(isWritten ? EFBIG : errno));
    if (isWritten && !claimed.isEmpty())
        ::unlink(claimed.constData());
    else if (!claimed.isEmpty())
        std::rename(claimed.constData(), name.constData());
    return isWritten;
}

} // namespace HostKit

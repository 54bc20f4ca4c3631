#include "MessageSpool.h"

#include "ConfigDirectory.h"
#include "Envelope.h"
#include "MessageFormat.h"
#include "PrivateFile.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDataStream>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr quint32 magic = 0x484B5732; // HKW2
constexpr qint64 maxSize = 64 << 20; // bytes, of all files: a thousand of the longest hand-offs
constexpr int headerSize = 64; // at most
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
    outer << magic << digest(content) << content;
    return file;
}

/* Returns the lists, or nothing if the file is damaged. */
std::optional<QList<QStringList>> unpacked(const QByteArray& file)
{
    QDataStream outer(file);
    outer.setVersion(streamVersion);
    quint32 foundMagic = 0;
    QByteArray foundDigest;
    QByteArray content;
    outer >> foundMagic >> foundDigest >> content;
    if (foundMagic != magic || !outer.atEnd() || foundDigest != digest(content))
        return std::nullopt;
    QDataStream inner(content);
    inner.setVersion(streamVersion);
    QList<QStringList> lists;
    while (!inner.atEnd()) {
        QByteArray body;
        QStringList list;
        inner >> body;
        if (SingleInstance::unpackArguments(body, list) != QDataStream::Ok)
            return std::nullopt;
        lists.append(list);
    }
    return lists;
}

/* Returns the content of a file, or in \a problem why it must not be used. */
QByteArray contentOf(const QString& path, QString& problem)
{
    const QByteArray name = QFile::encodeName(path);
    const UniqueFd file(::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status = {};
    if (!file.isValid() || ::fstat(file.get(), &status) != 0)
        problem =
            QStringLiteral("cannot be opened: ") + QString::fromLocal8Bit(std::strerror(errno));
    else if (!S_ISREG(status.st_mode))
        problem = QStringLiteral("is no regular file");
    else if (status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        problem = QStringLiteral("is open to others");
    else if (status.st_size > maxSize)
        problem = QStringLiteral("is too large");
    if (!problem.isEmpty())
        return {};
    const auto content = readAll(file, static_cast<int>(maxSize));
    if (!content)
        problem = QStringLiteral("cannot be read");
    return content.value_or(QByteArray());
}

QList<QStringList> listsIn(const QString& path)
{
    QString problem;
    const QByteArray content = contentOf(path, problem);
    const auto lists = problem.isEmpty() ? unpacked(content) : std::nullopt;
    if (lists)
        return *lists;
    if (problem.isEmpty())
        problem = QStringLiteral("is damaged");
    const QByteArray name = QFile::encodeName(path);
    std::rename(name.constData(), (name + ".unusable").constData());
    qWarning("HostKit: what waits for this process in %s is not used: it %s", name.constData(),
             qPrintable(problem));
    return {};
}

/* Returns the files of lists that wait, oldest first. */
QStringList spoolFiles()
{
    static const QRegularExpression name(QStringLiteral("\\A\\d{20}-\\d+\\z"));
    QFileInfoList files;
    for (const QString& directory : spoolDirectories())
        files += QDir(directory).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System
                                               | QDir::NoDotAndDotDot);
    std::sort(files.begin(), files.end(),
              [](const QFileInfo& a, const QFileInfo& b) { return a.fileName() < b.fileName(); });
    QStringList paths;
    for (const QFileInfo& file : files) {
        if (name.match(file.fileName()).hasMatch())
            paths.append(file.filePath());
    }
    return paths;
}

/* Returns a file name that no other call returns, and that sorts by time. */
QString newName()
{
    static qint64 last = 0;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    last = std::max(last + 1, qint64(std::chrono::nanoseconds(now).count()));
    return QStringLiteral("%1-%2").arg(last, 20, 10, QLatin1Char('0')).arg(::getpid());
}

/* Leaves out the last ones if they take too much space: strangers may send any number. */
QList<QStringList> truncatedToLimit(const QList<QStringList>& lists)
{
    qint64 size = headerSize;
    for (const QString& file : spoolFiles())
        size += QFileInfo(file).size();
    const auto end = std::find_if(lists.begin(), lists.end(), [&size](const QStringList& list) {
        size += 4 + SingleInstance::packedSize(list);
        return size > maxSize;
    });
    return lists.mid(0, static_cast<int>(end - lists.begin()));
}

bool remove(const QString& path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0;
}

} // namespace

QStringList spoolDirectories()
{
    QStringList directories = {configDirectory() + QLatin1String("/spool")};
    if (!runtimeDirectory().isEmpty()) { // mostly in memory: it helps where the disk is full
        const auto hash =
            QCryptographicHash::hash(configDirectory().toUtf8(), QCryptographicHash::Sha1);
        directories.append(runtimeDirectory() + QLatin1String("/HostKit/")
                           + QString::fromLatin1(hash.toHex()));
    }
    return directories;
}

bool hasSpooledLists()
{
    return !spoolFiles().isEmpty();
}

QString spool(const QList<QStringList>& lists)
{
    const QList<QStringList> fitting = truncatedToLimit(lists);
    const QStringList directories = spoolDirectories();
    QString path;
    bool isWritten = false;
    for (int i = 0; i < directories.size() && !isWritten && !fitting.isEmpty(); ++i) {
        path = directories.at(i) + QLatin1Char('/') + newName();
        isWritten = replaceFile(path, packed(fitting));
    }
    const int reason = fitting.isEmpty() ? EFBIG : errno;
    const auto lost = lists.size() - (isWritten ? fitting.size() : 0);
    if (lost > 0)
        qWarning("HostKit: %d lists of arguments are lost, which %s cannot take: %s",
                 static_cast<int>(lost), qPrintable(directories.first()),
                 std::strerror(isWritten ? EFBIG : reason));
    return isWritten ? path : QString();
}

bool unspool(const QString& name)
{
    return remove(name);
}

QList<QStringList> takeSpooledLists()
{
    QList<QStringList> all;
    for (const QString& file : spoolFiles()) {
        const QList<QStringList> lists = listsIn(file);
        if (lists.isEmpty())
            continue;
        if (remove(file))
            all += lists;
        else
            qWarning("HostKit: %s cannot be removed, so that it is not used: %s", qPrintable(file),
                     std::strerror(errno));
    }
    return all;
}

bool isSpooled(const QByteArray& id)
{
    for (const QString& file : spoolFiles()) {
        for (const QStringList& list : listsIn(file)) {
            if (opened(list).message.id == id)
                return true;
        }
    }
    return false;
}

} // namespace HostKit

#include "LaunchSpool.h"

#include "AnswerChannel.h"
#include "AtomicFile.h"
#include "Directories.h"
#include "MessageFormat.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDataStream>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

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

constexpr int digestSize = 20;
constexpr qint64 maxSize = 64 << 20; // bytes, of all files: a thousand of the longest hand-offs
constexpr auto streamVersion = QDataStream::Qt_5_0; // the same for all versions of the application
const QLatin1String suffix(".launches");

QByteArray digestOf(const QByteArray& content)
{
    return QCryptographicHash::hash("HostKit spool 1" + content, QCryptographicHash::Sha1);
}

QByteArray packed(const QList<LaunchMessage>& launches)
{
    QList<QStringList> lists;
    for (const LaunchMessage& launch : launches)
        lists.append(enveloped(launch));
    QByteArray content;
    QDataStream stream(&content, QIODevice::WriteOnly);
    stream.setVersion(streamVersion);
    stream << lists;
    return digestOf(content) + content;
}

/* Returns the lists, or nothing if the file is damaged or of another version. */
std::optional<QList<QStringList>> unpacked(const QByteArray& file)
{
    const QByteArray content = file.mid(digestSize);
    if (file.left(digestSize) != digestOf(content))
        return std::nullopt;
    QDataStream stream(content);
    stream.setVersion(streamVersion);
    QList<QStringList> lists;
    stream >> lists;
    return lists;
}

/* Returns the content of a file that only this user may write to. */
std::optional<QByteArray> contentOf(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    const UniqueFd file(::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status = {};
    if (!file.isValid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)
        || status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return std::nullopt;
    return readAll(file, static_cast<int>(maxSize));
}

QList<QStringList> listsIn(const QString& path)
{
    const auto content = contentOf(path);
    const auto lists = content ? unpacked(*content) : std::nullopt;
    if (lists)
        return *lists;
    const QByteArray name = QFile::encodeName(path);
    std::rename(name.constData(), (name + ".unusable").constData());
    qWarning("HostKit: launches that wait in %s are not used: it is %s", name.constData(),
             content ? "damaged" : "no private file of this user, or too large");
    return {};
}

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

/* Returns the files of launches that wait, oldest first. */
QFileInfoList spoolFiles()
{
    constexpr auto all = QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot;
    QFileInfoList files;
    for (const QString& directory : spoolDirectories()) {
        for (const QFileInfo& file : QDir(directory).entryInfoList(all)) {
            if (file.fileName().endsWith(suffix))
                files.append(file);
        }
    }
    std::sort(files.begin(), files.end(),
              [](const QFileInfo& a, const QFileInfo& b) { return a.fileName() < b.fileName(); });
    return files;
}

/* Returns a file name that no other call returns, and that sorts by time. */
QString newName()
{
    static qint64 last = 0;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    last = std::max(last + 1, qint64(std::chrono::nanoseconds(now).count()));
    return QStringLiteral("%1-%2").arg(last, 20, 10, QLatin1Char('0')).arg(::getpid()) + suffix;
}

/* Omits the last ones if they take too much space: strangers may send any number. */
QList<LaunchMessage> truncatedToLimit(const QList<LaunchMessage>& launches)
{
    qint64 size = digestSize;
    for (const QFileInfo& file : spoolFiles())
        size += file.size();
    const auto end =
        std::find_if(launches.begin(), launches.end(), [&size](const LaunchMessage& launch) {
            size += SingleInstance::packedSize(enveloped(launch));
            return size > maxSize;
        });
    return launches.mid(0, static_cast<int>(end - launches.begin()));
}

/* Returns the file that was written, or nothing; then errno tells why. */
QString write(const QByteArray& content)
{
    for (const QString& directory : spoolDirectories()) {
        QString path = directory + QLatin1Char('/') + newName();
        if (replaceFile(path, content))
            return path;
    }
    return {};
}

bool remove(const QString& path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0;
}

} // namespace

bool hasSpooled()
{
    return !spoolFiles().isEmpty();
}

QString spool(const QList<LaunchMessage>& launches)
{
    const QList<LaunchMessage> fitting = truncatedToLimit(launches);
    QString path = fitting.isEmpty() ? QString() : write(packed(fitting));
    const int reason = path.isEmpty() && !fitting.isEmpty() ? errno : EFBIG;
    const auto written = path.isEmpty() ? 0 : fitting.size();
    for (const LaunchMessage& launch : launches.mid(0, written)) {
        if (launch.channel)
            launch.channel->send({true, 0, {}});
    }
    if (written < launches.size())
        qWarning("HostKit: %d launches are lost, since they cannot be kept in %s: %s",
                 static_cast<int>(launches.size() - written), qPrintable(configDirectory()),
                 std::strerror(reason));
    return path;
}

bool unspool(const QString& name)
{
    return remove(name);
}

QList<LaunchMessage> takeSpooled()
{
    QList<LaunchMessage> all;
    for (const QFileInfo& file : spoolFiles()) {
        QList<LaunchMessage> launches;
        for (const QStringList& list : listsIn(file.filePath())) {
            launches.append(opened(list).message);
            connectBack(launches.last()); // before the file goes: a kill between the two is noticed
        }
        if (launches.isEmpty())
            continue;
        if (remove(file.filePath()))
            all += launches;
        else if (errno != ENOENT) // else its launch took it back
            qWarning("HostKit: %s cannot be removed, so that it is not used: %s",
                     qPrintable(file.filePath()), std::strerror(errno));
    }
    return all;
}

} // namespace HostKit

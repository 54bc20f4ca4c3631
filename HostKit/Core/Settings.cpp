#include <Core/Settings.h>

#include "ApplicationFolder.h"

#include <TrvUtilities/Logging.h>

#include <QtCore/QFile>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

/*
 * One small file for each value: <application folder>/<group>/<key>, readable by this user alone.
 *
 * A write goes to a temporary file that is then renamed over the old one, so that a reader sees the
 * old value or the new one, never a part, and a crash leaves one of them. Nothing is cached and
 * nothing locked: each read is of the file as it is at that moment, whichever process wrote it.
 * Nothing is synced to the disk either: the values are of no use after a power failure, and waiting
 * for the disk would hold up every start.
 */

namespace {

constexpr int longestValue = 64 * 1024;

QString pathOf(const QString& group, const QString& key)
{
    return HostKit::applicationFolder() + QLatin1Char('/') + HostKit::asFileName(group)
        + QLatin1Char('/') + HostKit::asFileName(key);
}

class Descriptor {
public:
    explicit Descriptor(int descriptor)
        : value(descriptor)
    {
    }
    ~Descriptor()
    {
        if (value >= 0)
            ::close(value);
    }
    Q_DISABLE_COPY_MOVE(Descriptor)
    operator int() const { return value; }

private:
    const int value;
};

/* Returns what the file holds, or nothing if it cannot be read or holds no value of ours. */
std::optional<QByteArray> readFile(const QByteArray& path)
{
    const Descriptor file(::open(path.constData(), O_RDONLY | O_CLOEXEC));
    if (file < 0)
        return std::nullopt;
    std::array<char, 4096> block;
    QByteArray content;
    for (;;) {
        const ssize_t got = ::read(file, block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 || content.size() + got > longestValue)
            return std::nullopt;
        content.append(block.data(), static_cast<int>(got));
        if (got < static_cast<ssize_t>(block.size()))
            return content;
    }
}

bool writeAll(int file, const QByteArray& content)
{
    int written = 0;
    while (written < content.size()) {
        const ssize_t put = ::write(file, content.constData() + written,
                                    static_cast<size_t>(content.size() - written));
        if (put < 0 && errno != EINTR)
            return false;
        written += static_cast<int>(std::max<ssize_t>(put, 0));
    }
    return true;
}

/* Returns whether the file holds the content now; else errno tells why not. */
bool replaceFile(const QString& path, const QByteArray& content)
{
    const QByteArray target = QFile::encodeName(path);
    QByteArray temporary = target + ".XXXXXX";
    int opened = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (opened < 0 && errno == ENOENT && HostKit::createFolderOf(path)) {
        temporary = target + ".XXXXXX";
        opened = ::mkostemp(temporary.data(), O_CLOEXEC);
    }
    const Descriptor file(opened);
    if (file < 0)
        return false;
    if (writeAll(file, content) && std::rename(temporary.constData(), target.constData()) == 0)
        return true;
    const int reason = errno;
    ::unlink(temporary.constData());
    errno = reason;
    return false;
}

void reportOnce(const QString& path, int reason)
{
    static std::atomic_flag reported = ATOMIC_FLAG_INIT;
    if (torvane::GetLoggerLevel() > torvane::LogLevel::Warning)
        return;
    const auto& sink = torvane::GetLoggerDelegate();
    if (sink && !reported.test_and_set()) {
        const QString line = QStringLiteral("Settings: cannot write %1: %2")
                                 .arg(path, QString::fromLocal8Bit(std::strerror(reason)));
        sink(torvane::LogLevel::Warning, line.toStdWString());
    }
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
    const auto content = readFile(QFile::encodeName(pathOf(group, key)));
    return content ? QVariant(QString::fromUtf8(*content)) : defaultValue;
}

void Settings::setValue(const QString& group, const QString& key, const QVariant& value,
                        bool /*flag*/)
{
    const QString path = pathOf(group, key);
    if (!replaceFile(path, value.toString().toUtf8()))
        reportOnce(path, errno);
}

} // namespace Core

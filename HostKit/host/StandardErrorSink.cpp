#include <HostKit/Log.h>

#include "UniqueFd.h"

#include <QtCore/QDateTime>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <mutex>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

/* A sink that never waits. */

namespace HostKit {

namespace {

const char* nameOf(LogLevel level)
{
    static constexpr std::array names = {"trace", "debug", "info", "warning", "error", "fatal"};
    const auto index = static_cast<size_t>(level);
    return index < names.size() ? names[index] : "?";
}

QString withoutControls(const QString& text)
{
    QString clean;
    for (const QChar c : text) {
        const QChar::Category category = c.category();
        if (category == QChar::Other_Control || category == QChar::Other_Format
            || category == QChar::Separator_Line || category == QChar::Separator_Paragraph)
            clean += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            clean += c;
    }
    return clean;
}

/*
 * Returns how many bytes of \a text standard error took at once. It may be a pipe that nobody
 * reads: a thread that writes to a full one hangs. If a pipe has any room, it takes PIPE_BUF bytes.
 */
int writeAtOnce(const QByteArray& text)
{
    // A write to a terminal may block, but not by a non-blocking descriptor of our own.
    constexpr int flags = O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const UniqueFd terminal(::isatty(STDERR_FILENO) != 0 ? ::open("/proc/self/fd/2", flags) : -1);
    const int standardError = terminal.isValid() ? terminal.get() : STDERR_FILENO;
    int written = 0;
    while (written < text.size()) {
        pollfd file = {standardError, POLLOUT, 0};
        if (::poll(&file, 1, 0) != 1 || file.revents != POLLOUT)
            break;
        const ssize_t put = ::write(standardError, text.constData() + written,
                                    std::min<size_t>(size_t(text.size() - written), PIPE_BUF));
        if (put < 0 && errno != EINTR)
            break;
        written += static_cast<int>(std::max<ssize_t>(put, 0));
    }
    return written;
}

} // namespace

void writeToStandardError(LogLevel level, const QString& text)
{
    static std::mutex mutex; // two threads must not count on the same room
    static int dropped = 0;
    static bool isCut = false; // the last line was written in part
    const std::lock_guard<std::mutex> lock(mutex);
    const QString time =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    const QString gap = dropped > 0
        ? QStringLiteral("(%1 lines before this were dropped) ").arg(dropped)
        : QString();
    const QByteArray line = QStringLiteral("%1%2 %3: %4%5\n")
                                .arg(QLatin1String(isCut ? "\n" : ""), time,
                                     QLatin1String(nameOf(level)), gap, withoutControls(text))
                                .toUtf8();
    const int written = writeAtOnce(line);
    dropped = written == line.size() ? 0 : dropped + 1;
    isCut = written == line.size() ? false : isCut || written > 0;
}

} // namespace HostKit

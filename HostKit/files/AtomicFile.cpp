#include "AtomicFile.h"

#include "Directories.h"

#include <QtCore/QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace HostKit {

namespace {

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

} // namespace

std::optional<QByteArray> readAll(const UniqueFd& file, int maxSize)
{
    std::array<char, 4096> block;
    QByteArray content;
    for (;;) {
        const ssize_t got = ::read(file.get(), block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 || content.size() + got > maxSize)
            return std::nullopt;
        content.append(block.data(), static_cast<int>(got));
        if (got < static_cast<ssize_t>(block.size()))
            return content;
    }
}

bool replaceFile(const QString& path, const QByteArray& content)
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && rlim_t(content.size()) > limit.rlim_cur) {
        errno = EFBIG; // to write would end the process by a signal
        return false;
    }
    const QByteArray target = QFile::encodeName(path);
    QByteArray temporary = target + ".XXXXXX";
    int opened = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (opened < 0 && errno == ENOENT && createParentOf(path)) {
        temporary = target + ".XXXXXX";
        opened = ::mkostemp(temporary.data(), O_CLOEXEC);
    }
    const UniqueFd file(opened);
    if (!file.isValid())
        return false;
    if (writeAll(file.get(), content)
        && std::rename(temporary.constData(), target.constData()) == 0)
        return true;
    const int reason = errno;
    ::unlink(temporary.constData());
    errno = reason;
    return false;
}

} // namespace HostKit

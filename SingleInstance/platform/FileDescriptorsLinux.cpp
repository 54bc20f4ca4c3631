#include "FileDescriptors.h"

#include <algorithm>
#include <memory>

#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace SingleInstance {

namespace {

int countEntries(const char* path)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path), ::closedir);
    int count = 0;
    while (directory && ::readdir(directory.get()))
        ++count;
    return std::max(0, count - 3); // not ".", "..", and the directory itself
}

/* Since Linux 6.2 the size of the directory is the number of open files. */
int countOpenFiles()
{
    constexpr auto path = "/proc/self/fd";
    struct stat status = {};
    const bool isKnown = ::stat(path, &status) == 0 && status.st_size > 0;
    return isKnown ? static_cast<int>(status.st_size) : countEntries(path);
}

} // namespace

int freeFileDescriptors()
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return -1;
    return std::max(0, static_cast<int>(limit.rlim_cur) - countOpenFiles());
}

void closeSocket(std::intptr_t socket)
{
    ::close(static_cast<int>(socket));
}

} // namespace SingleInstance

#include "System.h"

#include <QtCore/QDir>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

std::set<int> refusedFamilies;

namespace {

std::mutex accepting;
std::atomic<bool> acceptFails = false;

} // namespace

/* These take the place of the C library's, for Qt as well. */
extern "C" __attribute__((visibility("default"))) int accept4(int socket, sockaddr* address,
                                                              socklen_t* length, int flags)
{
    const std::lock_guard<std::mutex> lock(accepting);
    errno = EMFILE;
    return acceptFails ? -1 : int(::syscall(SYS_accept4, socket, address, length, flags));
}

extern "C" __attribute__((visibility("default"))) int bind(int socket, const sockaddr* address,
                                                           socklen_t length) noexcept
{
    errno = EADDRNOTAVAIL;
    return refusedFamilies.count(address->sa_family) > 0
        ? -1
        : static_cast<int>(::syscall(SYS_bind, socket, address, length));
}

void failAccepting(bool fails)
{
    acceptFails = fails;
}

HeldAccepting::HeldAccepting()
{
    accepting.lock();
}

HeldAccepting::~HeldAccepting()
{
    accepting.unlock();
}

int openFiles()
{
    return int(QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size());
}

void limitFiles(int count)
{
    const rlimit limit = {rlim_t(count), 2200};
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

std::vector<int> openDescriptors(int first, int count)
{
    std::vector<int> opened;
    for (int i = 0; i < count; ++i)
        opened.push_back(::fcntl(0, F_DUPFD, first));
    return opened;
}

int exitCodeOfChild(const std::function<void()>& function)
{
    const pid_t child = ::fork();
    if (child == 0) {
        function();
        ::_exit(2);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

size_t usedMemory()
{
    return ::mallinfo2().uordblks;
}

std::chrono::milliseconds processorTime()
{
    return std::chrono::milliseconds(std::clock() / (CLOCKS_PER_SEC / 1000));
}

#include "RefusedBind.h"

#include <cerrno>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

std::set<int> RefusedBind::families;

/* Takes the place of the C library's, for Qt as well. */
extern "C" __attribute__((visibility("default"))) int bind(int socket, const sockaddr* address,
                                                           socklen_t length) noexcept
{
    if (RefusedBind::families.count(address->sa_family) > 0) {
        errno = EADDRNOTAVAIL;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_bind, socket, address, length));
}

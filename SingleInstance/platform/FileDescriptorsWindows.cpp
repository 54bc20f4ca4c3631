#include "FileDescriptors.h"

#include <winsock2.h>

namespace SingleInstance {

/* Files and connections are handles, which are limited only by memory. */
int freeFileDescriptors()
{
    return -1;
}

void closeSocket(std::intptr_t socket)
{
    ::closesocket(static_cast<SOCKET>(socket));
}

} // namespace SingleInstance

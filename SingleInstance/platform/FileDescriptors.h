#pragma once

#include <cstdint>

namespace SingleInstance {

/*!
    Returns how many more files and connections this process may open, or -1 if it has no limit.

    Takes a microsecond; on older kernels as long as listing all open files. Another thread may open
    some at the same moment. Any thread.
*/
int freeFileDescriptors();

/*! Closes \a socket. Any thread. */
void closeSocket(std::intptr_t socket);

} // namespace SingleInstance

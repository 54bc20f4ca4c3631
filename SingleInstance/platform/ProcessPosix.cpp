#include "DesktopWindows.h"

#include <unistd.h>

DWORD GetCurrentProcessId()
{
    return static_cast<DWORD>(::getpid());
}

DWORD GetCurrentThreadId()
{
    return static_cast<DWORD>(::gettid());
}

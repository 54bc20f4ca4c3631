#include "System.h"

#include <windows.h>

#include <malloc.h>

std::set<int> refusedFamilies;

void failAccepting(bool /*fails*/) { }

HeldAccepting::HeldAccepting() = default;
HeldAccepting::~HeldAccepting() = default;

int openFiles()
{
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return int(count);
}

void limitFiles(int /*count*/) { }

std::vector<int> openDescriptors(int /*first*/, int /*count*/)
{
    return {};
}

int exitCodeOfChild(const std::function<void()>& /*function*/)
{
    return -1;
}

size_t usedMemory()
{
    size_t used = 0;
    _HEAPINFO entry = {};
    while (::_heapwalk(&entry) == _HEAPOK)
        used += entry._useflag == _USEDENTRY ? entry._size : 0;
    return used;
}

std::chrono::milliseconds processorTime()
{
    FILETIME begun, ended, inKernel, inProgram; // in units of 100 ns
    ::GetProcessTimes(::GetCurrentProcess(), &begun, &ended, &inKernel, &inProgram);
    return std::chrono::milliseconds((inKernel.dwLowDateTime + inProgram.dwLowDateTime) / 10000);
}

#pragma once

#include <DesktopWindows.h>

#include <vector>

/*! A desktop of windows that a test sets up, in place of the platform layer. */
namespace ScriptedDesktop {

struct Window {
    bool gone; // its owner cannot be told any more
    DWORD owner;
};

struct Visit {
    int walks = 0;
    int visited = 0;
    std::vector<HWND> activated; // by position in the list, from 0
};

/*! Sets up \a windows, topmost first, that grant or refuse activation, and starts counting. */
void reset(const std::vector<Window>& windows, BOOL grants);

const Visit& visit();

} // namespace ScriptedDesktop

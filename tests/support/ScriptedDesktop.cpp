#include "ScriptedDesktop.h"

namespace {

const char desktop = 0;
std::vector<ScriptedDesktop::Window> windows;
BOOL grantsActivation = TRUE;
ScriptedDesktop::Visit counted;

} // namespace

namespace ScriptedDesktop {

void reset(const std::vector<Window>& newWindows, BOOL grants)
{
    windows = newWindows;
    grantsActivation = grants;
    counted = {};
}

const Visit& visit()
{
    return counted;
}

} // namespace ScriptedDesktop

DWORD GetCurrentProcessId()
{
    return 4711;
}

DWORD GetCurrentThreadId()
{
    return 4712;
}

HDESK GetThreadDesktop(DWORD threadId)
{
    return threadId == GetCurrentThreadId() ? &desktop : nullptr;
}

BOOL EnumDesktopWindows(HDESK desk, WNDENUMPROC callback, LPARAM context)
{
    ++counted.walks;
    for (HWND window = 0; desk == &desktop && window < windows.size(); ++window) {
        ++counted.visited;
        if (!callback(window, context))
            break;
    }
    return FALSE;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* processId)
{
    if (!windows[window].gone)
        *processId = windows[window].owner;
    return 0;
}

BOOL SetForegroundWindow(HWND window)
{
    counted.activated.push_back(window);
    return grantsActivation;
}

#include "Foreground.h"

#include "DesktopWindows.h"
#include "SettingsSlot.h"

namespace SingleInstance {

namespace {

/* Called for each window, topmost first. Returns whether to continue. */
BOOL CALLBACK activateIfMasterWindow(HWND window, LPARAM context)
{
    const auto masterPid = static_cast<DWORD>(context);
    DWORD owner = ~masterPid; // never matches; it stays if the window is gone
    GetWindowThreadProcessId(window, &owner);
    if (owner != masterPid)
        return TRUE;
    SetForegroundWindow(window);
    return FALSE;
}

} // namespace

void bringMasterToForeground()
{
    const DWORD masterPid = readMasterPid();
    const HDESK desktop = GetThreadDesktop(GetCurrentThreadId());
    EnumDesktopWindows(desktop, activateIfMasterWindow, static_cast<LPARAM>(masterPid));
}

} // namespace SingleInstance

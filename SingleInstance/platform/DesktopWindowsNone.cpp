#include "DesktopWindows.h"

/*
 * No windowing system: there is no window to bring forward.
 */

HDESK GetThreadDesktop(DWORD /*threadId*/)
{
    return nullptr;
}

BOOL EnumDesktopWindows(HDESK /*desktop*/, WNDENUMPROC /*callback*/, LPARAM /*context*/)
{
    return FALSE;
}

DWORD GetWindowThreadProcessId(HWND /*window*/, DWORD* /*processId*/)
{
    return 0;
}

BOOL SetForegroundWindow(HWND /*window*/)
{
    return FALSE;
}

#pragma once

/*
 * The desktop and process operations that the library calls. They have the names and types of the
 * Windows API. On Windows this header only includes the system's own. Elsewhere the functions are
 * our own.
 */

#ifdef _WIN32

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN // no sockets of another version
#endif
#include <windows.h>

#else

#include <cstdint>

using BOOL = int;
using DWORD = std::uint32_t;
using LPARAM = std::intptr_t;
using HDESK = const void*; // opaque; nobody closes it
using HWND = std::uintptr_t; // as wide as a pointer, but a number here
using WNDENUMPROC = BOOL (*)(HWND window, LPARAM context);

#define CALLBACK
constexpr BOOL TRUE = 1;
constexpr BOOL FALSE = 0;

/*! Returns the id of this process. Any thread. */
DWORD GetCurrentProcessId();

/*! Returns the id of the calling thread. */
DWORD GetCurrentThreadId();

/*! Returns the desktop of a thread. All threads have the same; nobody owns it. */
HDESK GetThreadDesktop(DWORD threadId);

/*!
    Calls \a callback in the calling thread with each top-level window and \a context, topmost
    first, until it returns FALSE. Returns whether it visited all windows of a desktop that
    answered. Blocks for two seconds at most, together with the two functions below.
*/
BOOL EnumDesktopWindows(HDESK desktop, WNDENUMPROC callback, LPARAM context);

/*!
    Stores the id of the process that owns \a window in \a processId, unless it is unknown. Returns
    0: here windows belong to processes, not to threads. Call it from the callback of
    EnumDesktopWindows(), with a window that it passed.
*/
DWORD GetWindowThreadProcessId(HWND window, DWORD* processId);

/*!
    Asks the window manager to activate \a window and to put it on top. Returns whether the request
    was sent. Call it from the callback of EnumDesktopWindows(), with a window that it passed.
*/
BOOL SetForegroundWindow(HWND window);

#endif

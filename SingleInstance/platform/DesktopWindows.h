#pragma once

/*
 * The desktop and process operations that the library calls, under the names and with the shapes
 * they have on Windows. There this is the system's own header; elsewhere the functions are ours.
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

/*! Returns the desktop to which a thread belongs. It is the same for all, and not owned. */
HDESK GetThreadDesktop(DWORD threadId);

/*!
    Calls \a callback with each top-level window and \a context, topmost first, in the calling
    thread, until it returns FALSE. Returns whether it went through all windows of a desktop that
    could be asked. Blocks for two seconds at most, the two functions below included.
*/
BOOL EnumDesktopWindows(HDESK desktop, WNDENUMPROC callback, LPARAM context);

/*!
    Stores the id of the process that owns \a window in \a processId, and leaves that alone if
    nobody can tell. Returns 0: window owners are processes here, not threads. To be called from the
    callback of a walk, with a window of that walk.
*/
DWORD GetWindowThreadProcessId(HWND window, DWORD* processId);

/*!
    Asks for \a window to be activated and on top. Returns whether the request was sent. To be
    called from the callback of a walk, with a window of that walk.
*/
BOOL SetForegroundWindow(HWND window);

#endif

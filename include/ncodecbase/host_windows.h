// Windows that a host hands to the video and layered renders (as their HWND
// argument): a headless memory window, an X11 window made here, or a host's
// own X11 window wrapped so the renders can draw into it.
//
// A memory window is off-screen: the renders draw into its client pixels and
// the host reads them back with SnapshotClient. An X11 window shows them.
//
// Thread safety: every function may be called from any thread. A destroyed
// handle fails cleanly; messages still in dispatch on other threads finish
// before DestroyWindow frees the window.
#pragma once

#include "ncodecbase/export.h"
#include "ncodecbase/win_types.h"

// Xlib's Display, declared so this header does not pull in Xlib.
struct _XDisplay;

namespace nplat {

// A headless window whose client area lies at (x, y) on the screen with the
// given size (both at least 1). Visible, uncovered, black. Null on failure.
NCB_API HWND CreateMemoryWindow(int x, int y, int width, int height);
// A top-level X11 window with a client area of width x height at (x, y) on
// `displayName` (null: $DISPLAY), mapped, with its own connection and pump
// thread. Null without X11 support, without a display, or on failure.
// From then on the screen's monitors are the display's (RandR monitors, or
// the whole root window), read again on every RandR screen change.
NCB_API HWND CreateX11Window(const char* displayName, int x, int y, int width, int height,
                             const char* title);
// Wraps a window the host made: the layer opens its own connection to the
// same display, listens for the window's structure, exposure and visibility
// events and draws into it, and never destroys it. Null as above.
NCB_API HWND WrapX11Window(_XDisplay* display, unsigned long x11Window);
// The X window id behind an X11 window (0 for other kinds or a dead handle).
NCB_API unsigned long GetX11WindowId(HWND window);
// Stops the pump thread and frees the window (an X11 window made by
// CreateX11Window is destroyed; a wrapped one is left to its host). 0 for a
// dead handle.
NCB_API BOOL DestroyWindow(HWND window);

// What a user would see in the client area, as 0x00RRGGBB words: the client
// pixels with the keyed overlay shown where they equal its colour key.
// `rgb32` holds the client size (GetClientRect); 1, or 0 for a dead window.
NCB_API int SnapshotClient(HWND window, void* rgb32, int pitchBytes);

}  // namespace nplat

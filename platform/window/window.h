// Windows-shaped windows for the renders: window procedures that can be
// replaced and chained, synchronous messages, the client rectangle and its
// place on the screen, monitors and system metrics, and the client pixels
// that DirectDraw and the graphics device draw into.
//
// Why this shape: the video render subclasses its display window
// (SetWindowLongPtrA with GWL_WNDPROC), reads its geometry with the Win32
// calls and reacts to WM_MOVE/WM_SIZE/WM_PAINT/WM_DISPLAYCHANGE, so those
// calls are kept as they are. Two kinds of window stand behind an HWND: a
// memory window (headless; a test moves, sizes, hides and covers it and reads
// back what a user would see) and an X11 window (created here or wrapped
// around a host's window, with a pump thread turning X events into messages).
//
// Not here: message queues, PostMessage, child windows, non-client areas,
// window classes, input, regions. Messages are always sent, never queued.
//
// Lock order (outermost first). Each window has
//   1. its dispatch lock: a recursive mutex held while a message travels
//      through the procedure chain (SendMessageA). A message sent from inside
//      a procedure re-enters it; a message from another thread waits until the
//      message already inside has left, which is what WM_NULL is for.
//   2. its procedure lock: guards the current procedure only. It is never held
//      while a procedure runs, so a render may hold its own object lock and a
//      process-wide list lock and still replace the procedure (render object
//      lock -> render list lock -> window procedure lock) while the window's
//      thread is inside DisplayWindowProc waiting for that object lock.
//   3. its geometry and pixel locks: leaves, taken for a few field copies or
//      one pixel transfer, never while calling out.
// So: never call SendMessageA while holding a lock that a window procedure
// may take; everything else in this header may be called under any lock.
//
// Thread safety: every function may be called from any thread. Handles are
// checked against the live windows, so a destroyed HWND fails cleanly
// (IsWindow 0, other calls their failure result); a message already being
// dispatched keeps its window alive until it returns.
#pragma once

#include <cstdint>

#include "ncodecbase/export.h"
#include "ncodecbase/host_windows.h"
#include "ncodecbase/win_types.h"

namespace nplat {

// ---- messages and constants ----

constexpr UINT WM_NULL = 0x0000;
constexpr UINT WM_MOVE = 0x0003;   // lParam: client origin on the screen, x low, y high
constexpr UINT WM_SIZE = 0x0005;   // lParam: client width low, height high
constexpr UINT WM_PAINT = 0x000F;  // the client area needs drawing again
constexpr UINT WM_ERASEBKGND = 0x0014;
constexpr UINT WM_DISPLAYCHANGE = 0x007E;  // wParam bits per pixel, lParam screen size

constexpr WPARAM SIZE_RESTORED = 0;

constexpr int GWL_WNDPROC = -4;
constexpr int GWLP_WNDPROC = -4;
constexpr int GWLP_USERDATA = -21;

constexpr int SM_CXSCREEN = 0;
constexpr int SM_CYSCREEN = 1;
constexpr int SM_XVIRTUALSCREEN = 76;
constexpr int SM_YVIRTUALSCREEN = 77;
constexpr int SM_CXVIRTUALSCREEN = 78;
constexpr int SM_CYVIRTUALSCREEN = 79;
constexpr int SM_CMONITORS = 80;

constexpr DWORD MONITORINFOF_PRIMARY = 1;
constexpr DWORD MONITOR_DEFAULTTONULL = 0;
constexpr DWORD MONITOR_DEFAULTTOPRIMARY = 1;
constexpr DWORD MONITOR_DEFAULTTONEAREST = 2;

struct MONITORINFO {
    DWORD cbSize;  // sizeof(MONITORINFO)
    RECT rcMonitor;
    RECT rcWork;
    DWORD dwFlags;
};
static_assert(sizeof(MONITORINFO) == 40);

constexpr LPARAM MAKELPARAM(int low, int high) {
    return static_cast<LPARAM>(static_cast<uint32_t>((low & 0xFFFF) | ((high & 0xFFFF) << 16)));
}
constexpr int GET_X_LPARAM(LPARAM lp) { return static_cast<int16_t>(lp & 0xFFFF); }
constexpr int GET_Y_LPARAM(LPARAM lp) { return static_cast<int16_t>((lp >> 16) & 0xFFFF); }

using MONITORENUMPROC = BOOL (*)(HMONITOR monitor, HDC dc, RECT* monitorRect, LPARAM data);

// ---- window procedures and messages ----

// GWL_WNDPROC: installs `value` (a WNDPROC) and returns the previous
// procedure. GWLP_USERDATA: stores a pointer-wide word, returns the old one.
// 0 for a dead window, an unknown index or a null procedure.
LONG_PTR SetWindowLongPtrA(HWND window, int index, LONG_PTR value);
inline LONG_PTR SetWindowLongA(HWND window, int index, LONG_PTR value) {
    return SetWindowLongPtrA(window, index, value);
}
LONG_PTR GetWindowLongPtrA(HWND window, int index);
// Calls `proc` (DefWindowProcA when null) with the message.
LRESULT CallWindowProcA(WNDPROC proc, HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// The procedure every window starts with: 0 for everything (WM_ERASEBKGND: 1,
// the background counts as erased).
LRESULT DefWindowProcA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Runs the message through the current procedure on the caller's thread and
// returns its result; 0 for a dead window. See the lock order above.
LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL IsWindow(HWND window);
BOOL IsWindowVisible(HWND window);

// ---- geometry ----

BOOL GetClientRect(HWND window, RECT* rect);  // {0, 0, width, height}
BOOL ClientToScreen(HWND window, POINT* point);
BOOL ScreenToClient(HWND window, POINT* point);
// The overlap of a and b; an empty overlap gives 0 and an all-zero rect.
BOOL IntersectRect(RECT* out, const RECT* a, const RECT* b);
BOOL IsRectEmpty(const RECT* rect);
int GetSystemMetrics(int index);
// The monitor holding the largest part of the client area; for none, by
// `flags`: null, the primary, or the nearest.
HMONITOR MonitorFromWindow(HWND window, DWORD flags);
HMONITOR MonitorFromPoint(POINT point, DWORD flags);
// Calls `proc` for each monitor (intersected with `clip` when given, in
// screen coordinates; `dc` must be null) until it returns 0.
BOOL EnumDisplayMonitors(HDC dc, const RECT* clip, MONITORENUMPROC proc, LPARAM data);
// cbSize must be at least sizeof(MONITORINFO); 0 for a monitor that is gone.
BOOL GetMonitorInfoA(HMONITOR monitor, MONITORINFO* info);

// ---- creation ----

// CreateMemoryWindow, CreateX11Window, WrapX11Window, GetX11WindowId,
// DestroyWindow and SnapshotClient are what hosts call: they are declared in
// the public header below.

// ---- client pixels ----

// The pixel layout the screen (and so every window's client area and every
// DirectDraw primary surface) stores. RGB32 is 0x00RRGGBB in a little-endian
// word; RGB24 is B, G, R bytes; RGB565 and RGB555 are little-endian words.
enum class ScreenFormat { kRGB32, kRGB565, kRGB555, kRGB24 };
int ScreenFormatBytes(ScreenFormat format);
// Converts one 0x00RRGGBB colour into the format's stored value and back
// (16-bit expansion replicates the high bits into the low ones).
uint32_t ScreenValueFromRGB(ScreenFormat format, uint32_t rgb);
uint32_t RGBFromScreenValue(ScreenFormat format, uint32_t value);

// Copies a 32-bit 0x00RRGGBB picture into the client area at `clientDst`
// (the picture is clientDst's size; the part outside the client area, hidden
// or covered is skipped), converting to the screen format, then shows it
// (X11: scan-out). 1, or 0 for a dead window, a null picture or no memory.
int PutClientPixels(HWND window, const RECT& clientDst, const void* rgb32, int pitchBytes);
// SnapshotClient (what a user would see) is in the public header.

// Direct access for DirectDraw: the client pixels in the screen format, with
// the window's pixel lock held between Lock and Unlock. Unlock shows the
// changed rectangle (null: nothing changed). A writer leaves alone what the
// user cannot see, as a clipped blit would: everything while `visible` is
// false, and the `covered` rectangle. Call nothing else of this layer for the
// same window in between.
struct ClientPixels {
    uint8_t* bits;
    int pitch;
    int width;
    int height;
    ScreenFormat format;
    bool visible;
    RECT covered;  // empty when nothing covers the client area
};
int LockClientPixels(HWND window, ClientPixels* out);
void UnlockClientPixels(HWND window, const RECT* changed);

// The overlay shown over the client area: `rgb32` (dstRect's size, 0x00RRGGBB)
// at `dstRect` in client coordinates, visible where the client pixel equals
// `key` (a stored value of the screen format) or everywhere when `keyed` is
// false. The picture is copied. Null `rgb32` hides the overlay. 1 or 0.
int SetClientOverlay(HWND window, const RECT& dstRect, const void* rgb32, int pitchBytes,
                     bool keyed, uint32_t key);

// ---- screen and memory-window test controls ----

// Replaces the monitors of the screen (1..8 rectangles in screen
// coordinates, primary index into them). Default: one 1920x1080 primary at
// 0,0. Existing HMONITOR values stay valid pointers but refer to the new
// list by position. Does not send WM_DISPLAYCHANGE: use BroadcastDisplayChange.
int SetScreenMonitors(const RECT* rects, int count, int primary);
void ResetScreen();  // default monitors and format, headless
// Changes the stored format of the screen; every window's client pixels are
// cleared to black in the new format.
void SetScreenFormat(ScreenFormat format);
ScreenFormat GetScreenFormat();
// True once an X11 window exists in this process (DirectDraw then offers
// what an X server offers: no FOURCC overlays).
bool ScreenIsX11();
// Sends WM_DISPLAYCHANGE to every live window (on the caller's thread).
void BroadcastDisplayChange();

// Whether X11 windows created from now on may scan out through shared
// memory (default true); false exercises the plain XPutImage path.
void SetX11SharedMemoryAllowed(bool allowed);

// Memory windows only (0 for other kinds): each change sends the messages
// Windows would send, on the caller's thread: WM_MOVE for a new position,
// WM_SIZE for a new size (the client pixels keep their top-left part), and
// WM_PAINT when hidden or covered parts come back into view.
int MoveMemoryWindow(HWND window, int x, int y);
int ResizeMemoryWindow(HWND window, int width, int height);
int SetMemoryWindowVisible(HWND window, bool visible);
// `coveredClient`: the part of the client area another window covers (null
// or empty: nothing covers it).
int SetMemoryWindowCovered(HWND window, const RECT* coveredClient);

}  // namespace nplat

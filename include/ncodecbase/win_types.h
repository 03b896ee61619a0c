// The Windows types that the library's interface was written against, in
// namespace nplat so they never collide with a host's own definitions.
// HANDLE is an event made by NCreateEvent (host_events.h); HWND is a window of
// the platform layer (a memory window or an X11 window).
#pragma once

#include <cstdint>

namespace nplat {

class Event;
class Window;
class Module;
class Monitor;
class DeviceContext;
class GdiObject;

using HANDLE = Event*;
using HWND = Window*;
using HMODULE = Module*;     // a loaded dynamic library (LoadLibrary)
using HMONITOR = Monitor*;   // one display of the platform layer's screen
using HDC = DeviceContext*;  // a GDI-style drawing context (platform/gdi)
using HGDIOBJ = GdiObject*;  // a font or bitmap selected into a context
using HFONT = GdiObject*;
using HBITMAP = GdiObject*;
using FARPROC = void (*)();  // an exported function: cast it to its real type
using HRESULT = int32_t;
using DWORD = uint32_t;
using BOOL = int;
using WCHAR = char16_t;     // UTF-16 code unit, as on Windows (wchar_t is 32-bit here)
using COLORREF = uint32_t;  // 0x00BBGGRR
using UINT = uint32_t;
using LONG = int32_t;
using LONG_PTR = intptr_t;  // pointer-wide, as on 64-bit Windows
using WPARAM = uintptr_t;
using LPARAM = intptr_t;
using LRESULT = intptr_t;
using WNDPROC = LRESULT (*)(HWND, UINT, WPARAM, LPARAM);

struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);

struct RECT {
    int32_t left, top, right, bottom;
};
static_assert(sizeof(RECT) == 16);

struct POINT {
    int32_t x, y;
};

struct SIZE {
    int32_t cx, cy;
};

constexpr DWORD INFINITE = 0xFFFFFFFFu;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;
constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

constexpr DWORD STILL_ACTIVE = 259;  // exit code of a thread that still runs

// Thread priorities as Windows numbers them; the platform layer maps them to
// nice values.
constexpr int THREAD_PRIORITY_IDLE = -15;
constexpr int THREAD_PRIORITY_LOWEST = -2;
constexpr int THREAD_PRIORITY_BELOW_NORMAL = -1;
constexpr int THREAD_PRIORITY_NORMAL = 0;
constexpr int THREAD_PRIORITY_ABOVE_NORMAL = 1;
constexpr int THREAD_PRIORITY_HIGHEST = 2;
constexpr int THREAD_PRIORITY_TIME_CRITICAL = 15;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);

// Four characters packed as the little-endian word that names a pixel format.
constexpr DWORD MAKEFOURCC(char a, char b, char c, char d) {
    return static_cast<DWORD>(static_cast<uint8_t>(a)) |
           static_cast<DWORD>(static_cast<uint8_t>(b)) << 8 |
           static_cast<DWORD>(static_cast<uint8_t>(c)) << 16 |
           static_cast<DWORD>(static_cast<uint8_t>(d)) << 24;
}

constexpr uint32_t CP_ACP = 0;
constexpr uint32_t CP_UTF8 = 65001;

inline constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
inline constexpr bool FAILED(HRESULT hr) { return hr < 0; }

}  // namespace nplat

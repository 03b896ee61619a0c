// The screen: its monitors, its stored pixel format, system metrics, and the
// geometry calls that place a client area on it.
//
// Monitors are a fixed table of up to eight rectangles; an HMONITOR points at
// a static slot, so a handle never dangles, and a slot past the current
// count is simply "gone". The X11 kind refreshes the table from RandR.
//
// Not here: work areas smaller than the monitor (rcWork equals rcMonitor),
// DPI, virtual-desktop arrangements other than the rectangles given.
#include <algorithm>
#include <mutex>

#include "platform/window/window_internal.h"

namespace nplat {

class Monitor {
  public:
    int index;
};

namespace {

constexpr int kMaxMonitors = 8;

Monitor g_slots[kMaxMonitors] = {{0}, {1}, {2}, {3}, {4}, {5}, {6}, {7}};

struct Screen {
    RECT rects[kMaxMonitors] = {{0, 0, 1920, 1080}};
    int count = 1;
    int primary = 0;
    ScreenFormat format = ScreenFormat::kRGB32;
    bool x11 = false;
};

std::mutex g_screenLock;
Screen g_screen;

Screen CopyScreen() {
    std::lock_guard<std::mutex> lock(g_screenLock);
    return g_screen;
}

int64_t Area(const RECT& r) { return static_cast<int64_t>(r.right - r.left) * (r.bottom - r.top); }

bool ClientOnScreen(HWND handle, RECT* out) {
    WindowRef w(handle);
    if (!w) return false;
    WindowGeometry g = w->Geometry();
    *out = {g.x, g.y, g.x + g.width, g.y + g.height};
    return true;
}

HMONITOR Fallback(const Screen& s, const RECT& area, DWORD flags) {
    if (flags == MONITOR_DEFAULTTOPRIMARY) return &g_slots[s.primary];
    if (flags != MONITOR_DEFAULTTONEAREST) return nullptr;
    // Nearest: the monitor with the smallest gap to the area's centre.
    const int64_t cx = (static_cast<int64_t>(area.left) + area.right) / 2;
    const int64_t cy = (static_cast<int64_t>(area.top) + area.bottom) / 2;
    int best = s.primary;
    int64_t bestGap = INT64_MAX;
    for (int i = 0; i < s.count; ++i) {
        const RECT& m = s.rects[i];
        int64_t dx = cx < m.left ? m.left - cx : (cx >= m.right ? cx - m.right + 1 : 0);
        int64_t dy = cy < m.top ? m.top - cy : (cy >= m.bottom ? cy - m.bottom + 1 : 0);
        if (dx * dx + dy * dy < bestGap) {
            bestGap = dx * dx + dy * dy;
            best = i;
        }
    }
    return &g_slots[best];
}

HMONITOR MonitorFromRect(const RECT& area, DWORD flags) {
    Screen s = CopyScreen();
    int best = -1;
    int64_t bestArea = 0;
    for (int i = 0; i < s.count; ++i) {
        RECT overlap;
        if (IntersectRect(&overlap, &area, &s.rects[i]) && Area(overlap) > bestArea) {
            bestArea = Area(overlap);
            best = i;
        }
    }
    return best >= 0 ? &g_slots[best] : Fallback(s, area, flags);
}

}  // namespace

int SetScreenMonitors(const RECT* rects, int count, int primary) {
    if (!rects || count < 1 || count > kMaxMonitors || primary < 0 || primary >= count) return 0;
    for (int i = 0; i < count; ++i) {
        if (IsRectEmpty(&rects[i])) return 0;
    }
    std::lock_guard<std::mutex> lock(g_screenLock);
    std::copy(rects, rects + count, g_screen.rects);
    g_screen.count = count;
    g_screen.primary = primary;
    return 1;
}

void ResetScreen() {
    std::lock_guard<std::mutex> lock(g_screenLock);
    g_screen = Screen{};
}

void SetScreenFormat(ScreenFormat format) {
    std::lock_guard<std::mutex> lock(g_screenLock);
    g_screen.format = format;
}

ScreenFormat GetScreenFormat() {
    std::lock_guard<std::mutex> lock(g_screenLock);
    return g_screen.format;
}

bool ScreenIsX11() {
    std::lock_guard<std::mutex> lock(g_screenLock);
    return g_screen.x11;
}

void MarkScreenX11() {
    std::lock_guard<std::mutex> lock(g_screenLock);
    g_screen.x11 = true;
}

BOOL IsRectEmpty(const RECT* r) { return !r || r->right <= r->left || r->bottom <= r->top; }

BOOL IntersectRect(RECT* out, const RECT* a, const RECT* b) {
    if (!out) return 0;
    if (!a || !b) {
        *out = {};
        return 0;
    }
    RECT r{std::max(a->left, b->left), std::max(a->top, b->top), std::min(a->right, b->right),
           std::min(a->bottom, b->bottom)};
    if (IsRectEmpty(&r)) {
        *out = {};
        return 0;
    }
    *out = r;
    return 1;
}

bool ClipToSize(RECT* r, int width, int height) {
    const RECT bounds{0, 0, width, height};
    return IntersectRect(r, r, &bounds) != 0;
}

int GetSystemMetrics(int index) {
    Screen s = CopyScreen();
    const RECT& p = s.rects[s.primary];
    RECT all = s.rects[0];
    for (int i = 1; i < s.count; ++i) {
        all = {std::min(all.left, s.rects[i].left), std::min(all.top, s.rects[i].top),
               std::max(all.right, s.rects[i].right), std::max(all.bottom, s.rects[i].bottom)};
    }
    switch (index) {
        case SM_CXSCREEN:
            return p.right - p.left;
        case SM_CYSCREEN:
            return p.bottom - p.top;
        case SM_XVIRTUALSCREEN:
            return all.left;
        case SM_YVIRTUALSCREEN:
            return all.top;
        case SM_CXVIRTUALSCREEN:
            return all.right - all.left;
        case SM_CYVIRTUALSCREEN:
            return all.bottom - all.top;
        case SM_CMONITORS:
            return s.count;
        default:
            return 0;
    }
}

BOOL GetClientRect(HWND handle, RECT* rect) {
    WindowRef w(handle);
    if (!w || !rect) return 0;
    WindowGeometry g = w->Geometry();
    *rect = {0, 0, g.width, g.height};
    return 1;
}

BOOL ClientToScreen(HWND handle, POINT* point) {
    WindowRef w(handle);
    if (!w || !point) return 0;
    WindowGeometry g = w->Geometry();
    point->x += g.x;
    point->y += g.y;
    return 1;
}

BOOL ScreenToClient(HWND handle, POINT* point) {
    WindowRef w(handle);
    if (!w || !point) return 0;
    WindowGeometry g = w->Geometry();
    point->x -= g.x;
    point->y -= g.y;
    return 1;
}

BOOL IsWindowVisible(HWND handle) {
    WindowRef w(handle);
    return w && w->Geometry().visible ? 1 : 0;
}

HMONITOR MonitorFromWindow(HWND handle, DWORD flags) {
    RECT area;
    if (!ClientOnScreen(handle, &area)) return nullptr;
    return MonitorFromRect(area, flags);
}

HMONITOR MonitorFromPoint(POINT point, DWORD flags) {
    return MonitorFromRect({point.x, point.y, point.x + 1, point.y + 1}, flags);
}

BOOL GetMonitorInfoA(HMONITOR monitor, MONITORINFO* info) {
    if (!monitor || !info || info->cbSize < sizeof(MONITORINFO)) return 0;
    if (monitor < g_slots || monitor >= g_slots + kMaxMonitors) return 0;
    Screen s = CopyScreen();
    if (monitor->index >= s.count) return 0;
    info->rcMonitor = s.rects[monitor->index];
    info->rcWork = info->rcMonitor;
    info->dwFlags = monitor->index == s.primary ? MONITORINFOF_PRIMARY : 0;
    return 1;
}

BOOL EnumDisplayMonitors(HDC dc, const RECT* clip, MONITORENUMPROC proc, LPARAM data) {
    if (dc || !proc) return 0;
    Screen s = CopyScreen();
    for (int i = 0; i < s.count; ++i) {
        RECT r = s.rects[i];
        if (clip && !IntersectRect(&r, &r, clip)) continue;
        if (!proc(&g_slots[i], nullptr, &r, data)) break;
    }
    return 1;
}

}  // namespace nplat

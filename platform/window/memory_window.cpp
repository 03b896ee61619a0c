// The memory window: a window with no display behind it, whose position,
// size, visibility and cover a test sets. Each change sends the messages
// Windows would send, synchronously on the caller's thread, so a render's
// subclassed procedure sees them exactly as on a desktop.
//
// Not here: anything that shows pixels; SnapshotClient is how they are seen.
#include "platform/kernel/heap.h"
#include "platform/window/window_internal.h"

namespace nplat {
namespace {

class MemoryWindow final : public Window {
  public:
    MemoryWindow() : Window(Kind::kMemory) {}
};

// The window's geometry, for memory windows only; false otherwise.
bool MemoryGeometry(const WindowRef& w, WindowGeometry* g) {
    if (!w || w->kind() != Window::Kind::kMemory) return false;
    *g = w->Geometry();
    return true;
}

}  // namespace

HWND CreateMemoryWindow(int x, int y, int width, int height) {
    if (width < 1 || height < 1) return nullptr;
    auto* w = HeapNew<MemoryWindow>();
    if (!w) return nullptr;
    WindowGeometry g;
    g.x = x, g.y = y, g.width = width, g.height = height;
    w->SetGeometry(g);
    RegisterWindow(w);
    return w;
}

int MoveMemoryWindow(HWND handle, int x, int y) {
    WindowRef w(handle);
    WindowGeometry g;
    if (!MemoryGeometry(w, &g)) return 0;
    if (g.x == x && g.y == y) return 1;
    g.x = x, g.y = y;
    w->SetGeometry(g);
    SendMessageA(handle, WM_MOVE, 0, MAKELPARAM(x, y));
    return 1;
}

int ResizeMemoryWindow(HWND handle, int width, int height) {
    WindowRef w(handle);
    WindowGeometry g;
    if (!MemoryGeometry(w, &g) || width < 1 || height < 1) return 0;
    if (g.width == width && g.height == height) return 1;
    const bool grew = width > g.width || height > g.height;
    g.width = width, g.height = height;
    w->SetGeometry(g);
    w->Resized();
    SendMessageA(handle, WM_SIZE, SIZE_RESTORED, MAKELPARAM(width, height));
    if (grew) SendMessageA(handle, WM_PAINT, 0, 0);
    return 1;
}

int SetMemoryWindowVisible(HWND handle, bool visible) {
    WindowRef w(handle);
    WindowGeometry g;
    if (!MemoryGeometry(w, &g)) return 0;
    if (g.visible == visible) return 1;
    g.visible = visible;
    w->SetGeometry(g);
    if (visible) SendMessageA(handle, WM_PAINT, 0, 0);
    return 1;
}

int SetMemoryWindowCovered(HWND handle, const RECT* coveredClient) {
    WindowRef w(handle);
    WindowGeometry g;
    if (!MemoryGeometry(w, &g)) return 0;
    const RECT old = g.covered;
    g.covered = coveredClient && !IsRectEmpty(coveredClient) ? *coveredClient : RECT{};
    w->SetGeometry(g);
    // Something comes back into view unless the new cover holds all of the old.
    RECT kept{};
    const bool uncovered =
        !IsRectEmpty(&old) &&
        (!IntersectRect(&kept, &old, &g.covered) || kept.left != old.left || kept.top != old.top ||
         kept.right != old.right || kept.bottom != old.bottom);
    if (uncovered && g.visible) SendMessageA(handle, WM_PAINT, 0, 0);
    return 1;
}

}  // namespace nplat

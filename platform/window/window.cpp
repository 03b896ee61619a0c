// Window handles, procedures and synchronous messages.
//
// Live windows sit in one intrusive list under a registry lock, so a handle
// is checked before use without any allocation, and every call holds a
// counted reference for as long as it uses the window: DestroyWindow can run
// while another thread is dispatching, and the object goes when the last
// reference does. Dispatch holds the window's recursive dispatch lock and
// reads the procedure under the procedure lock, which it drops before the
// call (see the lock order in window.h).
//
// Not here: posted messages or a queue; a message always runs on the
// sender's thread.
#include <mutex>

#include "platform/kernel/heap.h"
#include "platform/window/window_internal.h"

namespace nplat {
namespace {

std::mutex g_registryLock;
Window* g_first = nullptr;

}  // namespace

Window::~Window() {
    HeapFree(store.bits);
    HeapFree(overlay.rgb);
}

WindowGeometry Window::Geometry() {
    std::lock_guard<std::mutex> lock(m_geometryLock);
    return m_geometry;
}

void Window::SetGeometry(const WindowGeometry& geometry) {
    std::lock_guard<std::mutex> lock(m_geometryLock);
    m_geometry = geometry;
}

void RegisterWindow(Window* window) {
    std::lock_guard<std::mutex> lock(g_registryLock);
    window->next = g_first;
    if (g_first) g_first->prev = window;
    g_first = window;
}

Window* AcquireWindow(HWND handle) {
    if (!handle) return nullptr;
    std::lock_guard<std::mutex> lock(g_registryLock);
    for (Window* w = g_first; w; w = w->next) {
        if (w == handle) {
            ++w->refs;
            return w;
        }
    }
    return nullptr;
}

void ReleaseWindow(Window* window) {
    bool last;
    {
        std::lock_guard<std::mutex> lock(g_registryLock);
        last = --window->refs == 0;
    }
    if (last) HeapDelete(window);
}

BOOL DestroyWindow(HWND handle) {
    Window* window = nullptr;
    {
        std::lock_guard<std::mutex> lock(g_registryLock);
        for (Window* w = g_first; w; w = w->next) {
            if (w == handle) window = w;
        }
        if (!window) return 0;
        // Leaves the list at once so no new call finds it; calls already
        // holding a reference finish against the live object.
        if (window->prev) window->prev->next = window->next;
        if (window->next) window->next->prev = window->prev;
        if (g_first == window) g_first = window->next;
        window->prev = window->next = nullptr;
        window->alive = false;
    }
    window->Shutdown();
    ReleaseWindow(window);
    return 1;
}

BOOL IsWindow(HWND handle) { return WindowRef(handle) ? 1 : 0; }

void BroadcastDisplayChange() {
    // References first, then messages outside the registry lock: a procedure
    // may create or destroy windows.
    constexpr int kMax = 64;
    Window* targets[kMax];
    int count = 0;
    {
        std::lock_guard<std::mutex> lock(g_registryLock);
        for (Window* w = g_first; w && count < kMax; w = w->next) {
            ++w->refs;
            targets[count++] = w;
        }
    }
    const int bits = ScreenFormatBytes(GetScreenFormat()) * 8;
    const LPARAM size = MAKELPARAM(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
    for (int i = 0; i < count; ++i) {
        SendMessageA(targets[i], WM_DISPLAYCHANGE, static_cast<WPARAM>(bits), size);
        ReleaseWindow(targets[i]);
    }
}

LONG_PTR SetWindowLongPtrA(HWND handle, int index, LONG_PTR value) {
    WindowRef w(handle);
    if (!w) return 0;
    std::lock_guard<std::mutex> lock(w->procLock);
    if (index == GWLP_WNDPROC) {
        if (!value) return 0;
        auto previous = reinterpret_cast<LONG_PTR>(w->proc);
        w->proc = reinterpret_cast<WNDPROC>(value);
        return previous;
    }
    if (index == GWLP_USERDATA) {
        LONG_PTR previous = w->userData;
        w->userData = value;
        return previous;
    }
    return 0;
}

LONG_PTR GetWindowLongPtrA(HWND handle, int index) {
    WindowRef w(handle);
    if (!w) return 0;
    std::lock_guard<std::mutex> lock(w->procLock);
    if (index == GWLP_WNDPROC) return reinterpret_cast<LONG_PTR>(w->proc);
    if (index == GWLP_USERDATA) return w->userData;
    return 0;
}

LRESULT CallWindowProcA(WNDPROC proc, HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (!proc) proc = DefWindowProcA;
    return proc(window, message, wParam, lParam);
}

LRESULT DefWindowProcA(HWND /*window*/, UINT message, WPARAM /*wParam*/, LPARAM /*lParam*/) {
    return message == WM_ERASEBKGND ? 1 : 0;
}

LRESULT SendMessageA(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    WindowRef w(handle);
    if (!w) return 0;
    std::lock_guard<std::recursive_mutex> dispatch(w->dispatchLock);
    WNDPROC proc;
    {
        std::lock_guard<std::mutex> lock(w->procLock);
        proc = w->proc;
    }
    return proc(handle, message, wParam, lParam);
}

}  // namespace nplat

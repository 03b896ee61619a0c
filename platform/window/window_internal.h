// What every kind of window shares behind an HWND: its reference count and
// place in the list of live windows, the procedure and dispatch locks, the
// geometry, and the client pixels with the keyed overlay. A kind (memory,
// X11) adds how pixels reach the user (ScanOut) and how it shuts down.
//
// Not here: anything a kind needs only for itself (the X connection, the
// pump thread); those live in the kind's own source.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "platform/window/window.h"

namespace nplat {

struct WindowGeometry {
    int x = 0, y = 0;  // client origin on the screen
    int width = 0, height = 0;
    bool visible = true;
    RECT covered{};  // client coordinates; empty when uncovered
};

// Client pixels in the screen format, resized and re-formatted lazily under
// the pixel lock.
struct PixelStore {
    uint8_t* bits = nullptr;
    int width = 0, height = 0, pitch = 0;
    ScreenFormat format = ScreenFormat::kRGB32;
};

struct OverlayPicture {
    uint32_t* rgb = nullptr;  // rect's size, packed rows
    RECT rect{};              // client coordinates
    bool keyed = false;
    uint32_t key = 0;
};

class Window {
  public:
    enum class Kind { kMemory, kX11 };

    explicit Window(Kind kind) : m_kind(kind) {}
    virtual ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    Kind kind() const { return m_kind; }

    // Shows a changed client rectangle to the user. Called with the pixel
    // lock held; the memory window has nothing to do.
    virtual void ScanOut(const RECT& /*clientRect*/) {}
    // Stops whatever runs for the window (the X11 pump) before it leaves the
    // list of live windows. Never called from that thread itself.
    virtual void Shutdown() {}

    WindowGeometry Geometry();
    void SetGeometry(const WindowGeometry& geometry);

    // Brings the store to the client size and screen format; pixel lock held.
    bool EnsureStore();
    // After a size change: the store follows at once, so a shrink followed by
    // a grow loses what the shrink cut off, as a real surface would.
    void Resized();
    // Writes the client rectangle `r` as the user sees it (overlay applied)
    // into 0x00RRGGBB rows; pixel lock held, store ensured.
    void Compose(const RECT& r, uint32_t* out, int pitchBytes);

    // Live-list links and reference count, guarded by the registry lock.
    Window* prev = nullptr;
    Window* next = nullptr;
    int refs = 1;
    bool alive = true;

    std::recursive_mutex dispatchLock;
    std::mutex procLock;
    WNDPROC proc = DefWindowProcA;
    LONG_PTR userData = 0;

    std::mutex pixelLock;
    PixelStore store;
    OverlayPicture overlay;

  private:
    const Kind m_kind;
    std::mutex m_geometryLock;
    WindowGeometry m_geometry;
};

// Adds a new window (reference 1, owned by its creator) to the live list.
void RegisterWindow(Window* window);
// A counted reference to a live window, or null.
Window* AcquireWindow(HWND handle);
void ReleaseWindow(Window* window);

class WindowRef {
  public:
    explicit WindowRef(HWND handle) : m_window(AcquireWindow(handle)) {}
    ~WindowRef() {
        if (m_window) ReleaseWindow(m_window);
    }
    WindowRef(const WindowRef&) = delete;
    WindowRef& operator=(const WindowRef&) = delete;
    Window* get() const { return m_window; }
    Window* operator->() const { return m_window; }
    explicit operator bool() const { return m_window != nullptr; }

  private:
    Window* m_window;
};

// Pixel format helpers shared with DirectDraw.
void RowToScreen(ScreenFormat format, const uint32_t* rgb, uint8_t* dst, int count);
void RowFromScreen(ScreenFormat format, const uint8_t* src, uint32_t* rgb, int count);
uint32_t ReadScreenValue(ScreenFormat format, const uint8_t* p);
void WriteScreenValue(ScreenFormat format, uint8_t* p, uint32_t value);

// Screen internals for the X11 kind: marks the screen as an X server's and
// replaces its monitors without touching the format.
void MarkScreenX11();

// Clips `r` to {0, 0, width, height}; false when nothing is left.
bool ClipToSize(RECT* r, int width, int height);

}  // namespace nplat

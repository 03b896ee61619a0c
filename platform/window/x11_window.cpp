// The X11 window: a window on an X server, made here or wrapped around a
// host's, with a pump thread that turns X events into window messages and a
// scan-out that shows the client pixels.
//
// Why this way: each window has its own connection, so the layer never needs
// XInitThreads and never touches a host's connection; one mutex serialises
// the connection between the pump and the threads that scan out. The pump
// polls the socket with a short time-out because another thread's XSync may
// have moved events into Xlib's queue without waking poll. ConfigureNotify
// becomes WM_SIZE/WM_MOVE, Expose WM_PAINT (after showing the kept pixels
// again), unmap and full obscuring hide or cover the client, RandR screen
// changes WM_DISPLAYCHANGE after the screen's monitors are read again.
// Scan-out uses XShmPutImage on a local server and XPutImage otherwise.
//
// Not here: visuals other than 24-bit TrueColor with 8-bit channels (the
// window then gets messages but shows nothing), input events, window
// decorations. The X error handler is swapped briefly (process-wide) around
// the two requests that may fail: attaching shared memory and reading a
// wrapped window's attributes.
#include "platform/kernel/heap.h"
#include "platform/window/window_internal.h"

#if defined(NCB_HAVE_X11)

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xrandr.h>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

namespace nplat {
namespace {

std::atomic<bool> g_xError{false};
std::atomic<bool> g_allowShm{true};

int TrapError(Display*, XErrorEvent*) {
    g_xError = true;
    return 0;
}

// Runs `request` with X errors caught instead of ending the process.
template <typename F>
bool Trapped(Display* d, F request) {
    XSync(d, False);
    g_xError = false;
    auto previous = XSetErrorHandler(TrapError);
    request();
    XSync(d, False);
    XSetErrorHandler(previous);
    return !g_xError;
}

constexpr long kEventMask = StructureNotifyMask | ExposureMask | VisibilityChangeMask;

class X11Window final : public Window {
  public:
    X11Window() : Window(Kind::kX11) {}
    ~X11Window() override;

    bool Open(const char* displayName, unsigned long existing, int x, int y, int width, int height,
              const char* title);
    bool StartPump();
    void ScanOut(const RECT& r) override;
    void Shutdown() override;
    unsigned long Id() const { return m_window; }

  private:
    void Pump();
    void Handle(const XEvent& e);
    void OnConfigure(int width, int height);
    void ShowAll();
    bool EnsureImage(int width, int height);
    void FreeImage();
    void ReadMonitors();

    Display* m_display = nullptr;
    ::Window m_window = 0;
    ::Window m_root = 0;
    bool m_owned = false;
    GC m_gc = nullptr;
    Visual* m_visual = nullptr;
    int m_depth = 0;
    std::mutex m_xLock;
    int m_wake[2] = {-1, -1};
    std::thread m_pump;
    bool m_pumping = false;
    std::atomic<bool> m_stop{false};
    XImage* m_image = nullptr;
    XShmSegmentInfo m_shm{};
    bool m_shmAttached = false;
    bool m_useShm = false;
    bool m_canShow = false;
    int m_randrEvent = -1;
};

X11Window::~X11Window() {
    if (m_display) {
        FreeImage();
        if (m_gc) XFreeGC(m_display, m_gc);
        if (m_owned && m_window) XDestroyWindow(m_display, m_window);
        XCloseDisplay(m_display);
    }
    for (int fd : m_wake) {
        if (fd >= 0) close(fd);
    }
}

bool X11Window::Open(const char* displayName, unsigned long existing, int x, int y, int width,
                     int height, const char* title) {
    m_display = XOpenDisplay(displayName);
    if (!m_display) return false;
    const int screen = DefaultScreen(m_display);
    m_root = RootWindow(m_display, screen);
    XWindowAttributes attributes{};
    if (existing) {
        m_window = existing;
        if (!Trapped(m_display, [&] { XGetWindowAttributes(m_display, m_window, &attributes); })) {
            return false;
        }
        m_visual = attributes.visual;
        m_depth = attributes.depth;
        width = attributes.width;
        height = attributes.height;
        XSelectInput(m_display, m_window, kEventMask);
    } else {
        m_owned = true;
        m_visual = DefaultVisual(m_display, screen);
        m_depth = DefaultDepth(m_display, screen);
        XSetWindowAttributes set{};
        set.background_pixel = BlackPixel(m_display, screen);
        set.event_mask = kEventMask;
        m_window = XCreateWindow(m_display, m_root, x, y, static_cast<unsigned>(width),
                                 static_cast<unsigned>(height), 0, CopyFromParent, InputOutput,
                                 CopyFromParent, CWBackPixel | CWEventMask, &set);
        if (!m_window) return false;
        XSizeHints hints{};
        hints.flags = USPosition | USSize;
        hints.x = x, hints.y = y, hints.width = width, hints.height = height;
        XSetWMNormalHints(m_display, m_window, &hints);
        if (title) XStoreName(m_display, m_window, title);
        XMapWindow(m_display, m_window);
        // Wait (briefly) until the server has mapped it, so what is drawn next shows.
        for (int i = 0; i < 200; ++i) {
            XWindowAttributes now{};
            XGetWindowAttributes(m_display, m_window, &now);
            if (now.map_state == IsViewable) break;
            usleep(5000);
        }
        attributes.map_state = IsViewable;
    }
    m_gc = XCreateGC(m_display, m_window, 0, nullptr);
    int major, minor, errorBase;
    Bool pixmaps;
    m_useShm = g_allowShm && XShmQueryVersion(m_display, &major, &minor, &pixmaps) != 0;
    if (XRRQueryExtension(m_display, &m_randrEvent, &errorBase)) {
        XRRSelectInput(m_display, m_root, RRScreenChangeNotifyMask);
    } else {
        m_randrEvent = -1;
    }
    int rx = 0, ry = 0;
    ::Window child;
    XTranslateCoordinates(m_display, m_window, m_root, 0, 0, &rx, &ry, &child);
    WindowGeometry g;
    g.x = rx, g.y = ry, g.width = width, g.height = height;
    g.visible = attributes.map_state == IsViewable;
    SetGeometry(g);
    MarkScreenX11();
    ReadMonitors();
    return pipe(m_wake) == 0;
}

bool X11Window::StartPump() {
    // The pump holds its own reference, so a window destroyed from inside one
    // of its messages lives until the pump has left.
    Window* self = AcquireWindow(this);
    if (!self) return false;
    try {
        m_pump = std::thread([this] {
            Pump();
            ReleaseWindow(this);
        });
    } catch (...) {
        ReleaseWindow(self);
        return false;
    }
    m_pumping = true;
    return true;
}

void X11Window::Shutdown() {
    if (!m_pumping) return;
    m_stop = true;
    const char stop = 1;
    if (write(m_wake[1], &stop, 1) < 0) {
        // The pipe cannot be full of anything but stop bytes; nothing to do.
    }
    if (m_pump.get_id() == std::this_thread::get_id()) {
        m_pump.detach();  // destroyed from its own procedure: it ends by itself
    } else {
        m_pump.join();
    }
    m_pumping = false;
}

void X11Window::Pump() {
    for (;;) {
        for (;;) {
            XEvent e;
            {
                std::lock_guard<std::mutex> lock(m_xLock);
                if (!XPending(m_display)) break;
                XNextEvent(m_display, &e);
                if (m_randrEvent >= 0 && e.type == m_randrEvent + RRScreenChangeNotify) {
                    XRRUpdateConfiguration(&e);
                    ReadMonitors();
                }
            }
            Handle(e);
            if (m_stop) return;
        }
        pollfd fds[2] = {{ConnectionNumber(m_display), POLLIN, 0}, {m_wake[0], POLLIN, 0}};
        poll(fds, 2, 20);
        if (fds[1].revents) return;
    }
}

void X11Window::Handle(const XEvent& e) {
    if (m_randrEvent >= 0 && e.type == m_randrEvent + RRScreenChangeNotify) {
        const LPARAM size =
            MAKELPARAM(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
        SendMessageA(this, WM_DISPLAYCHANGE, static_cast<WPARAM>(m_depth), size);
        return;
    }
    WindowGeometry g = Geometry();
    switch (e.type) {
        case ConfigureNotify:
            if (e.xconfigure.window == m_window) {
                OnConfigure(e.xconfigure.width, e.xconfigure.height);
            }
            break;
        case Expose:
            if (e.xexpose.count == 0) {
                ShowAll();
                SendMessageA(this, WM_PAINT, 0, 0);
            }
            break;
        case MapNotify:
            g.visible = true;
            SetGeometry(g);
            SendMessageA(this, WM_PAINT, 0, 0);
            break;
        case UnmapNotify:
            g.visible = false;
            SetGeometry(g);
            break;
        case VisibilityNotify:
            if (e.xvisibility.state == VisibilityFullyObscured) {
                g.covered = {0, 0, g.width, g.height};
                SetGeometry(g);
            } else if (!IsRectEmpty(&g.covered)) {
                g.covered = {};
                SetGeometry(g);
                SendMessageA(this, WM_PAINT, 0, 0);
            }
            break;
        default:
            break;
    }
}

void X11Window::OnConfigure(int width, int height) {
    int rx = 0, ry = 0;
    {
        std::lock_guard<std::mutex> lock(m_xLock);
        ::Window child;
        XTranslateCoordinates(m_display, m_window, m_root, 0, 0, &rx, &ry, &child);
    }
    WindowGeometry g = Geometry();
    const bool moved = rx != g.x || ry != g.y;
    const bool sized = width != g.width || height != g.height;
    g.x = rx, g.y = ry, g.width = width, g.height = height;
    if (!IsRectEmpty(&g.covered)) g.covered = {0, 0, width, height};
    SetGeometry(g);
    if (sized) Resized();
    if (sized) SendMessageA(this, WM_SIZE, SIZE_RESTORED, MAKELPARAM(width, height));
    if (moved) SendMessageA(this, WM_MOVE, 0, MAKELPARAM(rx, ry));
}

void X11Window::ShowAll() {
    std::lock_guard<std::mutex> lock(pixelLock);
    if (EnsureStore()) ScanOut({0, 0, store.width, store.height});
}

void X11Window::ReadMonitors() {
    RECT rects[8];
    int count = 0, primary = 0;
    int n = 0;
    XRRMonitorInfo* monitors =
        m_randrEvent >= 0 ? XRRGetMonitors(m_display, m_root, True, &n) : nullptr;
    for (int i = 0; monitors && i < n && count < 8; ++i) {
        const XRRMonitorInfo& m = monitors[i];
        if (m.width <= 0 || m.height <= 0) continue;
        if (m.primary) primary = count;
        rects[count++] = {m.x, m.y, m.x + m.width, m.y + m.height};
    }
    if (monitors) XRRFreeMonitors(monitors);
    if (count == 0) {
        const int screen = DefaultScreen(m_display);
        rects[0] = {0, 0, DisplayWidth(m_display, screen), DisplayHeight(m_display, screen)};
        count = 1;
    }
    SetScreenMonitors(rects, count, primary);
}

void X11Window::FreeImage() {
    if (!m_image) return;
    if (m_shmAttached) {
        XShmDetach(m_display, &m_shm);
        XSync(m_display, False);
        shmdt(m_shm.shmaddr);
        m_image->data = nullptr;
        m_shmAttached = false;
    }
    XDestroyImage(m_image);  // frees the data of a plain image (malloc'd)
    m_image = nullptr;
}

bool X11Window::EnsureImage(int width, int height) {
    if (m_image && m_image->width == width && m_image->height == height) return m_canShow;
    FreeImage();
    if (m_useShm) {
        m_image =
            XShmCreateImage(m_display, m_visual, static_cast<unsigned>(m_depth), ZPixmap, nullptr,
                            &m_shm, static_cast<unsigned>(width), static_cast<unsigned>(height));
        if (m_image) {
            const size_t bytes = static_cast<size_t>(m_image->bytes_per_line) * height;
            m_shm.shmid = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
            void* address = m_shm.shmid >= 0 ? shmat(m_shm.shmid, nullptr, 0) : (void*)-1;
            if (address != (void*)-1) {
                m_shm.shmaddr = m_image->data = static_cast<char*>(address);
                m_shm.readOnly = False;
                m_shmAttached = Trapped(m_display, [&] { XShmAttach(m_display, &m_shm); });
                if (!m_shmAttached) shmdt(address);
            }
            if (m_shm.shmid >= 0) shmctl(m_shm.shmid, IPC_RMID, nullptr);
            if (!m_shmAttached) {
                m_image->data = nullptr;
                XDestroyImage(m_image);
                m_image = nullptr;
                m_useShm = false;  // a remote server, or no SysV memory: plain images from now on
            }
        }
    }
    if (!m_image) {
        m_image =
            XCreateImage(m_display, m_visual, static_cast<unsigned>(m_depth), ZPixmap, 0, nullptr,
                         static_cast<unsigned>(width), static_cast<unsigned>(height), 32, 0);
        if (!m_image) return m_canShow = false;
        // Xlib frees it with free(): it must come from malloc.
        m_image->data =
            static_cast<char*>(std::malloc(static_cast<size_t>(m_image->bytes_per_line) * height));
        if (!m_image->data) {
            XDestroyImage(m_image);
            m_image = nullptr;
            return m_canShow = false;
        }
    }
    m_canShow = m_image->bits_per_pixel == 32 && m_image->red_mask == 0xFF0000 &&
                m_image->green_mask == 0xFF00 && m_image->blue_mask == 0xFF &&
                m_image->byte_order == LSBFirst;
    return m_canShow;
}

void X11Window::ScanOut(const RECT& r) {
    std::lock_guard<std::mutex> lock(m_xLock);
    if (!EnsureImage(store.width, store.height)) return;
    char* at = m_image->data + static_cast<ptrdiff_t>(r.top) * m_image->bytes_per_line +
               static_cast<ptrdiff_t>(r.left) * 4;
    Compose(r, reinterpret_cast<uint32_t*>(at), m_image->bytes_per_line);
    const unsigned w = static_cast<unsigned>(r.right - r.left);
    const unsigned h = static_cast<unsigned>(r.bottom - r.top);
    if (m_shmAttached) {
        XShmPutImage(m_display, m_window, m_gc, m_image, r.left, r.top, r.left, r.top, w, h, False);
        XSync(m_display, False);  // the server must be done before the buffer changes again
    } else {
        XPutImage(m_display, m_window, m_gc, m_image, r.left, r.top, r.left, r.top, w, h);
        XSync(m_display, False);  // shown before the caller goes on, as on the other path
    }
}

HWND MakeX11Window(const char* displayName, unsigned long existing, int x, int y, int width,
                   int height, const char* title) {
    if (!existing && (width < 1 || height < 1)) return nullptr;
    auto* w = HeapNew<X11Window>();
    if (!w) return nullptr;
    if (!w->Open(displayName, existing, x, y, width, height, title)) {
        HeapDelete(w);
        return nullptr;
    }
    RegisterWindow(w);
    if (!w->StartPump()) {
        DestroyWindow(w);
        return nullptr;
    }
    return w;
}

}  // namespace

HWND CreateX11Window(const char* displayName, int x, int y, int width, int height,
                     const char* title) {
    return MakeX11Window(displayName, 0, x, y, width, height, title);
}

HWND WrapX11Window(_XDisplay* display, unsigned long x11Window) {
    if (!display || !x11Window) return nullptr;
    return MakeX11Window(DisplayString(display), x11Window, 0, 0, 0, 0, nullptr);
}

void SetX11SharedMemoryAllowed(bool allowed) { g_allowShm = allowed; }

unsigned long GetX11WindowId(HWND handle) {
    WindowRef w(handle);
    if (!w || w->kind() != Window::Kind::kX11) return 0;
    return static_cast<X11Window*>(w.get())->Id();
}

}  // namespace nplat

#else  // no X11 at build time: only memory windows exist

namespace nplat {

HWND CreateX11Window(const char*, int, int, int, int, const char*) { return nullptr; }
HWND WrapX11Window(_XDisplay*, unsigned long) { return nullptr; }
unsigned long GetX11WindowId(HWND) { return 0; }
void SetX11SharedMemoryAllowed(bool) {}

}  // namespace nplat

#endif

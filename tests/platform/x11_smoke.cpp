// X11 smoke test on a private Xvfb: a picture blitted through DirectDraw
// into an X11 window reads back from the server (XGetImage) equal to the same
// blit into a memory window; X events arrive as window messages; a window
// mapped again shows its kept pixels; a host's own window can be wrapped.
// Skips, not fails, where Xvfb cannot run.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/ddraw/ddraw.h"
#include "platform/window/window.h"
#include "tests/support/xvfb_fixture.h"

// Xlib last: its macros (None, Bool, Status) would break the headers above.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

namespace {

using namespace nplat;

constexpr int kWidth = 96, kHeight = 64;

std::mutex g_messageLock;
std::vector<UINT> g_messages;
LPARAM g_lastSize = 0;

LRESULT Recorder(HWND w, UINT m, WPARAM wp, LPARAM lp) {
    {
        std::lock_guard<std::mutex> lock(g_messageLock);
        g_messages.push_back(m);
        if (m == WM_SIZE) g_lastSize = lp;
    }
    return DefWindowProcA(w, m, wp, lp);
}

bool WaitFor(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return done();
}

bool Received(UINT message) {
    std::lock_guard<std::mutex> lock(g_messageLock);
    for (UINT m : g_messages) {
        if (m == message) return true;
    }
    return false;
}

class X11Smoke : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { server = new ncbtest::XvfbServer("1280x1024x24"); }
    static void TearDownTestSuite() {
        delete server;
        server = nullptr;
    }
    void SetUp() override {
        if (!server->available()) GTEST_SKIP() << server->reason();
        ResetScreen();
        ddtest::Reset();
        probe = XOpenDisplay(server->display().c_str());
        ASSERT_NE(probe, nullptr);
        std::lock_guard<std::mutex> lock(g_messageLock);
        g_messages.clear();
    }
    void TearDown() override {
        if (probe) XCloseDisplay(probe);
        ddtest::Reset();
        ResetScreen();
    }

    // What the server shows in the window, as 0x00RRGGBB.
    std::vector<uint32_t> ReadBack(unsigned long id, int width, int height) {
        XImage* image = XGetImage(probe, id, 0, 0, static_cast<unsigned>(width),
                                  static_cast<unsigned>(height), AllPlanes, ZPixmap);
        std::vector<uint32_t> out(static_cast<size_t>(width) * height);
        if (!image) return out;
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                out[static_cast<size_t>(y) * width + x] =
                    static_cast<uint32_t>(XGetPixel(image, x, y)) & 0xFFFFFF;
            }
        }
        XDestroyImage(image);
        return out;
    }

    // Stretches a test picture through a primary clipped to `window`.
    static void Blit(HWND window) {
        IDirectDraw* dd = nullptr;
        ASSERT_EQ(DirectDrawCreate(nullptr, &dd, nullptr), DD_OK);
        ASSERT_EQ(dd->SetCooperativeLevel(window, DDSCL_NORMAL), DD_OK);
        DDSURFACEDESC2 desc;
        std::memset(&desc, 0, sizeof(desc));
        desc.dwSize = sizeof(desc);
        desc.dwFlags = DDSD_CAPS;
        desc.ddsCaps.dwCaps = DDSCAPS_PRIMARYSURFACE;
        IDirectDrawSurface* primary = nullptr;
        ASSERT_EQ(dd->CreateSurface(&desc, &primary, nullptr), DD_OK);
        IDirectDrawClipper* clipper = nullptr;
        ASSERT_EQ(dd->CreateClipper(0, &clipper, nullptr), DD_OK);
        clipper->SetHWnd(0, window);
        primary->SetClipper(clipper);
        desc.dwFlags = DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT;
        desc.ddsCaps.dwCaps = DDSCAPS_OFFSCREENPLAIN;
        desc.dwWidth = 24, desc.dwHeight = 16;
        desc.ddpfPixelFormat.dwSize = sizeof(DDPIXELFORMAT);
        desc.ddpfPixelFormat.dwFlags = DDPF_RGB;
        desc.ddpfPixelFormat.dwRGBBitCount = 32;
        IDirectDrawSurface* picture = nullptr;
        ASSERT_EQ(dd->CreateSurface(&desc, &picture, nullptr), DD_OK);
        DDSURFACEDESC2 locked;
        std::memset(&locked, 0, sizeof(locked));
        locked.dwSize = sizeof(locked);
        ASSERT_EQ(picture->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DD_OK);
        for (int y = 0; y < 16; ++y) {
            auto* row = reinterpret_cast<uint32_t*>(static_cast<uint8_t*>(locked.lpSurface) +
                                                    y * locked.lPitch);
            for (int x = 0; x < 24; ++x)
                row[x] = static_cast<uint32_t>(x * 10 << 16 | y * 15 << 8 | (x ^ y) * 7);
        }
        picture->Unlock(nullptr);
        POINT origin{0, 0};
        ClientToScreen(window, &origin);
        RECT dst{origin.x + 4, origin.y + 2, origin.x + kWidth - 4, origin.y + kHeight - 6};
        EXPECT_EQ(primary->Blt(&dst, picture, nullptr, DDBLT_WAIT, nullptr), DD_OK);
        picture->Release();
        clipper->Release();
        primary->Release();
        dd->Release();
    }

    static ncbtest::XvfbServer* server;
    Display* probe = nullptr;
};

ncbtest::XvfbServer* X11Smoke::server = nullptr;

// Both scan-out paths: shared memory and plain XPutImage.
class X11ScanOut : public X11Smoke, public ::testing::WithParamInterface<bool> {
  protected:
    void TearDown() override {
        SetX11SharedMemoryAllowed(true);
        X11Smoke::TearDown();
    }
};

TEST_P(X11ScanOut, BlitReadsBackEqualToTheMemoryWindow) {
    SetX11SharedMemoryAllowed(GetParam());
    HWND x11 = CreateX11Window(server->display().c_str(), 40, 30, kWidth, kHeight, "smoke");
    ASSERT_NE(x11, nullptr);
    EXPECT_TRUE(ScreenIsX11());
    EXPECT_EQ(GetSystemMetrics(SM_CXSCREEN), 1280);
    POINT origin{0, 0};
    ClientToScreen(x11, &origin);
    HWND memory = CreateMemoryWindow(origin.x, origin.y, kWidth, kHeight);
    ASSERT_NE(memory, nullptr);

    // An X server offers no YUV overlay.
    IDirectDraw* dd = nullptr;
    ASSERT_EQ(DirectDrawCreate(nullptr, &dd, nullptr), DD_OK);
    DWORD codes = 99;
    ASSERT_EQ(dd->GetFourCCCodes(&codes, nullptr), DD_OK);
    EXPECT_EQ(codes, 0u);
    dd->Release();

    Blit(x11);
    Blit(memory);
    std::vector<uint32_t> expected(kWidth * kHeight);
    ASSERT_EQ(SnapshotClient(memory, expected.data(), kWidth * 4), 1);
    const unsigned long id = GetX11WindowId(x11);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(ReadBack(id, kWidth, kHeight), expected);
    EXPECT_NE(expected[20 * kWidth + 40], 0u);

    DestroyWindow(memory);
    DestroyWindow(x11);
    EXPECT_EQ(ddtest::LiveObjects(), 0);
}

INSTANTIATE_TEST_SUITE_P(Paths, X11ScanOut, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "Shm" : "PutImage"; });

TEST_F(X11Smoke, ServerEventsBecomeMessagesAndMappingShowsThePixelsAgain) {
    HWND x11 = CreateX11Window(server->display().c_str(), 10, 10, kWidth, kHeight, "events");
    ASSERT_NE(x11, nullptr);
    SetWindowLongPtrA(x11, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Recorder));
    const unsigned long id = GetX11WindowId(x11);
    std::vector<uint32_t> picture(kWidth * kHeight, 0x336699);
    ASSERT_EQ(PutClientPixels(x11, {0, 0, kWidth, kHeight}, picture.data(), kWidth * 4), 1);

    XResizeWindow(probe, id, 120, 80);
    XSync(probe, False);
    ASSERT_TRUE(WaitFor([&] {
        std::lock_guard<std::mutex> lock(g_messageLock);
        return g_lastSize == MAKELPARAM(120, 80);
    }));
    RECT client;
    ASSERT_EQ(GetClientRect(x11, &client), 1);
    EXPECT_EQ(client.right, 120);
    EXPECT_EQ(client.bottom, 80);

    XUnmapWindow(probe, id);
    XSync(probe, False);
    ASSERT_TRUE(WaitFor([&] { return IsWindowVisible(x11) == 0; }));
    {
        std::lock_guard<std::mutex> lock(g_messageLock);
        g_messages.clear();
    }
    XMapWindow(probe, id);
    XSync(probe, False);
    ASSERT_TRUE(WaitFor([&] { return Received(WM_PAINT) && IsWindowVisible(x11); }));
    // The pump shows the kept pixels on Expose before the procedure runs.
    ASSERT_TRUE(WaitFor([&] { return ReadBack(id, kWidth, kHeight) == picture; }));
    DestroyWindow(x11);
}

TEST_F(X11Smoke, HostWindowCanBeWrappedAndOutlivesTheHandle) {
    const int screen = DefaultScreen(probe);
    ::Window own = XCreateSimpleWindow(probe, RootWindow(probe, screen), 200, 100, 64, 32, 0, 0,
                                       BlackPixel(probe, screen));
    XMapWindow(probe, own);
    XSync(probe, False);
    HWND wrapped = WrapX11Window(probe, own);
    ASSERT_NE(wrapped, nullptr);
    RECT client;
    ASSERT_EQ(GetClientRect(wrapped, &client), 1);
    EXPECT_EQ(client.right, 64);
    EXPECT_EQ(client.bottom, 32);
    std::vector<uint32_t> picture(64 * 32, 0xC08040);
    ASSERT_EQ(PutClientPixels(wrapped, {0, 0, 64, 32}, picture.data(), 64 * 4), 1);
    EXPECT_EQ(ReadBack(own, 64, 32), picture);
    EXPECT_EQ(DestroyWindow(wrapped), 1);
    XWindowAttributes attributes;
    EXPECT_NE(XGetWindowAttributes(probe, own, &attributes), 0);  // still the host's
    XDestroyWindow(probe, own);
    XSync(probe, False);
}

TEST_F(X11Smoke, ScreenSizeChangeBecomesDisplayChange) {
    HWND x11 = CreateX11Window(server->display().c_str(), 0, 0, 32, 32, "randr");
    ASSERT_NE(x11, nullptr);
    SetWindowLongPtrA(x11, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Recorder));
    const ::Window root = DefaultRootWindow(probe);
    // Xvfb cannot grow its screen; it can shrink once its one output is off.
    XRRScreenResources* resources = XRRGetScreenResources(probe, root);
    ASSERT_NE(resources, nullptr);
    ASSERT_GE(resources->ncrtc, 1);
    const RRCrtc crtc = resources->crtcs[0];
    XRRCrtcInfo* info = XRRGetCrtcInfo(probe, resources, crtc);
    ASSERT_NE(info, nullptr);
    static bool refused;
    refused = false;
    auto previous = XSetErrorHandler([](Display*, XErrorEvent*) {
        refused = true;
        return 0;
    });
    XRRSetCrtcConfig(probe, resources, crtc, CurrentTime, 0, 0, 0, RR_Rotate_0, nullptr, 0);
    XRRSetScreenSize(probe, root, 1024, 768, 270, 203);
    XSync(probe, False);
    if (!refused) {
        EXPECT_TRUE(WaitFor([] { return Received(WM_DISPLAYCHANGE); }));
        EXPECT_TRUE(WaitFor([] { return GetSystemMetrics(SM_CXSCREEN) == 1024; }));
        // Back as it was for the tests that follow.
        XRRSetScreenSize(probe, root, 1280, 1024, 338, 270);
        XRRSetCrtcConfig(probe, resources, crtc, CurrentTime, info->x, info->y, info->mode,
                         info->rotation, info->outputs, info->noutput);
        XSync(probe, False);
    }
    XSetErrorHandler(previous);
    XRRFreeCrtcInfo(info);
    XRRFreeScreenResources(resources);
    DestroyWindow(x11);
    if (refused) GTEST_SKIP() << "this X server refuses to change its screen size";
}

TEST(X11Absent, CreationFailsCleanlyWithoutAServer) {
    EXPECT_EQ(CreateX11Window(":987", 0, 0, 8, 8, nullptr), nullptr);
    EXPECT_EQ(WrapX11Window(nullptr, 1), nullptr);
}

}  // namespace

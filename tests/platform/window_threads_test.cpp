// Window dispatch under threads, for ThreadSanitizer: WM_NULL waits for a
// message already inside the procedure chain; a render-like subclass is
// installed and removed, with its object lock and list lock held the way the
// video render holds them, while another thread keeps the window busy; a
// window destroyed during dispatch stays alive until the dispatch returns;
// DirectDraw blits and snapshots of one window from several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/ddraw/ddraw.h"
#include "platform/window/window.h"

namespace {

using namespace nplat;

std::atomic<int> g_sequence{0};
std::atomic<bool> g_inside{false};
std::atomic<bool> g_release{false};
std::atomic<int> g_leftAt{0};

LRESULT BlockingProc(HWND w, UINT m, WPARAM wp, LPARAM lp) {
    if (m == WM_PAINT) {
        g_inside = true;
        while (!g_release) std::this_thread::yield();
        g_leftAt = ++g_sequence;
        return 1;
    }
    return DefWindowProcA(w, m, wp, lp);
}

TEST(WindowThreads, NullMessageReturnsOnlyAfterTheMessageInsideHasLeft) {
    HWND window = CreateMemoryWindow(0, 0, 8, 8);
    ASSERT_NE(window, nullptr);
    SetWindowLongPtrA(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(BlockingProc));
    std::thread painter([&] { SendMessageA(window, WM_PAINT, 0, 0); });
    while (!g_inside) std::this_thread::yield();
    std::atomic<int> nullReturnedAt{0};
    std::thread closer([&] {
        SendMessageA(window, WM_NULL, 0, 0);
        nullReturnedAt = ++g_sequence;
    });
    // Give the WM_NULL every chance to overtake; it must not.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(nullReturnedAt.load(), 0);
    g_release = true;
    painter.join();
    closer.join();
    EXPECT_LT(g_leftAt.load(), nullReturnedAt.load());
    DestroyWindow(window);
}

// A stand-in for the video render's subclass: a list lock guarding which
// window has a render, and the render's object lock, taken in that order by
// Open and Close and never nested the other way by the procedure.
struct FakeRender {
    std::mutex objectLock;
    WNDPROC previous = nullptr;
    bool opened = false;
    std::atomic<int> handled{0};
};

std::mutex g_listLock;
FakeRender* g_listed = nullptr;
std::atomic<int> g_inStub{0};

LRESULT RenderStub(HWND w, UINT m, WPARAM wp, LPARAM lp) {
    ++g_inStub;
    FakeRender* render;
    {
        std::lock_guard<std::mutex> list(g_listLock);
        render = g_listed;
    }
    LRESULT result;
    if (!render) {
        result = DefWindowProcA(w, m, wp, lp);
    } else {
        WNDPROC previous;
        {
            std::lock_guard<std::mutex> object(render->objectLock);
            previous = render->previous;
            if (render->opened) ++render->handled;
        }
        result = CallWindowProcA(previous, w, m, wp, lp);
    }
    --g_inStub;
    return result;
}

TEST(WindowThreads, SubclassComesAndGoesWhileTheWindowIsBusy) {
    HWND window = CreateMemoryWindow(0, 0, 8, 8);
    ASSERT_NE(window, nullptr);
    FakeRender render;
    std::atomic<bool> stop{false};
    std::thread pump([&] {
        for (int i = 0; !stop; ++i) {
            SendMessageA(window, i % 2 ? WM_PAINT : WM_SIZE, 0, MAKELPARAM(8, 8));
        }
    });
    for (int round = 0; round < 100; ++round) {
        {  // Open: object lock, then list lock, then the window's procedure lock.
            std::lock_guard<std::mutex> object(render.objectLock);
            std::lock_guard<std::mutex> list(g_listLock);
            g_listed = &render;
            render.previous = reinterpret_cast<WNDPROC>(
                SetWindowLongA(window, GWL_WNDPROC, reinterpret_cast<LONG_PTR>(RenderStub)));
            ASSERT_NE(render.previous, nullptr);
            render.opened = true;
        }
        // Let the busy window run the subclass at least once this round.
        const int before = render.handled.load();
        while (render.handled.load() == before) std::this_thread::yield();
        // Close: restore without the object lock, drain, then unlist.
        WNDPROC previous;
        {
            std::lock_guard<std::mutex> object(render.objectLock);
            previous = render.previous;
        }
        const LONG_PTR ours =
            SetWindowLongA(window, GWL_WNDPROC, reinterpret_cast<LONG_PTR>(previous));
        ASSERT_EQ(ours, reinterpret_cast<LONG_PTR>(RenderStub));
        SendMessageA(window, WM_NULL, 0, 0);
        ASSERT_EQ(g_inStub.load(), 0) << round;  // nothing is left inside the old chain
        std::lock_guard<std::mutex> object(render.objectLock);
        std::lock_guard<std::mutex> list(g_listLock);
        g_listed = nullptr;
        render.opened = false;
    }
    stop = true;
    pump.join();
    EXPECT_GE(render.handled.load(), 100);
    DestroyWindow(window);
}

std::atomic<bool> g_destroyNow{false};
std::atomic<bool> g_destroyed{false};

LRESULT SlowProc(HWND w, UINT m, WPARAM wp, LPARAM lp) {
    if (m == WM_PAINT) {
        g_destroyNow = true;
        while (!g_destroyed) std::this_thread::yield();
        RECT r;
        // The handle is dead now, but the object is still the one dispatching.
        EXPECT_EQ(GetClientRect(w, &r), 0);
        return 5;
    }
    return DefWindowProcA(w, m, wp, lp);
}

TEST(WindowThreads, DestroyDuringDispatchKeepsTheWindowUntilItReturns) {
    HWND window = CreateMemoryWindow(0, 0, 8, 8);
    ASSERT_NE(window, nullptr);
    SetWindowLongPtrA(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(SlowProc));
    std::atomic<LRESULT> result{0};
    std::thread sender([&] { result = SendMessageA(window, WM_PAINT, 0, 0); });
    while (!g_destroyNow) std::this_thread::yield();
    EXPECT_EQ(DestroyWindow(window), 1);
    g_destroyed = true;
    sender.join();
    EXPECT_EQ(result.load(), 5);
    EXPECT_EQ(IsWindow(window), 0);
}

TEST(WindowThreads, BlitsAndSnapshotsFromSeveralThreads) {
    HWND window = CreateMemoryWindow(0, 0, 64, 64);
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

    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            DDBLTFX fx;
            std::memset(&fx, 0, sizeof(fx));
            fx.dwSize = sizeof(fx);
            for (int i = 0; i < 200; ++i) {
                fx.dwFillColor = static_cast<DWORD>(t * 0x111111);
                RECT r{t * 20, 0, t * 20 + 20, 64};
                EXPECT_EQ(primary->Blt(&r, nullptr, nullptr, DDBLT_COLORFILL, &fx), DD_OK);
            }
        });
    }
    threads.emplace_back([&] {
        std::vector<uint32_t> pixels(64 * 64);
        for (int i = 0; i < 100; ++i) EXPECT_EQ(SnapshotClient(window, pixels.data(), 256), 1);
        for (int i = 0; i < 50; ++i) ResizeMemoryWindow(window, 64 + (i % 2), 64);
    });
    for (auto& t : threads) t.join();
    std::vector<uint32_t> pixels(65 * 64);
    RECT r;
    GetClientRect(window, &r);
    ASSERT_EQ(SnapshotClient(window, pixels.data(), r.right * 4), 1);
    EXPECT_EQ(pixels[25], 0x111111u);
    clipper->Release();
    primary->Release();
    dd->Release();
    DestroyWindow(window);
    EXPECT_EQ(ddtest::LiveObjects(), 0);
}

}  // namespace

// Window stand-in: procedure chains and synchronous messages, the messages a
// memory window's test controls send, geometry against the screen's
// monitors, and client pixels read back as a user would see them.
#include "platform/window/window.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/kernel/fault.h"

namespace {

using namespace nplat;

// One log shared by the procedures below; each records "<name>:<message>".
std::vector<std::string> g_log;
WNDPROC g_prevA = nullptr;
WNDPROC g_prevB = nullptr;

LRESULT ProcA(HWND w, UINT m, WPARAM wp, LPARAM lp) {
    g_log.push_back("A:" + std::to_string(m));
    return CallWindowProcA(g_prevA, w, m, wp, lp) + 10;
}

LRESULT ProcB(HWND w, UINT m, WPARAM wp, LPARAM lp) {
    g_log.push_back("B:" + std::to_string(m));
    if (m == WM_ERASEBKGND) return 0;  // swallowed, as the video render does
    return CallWindowProcA(g_prevB, w, m, wp, lp) + 100;
}

struct Message {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};
std::vector<Message> g_messages;

LRESULT Recorder(HWND w, UINT m, WPARAM wp, LPARAM lp) {
    g_messages.push_back({m, wp, lp});
    return DefWindowProcA(w, m, wp, lp);
}

class WindowTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetScreen();
        g_log.clear();
        g_messages.clear();
        window = CreateMemoryWindow(100, 50, 64, 48);
        ASSERT_NE(window, nullptr);
    }
    void TearDown() override {
        if (window) DestroyWindow(window);
        ResetScreen();
    }
    void Record() { SetWindowLongPtrA(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Recorder)); }

    HWND window = nullptr;
};

TEST_F(WindowTest, ReplacedProceduresChainAndRestore) {
    g_prevA = reinterpret_cast<WNDPROC>(
        SetWindowLongPtrA(window, GWL_WNDPROC, reinterpret_cast<LONG_PTR>(ProcA)));
    EXPECT_EQ(g_prevA, &DefWindowProcA);
    g_prevB = reinterpret_cast<WNDPROC>(
        SetWindowLongA(window, GWL_WNDPROC, reinterpret_cast<LONG_PTR>(ProcB)));
    EXPECT_EQ(g_prevB, &ProcA);

    EXPECT_EQ(SendMessageA(window, WM_PAINT, 0, 0), 110);
    EXPECT_EQ(SendMessageA(window, WM_ERASEBKGND, 0, 0), 0);
    EXPECT_EQ(g_log, (std::vector<std::string>{"B:15", "A:15", "B:20"}));

    // Restoring hands back the replacing procedure, as Close expects.
    EXPECT_EQ(SetWindowLongA(window, GWL_WNDPROC, reinterpret_cast<LONG_PTR>(g_prevB)),
              reinterpret_cast<LONG_PTR>(ProcB));
    g_log.clear();
    EXPECT_EQ(SendMessageA(window, WM_ERASEBKGND, 0, 0), 11);  // default erases: 1
    EXPECT_EQ(g_log, (std::vector<std::string>{"A:20"}));
}

TEST_F(WindowTest, RefusedChangesLeaveTheProcedure) {
    EXPECT_EQ(SetWindowLongPtrA(window, GWL_WNDPROC, 0), 0);
    EXPECT_EQ(SetWindowLongPtrA(window, 12345, 1), 0);
    EXPECT_EQ(GetWindowLongPtrA(window, GWL_WNDPROC), reinterpret_cast<LONG_PTR>(DefWindowProcA));
    EXPECT_EQ(SetWindowLongPtrA(window, GWLP_USERDATA, 7), 0);
    EXPECT_EQ(GetWindowLongPtrA(window, GWLP_USERDATA), 7);
}

TEST_F(WindowTest, DestroyedHandleFailsEverywhere) {
    HWND dead = window;
    EXPECT_EQ(DestroyWindow(window), 1);
    window = nullptr;
    RECT r{1, 2, 3, 4};
    POINT p{5, 6};
    uint32_t pixel = 0;
    EXPECT_EQ(IsWindow(dead), 0);
    EXPECT_EQ(DestroyWindow(dead), 0);
    EXPECT_EQ(SendMessageA(dead, WM_PAINT, 0, 0), 0);
    EXPECT_EQ(SetWindowLongPtrA(dead, GWL_WNDPROC, reinterpret_cast<LONG_PTR>(ProcA)), 0);
    EXPECT_EQ(GetClientRect(dead, &r), 0);
    EXPECT_EQ(ClientToScreen(dead, &p), 0);
    EXPECT_EQ(MonitorFromWindow(dead, MONITOR_DEFAULTTOPRIMARY), nullptr);
    EXPECT_EQ(PutClientPixels(dead, {0, 0, 1, 1}, &pixel, 4), 0);
    EXPECT_EQ(SnapshotClient(dead, &pixel, 4), 0);
    EXPECT_EQ(MoveMemoryWindow(dead, 0, 0), 0);
    EXPECT_EQ(p.x, 5);
}

TEST_F(WindowTest, MemoryWindowControlsSendWhatWindowsSends) {
    Record();
    EXPECT_EQ(MoveMemoryWindow(window, -20, 300), 1);
    EXPECT_EQ(MoveMemoryWindow(window, -20, 300), 1);  // no change, no message
    EXPECT_EQ(ResizeMemoryWindow(window, 32, 40), 1);  // smaller: no paint
    EXPECT_EQ(ResizeMemoryWindow(window, 80, 40), 1);  // wider: paint
    EXPECT_EQ(SetMemoryWindowVisible(window, false), 1);
    EXPECT_EQ(SetMemoryWindowVisible(window, true), 1);
    const RECT cover{0, 0, 10, 10}, bigger{0, 0, 20, 20};
    EXPECT_EQ(SetMemoryWindowCovered(window, &cover), 1);   // more covered: no paint
    EXPECT_EQ(SetMemoryWindowCovered(window, &bigger), 1);  // still covers the old: no paint
    EXPECT_EQ(SetMemoryWindowCovered(window, nullptr), 1);  // uncovered: paint
    EXPECT_EQ(ResizeMemoryWindow(window, 0, 10), 0);

    ASSERT_EQ(g_messages.size(), 6u);
    EXPECT_EQ(g_messages[0].message, WM_MOVE);
    EXPECT_EQ(GET_X_LPARAM(g_messages[0].lParam), -20);
    EXPECT_EQ(GET_Y_LPARAM(g_messages[0].lParam), 300);
    EXPECT_EQ(g_messages[1].message, WM_SIZE);
    EXPECT_EQ(g_messages[1].lParam, MAKELPARAM(32, 40));
    EXPECT_EQ(g_messages[2].message, WM_SIZE);
    EXPECT_EQ(g_messages[3].message, WM_PAINT);
    EXPECT_EQ(g_messages[4].message, WM_PAINT);  // shown again
    EXPECT_EQ(g_messages[5].message, WM_PAINT);  // uncovered
    RECT client;
    ASSERT_EQ(GetClientRect(window, &client), 1);
    EXPECT_EQ(client.right, 80);
    EXPECT_EQ(client.bottom, 40);
}

TEST_F(WindowTest, DisplayChangeReachesEveryWindow) {
    Record();
    HWND second = CreateMemoryWindow(0, 0, 8, 8);
    SetWindowLongPtrA(second, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Recorder));
    BroadcastDisplayChange();
    ASSERT_EQ(g_messages.size(), 2u);
    for (const Message& m : g_messages) {
        EXPECT_EQ(m.message, WM_DISPLAYCHANGE);
        EXPECT_EQ(m.wParam, 32u);
        EXPECT_EQ(m.lParam, MAKELPARAM(1920, 1080));
    }
    DestroyWindow(second);
}

TEST_F(WindowTest, ClientAndScreenCoordinates) {
    POINT p{3, 4};
    ASSERT_EQ(ClientToScreen(window, &p), 1);
    EXPECT_EQ(p.x, 103);
    EXPECT_EQ(p.y, 54);
    ASSERT_EQ(ScreenToClient(window, &p), 1);
    EXPECT_EQ(p.x, 3);
    EXPECT_EQ(p.y, 4);
}

// Two monitors side by side, the right one primary, as a desk might be.
class TwoMonitorTest : public WindowTest {
  protected:
    void SetUp() override {
        WindowTest::SetUp();
        const RECT monitors[2] = {{-1280, 0, 0, 1024}, {0, 0, 1920, 1080}};
        ASSERT_EQ(SetScreenMonitors(monitors, 2, 1), 1);
    }
    static RECT Rect(HMONITOR m) {
        MONITORINFO info{sizeof(MONITORINFO), {}, {}, 0};
        EXPECT_EQ(GetMonitorInfoA(m, &info), 1);
        return info.rcMonitor;
    }
};

TEST_F(TwoMonitorTest, MetricsDescribeThePrimaryAndTheWholeDesk) {
    EXPECT_EQ(GetSystemMetrics(SM_CXSCREEN), 1920);
    EXPECT_EQ(GetSystemMetrics(SM_CYSCREEN), 1080);
    EXPECT_EQ(GetSystemMetrics(SM_CMONITORS), 2);
    EXPECT_EQ(GetSystemMetrics(SM_XVIRTUALSCREEN), -1280);
    EXPECT_EQ(GetSystemMetrics(SM_CXVIRTUALSCREEN), 3200);
}

TEST_F(TwoMonitorTest, WindowBelongsToTheMonitorWithMostOfIt) {
    // 64 wide at x = -40: 40 columns on the left monitor, 24 on the right.
    MoveMemoryWindow(window, -40, 10);
    EXPECT_EQ(Rect(MonitorFromWindow(window, MONITOR_DEFAULTTONULL)).left, -1280);
    MoveMemoryWindow(window, -20, 10);
    EXPECT_EQ(Rect(MonitorFromWindow(window, MONITOR_DEFAULTTONULL)).left, 0);

    MoveMemoryWindow(window, 5000, 10);  // off every monitor
    EXPECT_EQ(MonitorFromWindow(window, MONITOR_DEFAULTTONULL), nullptr);
    EXPECT_EQ(Rect(MonitorFromWindow(window, MONITOR_DEFAULTTOPRIMARY)).left, 0);
    MoveMemoryWindow(window, -5000, 10);
    EXPECT_EQ(Rect(MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST)).left, -1280);
}

TEST_F(TwoMonitorTest, EnumerationListsEachMonitorOnceWithThePrimaryFlag) {
    struct Seen {
        std::vector<RECT> rects;
        std::vector<DWORD> flags;
    } seen;
    const RECT clip{-100, 0, 100, 100};
    ASSERT_EQ(EnumDisplayMonitors(
                  nullptr, &clip,
                  [](HMONITOR m, HDC, RECT* r, LPARAM data) -> BOOL {
                      auto* s = reinterpret_cast<Seen*>(data);
                      MONITORINFO info{sizeof(MONITORINFO), {}, {}, 0};
                      GetMonitorInfoA(m, &info);
                      s->rects.push_back(*r);
                      s->flags.push_back(info.dwFlags);
                      return 1;
                  },
                  reinterpret_cast<LPARAM>(&seen)),
              1);
    ASSERT_EQ(seen.rects.size(), 2u);
    EXPECT_EQ(seen.rects[0].left, -100);  // clipped to the clip rectangle
    EXPECT_EQ(seen.rects[0].right, 0);
    EXPECT_EQ(seen.flags[0], 0u);
    EXPECT_EQ(seen.flags[1], MONITORINFOF_PRIMARY);

    // A monitor handle from before a change to one monitor is gone, not dangling.
    MoveMemoryWindow(window, -500, 0);
    HMONITOR left = MonitorFromWindow(window, MONITOR_DEFAULTTONULL);
    const RECT one{0, 0, 800, 600};
    SetScreenMonitors(&one, 1, 0);
    MONITORINFO info{sizeof(MONITORINFO), {}, {}, 0};
    EXPECT_EQ(GetMonitorInfoA(left, &info), 1);  // slot 0 now holds the single monitor
    EXPECT_EQ(info.rcMonitor.right, 800);
}

TEST(ScreenMonitors, RejectsImpossibleLayouts) {
    const RECT good{0, 0, 10, 10}, empty{5, 5, 5, 9};
    EXPECT_EQ(SetScreenMonitors(&good, 0, 0), 0);
    EXPECT_EQ(SetScreenMonitors(&good, 1, 1), 0);
    EXPECT_EQ(SetScreenMonitors(&empty, 1, 0), 0);
    EXPECT_EQ(SetScreenMonitors(nullptr, 1, 0), 0);
    EXPECT_EQ(GetSystemMetrics(SM_CXSCREEN), 1920);  // default kept
}

struct IntersectCase {
    const char* name;
    RECT a, b, expected;
    BOOL overlap;
};

class IntersectRectTest : public ::testing::TestWithParam<IntersectCase> {};

TEST_P(IntersectRectTest, GivesTheOverlapOrAnEmptyRect) {
    const IntersectCase& c = GetParam();
    RECT out{9, 9, 9, 9};
    EXPECT_EQ(IntersectRect(&out, &c.a, &c.b), c.overlap);
    EXPECT_EQ(out.left, c.expected.left);
    EXPECT_EQ(out.top, c.expected.top);
    EXPECT_EQ(out.right, c.expected.right);
    EXPECT_EQ(out.bottom, c.expected.bottom);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, IntersectRectTest,
    ::testing::Values(IntersectCase{"Partial", {0, 0, 10, 10}, {5, -5, 20, 5}, {5, 0, 10, 5}, 1},
                      IntersectCase{"Inside", {0, 0, 10, 10}, {2, 3, 4, 5}, {2, 3, 4, 5}, 1},
                      IntersectCase{"Touching", {0, 0, 10, 10}, {10, 0, 20, 10}, {0, 0, 0, 0}, 0},
                      IntersectCase{"Apart", {0, 0, 10, 10}, {-9, 20, -1, 30}, {0, 0, 0, 0}, 0},
                      IntersectCase{"EmptyInput", {3, 3, 3, 8}, {0, 0, 10, 10}, {0, 0, 0, 0}, 0}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- client pixels ----

std::vector<uint32_t> Snapshot(HWND w) {
    RECT r;
    GetClientRect(w, &r);
    std::vector<uint32_t> out(static_cast<size_t>(r.right) * r.bottom, 0xDEADBEEF);
    EXPECT_EQ(SnapshotClient(w, out.data(), r.right * 4), 1);
    return out;
}

std::vector<uint32_t> Gradient(int width, int height) {
    std::vector<uint32_t> p(static_cast<size_t>(width) * height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            p[static_cast<size_t>(y) * width + x] = static_cast<uint32_t>(x * 4) << 16 |
                                                    static_cast<uint32_t>(y * 5) << 8 |
                                                    static_cast<uint32_t>((x + y) & 0xFF);
        }
    }
    return p;
}

TEST_F(WindowTest, PutPixelsClipsToTheClientAndSkipsTheCoveredPart) {
    const RECT cover{10, 10, 20, 20};
    SetMemoryWindowCovered(window, &cover);
    const std::vector<uint32_t> picture = Gradient(40, 30);
    ASSERT_EQ(PutClientPixels(window, {30, 25, 70, 55}, picture.data(), 40 * 4), 1);
    ASSERT_EQ(PutClientPixels(window, {5, 5, 45, 35}, picture.data(), 40 * 4), 1);
    const std::vector<uint32_t> shown = Snapshot(window);
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x) {
            uint32_t expected = 0;
            if (x >= 30 && y >= 25) expected = picture[(y - 25) * 40 + (x - 30)];
            const bool covered = x >= 10 && x < 20 && y >= 10 && y < 20;
            if (x >= 5 && x < 45 && y >= 5 && y < 35 && !covered) {
                expected = picture[(y - 5) * 40 + (x - 5)];
            }
            ASSERT_EQ(shown[y * 64 + x], expected) << x << "," << y;
        }
    }
}

TEST_F(WindowTest, HiddenWindowKeepsItsPixels) {
    const uint32_t red = 0xFF0000;
    PutClientPixels(window, {0, 0, 1, 1}, &red, 4);
    SetMemoryWindowVisible(window, false);
    const uint32_t green = 0x00FF00;
    EXPECT_EQ(PutClientPixels(window, {0, 0, 1, 1}, &green, 4), 1);
    EXPECT_EQ(Snapshot(window)[0], red);
}

TEST_F(WindowTest, ResizeKeepsTheTopLeftPart) {
    const std::vector<uint32_t> picture = Gradient(64, 48);
    PutClientPixels(window, {0, 0, 64, 48}, picture.data(), 64 * 4);
    ResizeMemoryWindow(window, 32, 16);
    ResizeMemoryWindow(window, 70, 50);
    const std::vector<uint32_t> shown = Snapshot(window);
    EXPECT_EQ(shown[15 * 70 + 31], picture[15 * 64 + 31]);
    EXPECT_EQ(shown[16 * 70 + 0], 0u);  // below what survived
    EXPECT_EQ(shown[0 * 70 + 40], 0u);  // right of it
}

TEST_F(WindowTest, PixelStoreAllocationFailureIsReported) {
    uint32_t pixel = 1;
    fault::Scope failHeap(fault::Kind::kHeap, 0, 1);
    EXPECT_EQ(PutClientPixels(window, {0, 0, 1, 1}, &pixel, 4), 0);
}

struct FormatCase {
    ScreenFormat format;
    const char* name;
    uint32_t maxError;  // per channel, from the stored bits
};

class ScreenFormatTest : public WindowTest, public ::testing::WithParamInterface<FormatCase> {
  protected:
    void TearDown() override {
        SetScreenFormat(ScreenFormat::kRGB32);
        WindowTest::TearDown();
    }
};

TEST_P(ScreenFormatTest, ClientPixelsRoundTripWithinTheFormatsPrecision) {
    SetScreenFormat(GetParam().format);
    const std::vector<uint32_t> picture = Gradient(64, 48);
    ASSERT_EQ(PutClientPixels(window, {0, 0, 64, 48}, picture.data(), 64 * 4), 1);
    const std::vector<uint32_t> shown = Snapshot(window);
    for (size_t i = 0; i < picture.size(); ++i) {
        for (int shift = 0; shift < 24; shift += 8) {
            const int a = (picture[i] >> shift) & 255, b = (shown[i] >> shift) & 255;
            ASSERT_LE(static_cast<uint32_t>(std::abs(a - b)), GetParam().maxError) << i;
        }
    }
    // Pure white and black survive every format exactly.
    for (uint32_t colour : {0xFFFFFFu, 0x000000u}) {
        EXPECT_EQ(
            RGBFromScreenValue(GetParam().format, ScreenValueFromRGB(GetParam().format, colour)),
            colour);
    }
}

TEST_P(ScreenFormatTest, KeyedOverlayShowsOnlyOverTheKey) {
    const ScreenFormat format = GetParam().format;
    SetScreenFormat(format);
    const uint32_t keyColour = 0x100010, other = 0x2080C0, film = 0xC04020;
    std::vector<uint32_t> background(64 * 48, other);
    for (int y = 8; y < 24; ++y) {
        for (int x = 8; x < 50; ++x) background[y * 64 + x] = keyColour;
    }
    PutClientPixels(window, {0, 0, 64, 48}, background.data(), 64 * 4);
    const std::vector<uint32_t> overlay(40 * 30, film);
    ASSERT_EQ(SetClientOverlay(window, {0, 0, 40, 30}, overlay.data(), 40 * 4, true,
                               ScreenValueFromRGB(format, keyColour)),
              1);
    std::vector<uint32_t> shown = Snapshot(window);
    const uint32_t otherShown = RGBFromScreenValue(format, ScreenValueFromRGB(format, other));
    EXPECT_EQ(shown[10 * 64 + 10], film);
    EXPECT_EQ(shown[5 * 64 + 10], otherShown);  // inside the overlay, not keyed
    const uint32_t keyShown = RGBFromScreenValue(format, ScreenValueFromRGB(format, keyColour));
    EXPECT_EQ(shown[10 * 64 + 45], keyShown);  // keyed, outside the overlay

    ASSERT_EQ(SetClientOverlay(window, {}, nullptr, 0, false, 0), 1);
    shown = Snapshot(window);
    EXPECT_EQ(shown[10 * 64 + 10],
              RGBFromScreenValue(format, ScreenValueFromRGB(format, keyColour)));
}

INSTANTIATE_TEST_SUITE_P(Formats, ScreenFormatTest,
                         ::testing::Values(FormatCase{ScreenFormat::kRGB32, "RGB32", 0},
                                           FormatCase{ScreenFormat::kRGB24, "RGB24", 0},
                                           FormatCase{ScreenFormat::kRGB565, "RGB565", 7},
                                           FormatCase{ScreenFormat::kRGB555, "RGB555", 7}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ScreenValues, SixteenBitFormsMatchTheRenderFormulas) {
    // The video render computes its colour keys itself; the screen must store
    // exactly those values for a fill of the same colour to match the key.
    for (uint32_t rgb : {0x000000u, 0xFFFFFFu, 0x123456u, 0xF8FCF8u, 0x0A0B0Cu}) {
        const uint32_t r = rgb >> 16, g = (rgb >> 8) & 255, b = rgb & 255;
        EXPECT_EQ(ScreenValueFromRGB(ScreenFormat::kRGB555, rgb),
                  ((r & 0xF8) << 7) | ((g & 0xF8) << 2) | (b >> 3));
        EXPECT_EQ(ScreenValueFromRGB(ScreenFormat::kRGB565, rgb),
                  ((r & 0xF8) << 8) | ((g & 0xFC) << 3) | (b >> 3));
    }
}

}  // namespace

// The render loop and its DirectDraw back-end, stepped on the manual clock
// with a memory window: the frame cap, immediate presents, locked display
// buffers, windows off every monitor, window messages, retry intervals,
// device loss and restore, and what the window shows in every primary
// format, checked against RenderToMemory of the same scene.
#include <cstdlib>
#include <vector>

#include "ncodecbase/gdi_text.h"
#include "platform/ddraw/ddraw.h"
#include "platform/kernel/sync.h"
#include "tests/render/video/video_render_harness.h"

namespace ncbtest::render_video {
namespace {

using nplat::RECT;
using nplat::ScreenFormat;
using nplat::ddtest::Call;

constexpr int kWidth = 320, kHeight = 240;
constexpr uint32_t kYuvNavy = 0x29F06E;

// A render opened on a memory window with the clock under the test's hand.
class LoopTest : public ::testing::Test {
  protected:
    void SetUp() override {
        nplat::ResetScreen();
        nplat::ddtest::Reset();
        nplat::SetClock(&clock);
        ASSERT_EQ(render.Init(), 1);
        window = nplat::CreateMemoryWindow(100, 50, kWidth, kHeight);
        ASSERT_NE(window, nullptr);
    }
    void TearDown() override {
        render.Uninit();
        nplat::DestroyWindow(window);
        nplat::SetClock(nullptr);
        nplat::ddtest::Reset();
        nplat::ResetScreen();
    }

    void Open(unsigned colour = 0) { ASSERT_EQ(render.Open(window, nullptr, 0, colour), 1); }
    // Waits until the render thread sleeps again after the last change.
    void Settle() { ASSERT_TRUE(nplat::WaitUntilThreadsBlocked(1)); }
    void Advance(uint64_t ms) {
        clock.Advance(ms);
        Settle();
    }
    CNVideoRender::StatInfoTag Stat() {
        CNVideoRender::StatInfoTag s = {};
        render.GetStatInfo(&s);
        return s;
    }
    // Buffer 1 of the window's size: navy fill, colour bars in the middle and
    // a half-transparent red square over their corner.
    void BuildScene() {
        ASSERT_EQ(render.CreateOffScreenBuffer(1, kWidth, kHeight, 0, 0, 0, 0, 0x100, kYuvNavy), 1);
        MakeYuv(&bars, VIDEO_FORMAT_YUV420, 128, 96, [](int plane, int x, int y) -> uint8_t {
            if (plane == 0) return static_cast<uint8_t>(16 + (x * 219 / 128 + y) % 220);
            return static_cast<uint8_t>(plane == 1 ? 64 + x : 192 - y);
        });
        MakeRgb32(&square, 40, 40, [](int, int) { return 0x80FF0000u; });
        RECT dst = {60, 40, 260, 190};
        ASSERT_EQ(render.AddFrame(1, 0, 0, &bars.format, bars.buffer, nullptr, &dst, 0x3001, 0, 255,
                                  nullptr),
                  1);
        RECT corner = {240, 170, 280, 210};
        ASSERT_EQ(render.AddFrame(1, 5, 0, &square.format, square.buffer, nullptr, &corner, 0x3004,
                                  0, 255, nullptr),
                  1);
        ASSERT_EQ(render.SetCurrentDisplayBuffer(1), 1);
    }
    std::vector<uint32_t> Snapshot() {
        std::vector<uint32_t> pixels(kWidth * kHeight);
        EXPECT_EQ(nplat::SnapshotClient(window, pixels.data(), kWidth * 4), 1);
        return pixels;
    }

    nplat::ManualClock clock{1000};
    CNVideoRender render;
    nplat::HWND window = nullptr;
    Picture bars, square;
};

TEST_F(LoopTest, PresentsWithinOneFrameIntervalGiveOneComposition) {
    Open();
    BuildScene();
    for (int i = 0; i < 3; ++i) ASSERT_EQ(render.Present(1, 0), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderCount, 0u);  // the frame interval has not passed
    Advance(16);
    const auto s = Stat();
    EXPECT_EQ(s.uPresentCount, 3u);
    EXPECT_EQ(s.uRenderCount, 1u);
    EXPECT_EQ(s.uRenderSuccess, 1u);
    EXPECT_EQ(s.nStatus, 1u);
    EXPECT_EQ(s.uOutputPath, 0x4001u);  // DirectDraw, frames converted to RGB
}

TEST_F(LoopTest, ImmediatePresentComposesWithoutWaitingForTheInterval) {
    Open();
    BuildScene();
    ASSERT_EQ(render.Present(1, 0), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderCount, 0u);
    ASSERT_EQ(render.Present(0, 1), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderCount, 1u);
    EXPECT_EQ(Stat().uPresentCount, 1u);
}

TEST_F(LoopTest, LockedDisplayBufferHoldsTheCompositionUntilItIsUnlocked) {
    Open();
    BuildScene();
    ASSERT_EQ(render.CreateOffScreenBuffer(2, 64, 64, 0, 0, 0, 0, 0, 0), 1);
    ASSERT_EQ(render.LockOffScreenBuffer(1), 1);
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderCount, 0u);
    // Another buffer's unlock does not wake the thread, nor does time.
    ASSERT_EQ(render.LockOffScreenBuffer(2), 1);
    ASSERT_EQ(render.UnlockOffScreenBuffer(2), 1);
    Advance(5000);
    EXPECT_EQ(Stat().uRenderCount, 0u);
    ASSERT_EQ(render.UnlockOffScreenBuffer(1), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderCount, 1u);
    EXPECT_EQ(Stat().uRenderSuccess, 1u);
}

TEST_F(LoopTest, WindowOutsideEveryMonitorCountsAsSuccessWithoutDrawing) {
    Open();
    BuildScene();
    ASSERT_EQ(nplat::MoveMemoryWindow(window, 5000, 5000), 1);
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    const auto s = Stat();
    EXPECT_EQ(s.uRenderSuccess, 1u);
    EXPECT_EQ(nplat::ddtest::CallCount(Call::kCreate), 0);
    EXPECT_EQ(nplat::ddtest::CallCount(Call::kBlt), 0);
}

TEST_F(LoopTest, MoveOnOneMonitorWithoutOverlayDoesNotCompose) {
    Open();
    BuildScene();
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    ASSERT_EQ(Stat().uRenderCount, 1u);
    ASSERT_EQ(nplat::MoveMemoryWindow(window, 300, 200), 1);
    Advance(100);
    EXPECT_EQ(Stat().uRenderCount, 1u);
    // A new size does ask for a composition, at the frame cap.
    ASSERT_EQ(nplat::ResizeMemoryWindow(window, 200, 100), 1);
    Advance(100);
    EXPECT_EQ(Stat().uRenderCount, 2u);
}

TEST_F(LoopTest, MoveOnTwoMonitorsComposes) {
    const RECT monitors[2] = {{0, 0, 1920, 1080}, {1920, 0, 3840, 1080}};
    ASSERT_EQ(nplat::SetScreenMonitors(monitors, 2, 0), 1);
    Open();
    BuildScene();
    int count = 8;
    RECT rects[8];
    ASSERT_EQ(render.GetMonitorInfoA(&count, rects, nullptr, nullptr), 1);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(rects[1].left, 1920);
    ASSERT_EQ(nplat::MoveMemoryWindow(window, 1800, 100), 1);  // across both
    Advance(100);
    EXPECT_EQ(Stat().uRenderCount, 1u);
    EXPECT_EQ(Stat().uRenderSuccess, 1u);
    EXPECT_EQ(Stat().uOutputPath & 0x8001, 0x8001u);  // composed in software
    // What the window shows equals the memory composition, across the seam.
    Picture memory;
    ASSERT_EQ(render.RenderToMemory(1, &memory.format, &memory.buffer, 0), 1);
    const auto shown = Snapshot();
    for (int y = 0; y < kHeight; y += 7)
        for (int x = 0; x < kWidth; x += 5)
            ASSERT_EQ(shown[y * kWidth + x], Pixel(memory, x, y)) << x << "," << y;
}

TEST_F(LoopTest, OpenOnAWindowThatHasARenderFails) {
    Open();
    CNVideoRender second;
    ASSERT_EQ(second.Init(), 1);
    EXPECT_EQ(second.Open(window, nullptr, 0, 0), 0);
    EXPECT_EQ(second.GetExtendErrorCode(), 5);
    // The first render still owns the window; after its Close another may open.
    render.Close();
    EXPECT_EQ(second.Open(window, nullptr, 0, 0), 1);
    second.Close();
}

TEST_F(LoopTest, CloseGivesTheWindowItsProcedureBack) {
    const auto before = nplat::GetWindowLongPtrA(window, nplat::GWL_WNDPROC);
    Open();
    EXPECT_NE(nplat::GetWindowLongPtrA(window, nplat::GWL_WNDPROC), before);
    render.Close();
    EXPECT_EQ(nplat::GetWindowLongPtrA(window, nplat::GWL_WNDPROC), before);
    EXPECT_EQ(nplat::ddtest::LiveObjects(), 0);
}

TEST_F(LoopTest, OpenFailsWithErrorSixWhenDeviceSetUpFails) {
    nplat::ddtest::FailCall(Call::kEnumerate, 0, 1);
    EXPECT_EQ(render.Open(window, nullptr, 0, 0), 0);
    EXPECT_EQ(render.GetExtendErrorCode(), 6);
    // Nothing was left behind: the window is free for the next Open.
    Open();
}

TEST_F(LoopTest, NotifyEventTellsStatusAndPathChanges) {
    nplat::HANDLE notify = nplat::CreateEvent(false, false);
    ASSERT_NE(notify, nullptr);
    CNVideoRender::ConfigInfoTag config;
    ASSERT_EQ(render.GetConfig(&config), 1);
    config.uRenderFlags |= 0x40;
    ASSERT_EQ(render.SetConfig(&config), 1);
    Open();
    ASSERT_EQ(render.ConfigNotifyEvent(notify), 1);
    ASSERT_EQ(render.Present(0, 1), 1);  // no display buffer: the window fill
    Settle();
    EXPECT_EQ(nplat::WaitForSingleObject(notify, 0), nplat::WAIT_OBJECT_0);  // 0 -> 1
    EXPECT_EQ(Stat().uOutputPath, 1u);
    BuildScene();
    ASSERT_EQ(render.Present(0, 1), 1);
    Settle();
    EXPECT_EQ(nplat::WaitForSingleObject(notify, 0), nplat::WAIT_OBJECT_0);  // path 1 -> 0x4001
    ASSERT_EQ(render.Present(0, 1), 1);
    Settle();
    EXPECT_EQ(nplat::WaitForSingleObject(notify, 0),
              static_cast<nplat::DWORD>(nplat::WAIT_TIMEOUT));
    render.Close();
    nplat::CloseHandle(notify);
}

TEST_F(LoopTest, FreeSurfacesAgeOutOfTheCache) {
    Open();
    BuildScene();
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    const int live = nplat::ddtest::LiveObjects();
    Advance(1000);
    Advance(1000);
    EXPECT_EQ(nplat::ddtest::LiveObjects(), live);
    Advance(1000);  // the composition surface reached the age of three seconds
    EXPECT_EQ(nplat::ddtest::LiveObjects(), live - 1);
}

TEST_F(LoopTest, DisplayChangeSetsTheDevicesUpAgain) {
    Open();
    BuildScene();
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    const RECT monitors[2] = {{0, 0, 1920, 1080}, {1920, 0, 3840, 1080}};
    ASSERT_EQ(nplat::SetScreenMonitors(monitors, 2, 0), 1);
    nplat::BroadcastDisplayChange();
    int count = 8;
    ASSERT_EQ(render.GetMonitorInfoA(&count, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(nplat::ddtest::LiveObjects(), 0);  // devices open again on the next composition
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderSuccess, 2u);
}

// A buffer with a background: the view of the background image is the base
// picture, and frames other than background frames go over it.
TEST_F(LoopTest, BackgroundBufferShowsItsViewWithFramesOverIt) {
    Open();
    ASSERT_EQ(render.CreateOffScreenBuffer(3, kWidth, kHeight, 400, 300, 40, 30, 0x1, kYuvNavy), 1);
    Picture gradient, tile;
    MakeRgb32(&gradient, 400, 300,
              [](int x, int y) { return 0xFF000000u | (x * 255 / 400) << 16 | (y * 255 / 300); });
    MakeRgb32(&tile, 50, 50, [](int x, int) { return x < 25 ? 0xFF00FF00u : 0xFFFFFF00u; });
    RECT whole = {0, 0, 400, 300}, place = {100, 80, 150, 130};
    ASSERT_EQ(render.AddFrame(3, 0, 1, &gradient.format, gradient.buffer, nullptr, &whole, 0x3001,
                              0, 255, nullptr),
              1);
    ASSERT_EQ(render.AddFrame(3, 2, 0, &tile.format, tile.buffer, nullptr, &place, 0x3004, 0, 255,
                              nullptr),
              1);
    ASSERT_EQ(render.SetCurrentDisplayBuffer(3), 1);
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    ASSERT_EQ(Stat().uRenderSuccess, 1u);
    Picture memory;
    ASSERT_EQ(render.RenderToMemory(3, &memory.format, &memory.buffer, 0), 1);
    const auto shown = Snapshot();
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            ASSERT_EQ(shown[y * kWidth + x], Pixel(memory, x, y)) << x << "," << y;
    const uint32_t green = shown[100 * kWidth + 110];  // the green half of the tile
    EXPECT_GT((green >> 8) & 0xFF, 0xF0u);
    EXPECT_LT(green >> 16, 0x10u);
}

// A text marked "not in RenderToMemory" is drawn on the screen only.
TEST_F(LoopTest, ScreenOnlyTextIsOnTheWindowButNotInMemory) {
    Open();
    BuildScene();
    nplat::HDC style = nplat::CreateCompatibleDC(nullptr);
    nplat::HFONT font =
        nplat::CreateFontW(16, 0, 0, 0, nplat::FW_NORMAL, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
    nplat::SelectObject(style, font);
    nplat::SetTextColor(style, nplat::RGB(255, 255, 255));
    nplat::SetBkColor(style, nplat::RGB(0, 0, 255));
    nplat::SetBkMode(style, 2);  // opaque: the box behind the glyphs is blue
    nplat::POINT at = {4, 4};
    unsigned char text[] = "Live";
    ASSERT_EQ(render.AddText(1, 1, text, 4, 0x2 | 0x4, &at, style), 1);
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    ASSERT_EQ(Stat().uRenderSuccess, 1u);
    Picture memory;
    ASSERT_EQ(render.RenderToMemory(1, &memory.format, &memory.buffer, 0), 1);
    const auto shown = Snapshot();
    int blue = 0, white = 0;
    for (int y = 4; y < 20; ++y)
        for (int x = 4; x < 60; ++x) {
            blue += shown[y * kWidth + x] == 0x0000FFu;
            white += shown[y * kWidth + x] == 0xFFFFFFu;
            ASSERT_NE(Pixel(memory, x, y), 0x0000FFu);
        }
    EXPECT_GT(blue, 0);
    EXPECT_GT(white, 0);
    render.Close();  // the style DC must outlive the text
    nplat::DeleteDC(style);
    nplat::DeleteObject(font);
}

// Which retry interval follows a failure, by what failed.
struct RetryCase {
    const char* name;
    Call call;
    nplat::HRESULT result;
    uint32_t status;   // after the failure
    uint32_t retryMs;  // until the next attempt
};

class RetryTest : public LoopTest, public ::testing::WithParamInterface<RetryCase> {};

TEST_P(RetryTest, NextAttemptComesAfterTheIntervalOfTheStatus) {
    const RetryCase& c = GetParam();
    Open();
    BuildScene();
    nplat::ddtest::FailCall(c.call, 0, 1, c.result);
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    auto s = Stat();
    ASSERT_EQ(s.uRenderFail, 1u);
    EXPECT_EQ(s.nStatus, c.status);
    EXPECT_EQ(s.uDDrawError, static_cast<uint32_t>(c.result));
    Advance(c.retryMs - 1);
    EXPECT_EQ(Stat().uRenderCount, 1u);
    Advance(1);
    s = Stat();
    EXPECT_EQ(s.uRenderCount, 2u);
    EXPECT_EQ(s.uRenderSuccess, 1u);
    EXPECT_EQ(s.nStatus, 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Failures, RetryTest,
    ::testing::Values(RetryCase{"CreateFails", Call::kCreate, nplat::DDERR_GENERIC, 2, 1000},
                      RetryCase{"BltFails", Call::kBlt, nplat::DDERR_GENERIC, 2, 1000},
                      RetryCase{"SurfaceLost", Call::kBlt, nplat::DDERR_SURFACELOST, 2, 1000}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(LoopTest, LostSurfacesAreRestoredAfterTheShortRetry) {
    Open();
    BuildScene();
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    ASSERT_EQ(Stat().uRenderSuccess, 1u);
    nplat::ddtest::ForceLoss(1);  // the first restore attempt finds the mode changing
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    EXPECT_EQ(Stat().nStatus, 3u);
    EXPECT_EQ(Stat().uRenderFail, 1u);
    Advance(50);  // still changing mode: stays lost
    EXPECT_EQ(Stat().nStatus, 3u);
    EXPECT_EQ(Stat().uRenderFail, 2u);
    Advance(49);
    EXPECT_EQ(Stat().uRenderCount, 3u);
    Advance(1);
    EXPECT_EQ(Stat().nStatus, 1u);
    EXPECT_EQ(Stat().uRenderSuccess, 2u);
    EXPECT_GE(nplat::ddtest::CallCount(Call::kRestore), 1);
    Picture memory;
    ASSERT_EQ(render.RenderToMemory(1, &memory.format, &memory.buffer, 0), 1);
    EXPECT_EQ(Snapshot()[120 * kWidth + 160], Pixel(memory, 160, 120));
}

TEST_F(LoopTest, NoDisplayBufferFillsTheWindowColour) {
    Open(0x336699);
    ASSERT_EQ(render.Present(0, 1), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderSuccess, 1u);
    for (uint32_t p : Snapshot()) ASSERT_EQ(p, 0x336699u);
}

TEST_F(LoopTest, StatisticsSecondsCountRatesWhenAsked) {
    CNVideoRender::ConfigInfoTag config;
    ASSERT_EQ(render.GetConfig(&config), 1);
    config.uRenderFlags |= 0x10;
    ASSERT_EQ(render.SetConfig(&config), 1);
    Open();
    BuildScene();
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(render.Present(1, 1), 1);
        Advance(100);
    }
    Advance(600);  // closes the first second
    auto s = Stat();
    EXPECT_EQ(s.uPresentRate, 4000u);
    EXPECT_EQ(s.uRenderRate, 4000u);
    EXPECT_EQ(s.uPresentRateAverage, 4000u);
}

TEST_F(LoopTest, UninitReleasesEveryDeviceObject) {
    Open();
    BuildScene();
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    ASSERT_GT(nplat::ddtest::LiveObjects(), 0);
    render.Uninit();
    EXPECT_EQ(nplat::ddtest::LiveObjects(), 0);
}

// The main frame of a buffer with flag 0x800 goes on a keyed NV12 overlay
// (the headless DirectDraw offers YV12, NV12, YUY2 and UYVY); the window
// shows it where the composition holds the colour key, and the rest of the
// window as composed.
TEST_F(LoopTest, MainFrameShowsThroughTheKeyedOverlay) {
    Open();
    BuildScene();
    ASSERT_EQ(render.ConfigOffScreenBuffer(1, kWidth, kHeight, 0, 0, 0, 0, 0x900), 1);
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    auto s = Stat();
    ASSERT_EQ(s.uRenderSuccess, 1u);
    EXPECT_EQ(s.uOutputPath & 0x10041, 0x10041u);  // overlay in NV12 over DirectDraw
    EXPECT_EQ(nplat::ddtest::CallCount(Call::kUpdateOverlay), 1);
    Picture memory;
    ASSERT_EQ(render.RenderToMemory(1, &memory.format, &memory.buffer, 0), 1);
    const auto shown = Snapshot();
    const RECT video = {60, 40, 260, 190}, square = {240, 170, 280, 210};
    int64_t difference = 0, samples = 0;
    auto inside = [](const RECT& r, int x, int y) {
        return x >= r.left && x < r.right && y >= r.top && y < r.bottom;
    };
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const uint32_t got = shown[y * kWidth + x], want = Pixel(memory, x, y);
            if (inside(square, x, y)) continue;  // blended over the key, not the video
            if (!inside(video, x, y)) {
                ASSERT_EQ(got, want) << x << "," << y;
                continue;
            }
            // Through the overlay: the same picture after a trip through NV12
            // and another scaler, so close on average rather than exact.
            for (int shift = 0; shift < 24; shift += 8)
                difference += std::abs(static_cast<int>((got >> shift) & 0xFF) -
                                       static_cast<int>((want >> shift) & 0xFF));
            ++samples;
        }
    EXPECT_LT(difference / (3.0 * samples), 8.0);
    // A change of the main frame alone updates the overlay and draws nothing else.
    const int blts = nplat::ddtest::CallCount(Call::kBlt);
    ASSERT_EQ(render.UpdateFrameData(1, 0, 0, bars.buffer, nullptr), 1);
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderSuccess, 2u);
    EXPECT_EQ(nplat::ddtest::CallCount(Call::kUpdateOverlay), 2);
    EXPECT_EQ(nplat::ddtest::CallCount(Call::kBlt), blts);
}

// Without a FOURCC the overlay fails once and the main frame is composed.
TEST_F(LoopTest, OverlayWithoutFourCCFallsBackToComposition) {
    nplat::ddtest::SetOfferedFourCCs(nullptr, 0);
    Open();
    BuildScene();
    ASSERT_EQ(render.ConfigOffScreenBuffer(1, kWidth, kHeight, 0, 0, 0, 0, 0x900), 1);
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    EXPECT_EQ(Stat().uRenderSuccess, 1u);
    EXPECT_EQ(Stat().uOutputPath & 0x10000, 0u);
    Picture memory;
    ASSERT_EQ(render.RenderToMemory(1, &memory.format, &memory.buffer, 0), 1);
    EXPECT_EQ(Snapshot()[100 * kWidth + 100], Pixel(memory, 100, 100));
}

// Every primary format shows the memory composition within its precision:
// each memory pixel, stored in the screen's format and read back, is what
// the window shows.
class FormatTest : public LoopTest, public ::testing::WithParamInterface<ScreenFormat> {};

TEST_P(FormatTest, WindowShowsTheMemoryComposition) {
    nplat::SetScreenFormat(GetParam());
    Open();
    BuildScene();
    ASSERT_EQ(render.Present(1, 1), 1);
    Settle();
    ASSERT_EQ(Stat().uRenderSuccess, 1u);
    Picture memory;
    ASSERT_EQ(render.RenderToMemory(1, &memory.format, &memory.buffer, 0), 1);
    const auto shown = Snapshot();
    int mismatches = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const uint32_t want = nplat::RGBFromScreenValue(
                GetParam(), nplat::ScreenValueFromRGB(GetParam(), Pixel(memory, x, y)));
            if (shown[y * kWidth + x] != want && ++mismatches < 5)
                ADD_FAILURE() << x << "," << y << ": " << std::hex << shown[y * kWidth + x]
                              << " != " << want;
        }
    EXPECT_EQ(mismatches, 0);
}

std::string FormatName(const ::testing::TestParamInfo<ScreenFormat>& info) {
    static const char* const kNames[] = {"RGB32", "RGB565", "RGB555", "RGB24"};
    return kNames[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Primaries, FormatTest,
                         ::testing::Values(ScreenFormat::kRGB32, ScreenFormat::kRGB565,
                                           ScreenFormat::kRGB555, ScreenFormat::kRGB24),
                         FormatName);

}  // namespace
}  // namespace ncbtest::render_video

// The render thread against callers on other threads, on the real clock:
// Close while the thread is composing and other threads keep presenting and
// changing the scene. Run under ThreadSanitizer (label tsan).
#include <atomic>
#include <thread>

#include "platform/ddraw/ddraw.h"
#include "platform/kernel/sync.h"
#include "tests/render/video/video_render_harness.h"

namespace ncbtest::render_video {
namespace {

class LoopThreadsTest : public ::testing::TestWithParam<int> {};

TEST_P(LoopThreadsTest, CloseWhileTheThreadPresents) {
    nplat::ResetScreen();
    nplat::ddtest::Reset();
    nplat::HWND window = nplat::CreateMemoryWindow(0, 0, 160, 120);
    ASSERT_NE(window, nullptr);
    const auto procedure = nplat::GetWindowLongPtrA(window, nplat::GWL_WNDPROC);
    CNVideoRender render;
    ASSERT_EQ(render.Init(), 1);
    ASSERT_EQ(render.Open(window, nullptr, 0, 0x204060), 1);
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 160, 120, 0, 0, 0, 0, 0x100, 0x808080), 1);
    Picture picture;
    MakeRgb32(&picture, 64, 48, [](int x, int y) { return 0xFF000000u | (x * 4) << 8 | y * 5; });
    nplat::RECT dst = {10, 10, 150, 110};
    ASSERT_EQ(render.AddFrame(1, 1, 0, &picture.format, picture.buffer, nullptr, &dst, 0x3004, 0,
                              255, nullptr),
              1);
    ASSERT_EQ(render.SetCurrentDisplayBuffer(1), 1);

    std::atomic<bool> stop{false};
    std::thread presenter([&] {
        while (!stop.load()) render.Present(1, 1);
    });
    std::thread mover([&] {
        for (int i = 0; !stop.load(); ++i) {
            nplat::ResizeMemoryWindow(window, 160 + i % 7, 120 + i % 5);
            nplat::RECT d = {i % 20, 5, 150, 110};
            render.ConfigFrame(1, 1, nullptr, &d, 0x3004, 0, 255, nullptr);
            nplat::Sleep(1);
        }
    });
    CNVideoRender::StatInfoTag s = {};
    for (int i = 0; i < 500 && s.uRenderSuccess < 3u; ++i) {
        nplat::Sleep(2);
        render.GetStatInfo(&s);
    }
    EXPECT_GE(s.uRenderSuccess, 3u);
    nplat::Sleep(static_cast<nplat::DWORD>(GetParam()));
    render.Close();
    stop = true;
    presenter.join();
    mover.join();
    EXPECT_EQ(nplat::GetWindowLongPtrA(window, nplat::GWL_WNDPROC), procedure);
    EXPECT_EQ(nplat::ddtest::LiveObjects(), 0);
    render.Uninit();
    nplat::DestroyWindow(window);
}

INSTANTIATE_TEST_SUITE_P(AfterMs, LoopThreadsTest, ::testing::Values(0, 3, 10));

}  // namespace
}  // namespace ncbtest::render_video

// RenderToMemory composes outside the render lock on a copy of the scene:
// a host thread that replaces, removes and re-adds frames meanwhile must
// never make a composition fail, crash or read a released picture, and
// every composed picture shows one whole state of the frame (never a mix).
#include <atomic>
#include <thread>

#include "tests/render/video/video_render_harness.h"

namespace ncbtest::render_video {
namespace {

TEST_F(RenderTest, CompositionRunsOnACopyWhileTheHostChangesFrames) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 96, 64, 0, 0, 0, 0, 0x100, 0x008080), 1);
    Picture red, blue;
    MakeRgb32(&red, 48, 32, [](int, int) { return 0xFFFF0000u; });
    MakeRgb32(&blue, 48, 32, [](int, int) { return 0xFF0000FFu; });
    const nplat::RECT dst = {0, 0, 96, 64};  // scaled: the resize tables are shared too
    ASSERT_EQ(render.AddFrame(1, 1, 0, &red.format, red.buffer, nullptr,
                              const_cast<nplat::RECT*>(&dst), 0x1, 0, 255, nullptr),
              1);
    std::atomic<bool> stop{false};
    std::thread host([&] {
        for (int i = 0; !stop; ++i) {
            CNCodecBuffer* data = (i & 1) ? red.buffer : blue.buffer;
            if (i % 3 == 0) {
                render.RemoveFrame(1, 1, 0, 0);
                nplat::RECT d = dst;
                render.AddFrame(1, 1, 0, &red.format, data, nullptr, &d, 0x1, 0, 255, nullptr);
            } else {
                render.UpdateFrameData(1, 1, 0, data, nullptr);
            }
        }
    });
    int composed = 0;
    for (int n = 0; n < 200; ++n) {
        Picture out;
        ASSERT_EQ(render.RenderToMemory(1, &out.format, &out.buffer, 0), 1);
        const uint32_t corner = Pixel(out, 0, 0), far = Pixel(out, 95, 63);
        // Black when the frame was momentarily removed; otherwise one colour throughout.
        EXPECT_TRUE(corner == far || (corner == 0 && far == 0)) << std::hex << corner << " " << far;
        ++composed;
    }
    stop = true;
    host.join();
    EXPECT_EQ(composed, 200);
    EXPECT_EQ(red.buffer->GetRefCount() + blue.buffer->GetRefCount(), 3);  // one held by the frame
}

}  // namespace
}  // namespace ncbtest::render_video

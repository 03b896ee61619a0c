// Shared set-up of the layered render tests: a memory window, the software
// graphics device with its test controls back at their defaults, an opened
// render, and small picture makers (RGB32, NV12, Y800, subtitle pieces).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/layered_render.h"
#include "platform/gfx/gfx_test_controls.h"
#include "platform/window/window.h"
#include "render/layered/os_version.h"

namespace ncbtest::layered {

using Render = CNHVideoRender;
using Mapping = CNHVideoRender::LayerMappingInfoTag;

// A picture: descriptor plus an owned buffer holding it.
struct Picture {
    CNCodecBase::VideoFormatInfoTag format{};
    CNCodecBuffer* buffer = nullptr;
    Picture() = default;
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    ~Picture() {
        if (buffer) buffer->Release();
    }
    uint8_t* Data() { return static_cast<uint8_t*>(buffer->GetAddress()); }
};

// A picture of `code` and size, every plane filled by `fill(plane, x, y)`.
template <typename Fill>
void MakePicture(Picture* p, int code, int width, int height, Fill fill) {
    ncb::InitVideoFormat(&p->format, code, width, height);
    if (p->buffer) p->buffer->Release();  // a picture may be made again
    p->buffer = CNCodecBuffer::CreateBuffer();
    ASSERT_NE(p->buffer, nullptr);
    ASSERT_NE(ncb::AllocateFrame(p->buffer, &p->format), nullptr);
    ncb::PlaneSet planes;
    ASSERT_TRUE(ncb::GetPlanes(p->format, p->Data(), false, &planes));
    const ncb::PlaneView* views[3] = {&planes.plane0, &planes.u, &planes.v};
    for (int i = 0; i < planes.count; ++i) {
        const ncb::PlaneView& v = *views[i];
        const int bytes = i == 0 ? v.width * ncb::Bpp0(code)
                                 : (code == VIDEO_FORMAT_NV12 ? 2 * v.width : v.width);
        for (int y = 0; y < v.height; ++y) {
            for (int x = 0; x < bytes; ++x) v.data[y * v.pitch + x] = fill(i, x, y);
        }
    }
}

inline void RandomRgb32(Picture* p, int width, int height, uint32_t seed) {
    std::mt19937 rng(seed);
    MakePicture(p, VIDEO_FORMAT_RGB32, width, height,
                [&rng](int, int, int) { return static_cast<uint8_t>(rng()); });
}

inline Mapping WholeMapping(float w, float h, float dx = 0, float dy = 0) {
    Mapping m{};
    m.fSourceWidth = w, m.fSourceHeight = h;
    m.fDestX = dx, m.fDestY = dy;
    m.nFlags = 0x8;  // destination in pixels
    m.nAlpha = 255;
    return m;
}

class LayeredRenderTest : public ::testing::Test {
  protected:
    static constexpr int kWidth = 160;
    static constexpr int kHeight = 120;

    void SetUp() override {
        nplat::gfxtest::Reset();
        ncb::layered::versiontest::SetReportedVersion(10, 0);
        baseObjects_ = nplat::gfxtest::Counters().liveObjects;
        window_ = nplat::CreateMemoryWindow(0, 0, kWidth, kHeight);
        ASSERT_NE(window_, nullptr);
        ASSERT_EQ(render_.Init(), 0);
    }
    void TearDown() override {
        render_.Uninit();
        EXPECT_EQ(nplat::gfxtest::Counters().liveObjects, baseObjects_) << "device objects leaked";
        nplat::gfxtest::Reset();
        nplat::DestroyWindow(window_);
    }
    void Open(uint32_t extraFlags = 0) {
        CNHVideoRender::ConfigInfoTag cfg{};
        ASSERT_EQ(render_.GetConfig(&cfg), 0);
        cfg.uFlags |= extraFlags;
        ASSERT_EQ(render_.SetConfig(&cfg), 0);
        ASSERT_EQ(render_.Open(window_), 0);
    }
    std::vector<uint32_t> Snapshot() {
        std::vector<uint32_t> px(kWidth * kHeight);
        EXPECT_EQ(nplat::SnapshotClient(window_, px.data(), kWidth * 4), 1);
        return px;
    }
    // A static layer of the back buffer's size, in pixels, visible, mapped 1:1.
    void AddFullStaticLayer(unsigned id, uint32_t colour) {
        ASSERT_EQ(render_.AddLayer(id, 0x102, colour, kWidth, kHeight, 0xFFFFFFFFu), 0);
        Mapping m = WholeMapping(kWidth, kHeight);
        ASSERT_EQ(render_.ConfigLayerMappingInfo(id, 1, &m), 0);
    }

    CNHVideoRender render_;
    nplat::HWND window_ = nullptr;
    int baseObjects_ = 0;
};

}  // namespace ncbtest::layered

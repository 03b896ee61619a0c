// Test harness for the video render: an opened render on a memory window,
// picture builders for the formats frames take, pixel access to composed
// RGB32 pictures, and golden-picture comparison (PNG files under
// tests/render/video/golden/, written by our own encoder when the
// environment variable NCB_UPDATE_GOLDEN is set and checked by eye).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/png_codec.h"
#include "ncodecbase/video_render.h"
#include "platform/window/window.h"

namespace ncbtest::render_video {

using Format = CNCodecBase::VideoFormatInfoTag;

// A picture with its descriptor; releases its buffer.
struct Picture {
    CNCodecBuffer* buffer = nullptr;
    Format format = {};
    Picture() = default;
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    ~Picture() {
        if (buffer) buffer->Release();
    }
    uint8_t* Data() const { return static_cast<uint8_t*>(buffer->GetAddress()); }
};

// An empty picture of `code` laid out by the library's allocation rule.
inline void Allocate(Picture* p, int code, int width, int height) {
    ncb::InitVideoFormat(&p->format, code, width, height);
    p->buffer = CNCodecBuffer::CreateBuffer();
    ASSERT_NE(ncb::AllocateFrame(p->buffer, &p->format), nullptr);
}

// RGB32 picture, top-down, each pixel 0xAARRGGBB from `pixel(x, y)`.
inline void MakeRgb32(Picture* p, int width, int height,
                      const std::function<uint32_t(int, int)>& pixel) {
    Allocate(p, VIDEO_FORMAT_RGB32, width, height);
    ncb::FrameLayout l;
    ASSERT_TRUE(ncb::GetFrameLayout(p->format, &l));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint32_t v = pixel(x, y);
            std::memcpy(p->Data() + y * l.pitch0 + x * 4, &v, 4);
        }
}

// Planar picture of a generic or surface YUV code, every sample of a plane
// from `sample(plane, x, y)` (plane 0 luma, 1 U, 2 V; chroma coordinates).
inline void MakeYuv(Picture* p, int code, int width, int height,
                    const std::function<uint8_t(int, int, int)>& sample) {
    Allocate(p, code, width, height);
    ncb::PlaneSet s;
    ASSERT_TRUE(ncb::GetPlanes(p->format, p->Data(), false, &s));
    const ncb::PlaneView* views[3] = {&s.plane0, &s.u, &s.v};
    if (s.count == 2) {  // NV12: one plane of U, V pairs
        for (int y = 0; y < s.u.height; ++y)
            for (int x = 0; x < s.u.width; ++x) {
                s.u.data[y * s.u.pitch + 2 * x] = sample(1, x, y);
                s.u.data[y * s.u.pitch + 2 * x + 1] = sample(2, x, y);
            }
    }
    for (int plane = 0; plane < s.count; ++plane) {
        if (s.count == 2 && plane == 1) continue;
        const ncb::PlaneView& v = *views[plane];
        for (int y = 0; y < v.height; ++y)
            for (int x = 0; x < v.width; ++x) v.data[y * v.pitch + x] = sample(plane, x, y);
    }
}

// A render opened on a memory window.
class RenderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(render.Init(), 1);
        window = nplat::CreateMemoryWindow(0, 0, 320, 240);
        ASSERT_NE(window, nullptr);
        ASSERT_EQ(render.Open(window, nullptr, 0, 0), 1);
    }
    void TearDown() override {
        render.Uninit();
        nplat::DestroyWindow(window);
    }

    // Composes a buffer and checks the result's shape.
    void Compose(int id, Picture* out, int whole = 0) {
        ASSERT_EQ(render.RenderToMemory(id, &out->format, &out->buffer, whole), 1);
        ASSERT_NE(out->buffer, nullptr);
        ASSERT_EQ(out->format.nCodecSubType, VIDEO_FORMAT_RGB32);
    }

    CNVideoRender render;
    nplat::HWND window = nullptr;
};

// 0x00RRGGBB of a composed picture's pixel (alpha dropped).
inline uint32_t Pixel(const Picture& p, int x, int y) {
    ncb::FrameLayout l;
    if (!ncb::GetFrameLayout(p.format, &l)) return 0xDEADBEEF;
    uint32_t v;
    int row = ncb::IsBottomUp(p.format) ? p.format.nHeight - 1 - y : y;
    std::memcpy(&v, p.Data() + row * l.pitch0 + p.format.nPadLeft + x * 4, 4);
    return v & 0xFFFFFF;
}

inline std::string GoldenPath(const std::string& name) {
    return std::string(NCB_SOURCE_DIR) + "/tests/render/video/golden/" + name + ".png";
}

// Compares a composed picture with its golden PNG (RGB only), or writes the
// golden file when NCB_UPDATE_GOLDEN is set.
inline void ExpectGolden(const Picture& p, const std::string& name) {
    const std::string path = GoldenPath(name);
    if (std::getenv("NCB_UPDATE_GOLDEN")) {
        CNCodecBuffer* png = CNCodecBuffer::CreateBuffer();
        Format in = p.format, out = {};
        ASSERT_EQ(CNPngCodec::Encode(&in, &out, p.buffer, png, 0), 1);
        FILE* f = std::fopen(path.c_str(), "wb");
        ASSERT_NE(f, nullptr) << path;
        std::fwrite(png->GetAddress(), 1, static_cast<size_t>(png->GetDataSize()), f);
        std::fclose(f);
        png->Release();
        return;
    }
    FILE* f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr) << "missing golden " << path << " (run with NCB_UPDATE_GOLDEN=1)";
    std::vector<uint8_t> bytes;
    uint8_t chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof(chunk), f)) > 0)
        bytes.insert(bytes.end(), chunk, chunk + n);
    std::fclose(f);
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    std::memcpy(file->Allocate(static_cast<int>(bytes.size()), 16, 0), bytes.data(), bytes.size());
    file->SetDataSize(static_cast<int>(bytes.size()));
    Picture golden;
    Format in = {};
    ASSERT_EQ(CNPngCodec::Decode(&in, &golden.format, file, &golden.buffer), 1);
    file->Release();
    ASSERT_EQ(golden.format.nWidth, p.format.nWidth);
    ASSERT_EQ(golden.format.nHeight, p.format.nHeight);
    int differing = 0;
    for (int y = 0; y < p.format.nHeight; ++y)
        for (int x = 0; x < p.format.nWidth; ++x)
            if (Pixel(golden, x, y) != Pixel(p, x, y) && differing++ < 5)
                ADD_FAILURE() << name << " differs at " << x << "," << y << ": " << std::hex
                              << Pixel(p, x, y) << " instead of " << Pixel(golden, x, y);
    EXPECT_EQ(differing, 0) << name;
}

}  // namespace ncbtest::render_video

// A small picture for the video tests: owned bytes, a descriptor with no
// padding (or the library's allocation rule), a wrapping CNCodecBuffer, and
// pixel accessors through the library's plane arithmetic.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"

namespace ncbtest {

class TestFrame {
  public:
    TestFrame(int code, int width, int height, int flags = 0) {
        ncb::InitVideoFormat(&format, code, width, height);
        format.nFormatFlags = flags;
        ncb::FrameLayout layout;
        ncb::GetFrameLayout(format, &layout);
        bytes.assign(static_cast<size_t>(layout.totalBytes) + 64, 0);
        buffer = std::make_unique<CNCodecBuffer>(bytes.data(), static_cast<int>(bytes.size()),
                                                 static_cast<int>(bytes.size()), nullptr);
        ncb::GetPlanes(format, bytes.data(), false, &planes);
    }

    // Byte i of pixel / sample (x, y) of a plane: 0 plane 0, 1 U, 2 V.
    uint8_t& At(int plane, int x, int y, int byte = 0) {
        const ncb::PlaneView& v = plane == 0 ? planes.plane0 : plane == 1 ? planes.u : planes.v;
        ncb::FormatLayout l;
        ncb::GetFormatLayout(format.nCodecSubType, &l);
        const int size = plane == 0 ? l.bpp0 : (l.pairs ? 2 : 1);
        return v.data[static_cast<ptrdiff_t>(y) * v.pitch + x * size + byte];
    }
    uint8_t& Y(int x, int y) { return At(0, x, y); }
    uint8_t& U(int x, int y) { return At(1, x, y); }
    uint8_t& V(int x, int y) { return At(2, x, y); }

    void Fill(int plane, uint8_t value) {
        const ncb::PlaneView& v = plane == 0 ? planes.plane0 : plane == 1 ? planes.u : planes.v;
        for (int y = 0; y < v.height; ++y)
            for (int x = 0; x < v.width; ++x) At(plane, x, y) = value;
    }
    // RGB32 pixel as 0xAARRGGBB.
    uint32_t Rgb32(int x, int y) {
        return At(0, x, y, 0) | At(0, x, y, 1) << 8 | At(0, x, y, 2) << 16 |
               static_cast<uint32_t>(At(0, x, y, 3)) << 24;
    }
    void SetRgb32(int x, int y, uint32_t argb) {
        for (int i = 0; i < 4; ++i) At(0, x, y, i) = static_cast<uint8_t>(argb >> (8 * i));
    }

    CNCodecBuffer* Buffer() { return buffer.get(); }
    ncb::VideoFormatInfo* Format() { return &format; }

    ncb::VideoFormatInfo format{};
    std::vector<uint8_t> bytes;
    ncb::PlaneSet planes;
    std::unique_ptr<CNCodecBuffer> buffer;
};

}  // namespace ncbtest

// Pictures for the scene detector's tests: grey canvases made from real
// pictures (the PNG suite, decoded by our PNG codec and turned into luma),
// upscaled and laid out as a mosaic so that they are large and varied
// enough for a block search; views of them panned, zoomed, field-
// interleaved or cross-faded with bilinear sampling; and Y800 frames in
// reference-counted buffers, as a host would hand them to the detector.
#pragma once

#include <cmath>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"
#include "tests/support/test_paths.h"

namespace ncbtest::scene {

struct Grey {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;

    uint8_t At(int x, int y) const {
        x = x < 0 ? 0 : (x >= width ? width - 1 : x);
        y = y < 0 ? 0 : (y >= height ? height - 1 : y);
        return pixels[static_cast<size_t>(y) * width + x];
    }
    // Bilinear sample at a fractional position (pixel centres at integers).
    double Sample(double x, double y) const {
        const int x0 = static_cast<int>(std::floor(x)), y0 = static_cast<int>(std::floor(y));
        const double fx = x - x0, fy = y - y0;
        const double top = At(x0, y0) * (1 - fx) + At(x0 + 1, y0) * fx;
        const double bottom = At(x0, y0 + 1) * (1 - fx) + At(x0 + 1, y0 + 1) * fx;
        return top * (1 - fy) + bottom * fy;
    }
};

// Luma of a PNG suite picture, alpha composited over mid grey. Empty when
// the file cannot be read or decoded.
inline Grey LoadPngLuma(const std::string& name) {
    std::ifstream in(TestDataPath("png/" + name), std::ios::binary);
    std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    Grey out;
    if (file.empty()) return out;
    CNCodecBuffer input(file.data(), static_cast<int>(file.size()), static_cast<int>(file.size()),
                        nullptr);
    CNCodecBase::VideoFormatInfoTag format{};
    CNCodecBuffer* decoded = nullptr;
    if (!CNPngCodec::Decode(nullptr, &format, &input, &decoded)) return out;
    out.width = format.nWidth;
    out.height = format.nHeight;
    const uint8_t* bgra = static_cast<const uint8_t*>(decoded->GetAddress());
    for (int i = 0; i < out.width * out.height; ++i) {
        const uint8_t* p = bgra + 4 * i;
        const int y = (29 * p[0] + 150 * p[1] + 77 * p[2] + 128) >> 8;
        out.pixels.push_back(static_cast<uint8_t>((y * p[3] + 128 * (255 - p[3]) + 127) / 255));
    }
    decoded->Release();
    return out;
}

// The pictures laid out in `columns` x `rows` tiles, each enlarged `scale`
// times. Each picture appears as often as the slots need, in turn as it is,
// mirrored left to right, mirrored top to bottom and turned half round, and
// the slots take the tiles in a scattered order, so that no two neighbours
// are the same tile.
inline Grey Mosaic(const std::vector<std::string>& names, int columns, int rows, int scale) {
    std::vector<Grey> pictures;
    for (const std::string& n : names) pictures.push_back(LoadPngLuma(n));
    const int tile = 32 * scale, slots = columns * rows, count = static_cast<int>(names.size());
    Grey out{columns * tile, rows * tile, {}};
    out.pixels.resize(static_cast<size_t>(out.width) * out.height, 128);
    for (int slot = 0; slot < slots; ++slot) {
        const int index = (slot * 7) % slots;  // 7 shares no factor with the slot counts used
        const Grey& t = pictures[index % count];
        const int variant = (index / count) % 4;
        if (t.width == 0) continue;
        const int ox = (slot % columns) * tile, oy = (slot / columns) * tile;
        for (int y = 0; y < tile; ++y)
            for (int x = 0; x < tile; ++x) {
                double sx = (x + 0.5) * t.width / tile - 0.5;
                double sy = (y + 0.5) * t.height / tile - 0.5;
                if (variant == 1 || variant == 3) sx = t.width - 1 - sx;
                if (variant == 2 || variant == 3) sy = t.height - 1 - sy;
                out.pixels[static_cast<size_t>(oy + y) * out.width + ox + x] =
                    static_cast<uint8_t>(std::lround(t.Sample(sx, sy)));
            }
    }
    return out;
}

struct ReleaseFrame {
    void operator()(CNCodecBuffer* b) const { b->Release(); }
};
using FramePtr = std::unique_ptr<CNCodecBuffer, ReleaseFrame>;

// A Y800 frame of width x height whose sample (x, y) is f(x, y).
inline FramePtr MakeFrame(int width, int height, const std::function<uint8_t(int, int)>& f) {
    FramePtr frame(CNCodecBuffer::CreateBuffer());
    uint8_t* data = static_cast<uint8_t*>(frame->Allocate(width * height, 16, 0));
    frame->SetDataSize(width * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) data[y * width + x] = f(x, y);
    return frame;
}

inline uint8_t Clamp8(double v) {
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : std::lround(v)));
}

// The view of `canvas` whose top-left lies at (x0, y0), magnified by zoom
// around the view's centre.
inline FramePtr View(const Grey& canvas, int width, int height, double x0, double y0,
                     double zoom = 1.0) {
    return MakeFrame(width, height, [&](int x, int y) {
        const double cx = width / 2.0, cy = height / 2.0;
        return Clamp8(canvas.Sample(x0 + cx + (x - cx) / zoom, y0 + cy + (y - cy) / zoom));
    });
}

}  // namespace ncbtest::scene

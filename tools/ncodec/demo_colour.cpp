// Demo step "colour": one test picture through the colour conversions, an
// adjustment and the three quarter turns, laid side by side in one strip
// (colour_strip.png): original | via 4:2:0 | via NV12 | via YUY2 | via
// RGB565 | grey (Y800) | brightness, contrast and saturation raised | turned
// 90 degrees clockwise | 180 | 90 counter-clockwise. The tiles are placed
// with DirectCopyRGB into rectangles of the strip. colour.txt reports how
// far each conversion moved the pixels and checks that turns undo each
// other.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/processor_level.h"
#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "tools/ncodec/demo_picture.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"
#include "tools/ncodec/image_formats.h"
#include "tools/ncodec/layout_convert.h"

namespace ncodec {
namespace {

using Config = CNVideoProcessor::ConvertConfigTag;

constexpr int kSize = 200;  // square, so turned tiles fit the same slot
constexpr int kGap = 8;
constexpr Config kNoAdjust{0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255};

int Level() { return ncb::ProcessorLevel() < 0 ? 0 : ncb::ProcessorLevel(); }

bool NewPicture(int code, int width, int height, Picture* p) {
    ncb::InitVideoFormat(&p->format, code, width, height);
    p->pixels.reset(CNCodecBuffer::CreateBuffer());
    return p->pixels && ncb::AllocateFrame(p->pixels.get(), &p->format);
}

uint8_t* PixelAt(const Picture& p, int x, int y) {
    ncb::PlaneSet planes;
    ncb::GetPlanes(p.format, static_cast<uint8_t*>(p.pixels->GetAddress()), false, &planes);
    return planes.plane0.data + y * planes.plane0.pitch + 4 * x;
}

// Colour bars over the top third, a hue sweep fading to dark below them,
// a grey ramp along the bottom and a thin diagonal for the turns.
void TestPixel(int x, int y, uint8_t* px) {
    static const uint32_t kBars[] = {0xFFFFFF, 0xFFFF00, 0x00FFFF, 0x00FF00,
                                     0xFF00FF, 0xFF0000, 0x0000FF, 0x000000};
    uint32_t rgb;
    if (y < kSize / 3) {
        rgb = kBars[x * 8 / kSize];
    } else if (y < kSize * 5 / 6) {
        const int h = x * 6 * 256 / kSize, f = h & 255, light = 255 - (y - kSize / 3) * 300 / kSize;
        const int up = f, down = 255 - f;
        const int seg[6][3] = {{255, up, 0},   {down, 255, 0}, {0, 255, up},
                               {0, down, 255}, {up, 0, 255},   {255, 0, down}};
        const int* c = seg[(h >> 8) % 6];
        rgb = (c[0] * light / 255) << 16 | (c[1] * light / 255) << 8 | (c[2] * light / 255);
    } else {
        const int g = x * 255 / (kSize - 1);
        rgb = g << 16 | g << 8 | g;
    }
    if (std::abs(x - y) < 2) rgb = 0xFF2020;
    px[0] = static_cast<uint8_t>(rgb);
    px[1] = static_cast<uint8_t>(rgb >> 8);
    px[2] = static_cast<uint8_t>(rgb >> 16);
    px[3] = 255;
}

bool MakeTestPicture(Picture* p) {
    if (!NewPicture(VIDEO_FORMAT_RGB32, kSize, kSize, p)) return false;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) TestPixel(x, y, PixelAt(*p, x, y));
    return true;
}

bool Copy(const Picture& from, Picture* to) {
    if (!NewPicture(VIDEO_FORMAT_RGB32, from.format.nWidth, from.format.nHeight, to)) return false;
    ncb::VideoFormatInfo in = from.format;
    return CNVideoProcessor::DirectCopyRGB(from.pixels.get(), to->pixels.get(), &in, &to->format, 0,
                                           0, Level());
}

// Raised brightness, contrast and saturation: RGB32 -> 4:4:4 plain, then
// back with the adjustment (luma x 1.25 + 12, chroma x 1.6 around 128).
bool Adjusted(const Picture& from, Picture* to) {
    Picture yuv;
    if (!NewPicture(VIDEO_FORMAT_YUV444, kSize, kSize, &yuv) ||
        !NewPicture(VIDEO_FORMAT_RGB32, kSize, kSize, to))
        return false;
    ncb::VideoFormatInfo in = from.format;
    Config plain = kNoAdjust;
    Config adjust = kNoAdjust;
    adjust.nGainY = 320;
    adjust.nOffsetY = 12;
    adjust.nGainU = adjust.nGainV = 410;
    return CNVideoProcessor::ConvertFromRGB(from.pixels.get(), yuv.pixels.get(), &in, &yuv.format,
                                            &plain, 0, Level()) &&
           CNVideoProcessor::ConvertToRGB(yuv.pixels.get(), to->pixels.get(), &yuv.format,
                                          &to->format, &adjust, 0, Level());
}

bool Turned(const Picture& from, int rotation, Picture* to) {
    const bool swap = rotation != 1;
    if (!NewPicture(VIDEO_FORMAT_RGB32, swap ? from.format.nHeight : from.format.nWidth,
                    swap ? from.format.nWidth : from.format.nHeight, to))
        return false;
    ncb::VideoFormatInfo in = from.format;
    return CNVideoProcessor::RotateRGB(from.pixels.get(), to->pixels.get(), &in, &to->format,
                                       rotation, 0, Level()) == 1;
}

// Mean and largest per-channel difference between two pictures.
void Difference(const Picture& a, const Picture& b, double* mean, int* worst) {
    int64_t sum = 0;
    *worst = 0;
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            const uint8_t* p = PixelAt(a, x, y);
            const uint8_t* q = PixelAt(b, x, y);
            for (int i = 0; i < 3; ++i) {
                const int d = std::abs(p[i] - q[i]);
                sum += d;
                if (d > *worst) *worst = d;
            }
        }
    }
    *mean = static_cast<double>(sum) / (3.0 * kSize * kSize);
}

bool IsGrey(const Picture& p) {
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) {
            const uint8_t* q = PixelAt(p, x, y);
            if (q[0] != q[1] || q[1] != q[2]) return false;
        }
    return true;
}

// The tiles laid left to right on a dark background.
bool Strip(const std::vector<const Picture*>& tiles, Picture* strip) {
    const int n = static_cast<int>(tiles.size());
    if (!NewPicture(VIDEO_FORMAT_RGB32, n * kSize + (n - 1) * kGap, kSize, strip)) return false;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < strip->format.nWidth; ++x) {
            uint8_t* p = PixelAt(*strip, x, y);
            p[0] = p[1] = p[2] = 40;
            p[3] = 255;
        }
    for (int i = 0; i < n; ++i) {
        ncb::VideoFormatInfo in = tiles[i]->format;
        ncb::VideoFormatInfo out = strip->format;
        out.nRectLeft = i * (kSize + kGap);
        out.nRectRight = out.nRectLeft + kSize;
        if (!CNVideoProcessor::DirectCopyRGB(tiles[i]->pixels.get(), strip->pixels.get(), &in, &out,
                                             0, 1, Level()))
            return false;
    }
    return true;
}

}  // namespace

bool DemoColour(const DemoContext& context, std::string* error) {
    DemoReport r;
    r.Line("colour conversions of a %d x %d test picture at processor level %d", kSize, kSize,
           Level());
    Picture original;
    if (!MakeTestPicture(&original)) {
        *error = "out of memory";
        return false;
    }
    struct Via {
        const char* layout;
        int allowedMean;  // x 10, what the layout's precision explains
    };
    const Via vias[] = {{"yuv420", 60}, {"nv12", 60}, {"yuy2", 40}, {"rgb565", 30}, {"y800", 1000}};
    std::vector<Picture> converted(std::size(vias));
    for (size_t i = 0; i < std::size(vias); ++i) {
        if (!Copy(original, &converted[i]) ||
            !ConvertThroughLayout(vias[i].layout, &converted[i], error))
            return false;
        double mean;
        int worst;
        Difference(original, converted[i], &mean, &worst);
        r.Line("  via %-7s mean difference %5.2f, largest %3d", vias[i].layout, mean, worst);
        r.Expect(mean * 10 <= vias[i].allowedMean, "conversion stays near the original");
    }
    r.Check(IsGrey(converted[4]), "the Y800 picture is grey");
    Picture adjusted, turns[3], back;
    if (!Adjusted(original, &adjusted) || !Turned(original, 0, &turns[0]) ||
        !Turned(original, 1, &turns[1]) || !Turned(original, 2, &turns[2])) {
        *error = "a conversion or turn failed";
        return false;
    }
    double mean;
    int worst;
    Turned(turns[0], 2, &back);
    Difference(original, back, &mean, &worst);
    r.Check(worst == 0, "a clockwise then a counter-clockwise turn restore it");
    Turned(turns[1], 1, &back);
    Difference(original, back, &mean, &worst);
    r.Check(worst == 0, "two half turns restore it");
    Picture strip;
    std::vector<const Picture*> tiles = {&original};
    for (const Picture& p : converted) tiles.push_back(&p);
    tiles.insert(tiles.end(), {&adjusted, &turns[0], &turns[1], &turns[2]});
    if (!Strip(tiles, &strip)) {
        *error = "cannot compose the strip";
        return false;
    }
    r.Line("strip: original, via 4:2:0, NV12, YUY2, RGB565, grey, adjusted, turned 90 / 180 / 270");
    if (!WritePicture(context, "colour_strip.png", strip.format, strip.pixels.get(), false,
                      error) ||
        !context.WriteText("colour.txt", r.text(), error))
        return false;
    if (!r.ok()) *error = r.firstFailure();
    return r.ok();
}

}  // namespace ncodec

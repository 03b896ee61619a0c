// Demo step "composite": a background picture scaled up and down with the
// polyphase resizer (composite_small.png, composite_large.png), then a
// composed frame (composite.png): the scaled background, a translucent
// box (FillRectRGB at half alpha), a logo whose magenta surround is its
// colour key (FillRectRGB32WithColorKey_NoRead), a half-transparent inset
// blended by its own alpha (AlphaBlendingRGB mode 1) and an AI44 subtitle
// drawn through its palette (FillRectRGB32WithAI44_NoRead). composite.txt
// checks a few pixels against the rules they were drawn by.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/processor_level.h"
#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "tools/ncodec/demo_picture.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"
#include "tools/ncodec/image_formats.h"

namespace ncodec {
namespace {

using VP = CNVideoProcessor;

constexpr int kWidth = 320, kHeight = 180;
constexpr uint32_t kKey = 0xFFFF00FF;

int Level() { return ncb::ProcessorLevel() < 0 ? 0 : ncb::ProcessorLevel(); }

bool NewPicture(int code, int width, int height, Picture* p) {
    ncb::InitVideoFormat(&p->format, code, width, height);
    p->pixels.reset(CNCodecBuffer::CreateBuffer());
    return p->pixels && ncb::AllocateFrame(p->pixels.get(), &p->format);
}

ncb::PlaneView Plane0(const Picture& p) {
    ncb::PlaneSet planes;
    ncb::GetPlanes(p.format, static_cast<uint8_t*>(p.pixels->GetAddress()), false, &planes);
    return planes.plane0;
}

uint32_t Get(const Picture& p, int x, int y) {
    uint32_t v;
    std::memcpy(&v, Plane0(p).data + y * Plane0(p).pitch + 4 * x, 4);
    return v;
}

void Set(const Picture& p, int x, int y, uint32_t v) {
    std::memcpy(Plane0(p).data + y * Plane0(p).pitch + 4 * x, &v, 4);
}

// A sky-to-ground gradient with rings, at 160 x 90, to be scaled.
bool MakeBackground(Picture* p) {
    if (!NewPicture(VIDEO_FORMAT_RGB32, 160, 90, p)) return false;
    for (int y = 0; y < 90; ++y) {
        for (int x = 0; x < 160; ++x) {
            const int dx = x - 110, dy = y - 40, ring = ((dx * dx + dy * dy) / 60) & 1;
            const uint32_t r = 40 + y, g = 90 + y + ring * 40, b = 220 - y - ring * 60;
            Set(*p, x, y, 0xFF000000u | r << 16 | g << 8 | b);
        }
    }
    return true;
}

bool Scale(const Picture& in, int w, int h, Picture* out) {
    if (!NewPicture(VIDEO_FORMAT_RGB32, w, h, out)) return false;
    CNCodecBuffer work;
    const bool ok = VP::ResizeInit(VIDEO_FORMAT_RGB32, Level(), in.format.nWidth, in.format.nHeight,
                                   static_cast<int>(Plane0(in).pitch), 0, w, h,
                                   static_cast<int>(Plane0(*out).pitch), 0, &work) == 1 &&
                    VP::ResizeRGB32(Plane0(in).data, Plane0(*out).data, &work) == 1;
    VP::ResizeUninit(&work);
    return ok;
}

// A 48 x 48 logo: a yellow diamond on the colour key.
bool MakeLogo(Picture* p) {
    if (!NewPicture(VIDEO_FORMAT_RGB32, 48, 48, p)) return false;
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 48; ++x)
            Set(*p, x, y, std::abs(x - 24) + std::abs(y - 24) < 20 ? 0xFFFFD020u : kKey);
    return true;
}

// A 64 x 40 inset whose alpha fades from 0 on the left to 255 on the right.
bool MakeInset(Picture* p) {
    if (!NewPicture(VIDEO_FORMAT_RGB32, 64, 40, p)) return false;
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 64; ++x)
            Set(*p, x, y, static_cast<uint32_t>(x * 255 / 63) << 24 | 0xE03030u);
    return true;
}

// A 120 x 14 AI44 subtitle: white bars on a translucent dark band. The
// palette rides in the additional information as AYUV entries only, so the
// RGB32 entries are converted by the drawing call.
bool MakeSubtitle(Picture* p) {
    if (!NewPicture(VIDEO_FORMAT_AI44, 120, 14, p)) return false;
    auto* info = static_cast<uint8_t*>(p->pixels->AllocateAddiInfo(64));
    if (!info) return false;
    const uint32_t palette[2] = {0x80108080u, 0xFFEB8080u};  // dark, white (A Y U V)
    std::memset(info, 0, 64);
    std::memcpy(info, palette, sizeof palette);
    const ncb::PlaneView v = Plane0(*p);
    for (int y = 0; y < 14; ++y) {
        for (int x = 0; x < 120; ++x) {
            const bool glyph = y >= 3 && y < 11 && (x / 6) % 2 == 0 && x >= 6 && x < 114;
            v.data[y * v.pitch + x] = glyph ? 0xF1 : 0xF0;
        }
    }
    return true;
}

}  // namespace

bool DemoComposite(const DemoContext& context, std::string* error) {
    DemoReport report;
    Picture background, small, frame, logo, inset, subtitle;
    if (!MakeBackground(&background) || !Scale(background, 61, 37, &small) ||
        !Scale(background, kWidth, kHeight, &frame) || !MakeLogo(&logo) || !MakeInset(&inset) ||
        !MakeSubtitle(&subtitle)) {
        *error = "out of memory";
        return false;
    }
    report.Line("background 160 x 90 scaled to 61 x 37 and to %d x %d", kWidth, kHeight);
    const int first = static_cast<int>(Get(frame, 0, 0) & 0xFF);
    const int source = static_cast<int>(Get(background, 0, 0) & 0xFF);
    report.Check(first <= source && first + 2 >= source,
                 "enlargement starts on the first source pixel");
    if (!WritePicture(context, "composite_small.png", small.format, small.pixels.get(), false,
                      error) ||
        !WritePicture(context, "composite_large.png", frame.format, frame.pixels.get(), false,
                      error))
        return false;
    const int level = Level();
    const uint32_t under = Get(frame, 30, 20);
    VP::FillRectRGB(frame.pixels.get(), &frame.format, 0x80000000u, 20, 12, 120, 60, 0, level);
    const uint32_t boxed = Get(frame, 30, 20);
    report.Check((boxed & 0xFF) == ((under & 0xFF) * 63 >> 7), "box: (c a + d (127 - a)) >> 7");
    VP::FillRectRGB32WithColorKey_NoRead(logo.pixels.get(), frame.pixels.get(), &logo.format,
                                         &frame.format, 250, 14, kKey, 0, level);
    report.Check(Get(frame, 274, 38) == 0xFFFFD020u, "logo drawn inside its diamond");
    report.Check(Get(frame, 251, 15) != kKey, "logo key left the background");
    const uint32_t behind = Get(frame, 200 + 63, 100);
    VP::AlphaBlendingRGB(inset.pixels.get(), frame.pixels.get(), &inset.format, &frame.format, 200,
                         100, 1, 255, 0, 0, level);
    const uint32_t right = Get(frame, 200 + 63, 100);
    report.Check((right >> 16 & 0xFF) == ((0xE0 * 127 + (behind >> 16 & 0xFF) * 1) >> 7),
                 "inset: (s a + d (128 - a)) >> 7, a = alpha >> 1");
    VP::FillRectRGB32WithAI44_NoRead(subtitle.pixels.get(), frame.pixels.get(), &subtitle.format,
                                     &frame.format, 100, 156, 0, level);
    report.Check(Get(frame, 112, 162) == (VP::YUV2RGB(0xEB8080) | 0xFF000000u),
                 "subtitle glyph through the palette");
    if (!WritePicture(context, "composite.png", frame.format, frame.pixels.get(), false, error))
        return false;
    if (!context.WriteText("composite.txt", report.text(), error)) return false;
    if (!report.ok()) *error = report.firstFailure();
    return report.ok();
}

}  // namespace ncodec

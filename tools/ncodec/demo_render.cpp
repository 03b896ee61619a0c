// Demo step "render": a scene described to the video render and composed in
// memory (render.png). A slate background image receives colour bars as a
// background frame (burnt in, YUV 4:2:0 stretched over the lower half);
// above it lie three overlapping squares added as ids 5, 1, 3 (drawn 1, 3,
// 5), a half-transparent white veil scaled from a quarter of its size, a
// keyed checkerboard, and two captions, one on an opaque box and one with a
// transparent background. render.txt checks the z-order and the blend.
#include <cstdint>
#include <cstring>
#include <string>

#include "base/video_format.h"
#include "ncodecbase/gdi_text.h"
#include "ncodecbase/video_render.h"
#include "platform/window/window.h"
#include "tools/ncodec/demo_picture.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"
#include "tools/ncodec/image_formats.h"

namespace ncodec {
namespace {

constexpr int kWidth = 320, kHeight = 180;
constexpr uint32_t kSlate = 0x3C9678;  // packed Y, U, V
constexpr unsigned kNoTurn = 0x3000;   // rotation bits: none

bool Solid(Picture* p, int w, int h, uint32_t (*pixel)(int, int)) {
    ncb::InitVideoFormat(&p->format, VIDEO_FORMAT_RGB32, w, h);
    p->pixels.reset(CNCodecBuffer::CreateBuffer());
    if (!p->pixels || !ncb::AllocateFrame(p->pixels.get(), &p->format)) return false;
    ncb::PlaneSet s;
    ncb::GetPlanes(p->format, static_cast<uint8_t*>(p->pixels->GetAddress()), false, &s);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint32_t v = pixel(x, y);
            std::memcpy(s.plane0.data + y * s.plane0.pitch + 4 * x, &v, 4);
        }
    return true;
}

bool Bars(Picture* p, int w, int h) {
    static const uint8_t ys[8] = {235, 210, 170, 145, 106, 81, 41, 16};
    static const uint8_t us[8] = {128, 16, 166, 54, 202, 90, 240, 128};
    static const uint8_t vs[8] = {128, 146, 16, 34, 222, 240, 110, 128};
    ncb::InitVideoFormat(&p->format, VIDEO_FORMAT_YUV420, w, h);
    p->pixels.reset(CNCodecBuffer::CreateBuffer());
    if (!p->pixels || !ncb::AllocateFrame(p->pixels.get(), &p->format)) return false;
    ncb::PlaneSet s;
    ncb::GetPlanes(p->format, static_cast<uint8_t*>(p->pixels->GetAddress()), false, &s);
    const ncb::PlaneView* planes[3] = {&s.plane0, &s.u, &s.v};
    const uint8_t* values[3] = {ys, us, vs};
    for (int i = 0; i < 3; ++i)
        for (int y = 0; y < planes[i]->height; ++y)
            for (int x = 0; x < planes[i]->width; ++x)
                planes[i]->data[y * planes[i]->pitch + x] = values[i][x * 8 / planes[i]->width];
    return true;
}

struct Caption {
    nplat::HDC dc = nplat::CreateCompatibleDC(nullptr);
    nplat::HFONT font =
        nplat::CreateFontW(-16, 0, 0, 0, nplat::FW_BOLD, 0, 0, 0, 0, 0, 0, 0, 0, u"");
    Caption(nplat::COLORREF text, nplat::COLORREF back, int mode) {
        if (!dc) return;
        if (font) nplat::SelectObject(dc, font);
        nplat::SetTextColor(dc, text);
        nplat::SetBkColor(dc, back);
        nplat::SetBkMode(dc, mode);
    }
    ~Caption() {
        if (dc) nplat::DeleteDC(dc);
        if (font) nplat::DeleteObject(font);
    }
};

uint32_t PixelAt(const Picture& p, int x, int y) {
    ncb::PlaneSet s;
    ncb::GetPlanes(p.format, static_cast<uint8_t*>(p.pixels->GetAddress()), false, &s);
    uint32_t v;
    std::memcpy(&v, s.plane0.data + y * s.plane0.pitch + 4 * x, 4);
    return v & 0xFFFFFF;
}

// Builds the scene; false on the first refused call.
bool BuildScene(CNVideoRender& r, Picture* pictures, Caption& opaque, Caption& clear) {
    Picture &bars = pictures[0], &red = pictures[1], &green = pictures[2], &blue = pictures[3];
    Picture &veil = pictures[4], &checker = pictures[5];
    if (!Bars(&bars, 160, 90) || !Solid(&red, 60, 60, [](int, int) { return 0xFFE02020u; }) ||
        !Solid(&green, 60, 60, [](int, int) { return 0xFF20C040u; }) ||
        !Solid(&blue, 60, 60, [](int, int) { return 0xFF2040E0u; }) ||
        !Solid(&veil, 40, 25, [](int, int) { return 0xFFFFFFFFu; }) ||
        !Solid(&checker, 48, 48,
               [](int x, int y) { return ((x / 12 + y / 12) & 1) ? 0x00FF00FFu : 0xFFFFD020u; }))
        return false;
    auto add = [&](int id, int sub, Picture& p, nplat::RECT dst, unsigned flags, unsigned alpha,
                   unsigned key) {
        return r.AddFrame(1, id, sub, &p.format, p.pixels.get(), nullptr, &dst, flags, key, alpha,
                          nullptr) == 1;
    };
    nplat::POINT top = {12, 8}, middle = {128, 64};
    unsigned char title[] = "NCodecBase video render";
    unsigned char note[] = "transparent caption";
    return r.CreateOffScreenBuffer(1, kWidth, kHeight, kWidth, kHeight, 0, 0, 0x1, kSlate) &&
           add(0, 1, bars, {0, 90, 320, 180}, 0x1 | kNoTurn, 255, 0) &&
           add(5, 0, red, {20, 40, 80, 100}, 0x1, 255, 0) &&
           add(1, 0, green, {40, 60, 100, 120}, 0x1, 255, 0) &&
           add(3, 0, blue, {60, 80, 120, 140}, 0x1, 255, 0) &&
           add(6, 0, veil, {160, 100, 320, 200}, 0x1, 128, 0) &&
           add(7, 0, checker, {250, 20, 298, 68}, 0x4 | 0x200, 255, 0xFF00FF) &&
           r.AddText(1, 1, title, static_cast<int>(std::strlen(reinterpret_cast<char*>(title))),
                     0x2, &top, opaque.dc) &&
           r.AddText(1, 2, note, static_cast<int>(std::strlen(reinterpret_cast<char*>(note))), 0x2,
                     &middle, clear.dc);
}

}  // namespace

bool DemoRender(const DemoContext& context, std::string* error) {
    DemoReport report;
    CNVideoRender render;
    nplat::HWND window = render.Init() ? nplat::CreateMemoryWindow(0, 0, kWidth, kHeight) : nullptr;
    if (!window) {
        *error = "cannot start the render on a memory window";
        return false;
    }
    Picture pictures[6], out;
    Caption opaque(nplat::RGB(255, 255, 255), nplat::RGB(30, 30, 90), nplat::OPAQUE);
    Caption clear(nplat::RGB(255, 240, 120), nplat::RGB(0, 0, 0), nplat::TRANSPARENT);
    bool ok = render.Open(window, nullptr, 0, 0) && BuildScene(render, pictures, opaque, clear);
    CNCodecBuffer* picture = nullptr;
    if (ok) ok = render.RenderToMemory(1, &out.format, &picture, 0) == 1;
    out.pixels.reset(picture);
    if (ok) {
        report.Line("scene %d x %d: background frame, 5 frames, 2 texts", kWidth, kHeight);
        report.Check(PixelAt(out, 70, 70) == 0xE02020u, "id 5 above ids 1 and 3");
        report.Check(PixelAt(out, 90, 110) == 0x2040E0u, "id 3 above id 1");
        report.Check(PixelAt(out, 50, 115) == 0x20C040u, "id 1 where nothing covers it");
        const uint32_t veiled = PixelAt(out, 310, 170);
        report.Check((veiled & 0xFF) >= 0x7F, "veil scaled over the whole corner and blended");
        report.Check(PixelAt(out, 253, 35) != 0xFF00FFu, "checker key cut out");
        ok = WritePicture(context, "render.png", out.format, out.pixels.get(), false, error);
    } else {
        *error = "the render refused the scene";
    }
    render.Uninit();
    nplat::DestroyWindow(window);
    if (!ok) return false;
    if (!context.WriteText("render.txt", report.text(), error)) return false;
    if (!report.ok()) *error = report.firstFailure();
    return report.ok();
}

}  // namespace ncodec

// Demo step "layers": the layered render on the software device composes a
// 320x200 scene into a memory window: an NV12 video letter-boxed in a video
// layer with a caption, and a static layer holding a drawn picture, shown
// once 1:1 (checked bit for bit), once turned and once half transparent.
// The window's pixels go to layers.png, the findings to layers.txt.
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/layered_render.h"
#include "ncodecbase/png_codec.h"
#include "platform/window/window.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"

namespace ncodec {
namespace {

constexpr int kWidth = 320, kHeight = 200;

struct Frame {
    ncb::VideoFormatInfo format{};
    CNCodecBuffer* buffer = CNCodecBuffer::CreateBuffer();
    ~Frame() {
        if (buffer) buffer->Release();
    }
    // Every plane's bytes from fill(plane, x, y); false when memory runs out.
    template <typename Fill>
    bool Make(int code, int w, int h, Fill fill) {
        ncb::InitVideoFormat(&format, code, w, h);
        ncb::PlaneSet planes;
        uint8_t* data = buffer ? ncb::AllocateFrame(buffer, &format) : nullptr;
        if (!data || !ncb::GetPlanes(format, data, false, &planes)) return false;
        const ncb::PlaneView* views[3] = {&planes.plane0, &planes.u, &planes.v};
        for (int i = 0; i < planes.count; ++i) {
            const int bytes = i == 0 ? views[i]->width * ncb::Bpp0(code)
                                     : views[i]->width * (code == VIDEO_FORMAT_NV12 ? 2 : 1);
            for (int y = 0; y < views[i]->height; ++y)
                for (int x = 0; x < bytes; ++x)
                    views[i]->data[y * views[i]->pitch + x] = fill(i, x, y);
        }
        return true;
    }
};

bool BuildScene(CNHVideoRender* r, Frame* video, Frame* picture, Frame* caption, DemoReport* rep) {
    using Mapping = CNHVideoRender::LayerMappingInfoTag;
    bool ok = rep->Check(r->AddVideo(1, 0x2, 0, 255, nullptr, nullptr) == 0, "video added");
    ok = ok && rep->Check(r->InputVideo(1, &video->format, video->buffer, 0) == 0, "NV12 uploaded");
    ok = ok && rep->Check(r->AddLayer(1, 0x1 | 0x20 | 0x100, 0xFF203040, 1.0f, 1.0f, 1) == 0,
                          "video layer added");
    float top = 0.05f, bottom = 0.2f, text = 0.82f, textHeight = 0.08f;
    ok = ok && r->ConfigLayer(1, nullptr, nullptr, nullptr, nullptr, &top, &bottom, &text,
                              &textHeight) == 0;
    Mapping whole{};
    whole.fSourceWidth = whole.fSourceHeight = whole.fDestWidth = whole.fDestHeight = 1.0f;
    whole.nAlpha = 255;
    ok = ok && r->ConfigLayerMappingInfo(1, 1, &whole) == 0;
    CNSubTitleDecoder::OutputAddiInfoTag info{};
    info.tFormat = caption->format;
    info.nSizeNumerator = 16, info.nSizeDenominator = 1;
    CNControlBase::SubTitleFormatInfoTag format{};
    ok = ok && rep->Check(r->AddSubTitle(1, 0x1) == 0 &&
                              r->InputSubTitle(1, &format, &info, caption->buffer) == 0 &&
                              r->ConfigVideoLayerTextSubTitle(1, 0, 1) == 0,
                          "caption shown in a text slot");
    ok = ok && rep->Check(r->AddBitmap(1, 0xC0, 0, &picture->format, picture->buffer) == 0 &&
                              r->AddLayer(2, 0x102, 0x00000000, 48, 32, 0xFFFFFFFFu) == 0,
                          "bitmap and static layer added");
    CNHVideoRender::DrawLayerBitmapInfoTag item{0, 0, 48, 32, 0, 0, 0, 0};
    ok = ok && rep->Check(r->DrawLayerBitmap(2, 1, 1, &item, 1) == 0, "bitmap drawn into layer");
    Mapping m[3] = {};
    const float dest[3][2] = {{8, 8}, {100, 8}, {200, 8}};
    for (int i = 0; i < 3; ++i) {
        m[i].fSourceWidth = 48, m[i].fSourceHeight = 32;
        m[i].fDestX = dest[i][0], m[i].fDestY = dest[i][1];
        m[i].nFlags = 0x8, m[i].nAlpha = 255;
    }
    m[1].nRotate = 20;
    m[2].nAlpha = 110, m[2].fDestWidth = 96, m[2].fDestHeight = 64;
    ok = ok && r->ConfigLayerMappingInfo(2, 3, m) == 0;
    return ok;
}

}  // namespace

bool DemoLayers(const DemoContext& context, std::string* error) {
    DemoReport rep;
    rep.Line("layered render: video layer with caption, static layer mapped three times");
    Frame video, picture, caption;
    const bool made = video.Make(VIDEO_FORMAT_NV12, 192, 108, [](int p, int x, int y) {
        return static_cast<uint8_t>(p == 0 ? 30 + x : (x & 1) ? 90 + y : 160);
    }) && picture.Make(VIDEO_FORMAT_RGB32, 48, 32, [](int, int x, int y) {
        const int c = x % 4, px = x / 4;
        return static_cast<uint8_t>(c == 3 ? 255 : c == 0 ? px * 5 : c == 1 ? y * 8 : 255 - px * 5);
    }) && caption.Make(VIDEO_FORMAT_RGB32, 120, 16, [](int, int x, int y) {
        return static_cast<uint8_t>(x % 4 == 3 ? ((x / 4 / 3 + y / 4) % 2 ? 230 : 0) : 255);
    });
    nplat::HWND window = made ? nplat::CreateMemoryWindow(0, 0, kWidth, kHeight) : nullptr;
    CNHVideoRender render;
    bool ok = rep.Check(window && render.Init() == 0 && render.Open(window) == 0,
                        "render opened on a memory window");
    ok = ok && BuildScene(&render, &video, &picture, &caption, &rep);
    ok = ok && rep.Check(render.Present(1) == 0, "scene presented");
    std::vector<uint32_t> px(kWidth * kHeight);
    ok = ok &&
         rep.Check(nplat::SnapshotClient(window, px.data(), kWidth * 4) == 1, "window read back");
    if (ok) {
        const auto* src = static_cast<const uint32_t*>(picture.buffer->GetAddress());
        const int pitch = (picture.format.nPadLeft + 48 * 4 + picture.format.nPadRight) / 4;
        int differ = 0;
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 48; ++x)
                differ += ((px[(8 + y) * kWidth + 8 + x] ^ src[y * pitch + x]) & 0xFFFFFF) != 0;
        rep.Line("  1:1 mapping: %d of %d pixels differ from the bitmap", differ, 48 * 32);
        ok = rep.Check(differ == 0, "1:1 mapping copies the bitmap exactly");
        CNHVideoRender::StatInfoTag st{};
        render.GetStatInfo(&st);
        rep.Line("  back buffer %dx%d, status 0x%x, presents %u", st.nWidth, st.nHeight, st.uStatus,
                 st.uPresentedAsFrame);
        for (uint32_t& v : px) v |= 0xFF000000u;
        ncb::VideoFormatInfo fmt{}, png{};
        ncb::InitVideoFormat(&fmt, VIDEO_FORMAT_RGB32, kWidth, kHeight);
        CNCodecBuffer* in = CNCodecBuffer::CreateWrapBuffer(px.data(), kWidth * kHeight * 4,
                                                            kWidth * kHeight * 4, nullptr);
        CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
        ok = rep.Check(in && out && CNPngCodec::Encode(&fmt, &png, in, out, 0) == 1 &&
                           context.WriteBytes("layers.png", out->GetAddress(),
                                              static_cast<size_t>(out->GetDataSize()), error),
                       "layers.png written") &&
             ok;
        if (in) in->Release();
        if (out) out->Release();
    }
    render.Uninit();
    if (window) nplat::DestroyWindow(window);
    if (!context.WriteText("layers.txt", rep.text(), error)) return false;
    if (!rep.ok()) *error = rep.firstFailure();
    return rep.ok();
}

}  // namespace ncodec

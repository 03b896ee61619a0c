// Layered render: presenting a 1920x1080 scene of one video layer (NV12
// input, uploaded each frame) with two text subtitles, on the software
// device into a memory window. Frames per second come out as items per
// second. There is no peer: the row stands alone in the ratio table.
#include <benchmark/benchmark.h>

#include <cstring>

#include "base/video_format.h"
#include "ncodecbase/layered_render.h"
#include "platform/window/window.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

struct Frame {
    CNCodecBase::VideoFormatInfoTag format{};
    CNCodecBuffer* buffer = CNCodecBuffer::CreateBuffer();
    ~Frame() { buffer->Release(); }
};

bool MakeFrame(Frame* f, int code, int w, int h, uint8_t value) {
    ncb::InitVideoFormat(&f->format, code, w, h);
    uint8_t* data = ncb::AllocateFrame(f->buffer, &f->format);
    if (!data) return false;
    std::memset(data, value, static_cast<size_t>(f->buffer->GetDataSize()));
    return true;
}

void PresentNv12WithSubTitles(benchmark::State& state) {
    nplat::HWND window = nplat::CreateMemoryWindow(0, 0, kWidth, kHeight);
    CNHVideoRender render;
    Frame video, text[2];
    bool ok = window && render.Init() == 0 && render.Open(window) == 0 &&
              MakeFrame(&video, VIDEO_FORMAT_NV12, kWidth, kHeight, 100) &&
              MakeFrame(&text[0], VIDEO_FORMAT_RGB32, 800, 48, 0xC0) &&
              MakeFrame(&text[1], VIDEO_FORMAT_RGB32, 600, 48, 0x80);
    ok = ok && render.AddVideo(1, 0x2, 0, 255, nullptr, nullptr) == 0 &&
         render.AddLayer(1, 0x1 | 0x2 | 0x20 | 0x100, 0xFF000000, kWidth, kHeight, 1) == 0;
    float position = 900, height = 48;
    ok = ok && render.ConfigLayer(1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  &position, &height) == 0;
    CNHVideoRender::LayerMappingInfoTag m{};
    m.fSourceWidth = kWidth, m.fSourceHeight = kHeight, m.nFlags = 0x8, m.nAlpha = 255;
    ok = ok && render.ConfigLayerMappingInfo(1, 1, &m) == 0;
    CNControlBase::SubTitleFormatInfoTag fmt{};
    for (unsigned i = 0; ok && i < 2; ++i) {
        CNSubTitleDecoder::OutputAddiInfoTag info{};
        info.tFormat = text[i].format;
        info.nSizeNumerator = 48, info.nSizeDenominator = 1;
        ok = render.AddSubTitle(10 + i, 0x1) == 0 &&
             render.InputSubTitle(10 + i, &fmt, &info, text[i].buffer) == 0 &&
             render.ConfigVideoLayerTextSubTitle(1, static_cast<int>(i), 10 + i) == 0;
    }
    if (!ok) {
        state.SkipWithError("the layered render could not build the scene");
    } else {
        for (auto _ : state) {
            if (render.InputVideo(1, &video.format, video.buffer, 1) != 0 ||
                render.Present(1) != 0) {
                state.SkipWithError("present failed");
                break;
            }
        }
        state.SetItemsProcessed(state.iterations());
    }
    render.Uninit();
    if (window) nplat::DestroyWindow(window);
}

BENCHMARK(PresentNv12WithSubTitles)
    ->Name("layered/present/1920x1080_nv12_2subs/soft")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

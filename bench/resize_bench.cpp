// resize/<filter>/<case>/<impl>: scaling of RGB32 and planar 4:2:0 frames by
// CNVideoProcessor's polyphase resizer beside libyuv's and libswscale's
// scalers on the same frames. Ours has one filter: linear interpolation when
// enlarging and a 4- to 12-tap quadratic when shrinking (more taps for
// stronger shrinks); it stands in every group, beside libyuv kFilterBilinear
// and swscale SWS_BILINEAR (resize/bilinear), libyuv kFilterBox
// (resize/box) and swscale SWS_BICUBIC (resize/bicubic). ResizeInit runs
// once outside the timed loop, as a render calls it once per size; the
// rivals' contexts are made outside the loop too. Bytes processed count the
// source and destination frames once each.
//
// composite/blend_argb/<size>/<impl>: one RGB32 frame blended over another
// by its per-pixel alpha: ours AlphaBlendingRGB mode 1 ((s a + d (128 - a))
// >> 7 with a = alpha >> 1, every byte), libyuv ARGBBlend (s + d (256 -
// alpha) >> 8 on premultiplied colour, alpha forced opaque); the same work
// per pixel, different rounding. Bytes count both inputs and the output.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/processor_level.h"
#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"

#if defined(NCB_BENCH_LIBYUV)
#include <libyuv.h>
#endif
#if defined(NCB_BENCH_SWSCALE)
extern "C" {
#include <libswscale/swscale.h>
}
#endif

namespace {

struct Case {
    int sw, sh, dw, dh;
    bool rgb;
    std::string name;
};

std::vector<Case> Cases() {
    std::vector<Case> cases;
    const int sizes[][4] = {
        {1920, 1080, 1280, 720}, {1920, 1080, 3840, 2160}, {3840, 2160, 640, 360}};
    for (bool rgb : {true, false}) {
        for (const auto& s : sizes) {
            cases.push_back({s[0], s[1], s[2], s[3], rgb,
                             std::string(rgb ? "rgb32_" : "i420_") + std::to_string(s[0]) + "x" +
                                 std::to_string(s[1]) + "_to_" + std::to_string(s[2]) + "x" +
                                 std::to_string(s[3])});
        }
    }
    return cases;
}

// Planes with 64-byte aligned rows (both sides get the same placement).
struct Picture {
    Picture(int width, int height, bool rgb) {
        pitch[0] = (width * (rgb ? 4 : 1) + 63) & ~63;
        rows[0] = height;
        pitch[1] = pitch[2] = rgb ? 0 : ((width / 2 + 63) & ~63);
        rows[1] = rows[2] = rgb ? 0 : height / 2;
        for (int i = 0; i < 3; ++i) {
            bytes[i].resize(static_cast<size_t>(pitch[i]) * rows[i] + 64);
            uint32_t seed = 12345u + i;
            for (auto& b : bytes[i]) {
                seed = seed * 1664525u + 1013904223u;
                b = static_cast<uint8_t>(seed >> 24);
            }
            plane[i] =
                bytes[i].data() + ((64 - reinterpret_cast<uintptr_t>(bytes[i].data()) % 64) % 64);
        }
    }
    int Bytes() const { return pitch[0] * rows[0] + pitch[1] * rows[1] * 2; }
    std::vector<uint8_t> bytes[3];
    uint8_t* plane[3] = {};
    int pitch[3] = {};
    int rows[3] = {};
};

void SetBytes(benchmark::State& state, const Case& c, const Picture& s, const Picture& d) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (s.Bytes() + d.Bytes()));
    (void)c;
}

void RunOurs(benchmark::State& state, const Case* c) {
    Picture s(c->sw, c->sh, c->rgb), d(c->dw, c->dh, c->rgb);
    CNCodecBuffer work;
    const int level = ncb::ProcessorLevel() < 0 ? 0 : ncb::ProcessorLevel();
    if (!CNVideoProcessor::ResizeInit(c->rgb ? 260 : 2, level, c->sw, c->sh, s.pitch[0], s.pitch[1],
                                      c->dw, c->dh, d.pitch[0], d.pitch[1], &work)) {
        state.SkipWithError("ResizeInit failed");
        return;
    }
    for (auto _ : state) {
        if (c->rgb) {
            CNVideoProcessor::ResizeRGB32(s.plane[0], d.plane[0], &work);
        } else {
            CNVideoProcessor::ResizeYUV420(s.plane[0], s.plane[1], s.plane[2], d.plane[0],
                                           d.plane[1], d.plane[2], &work);
        }
        benchmark::ClobberMemory();
    }
    SetBytes(state, *c, s, d);
}

#if defined(NCB_BENCH_LIBYUV)
template <libyuv::FilterMode kFilter>
void RunLibyuv(benchmark::State& state, const Case* c) {
    Picture s(c->sw, c->sh, c->rgb), d(c->dw, c->dh, c->rgb);
    for (auto _ : state) {
        if (c->rgb) {
            libyuv::ARGBScale(s.plane[0], s.pitch[0], c->sw, c->sh, d.plane[0], d.pitch[0], c->dw,
                              c->dh, kFilter);
        } else {
            libyuv::I420Scale(s.plane[0], s.pitch[0], s.plane[1], s.pitch[1], s.plane[2],
                              s.pitch[2], c->sw, c->sh, d.plane[0], d.pitch[0], d.plane[1],
                              d.pitch[1], d.plane[2], d.pitch[2], c->dw, c->dh, kFilter);
        }
        benchmark::ClobberMemory();
    }
    SetBytes(state, *c, s, d);
}
#endif

#if defined(NCB_BENCH_SWSCALE)
template <int kFlags>
void RunSwscale(benchmark::State& state, const Case* c) {
    Picture s(c->sw, c->sh, c->rgb), d(c->dw, c->dh, c->rgb);
    const AVPixelFormat format = c->rgb ? AV_PIX_FMT_BGRA : AV_PIX_FMT_YUV420P;
    SwsContext* ctx = sws_getContext(c->sw, c->sh, format, c->dw, c->dh, format, kFlags, nullptr,
                                     nullptr, nullptr);
    if (!ctx) {
        state.SkipWithError("sws_getContext failed");
        return;
    }
    const uint8_t* const src[4] = {s.plane[0], s.plane[1], s.plane[2], nullptr};
    uint8_t* const dst[4] = {d.plane[0], d.plane[1], d.plane[2], nullptr};
    const int srcStride[4] = {s.pitch[0], s.pitch[1], s.pitch[2], 0};
    const int dstStride[4] = {d.pitch[0], d.pitch[1], d.pitch[2], 0};
    for (auto _ : state) {
        sws_scale(ctx, src, srcStride, 0, c->sh, dst, dstStride);
        benchmark::ClobberMemory();
    }
    sws_freeContext(ctx);
    SetBytes(state, *c, s, d);
}
#endif

void RunBlendOurs(benchmark::State& state) {
    Picture s(1920, 1080, true), d(1920, 1080, true);
    ncb::VideoFormatInfo sf{}, df{};
    ncb::InitVideoFormat(&sf, 260, 1920, 1080);
    sf.nPadRight = s.pitch[0] - 1920 * 4;
    df = sf;
    CNCodecBuffer sb(s.plane[0], s.pitch[0] * 1080, s.pitch[0] * 1080, nullptr);
    CNCodecBuffer db(d.plane[0], d.pitch[0] * 1080, d.pitch[0] * 1080, nullptr);
    const int level = ncb::ProcessorLevel() < 0 ? 0 : ncb::ProcessorLevel();
    for (auto _ : state) {
        CNVideoProcessor::AlphaBlendingRGB(&sb, &db, &sf, &df, 0, 0, 1, 255, 0, 0, level);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 3 * s.Bytes());
}

#if defined(NCB_BENCH_LIBYUV)
void RunBlendLibyuv(benchmark::State& state) {
    Picture s(1920, 1080, true), d(1920, 1080, true), o(1920, 1080, true);
    for (auto _ : state) {
        libyuv::ARGBBlend(s.plane[0], s.pitch[0], d.plane[0], d.pitch[0], o.plane[0], o.pitch[0],
                          1920, 1080);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 3 * s.Bytes());
}
#endif

const int kRegistered = [] {
    benchmark::RegisterBenchmark("composite/blend_argb/1920x1080/ours", RunBlendOurs)
        ->Unit(benchmark::kMillisecond);
#if defined(NCB_BENCH_LIBYUV)
    benchmark::RegisterBenchmark("composite/blend_argb/1920x1080/libyuv", RunBlendLibyuv)
        ->Unit(benchmark::kMillisecond);
#endif
    static const std::vector<Case> cases = Cases();
    for (const Case& c : cases) {
        for (const char* group : {"bilinear", "box", "bicubic"}) {
            const std::string prefix = std::string("resize/") + group + "/" + c.name + "/";
            benchmark::RegisterBenchmark((prefix + "ours").c_str(), RunOurs, &c)
                ->Unit(benchmark::kMillisecond);
            const std::string g = group;
#if defined(NCB_BENCH_LIBYUV)
            if (g == "bilinear")
                benchmark::RegisterBenchmark((prefix + "libyuv").c_str(),
                                             RunLibyuv<libyuv::kFilterBilinear>, &c)
                    ->Unit(benchmark::kMillisecond);
            if (g == "box")
                benchmark::RegisterBenchmark((prefix + "libyuv").c_str(),
                                             RunLibyuv<libyuv::kFilterBox>, &c)
                    ->Unit(benchmark::kMillisecond);
#endif
#if defined(NCB_BENCH_SWSCALE)
            if (g == "bilinear")
                benchmark::RegisterBenchmark((prefix + "swscale").c_str(), RunSwscale<SWS_BILINEAR>,
                                             &c)
                    ->Unit(benchmark::kMillisecond);
            if (g == "bicubic")
                benchmark::RegisterBenchmark((prefix + "swscale").c_str(), RunSwscale<SWS_BICUBIC>,
                                             &c)
                    ->Unit(benchmark::kMillisecond);
#endif
            (void)g;
        }
    }
    return 0;
}();

}  // namespace

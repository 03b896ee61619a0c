// JPEG encoder benchmarks: planar YUV to baseline JPEG, ours
// (CNJpegCodec::Encode at processor level 2) against TurboJPEG's
// tjCompressFromYUVPlanes, the call a host would otherwise make for the same
// job (no colour conversion, no downsampling).
//
// Input: one deterministic photo-like picture per size (gradients, waves,
// edges and a little noise), turned into planes once by TurboJPEG's
// tjEncodeYUVPlanes at the case's sampling; both encoders read the same
// planes and write into memory kept across iterations (ours: the same
// output buffer; TurboJPEG: a preallocated buffer with TJFLAG_NOREALLOC).
//
// Quality: our three levels against the libjpeg quality that comes closest:
// level 0 is exactly libjpeg's quality 50 (the standard's tables), level 1
// halves them as libjpeg's 75 does (libjpeg rounds the halves, we round
// down), level 2 (halved, capped at 8) lands between libjpeg's 90 and 95 in
// file size; we compare it with 90. Each row reports the file size as the
// counter `bytes`, so the sizes can be read side by side.
//
// Names: jpeg/encode_yuv/<W>x<H>_<sampling>_q<libjpeg quality>/{ours,turbo}.
#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/jpeg_codec.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct EncodeCase {
    int width, height, subsamp, level;
};

constexpr int kTurboQuality[3] = {50, 75, 90};

Bytes MakeRgb(int w, int h) {
    Bytes p(static_cast<size_t>(w) * h * 3);
    uint32_t noise = 4242;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            noise = noise * 1664525u + 1013904223u;
            const int n = static_cast<int>(noise >> 28) - 8;
            const double wave = 50 * std::sin(x * 0.011 + y * 0.003) * std::cos(y * 0.017);
            const int edge = ((x / 97 + y / 61) % 3) * 25;
            auto clamp = [](double v) {
                return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
            };
            uint8_t* px = &p[(static_cast<size_t>(y) * w + x) * 3];
            px[0] = clamp(40 + 170.0 * x / w + wave + edge + n);
            px[1] = clamp(200 - 140.0 * y / h + wave / 2 + n);
            px[2] = clamp(90 + 80 * std::sin(x * 0.05) + edge + n);
        }
    }
    return p;
}

// Y, U, V planes of the case's sampling, one after the other as our
// descriptor lays them out, each with the rows TurboJPEG wrote and then the
// last row repeated down to the 16-rounded height, which our encoder reads.
struct YuvPlanes {
    Bytes data;
    unsigned char* plane[3] = {};
    int stride[3] = {};
    int storedHeight = 0;
};

YuvPlanes MakePlanes(const EncodeCase& c) {
    const Bytes rgb = MakeRgb(c.width, c.height);
    Bytes tight[3];
    unsigned char* planes[3];
    YuvPlanes p;
    for (int i = 0; i < 3; ++i) {
        p.stride[i] = tjPlaneWidth(i, c.width, c.subsamp);
        tight[i].resize(static_cast<size_t>(tjPlaneSizeYUV(i, c.width, 0, c.height, c.subsamp)));
        planes[i] = tight[i].data();
    }
    tjhandle h = tjInitCompress();
    tjEncodeYUVPlanes(h, rgb.data(), c.width, 0, c.height, TJPF_RGB, planes, p.stride, c.subsamp,
                      0);
    tjDestroy(h);

    p.storedHeight = (c.height + 15) / 16 * 16;
    const int chromaShift = c.subsamp == TJSAMP_420 ? 1 : 0;
    size_t offsets[3], total = 0;
    for (int i = 0; i < 3; ++i) {
        offsets[i] = total;
        total += static_cast<size_t>(p.stride[i]) * (p.storedHeight >> (i ? chromaShift : 0));
    }
    p.data.resize(total);
    for (int i = 0; i < 3; ++i) {
        p.plane[i] = p.data.data() + offsets[i];
        const int rows = static_cast<int>(tight[i].size() / p.stride[i]);
        const int stored = p.storedHeight >> (i ? chromaShift : 0);
        for (int y = 0; y < stored; ++y)
            std::memcpy(p.plane[i] + static_cast<size_t>(y) * p.stride[i],
                        tight[i].data() + static_cast<size_t>(std::min(y, rows - 1)) * p.stride[i],
                        p.stride[i]);
    }
    return p;
}

void EncodeOurs(benchmark::State& state, const EncodeCase& c) {
    YuvPlanes p = MakePlanes(c);
    CNCodecBase::VideoFormatInfoTag in{};
    in.nStructSize = sizeof in;
    in.nCodecSubType = c.subsamp == TJSAMP_420 ? VIDEO_FORMAT_YUV420 : VIDEO_FORMAT_YUV444;
    in.nWidth = in.nRectRight = c.width;
    in.nHeight = p.storedHeight;
    in.nRectBottom = c.height;
    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    int bytes = 0;
    for (auto _ : state) {
        CNCodecBase::VideoFormatInfoTag f{};
        if (!CNJpegCodec::Encode(&in, &f, p.data.data(), out, c.level, 2)) {
            state.SkipWithError("encode failed");
            break;
        }
        bytes = out->GetDataSize();
        benchmark::DoNotOptimize(out->GetAddress());
    }
    state.counters["bytes"] = bytes;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * c.width * c.height);
    out->Release();
}

void EncodeTurbo(benchmark::State& state, const EncodeCase& c) {
    YuvPlanes p = MakePlanes(c);
    tjhandle h = tjInitCompress();
    unsigned long room = tjBufSize(c.width, c.height, c.subsamp);
    unsigned char* buffer = tjAlloc(static_cast<int>(room));
    unsigned long size = 0;
    for (auto _ : state) {
        size = room;
        if (tjCompressFromYUVPlanes(h, const_cast<const unsigned char**>(p.plane), c.width,
                                    p.stride, c.height, c.subsamp, &buffer, &size,
                                    kTurboQuality[c.level], TJFLAG_NOREALLOC) != 0) {
            state.SkipWithError(tjGetErrorStr2(h));
            break;
        }
        benchmark::DoNotOptimize(buffer);
    }
    state.counters["bytes"] = static_cast<double>(size);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * c.width * c.height);
    tjFree(buffer);
    tjDestroy(h);
}

int Register() {
    constexpr int kSizes[2][2] = {{1920, 1080}, {4000, 3000}};
    for (const auto& size : kSizes) {
        for (int subsamp : {TJSAMP_420, TJSAMP_444}) {
            for (int level = 0; level < 3; ++level) {
                const EncodeCase c{size[0], size[1], subsamp, level};
                char name[96];
                std::snprintf(name, sizeof name, "jpeg/encode_yuv/%dx%d_%s_q%d", c.width, c.height,
                              subsamp == TJSAMP_420 ? "420" : "444", kTurboQuality[level]);
                benchmark::RegisterBenchmark((std::string(name) + "/ours").c_str(), EncodeOurs, c)
                    ->Unit(benchmark::kMillisecond);
                benchmark::RegisterBenchmark((std::string(name) + "/turbo").c_str(), EncodeTurbo, c)
                    ->Unit(benchmark::kMillisecond);
            }
        }
    }
    return 0;
}

const int kRegistered = Register();

}  // namespace

// JPEG benchmarks: decoding to planar YUV, ours (CNJpegCodec::Decode at
// processor level 2) against TurboJPEG's tjDecompressToYUVPlanes, the call a
// host would otherwise make for the same job (no colour conversion, no
// upsampling).
//
// Input: one deterministic photo-like picture (gradients, waves, edges and a
// little noise) per size, compressed once by TurboJPEG at the case's
// sampling and quality, baseline or progressive. Both decoders write into
// memory kept across iterations (ours: the same output buffer and Huffman
// cache; TurboJPEG: preallocated planes), so neither pays for allocation.
//
// Names: jpeg/decode_yuv/<W>x<H>_<sampling>_q<quality>[_prog]/{ours,turbo}.
#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/jpeg_codec.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct JpegCase {
    int width, height, subsamp, quality;
    bool progressive;
};

Bytes MakeRgb(int w, int h) {
    Bytes p(static_cast<size_t>(w) * h * 3);
    uint32_t noise = 777;
    for (int y = 0; y < h; ++y)
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
    return p;
}

Bytes Compress(const JpegCase& c) {
    const Bytes rgb = MakeRgb(c.width, c.height);
    tjhandle h = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    const int flags = c.progressive ? TJFLAG_PROGRESSIVE : 0;
    Bytes jpeg;
    if (tjCompress2(h, rgb.data(), c.width, 0, c.height, TJPF_RGB, &out, &size, c.subsamp,
                    c.quality, flags) == 0)
        jpeg.assign(out, out + size);
    tjFree(out);
    tjDestroy(h);
    return jpeg;
}

void DecodeOurs(benchmark::State& state, const JpegCase& c) {
    Bytes jpeg = Compress(c);
    CNCodecBuffer* in = CNCodecBuffer::CreateWrapBuffer(jpeg.data(), static_cast<int>(jpeg.size()),
                                                        static_cast<int>(jpeg.size()), nullptr);
    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    CNCodecBuffer* cache = CNCodecBuffer::CreateBuffer();
    for (auto _ : state) {
        in->SetBufferUserData(0);
        CNCodecBase::VideoFormatInfoTag f{};
        if (!CNJpegCodec::Decode(nullptr, &f, in, out, cache, 2)) {
            state.SkipWithError("decode failed");
            break;
        }
        benchmark::DoNotOptimize(out->GetAddress());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * c.width * c.height);
    cache->Release();
    out->Release();
    in->Release();
}

void DecodeTurbo(benchmark::State& state, const JpegCase& c) {
    Bytes jpeg = Compress(c);
    tjhandle h = tjInitDecompress();
    Bytes planes[3];
    unsigned char* dst[3] = {};
    int strides[3] = {};
    for (int i = 0; i < 3; ++i) {
        strides[i] = tjPlaneWidth(i, c.width, c.subsamp);
        planes[i].resize(static_cast<size_t>(tjPlaneSizeYUV(i, c.width, 0, c.height, c.subsamp)));
        dst[i] = planes[i].data();
    }
    for (auto _ : state) {
        if (tjDecompressToYUVPlanes(h, jpeg.data(), jpeg.size(), dst, c.width, strides, c.height,
                                    0) != 0) {
            state.SkipWithError(tjGetErrorStr2(h));
            break;
        }
        benchmark::DoNotOptimize(dst[0]);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * c.width * c.height);
    tjDestroy(h);
}

const char* SamplingName(int subsamp) {
    return subsamp == TJSAMP_420 ? "420" : subsamp == TJSAMP_422 ? "422" : "444";
}

int Register() {
    const JpegCase cases[] = {
        {1920, 1080, TJSAMP_420, 75, false}, {1920, 1080, TJSAMP_420, 95, false},
        {1920, 1080, TJSAMP_444, 75, false}, {1920, 1080, TJSAMP_444, 95, false},
        {1920, 1080, TJSAMP_420, 75, true},  {1920, 1080, TJSAMP_444, 95, true},
        {4000, 3000, TJSAMP_420, 75, false}, {4000, 3000, TJSAMP_420, 95, false},
        {4000, 3000, TJSAMP_444, 75, false}, {4000, 3000, TJSAMP_444, 95, false},
        {4000, 3000, TJSAMP_420, 75, true},
    };
    for (const JpegCase& c : cases) {
        char name[96];
        std::snprintf(name, sizeof name, "jpeg/decode_yuv/%dx%d_%s_q%d%s", c.width, c.height,
                      SamplingName(c.subsamp), c.quality, c.progressive ? "_prog" : "");
        benchmark::RegisterBenchmark((std::string(name) + "/ours").c_str(), DecodeOurs, c)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string(name) + "/turbo").c_str(), DecodeTurbo, c)
            ->Unit(benchmark::kMillisecond);
    }
    return 0;
}

const int kRegistered = Register();

}  // namespace

// video/scene/<case>/<impl>: the scene detector's cost per frame at 720p and
// 1080p, for the plain analysis and with context mode and every stage, at
// each processor level (ours_l0..ours_l2, chosen through the option bits as
// a host would). Each iteration hands the detector the next of two frames,
// a textured picture and the same picture moved by a few pixels, so every
// call runs the full block search (and, with the stages, the histogram and
// the inter-field test).
//
// video/scene_search/<block>_<n>cand/<impl>: the block-search kernel alone,
// one block against the 77 candidates of the coarse grid.
//
// No installed peer library offers a sum-of-absolute-differences block
// search (libyuv compares whole planes by squared error or Hamming
// distance), so these rows have no rival; they compare our levels.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/processor_level.h"
#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "video/scene/scene_kernels.h"

namespace {

using VP = CNVideoProcessor;

// A smooth texture (sums of a few waves and a hashed grain) shifted by
// (dx, dy), so that the block search has something to lock on to.
std::vector<uint8_t> Texture(int w, int h, int dx, int dy) {
    std::vector<uint8_t> out(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int u = x + dx, v = y + dy;
            uint32_t grain =
                static_cast<uint32_t>(u) * 73856093u ^ static_cast<uint32_t>(v) * 19349663u;
            grain = (grain ^ (grain >> 13)) * 0x5bd1e995u;
            const int value = 128 + ((u * 7 + v * 3) % 64) - 32 + ((u / 16 + v / 16) % 2) * 40 -
                              20 + static_cast<int>(grain >> 28) - 8;
            out[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(value < 0     ? 0
                                                                       : value > 255 ? 255
                                                                                     : value);
        }
    return out;
}

struct Size {
    int width, height;
    const char* name;
};
constexpr Size kSizes[] = {{1280, 720, "1280x720"}, {1920, 1080, "1920x1080"}};

struct Stages {
    unsigned int options;
    const char* name;
};
constexpr Stages kStages[] = {
    {0, "plain"},
    {VP::SCENE_DETECT_CONTEXT | VP::SCENE_DETECT_HISTOGRAM | VP::SCENE_DETECT_DISSOLVE |
         VP::SCENE_DETECT_WEIGHTED | VP::SCENE_DETECT_ALIGN,
     "context_all"},
};

constexpr unsigned int kLevelOptions[] = {0, VP::SCENE_DETECT_SSSE3, VP::SCENE_DETECT_SSE41};

void PerFrame(benchmark::State& state, Size size, unsigned int options) {
    CNCodecBase::VideoFormatInfoTag format;
    ncb::InitVideoFormat(&format, VIDEO_FORMAT_Y800, size.width, size.height);
    std::vector<uint8_t> a = Texture(size.width, size.height, 0, 0);
    std::vector<uint8_t> b = Texture(size.width, size.height, 5, 3);
    const int bytes = size.width * size.height;
    CNCodecBuffer fa(a.data(), bytes, bytes, nullptr), fb(b.data(), bytes, bytes, nullptr);
    CNCodecBuffer work;
    if (!VP::SceneDetectInit(&format, options, &work)) {
        state.SkipWithError("SceneDetectInit failed");
        return;
    }
    int result = 0;
    bool second = false;
    for (auto _ : state) {
        VP::SceneDetect(second ? &fb : &fa, &result, &work);
        second = !second;
        benchmark::DoNotOptimize(result);
    }
    VP::SceneDetectUninit(&work);
    state.SetItemsProcessed(state.iterations());
}

void Search(benchmark::State& state, int blockSize, ncb::video::KernelSet set) {
    const int w = 256, h = 160;
    std::vector<uint8_t> cur = Texture(w, h, 0, 0), ref = Texture(w, h, 3, 2);
    std::vector<const uint8_t*> refs;
    const uint8_t* block = cur.data() + 72 * w + 120;
    for (int j = -3; j <= 3; ++j)
        for (int i = -5; i <= 5; ++i) refs.push_back(ref.data() + (72 + 8 * j) * w + 120 + 8 * i);
    std::vector<uint32_t> sads(refs.size());
    const ncb::video::SceneKernels& k = ncb::video::GetSceneKernels(set);
    auto search = blockSize == 16 ? k.search16 : k.search8;
    for (auto _ : state) {
        const int best =
            search(block, w, refs.data(), w, static_cast<int>(refs.size()), sads.data());
        benchmark::DoNotOptimize(best);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(refs.size()));
}

const bool kRegistered = [] {
    for (const Size& size : kSizes)
        for (const Stages& stages : kStages)
            for (int level = 0; level <= ncb::ProcessorLevel() && level < 3; ++level) {
                const std::string name = std::string("video/scene/") + size.name + "_" +
                                         stages.name + "/ours_l" + std::to_string(level);
                benchmark::RegisterBenchmark(name.c_str(), PerFrame, size,
                                             stages.options | kLevelOptions[level])
                    ->Unit(benchmark::kMicrosecond);
            }
    for (int blockSize : {8, 16})
        for (int level = 0; level <= ncb::ProcessorLevel() && level < 3; ++level) {
            ncb::video::KernelSet set;
            ncb::video::KernelSetForLevel(level, &set);
            const std::string name = "video/scene_search/" + std::to_string(blockSize) + "x" +
                                     std::to_string(blockSize) + "_77cand/ours_l" +
                                     std::to_string(level);
            benchmark::RegisterBenchmark(name.c_str(), Search, blockSize, set);
        }
    for (int blockSize : {8, 16}) {
        const std::string name = "video/scene_search/" + std::to_string(blockSize) + "x" +
                                 std::to_string(blockSize) + "_77cand/scalar";
        benchmark::RegisterBenchmark(name.c_str(), Search, blockSize,
                                     ncb::video::KernelSet::kScalar);
    }
    return true;
}();

}  // namespace

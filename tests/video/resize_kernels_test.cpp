// The resizer at every processor level (and the AVX2 set where level 2 would
// pick it) against its scalar twins, bit for bit, through the kernel
// checker: awkward factors (1:1, 1:2, 2:1, 1919:1, 7:3, 3:7), random sizes
// from one pixel, odd RGB32 widths (the extra computed pixel must never be
// stored), padded and bottom-up pitches, tight buffer ends. Each case builds
// its work buffer with ResizeInit at the level under test, as a host does.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "tests/support/kernel_checker.h"
#include "video/resize/resize_program.h"

namespace {

using ncb::video::KernelSet;
using ncbtest::CaseRandom;
using ncbtest::Plane;
namespace rz = ncb::video::resize;

struct ResizeCase {
    int layout = 260;
    int sw = 1, sh = 1, dw = 1, dh = 1;
    int sch = 0, dch = 0;  // chroma rows; U and V share one plane, V below U
    Plane src, dst, srcChroma, dstChroma;

    std::vector<const Plane*> Planes() const {
        if (sch == 0) return {&src, &dst};
        return {&src, &dst, &srcChroma, &dstChroma};
    }
    std::string Describe() const {
        char text[128];
        std::snprintf(text, sizeof text, "layout %d, %dx%d -> %dx%d", layout, sw, sh, dw, dh);
        return text;
    }
};

// One axis: a listed awkward pair or random sizes.
std::pair<int, int> AxisSizes(CaseRandom& r, bool allowHuge) {
    static const std::pair<int, int> kPairs[] = {{1, 1},   {1, 2},   {2, 1},   {7, 3},   {3, 7},
                                                 {40, 40}, {97, 31}, {31, 97}, {64, 63}, {16, 48}};
    const int pick = r.Uniform(0, 11);
    if (pick < 10) return kPairs[pick];
    if (allowHuge && r.Chance(50)) return {1919, r.Uniform(1, 3)};
    return {r.Size(1, 90), r.Size(1, 90)};
}

void ChromaSize(int layout, int w, int h, int* cw, int* ch) {
    *cw = layout == 4 ? w : w >> 1;
    *ch = layout == 2 ? h >> 1 : h;
}

ResizeCase MakeCase(CaseRandom& r, int layout) {
    ResizeCase c;
    c.layout = layout;
    const bool wide = r.Chance(50);
    std::tie(c.sw, c.dw) = AxisSizes(r, wide);
    std::tie(c.sh, c.dh) = AxisSizes(r, !wide);
    const int bpp = layout == 260 ? 4 : 1;
    c.src = r.MakePlane(c.sw, c.sh, bpp, {.label = "src"});
    c.dst = r.MakePlane(c.dw, c.dh, bpp, {.label = "dst"});
    if (layout >= 2 && layout <= 4) {
        int scw, sch, dcw, dch;
        ChromaSize(layout, c.sw, c.sh, &scw, &sch);
        ChromaSize(layout, c.dw, c.dh, &dcw, &dch);
        if (scw > 0 && sch > 0 && dcw > 0 && dch > 0) {
            c.sch = sch;
            c.dch = dch;
            c.srcChroma = r.MakePlane(scw, 2 * sch, 1, {.label = "src u,v"});
            c.dstChroma = r.MakePlane(dcw, 2 * dch, 1, {.label = "dst u,v"});
        }
    }
    return c;
}

void RunResize(ResizeCase& c, int level, bool scalar) {
    CNCodecBuffer work;
    const bool chroma = c.sch > 0;
    ASSERT_EQ(CNVideoProcessor::ResizeInit(c.layout, level, c.sw, c.sh, c.src.Pitch(),
                                           chroma ? c.srcChroma.Pitch() : 0, c.dw, c.dh,
                                           c.dst.Pitch(), chroma ? c.dstChroma.Pitch() : 0, &work),
              1);
    uint8_t* su = chroma ? c.srcChroma.Row(0) : nullptr;
    uint8_t* sv = chroma ? c.srcChroma.Row(c.sch) : nullptr;
    uint8_t* du = chroma ? c.dstChroma.Row(0) : nullptr;
    uint8_t* dv = chroma ? c.dstChroma.Row(c.dch) : nullptr;
    // A layout whose picture has no chroma samples scales its luma alone.
    const int layout = chroma || c.layout == 260 ? c.layout : 1;
    if (scalar) {
        const uint8_t* src[3] = {c.src.Data(), su, sv};
        uint8_t* dst[3] = {c.dst.Data(), du, dv};
        ASSERT_EQ(rz::Run(&work, layout, KernelSet::kScalar, src, dst), 1);
        return;
    }
    int rc = 0;
    switch (layout) {
        case 260:
            rc = CNVideoProcessor::ResizeRGB32(c.src.Data(), c.dst.Data(), &work);
            break;
        case 2:
            rc = CNVideoProcessor::ResizeYUV420(c.src.Data(), su, sv, c.dst.Data(), du, dv, &work);
            break;
        case 3:
            rc = CNVideoProcessor::ResizeYUV422(c.src.Data(), su, sv, c.dst.Data(), du, dv, &work);
            break;
        case 4:
            rc = CNVideoProcessor::ResizeYUV444(c.src.Data(), su, sv, c.dst.Data(), du, dv, &work);
            break;
        default:
            rc = CNVideoProcessor::ResizeYUVMono(c.src.Data(), c.dst.Data(), &work);
            break;
    }
    ASSERT_EQ(rc, 1);
}

class ResizeKernels : public ::testing::TestWithParam<int> {};

TEST_P(ResizeKernels, EveryLevelMatchesTheScalarTwin) {
    const int layout = GetParam();
    ncbtest::KernelFamily<ResizeCase> family{
        .name = "resize layout " + std::to_string(layout),
        .make = [layout](CaseRandom& r) { return MakeCase(r, layout); },
        .twin = [](ResizeCase& c) { RunResize(c, 0, true); },
        .atLevel = [](ResizeCase& c, int level) { RunResize(c, level, false); },
    };
    ncbtest::CheckAllLevels(family, {.cases = 60});
}

INSTANTIATE_TEST_SUITE_P(Layouts, ResizeKernels, ::testing::Values(260, 1, 2, 3, 4),
                         [](const auto& info) { return "layout" + std::to_string(info.param); });

}  // namespace

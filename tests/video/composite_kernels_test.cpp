// Every compositing row kernel at every processor level (and the AVX2 set's
// copy where level 2 picks it) against its scalar twin, bit for bit, through
// the kernel checker: widths from one pixel, unaligned rows, tight buffer
// ends, random alphas and colour keys. Half the source pixels of the keyed
// kernels are made equal to the key, and alphas are drawn from 0, 255 and
// the values between, so that every branch of each rule is taken.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/kernel_checker.h"
#include "video/composite/composite_rows.h"

namespace {

using ncb::video::CompositeKernels;
using ncb::video::FillPattern;
using ncb::video::GetCompositeKernels;
using ncb::video::KernelSet;
using ncbtest::CaseRandom;
using ncbtest::Plane;

enum class K {
    kBlendBytes,
    kBlend555,
    kBlend565,
    kBlendPixelAlpha,
    kBlendConstKey,
    kBlendPixelAlphaKey,
    kFill,
    kFillBlend,
    kFillBlend555,
    kFillBlend565,
    kCopyAlphaNonZero,
    kCopyNotKey,
    kCopyJustReadAlpha,
    kCopyModifyBackground,
    kAlphaSet,
    kAlphaScale,
    kAlphaFlat,
};

const char* Name(K k) {
    constexpr const char* kNames[] = {"blendBytes",
                                      "blend555",
                                      "blend565",
                                      "blendPixelAlpha",
                                      "blendConstKey",
                                      "blendPixelAlphaKey",
                                      "fill",
                                      "fillBlend",
                                      "fillBlend555",
                                      "fillBlend565",
                                      "copyAlphaNonZero",
                                      "copyNotKey",
                                      "copyJustReadAlpha",
                                      "copyModifyBackground",
                                      "alphaSet",
                                      "alphaScale",
                                      "alphaFlat"};
    return kNames[static_cast<int>(k)];
}

struct RowCase {
    K kernel{};
    int width = 0;  // pixels (bytes for the byte kernels)
    int a = 0;
    uint32_t key = 0, value = 0;
    int patternSize = 1;
    FillPattern pattern{};
    Plane src, dst;

    std::vector<const Plane*> Planes() const { return {&src, &dst}; }
    std::string Describe() const {
        char text[160];
        std::snprintf(text, sizeof text, "%s width %d a %d key %08x value %08x pattern %d",
                      Name(kernel), width, a, key, value, patternSize);
        return text;
    }
};

int PixelBytes(K k) {
    switch (k) {
        case K::kBlendBytes:
        case K::kFill:
        case K::kFillBlend:
            return 1;
        case K::kBlend555:
        case K::kBlend565:
        case K::kFillBlend555:
        case K::kFillBlend565:
            return 2;
        default:
            return 4;
    }
}

uint32_t Alpha(CaseRandom& r) {
    const int pick = r.Uniform(0, 3);
    return pick == 0 ? 0 : pick == 1 ? 255 : static_cast<uint32_t>(r.Uniform(1, 254));
}

RowCase MakeCase(CaseRandom& r, K kernel) {
    RowCase c;
    c.kernel = kernel;
    c.width = r.Size(1, 200);
    const int bytes = PixelBytes(kernel);
    c.src = r.MakePlane(c.width, 1, bytes, {.label = "src", .allowBottomUp = false});
    c.dst = r.MakePlane(c.width, 1, bytes, {.label = "dst", .allowBottomUp = false});
    const bool fill = kernel == K::kFill || kernel == K::kFillBlend;
    c.a = fill || kernel == K::kFillBlend555 || kernel == K::kFillBlend565 ? r.Uniform(0, 127)
                                                                           : r.Uniform(0, 128);
    c.key = static_cast<uint32_t>(r.Next());
    c.value = r.Chance(30) ? 256u : static_cast<uint32_t>(r.Uniform(0, 300));
    if (kernel == K::kAlphaSet) c.value = static_cast<uint32_t>(r.Uniform(1, 0x1FF));
    if (kernel == K::kFillBlend555 || kernel == K::kFillBlend565)
        c.value = static_cast<uint32_t>(r.Next() & 0xFFFF);
    c.patternSize = r.Uniform(1, 4);
    uint8_t px[4];
    for (uint8_t& b : px) b = static_cast<uint8_t>(r.Next());
    c.pattern = ncb::video::MakeFillPattern(px, c.patternSize);
    if (bytes == 4) {
        // Alphas 0, 255 and between; some pixels exactly the key, opaque
        // black or 0.
        for (int x = 0; x < c.width; ++x) {
            uint8_t* p = c.src.Row(0) + 4 * x;
            p[3] = static_cast<uint8_t>(Alpha(r));
            const int pick = r.Uniform(0, 5);
            uint32_t word;
            std::memcpy(&word, p, 4);
            if (pick == 0) word = c.key;
            if (pick == 1) word = 0xFF000000u;
            if (pick == 2) word = 0;
            std::memcpy(p, &word, 4);
        }
    }
    return c;
}

void RunKernel(RowCase& c, const CompositeKernels& k) {
    const uint8_t* s = c.src.Data();
    uint8_t* d = c.dst.Data();
    const int w = c.width;
    switch (c.kernel) {
        case K::kBlendBytes:
            k.blendBytes(s, d, c.a, w);
            break;
        case K::kBlend555:
            k.blend555(s, d, c.a, w);
            break;
        case K::kBlend565:
            k.blend565(s, d, c.a, w);
            break;
        case K::kBlendPixelAlpha:
            k.blendPixelAlpha(s, d, w);
            break;
        case K::kBlendConstKey:
            k.blendConstKey(s, d, c.a, c.key, w);
            break;
        case K::kBlendPixelAlphaKey:
            k.blendPixelAlphaKey(s, d, c.key, w);
            break;
        case K::kFill:
            k.fill(d, &c.pattern, w);
            break;
        case K::kFillBlend:
            k.fillBlend(d, &c.pattern, c.a, w);
            break;
        case K::kFillBlend555:
            k.fillBlend555(d, c.value, c.a, w);
            break;
        case K::kFillBlend565:
            k.fillBlend565(d, c.value, c.a, w);
            break;
        case K::kCopyAlphaNonZero:
            k.copyAlphaNonZero(s, d, w);
            break;
        case K::kCopyNotKey:
            k.copyNotKey(s, d, c.key, w);
            break;
        case K::kCopyJustReadAlpha:
            k.copyJustReadAlpha(s, d, c.key, w);
            break;
        case K::kCopyModifyBackground:
            k.copyModifyBackground(s, d, w);
            break;
        case K::kAlphaSet:
            k.alphaSet(s, d, c.value, w);
            break;
        case K::kAlphaScale:
            k.alphaScale(s, d, c.value, w);
            break;
        case K::kAlphaFlat:
            k.alphaFlat(d, c.value & 0xFF, w);
            break;
    }
}

class CompositeKernelsTest : public ::testing::TestWithParam<K> {};

TEST_P(CompositeKernelsTest, EveryLevelMatchesTheScalarTwin) {
    const K kernel = GetParam();
    ncbtest::KernelFamily<RowCase> family{
        .name = Name(kernel),
        .make = [kernel](CaseRandom& r) { return MakeCase(r, kernel); },
        .twin = [](RowCase& c) { RunKernel(c, GetCompositeKernels(KernelSet::kScalar)); },
        .atLevel =
            [](RowCase& c, int level) {
                KernelSet set;
                ASSERT_TRUE(ncb::video::KernelSetForLevel(level, &set));
                RunKernel(c, GetCompositeKernels(set));
            },
    };
    ncbtest::CheckAllLevels(family, {.cases = 150});
}

INSTANTIATE_TEST_SUITE_P(Kernels, CompositeKernelsTest,
                         ::testing::Values(K::kBlendBytes, K::kBlend555, K::kBlend565,
                                           K::kBlendPixelAlpha, K::kBlendConstKey,
                                           K::kBlendPixelAlphaKey, K::kFill, K::kFillBlend,
                                           K::kFillBlend555, K::kFillBlend565, K::kCopyAlphaNonZero,
                                           K::kCopyNotKey, K::kCopyJustReadAlpha,
                                           K::kCopyModifyBackground, K::kAlphaSet, K::kAlphaScale,
                                           K::kAlphaFlat),
                         [](const auto& info) { return std::string(Name(info.param)); });

}  // namespace

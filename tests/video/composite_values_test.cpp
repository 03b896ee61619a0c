// The compositing operations on small pictures whose results are worked out
// from the stated rules: the three alpha formulas (picture blends with
// a and 128 - a, fills with a and 127 - a, the keyed alpha copy with
// a and 255 - a), each against a plain loop written here from the rule;
// colour keys; placement relative to the destination rectangle and clipping;
// chroma coverage of fills on subsampled and packed layouts; the AI44
// palette from the additional information, both when it carries the RGB32
// entries and when they must be converted; alpha level changes; and the
// documented return values for unsupported layouts, modes and levels.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "tests/video/video_frame.h"

namespace {

using ncbtest::TestFrame;
using VP = CNVideoProcessor;

void FillRandom(TestFrame& f, std::mt19937& rng) {
    for (auto& b : f.bytes) b = static_cast<uint8_t>(rng());
}

uint32_t MixWord(uint32_t s, uint32_t d, int a) {
    uint32_t out = 0;
    for (int b = 0; b < 32; b += 8)
        out |= (((s >> b & 255) * a + (d >> b & 255) * (128 - a)) >> 7) << b;
    return out;
}

TEST(CompositeBlend, ConstantAlphaOnTheStatedValues) {
    for (const auto& [alpha, want] : {std::pair{128u, 150}, {255u, 200}, {0u, 100}}) {
        TestFrame src(VIDEO_FORMAT_RGB24, 3, 2), dst(VIDEO_FORMAT_RGB24, 3, 2);
        std::fill(src.bytes.begin(), src.bytes.end(), 200);
        std::fill(dst.bytes.begin(), dst.bytes.end(), 100);
        ASSERT_EQ(VP::AlphaBlendingRGB(src.Buffer(), dst.Buffer(), src.Format(), dst.Format(), 0, 0,
                                       0, alpha, 0, 0, 0),
                  1);
        EXPECT_EQ(dst.At(0, 2, 1, 2), want) << "alpha " << alpha;
    }
}

// Every mode of RGB32 and AYUV against the rule, at every level.
class CompositeModes : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(CompositeModes, MatchTheRule) {
    const auto [code, mode, level] = GetParam();
    std::mt19937 rng(17 + mode);
    TestFrame src(code, 13, 5), dst(code, 13, 5);
    FillRandom(src, rng);
    FillRandom(dst, rng);
    const uint32_t key = 0x12345678;
    src.SetRgb32(3, 1, key);
    src.SetRgb32(4, 2, 0xFF000000u);
    src.SetRgb32(5, 2, 0x00FFFFFFu);
    const TestFrame before = [&] {
        TestFrame copy(code, 13, 5);
        copy.bytes = dst.bytes;
        return copy;
    }();
    const uint32_t alpha = 77;
    const int rc = code == VIDEO_FORMAT_RGB32
                       ? VP::AlphaBlendingRGB(src.Buffer(), dst.Buffer(), src.Format(),
                                              dst.Format(), 0, 0, mode, alpha, key, 0, level)
                       : VP::AlphaBlendingYUV(src.Buffer(), dst.Buffer(), src.Format(),
                                              dst.Format(), 0, 0, mode, alpha, key, 0, level);
    ASSERT_EQ(rc, 1);
    TestFrame& old = const_cast<TestFrame&>(before);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 13; ++x) {
            const uint32_t s = src.Rgb32(x, y), d = old.Rgb32(x, y);
            const bool keyed = mode >= 2 && s == key;
            const int a = mode == 1 || mode == 3 ? static_cast<int>(s >> 24) >> 1
                                                 : static_cast<int>(alpha >> 1);
            const uint32_t want = keyed ? d : MixWord(s, d, a);
            EXPECT_EQ(dst.Rgb32(x, y), want) << x << "," << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, CompositeModes,
    ::testing::Combine(::testing::Values(VIDEO_FORMAT_RGB32, VIDEO_FORMAT_AYUV),
                       ::testing::Values(0, 1, 2, 3), ::testing::Values(0, 1, 2)));

TEST(CompositeBlend, ReturnValuesForModesCodesAndLevels) {
    TestFrame a(VIDEO_FORMAT_RGB32, 4, 4), b(VIDEO_FORMAT_RGB32, 4, 4);
    EXPECT_EQ(
        VP::AlphaBlendingRGB(a.Buffer(), b.Buffer(), a.Format(), b.Format(), 0, 0, 4, 255, 0, 0, 0),
        0);
    TestFrame c(VIDEO_FORMAT_RGB24, 4, 4), d(VIDEO_FORMAT_RGB24, 4, 4);
    std::fill(c.bytes.begin(), c.bytes.end(), 9);
    // The mode means nothing to 24-bit pictures.
    EXPECT_EQ(
        VP::AlphaBlendingRGB(c.Buffer(), d.Buffer(), c.Format(), d.Format(), 0, 0, 9, 255, 0, 0, 0),
        1);
    EXPECT_EQ(d.At(0, 0, 0), 9);
    // Unsupported destination (planar 4:2:0 for the RGB blend), mismatched
    // source, level 3: 1 and nothing drawn.
    TestFrame e(VIDEO_FORMAT_YUV420, 4, 4), f(VIDEO_FORMAT_YUV420, 4, 4);
    std::fill(e.bytes.begin(), e.bytes.end(), 9);
    EXPECT_EQ(
        VP::AlphaBlendingRGB(e.Buffer(), f.Buffer(), e.Format(), f.Format(), 0, 0, 0, 255, 0, 0, 0),
        1);
    EXPECT_EQ(
        VP::AlphaBlendingYUV(e.Buffer(), f.Buffer(), e.Format(), f.Format(), 0, 0, 0, 255, 0, 0, 0),
        1);
    EXPECT_EQ(f.Y(0, 0), 0);
    EXPECT_EQ(
        VP::AlphaBlendingRGB(c.Buffer(), b.Buffer(), c.Format(), b.Format(), 0, 0, 0, 255, 0, 0, 0),
        1);
    EXPECT_EQ(b.Rgb32(0, 0), 0u);
    EXPECT_EQ(
        VP::AlphaBlendingRGB(a.Buffer(), b.Buffer(), a.Format(), b.Format(), 0, 0, 9, 255, 0, 0, 3),
        1);
}

// Planar, NV12 and packed YUV and 16-bit RGB blend every sample with the
// constant alpha, chroma at its own resolution.
class CompositeSampleBlend : public ::testing::TestWithParam<int> {};

TEST_P(CompositeSampleBlend, EveryByteOrChannel) {
    const int code = GetParam();
    std::mt19937 rng(code);
    TestFrame src(code, 10, 6), dst(code, 10, 6);
    FillRandom(src, rng);
    FillRandom(dst, rng);
    const std::vector<uint8_t> old = dst.bytes;
    ASSERT_EQ((code > 256 ? VP::AlphaBlendingRGB : VP::AlphaBlendingYUV)(
                  src.Buffer(), dst.Buffer(), src.Format(), dst.Format(), 0, 0, 7, 100, 0, 0, 1),
              1);
    const int a = 50;
    ncb::FrameLayout layout;
    ncb::GetFrameLayout(*src.Format(), &layout);
    for (size_t i = 0; i < static_cast<size_t>(layout.totalBytes);
         i += (code == 257 || code == 258) ? 2 : 1) {
        if (code == 257 || code == 258) {
            const int g = code == 258 ? 6 : 5;
            auto get = [&](const std::vector<uint8_t>& v) { return v[i] | v[i + 1] << 8; };
            const int s = get(src.bytes), d = get(old);
            auto mix = [&](int shift, int bits) {
                const int m = (1 << bits) - 1;
                return (((s >> shift & m) * a + (d >> shift & m) * (128 - a)) >> 7) << shift;
            };
            EXPECT_EQ(get(dst.bytes), mix(0, 5) | mix(5, g) | mix(5 + g, 5)) << i;
        } else {
            EXPECT_EQ(dst.bytes[i], (src.bytes[i] * a + old[i] * (128 - a)) >> 7) << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Codes, CompositeSampleBlend,
                         ::testing::Values(VIDEO_FORMAT_IYUV, VIDEO_FORMAT_YV12, VIDEO_FORMAT_NV12,
                                           VIDEO_FORMAT_YUY2, VIDEO_FORMAT_UYVY,
                                           VIDEO_FORMAT_RGB555, VIDEO_FORMAT_RGB565,
                                           VIDEO_FORMAT_RGB24));

TEST(CompositeBlend, PlacedRelativeToTheDestinationRectangleAndClipped) {
    TestFrame src(VIDEO_FORMAT_RGB32, 4, 3), dst(VIDEO_FORMAT_RGB32, 10, 8);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) src.SetRgb32(x, y, 0xFF000000u | (y << 8) | x);
    dst.format.nRectLeft = 2;
    dst.format.nRectTop = 3;
    ASSERT_EQ(VP::AlphaBlendingRGB(src.Buffer(), dst.Buffer(), src.Format(), dst.Format(), 1, 1, 0,
                                   255, 0, 1, 0),
              1);
    EXPECT_EQ(dst.Rgb32(3, 4), 0xFF000000u);
    EXPECT_EQ(dst.Rgb32(6, 6), 0xFF000203u);
    EXPECT_EQ(dst.Rgb32(2, 4), 0u);
    // Half outside on the left and bottom: the part inside lands, nothing else.
    TestFrame small(VIDEO_FORMAT_RGB32, 10, 8);
    ASSERT_EQ(VP::AlphaBlendingRGB(src.Buffer(), small.Buffer(), src.Format(), small.Format(), -2,
                                   6, 0, 255, 0, 0, 0),
              1);
    EXPECT_EQ(small.Rgb32(0, 6), 0xFF000002u);
    EXPECT_EQ(small.Rgb32(1, 7), 0xFF000103u);
    EXPECT_EQ(small.Rgb32(2, 7), 0u);
}

TEST(CompositeFill, RgbValuesOfTheFillWeights) {
    TestFrame f(VIDEO_FORMAT_RGB32, 6, 4);
    ASSERT_EQ(VP::FillRectRGB(f.Buffer(), f.Format(), 0x80FFFFFF, 1, 1, 3, 2, 0, 0), 1);
    EXPECT_EQ(f.At(0, 1, 1, 0), 127);
    EXPECT_EQ(f.At(0, 3, 2, 2), 127);
    EXPECT_EQ(f.Rgb32(0, 0), 0u);
    EXPECT_EQ(f.Rgb32(4, 1), 0u);
    ASSERT_EQ(VP::FillRectRGB(f.Buffer(), f.Format(), 0xFEFFFFFF, 0, 3, 6, 1, 0, 1), 1);
    EXPECT_EQ(f.At(0, 5, 3, 1), 253);
    ASSERT_EQ(VP::FillRectRGB(f.Buffer(), f.Format(), 0xFFFFFFFF, 0, 0, 1, 1, 0, 2), 1);
    EXPECT_EQ(f.Rgb32(0, 0), 0xFFFFFFFFu);
}

TEST(CompositeFill, SixteenBitFillsBlendAtChannelWidth) {
    TestFrame f(VIDEO_FORMAT_RGB565, 9, 2);
    ASSERT_EQ(VP::FillRectRGB(f.Buffer(), f.Format(), 0xFFFF8040, 0, 0, 9, 1, 0, 2), 1);
    const int word = f.At(0, 8, 0, 0) | f.At(0, 8, 0, 1) << 8;
    EXPECT_EQ(word, (31 << 11) | (32 << 5) | 8);
    ASSERT_EQ(VP::FillRectRGB(f.Buffer(), f.Format(), 0x80FFFFFF, 0, 1, 9, 1, 0, 0), 1);
    const int mixed = f.At(0, 4, 1, 0) | f.At(0, 4, 1, 1) << 8;
    EXPECT_EQ(mixed, ((31 * 64 >> 7) << 11) | ((63 * 64 >> 7) << 5) | (31 * 64 >> 7));
}

TEST(CompositeFill, YuvChromaSamplesTheRectangleTouches) {
    // Rectangle (3, 1) to (6, 4) exclusive on 4:2:0: chroma columns 1..2,
    // rows 0..1.
    for (int code : {VIDEO_FORMAT_IYUV, VIDEO_FORMAT_YV12, VIDEO_FORMAT_NV12}) {
        TestFrame f(code, 10, 8);
        ASSERT_EQ(VP::FillRectYUV(f.Buffer(), f.Format(), 0xFF506070, 3, 1, 3, 3, 0, 0), 1);
        EXPECT_EQ(f.Y(3, 1), 0x50);
        EXPECT_EQ(f.Y(5, 3), 0x50);
        EXPECT_EQ(f.Y(2, 1), 0);
        EXPECT_EQ(f.Y(6, 1), 0);
        for (int cy = 0; cy < 4; ++cy) {
            for (int cx = 0; cx < 5; ++cx) {
                const bool in = cx >= 1 && cx <= 2 && cy <= 1;
                if (code == VIDEO_FORMAT_NV12) {
                    EXPECT_EQ(f.At(1, cx, cy, 0), in ? 0x60 : 0) << code << " " << cx << "," << cy;
                    EXPECT_EQ(f.At(1, cx, cy, 1), in ? 0x70 : 0);
                } else {
                    EXPECT_EQ(f.U(cx, cy), in ? 0x60 : 0) << code << " " << cx << "," << cy;
                    EXPECT_EQ(f.V(cx, cy), in ? 0x70 : 0);
                }
            }
        }
    }
}

TEST(CompositeFill, PackedPairsCutByTheRectangleKeepTheirOtherLuma) {
    TestFrame f(VIDEO_FORMAT_YUY2, 8, 1);
    std::fill(f.bytes.begin(), f.bytes.end(), 1);
    // Pixels 1..4: pair 0 by its second pixel, pair 1 whole, pair 2 by its first.
    ASSERT_EQ(VP::FillRectYUV(f.Buffer(), f.Format(), 0xFF506070, 1, 0, 4, 1, 0, 0), 1);
    const uint8_t want[16] = {1,    0x60, 0x50, 0x70, 0x50, 0x60, 0x50, 0x70,
                              0x50, 0x60, 1,    0x70, 1,    1,    1,    1};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(f.bytes[i], want[i]) << i;
    // Translucent: (c x 64 + 1 x 63) >> 7 on every byte it covers.
    ASSERT_EQ(VP::FillRectYUV(f.Buffer(), f.Format(), 0x80FFFFFF, 6, 0, 2, 1, 0, 0), 1);
    EXPECT_EQ(f.bytes[12], (255 * 64 + 1 * 63) >> 7);
}

TEST(CompositeFill, CodesOutsideTheListReturnZero) {
    TestFrame rgb(VIDEO_FORMAT_RGB32, 4, 4), yuv(VIDEO_FORMAT_YUV420, 4, 4);
    EXPECT_EQ(VP::FillRectRGB(yuv.Buffer(), yuv.Format(), 0xFFFFFFFF, 0, 0, 2, 2, 0, 0), 0);
    EXPECT_EQ(VP::FillRectYUV(yuv.Buffer(), yuv.Format(), 0xFFFFFFFF, 0, 0, 2, 2, 0, 0), 0);
    EXPECT_EQ(VP::FillRectYUV(rgb.Buffer(), rgb.Format(), 0xFFFFFFFF, 0, 0, 2, 2, 0, 0), 0);
    EXPECT_EQ(VP::FillRectRGB(rgb.Buffer(), rgb.Format(), 0xFFFFFFFF, 0, 0, 2, 2, 0, 5), 1);
    EXPECT_EQ(rgb.Rgb32(0, 0), 0u);
}

TEST(CompositeCopy, KeyedAndAlphaTestedCopies) {
    TestFrame src(VIDEO_FORMAT_RGB32, 5, 1), dst(VIDEO_FORMAT_RGB32, 5, 1);
    const uint32_t pixels[5] = {0x00FFFFFF, 0x01000000, 0xFF123456, 0x80FF0080, 0x12345678};
    for (int x = 0; x < 5; ++x) src.SetRgb32(x, 0, pixels[x]);
    auto reset = [&] {
        for (int x = 0; x < 5; ++x) dst.SetRgb32(x, 0, 0x40404040);
    };
    reset();
    ASSERT_EQ(VP::FillRectRGB32_NoRead(src.Buffer(), dst.Buffer(), src.Format(), dst.Format(), 0, 0,
                                       0, 0),
              1);
    EXPECT_EQ(dst.Rgb32(0, 0), 0x40404040u);
    EXPECT_EQ(dst.Rgb32(1, 0), 0x01000000u);
    reset();
    ASSERT_EQ(VP::FillRectRGB32WithColorKey_NoRead(src.Buffer(), dst.Buffer(), src.Format(),
                                                   dst.Format(), 0, 0, 0x12345678, 0, 1),
              1);
    EXPECT_EQ(dst.Rgb32(0, 0), 0x00FFFFFFu);
    EXPECT_EQ(dst.Rgb32(4, 0), 0x40404040u);
    reset();
    ASSERT_EQ(VP::FillRectRGB32WithColorKey_JustReadAlpha(src.Buffer(), dst.Buffer(), src.Format(),
                                                          dst.Format(), 0, 0, 0x12345678, 0, 2),
              1);
    EXPECT_EQ(dst.Rgb32(2, 0), 0xFF123456u);  // opaque: copied
    EXPECT_EQ(dst.Rgb32(4, 0), 0x40404040u);  // the key: skipped
    // Half transparent: (d x (255 - a) + s x a) >> 8 per channel, alpha 0.
    const uint32_t a = 0x80;
    const uint32_t want = ((0x40 * (255 - a) + 0xFF * a) >> 8) << 16 |
                          ((0x40 * (255 - a) + 0x00 * a) >> 8) << 8 |
                          ((0x40 * (255 - a) + 0x80 * a) >> 8);
    EXPECT_EQ(dst.Rgb32(3, 0), want);
    EXPECT_EQ(dst.Rgb32(0, 0), (0x40 * 255u >> 8) * 0x010101u);  // alpha 0 still mixes
}

TEST(CompositeCopy, ModifyBackgroundTurnsOpaqueBlackTransparent) {
    TestFrame src(VIDEO_FORMAT_RGB32, 2, 2), dst(VIDEO_FORMAT_RGB32, 2, 2);
    src.SetRgb32(0, 0, 0xFF000000);
    src.SetRgb32(1, 0, 0xFF000001);
    src.SetRgb32(0, 1, 0x11111111);
    src.SetRgb32(1, 1, 0xFF000000);
    ASSERT_EQ(VP::CopyRGB32_ModifyBackground(src.Buffer(), dst.Buffer(), src.Format(), dst.Format(),
                                             0, 0, 0),
              1);
    EXPECT_EQ(dst.Rgb32(0, 0), 0u);
    EXPECT_EQ(dst.Rgb32(1, 0), 0xFF000001u);
    ASSERT_EQ(VP::CopyRGB32_ModifyBackground(src.Buffer(), dst.Buffer(), src.Format(), dst.Format(),
                                             1, 0, 0),
              1);
    EXPECT_EQ(dst.Rgb32(0, 0), 0x11111111u);  // read bottom-up
    EXPECT_EQ(dst.Rgb32(1, 1), 0xFF000001u);
}

// An AI44 picture with its palette: entry i is AYUV (A 0x80 + i, Y, U, V).
struct Ai44 {
    explicit Ai44(bool withRgb) : frame(VIDEO_FORMAT_AI44, 4, 2) {
        auto* info = static_cast<uint8_t*>(frame.Buffer()->AllocateAddiInfo(withRgb ? 128 : 64));
        for (int i = 0; i < 16; ++i) {
            ayuv[i] = (0x80u + i) << 24 | (16u * i) << 16 | (255u - 8 * i) << 8 | (8u * i);
            std::memcpy(info + 4 * i, &ayuv[i], 4);
            rgb[i] = withRgb ? 0xA0000000u + i
                             : VP::YUV2RGB(ayuv[i] & 0xFFFFFF) | (ayuv[i] & 0xFF000000u);
            if (withRgb) std::memcpy(info + 64 + 4 * i, &rgb[i], 4);
        }
        const uint8_t bytes[8] = {0xF3, 0x13, 0x05, 0x2F, 0x00, 0x81, 0xFF, 0x4A};
        for (int i = 0; i < 8; ++i) frame.Y(i % 4, i / 4) = bytes[i];
    }
    TestFrame frame;
    uint32_t ayuv[16], rgb[16];
};

TEST(CompositeAi44, ExpandsThroughThePalette) {
    for (bool withRgb : {false, true}) {
        Ai44 src(withRgb);
        TestFrame ayuv(VIDEO_FORMAT_AYUV, 4, 2), rgb(VIDEO_FORMAT_RGB32, 4, 2);
        ASSERT_EQ(VP::ConvertFromAI44(src.frame.Buffer(), ayuv.Buffer(), src.frame.Format(),
                                      ayuv.Format(), 0, 0, 0),
                  1);
        EXPECT_EQ(ayuv.Rgb32(0, 0), src.ayuv[3] | 0xFF000000u);
        EXPECT_EQ(ayuv.Rgb32(1, 0), src.ayuv[3] | 0x11000000u);
        ASSERT_EQ(VP::ConvertFromAI44(src.frame.Buffer(), rgb.Buffer(), src.frame.Format(),
                                      rgb.Format(), 1, 0, 1),
                  1);
        // Flipped: row 0 of the output is source row 1.
        EXPECT_EQ(rgb.Rgb32(1, 0), src.rgb[1] | 0x88000000u);
        EXPECT_EQ(rgb.Rgb32(3, 1), src.rgb[15] | 0x22000000u);
    }
}

TEST(CompositeAi44, DrawsOnlyPixelsWithAlpha) {
    Ai44 src(false);
    TestFrame dst(VIDEO_FORMAT_RGB32, 6, 3);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 6; ++x) dst.SetRgb32(x, y, 0x55555555);
    ASSERT_EQ(VP::FillRectRGB32WithAI44_NoRead(src.frame.Buffer(), dst.Buffer(), src.frame.Format(),
                                               dst.Format(), 1, 1, 0, 2),
              1);
    EXPECT_EQ(dst.Rgb32(1, 1), src.rgb[3]);
    EXPECT_EQ(dst.Rgb32(3, 1), 0x55555555u);  // 0x05: alpha 0
    EXPECT_EQ(dst.Rgb32(4, 1), src.rgb[15]);
    EXPECT_EQ(dst.Rgb32(1, 2), 0x55555555u);
    EXPECT_EQ(dst.Rgb32(2, 2), src.rgb[1]);
    EXPECT_EQ(dst.Rgb32(0, 0), 0x55555555u);
}

TEST(CompositeAi44, SwapsToIa44AndAdjustsAlpha) {
    Ai44 src(false);
    TestFrame ia(VIDEO_FORMAT_IA44, 4, 2), out(VIDEO_FORMAT_AI44, 4, 2);
    ASSERT_EQ(VP::ConvertFromAI44(src.frame.Buffer(), ia.Buffer(), src.frame.Format(), ia.Format(),
                                  0, 0, 0),
              1);
    EXPECT_EQ(ia.Y(0, 0), 0x3F);
    EXPECT_EQ(ia.Y(3, 1), 0xA4);
    src.frame.Y(0, 0) = 0xF5;
    ASSERT_EQ(VP::AdjustAlphaLevelYUV(src.frame.Buffer(), out.Buffer(), src.frame.Format(),
                                      out.Format(), 0, 128, 0, 0),
              1);
    EXPECT_EQ(out.Y(0, 0), 0x75);
    ASSERT_EQ(VP::AdjustAlphaLevelYUV(src.frame.Buffer(), out.Buffer(), src.frame.Format(),
                                      out.Format(), 0x3C, 0, 0, 0),
              1);
    EXPECT_EQ(out.Y(0, 0), 0x35);
    EXPECT_EQ(out.Y(2, 0), 0x05);  // alpha 0 stays
}

TEST(CompositeAlpha, RgbLevelSetAndScale) {
    TestFrame src(VIDEO_FORMAT_RGB32, 3, 1), dst(VIDEO_FORMAT_RGB32, 3, 1);
    src.SetRgb32(0, 0, 0xFF102030);
    src.SetRgb32(1, 0, 0x00102030);
    src.SetRgb32(2, 0, 0x80FFFFFF);
    ASSERT_EQ(VP::AdjustAlphaLevelRGB(src.Buffer(), dst.Buffer(), src.Format(), dst.Format(), 0x140,
                                      0, 0, 2),
              1);
    EXPECT_EQ(dst.Rgb32(0, 0), 0x40102030u);
    EXPECT_EQ(dst.Rgb32(1, 0), 0x00102030u);
    for (uint32_t scale : {256u, 128u, 77u}) {
        ASSERT_EQ(VP::AdjustAlphaLevelRGB(src.Buffer(), dst.Buffer(), src.Format(), dst.Format(), 0,
                                          scale, 0, 2),
                  1);
        for (int x = 0; x < 3; ++x) {
            const uint32_t s = src.Rgb32(x, 0);
            EXPECT_EQ(dst.Rgb32(x, 0), (s & 0xFFFFFF) | (((s >> 8) * scale) >> 24) << 24);
        }
    }
    EXPECT_EQ(dst.Rgb32(0, 0) >> 24, (0xFF10u * 77) >> 16);
}

TEST(CompositeAlpha, FlatFillLeavesZeroPixels) {
    uint32_t pixels[8] = {0x00102030, 0, 1, 0xFF000000, 0x00102030, 0, 0, 0x7F};
    ASSERT_EQ(VP::FillAlphaRGB32_InPlaceFlat(reinterpret_cast<unsigned char*>(pixels), 8, 0x80, 0),
              1);
    EXPECT_EQ(pixels[0], 0x80102030u);
    EXPECT_EQ(pixels[1], 0u);
    EXPECT_EQ(pixels[2], 0x80000001u);
    EXPECT_EQ(pixels[3], 0xFF000000u);
    EXPECT_EQ(pixels[5], 0u);
    EXPECT_EQ(VP::FillAlphaRGB32_InPlaceFlat(reinterpret_cast<unsigned char*>(pixels), 8, 0x80, 3),
              1);
}

}  // namespace

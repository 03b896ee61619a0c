// Colour arithmetic checked against values worked out by hand from the
// definitions (the working is in the comments), the constant tables against
// an independent long-double computation, round trips against the error the
// fixed-point arithmetic allows, and the documented edge cases of the
// conversion calls (modes, flips, refused codes and levels).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "ncodecbase/video_processor.h"
#include "tests/video/video_frame.h"

namespace {

using ncbtest::TestFrame;
using Config = CNVideoProcessor::ConvertConfigTag;

constexpr Config kNoAdjust{0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255};

struct TableCase {
    const char* name;
    const int32_t* table;
    long double coefficient;
    int bias;
};

class CoefficientTable : public ::testing::TestWithParam<TableCase> {};

// Entry i is coefficient x (i - bias) x 65536 truncated toward zero. Where
// the exact product is an integer (1.402 x 125 x 65536 = 11485184) or lies
// within rounding noise of one, long double cannot decide, so those entries
// are checked against exact integer arithmetic in the Examples test.
TEST_P(CoefficientTable, EntriesAreTheTruncatedProducts) {
    const TableCase& t = GetParam();
    for (int i = 0; i < 256; ++i) {
        const long double exact = t.coefficient * (i - t.bias) * 65536.0L;
        const long double fraction = std::fabs(exact - std::round(exact));
        if (fraction < 1e-6L) continue;
        EXPECT_EQ(t.table[i], static_cast<int32_t>(std::trunc(exact))) << t.name << "[" << i << "]";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tables, CoefficientTable,
    ::testing::Values(
        TableCase{"Rgb2Yuv02990", CNVideoProcessor::s_nRgb2Yuv02990, 0.299L, 0},
        TableCase{"Rgb2Yuv05870", CNVideoProcessor::s_nRgb2Yuv05870, 0.587L, 0},
        TableCase{"Rgb2Yuv01140", CNVideoProcessor::s_nRgb2Yuv01140, 0.114L, 0},
        TableCase{"Rgb2Yuv01687n", CNVideoProcessor::s_nRgb2Yuv01687n, -0.1687L, 0},
        TableCase{"Rgb2Yuv03313n", CNVideoProcessor::s_nRgb2Yuv03313n, -0.3313L, 0},
        TableCase{"Rgb2Yuv04187n", CNVideoProcessor::s_nRgb2Yuv04187n, -0.4187L, 0},
        TableCase{"Rgb2Yuv00813n", CNVideoProcessor::s_nRgb2Yuv00813n, -0.0813L, 0},
        TableCase{"Yuv2Rgb1402", CNVideoProcessor::s_nYuv2Rgb1402, 1.402L, 128},
        TableCase{"Yuv2Rgb034413n", CNVideoProcessor::s_nYuv2Rgb034413n, -0.34413L, 128},
        TableCase{"Yuv2Rgb071414n", CNVideoProcessor::s_nYuv2Rgb071414n, -0.71414L, 128},
        TableCase{"Yuv2Rgb1772", CNVideoProcessor::s_nYuv2Rgb1772, 1.772L, 128}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(CoefficientTable, Examples) {
    EXPECT_EQ(CNVideoProcessor::s_nRgb2Yuv02990[1], 19595);
    EXPECT_EQ(CNVideoProcessor::s_nRgb2Yuv02990[2], 39190);
    EXPECT_EQ(CNVideoProcessor::s_nYuv2Rgb1402[0], -11760828);
    EXPECT_EQ(CNVideoProcessor::s_nYuv2Rgb1402[129], 91881);
    EXPECT_EQ(CNVideoProcessor::s_nYuv2Rgb071414n[0], 5990640);
    EXPECT_EQ(CNVideoProcessor::s_nYuv2Rgb1402[128], 0);
    // Exact integers: 1.402 x -125 x 65536 and 1.772 x 125 x 65536.
    EXPECT_EQ(CNVideoProcessor::s_nYuv2Rgb1402[3], -11485184);
    EXPECT_EQ(CNVideoProcessor::s_nYuv2Rgb1402[253], 11485184);
    EXPECT_EQ(CNVideoProcessor::s_nYuv2Rgb1772[253], 14516224);
    // -0.1687 x 255 x 65536 = -2819260.4, truncated toward zero.
    EXPECT_EQ(CNVideoProcessor::s_nRgb2Yuv01687n[255], -2819260);
}

TEST(ClipTable, ClampsMinus256To511) {
    const uint8_t* clip = CNVideoProcessor::s_pClipTableU8;
    EXPECT_EQ(clip, CNVideoProcessor::s_uClipTableU8 + 256);
    for (int x = -256; x < 512; ++x) EXPECT_EQ(clip[x], x < 0 ? 0 : x > 255 ? 255 : x) << x;
}

TEST(SingleColour, DocumentedValues) {
    EXPECT_EQ(CNVideoProcessor::RGB2YUV(0x00FFFFFF), 0x00FF8080u);
    EXPECT_EQ(CNVideoProcessor::RGB2YUV(0), 0x00008080u);
    EXPECT_EQ(CNVideoProcessor::YUV2RGB(0x00FF8080), 0x00FFFFFFu);
    EXPECT_EQ(CNVideoProcessor::YUV2RGB(0x00008080), 0u);
    EXPECT_EQ(CNVideoProcessor::RGB32_RGB565(0x00FFFFFF), 0xFFFFu);
    EXPECT_EQ(CNVideoProcessor::RGB32_RGB555(0x00FFFFFF), 0x7FFFu);
}

TEST(SingleColour, HandComputed) {
    // Red: Y = (4996792 + 32768) >> 16 = 76; U = (-2819260 + 257 << 15) >> 16
    // = 5602116 >> 16 = 85; V = (512 << 15) >> 16 = 256, clipped to 255.
    EXPECT_EQ(CNVideoProcessor::RGB2YUV(0x00FF0000), 0x004C55FFu);
    // Alpha bits are ignored.
    EXPECT_EQ(CNVideoProcessor::RGB2YUV(0xAAFF0000), 0x004C55FFu);
    // Y 100, U 50, V 200: R = (6553600 + 32768 + 6615465) >> 16 = 201,
    // G = (6586368 + 1759125 - 3369735) >> 16 = 75, B clips to 0.
    EXPECT_EQ(CNVideoProcessor::YUV2RGB(0x006432C8), 0x00C94B00u);
    // 565: R 0x12 >> 3 = 2, G 0x34 >> 2 = 13, B 0x56 >> 3 = 10.
    EXPECT_EQ(CNVideoProcessor::RGB32_RGB565(0x00123456), (2u << 11) | (13u << 5) | 10u);
    EXPECT_EQ(CNVideoProcessor::RGB32_RGB555(0x00123456), (2u << 10) | (6u << 5) | 10u);
}

// Table round trip RGB -> YUV -> RGB: each channel within 2 of where it
// started (16.16 products each truncated once, then rounded once).
TEST(SingleColour, RoundTripStaysClose) {
    int worst = 0;
    for (int r = 0; r < 256; r += 5) {
        for (int g = 0; g < 256; g += 3) {
            for (int b = 0; b < 256; b += 7) {
                const unsigned rgb = r << 16 | g << 8 | b;
                const unsigned back = CNVideoProcessor::YUV2RGB(CNVideoProcessor::RGB2YUV(rgb));
                worst =
                    std::max({worst, std::abs(int(back >> 16 & 255) - r),
                              std::abs(int(back >> 8 & 255) - g), std::abs(int(back & 255) - b)});
            }
        }
    }
    EXPECT_LE(worst, 2);
}

// One pixel of 4:4:4 through ConvertToRGB at every level.
uint32_t ToRgb32(int y, int u, int v, const Config& config, int level) {
    TestFrame in(VIDEO_FORMAT_YUV444, 1, 1), out(VIDEO_FORMAT_RGB32, 1, 1);
    in.Y(0, 0) = static_cast<uint8_t>(y);
    in.U(0, 0) = static_cast<uint8_t>(u);
    in.V(0, 0) = static_cast<uint8_t>(v);
    Config c = config;
    EXPECT_EQ(CNVideoProcessor::ConvertToRGB(in.Buffer(), out.Buffer(), in.Format(), out.Format(),
                                             &c, 0, level),
              1);
    return out.Rgb32(0, 0);
}

struct PixelCase {
    int y, u, v;
    uint32_t argb;
};

class VectorYuvToRgb : public ::testing::TestWithParam<int> {};

TEST_P(VectorYuvToRgb, HandComputedPixels) {
    const PixelCase cases[] = {
        {255, 128, 128, 0xFFFFFFFF},  // u = v = 0: (8160 + 16) >> 5 = 255
        {0, 128, 128, 0xFF000000},
        {128, 128, 128, 0xFF808080},
        // v = 32512: dR = 5697 + 16, R = 9809 >> 5 clamps; dG = -2903 + 16,
        // G = 1209 >> 5 = 37; B = 4112 >> 5 = 128.
        {128, 128, 255, 0xFFFF2580},
        // u = -19968, v = 18432: dR = 3246, R = 6446 >> 5 = 201; dB = -4407,
        // B clamps to 0; dG = 858 - 1646 + 16, G = 2428 >> 5 = 75.
        {100, 50, 200, 0xFFC94B00},
    };
    for (const PixelCase& c : cases)
        EXPECT_EQ(ToRgb32(c.y, c.u, c.v, kNoAdjust, GetParam()), c.argb)
            << c.y << " " << c.u << " " << c.v;
}

TEST_P(VectorYuvToRgb, AdjustThenConvert) {
    Config c = kNoAdjust;
    // Y 100 x 1.5 - 10 = 140; U 50: (50 x 128) >> 8 - 64 + 5 = -34 -> 94;
    // V: gain 0 gives 128 + offset 0 = 128.
    c.nGainY = 384;
    c.nOffsetY = -10;
    c.nGainU = 128;
    c.nOffsetU = 5;
    c.nGainV = 0;
    c.nAlpha = 0x1234;  // low byte is the alpha
    // Then 140, 94, 128: u = -8704, dB = ((-8704 x 14516) >> 16) + 16 = -1928 + 16,
    // B = (4480 - 1912) >> 5 = 80; dG = 374 + 0 + 16, G = 4870 >> 5 = 152; R = 140.
    EXPECT_EQ(ToRgb32(100, 50, 200, c, GetParam()), 0x348C9850u);
}

TEST_P(VectorYuvToRgb, AllZeroTagIsAdjustMode) {
    // Gains 0: luma 0 + 0, chroma 128; alpha 0.
    EXPECT_EQ(ToRgb32(200, 10, 240, Config{}, GetParam()), 0x00000000u);
}

TEST_P(VectorYuvToRgb, FixedChromaGivesGrey) {
    Config c = kNoAdjust;
    c.nFixedChroma = 1;
    c.nGainY = 128;  // 200 / 2
    EXPECT_EQ(ToRgb32(200, 10, 240, c, GetParam()), 0xFF646464u);
}

INSTANTIATE_TEST_SUITE_P(Levels, VectorYuvToRgb, ::testing::Values(0, 1, 2));

// A picture of one RGB32 colour through ConvertFromRGB.
struct FromRgbResult {
    std::vector<int> y, u, v;
};

FromRgbResult FromRgb(uint32_t argb, int code, int width, int height, int level) {
    TestFrame in(VIDEO_FORMAT_RGB32, width, height), out(code, width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) in.SetRgb32(x, y, argb);
    Config c = kNoAdjust;
    EXPECT_EQ(CNVideoProcessor::ConvertFromRGB(in.Buffer(), out.Buffer(), in.Format(), out.Format(),
                                               &c, 0, level),
              1);
    FromRgbResult r;
    for (int x = 0; x < width; ++x) r.y.push_back(out.Y(x, 0));
    if (out.planes.count > 1) {
        for (int x = 0; x < out.planes.u.width; ++x) {
            r.u.push_back(out.U(x, 0));
            r.v.push_back(out.V(x, 0));
        }
    }
    return r;
}

class VectorRgbToYuv : public ::testing::TestWithParam<int> {};

// Blue, 255: 4:2:0 luma (15 x 255 + 64) >> 7 = 30; Y-only luma
// ((65280 x 1868) >> 16 + 32) >> 6 = 1892 >> 6 = 29.
TEST_P(VectorRgbToYuv, LumaWeightsDependOnTheOutput) {
    EXPECT_EQ(FromRgb(0xFF0000FF, VIDEO_FORMAT_YUV420, 4, 2, GetParam()).y[0], 30);
    EXPECT_EQ(FromRgb(0xFF0000FF, VIDEO_FORMAT_Y800, 4, 2, GetParam()).y[0], 29);
    EXPECT_EQ(FromRgb(0xFFFFFFFF, VIDEO_FORMAT_Y800, 4, 2, GetParam()).y[0], 255);
    EXPECT_EQ(FromRgb(0xFFFFFFFF, VIDEO_FORMAT_YUV420, 4, 2, GetParam()).y[0], 255);
}

// Blue: main V = (-((65280 x 1332) >> 16) + 32) >> 6 = -1294 >> 6 = -21 ->
// 107; end-of-row V = (-10 x 255 + 16447) >> 7 = 108. U is 255 both ways.
TEST_P(VectorRgbToYuv, EndOfRowChromaUsesItsOwnRule) {
    const FromRgbResult r18 = FromRgb(0xFF0000FF, VIDEO_FORMAT_YUV420, 18, 2, GetParam());
    ASSERT_EQ(r18.v.size(), 9u);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(r18.v[i], 107) << i;
    EXPECT_EQ(r18.v[8], 108);
    for (int u : r18.u) EXPECT_EQ(u, 255);
    // Shorter than one block: every sample is an end-of-row sample.
    for (int v : FromRgb(0xFF0000FF, VIDEO_FORMAT_YUV420, 14, 2, GetParam()).v) EXPECT_EQ(v, 108);
    // 4:2:2 and 4:4:4 have no such rule.
    for (int v : FromRgb(0xFF0000FF, VIDEO_FORMAT_YUV422, 18, 1, GetParam()).v) EXPECT_EQ(v, 107);
    for (int v : FromRgb(0xFF0000FF, VIDEO_FORMAT_YUV444, 5, 1, GetParam()).v) EXPECT_EQ(v, 107);
}

// (200, 100, 50): luma (7600 + 7500 + 750 + 64) >> 7 = 124; main U =
// (1600 - 2120 - 2159 + 32) >> 6 = -42 -> 86; V = (6400 - 2679 - 260 + 32)
// >> 6 = 54 -> 182.
TEST_P(VectorRgbToYuv, HandComputedColour) {
    const FromRgbResult r = FromRgb(0xFFC86432, VIDEO_FORMAT_YUV444, 3, 1, GetParam());
    EXPECT_EQ(r.y[0], 124);
    EXPECT_EQ(r.u[0], 86);
    EXPECT_EQ(r.v[0], 182);
}

// 4:2:0 chroma comes from up-rounded pairwise averages, rows first.
TEST_P(VectorRgbToYuv, ChromaOfABlockIsItsRoundedMean) {
    TestFrame in(VIDEO_FORMAT_RGB32, 2, 2), out(VIDEO_FORMAT_YUV444, 1, 1),
        out420(VIDEO_FORMAT_YUV420, 2, 2);
    // Blue 0, 1 / 2, 255: rows (0 + 2 + 1) >> 1 = 1, (1 + 255 + 1) >> 1 = 128,
    // then (1 + 128 + 1) >> 1 = 65, so the block acts as blue 65.
    in.SetRgb32(0, 0, 0x00000000);
    in.SetRgb32(1, 0, 0x00000001);
    in.SetRgb32(0, 1, 0x00000002);
    in.SetRgb32(1, 1, 0x000000FF);
    TestFrame one(VIDEO_FORMAT_RGB32, 1, 1);
    one.SetRgb32(0, 0, 0x00000041);
    Config c = kNoAdjust;
    CNVideoProcessor::ConvertFromRGB(in.Buffer(), out420.Buffer(), in.Format(), out420.Format(), &c,
                                     0, GetParam());
    CNVideoProcessor::ConvertFromRGB(one.Buffer(), out.Buffer(), one.Format(), out.Format(), &c, 0,
                                     GetParam());
    // Two pixels wide is all end-of-row: (64 x 65 + 16447) >> 7 = 160.
    EXPECT_EQ(out420.U(0, 0), 160);
    // The same blue through the main formula: (32 x 65 + 32) >> 6 = 33 -> 161.
    EXPECT_EQ(out.U(0, 0), 161);
}

INSTANTIATE_TEST_SUITE_P(Levels, VectorRgbToYuv, ::testing::Values(0, 1, 2));

// RGB32 -> 4:4:4 -> RGB32 with the vector arithmetic: each channel within
// the error its fixed point allows (luma in 1.7, 3.13 coefficients).
TEST(ConvertRoundTrip, Rgb32ThroughYuv444) {
    const int w = 64, h = 64;
    TestFrame rgb(VIDEO_FORMAT_RGB32, w, h), yuv(VIDEO_FORMAT_YUV444, w, h),
        back(VIDEO_FORMAT_RGB32, w, h);
    uint32_t seed = 12345;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            seed = seed * 1664525u + 1013904223u;
            rgb.SetRgb32(x, y, 0xFF000000u | (seed >> 8));
        }
    }
    Config c = kNoAdjust;
    CNVideoProcessor::ConvertFromRGB(rgb.Buffer(), yuv.Buffer(), rgb.Format(), yuv.Format(), &c, 0,
                                     0);
    CNVideoProcessor::ConvertToRGB(yuv.Buffer(), back.Buffer(), yuv.Format(), back.Format(), &c, 0,
                                   0);
    int worst = 0;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            for (int i = 0; i < 3; ++i)
                worst = std::max(worst, std::abs(rgb.At(0, x, y, i) - back.At(0, x, y, i)));
            EXPECT_EQ(back.At(0, x, y, 3), 255);
        }
    }
    EXPECT_LE(worst, 4);
}

TEST(ConvertModes, YuvAdjustAndFixedChroma) {
    TestFrame in(VIDEO_FORMAT_YUV444, 2, 1), out(VIDEO_FORMAT_AYUV, 2, 1);
    in.Y(0, 0) = 100;
    in.U(0, 0) = 50;
    in.V(0, 0) = 200;
    Config c = kNoAdjust;
    c.nGainY = 384;
    c.nOffsetY = -10;
    c.nGainU = 128;
    c.nOffsetU = 5;
    c.nGainV = 0;
    c.nOffsetV = -200;  // 128 - 200 clamps to 0
    c.nAlpha = 7;
    CNVideoProcessor::ConvertToYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), &c, 0, 0);
    EXPECT_EQ(out.At(0, 0, 0, 0), 0);    // V
    EXPECT_EQ(out.At(0, 0, 0, 1), 94);   // U
    EXPECT_EQ(out.At(0, 0, 0, 2), 140);  // Y
    EXPECT_EQ(out.At(0, 0, 0, 3), 7);    // alpha
    c = kNoAdjust;
    c.nFixedChroma = 1;
    c.nFixedU = 128;
    c.nFixedV = 128;
    CNVideoProcessor::ConvertToYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), &c, 0, 0);
    EXPECT_EQ(out.At(0, 0, 0, 0), 128);
    EXPECT_EQ(out.At(0, 0, 0, 1), 128);
    EXPECT_EQ(out.At(0, 0, 0, 2), 100);
}

TEST(ConvertModes, GreyInputGetsNeutralOrFixedChroma) {
    TestFrame in(VIDEO_FORMAT_Y800, 2, 2), out(VIDEO_FORMAT_YUV420, 2, 2);
    in.Fill(0, 77);
    Config c = kNoAdjust;
    CNVideoProcessor::ConvertYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), 0, 1);
    EXPECT_EQ(out.U(0, 0), 128);
    EXPECT_EQ(out.V(0, 0), 128);
    // Adjust mode on a grey input writes the fixed pair, not adjusted 128.
    c.nGainU = 0;
    c.nFixedU = 20;
    c.nFixedV = 30;
    TestFrame yuy2(VIDEO_FORMAT_YUY2, 2, 2);
    CNVideoProcessor::ConvertToYUV(in.Buffer(), yuy2.Buffer(), in.Format(), yuy2.Format(), &c, 0,
                                   1);
    EXPECT_EQ(yuy2.At(0, 0, 0, 0), 77);
    EXPECT_EQ(yuy2.At(0, 0, 0, 1), 20);
    EXPECT_EQ(yuy2.At(0, 0, 0, 3), 30);
}

// 4:2:2 into 4:2:0 averages chroma rows rounding up; 4:2:0 into 4:2:2
// repeats each chroma row.
TEST(ConvertModes, ChromaRowsAverageOrRepeat) {
    TestFrame in422(VIDEO_FORMAT_YUV422, 2, 2), out420(VIDEO_FORMAT_IYUV, 2, 2);
    in422.U(0, 0) = 10;
    in422.U(0, 1) = 13;
    in422.V(0, 0) = 200;
    in422.V(0, 1) = 201;
    Config c = kNoAdjust;
    CNVideoProcessor::ConvertToYUV(in422.Buffer(), out420.Buffer(), in422.Format(), out420.Format(),
                                   &c, 0, 0);
    EXPECT_EQ(out420.U(0, 0), 12);
    EXPECT_EQ(out420.V(0, 0), 201);
    TestFrame in420(VIDEO_FORMAT_YUV420, 2, 2), uyvy(VIDEO_FORMAT_UYVY, 2, 2);
    in420.U(0, 0) = 33;
    in420.V(0, 0) = 44;
    in420.Y(0, 1) = 5;
    in420.Y(1, 1) = 6;
    CNVideoProcessor::ConvertToYUV(in420.Buffer(), uyvy.Buffer(), in420.Format(), uyvy.Format(), &c,
                                   0, 0);
    const uint8_t* row1 = &uyvy.At(0, 0, 1);
    EXPECT_EQ(row1[0], 33);
    EXPECT_EQ(row1[1], 5);
    EXPECT_EQ(row1[2], 44);
    EXPECT_EQ(row1[3], 6);
}

// nFlip on a 4:2:0 output of height 6: input row 0 lands in output row 5
// and input chroma row 0 in output chroma row 2.
TEST(ConvertModes, FlipWritesBottomUp) {
    TestFrame in(VIDEO_FORMAT_YUV420, 4, 6), out(VIDEO_FORMAT_YV12, 4, 6);
    for (int y = 0; y < 6; ++y) in.Y(0, y) = static_cast<uint8_t>(10 + y);
    for (int y = 0; y < 3; ++y) in.U(0, y) = static_cast<uint8_t>(100 + y);
    Config c = kNoAdjust;
    c.nFlip = 1;
    CNVideoProcessor::ConvertToYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), &c, 0, 2);
    EXPECT_EQ(out.Y(0, 5), 10);
    EXPECT_EQ(out.Y(0, 0), 15);
    EXPECT_EQ(out.U(0, 2), 100);
    EXPECT_EQ(out.U(0, 0), 102);
}

struct Untouched {
    const char* name;
    int inCode, outCode, level;
};

class ConvertRefuses : public ::testing::TestWithParam<Untouched> {};

// Code 7, code 5 and level 3 leave the output as it was and still return 1.
TEST_P(ConvertRefuses, LeavesOutputAlone) {
    const Untouched& u = GetParam();
    TestFrame in(u.inCode, 4, 4), out(u.outCode, 4, 4);
    in.Fill(0, 99);
    out.Fill(0, 42);
    const std::vector<uint8_t> before = out.bytes;
    Config c = kNoAdjust;
    const bool toYuv = u.outCode >= 6 && u.outCode < 256;
    const int r = toYuv ? CNVideoProcessor::ConvertToYUV(in.Buffer(), out.Buffer(), in.Format(),
                                                         out.Format(), &c, 0, u.level)
                        : CNVideoProcessor::ConvertToRGB(in.Buffer(), out.Buffer(), in.Format(),
                                                         out.Format(), &c, 0, u.level);
    EXPECT_EQ(r, 1);
    EXPECT_EQ(out.bytes, before);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ConvertRefuses,
    ::testing::Values(Untouched{"OutputCode7", 2, 7, 0}, Untouched{"InputCode7", 7, 6, 0},
                      Untouched{"Level3", 2, 6, 3}, Untouched{"LevelMinus1", 2, 260, -1},
                      Untouched{"Level3Rgb", 2, 260, 3}, Untouched{"InputCode5", 5, 260, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ConvertRgb, WideningLeavesLowBitsZeroAndAlphaZero) {
    TestFrame in(VIDEO_FORMAT_RGB565, 1, 1), out(VIDEO_FORMAT_RGB32, 1, 1);
    in.At(0, 0, 0, 0) = 0xFF;
    in.At(0, 0, 0, 1) = 0xFF;
    out.SetRgb32(0, 0, 0x12345678);
    CNVideoProcessor::ConvertRGB(in.Buffer(), out.Buffer(), in.Format(), out.Format(), 0, 0);
    EXPECT_EQ(out.Rgb32(0, 0), 0x00F8FCF8u);
    TestFrame narrow(VIDEO_FORMAT_RGB555, 1, 1);
    out.SetRgb32(0, 0, 0xFFFFFFFF);
    CNVideoProcessor::ConvertRGB(out.Buffer(), narrow.Buffer(), out.Format(), narrow.Format(), 0,
                                 2);
    EXPECT_EQ(narrow.At(0, 0, 0, 0) | narrow.At(0, 0, 0, 1) << 8, 0x7FFF);
}

// The 16-to-32-bit kernels walk rows backwards, so a row can be widened in
// place.
TEST(ConvertRgb, WideningInPlaceWithinARow) {
    for (int level = 0; level <= 2; ++level) {
        const int w = 37;
        TestFrame in(VIDEO_FORMAT_RGB565, w, 1);
        for (int x = 0; x < w; ++x) {
            in.At(0, x, 0, 0) = static_cast<uint8_t>(x * 7);
            in.At(0, x, 0, 1) = static_cast<uint8_t>(x * 13);
        }
        TestFrame expect(VIDEO_FORMAT_RGB32, w, 1);
        CNVideoProcessor::ConvertRGB(in.Buffer(), expect.Buffer(), in.Format(), expect.Format(), 0,
                                     level);
        std::vector<uint8_t> shared(4 * w + 64);
        std::copy(in.bytes.begin(), in.bytes.begin() + 2 * w, shared.begin());
        CNCodecBuffer same(shared.data(), static_cast<int>(shared.size()),
                           static_cast<int>(shared.size()), nullptr);
        CNVideoProcessor::ConvertRGB(&same, &same, in.Format(), expect.Format(), 0, level);
        EXPECT_TRUE(std::equal(shared.begin(), shared.begin() + 4 * w, expect.bytes.begin()))
            << "level " << level;
    }
}

TEST(ConvertAyuv, TablesAndAlphaCarried) {
    TestFrame ayuv(VIDEO_FORMAT_AYUV, 2, 1), rgb(VIDEO_FORMAT_RGB32, 2, 1);
    // V U Y A bytes.
    ayuv.At(0, 0, 0, 0) = 200;
    ayuv.At(0, 0, 0, 1) = 50;
    ayuv.At(0, 0, 0, 2) = 100;
    ayuv.At(0, 0, 0, 3) = 0x5A;
    ayuv.At(0, 1, 0, 2) = 255;
    ayuv.At(0, 1, 0, 0) = ayuv.At(0, 1, 0, 1) = 128;
    CNVideoProcessor::ConvertAYUVtoRGB32(ayuv.Buffer(), rgb.Buffer(), ayuv.Format(), rgb.Format(),
                                         0, 0, 1);
    EXPECT_EQ(rgb.Rgb32(0, 0), 0x5AC94B00u);
    EXPECT_EQ(rgb.Rgb32(1, 0), 0x00FFFFFFu);
    TestFrame back(VIDEO_FORMAT_AYUV, 2, 1);
    CNVideoProcessor::ConvertRGB32toAYUV(rgb.Buffer(), back.Buffer(), rgb.Format(), back.Format(),
                                         0, 0, 1);
    EXPECT_EQ(back.At(0, 0, 0, 3), 0x5A);
    EXPECT_EQ(back.At(0, 1, 0, 2), 255);
    EXPECT_EQ(back.At(0, 1, 0, 1), 128);
}

}  // namespace

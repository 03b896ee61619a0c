// The resizer's numbers checked by hand and against pictures: the filter
// kernel at the stated points, tap counts per shrink factor, a 4-to-3 table
// worked out on paper (positions, clamped taps, weights, merged and dropped
// vertical taps, the commands), the work header, pictures whose result is
// known (same size is a copy; a constant picture loses at most two levels;
// one destination pixel reads source pixel 0), and a smooth picture scaled
// against ImageMagick within a stated tolerance.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "platform/kernel/fault.h"

namespace {

using VP = CNVideoProcessor;

TEST(ResizeWeight, KernelAtTheStatedPoints) {
    EXPECT_EQ(VP::ResizeGetPixelWeight(4, 0), 16384u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(4, 32768), 8192u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(4, 65536), 0u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(8, 0), 8192u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(2, 0), 32767u);  // 32768 cut to 32767
    EXPECT_EQ(VP::ResizeGetPixelWeight(2, 32768), 0u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(2, 8192), 24576u);
    // 6 taps: (4.5 * 2^30 - d^2) / 442368 inside 1.5 pixels, (98304 - d)^2 / 442368 outside.
    EXPECT_EQ(VP::ResizeGetPixelWeight(6, 0), 10922u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(6, 65536), 2427u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(6, 98304), 0u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(12, 196608), 0u);
    EXPECT_EQ(VP::ResizeGetPixelWeight(7, 0), 7u);  // not a filter: the count itself
}

// The weights of one destination pixel sum to 1.0 (within truncation) for
// every filter and phase.
TEST(ResizeWeight, TapsOfOnePixelSumToOne) {
    for (int taps = 4; taps <= 12; taps += 2) {
        const int h = taps / 2;
        for (unsigned f = 0; f < 32768; f += 1021) {
            unsigned sum = 0;
            for (int k = 0; k < h; ++k)
                sum += VP::ResizeGetPixelWeight(taps, (h - k - 1) * 32768u + f) +
                       VP::ResizeGetPixelWeight(taps, (k + 1) * 32768u - f);
            EXPECT_LE(sum, 32768u) << taps << " taps, phase " << f;
            EXPECT_GE(sum, 32768u - taps) << taps << " taps, phase " << f;
        }
    }
}

struct Tables {
    CNCodecBuffer commands, horizontal, vertical;
    int rowBytes = 0, tableWidth = 0, verticalCommands = 0;
    unsigned rows = 0;
    uint64_t mask = 0;

    const int32_t* H() { return static_cast<const int32_t*>(horizontal.GetAddress()); }
    const int32_t* C() { return static_cast<const int32_t*>(commands.GetAddress()); }
    const uint16_t* V() { return static_cast<const uint16_t*>(vertical.GetAddress()); }
    int HorizontalTaps() {
        const int weightBytes = horizontal.GetDataSize() - H()[0] - 16;
        return tableWidth ? weightBytes / (2 * tableWidth) : 0;
    }
    const int16_t* Weights() {
        return reinterpret_cast<const int16_t*>(
            static_cast<const uint8_t*>(horizontal.GetAddress()) + H()[0]);
    }
};

bool BuildYuv(Tables* t, int sw, int sh, int sp, int dw, int dh, int dp) {
    return VP::ResizeCreateTable_YUV(sw, sh, sp, dw, dh, dp, &t->commands, &t->horizontal,
                                     &t->vertical, &t->rowBytes, &t->rows, &t->mask, &t->tableWidth,
                                     &t->verticalCommands) == 1;
}

struct TapParam {
    int source, destination, taps;
};
class ResizeTaps : public ::testing::TestWithParam<TapParam> {};

TEST_P(ResizeTaps, GrowWithTheShrinkFactor) {
    const TapParam p = GetParam();
    Tables t;
    ASSERT_TRUE(BuildYuv(&t, p.source, 2, p.source, p.destination, 2, p.destination));
    EXPECT_EQ(t.HorizontalTaps(), p.taps);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(t.horizontal.GetAddress()) % 16, 0u);
    EXPECT_EQ(t.H()[0] % 16, 0);
}

INSTANTIATE_TEST_SUITE_P(Factors, ResizeTaps,
                         ::testing::Values(TapParam{1920, 1280, 4}, TapParam{1920, 960, 6},
                                           TapParam{1920, 100, 12}, TapParam{640, 1280, 2},
                                           TapParam{1000, 549, 6}, TapParam{1000, 551, 4},
                                           TapParam{3, 7, 2}, TapParam{7, 3, 6},
                                           TapParam{1919, 1, 12}));

// 4 -> 3 one-byte samples: positions 0, 1.5, 3 source pixels; 4 taps.
TEST(ResizeTables, FourToThreeWorkedByHand) {
    Tables t;
    ASSERT_TRUE(BuildYuv(&t, 4, 4, 16, 3, 3, 8));
    ASSERT_EQ(t.HorizontalTaps(), 4);
    // Pixel 0 reaches left of the picture, pixel 2 right of it.
    EXPECT_EQ(t.H()[1], 1);
    EXPECT_EQ(t.H()[2], 1);
    EXPECT_EQ(t.H()[3], 1);
    // Steps between tap positions: pixel 0 taps -1,0,1,2 read 0,0,1,2;
    // pixel 1 lists its first tap, 0; pixel 2 taps 2,3,4,5 read 2,3,3,3.
    const int32_t wantSteps[] = {0, 0, 1, 1, -2, 2, 1, 0, 0};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(t.H()[4 + i], wantSteps[i]) << "step " << i;
    const int16_t wantWeights[] = {8192,  16384, 8192, 0,     2048, 14336,
                                   14336, 2048,  8192, 16384, 8192, 0};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(t.Weights()[i], wantWeights[i]) << "weight " << i;

    // Vertically: row 0 merges rows -1 and 0 (24576), keeps row 1 (8192)
    // and drops row 2 (0); row 1 takes rows 0-3; row 2 merges rows 3-5.
    // Both directions scale, so rows are filtered into a ring of 4 and
    // weighed from there (8-byte rows of 3 values, padded to 16).
    EXPECT_EQ(t.rowBytes, 16);
    EXPECT_EQ(t.rows, 4u);
    EXPECT_EQ(t.verticalCommands, 3);
    const int32_t want[] = {3,  0,  0,  3,  16, 16, 14, 0, 16, 0,          //
                            3,  32, 32, 3,  48, 48, 16, 0, 16, 32, 48, 8,  //
                            14, 32, 48, 16, 0};
    const int words = t.commands.GetDataSize() / 4;
    ASSERT_EQ(words, static_cast<int>(sizeof want / 4));
    for (int i = 0; i < words; ++i) EXPECT_EQ(t.C()[i], want[i]) << "word " << i;
    const uint16_t wantRows[] = {24576, 8192, 2048, 14336, 14336, 2048, 8192, 24576};
    ASSERT_EQ(t.vertical.GetDataSize(), 16 * 8);
    for (int g = 0; g < 8; ++g)
        for (int k = 0; k < 8; ++k) EXPECT_EQ(t.V()[8 * g + k], wantRows[g]) << "group " << g;
}

TEST(ResizeTables, SameSizeIsACopyProgram) {
    Tables t;
    ASSERT_TRUE(BuildYuv(&t, 5, 3, 8, 5, 3, 12));
    const int32_t want[] = {1, 0, 0, 1, 8, 12, 1, 16, 24, 0};
    ASSERT_EQ(t.commands.GetDataSize(), static_cast<int>(sizeof want));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(t.C()[i], want[i]);
    EXPECT_EQ(t.verticalCommands, 0);
}

// Every kept vertical weight lies in 128..32767, for shrinking and enlarging.
TEST(ResizeTables, VerticalWeightsAreKeptFrom128) {
    for (const auto& [s, d] : {std::pair{1080, 720}, {720, 1080}, {1000, 7}, {9, 1000}}) {
        Tables t;
        ASSERT_TRUE(BuildYuv(&t, 3, s, 3, 3, d, 3));
        const int groups = t.vertical.GetDataSize() / 16;
        for (int g = 0; g < groups; ++g) {
            EXPECT_GE(t.V()[8 * g], 128) << s << " -> " << d;
            EXPECT_LE(t.V()[8 * g], 32767) << s << " -> " << d;
        }
    }
}

TEST(ResizeTables, OddRgb32WidthMasksTheExtraPixel) {
    Tables t;
    int width = 0;
    ASSERT_EQ(VP::ResizeCreateTable_RGB32(10, 2, 40, 5, 2, 20, &t.commands, &t.horizontal,
                                          &t.vertical, nullptr, nullptr, &t.mask, &width, nullptr),
              1);
    EXPECT_EQ(width, 6);
    EXPECT_EQ(t.mask, 0x00000000FFFFFFFFull);
    ASSERT_EQ(VP::ResizeCreateTable_RGB32(10, 2, 40, 6, 2, 24, &t.commands, &t.horizontal,
                                          &t.vertical, nullptr, nullptr, &t.mask, &width, nullptr),
              1);
    EXPECT_EQ(width, 6);
    EXPECT_EQ(t.mask, ~0ull);
}

TEST(ResizeWork, HeaderHoldsLayoutLevelAndAlignedOffsets) {
    CNCodecBuffer work;
    ASSERT_EQ(VP::ResizeInit(2, 1, 64, 48, 80, 40, 30, 20, 32, 16, &work), 1);
    const auto* h = static_cast<const int32_t*>(work.GetAddress());
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(h) % 16, 0u);
    EXPECT_EQ(h[0], 2);
    EXPECT_EQ(h[1], 1);
    EXPECT_EQ(h[2], 30);
    EXPECT_EQ(h[3], 15);
    EXPECT_EQ(h[8], 80);
    EXPECT_EQ(h[9], 40);
    EXPECT_EQ(h[10], 32);
    EXPECT_EQ(h[11], 16);
    EXPECT_EQ(h[18], 112);
    for (int w = 19; w <= 24; ++w) EXPECT_EQ(h[w] % 16, 0) << "word " << w;
    EXPECT_GT(h[19], 112);  // chroma command list
    EXPECT_EQ(VP::ResizeUninit(&work), 1);
    EXPECT_EQ(work.GetAddress(), nullptr);
    EXPECT_EQ(VP::ResizeUninit(nullptr), 0);
}

TEST(ResizeWork, RefusesBadSizesAndMismatchedCalls) {
    CNCodecBuffer work;
    EXPECT_EQ(VP::ResizeInit(260, 0, 0, 4, 16, 0, 4, 4, 16, 0, &work), 0);
    EXPECT_EQ(VP::ResizeInit(260, 0, 4, 4, 16, 0, 4, 4, 16, 0, nullptr), 0);
    uint8_t a[64] = {}, b[64] = {};
    EXPECT_EQ(VP::ResizeRGB32(a, b, &work), 0);  // empty work buffer
    ASSERT_EQ(VP::ResizeInit(1, 0, 8, 8, 8, 0, 4, 4, 4, 0, &work), 1);
    EXPECT_EQ(VP::ResizeRGB32(a, b, &work), 0);               // built for luma
    EXPECT_EQ(VP::ResizeYUV420(a, a, a, b, b, b, &work), 0);  // not 4:2:0
    EXPECT_EQ(VP::ResizeYUVMono(a, b, &work), 1);
    // A level outside 0..2 is kept and makes the frame calls do nothing.
    ASSERT_EQ(VP::ResizeInit(1, 3, 8, 8, 8, 0, 4, 4, 4, 0, &work), 1);
    std::memset(b, 7, sizeof b);
    EXPECT_EQ(VP::ResizeYUVMono(a, b, &work), 1);
    EXPECT_EQ(b[0], 7);
}

TEST(ResizeWork, FailedAllocationLeavesNothingBehind) {
    for (int skip = 0; skip < 12; ++skip) {
        CNCodecBuffer work;
        int rc;
        {
            nplat::fault::Scope fail(nplat::fault::Kind::kHeap, skip);
            rc = VP::ResizeInit(2, 0, 64, 48, 64, 32, 30, 20, 30, 15, &work);
        }
        if (rc == 1) {
            EXPECT_EQ(static_cast<const int32_t*>(work.GetAddress())[0], 2);
            return;
        }
        EXPECT_EQ(work.GetAddress(), nullptr) << "skip " << skip;
    }
    FAIL() << "ResizeInit never succeeded";
}

// An RGB32 picture through ResizeInit and ResizeRGB32 at level 0.
std::vector<uint32_t> ResizeRgb(const std::vector<uint32_t>& src, int sw, int sh, int dw, int dh,
                                uint32_t fill = 0) {
    std::vector<uint32_t> dst(static_cast<size_t>(dw) * dh + 1, fill);
    CNCodecBuffer work;
    EXPECT_EQ(VP::ResizeInit(260, 0, sw, sh, sw * 4, 0, dw, dh, dw * 4, 0, &work), 1);
    EXPECT_EQ(VP::ResizeRGB32(reinterpret_cast<unsigned char*>(const_cast<uint32_t*>(src.data())),
                              reinterpret_cast<unsigned char*>(dst.data()), &work),
              1);
    return dst;
}

TEST(ResizePictures, SameSizeCopiesAndOddWidthStopsAtTheRowEnd) {
    std::vector<uint32_t> src(8 * 5);
    for (size_t i = 0; i < src.size(); ++i) src[i] = 0x01020304u * static_cast<uint32_t>(i + 1);
    const std::vector<uint32_t> same = ResizeRgb(src, 8, 5, 8, 5, 0xDEADBEEF);
    for (size_t i = 0; i < src.size(); ++i) EXPECT_EQ(same[i], src[i]) << i;
    EXPECT_EQ(same.back(), 0xDEADBEEFu);
    // An odd width computes one pixel more than it stores.
    const std::vector<uint32_t> odd = ResizeRgb(src, 8, 5, 3, 1, 0xDEADBEEF);
    EXPECT_EQ(odd[3], 0xDEADBEEFu);
}

TEST(ResizePictures, ConstantPictureLosesAtMostTwoLevels) {
    for (const auto& [sw, dw] : {std::pair{64, 21}, {21, 64}, {97, 97}, {300, 7}}) {
        std::vector<uint32_t> src(static_cast<size_t>(sw) * 9, 0xFFC87D10u);
        const std::vector<uint32_t> dst = ResizeRgb(src, sw, 9, dw, 13);
        for (int i = 0; i < dw * 13; ++i) {
            for (int c = 0; c < 4; ++c) {
                const int want = (0xFFC87D10u >> (8 * c)) & 0xFF;
                const int got = (dst[i] >> (8 * c)) & 0xFF;
                EXPECT_LE(got, want);
                EXPECT_GE(got, want - 2) << sw << " -> " << dw << " pixel " << i;
            }
        }
    }
}

TEST(ResizePictures, OnePixelDestinationReadsAroundSourcePixelZero) {
    // 40 -> 1 takes 12 taps around position 0, reaching pixels 0 to 5 (the
    // sixth tap to the right has weight 0): a picture that is 100 there and
    // 250 beyond comes out as 100, less the truncation.
    std::vector<uint8_t> src(40, 250);
    std::fill_n(src.begin(), 6, 100);
    uint8_t dst[2] = {0, 0x55};
    CNCodecBuffer work;
    ASSERT_EQ(VP::ResizeInit(1, 0, 40, 1, 40, 0, 1, 1, 1, 0, &work), 1);
    ASSERT_EQ(VP::ResizeYUVMono(src.data(), dst, &work), 1);
    EXPECT_GE(dst[0], 98);
    EXPECT_LE(dst[0], 100);
    EXPECT_EQ(dst[1], 0x55);
}

// ImageMagick as the oracle: a smooth RGB picture scaled by both and compared.
// The two differ in where they put the first and last pixel (ours maps
// corner to corner, ImageMagick pixel centre to centre) and in the kernel's
// width, which on gradients of at most two levels per pixel stays within a
// few levels.
bool ImageMagickAvailable() {
    static const bool available = std::system("command -v convert >/dev/null 2>&1") == 0;
    return available;
}

std::string Scratch(const std::string& stem) {
    return ::testing::TempDir() + "ncb_resize_" + std::to_string(getpid()) + "_" + stem;
}

TEST(ResizePictures, SmoothPictureAgreesWithImageMagick) {
    if (!ImageMagickAvailable()) GTEST_SKIP() << "ImageMagick not installed";
    const int sw = 160, sh = 120;
    std::vector<uint32_t> src(sw * sh);
    std::string ppm = "P6\n" + std::to_string(sw) + " " + std::to_string(sh) + "\n255\n";
    for (int y = 0; y < sh; ++y) {
        for (int x = 0; x < sw; ++x) {
            const int r = 40 + x;
            const int g = 30 + y * 3 / 2;
            const int b = static_cast<int>(128 + 100 * std::sin(x * 0.03) * std::cos(y * 0.04));
            src[y * sw + x] = 0xFF000000u | r << 16 | g << 8 | b;
            ppm += static_cast<char>(r);
            ppm += static_cast<char>(g);
            ppm += static_cast<char>(b);
        }
    }
    const std::string in = Scratch("in.ppm");
    std::ofstream(in, std::ios::binary) << ppm;
    // The 3:1 shrink places its end pixels up to one source pixel away from
    // ImageMagick's (159/52 against 160/53 pixels per step), which on these
    // gradients is worth up to two levels; hence its wider bound.
    struct Size {
        int w, h;
        double mean;
        int worst;
    };
    for (const Size& size : {Size{240, 180, 1.0, 3}, Size{80, 60, 1.0, 3}, Size{100, 75, 1.0, 3},
                             Size{53, 40, 2.0, 6}}) {
        const int dw = size.w, dh = size.h;
        const std::string out = Scratch("out.ppm");
        const std::string cmd = "convert " + in + " -filter Quadratic -resize " +
                                std::to_string(dw) + "x" + std::to_string(dh) + "! " + out;
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
        std::ifstream f(out, std::ios::binary);
        std::string magic;
        int w, h, maxval;
        f >> magic >> w >> h >> maxval;
        f.get();
        ASSERT_EQ(w, dw);
        ASSERT_EQ(h, dh);
        std::vector<uint8_t> theirs(static_cast<size_t>(w) * h * 3);
        f.read(reinterpret_cast<char*>(theirs.data()), static_cast<std::streamsize>(theirs.size()));
        const std::vector<uint32_t> ours = ResizeRgb(src, sw, sh, dw, dh);
        double total = 0;
        int worst = 0;
        for (int i = 0; i < w * h; ++i) {
            for (int c = 0; c < 3; ++c) {
                const int d = std::abs(static_cast<int>((ours[i] >> (16 - 8 * c)) & 0xFF) -
                                       theirs[3 * i + c]);
                total += d;
                worst = std::max(worst, d);
            }
        }
        EXPECT_LT(total / (w * h * 3), size.mean) << dw << "x" << dh;
        EXPECT_LE(worst, size.worst) << dw << "x" << dh;
        std::remove(out.c_str());
    }
    std::remove(in.c_str());
}

}  // namespace

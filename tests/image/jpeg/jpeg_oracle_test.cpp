// Files made by cjpeg at test time, decoded by us and by TurboJPEG to planar
// YUV: every quality, sampling, odd size, restart interval and progressive
// variant must agree within the difference of the two integer transforms
// (at most 2 levels, at least 45 dB). Progressive, restart and table-less
// variants of one picture must give exactly the baseline pixels.
#include "tests/image/jpeg/jpeg_oracle.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ostream>
#include <string>

namespace ncbtest::jpeg {
namespace {

struct Case {
    const char* name;
    int width, height;
    const char* args;
    bool grey = false;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class JpegAgainstTurbo : public ::testing::TestWithParam<Case> {};

TEST_P(JpegAgainstTurbo, MatchesWithinTransformDifference) {
    const Case& c = GetParam();
    const Bytes jpeg = RunCjpeg(c.args, MakePicture(c.width, c.height, c.grey, c.width));
    ASSERT_FALSE(jpeg.empty()) << "cjpeg " << c.args;
    Planes turbo;
    ASSERT_TRUE(DecodeTurbo(jpeg, &turbo));
    const OursResult ours = DecodeOurs(jpeg);
    ASSERT_EQ(ours.ok, 1);
    // Baseline stops at the EOI marker, progressive just after it.
    const bool progressive = std::string(c.args).find("-progressive") != std::string::npos;
    EXPECT_EQ(ours.userData + (progressive ? 0 : 2), static_cast<int>(jpeg.size()));
    const Difference d = Compare(ours.planes, turbo);
    std::printf("[ jpeg     ] %-28s %5dx%-5d max diff %d, PSNR %.1f dB\n", c.name, c.width,
                c.height, d.maxDiff, d.psnr);
    EXPECT_LE(d.maxDiff, 2);
    EXPECT_GE(d.psnr, 45.0);
}

const Case kCases[] = {
    {"q10_baseline", 96, 64, "-quality 10 -baseline"},
    {"q25_baseline", 96, 64, "-quality 25 -baseline"},
    {"q50", 96, 64, "-quality 50"},
    {"q75", 96, 64, "-quality 75"},
    {"q90", 96, 64, "-quality 90"},
    {"q100", 96, 64, "-quality 100"},
    {"s444_333x517", 333, 517, "-quality 80 -sample 1x1"},
    {"s422_333x517", 333, 517, "-quality 80 -sample 2x1"},
    {"s1x2_333x517", 333, 517, "-quality 80 -sample 1x2"},
    {"s420_333x517", 333, 517, "-quality 80 -sample 2x2"},
    {"grey_333x517", 333, 517, "-quality 80 -grayscale", true},
    {"s420_1x1", 1, 1, "-quality 75"},
    {"s1x2_1x1", 1, 1, "-quality 75 -sample 1x2"},
    {"s422_17x9", 17, 9, "-quality 75 -sample 2x1"},
    {"s1x2_17x9", 17, 9, "-quality 75 -sample 1x2"},
    {"s444_2049x7", 2049, 7, "-quality 75 -sample 1x1"},
    {"s420_2049x7", 2049, 7, "-quality 75"},
    {"grey_7x2049", 7, 2049, "-quality 75 -grayscale", true},
    {"restart1_420", 70, 46, "-quality 75 -restart 1"},
    {"restart7B_422", 70, 46, "-quality 75 -sample 2x1 -restart 7B"},
    {"prog_420", 101, 67, "-quality 75 -progressive"},
    {"prog_1x2", 101, 67, "-quality 75 -sample 1x2 -progressive"},
    {"prog_444_restart", 101, 67, "-quality 95 -sample 1x1 -progressive -restart 3B"},
    {"prog_grey", 101, 67, "-quality 60 -grayscale -progressive", true},
    {"optimised", 101, 67, "-quality 75 -optimize"},
};

INSTANTIATE_TEST_SUITE_P(Cjpeg, JpegAgainstTurbo, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Variants of one picture that must give identical pixels.
struct Variant {
    const char* name;
    const char* base;
    const char* variant;
    bool stripTables = false;
};

void PrintTo(const Variant& v, std::ostream* os) { *os << v.name; }

class JpegVariants : public ::testing::TestWithParam<Variant> {};

TEST_P(JpegVariants, GiveTheSamePixels) {
    const Variant& v = GetParam();
    const Bytes picture = MakePicture(75, 43, false, 7);
    const OursResult a = DecodeOurs(RunCjpeg(v.base, picture));
    Bytes other = RunCjpeg(v.variant, picture);
    if (v.stripTables) other = StripDht(other);
    const OursResult b = DecodeOurs(other);
    ASSERT_EQ(a.ok, 1);
    ASSERT_EQ(b.ok, 1);
    EXPECT_EQ(a.planes.y, b.planes.y);
    EXPECT_EQ(a.planes.u, b.planes.u);
    EXPECT_EQ(a.planes.v, b.planes.v);
}

const Variant kVariants[] = {
    {"progressive_420", "-quality 80", "-quality 80 -progressive"},
    {"progressive_422", "-quality 80 -sample 2x1", "-quality 80 -sample 2x1 -progressive"},
    {"progressive_1x2", "-quality 80 -sample 1x2", "-quality 80 -sample 1x2 -progressive"},
    {"progressive_444", "-quality 80 -sample 1x1", "-quality 80 -sample 1x1 -progressive"},
    {"restart_every_mcu", "-quality 80", "-quality 80 -restart 1B"},
    {"restart_every_row_1x2", "-quality 80 -sample 1x2", "-quality 80 -sample 1x2 -restart 1"},
    {"no_dht_standard_tables", "-quality 80", "-quality 80", true},
    {"no_dht_444", "-quality 80 -sample 1x1", "-quality 80 -sample 1x1", true},
};

INSTANTIATE_TEST_SUITE_P(Cjpeg, JpegVariants, ::testing::ValuesIn(kVariants),
                         [](const auto& info) { return std::string(info.param.name); });

// cjpeg writes 16-bit quantisation tables and SOF1 below quality 24 unless
// told -baseline; both are refused.
TEST(JpegRefusals, ExtendedSequentialLowQuality) {
    const Bytes jpeg = RunCjpeg("-quality 10", MakePicture(32, 32, false, 3));
    ASSERT_FALSE(jpeg.empty());
    EXPECT_EQ(DecodeOurs(jpeg).ok, 0);
}

// A left-to-right ramp must stay a left-to-right ramp: a transposed block
// order would turn it into a top-to-bottom one.
TEST(JpegOrientation, HorizontalRampStaysHorizontal) {
    const int w = 64, h = 32;
    std::string header = "P5\n64 32\n255\n";
    Bytes picture(header.begin(), header.end());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) picture.push_back(static_cast<uint8_t>(x * 4));
    const OursResult r = DecodeOurs(RunCjpeg("-quality 95 -grayscale", picture));
    ASSERT_EQ(r.ok, 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            ASSERT_NEAR(r.planes.y[static_cast<size_t>(y) * w + x], x * 4, 6)
                << "at " << x << "," << y;
}

}  // namespace
}  // namespace ncbtest::jpeg

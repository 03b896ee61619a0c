// The PNG row kernels at every processor level against their scalar twins:
// random rows of every filter (including unknown filter bytes) and pixel
// size, rows chained so each row's "above" is the previous result, and the
// 8-bit RGB / RGBA to RGB32 rows, all through the kernel checker's guarded,
// misaligned buffers.
#include "image/png/png_kernels.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/kernel_checker.h"

namespace ncbtest {
namespace {

using ncb::png::PngKernels;

struct UnfilterCase {
    int unit = 1;
    int bytes = 0;
    std::vector<int> filters;
    Plane above;  // the row over row 0 (zeros in the decoder, anything here)
    Plane rows;

    std::vector<const Plane*> Planes() const { return {&above, &rows}; }
    std::string Describe() const {
        std::string text =
            "unit " + std::to_string(unit) + ", " + std::to_string(bytes) + " bytes, filters";
        for (int f : filters) text += " " + std::to_string(f);
        return text;
    }
    void Run(ncb::png::UnfilterRowFn unfilter) {
        for (int y = 0; y < rows.Height(); ++y)
            unfilter(filters[y], rows.Row(y), y ? rows.Row(y - 1) : above.Row(0), bytes, unit);
    }
};

UnfilterCase MakeUnfilterCase(CaseRandom& random) {
    static const int kUnits[] = {1, 2, 3, 4, 6, 8};
    UnfilterCase c;
    c.unit = kUnits[random.Uniform(0, 5)];
    c.bytes = random.Size(1, 120) * c.unit;
    if (random.Chance(10)) c.bytes = random.Size(1, 300);  // not whole pixels
    const int height = random.Uniform(1, 5);
    for (int y = 0; y < height; ++y)
        c.filters.push_back(random.Chance(90) ? random.Uniform(0, 4) : random.Uniform(5, 255));
    c.above = random.MakePlane(c.bytes, 1, 1, {.label = "above", .allowBottomUp = false});
    c.rows = random.MakePlane(c.bytes, height, 1, {.label = "rows"});
    return c;
}

TEST(PngKernels, UnfilterMatchesTheScalarTwin) {
    CheckAllLevels(
        KernelFamily<UnfilterCase>{
            .name = "png unfilter",
            .make = MakeUnfilterCase,
            .twin = [](UnfilterCase& c) { c.Run(ncb::png::UnfilterRow_c); },
            .atLevel = [](UnfilterCase& c,
                          int level) { c.Run(ncb::png::PngKernelsForLevel(level).unfilterRow); },
        },
        {.cases = 2000});
}

struct SamplesCase {
    int channels = 3;
    Plane src, dst;
    std::vector<const Plane*> Planes() const { return {&src, &dst}; }
    void Run(ncb::png::SamplesToBgraFn convert) {
        for (int y = 0; y < src.Height(); ++y) convert(src.Row(y), dst.Row(y), src.Width());
    }
};

KernelFamily<SamplesCase> SamplesFamily(int channels) {
    auto pick = [channels](const PngKernels& k) {
        return channels == 3 ? k.rgbToBgra : k.rgbaToBgra;
    };
    return {
        .name = channels == 3 ? "png rgb to bgra" : "png rgba to bgra",
        .make =
            [channels](CaseRandom& random) {
                SamplesCase c;
                c.channels = channels;
                const int width = random.Size(1, 200), height = random.Uniform(1, 3);
                c.src = random.MakePlane(width, height, channels, {.label = "src"});
                c.dst = random.MakePlane(width, height, 4, {.label = "dst"});
                return c;
            },
        .twin = [pick](SamplesCase& c) { c.Run(pick(ncb::png::ScalarPngKernels())); },
        .atLevel = [pick](SamplesCase& c,
                          int level) { c.Run(pick(ncb::png::PngKernelsForLevel(level))); },
    };
}

class PngSampleKernels : public ::testing::TestWithParam<int> {};

TEST_P(PngSampleKernels, MatchTheScalarTwin) {
    CheckAllLevels(SamplesFamily(GetParam()), {.cases = 500});
}

INSTANTIATE_TEST_SUITE_P(Channels, PngSampleKernels, ::testing::Values(3, 4),
                         [](const auto& info) { return info.param == 3 ? "Rgb" : "Rgba"; });

// The twins themselves, on values worked out by hand.
TEST(PngKernels, ScalarPaethPicksByDistance) {
    // unit 1; above = 10 20 30, row raw = 1 1 1 with Paeth.
    // x0: a=0 b=10 c=0 -> b (10) + 1 = 11
    // x1: a=11 b=20 c=10: p=21, pa=10 pb=1 pc=11 -> b (20) + 1 = 21
    // x2: a=21 b=30 c=20: p=31, pa=10 pb=1 pc=11 -> b (30) + 1 = 31
    uint8_t above[3] = {10, 20, 30}, row[3] = {1, 1, 1};
    ncb::png::UnfilterRow_c(4, row, above, 3, 1);
    EXPECT_EQ(row[0], 11);
    EXPECT_EQ(row[1], 21);
    EXPECT_EQ(row[2], 31);
    // A tie between b and c goes to b: a=5 b=2 c=4, p=3, pa=2 pb=1 pc=1.
    uint8_t above2[2] = {4, 2}, row2[2] = {1, 0};
    ncb::png::UnfilterRow_c(4, row2, above2, 2, 1);
    EXPECT_EQ(row2[0], 5);
    EXPECT_EQ(row2[1], 2);
}

TEST(PngKernels, ScalarAverageFloors) {
    uint8_t above[2] = {3, 255}, row[2] = {0, 0};
    ncb::png::UnfilterRow_c(3, row, above, 2, 1);
    EXPECT_EQ(row[0], 1);    // floor(3 / 2)
    EXPECT_EQ(row[1], 128);  // floor((1 + 255) / 2)
}

}  // namespace
}  // namespace ncbtest

// Copies, quarter turns and de-interlacing on small pictures whose results
// are known by hand, at every processor level: the documented examples,
// refusals and return values, and in-place de-interlacing.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "ncodecbase/video_processor.h"
#include "tests/video/video_frame.h"

namespace {

using ncbtest::TestFrame;

class CopyRotate : public ::testing::TestWithParam<int> {};

TEST_P(CopyRotate, QuarterTurnsOfATwoPixelRow) {
    const int level = GetParam();
    TestFrame in(VIDEO_FORMAT_RGB32, 2, 1);
    in.SetRgb32(0, 0, 0xAAAAAAAA);
    in.SetRgb32(1, 0, 0xBBBBBBBB);
    TestFrame tall(VIDEO_FORMAT_RGB32, 1, 2), wide(VIDEO_FORMAT_RGB32, 2, 1);
    EXPECT_EQ(CNVideoProcessor::RotateRGB(in.Buffer(), tall.Buffer(), in.Format(), tall.Format(), 0,
                                          0, level),
              1);
    EXPECT_EQ(tall.Rgb32(0, 0), 0xAAAAAAAAu);
    EXPECT_EQ(tall.Rgb32(0, 1), 0xBBBBBBBBu);
    CNVideoProcessor::RotateRGB(in.Buffer(), tall.Buffer(), in.Format(), tall.Format(), 2, 0,
                                level);
    EXPECT_EQ(tall.Rgb32(0, 0), 0xBBBBBBBBu);
    EXPECT_EQ(tall.Rgb32(0, 1), 0xAAAAAAAAu);
    CNVideoProcessor::RotateRGB(in.Buffer(), wide.Buffer(), in.Format(), wide.Format(), 1, 0,
                                level);
    EXPECT_EQ(wide.Rgb32(0, 0), 0xBBBBBBBBu);
    EXPECT_EQ(wide.Rgb32(1, 0), 0xAAAAAAAAu);
}

TEST_P(CopyRotate, BadRotationReturnsZero) {
    TestFrame in(VIDEO_FORMAT_RGB32, 2, 2), out(VIDEO_FORMAT_RGB32, 2, 2);
    TestFrame yuv(VIDEO_FORMAT_YUV420, 2, 2), yuvOut(VIDEO_FORMAT_YUV420, 2, 2);
    for (int rotation : {3, -1, 4}) {
        EXPECT_EQ(CNVideoProcessor::RotateRGB(in.Buffer(), out.Buffer(), in.Format(), out.Format(),
                                              rotation, 0, GetParam()),
                  0);
        EXPECT_EQ(CNVideoProcessor::RotateYUV(yuv.Buffer(), yuvOut.Buffer(), yuv.Format(),
                                              yuvOut.Format(), rotation, 0, GetParam()),
                  0);
    }
    // An unsupported code is not an error.
    TestFrame y422(VIDEO_FORMAT_YUV422, 2, 2);
    EXPECT_EQ(CNVideoProcessor::RotateYUV(y422.Buffer(), y422.Buffer(), y422.Format(),
                                          y422.Format(), 0, 0, GetParam()),
              1);
}

// A 3 x 2 4:2:0-style Y plane turned clockwise: column 0 read upward
// becomes row 0.
TEST_P(CopyRotate, ClockwiseTurnOfAPlane) {
    TestFrame in(VIDEO_FORMAT_Y800, 3, 2), out(VIDEO_FORMAT_Y800, 2, 3);
    const uint8_t values[2][3] = {{1, 2, 3}, {4, 5, 6}};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) in.Y(x, y) = values[y][x];
    CNVideoProcessor::RotateYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), 0, 0,
                                GetParam());
    const uint8_t expect[3][2] = {{4, 1}, {5, 2}, {6, 3}};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 2; ++x) EXPECT_EQ(out.Y(x, y), expect[y][x]) << x << "," << y;
}

TEST_P(CopyRotate, DeinterlaceKeepsConsistentRows) {
    // Odd rows that are the average of their neighbours stay as they are.
    TestFrame in(VIDEO_FORMAT_Y800, 40, 5), out(VIDEO_FORMAT_Y800, 40, 5);
    for (int y = 0; y < 5; y += 2)
        for (int x = 0; x < 40; ++x) in.Y(x, y) = static_cast<uint8_t>(x * 3 + y * 20);
    for (int y = 1; y < 5; y += 2)
        for (int x = 0; x < 40; ++x)
            in.Y(x, y) = static_cast<uint8_t>((in.Y(x, y - 1) + in.Y(x, y + 1)) / 2);
    CNVideoProcessor::DeInterlacedYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), 0,
                                      GetParam());
    EXPECT_EQ(out.bytes, in.bytes);
}

TEST_P(CopyRotate, DeinterlaceReplacesCombing) {
    TestFrame in(VIDEO_FORMAT_Y800, 32, 3), out(VIDEO_FORMAT_Y800, 32, 3);
    // Flat rows 10 above and 20 below, a combing row of 200: (10 + 20 + 1) >> 1.
    for (int x = 0; x < 32; ++x) {
        in.Y(x, 0) = 10;
        in.Y(x, 1) = 200;
        in.Y(x, 2) = 20;
    }
    CNVideoProcessor::DeInterlacedYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), 0,
                                      GetParam());
    for (int x = 0; x < 32; ++x) EXPECT_EQ(out.Y(x, 1), 15) << x;
}

TEST_P(CopyRotate, DeinterlaceFollowsADiagonalEdge) {
    // Above: 0 up to column 20, 200 from there; below: the same edge two
    // columns later. At column 21 the vertical pair (0, 200) would keep a
    // source 100, but the diagonal pair (below[22], above[20]) = (200, 200)
    // matches exactly and replaces it. Columns 0-7 use the vertical pair.
    TestFrame in(VIDEO_FORMAT_Y800, 32, 3), out(VIDEO_FORMAT_Y800, 32, 3);
    for (int x = 0; x < 32; ++x) {
        in.Y(x, 0) = x >= 20 ? 200 : 0;
        in.Y(x, 2) = x >= 22 ? 200 : 0;
        in.Y(x, 1) = 100;
    }
    CNVideoProcessor::DeInterlacedYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), 0,
                                      GetParam());
    EXPECT_EQ(out.Y(21, 1), 200);
    EXPECT_EQ(out.Y(5, 1), 0);  // vertical pair (0, 0), 100 outside it
}

TEST_P(CopyRotate, DeinterlaceInPlaceEqualsCopy) {
    TestFrame in(VIDEO_FORMAT_YUV420, 50, 9), out(VIDEO_FORMAT_YUV420, 50, 9);
    uint32_t seed = 99;
    for (uint8_t& b : in.bytes)
        b = static_cast<uint8_t>((seed = seed * 1103515245u + 12345u) >> 24);
    CNVideoProcessor::DeInterlacedYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(), 0,
                                      GetParam());
    CNVideoProcessor::DeInterlacedYUV(in.Buffer(), in.Buffer(), in.Format(), in.Format(), 0,
                                      GetParam());
    EXPECT_TRUE(std::equal(out.bytes.begin(), out.bytes.end() - 64, in.bytes.begin()));
}

TEST_P(CopyRotate, CopyIntoBottomUpReversesRows) {
    TestFrame in(VIDEO_FORMAT_RGB32, 2, 3), out(VIDEO_FORMAT_RGB32, 2, 3, FORMAT_FLAG_SWAPPED);
    for (int y = 0; y < 3; ++y) in.SetRgb32(0, y, 0x01010101u * (y + 1));
    EXPECT_EQ(CNVideoProcessor::DirectCopyRGB(in.Buffer(), out.Buffer(), in.Format(), out.Format(),
                                              0, 0, GetParam()),
              1);
    // Memory row 0 of the bottom-up picture is its last row.
    EXPECT_EQ(out.bytes[0], 3);
    EXPECT_EQ(out.bytes[2 * 4 * 2], 1);
}

TEST_P(CopyRotate, CopyRefusesOtherLayouts) {
    TestFrame in(VIDEO_FORMAT_I420, 4, 4), out(VIDEO_FORMAT_I420, 4, 4);
    in.Fill(0, 9);
    EXPECT_EQ(CNVideoProcessor::DirectCopyYUV(in.Buffer(), out.Buffer(), in.Format(), out.Format(),
                                              0, 0, GetParam()),
              1);
    EXPECT_EQ(out.Y(0, 0), 0);
}

TEST_P(CopyRotate, CopyDataBetweenPitches) {
    std::vector<uint8_t> src(5 * 40), dst(5 * 50, 0xEE);
    std::iota(src.begin(), src.end(), 0);
    CNVideoProcessor::DirectCopyData(src.data(), dst.data(), 33, 5, 40, 50, GetParam());
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 50; ++x)
            EXPECT_EQ(dst[y * 50 + x], x < 33 ? src[y * 40 + x] : 0xEE) << x << "," << y;
    }
    // Negative pitches walk upward.
    std::vector<uint8_t> up(5 * 33);
    CNVideoProcessor::DirectCopyData(src.data() + 4 * 40, up.data(), 33, 5, -40, 33, GetParam());
    EXPECT_EQ(up[0], src[4 * 40]);
    EXPECT_EQ(up[4 * 33], src[0]);
}

INSTANTIATE_TEST_SUITE_P(Levels, CopyRotate, ::testing::Values(0, 1, 2));

TEST(CopyRotate, OtherLevelsDoNothing) {
    std::vector<uint8_t> src(64, 1), dst(64, 0);
    CNVideoProcessor::DirectCopyData(src.data(), dst.data(), 64, 1, 64, 64, 3);
    EXPECT_EQ(dst[0], 0);
    TestFrame in(VIDEO_FORMAT_RGB32, 2, 2), out(VIDEO_FORMAT_RGB32, 2, 2);
    in.SetRgb32(0, 0, 5);
    EXPECT_EQ(
        CNVideoProcessor::RotateRGB(in.Buffer(), out.Buffer(), in.Format(), out.Format(), 1, 0, 3),
        1);
    EXPECT_EQ(CNVideoProcessor::DirectCopyRGB(in.Buffer(), out.Buffer(), in.Format(), out.Format(),
                                              0, 0, -1),
              1);
    EXPECT_EQ(out.Rgb32(1, 1), 0u);
}

}  // namespace

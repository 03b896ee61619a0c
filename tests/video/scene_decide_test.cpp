// The scene detector's set-up and decisions on numbers worked out by hand:
// search ranges and block sizes per picture size, block and band placement,
// the disabled detector, the small-object test, the non-context rules with
// each optional stage, and context mode's thresholds, histories and the
// withdrawal of a cut right after a cut. The stages are stand-ins that
// return fixed measures and count how often they were asked.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "video/scene/scene_detector.h"

namespace {

namespace sd = ncb::video::scene;

struct FakeStages final : sd::SceneStages {
    double dissolve = 0;
    int weighted = 0;
    double h = 0, g = 0;
    bool histogramFails = false;
    int dissolveCalls = 0, weightedCalls = 0, histogramCalls = 0, invalidations = 0;

    double Dissolve() override {
        ++dissolveCalls;
        return dissolve;
    }
    int Weighted() override {
        ++weightedCalls;
        return weighted;
    }
    bool Histogram(double* hh, double* gg) override {
        ++histogramCalls;
        *hh = h;
        *gg = g;
        return !histogramFails;
    }
    void InvalidateHistogram() override { ++invalidations; }
};

sd::BlockMeasures Even(double v) {
    sd::BlockMeasures b;
    std::fill(b.v, b.v + sd::kBlocks, v);
    b.mean = v;
    return b;
}

// Five blocks carry `share` of the total, the other fifteen the rest, mean m.
sd::BlockMeasures Concentrated(double m, double share) {
    sd::BlockMeasures b;
    const double total = 20 * m;
    for (int i = 0; i < sd::kBlocks; ++i)
        b.v[i] = i < 5 ? total * share / 5 : total * (1 - share) / 15;
    b.mean = m;
    return b;
}

int NoContext(uint32_t options, const sd::BlockMeasures& b, FakeStages& s) {
    int result = -1;
    EXPECT_TRUE(sd::DecideWithoutContext(options, b, s, &result));
    return result;
}

TEST(SceneSetup, SearchRangesFollowThePictureSize) {
    struct Row {
        int w, h, rangeH, rangeV;
    };
    const Row rows[] = {{1920, 1080, 16, 16}, {640, 480, 6, 8},    {320, 240, 4, 4},
                        {539, 359, 4, 4},     {540, 360, 6, 6},    {720, 480, 8, 8},
                        {1080, 720, 12, 12},  {1440, 960, 16, 16}, {1439, 959, 12, 12}};
    for (const Row& r : rows) {
        int h = 0, v = 0;
        sd::SearchRanges(r.w, r.h, &h, &v);
        EXPECT_EQ(h, r.rangeH) << r.w << "x" << r.h;
        EXPECT_EQ(v, r.rangeV) << r.w << "x" << r.h;
    }
}

sd::SceneGeometry Geometry(int code, int w, int h, uint32_t options = 0,
                           void (*edit)(ncb::VideoFormatInfo*) = nullptr, bool* enabled = nullptr) {
    ncb::VideoFormatInfo f;
    ncb::InitVideoFormat(&f, code, w, h);
    if (edit) edit(&f);
    sd::SceneGeometry g;
    const bool ok = sd::BuildGeometry(f, &options, &g);
    if (enabled) *enabled = ok;
    return g;
}

// Every block, at every displacement the pattern can reach, stays inside
// the rectangle; and the blocks spread over it as a 5 x 4 (landscape) or
// 4 x 5 (portrait) grid.
TEST(SceneSetup, BlocksLieOnAGridInsideTheRectangle) {
    struct Row {
        int w, h, block, columns;
    };
    for (const Row& r : {Row{1920, 1080, 16, 5}, Row{640, 480, 16, 5}, Row{96, 96, 8, 5},
                         Row{64, 64, 8, 5}, Row{480, 640, 16, 4}, Row{64, 200, 16, 4}}) {
        const sd::SceneGeometry g = Geometry(VIDEO_FORMAT_YUV420, r.w, r.h);
        EXPECT_EQ(g.blockSize, r.block) << r.w << "x" << r.h;
        std::vector<int> xs(g.blockX, g.blockX + sd::kBlocks), ys(g.blockY, g.blockY + sd::kBlocks);
        std::sort(xs.begin(), xs.end());
        xs.erase(std::unique(xs.begin(), xs.end()), xs.end());
        EXPECT_EQ(static_cast<int>(xs.size()), r.columns) << r.w << "x" << r.h;
        const int reachX = g.fullSearch ? 5 * g.rangeH + 2 * std::max(g.rangeH, g.rangeV) : 4;
        const int reachY = g.fullSearch ? 3 * g.rangeV + 2 * std::max(g.rangeH, g.rangeV) : 4;
        for (int i = 0; i < sd::kBlocks; ++i) {
            EXPECT_EQ(g.blockY[i] % 2, 0);
            EXPECT_GE(g.blockX[i] - reachX, 0) << i;
            EXPECT_LE(g.blockX[i] + reachX + g.blockSize, r.w) << i;
            EXPECT_GE(g.blockY[i] - reachY, -1) << i;
            EXPECT_LE(g.blockY[i] + 1 + reachY + g.blockSize, r.h) << i;
        }
    }
}

TEST(SceneSetup, AlignedBlocksStartOn16ByteBoundariesOfTheRow) {
    uint32_t options = sd::kOptionAlignBlocks;
    ncb::VideoFormatInfo f;
    ncb::InitVideoFormat(&f, VIDEO_FORMAT_Y800, 640, 480);
    f.nPadLeft = 5;
    f.nPadRight = 11;  // pitch 656
    f.nRectLeft = 3;
    sd::SceneGeometry g;
    ASSERT_TRUE(sd::BuildGeometry(f, &options, &g));
    EXPECT_EQ(options & sd::kOptionAlignBlocks, sd::kOptionAlignBlocks);
    for (int i = 0; i < sd::kBlocks; ++i) {
        EXPECT_EQ((f.nPadLeft + f.nRectLeft + g.blockX[i]) % 16, 0) << i;
        EXPECT_LE(g.blockX[i] + g.blockSize + 5 * g.rangeH, g.width) << i;
    }
    // An odd pitch, or a rectangle below 97 pixels, drops the option.
    f.nPadRight = 12;
    EXPECT_TRUE(sd::BuildGeometry(f, &options, &g));
    EXPECT_EQ(options & sd::kOptionAlignBlocks, 0u);
    options = sd::kOptionAlignBlocks;
    ncb::InitVideoFormat(&f, VIDEO_FORMAT_Y800, 96, 400);
    EXPECT_TRUE(sd::BuildGeometry(f, &options, &g));
    EXPECT_EQ(options & sd::kOptionAlignBlocks, 0u);
}

TEST(SceneSetup, BandsAndHistogramWindow) {
    const sd::SceneGeometry g = Geometry(VIDEO_FORMAT_YUV420, 1920, 1080);
    EXPECT_EQ(g.bandRow[0], 266);  // 270 - 4
    EXPECT_EQ(g.bandRow[1], 536);
    EXPECT_EQ(g.bandRow[2], 806);
    EXPECT_EQ(g.histLeft, 120);  // 1920 / 16
    EXPECT_EQ(g.histTop, 272);   // 270 rounded up to 4
    EXPECT_EQ(g.histWidth, 1680);
    EXPECT_EQ(g.histHeight, 536);
    const sd::SceneGeometry odd = Geometry(VIDEO_FORMAT_Y800, 100, 70);
    EXPECT_EQ(odd.bandRow[0], 12);  // 17 - 4 = 13, down to even
    EXPECT_EQ(odd.histLeft, 8);     // 6 up to 8
    EXPECT_EQ(odd.histTop, 20);     // 17 up to 20
}

TEST(SceneSetup, SmallOrLumaLessRectanglesDisableTheDetector) {
    bool enabled = true;
    Geometry(VIDEO_FORMAT_YUV420, 60, 200, 0, nullptr, &enabled);
    EXPECT_FALSE(enabled);
    Geometry(VIDEO_FORMAT_YUV420, 200, 63, 0, nullptr, &enabled);
    EXPECT_FALSE(enabled);
    Geometry(VIDEO_FORMAT_YUY2, 320, 240, 0, nullptr, &enabled);
    EXPECT_FALSE(enabled);
    Geometry(VIDEO_FORMAT_RGB32, 320, 240, 0, nullptr, &enabled);
    EXPECT_FALSE(enabled);
    // The rectangle counts, not the picture.
    Geometry(
        VIDEO_FORMAT_Y800, 320, 240, 0, [](ncb::VideoFormatInfo* f) { f->nRectRight = 63; },
        &enabled);
    EXPECT_FALSE(enabled);
    Geometry(VIDEO_FORMAT_NV12, 64, 64, 0, nullptr, &enabled);
    EXPECT_TRUE(enabled);
}

TEST(SceneDecide, SmallObjectTestByHand) {
    // 90 % in five blocks: T5 / S = 0.9 > 0.84.
    EXPECT_TRUE(sd::DetectMovingSmallObject(Concentrated(40, 0.9).v, 40, 0.84));
    // 80 %: not by share; R = 8 x 20 / 15 = 10.67, not below 7.2.
    EXPECT_FALSE(sd::DetectMovingSmallObject(Concentrated(40, 0.8).v, 40, 0.84));
    // ...but above 0.76, the high-motion threshold.
    EXPECT_TRUE(sd::DetectMovingSmallObject(Concentrated(40, 0.8).v, 40, 0.76));
    // Evenly spread values of 7 (R = 7): below 7.2 for m > 19, and the
    // same values with m <= 19 meet the 5.9 rule instead.
    EXPECT_TRUE(sd::DetectMovingSmallObject(Even(7).v, 20, 0.84));
    EXPECT_FALSE(sd::DetectMovingSmallObject(Even(7).v, 19, 0.84));
    EXPECT_TRUE(sd::DetectMovingSmallObject(Even(5.8).v, 19, 0.84));
    // All zero: S is taken as 0.001, R = 0.
    EXPECT_TRUE(sd::DetectMovingSmallObject(Even(0).v, 0, 0.84));
}

TEST(SceneDecide, WithoutContextTheMeanDecides) {
    FakeStages s;
    EXPECT_EQ(NoContext(0, Even(0), s), 0);
    EXPECT_EQ(NoContext(0, Even(35.0), s), 0);
    EXPECT_EQ(NoContext(0, Even(40), s), 89);              // 75 + trunc(1000 / 70.2)
    EXPECT_EQ(NoContext(0, Concentrated(40, 0.9), s), 0);  // small moving object
    EXPECT_EQ(NoContext(0, Even(35.1), s), 87);            // 75 + trunc(12.5)
    EXPECT_EQ(NoContext(0, Even(200), s), 100);            // 75 + 71, limited
    EXPECT_EQ(s.dissolveCalls + s.weightedCalls + s.histogramCalls, 0);
}

TEST(SceneDecide, WithoutContextDissolveMakesCutsOnlyWithoutCandidate) {
    FakeStages s;
    s.dissolve = 41.5;
    EXPECT_EQ(NoContext(sd::kOptionDissolve, Even(1), s), 75);
    EXPECT_EQ(s.dissolveCalls, 1);
    s.dissolve = 41.4;
    EXPECT_EQ(NoContext(sd::kOptionDissolve, Even(1), s), 0);
    // Below 0.6 the test is not asked; nor with a candidate or a small object.
    EXPECT_EQ(NoContext(sd::kOptionDissolve, Even(0.5), s), 0);
    EXPECT_EQ(NoContext(sd::kOptionDissolve, Even(40), s), 89);
    EXPECT_EQ(NoContext(sd::kOptionDissolve, Concentrated(40, 0.9), s), 0);
    EXPECT_EQ(s.dissolveCalls, 2);
}

TEST(SceneDecide, WithoutContextWeightedPredictionWithdrawsCuts) {
    FakeStages s;
    s.weighted = 1;
    EXPECT_EQ(NoContext(sd::kOptionWeighted, Even(40), s), 0);
    s.weighted = 0;
    EXPECT_EQ(NoContext(sd::kOptionWeighted, Even(40), s), 89);
    EXPECT_EQ(NoContext(sd::kOptionWeighted, Even(20), s), 0);  // no cut: not asked
    EXPECT_EQ(s.weightedCalls, 2);
}

TEST(SceneDecide, WithoutContextHistogramMakesAndRemovesCuts) {
    const uint32_t hist = sd::kOptionHistogram;
    FakeStages s;
    // Makes a cut below the mean threshold: large h with large g, or
    // moderate h with m >= 16.7.
    s.h = 0.64, s.g = 25.5;
    EXPECT_EQ(NoContext(hist, Even(12), s), 79);  // 75 + trunc(300 / 70.2)
    s.h = 0.32, s.g = 3;
    EXPECT_EQ(NoContext(hist, Even(16.7), s), 80);
    EXPECT_EQ(NoContext(hist, Even(16.6), s), 0);
    // Not asked below m = 10 without a cut.
    EXPECT_EQ(NoContext(hist, Even(9.9), s), 0);
    EXPECT_EQ(s.histogramCalls, 3);
    // Removes a cut when h or g is small; otherwise the cut stands.
    s.h = 0.18, s.g = 30;
    EXPECT_EQ(NoContext(hist, Even(40), s), 0);
    s.h = 0.3, s.g = 2.5;
    EXPECT_EQ(NoContext(hist, Even(40), s), 0);
    s.h = 0.2, s.g = 2.6;
    EXPECT_EQ(NoContext(hist, Even(40), s), 89);
    // A failing histogram fails the decision.
    s.histogramFails = true;
    int result = -1;
    EXPECT_FALSE(sd::DecideWithoutContext(hist, Even(40), s, &result));
}

TEST(SceneDecide, StrongDissolveCutSkipsAndInvalidatesTheHistogram) {
    FakeStages s;
    s.dissolve = 60;
    s.h = 0.0;  // would remove the cut if asked
    EXPECT_EQ(NoContext(sd::kOptionDissolve | sd::kOptionHistogram, Even(12), s), 79);
    EXPECT_EQ(s.histogramCalls, 0);
    EXPECT_EQ(s.invalidations, 1);
    s.dissolve = 59;
    EXPECT_EQ(NoContext(sd::kOptionDissolve | sd::kOptionHistogram, Even(12), s), 0);
    EXPECT_EQ(s.histogramCalls, 1);
}

// Context mode driven frame by frame.
struct ContextRun {
    sd::ContextState c;
    int64_t frame = 1;  // the first frame only primes
    uint32_t options = sd::kOptionContext;
    FakeStages stages;

    int Next(const sd::BlockMeasures& b) {
        ++frame;
        sd::UpdateMotionMode(&c);
        int result = -1;
        EXPECT_TRUE(sd::DecideWithContext(options, frame, &c, b, stages, &result));
        return result;
    }
};

TEST(SceneDecide, ContextCutsAgainstTheQuietAverage) {
    ContextRun run;
    // Empty quiet history: cm = 1024, so nothing is a cut yet.
    EXPECT_EQ(run.Next(Even(40)), 0);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(run.Next(Even(2)), 0);
    // Quiet history 2, 2, 2, 2 (40 is above 27.5 and stayed out): cm = 2.
    // m = 13 >= 12.9 and 13 / 2 = 6.5 >= 5.3992 - 0.124 x 13 = 3.787: a
    // cut, 75 + trunc(0.5 x 6.5) = 78.
    EXPECT_EQ(run.Next(Even(13)), 78);
    EXPECT_TRUE(run.c.haveCut);
    EXPECT_EQ(run.c.lastCutFrame, 7);
    EXPECT_DOUBLE_EQ(run.c.upper, 14.9);  // cm + lower
    // Quiet history now 13, 2, 2, 2: cm = 4.75. The next frame would be a
    // cut too (30 / 4.75 = 6.3 >= 2.2), but it comes right after one.
    EXPECT_EQ(run.Next(Even(30)), 0);
    // Two frames after: a cut, and its interval (2) is recorded.
    EXPECT_EQ(run.Next(Even(30)), 78);
    EXPECT_EQ(run.c.intervalCount, 1);
    EXPECT_EQ(run.c.intervals[0], 2);
    // Right after that cut again: withdrawn; the upper threshold followed
    // the quiet average of the cut frame.
    EXPECT_EQ(run.Next(Even(30)), 0);
    EXPECT_DOUBLE_EQ(run.c.upper, 12.9 + 4.75);
}

// A cut at frame 6 by the first rule (m = 28 stays out of the quiet
// history), frames below 0.6 (also left out), then m = 10: 10 / 2 = 5 >=
// 4.1 makes a cut by the second rule only when more than 3 frames passed.
int SecondRuleAfter(int quietFrames) {
    ContextRun run;
    for (int i = 0; i < 4; ++i) run.Next(Even(2));
    EXPECT_EQ(run.Next(Even(28)), 82);  // 75 + trunc(0.5 x 14)
    for (int i = 0; i < quietFrames; ++i) EXPECT_EQ(run.Next(Even(0.5)), 0);
    return run.Next(Even(10));
}

TEST(SceneDecide, ContextSecondRuleNeedsMoreThanThreeFramesSinceTheLastCut) {
    EXPECT_EQ(SecondRuleAfter(2), 0);   // 3 frames since the cut
    EXPECT_EQ(SecondRuleAfter(3), 77);  // 4 frames: 75 + trunc(0.5 x 5)
}

TEST(SceneDecide, ContextSmallObjectWithdrawsAndHistogramOnlyConfirms) {
    ContextRun run;
    run.options |= sd::kOptionHistogram;
    for (int i = 0; i < 4; ++i) run.Next(Even(2));
    // A candidate (30 / 2 = 15) whose motion sits in five blocks.
    EXPECT_EQ(run.Next(Concentrated(30, 0.9)), 0);
    EXPECT_EQ(run.stages.histogramCalls, 0);
    // A cut (14 / 2 = 7 >= 3.66) that no histogram difference removes.
    EXPECT_EQ(run.Next(Even(14)), 78);
    EXPECT_EQ(run.stages.histogramCalls, 1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(run.Next(Even(2)), 0);
    // m = 10.5 is no candidate (10.5 / 5 = 2.1), but the histogram makes a
    // cut: 75 + trunc(0.5 x 2.1).
    run.stages.h = 0.7, run.stages.g = 30;
    EXPECT_EQ(run.Next(Even(10.5)), 76);
}

TEST(SceneDecide, ContextMotionModeFollowsTheNoCutHistory) {
    sd::ContextState c;
    for (int i = 0; i < 19; ++i) {
        c.noCut[i] = 5;
        c.noCutCount = i + 1;
    }
    EXPECT_EQ(sd::UpdateMotionMode(&c), 0);  // fewer than 20 means
    c.noCut[19] = 5;
    c.noCutCount = 20;
    EXPECT_EQ(sd::UpdateMotionMode(&c), 1);  // average 5 > 4.3
    std::fill(c.noCut, c.noCut + 20, 4.0);
    EXPECT_EQ(sd::UpdateMotionMode(&c), 1);  // between 3.4 and 4.3: stays
    std::fill(c.noCut, c.noCut + 20, 3.3);
    EXPECT_EQ(sd::UpdateMotionMode(&c), 0);
}

}  // namespace

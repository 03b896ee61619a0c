// The scene detector's life cycle through the public operations: what the
// work buffer holds, the references it keeps on frames, priming after Init
// and Reset, the disabled detector, frames with padding and a rectangle,
// refused arguments, and allocation failures at Init and in every stage of
// SceneDetect, which must return 0 and leave the detector as it was.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <vector>

#include "ncodecbase/video_processor.h"
#include "platform/kernel/fault.h"
#include "tests/video/scene_test_pictures.h"
#include "video/scene/scene_detector.h"

namespace {

namespace sd = ncb::video::scene;
using ncbtest::scene::FramePtr;
using ncbtest::scene::MakeFrame;
using VP = CNVideoProcessor;
using Format = CNCodecBase::VideoFormatInfoTag;

Format YFormat(int w, int h) {
    Format f;
    ncb::InitVideoFormat(&f, VIDEO_FORMAT_Y800, w, h);
    return f;
}

// Noise-like texture; `seed` picks the picture.
FramePtr Texture(int w, int h, uint32_t seed) {
    return MakeFrame(w, h, [seed](int x, int y) {
        uint32_t v = (static_cast<uint32_t>(x) * 73856093u) ^
                     (static_cast<uint32_t>(y) * 19349663u) ^ (seed * 83492791u);
        v ^= v >> 13;
        v *= 0x5bd1e995u;
        return static_cast<uint8_t>(v >> 24);
    });
}

int Detect(CNCodecBuffer* frame, CNCodecBuffer* work) {
    int result = -1;
    EXPECT_EQ(VP::SceneDetect(frame, &result, work), 1);
    return result;
}

TEST(SceneLifecycle, IdenticalFramesAreNoCutAndAnotherPictureIs) {
    Format f = YFormat(160, 120);
    CNCodecBuffer work;
    ASSERT_EQ(VP::SceneDetectInit(&f, 0, &work), 1);
    FramePtr a = Texture(160, 120, 1), a2 = Texture(160, 120, 1), b = Texture(160, 120, 2);
    EXPECT_EQ(Detect(a.get(), &work), 0);  // primes
    EXPECT_EQ(Detect(a2.get(), &work), 0);
    EXPECT_EQ(Detect(a2.get(), &work), 0);  // the same buffer again
    // Independent noise: every block differs by about 85 per pixel.
    EXPECT_GE(Detect(b.get(), &work), 75);
    EXPECT_EQ(VP::SceneDetectUninit(&work), 1);
}

TEST(SceneLifecycle, KeepsOneReferenceToThePreviousFrameOnly) {
    Format f = YFormat(96, 96);
    CNCodecBuffer work;
    ASSERT_EQ(VP::SceneDetectInit(&f, VP::SCENE_DETECT_CONTEXT, &work), 1);
    FramePtr a = Texture(96, 96, 1), b = Texture(96, 96, 2);
    Detect(a.get(), &work);
    EXPECT_EQ(a->GetRefCount(), 2);
    Detect(b.get(), &work);
    EXPECT_EQ(a->GetRefCount(), 1);
    EXPECT_EQ(b->GetRefCount(), 2);
    EXPECT_EQ(VP::SceneDetectReset(&work), 1);
    EXPECT_EQ(b->GetRefCount(), 1);
    // After Reset the next frame only primes, however different it is.
    EXPECT_EQ(Detect(a.get(), &work), 0);
    EXPECT_EQ(sd::PeekState(&work)->frameCounter, 1);
    // Init over a live detector lets go of its frame; Uninit as well.
    ASSERT_EQ(VP::SceneDetectInit(&f, 0, &work), 1);
    EXPECT_EQ(a->GetRefCount(), 1);
    Detect(b.get(), &work);
    EXPECT_EQ(VP::SceneDetectUninit(&work), 1);
    EXPECT_EQ(b->GetRefCount(), 1);
    EXPECT_EQ(work.GetAddress(), nullptr);
}

TEST(SceneLifecycle, ResetForgetsHistoriesAndThresholds) {
    Format f = YFormat(128, 96);
    CNCodecBuffer work;
    ASSERT_EQ(VP::SceneDetectInit(&f, VP::SCENE_DETECT_CONTEXT | VP::SCENE_DETECT_HISTOGRAM, &work),
              1);
    FramePtr frames[] = {Texture(128, 96, 1), Texture(128, 96, 2), Texture(128, 96, 3)};
    for (int i = 0; i < 6; ++i) Detect(frames[i % 3].get(), &work);
    const sd::SceneState* s = sd::PeekState(&work);
    EXPECT_GT(s->context.noCutCount + s->context.quietCount, 0);
    ASSERT_EQ(VP::SceneDetectReset(&work), 1);
    EXPECT_EQ(s->frameCounter, 0);
    EXPECT_EQ(s->context.noCutCount, 0);
    EXPECT_EQ(s->context.quietCount, 0);
    EXPECT_EQ(s->context.intervalCount, 0);
    EXPECT_FALSE(s->context.haveCut);
    EXPECT_FALSE(s->histogramValid);
    EXPECT_DOUBLE_EQ(s->context.lower, 12.9);
    EXPECT_DOUBLE_EQ(s->context.upper, 12.9);
    EXPECT_EQ(s->previous, nullptr);
    VP::SceneDetectUninit(&work);
}

TEST(SceneLifecycle, SmallRectangleGivesADisabledDetector) {
    Format f = YFormat(60, 200);
    CNCodecBuffer work;
    ASSERT_EQ(VP::SceneDetectInit(&f, 0, &work), 1);
    FramePtr a = Texture(60, 200, 1), b = Texture(60, 200, 2);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Detect((i % 2 ? a : b).get(), &work), 0);
    EXPECT_EQ(a->GetRefCount(), 1);  // nothing kept
    EXPECT_EQ(b->GetRefCount(), 1);
    // A 200 x 200 picture whose rectangle is 63 rows high: disabled too.
    f = YFormat(200, 200);
    f.nRectTop = 100;
    f.nRectBottom = 163;
    ASSERT_EQ(VP::SceneDetectInit(&f, 0, &work), 1);
    EXPECT_TRUE(sd::PeekState(&work)->disabled);
    VP::SceneDetectUninit(&work);
}

// Only the rectangle counts: changes outside it (and in the padding) are
// not seen, a change inside it is.
TEST(SceneLifecycle, LooksOnlyInsideTheRectangleOfThePaddedPlane) {
    Format f = YFormat(200, 150);
    f.nPadLeft = 7;
    f.nPadRight = 9;
    f.nPadTop = 3;
    f.nRectLeft = 30;
    f.nRectRight = 170;
    f.nRectTop = 20;
    f.nRectBottom = 120;
    const int pitch = 7 + 200 + 9, rows = 3 + 150;
    auto frame = [&](uint32_t inside, uint32_t outside) {
        FramePtr in = Texture(pitch, rows, inside), out = Texture(pitch, rows, outside);
        uint8_t* d = static_cast<uint8_t*>(out->GetAddress());
        const uint8_t* src = static_cast<uint8_t*>(in->GetAddress());
        for (int y = 3 + 20; y < 3 + 120; ++y)
            for (int x = 7 + 30; x < 7 + 170; ++x) d[y * pitch + x] = src[y * pitch + x];
        return out;
    };
    CNCodecBuffer work;
    ASSERT_EQ(VP::SceneDetectInit(&f, VP::SCENE_DETECT_ALIGN, &work), 1);
    FramePtr a = frame(1, 10), a2 = frame(1, 11), b = frame(2, 11);
    EXPECT_EQ(Detect(a.get(), &work), 0);
    EXPECT_EQ(Detect(a2.get(), &work), 0);
    EXPECT_GE(Detect(b.get(), &work), 75);
    VP::SceneDetectUninit(&work);
}

TEST(SceneLifecycle, RefusedArguments) {
    Format f = YFormat(96, 96);
    CNCodecBuffer work, empty;
    FramePtr a = Texture(96, 96, 1), tooSmall = Texture(96, 95, 1);
    int result = 7;
    EXPECT_EQ(VP::SceneDetectInit(nullptr, 0, &work), 0);
    EXPECT_EQ(VP::SceneDetectInit(&f, 0, nullptr), 0);
    // A buffer that holds no detector.
    EXPECT_EQ(VP::SceneDetect(a.get(), &result, &empty), 0);
    EXPECT_EQ(VP::SceneDetectReset(&empty), 0);
    EXPECT_EQ(VP::SceneDetectUninit(&empty), 1);
    ASSERT_EQ(VP::SceneDetectInit(&f, 0, &work), 1);
    EXPECT_EQ(VP::SceneDetect(a.get(), nullptr, &work), 0);
    EXPECT_EQ(VP::SceneDetect(nullptr, &result, &work), 0);
    EXPECT_EQ(VP::SceneDetect(tooSmall.get(), &result, &work), 0);
    EXPECT_EQ(result, 7);
    EXPECT_EQ(sd::PeekState(&work)->frameCounter, 0);
    // A wrap buffer cannot hold the state.
    uint8_t bytes[64];
    CNCodecBuffer wrap(bytes, sizeof bytes, 0, nullptr);
    EXPECT_EQ(VP::SceneDetectInit(&f, 0, &wrap), 0);
    VP::SceneDetectUninit(&work);
}

TEST(SceneLifecycle, InitFailsWhenTheStateCannotBeAllocated) {
    Format f = YFormat(96, 96);
    CNCodecBuffer work;
    {
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0);
        EXPECT_EQ(VP::SceneDetectInit(&f, 0, &work), 0);
    }
    EXPECT_EQ(sd::PeekState(&work), nullptr);
}

// Each allocation SceneDetect makes in turn fails once: the call returns 0,
// the previous frame, the counter and every history stay as they were, and
// repeating the call without the fault gives the result of an undisturbed
// run. The block search allocates on every analysed frame, the histogram
// whenever it runs.
class SceneAllocationFailure : public ::testing::TestWithParam<unsigned int> {};

TEST_P(SceneAllocationFailure, LeavesTheDetectorAsItWas) {
    const unsigned int options = GetParam();
    Format f = YFormat(128, 128);
    FramePtr frames[] = {Texture(128, 128, 1), Texture(128, 128, 1), Texture(128, 128, 2),
                         Texture(128, 128, 2), Texture(128, 128, 3)};
    std::vector<int> want;
    {
        CNCodecBuffer work;
        ASSERT_EQ(VP::SceneDetectInit(&f, options, &work), 1);
        for (FramePtr& fr : frames) want.push_back(Detect(fr.get(), &work));
        VP::SceneDetectUninit(&work);
    }
    for (int skip = 0; skip < 2; ++skip) {
        CNCodecBuffer work;
        ASSERT_EQ(VP::SceneDetectInit(&f, options, &work), 1);
        int failures = 0;
        for (size_t i = 0; i < std::size(frames); ++i) {
            const sd::SceneState before = *sd::PeekState(&work);
            int result = -1, status = 0;
            {
                nplat::fault::Scope fail(nplat::fault::Kind::kHeap, skip);
                status = VP::SceneDetect(frames[i].get(), &result, &work);
            }
            if (status == 0) {
                ++failures;
                const sd::SceneState* after = sd::PeekState(&work);
                EXPECT_EQ(std::memcmp(&before, after, sizeof before), 0) << skip << " " << i;
                EXPECT_EQ(result, -1);
                if (i > 0) {
                    EXPECT_EQ(frames[i - 1]->GetRefCount(), 2);
                }
                EXPECT_EQ(Detect(frames[i].get(), &work), want[i]) << skip << " " << i;
            } else {
                EXPECT_EQ(result, want[i]) << skip << " " << i;
            }
        }
        // Every frame but the first fails in the search; some in the histogram.
        EXPECT_GE(failures, skip == 0 ? 4 : 1) << skip;
        VP::SceneDetectUninit(&work);
    }
}

INSTANTIATE_TEST_SUITE_P(Options, SceneAllocationFailure,
                         ::testing::Values(VP::SCENE_DETECT_CONTEXT | VP::SCENE_DETECT_HISTOGRAM |
                                               VP::SCENE_DETECT_WEIGHTED,
                                           VP::SCENE_DETECT_HISTOGRAM | VP::SCENE_DETECT_WEIGHTED |
                                               VP::SCENE_DETECT_DISSOLVE));

}  // namespace

// The scene detector on sequences a person can judge, built at test time
// from real pictures (two mosaics of PNG suite pictures, A and B): pans
// within the search's reach and a slow zoom must not be cuts, a switch from
// A to B must be a cut, a frame whose two fields come from A and B is found
// by the inter-field stage, and a small object jumping over a still picture
// is handled by its stage. Fast pans and zooms and a cross-fade are only
// reported: they get whatever the measures give.
//
// Every sequence runs under several option sets, and with every option on
// through every kernel set (each processor level and the scalar twins),
// which must agree frame for frame. Each frame's decision, confidence and
// mean block difference m is printed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "ncodecbase/video_processor.h"
#include "tests/support/kernel_checker.h"
#include "tests/video/scene_test_pictures.h"
#include "video/scene/scene_detector.h"

namespace {

namespace sd = ncb::video::scene;
using ncbtest::scene::FramePtr;
using ncbtest::scene::Grey;
using ncbtest::scene::MakeFrame;
using ncbtest::scene::View;
using VP = CNVideoProcessor;

constexpr int kW = 320, kH = 240;

const Grey& CanvasA() {
    static const Grey g =
        ncbtest::scene::Mosaic({"f00n2c08.png", "basn2c08.png", "tbbn3p08.png", "g03n2c08.png",
                                "ccwn2c08.png", "cs5n2c08.png", "pp0n6a08.png", "ps1n0g08.png",
                                "ch1n3p04.png", "exif2c08.png", "tp1n3p08.png", "basn0g08.png"},
                               8, 6, 2);
    return g;
}

const Grey& CanvasB() {
    static const Grey g =
        ncbtest::scene::Mosaic({"z00n2c08.png", "f00n0g08.png", "tbrn2c08.png", "tp0n2c08.png",
                                "cdfn2c08.png", "cdhn2c08.png", "cs8n2c08.png", "cm0n0g04.png",
                                "ctzn0g04.png", "oi1n2c16.png", "bgan6a16.png", "tbyn3p08.png"},
                               8, 6, 2);
    return g;
}

struct Sequence {
    std::string name;
    std::vector<FramePtr> frames;
};

Sequence Pan(const std::string& name, const Grey& canvas, double x0, double y0, double dx,
             double dy, int count) {
    Sequence s{name, {}};
    for (int i = 0; i < count; ++i)
        s.frames.push_back(View(canvas, kW, kH, x0 + i * dx, y0 + i * dy));
    return s;
}

Sequence Zoom(const std::string& name, double perFrame, int count) {
    Sequence s{name, {}};
    double zoom = 1.0;
    for (int i = 0; i < count; ++i, zoom *= perFrame)
        s.frames.push_back(View(CanvasA(), kW, kH, 96, 72, zoom));
    return s;
}

// A pans slowly, then B pans slowly from frame `at` on.
Sequence Switch(int at, int count) {
    Sequence s{"switch A to B at frame " + std::to_string(at), {}};
    for (int i = 0; i < count; ++i) {
        const Grey& canvas = i < at ? CanvasA() : CanvasB();
        s.frames.push_back(View(canvas, kW, kH, 40 + 2.5 * i, 30 + 1.5 * i));
    }
    return s;
}

// Like Switch, but the frame at `at` holds A in its even rows and B in its
// odd rows: the cut fell between the two fields of an interlaced frame.
Sequence FieldSwitch(int at, int count) {
    Sequence s{"fields A|B at frame " + std::to_string(at), {}};
    for (int i = 0; i < count; ++i) {
        const double x = 40 + 2.5 * i, y = 30 + 1.5 * i;
        if (i != at) {
            s.frames.push_back(View(i < at ? CanvasA() : CanvasB(), kW, kH, x, y));
            continue;
        }
        s.frames.push_back(MakeFrame(kW, kH, [&](int px, int py) {
            const Grey& canvas = py % 2 == 0 ? CanvasA() : CanvasB();
            return ncbtest::scene::Clamp8(canvas.Sample(x + px, y + py));
        }));
    }
    return s;
}

// Every frame interlaced from a fast pan: its odd field lies `shift` pixels
// further along than its even field.
Sequence CombedPan(double shift, int count) {
    Sequence s{"combed pan, fields " + std::to_string(static_cast<int>(shift)) + " px apart", {}};
    for (int i = 0; i < count; ++i) {
        const double x = 20 + 2 * shift * i;
        s.frames.push_back(MakeFrame(kW, kH, [&](int px, int py) {
            const double fx = x + (py % 2 ? shift : 0);
            return ncbtest::scene::Clamp8(CanvasA().Sample(fx + px, 40 + py));
        }));
    }
    return s;
}

sd::SceneGeometry FrameGeometry() {
    CNCodecBase::VideoFormatInfoTag format;
    ncb::InitVideoFormat(&format, VIDEO_FORMAT_Y800, kW, kH);
    uint32_t options = 0;
    sd::SceneGeometry g;
    EXPECT_TRUE(sd::BuildGeometry(format, &options, &g));
    return g;
}

// A still view of A with faint noise that changes from frame to frame;
// from frame 4 on, a small object (about 148 x 24 pixels, under 5 % of the
// frame: a piece of B in negative, so that it stands out) jumps between rows
// and columns of the detector's blocks, covering three of them at a time.
Sequence SmallObject(int count) {
    Sequence s{"small object over a still picture", {}};
    const sd::SceneGeometry g = FrameGeometry();
    for (int i = 0; i < count; ++i) {
        const int k = i - 4;
        const int first = k < 0 ? 0 : (k % 2) * 10 + ((k / 2) % 2) * 2;  // blocks 0, 10, 2, 12
        const int ox = g.blockX[first] - 4, oy = g.blockY[first] - 4;
        const int ow = g.blockX[first + 2] - g.blockX[first] + g.blockSize + 8, oh = 24;
        uint32_t seed = 12345u + static_cast<uint32_t>(i) * 7919u;
        s.frames.push_back(MakeFrame(kW, kH, [&](int x, int y) {
            seed = seed * 1664525u + 1013904223u;
            const int noise = static_cast<int>(seed >> 30) - 1;  // -1..2
            if (k >= 0 && x >= ox && x < ox + ow && y >= oy && y < oy + oh)
                return static_cast<uint8_t>(255 - CanvasB().At(200 + x - ox, 150 + y - oy));
            return ncbtest::scene::Clamp8(CanvasA().At(100 + x, 80 + y) + noise);
        }));
    }
    return s;
}

Sequence CrossFade(int count) {
    Sequence s{"cross-fade A to B", {}};
    for (int i = 0; i < count; ++i) {
        const double t = i / static_cast<double>(count - 1);
        s.frames.push_back(MakeFrame(kW, kH, [&](int x, int y) {
            return ncbtest::scene::Clamp8((1 - t) * CanvasA().At(60 + x, 50 + y) +
                                          t * CanvasB().At(60 + x, 50 + y));
        }));
    }
    return s;
}

struct OptionSet {
    const char* name;
    unsigned int options;
};

const OptionSet kOptionSets[] = {
    {"plain", 0},
    {"stages", VP::SCENE_DETECT_DISSOLVE | VP::SCENE_DETECT_WEIGHTED | VP::SCENE_DETECT_HISTOGRAM},
    {"context", VP::SCENE_DETECT_CONTEXT},
    {"context+stages", VP::SCENE_DETECT_CONTEXT | VP::SCENE_DETECT_DISSOLVE |
                           VP::SCENE_DETECT_WEIGHTED | VP::SCENE_DETECT_HISTOGRAM},
};

// The mean block difference m of each frame against the one before, as
// the plain search sees it (for the report).
std::vector<double> Means(const Sequence& s) {
    CNCodecBase::VideoFormatInfoTag format;
    ncb::InitVideoFormat(&format, VIDEO_FORMAT_Y800, kW, kH);
    uint32_t options = 0;
    sd::SceneGeometry g;
    EXPECT_TRUE(sd::BuildGeometry(format, &options, &g));
    const ncb::video::SceneKernels& k = ncb::video::GetSceneKernels(ncb::video::KernelSet::kSse2);
    std::vector<double> means(1, 0.0);
    for (size_t i = 1; i < s.frames.size(); ++i) {
        const sd::FramePair pair{static_cast<uint8_t*>(s.frames[i]->GetAddress()),
                                 static_cast<uint8_t*>(s.frames[i - 1]->GetAddress()), kW};
        sd::BlockMeasures b;
        sd::MeasureBlocks(g, k, pair, false, &b);
        means.push_back(b.mean);
    }
    return means;
}

// Runs the detector over the frames; `set` other than the level's own
// replaces the kernels (the scalar twins).
std::vector<int> Detect(const Sequence& s, unsigned int options,
                        const ncb::video::KernelSet* set = nullptr) {
    CNCodecBase::VideoFormatInfoTag format;
    ncb::InitVideoFormat(&format, VIDEO_FORMAT_Y800, kW, kH);
    CNCodecBuffer work;
    std::vector<int> results;
    EXPECT_EQ(VP::SceneDetectInit(&format, options, &work), 1);
    if (set) sd::SetKernelSet(&work, *set);
    for (const FramePtr& frame : s.frames) {
        int result = -1;
        EXPECT_EQ(VP::SceneDetect(frame.get(), &result, &work), 1);
        results.push_back(result);
    }
    VP::SceneDetectUninit(&work);
    return results;
}

void Report(const Sequence& s, const OptionSet& o, const std::vector<int>& results,
            const std::vector<double>& means) {
    std::string line;
    for (size_t i = 0; i < results.size(); ++i) {
        char item[48];
        std::snprintf(item, sizeof item, " %zu:%s(m %.1f)", i,
                      results[i] ? std::to_string(results[i]).c_str() : "-", means[i]);
        line += item;
    }
    std::printf("[ scenes   ] %-40s %-15s%s\n", s.name.c_str(), o.name, line.c_str());
}

// Runs every option set, reports, and returns the results per option set.
// With every option on, the scalar twins and each level's kernels must
// agree frame for frame (the kernel checker covers the rest).
std::vector<std::vector<int>> DetectAll(const Sequence& s) {
    const std::vector<double> means = Means(s);
    std::vector<std::vector<int>> all;
    for (const OptionSet& o : kOptionSets) {
        all.push_back(Detect(s, o.options));
        Report(s, o, all.back(), means);
    }
    const OptionSet& full = kOptionSets[std::size(kOptionSets) - 1];
    const ncb::video::KernelSet scalar = ncb::video::KernelSet::kScalar;
    EXPECT_EQ(Detect(s, full.options, &scalar), all.back()) << s.name << " scalar";
    for (unsigned int level : {VP::SCENE_DETECT_SSSE3, VP::SCENE_DETECT_SSE41})
        EXPECT_EQ(Detect(s, full.options | level), all.back()) << s.name << " level " << level;
    return all;
}

// Cuts exactly at `cuts` under the option sets whose bits include `needs`
// (all of them for 0); the others are only reported.
void ExpectCutsExactlyAt(const Sequence& s, const std::vector<int>& cuts, unsigned int needs = 0) {
    const std::vector<std::vector<int>> all = DetectAll(s);
    for (size_t o = 0; o < all.size(); ++o) {
        if (needs && !(kOptionSets[o].options & needs)) continue;
        for (size_t i = 0; i < all[o].size(); ++i) {
            const bool want =
                std::find(cuts.begin(), cuts.end(), static_cast<int>(i)) != cuts.end();
            EXPECT_EQ(all[o][i] != 0, want)
                << s.name << ", " << kOptionSets[o].name << ", frame " << i << ": " << all[o][i];
            if (all[o][i] != 0) {
                EXPECT_GE(all[o][i], 75);
                EXPECT_LE(all[o][i], 100);
            }
        }
    }
}

TEST(SceneSequence, PansWithinReachAreNoCuts) {
    ExpectCutsExactlyAt(Pan("pan right-down 6.6, 2.3 px", CanvasA(), 8, 10, 6.6, 2.3, 9), {});
    ExpectCutsExactlyAt(Pan("pan left-up 17.5, 9.5 px", CanvasA(), 180, 130, -17.5, -9.5, 7), {});
    ExpectCutsExactlyAt(Pan("pan B down 11 px", CanvasB(), 100, 0, 0.4, 11, 9), {});
}

TEST(SceneSequence, SlowZoomIsNoCut) { ExpectCutsExactlyAt(Zoom("zoom in 1.5 %", 1.015, 9), {}); }

// Between these two mosaics the block search still finds matches worth
// m = 25 or so, below the fixed 35.1 of the plain analysis, so the plain
// option set is only reported here; the histogram stage and the context
// thresholds see the switch.
TEST(SceneSequence, SwitchToAnotherPictureIsACut) {
    const unsigned int seeing = VP::SCENE_DETECT_HISTOGRAM | VP::SCENE_DETECT_CONTEXT;
    ExpectCutsExactlyAt(Switch(5, 9), {5}, seeing);
    ExpectCutsExactlyAt(Switch(2, 6), {2}, seeing);
}

// The object's blocks differ strongly while the rest stays still: in
// context mode that makes candidates (m / cm is large), which the
// small-object test withdraws.
TEST(SceneSequence, SmallObjectOverAStillPictureIsNoCut) {
    const Sequence s = SmallObject(10);
    ExpectCutsExactlyAt(s, {});
    const sd::SceneGeometry g = FrameGeometry();
    const ncb::video::SceneKernels& k = ncb::video::GetSceneKernels(ncb::video::KernelSet::kScalar);
    for (size_t i = 4; i < s.frames.size(); ++i) {
        const sd::FramePair pair{static_cast<uint8_t*>(s.frames[i]->GetAddress()),
                                 static_cast<uint8_t*>(s.frames[i - 1]->GetAddress()), kW};
        sd::BlockMeasures b;
        ASSERT_TRUE(sd::MeasureBlocks(g, k, pair, false, &b));
        const bool small = sd::DetectMovingSmallObject(b.v, b.mean, 0.84);
        std::printf("[ scenes   ] %s: frame %zu m %.1f small object %s\n", s.name.c_str(), i,
                    b.mean, small ? "yes" : "no");
        EXPECT_TRUE(small) << i;
    }
}

// The frame whose fields hold A and B scores far above the inter-field
// threshold while progressive frames stay far below it; with the test on,
// that frame is the cut the motion measure alone may miss.
TEST(SceneSequence, FieldsFromTwoPicturesAreFoundByTheInterFieldTest) {
    const Sequence s = FieldSwitch(4, 8);
    CNCodecBase::VideoFormatInfoTag format;
    ncb::InitVideoFormat(&format, VIDEO_FORMAT_Y800, kW, kH);
    uint32_t options = 0;
    sd::SceneGeometry g;
    ASSERT_TRUE(sd::BuildGeometry(format, &options, &g));
    const ncb::video::SceneKernels& k = ncb::video::GetSceneKernels(ncb::video::KernelSet::kScalar);
    for (size_t i = 0; i < s.frames.size(); ++i) {
        const double d =
            sd::DissolveScore(g, k, static_cast<uint8_t*>(s.frames[i]->GetAddress()), kW);
        std::printf("[ scenes   ] %s: frame %zu inter-field score %.1f\n", s.name.c_str(), i, d);
        if (i == 4) {
            EXPECT_GE(d, 41.5);
        } else {
            EXPECT_LT(d, 83.0 / 3.0) << i;
        }
    }
    const std::vector<std::vector<int>> all = DetectAll(s);
    for (size_t o = 0; o < all.size(); ++o) {
        if (!(kOptionSets[o].options & VP::SCENE_DETECT_DISSOLVE)) continue;
        EXPECT_NE(all[o][4], 0) << kOptionSets[o].name;
    }
}

// Only reported: whatever the measures give.
TEST(SceneSequence, ReportFastMotionCombingAndFades) {
    DetectAll(Pan("pan 48 px (beyond reach)", CanvasA(), 0, 60, 48, 0, 5));
    DetectAll(Pan("pan 30, 20 px (beyond reach)", CanvasB(), 0, 0, 30, 20, 6));
    DetectAll(Zoom("zoom in 15 %", 1.15, 6));
    DetectAll(CombedPan(12, 6));
    DetectAll(CrossFade(7));
}

}  // namespace

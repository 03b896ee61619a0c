// Every picture operation, every format pair it takes, every mode, at every
// processor level (and through the scalar twins, and the SSE4.1 set where
// AVX2 would otherwise serve level 2), against the literal model of
// video_reference.h: random sizes from 1 pixel (odd widths and heights,
// rows that end at or cross the operations' chunk boundaries), random paddings and
// rectangles, bottom-up RGB, swapped chroma, flipped outputs, aligned and
// unaligned frames. The kernel checker guards every byte around and between
// the planes, so a write outside the region or into padding fails too.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "tests/support/kernel_checker.h"
#include "tests/video/video_reference.h"
#include "video/video_ops.h"

namespace {

using ncb::VideoFormatInfo;
using ncb::video::KernelSet;
using ncbtest::CaseRandom;
using ncbtest::Plane;
using Config = CNVideoProcessor::ConvertConfigTag;

enum class Op {
    kToYuv,
    kFromYuv,
    kYuv,
    kToRgb,
    kFromRgb,
    kRgb,
    kAyuvToRgb32,
    kRgb32ToAyuv,
    kCopyYuv,
    kCopyRgb,
    kRotateRgb,
    kRotateYuv,
    kDeinterlace,
};

const char* OpName(Op op) {
    constexpr const char* kNames[] = {"ConvertToYUV",       "ConvertFromYUV",     "ConvertYUV",
                                      "ConvertToRGB",       "ConvertFromRGB",     "ConvertRGB",
                                      "ConvertAYUVtoRGB32", "ConvertRGB32toAYUV", "DirectCopyYUV",
                                      "DirectCopyRGB",      "RotateRGB",          "RotateYUV",
                                      "DeInterlacedYUV"};
    return kNames[static_cast<int>(op)];
}

struct PairParam {
    Op op;
    int in;
    int out;
    bool handled = true;  // false: the operation must leave the output alone
};

std::string ParamName(const PairParam& p) {
    return std::string(OpName(p.op)) + "_" + std::to_string(p.in) + "_" + std::to_string(p.out);
}

// One random call of one operation.
struct OpCase {
    PairParam param{};
    bool useRect = false;
    int rotation = 0;
    bool flip = false;
    Config config{};
    VideoFormatInfo inF{}, outF{};
    Plane in, out;

    std::vector<const Plane*> Planes() const { return {&in, &out}; }

    std::string Describe() const {
        char text[512];
        auto frame = [](const VideoFormatInfo& f) {
            char t[200];
            std::snprintf(t, sizeof t,
                          "code %d flags %#x %dx%d rect (%d,%d,%d,%d) pad %d/%d/%d/%d chroma "
                          "%d/%d/%d/%d",
                          f.nCodecSubType, f.nFormatFlags, f.nWidth, f.nHeight, f.nRectLeft,
                          f.nRectRight, f.nRectTop, f.nRectBottom, f.nPadLeft, f.nPadRight,
                          f.nPadTop, f.nPadBottom, f.nChromaPadLeft, f.nChromaPadRight,
                          f.nChromaPadTop, f.nChromaPadBottom);
            return std::string(t);
        };
        const Config& c = config;
        std::snprintf(text, sizeof text,
                      "%s useRect %d rotation %d flip %d config {%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d}",
                      OpName(param.op), useRect, rotation, flip, c.nFixedChroma, c.nFlip, c.nFixedU,
                      c.nFixedV, c.nOffsetY, c.nOffsetU, c.nOffsetV, c.nGainY, c.nGainU, c.nGainV,
                      c.nAlpha);
        return std::string(text) + "\n  in:  " + frame(inF) + "\n  out: " + frame(outF);
    }
};

bool SwappableFlag(int code) { return (code >= 2 && code <= 4) || (code >= 257 && code <= 260); }

// A descriptor of `code` whose picture holds a region of rw x rh at a
// random origin (with useRect) and random paddings, or the library's
// allocation rule (aligned rows) now and then. Without useRect an input is
// exactly the region; an output may be larger.
VideoFormatInfo MakeFormat(CaseRandom& r, int code, int rw, int rh, bool useRect, bool aligned,
                           bool input) {
    VideoFormatInfo f;
    const bool extra = useRect || !input;
    const int left = useRect ? r.Uniform(0, 5) : 0;
    const int top = useRect ? r.Uniform(0, 5) : 0;
    const int w = left + rw + (extra ? r.Uniform(0, 1) * r.Uniform(0, 5) : 0);
    const int h = top + rh + (extra ? r.Uniform(0, 1) * r.Uniform(0, 3) : 0);
    ncb::InitVideoFormat(&f, code, w, h);
    f.nRectLeft = left;
    f.nRectRight = left + rw;
    f.nRectTop = top;
    f.nRectBottom = top + rh;
    if (SwappableFlag(code) && r.Chance(30)) f.nFormatFlags = FORMAT_FLAG_SWAPPED;
    if (aligned) {
        ncb::ApplyAllocationRule(&f);
    } else {
        int32_t* pads[] = {&f.nPadLeft,      &f.nPadRight,       &f.nPadTop,
                           &f.nPadBottom,    &f.nChromaPadLeft,  &f.nChromaPadRight,
                           &f.nChromaPadTop, &f.nChromaPadBottom};
        for (int32_t* p : pads) *p = r.Chance(50) ? 0 : r.Uniform(1, 19);
    }
    return f;
}

Plane MakeFrame(CaseRandom& r, const VideoFormatInfo& f, bool aligned, const char* label) {
    ncb::FrameLayout layout;
    if (!ncb::GetFrameLayout(f, &layout)) std::abort();
    return r.MakePlane(static_cast<int>(layout.totalBytes), 1, 1,
                       {.label = label, .alignment = aligned ? 16 : 1, .allowBottomUp = false});
}

Config MakeConfig(CaseRandom& r) {
    Config c{0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255};
    switch (r.Uniform(0, 3)) {
        case 0:  // plain
            break;
        case 1:  // adjust, usual range
            c.nOffsetY = r.Uniform(-64, 64);
            c.nOffsetU = r.Uniform(-64, 64);
            c.nOffsetV = r.Uniform(-64, 64);
            c.nGainY = r.Uniform(0, 512);
            c.nGainU = r.Uniform(0, 512);
            c.nGainV = r.Uniform(0, 512);
            break;
        case 2:  // adjust, extremes (negative and saturating gains, huge offsets)
            c.nOffsetY = r.Chance(50) ? r.Uniform(-300, 300) : r.Uniform(-2000000000, 2000000000);
            c.nOffsetU = r.Uniform(-70000, 70000);
            c.nOffsetV = r.Uniform(-300, 300);
            c.nGainY = r.Uniform(-40000, 40000);
            c.nGainU = r.Chance(50) ? r.Uniform(-600, 600) : r.Uniform(-2000000000, 2000000000);
            c.nGainV = r.Uniform(-40000, 40000);
            break;
        default:  // fixed chroma
            c.nFixedChroma = r.Uniform(1, 3);
            c.nFixedU = r.Uniform(-300, 600);
            c.nFixedV = r.Uniform(0, 255);
            c.nOffsetY = r.Uniform(-40, 40);
            c.nGainY = r.Uniform(100, 400);
            break;
    }
    if (r.Chance(15)) c = Config{};  // all zero: adjust mode with zero gains
    c.nFlip = r.Chance(30) ? 1 : r.Uniform(0, 2) * 2;
    c.nAlpha = r.Uniform(-10, 300);
    return c;
}

OpCase MakeCase(CaseRandom& r, const PairParam& param) {
    OpCase c;
    c.param = param;
    c.useRect = r.Chance(50);
    c.rotation = r.Uniform(0, 2);
    c.flip = r.Chance(40);
    c.config = MakeConfig(r);
    int rw = r.Size(1, 70), rh = r.Size(1, 9);
    if (r.Chance(8)) {  // rows at and across the operations' chunk boundaries
        constexpr int k = ncb::video::kChunk;
        const int widths[] = {
            k - 1, k, k + 1, k + 2, k + 15, k + 17, r.Uniform(k - 40, 2 * k + 40)};
        rw = widths[r.Uniform(0, 6)];
        rh = r.Uniform(1, 3);
    }
    const bool aligned = r.Chance(25);
    c.inF = MakeFormat(r, param.in, rw, rh, c.useRect, aligned, true);
    const bool turned =
        (param.op == Op::kRotateRgb || param.op == Op::kRotateYuv) && c.rotation != 1;
    c.outF =
        MakeFormat(r, param.out, turned ? rh : rw, turned ? rw : rh, c.useRect, aligned, false);
    if (!c.useRect && r.Chance(50)) {
        // Rectangles are ignored without the flag; give them junk.
        c.inF.nRectLeft = r.Uniform(0, 3);
        c.inF.nRectRight = r.Uniform(0, 3);
    }
    c.in = MakeFrame(r, c.inF, aligned, "in");
    c.out = MakeFrame(r, c.outF, aligned, "out");
    return c;
}

// The operation as a host calls it, at one processor level.
void RunPublic(OpCase& c, int level) {
    CNCodecBuffer in(c.in.Data(), c.in.RowBytes(), c.in.RowBytes(), nullptr);
    CNCodecBuffer out(c.out.Data(), c.out.RowBytes(), c.out.RowBytes(), nullptr);
    const int rect = c.useRect ? 1 : 0;
    const unsigned flip = c.flip ? 1u : 0u;
    int result = 1;
    switch (c.param.op) {
        case Op::kToYuv:
            result =
                CNVideoProcessor::ConvertToYUV(&in, &out, &c.inF, &c.outF, &c.config, rect, level);
            break;
        case Op::kFromYuv:
            result = CNVideoProcessor::ConvertFromYUV(&in, &out, &c.inF, &c.outF, &c.config, rect,
                                                      level);
            break;
        case Op::kYuv:
            result = CNVideoProcessor::ConvertYUV(&in, &out, &c.inF, &c.outF, rect, level);
            break;
        case Op::kToRgb:
            result =
                CNVideoProcessor::ConvertToRGB(&in, &out, &c.inF, &c.outF, &c.config, rect, level);
            break;
        case Op::kFromRgb:
            result = CNVideoProcessor::ConvertFromRGB(&in, &out, &c.inF, &c.outF, &c.config, rect,
                                                      level);
            break;
        case Op::kRgb:
            result = CNVideoProcessor::ConvertRGB(&in, &out, &c.inF, &c.outF, rect, level);
            break;
        case Op::kAyuvToRgb32:
            result =
                CNVideoProcessor::ConvertAYUVtoRGB32(&in, &out, &c.inF, &c.outF, flip, rect, level);
            break;
        case Op::kRgb32ToAyuv:
            result =
                CNVideoProcessor::ConvertRGB32toAYUV(&in, &out, &c.inF, &c.outF, flip, rect, level);
            break;
        case Op::kCopyYuv:
            result = CNVideoProcessor::DirectCopyYUV(&in, &out, &c.inF, &c.outF, flip, rect, level);
            break;
        case Op::kCopyRgb:
            result = CNVideoProcessor::DirectCopyRGB(&in, &out, &c.inF, &c.outF, flip, rect, level);
            break;
        case Op::kRotateRgb:
            result =
                CNVideoProcessor::RotateRGB(&in, &out, &c.inF, &c.outF, c.rotation, rect, level);
            break;
        case Op::kRotateYuv:
            result =
                CNVideoProcessor::RotateYUV(&in, &out, &c.inF, &c.outF, c.rotation, rect, level);
            break;
        case Op::kDeinterlace:
            result = CNVideoProcessor::DeInterlacedYUV(&in, &out, &c.inF, &c.outF, rect, level);
            break;
    }
    EXPECT_EQ(result, 1);
}

// The same through one kernel set directly (the scalar twins, or SSE4.1
// without AVX2).
void RunSet(OpCase& c, KernelSet set) {
    namespace v = ncb::video;
    CNCodecBuffer in(c.in.Data(), c.in.RowBytes(), c.in.RowBytes(), nullptr);
    CNCodecBuffer out(c.out.Data(), c.out.RowBytes(), c.out.RowBytes(), nullptr);
    const v::PictureArgs a = v::MakePictureArgs(&in, &out, &c.inF, &c.outF, c.useRect ? 1 : 0);
    switch (c.param.op) {
        case Op::kToYuv:
            v::ConvertToYuv(a, &c.config, set);
            break;
        case Op::kFromYuv:
            v::ConvertFromYuv(a, &c.config, set);
            break;
        case Op::kYuv:
            v::ConvertYuv(a, set);
            break;
        case Op::kToRgb:
            v::ConvertToRgb(a, &c.config, set);
            break;
        case Op::kFromRgb:
            v::ConvertFromRgb(a, &c.config, set);
            break;
        case Op::kRgb:
            v::ConvertRgb(a, set);
            break;
        case Op::kAyuvToRgb32:
            v::ConvertAyuvToRgb32(a, c.flip, set);
            break;
        case Op::kRgb32ToAyuv:
            v::ConvertRgb32ToAyuv(a, c.flip, set);
            break;
        case Op::kCopyYuv:
            v::CopyYuv(a, c.flip, set);
            break;
        case Op::kCopyRgb:
            v::CopyRgb(a, c.flip, set);
            break;
        case Op::kRotateRgb:
            v::RotateRgb(a, c.rotation, set);
            break;
        case Op::kRotateYuv:
            v::RotateYuv(a, c.rotation, set);
            break;
        case Op::kDeinterlace:
            v::Deinterlace(a, set);
            break;
    }
}

void RunReference(OpCase& c) {
    namespace ref = ncbtest::ref;
    uint8_t* in = c.in.Data();
    uint8_t* out = c.out.Data();
    const Config* cfg = &c.config;
    switch (c.param.op) {
        case Op::kToYuv:
            ref::ConvertYuv(ref::YuvOp::kTo, c.inF, in, c.outF, out, c.useRect, cfg);
            break;
        case Op::kFromYuv:
            ref::ConvertYuv(ref::YuvOp::kFrom, c.inF, in, c.outF, out, c.useRect, cfg);
            break;
        case Op::kYuv:
            ref::ConvertYuv(ref::YuvOp::kAmong, c.inF, in, c.outF, out, c.useRect, cfg);
            break;
        case Op::kToRgb:
            ref::ConvertToRgb(c.inF, in, c.outF, out, c.useRect, cfg);
            break;
        case Op::kFromRgb:
            ref::ConvertFromRgb(c.inF, in, c.outF, out, c.useRect, cfg);
            break;
        case Op::kRgb:
            ref::ConvertRgb(c.inF, in, c.outF, out, c.useRect);
            break;
        case Op::kAyuvToRgb32:
            ref::ConvertAyuvRgb32(true, c.inF, in, c.outF, out, c.useRect, c.flip);
            break;
        case Op::kRgb32ToAyuv:
            ref::ConvertAyuvRgb32(false, c.inF, in, c.outF, out, c.useRect, c.flip);
            break;
        case Op::kCopyYuv:
            ref::CopyPicture(false, c.inF, in, c.outF, out, c.useRect, c.flip);
            break;
        case Op::kCopyRgb:
            ref::CopyPicture(true, c.inF, in, c.outF, out, c.useRect, c.flip);
            break;
        case Op::kRotateRgb:
            ref::Rotate(true, c.inF, in, c.outF, out, c.useRect, c.rotation);
            break;
        case Op::kRotateYuv:
            ref::Rotate(false, c.inF, in, c.outF, out, c.useRect, c.rotation);
            break;
        case Op::kDeinterlace:
            ref::Deinterlace(c.inF, in, c.outF, out, c.useRect);
            break;
    }
}

class VideoOpsCheck : public ::testing::TestWithParam<PairParam> {};

TEST_P(VideoOpsCheck, EveryLevelMatchesTheModel) {
    const PairParam param = GetParam();
    ncbtest::KernelFamily<OpCase> family{
        .name = ParamName(param),
        .make = [param](CaseRandom& r) { return MakeCase(r, param); },
        .twin = RunReference,
        .atLevel = RunPublic,
    };
    // Level 2 runs the AVX2 set where the processor has it; the SSE4.1 set
    // then gets its own run.
    for (KernelSet set : {KernelSet::kScalar, KernelSet::kSse41}) {
        if (set == KernelSet::kSse41 && !ncb::video::KernelSetSupported(KernelSet::kAvx2)) continue;
        family.extra.push_back({std::string(ncb::video::KernelSetName(set)) + " kernels",
                                [set](OpCase& c) { RunSet(c, set); }});
    }
    ncbtest::CheckAllLevels(family, {.cases = 40});
}

// The comparison above would pass vacuously if the cases never reached the
// kernels (a region that does not fit, say): the model must write in almost
// every case of a handled pair, and in none of a pair that is not handled.
TEST_P(VideoOpsCheck, CasesReachThePixels) {
    const PairParam param = GetParam();
    int wrote = 0;
    const int cases = 40;
    for (int i = 0; i < cases; ++i) {
        CaseRandom random(1000 + i, false);
        OpCase c = MakeCase(random, param);
        const std::vector<uint8_t> before(c.out.Data(), c.out.Data() + c.out.RowBytes());
        RunReference(c);
        wrote += !std::equal(before.begin(), before.end(), c.out.Data());
    }
    if (param.handled) {
        EXPECT_GE(wrote, cases * 9 / 10);
    } else {
        EXPECT_EQ(wrote, 0);
    }
}

std::vector<PairParam> AllPairs() {
    std::vector<PairParam> pairs;
    const int generic[] = {1, 2, 3, 4};
    const int surface[] = {6, 8, 9, 10, 11, 12, 13, 14};
    const int rgb[] = {257, 258, 259, 260};
    for (int g : generic) {
        for (int s : surface) {
            pairs.push_back({Op::kToYuv, g, s});
            pairs.push_back({Op::kFromYuv, s, g});
        }
        for (int h : generic) pairs.push_back({Op::kYuv, g, h});
        for (int c : rgb) {
            pairs.push_back({Op::kToRgb, g, c});
            pairs.push_back({Op::kFromRgb, c, g});
        }
        pairs.push_back({Op::kDeinterlace, g, g});
    }
    for (int a : rgb) {
        for (int b : rgb) pairs.push_back({Op::kRgb, a, b});
        pairs.push_back({Op::kCopyRgb, a, a});
    }
    pairs.push_back({Op::kAyuvToRgb32, 14, 260});
    pairs.push_back({Op::kRgb32ToAyuv, 260, 14});
    for (int code : {1, 2, 3, 4, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16})
        pairs.push_back({Op::kCopyYuv, code, code});
    pairs.push_back({Op::kCopyYuv, 2, 8});
    pairs.push_back({Op::kRotateRgb, 260, 260});
    for (int code : {1, 2, 4, 6, 8, 14}) pairs.push_back({Op::kRotateYuv, code, code});
    pairs.push_back({Op::kRotateYuv, 8, 2});
    // Pairs an operation does not take: nothing may be written.
    for (PairParam p : {PairParam{Op::kToYuv, 7, 6}, PairParam{Op::kToYuv, 2, 7},
                        PairParam{Op::kFromYuv, 7, 2}, PairParam{Op::kFromYuv, 5, 4},
                        PairParam{Op::kToRgb, 6, 260}, PairParam{Op::kCopyYuv, 7, 7},
                        PairParam{Op::kCopyYuv, 2, 3}, PairParam{Op::kCopyRgb, 258, 257},
                        PairParam{Op::kRotateYuv, 3, 3}, PairParam{Op::kDeinterlace, 2, 4}}) {
        p.handled = false;
        pairs.push_back(p);
    }
    return pairs;
}

INSTANTIATE_TEST_SUITE_P(Pairs, VideoOpsCheck, ::testing::ValuesIn(AllPairs()),
                         [](const auto& info) { return ParamName(info.param); });

}  // namespace

// The compositing operations as hosts call them, at every processor level,
// against the same operations run on the scalar twins: random sizes from
// one pixel, random paddings or the library's aligned allocation rule,
// rectangles, bottom-up RGB, sources placed partly outside the destination
// (clipped), every layout each operation takes, every blend mode, random
// colours and alphas. Whole frames are single guarded buffers, so a write
// outside a frame fails too.
#include "video/composite/composite_ops.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "tests/support/kernel_checker.h"

namespace {

using ncb::VideoFormatInfo;
using ncb::video::KernelSet;
using ncbtest::CaseRandom;
using ncbtest::Plane;
namespace cp = ncb::video::composite;
using VP = CNVideoProcessor;

enum class Op {
    kBlendRgb,
    kBlendYuv,
    kFillRgb,
    kFillYuv,
    kNoRead,
    kKeyNoRead,
    kJustReadAlpha,
    kAi44NoRead,
    kFromAi44,
    kModifyBackground,
    kAlphaRgb,
    kAlphaAi44
};

struct Param {
    Op op;
    int in, out;
};

std::string ParamName(const Param& p) {
    constexpr const char* kNames[] = {"BlendRgb", "BlendYuv",         "FillRgb",       "FillYuv",
                                      "NoRead",   "KeyNoRead",        "JustReadAlpha", "Ai44NoRead",
                                      "FromAi44", "ModifyBackground", "AlphaRgb",      "AlphaAi44"};
    return std::string(kNames[static_cast<int>(p.op)]) + "_" + std::to_string(p.in) + "_" +
           std::to_string(p.out);
}

struct OpCase {
    Param param{};
    bool useRect = false, flip = false;
    int x = 0, y = 0, w = 0, h = 0, mode = 0;
    uint32_t alpha = 0, key = 0, colour = 0, value = 0, scale = 0;
    uint8_t palette[128] = {};
    int paletteBytes = 0;
    VideoFormatInfo inF{}, outF{};
    Plane in, out;

    std::vector<const Plane*> Planes() const { return {&in, &out}; }
    std::string Describe() const {
        char text[400];
        std::snprintf(text, sizeof text,
                      "%s rect %d flip %d at (%d,%d) size %dx%d mode %d alpha %u key %08x colour "
                      "%08x value %u scale %u palette %d; in %dx%d rect (%d,%d,%d,%d) flags %#x; "
                      "out %dx%d rect (%d,%d,%d,%d) flags %#x",
                      ParamName(param).c_str(), useRect, flip, x, y, w, h, mode, alpha, key, colour,
                      value, scale, paletteBytes, inF.nWidth, inF.nHeight, inF.nRectLeft,
                      inF.nRectRight, inF.nRectTop, inF.nRectBottom, inF.nFormatFlags, outF.nWidth,
                      outF.nHeight, outF.nRectLeft, outF.nRectRight, outF.nRectTop,
                      outF.nRectBottom, outF.nFormatFlags);
        return text;
    }
};

VideoFormatInfo MakeFormat(CaseRandom& r, int code, bool aligned) {
    VideoFormatInfo f;
    const int w = r.Size(1, 60), h = r.Size(1, 7);
    ncb::InitVideoFormat(&f, code, w, h);
    f.nRectLeft = r.Uniform(0, w - 1);
    f.nRectRight = r.Uniform(f.nRectLeft + 1, w);
    f.nRectTop = r.Uniform(0, h - 1);
    f.nRectBottom = r.Uniform(f.nRectTop + 1, h);
    if (code > 256 && r.Chance(30)) f.nFormatFlags = FORMAT_FLAG_SWAPPED;
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

uint32_t Alpha(CaseRandom& r) {
    const int pick = r.Uniform(0, 3);
    return pick == 0 ? 0 : pick == 1 ? 255 : static_cast<uint32_t>(r.Uniform(1, 254));
}

OpCase MakeCase(CaseRandom& r, const Param& param) {
    OpCase c;
    c.param = param;
    const bool aligned = r.Chance(30);
    c.inF = MakeFormat(r, param.in, aligned);
    c.outF = MakeFormat(r, param.out, aligned);
    c.useRect = r.Chance(50);
    c.flip = r.Chance(40);
    c.x = r.Uniform(-4, c.outF.nWidth);
    c.y = r.Uniform(-2, c.outF.nHeight);
    c.w = r.Uniform(-1, c.outF.nWidth + 3);
    c.h = r.Uniform(-1, c.outF.nHeight + 2);
    c.mode = r.Uniform(0, 4);
    c.alpha = Alpha(r);
    c.key = static_cast<uint32_t>(r.Next());
    c.colour = static_cast<uint32_t>(r.Next() & 0x00FFFFFF) | Alpha(r) << 24;
    c.value = r.Chance(50) ? 0 : static_cast<uint32_t>(r.Uniform(1, 511));
    c.scale = static_cast<uint32_t>(r.Uniform(0, 300));
    c.paletteBytes = r.Chance(50) ? 64 : 128;
    for (uint8_t& b : c.palette) b = static_cast<uint8_t>(r.Next());
    c.in = MakeFrame(r, c.inF, aligned, "in");
    c.out = MakeFrame(r, c.outF, aligned, "out");
    // Some source words exactly the key (RGB32 sources).
    if (param.in == VIDEO_FORMAT_RGB32) {
        for (int i = 0; i + 4 <= c.in.RowBytes(); i += 4)
            if (r.Chance(20)) std::memcpy(c.in.Data() + i, &c.key, 4);
    }
    return c;
}

// twin: the operation on the scalar kernels; otherwise the public call.
void RunOp(OpCase& c, int level, bool twin) {
    CNCodecBuffer in(c.in.Data(), c.in.RowBytes(), c.in.RowBytes(), nullptr);
    CNCodecBuffer out(c.out.Data(), c.out.RowBytes(), c.out.RowBytes(), nullptr);
    if (void* info = in.AllocateAddiInfo(c.paletteBytes))
        std::memcpy(info, c.palette, c.paletteBytes);
    const int rect = c.useRect ? 1 : 0;
    const auto args = ncb::video::MakePictureArgs(&in, &out, &c.inF, &c.outF, rect);
    const KernelSet s = KernelSet::kScalar;
    const unsigned flip = c.flip ? 1u : 0u;
    int got = 0, want = 0;
    switch (c.param.op) {
        case Op::kBlendRgb:
        case Op::kBlendYuv: {
            const bool rgb = c.param.op == Op::kBlendRgb;
            const bool word = c.param.out == VIDEO_FORMAT_RGB32 || c.param.out == VIDEO_FORMAT_AYUV;
            want = word && c.mode > 3 ? 0 : 1;
            if (twin) {
                EXPECT_EQ(cp::AlphaBlending(rgb, args, {c.x, c.y}, c.mode, c.alpha, c.key, s),
                          want);
                return;
            }
            got = (rgb ? VP::AlphaBlendingRGB : VP::AlphaBlendingYUV)(
                &in, &out, &c.inF, &c.outF, c.x, c.y, c.mode, c.alpha, c.key, rect, level);
            break;
        }
        case Op::kFillRgb:
        case Op::kFillYuv: {
            const bool rgb = c.param.op == Op::kFillRgb;
            if (twin) {
                cp::FillRect(rgb, &out, &c.outF, c.colour, c.x, c.y, c.w, c.h, c.useRect, s);
                return;
            }
            got = (rgb ? VP::FillRectRGB : VP::FillRectYUV)(&out, &c.outF, c.colour, c.x, c.y, c.w,
                                                            c.h, rect, level);
            want = 1;
            break;
        }
        case Op::kNoRead:
            if (twin)
                cp::CopyKeyed(cp::KeyedCopy::kAlphaNonZero, args, {c.x, c.y}, 0, s);
            else
                got = VP::FillRectRGB32_NoRead(&in, &out, &c.inF, &c.outF, c.x, c.y, rect, level);
            want = 1;
            break;
        case Op::kKeyNoRead:
            if (twin)
                cp::CopyKeyed(cp::KeyedCopy::kNotKey, args, {c.x, c.y}, c.key, s);
            else
                got = VP::FillRectRGB32WithColorKey_NoRead(&in, &out, &c.inF, &c.outF, c.x, c.y,
                                                           c.key, rect, level);
            want = 1;
            break;
        case Op::kJustReadAlpha:
            if (twin)
                cp::CopyKeyed(cp::KeyedCopy::kJustReadAlpha, args, {c.x, c.y}, c.key, s);
            else
                got = VP::FillRectRGB32WithColorKey_JustReadAlpha(&in, &out, &c.inF, &c.outF, c.x,
                                                                  c.y, c.key, rect, level);
            want = 1;
            break;
        case Op::kAi44NoRead:
            if (twin)
                cp::CopyKeyed(cp::KeyedCopy::kAi44, args, {c.x, c.y}, 0, s);
            else
                got = VP::FillRectRGB32WithAI44_NoRead(&in, &out, &c.inF, &c.outF, c.x, c.y, rect,
                                                       level);
            want = 1;
            break;
        case Op::kFromAi44:
            if (twin)
                cp::ConvertFromAi44(args, c.flip, s);
            else
                got = VP::ConvertFromAI44(&in, &out, &c.inF, &c.outF, flip, rect, level);
            want = 1;
            break;
        case Op::kModifyBackground:
            if (twin)
                cp::CopyModifyBackground(args, c.flip, s);
            else
                got = VP::CopyRGB32_ModifyBackground(&in, &out, &c.inF, &c.outF, flip, rect, level);
            want = 1;
            break;
        case Op::kAlphaRgb:
            if (twin)
                cp::AdjustAlphaRgb(args, c.value, c.scale, s);
            else
                got = VP::AdjustAlphaLevelRGB(&in, &out, &c.inF, &c.outF, c.value, c.scale, rect,
                                              level);
            want = 1;
            break;
        case Op::kAlphaAi44:
            if (twin)
                cp::AdjustAlphaAi44(args, c.value, c.scale, s);
            else
                got = VP::AdjustAlphaLevelYUV(&in, &out, &c.inF, &c.outF, c.value, c.scale, rect,
                                              level);
            want = 1;
            break;
    }
    if (!twin) {
        EXPECT_EQ(got, want);
    }
}

class CompositeOps : public ::testing::TestWithParam<Param> {};

TEST_P(CompositeOps, EveryLevelMatchesTheScalarTwins) {
    const Param param = GetParam();
    ncbtest::KernelFamily<OpCase> family{
        .name = ParamName(param),
        .make = [param](CaseRandom& r) { return MakeCase(r, param); },
        .twin = [](OpCase& c) { RunOp(c, 0, true); },
        .atLevel = [](OpCase& c, int level) { RunOp(c, level, false); },
    };
    ncbtest::CheckAllLevels(family, {.cases = 40});
}

std::vector<Param> Params() {
    std::vector<Param> p;
    for (int code : {257, 258, 259, 260}) {
        p.push_back({Op::kBlendRgb, code, code});
        p.push_back({Op::kFillRgb, code, code});
    }
    for (int code : {6, 8, 9, 10, 11, 12, 13, 14}) {
        p.push_back({Op::kBlendYuv, code, code});
        p.push_back({Op::kFillYuv, code, code});
    }
    p.push_back({Op::kNoRead, 260, 260});
    p.push_back({Op::kKeyNoRead, 260, 260});
    p.push_back({Op::kJustReadAlpha, 260, 260});
    p.push_back({Op::kAi44NoRead, 15, 260});
    for (int code : {14, 260, 16}) p.push_back({Op::kFromAi44, 15, code});
    p.push_back({Op::kModifyBackground, 260, 260});
    p.push_back({Op::kAlphaRgb, 260, 260});
    p.push_back({Op::kAlphaAi44, 15, 15});
    return p;
}

INSTANTIATE_TEST_SUITE_P(All, CompositeOps, ::testing::ValuesIn(Params()),
                         [](const auto& info) { return ParamName(info.param); });

}  // namespace

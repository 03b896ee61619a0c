// Plane arithmetic of the video descriptor: the documented worked examples,
// the allocation rule for every code, refusal of sizes that would overflow,
// and a property check that the planes of any descriptor tile its frame
// without overlapping or leaving it.
#include "base/video_format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "platform/kernel/fault.h"

namespace {

using ncb::PlaneSet;
using ncb::PlaneView;
using ncb::Region;
using ncb::VideoFormatInfo;

VideoFormatInfo Format(int code, int width, int height, int flags = 0) {
    VideoFormatInfo f;
    ncb::InitVideoFormat(&f, code, width, height);
    f.nFormatFlags = flags;
    return f;
}

// Offset of a view's first sample from the frame base.
ptrdiff_t At(const PlaneView& v, const uint8_t* base) { return v.data - base; }

// Every address under test lies inside this frame.
alignas(16) uint8_t g_frame[4096];
uint8_t* const kBase = g_frame;

TEST(VideoFormat, InitFillsAWholePictureDescriptor) {
    VideoFormatInfo f = Format(VIDEO_FORMAT_RGB24, 33, 17);
    EXPECT_EQ(f.nStructSize, 104);
    EXPECT_EQ(f.nCodecType, VIDEO_TYPE_RGB);
    EXPECT_EQ(f.nRectRight, 33);
    EXPECT_EQ(f.nRectBottom, 17);
    EXPECT_EQ(f.nDisplayWidth, 33);
    EXPECT_EQ(f.nPictureHeight, 17);
    EXPECT_EQ(Format(VIDEO_FORMAT_NV12, 2, 2).nCodecType, VIDEO_TYPE_YUV);
    EXPECT_EQ(Format(VIDEO_FORMAT_PNG, 2, 2).nCodecType, VIDEO_TYPE_PNG);
    EXPECT_EQ(Format(VIDEO_FORMAT_JPEG, 2, 2).nCodecType, VIDEO_TYPE_JPEG);
}

struct ChromaOrderCase {
    int code;
    int flags;
    ptrdiff_t u, v;
};

class ChromaOrder : public ::testing::TestWithParam<ChromaOrderCase> {};

// 7 x 5 picture, no padding: plane 0 is 35 bytes, each 4:2:0 chroma plane
// 3 x 2 = 6 bytes.
TEST_P(ChromaOrder, SevenByFive) {
    const ChromaOrderCase& c = GetParam();
    PlaneSet p;
    ASSERT_TRUE(ncb::GetPlanes(Format(c.code, 7, 5, c.flags), kBase, false, &p));
    ASSERT_EQ(p.count, 3);
    EXPECT_EQ(p.plane0.pitch, 7);
    EXPECT_EQ(p.u.width, 3);
    EXPECT_EQ(p.u.height, 2);
    EXPECT_EQ(p.u.pitch, 3);
    EXPECT_EQ(At(p.u, kBase), c.u);
    EXPECT_EQ(At(p.v, kBase), c.v);
}

INSTANTIATE_TEST_SUITE_P(
    Codes, ChromaOrder,
    ::testing::Values(ChromaOrderCase{VIDEO_FORMAT_YUV420, 0, 35, 41},
                      ChromaOrderCase{VIDEO_FORMAT_YUV420, FORMAT_FLAG_SWAPPED, 41, 35},
                      ChromaOrderCase{VIDEO_FORMAT_IYUV, 0, 35, 41},
                      ChromaOrderCase{VIDEO_FORMAT_IYUV, FORMAT_FLAG_SWAPPED, 35, 41},
                      ChromaOrderCase{VIDEO_FORMAT_I420, FORMAT_FLAG_SWAPPED, 35, 41},
                      ChromaOrderCase{VIDEO_FORMAT_YV12, 0, 41, 35},
                      ChromaOrderCase{VIDEO_FORMAT_YV12, FORMAT_FLAG_SWAPPED, 41, 35}));

TEST(VideoFormatPlanes, SwappedFlagOrdersFullChromaCodes) {
    for (int code : {VIDEO_FORMAT_YUV422, VIDEO_FORMAT_YUV444}) {
        SCOPED_TRACE(code);
        PlaneSet plain, swapped;
        ASSERT_TRUE(ncb::GetPlanes(Format(code, 8, 4), kBase, false, &plain));
        ASSERT_TRUE(
            ncb::GetPlanes(Format(code, 8, 4, FORMAT_FLAG_SWAPPED), kBase, false, &swapped));
        EXPECT_EQ(plain.u.data, swapped.v.data);
        EXPECT_EQ(plain.v.data, swapped.u.data);
        EXPECT_LT(plain.u.data, plain.v.data);
    }
    // 4:4:0 ignores the flag.
    PlaneSet p;
    ASSERT_TRUE(
        ncb::GetPlanes(Format(VIDEO_FORMAT_YUV440, 8, 4, FORMAT_FLAG_SWAPPED), kBase, false, &p));
    EXPECT_EQ(At(p.u, kBase), 32);
    EXPECT_EQ(At(p.v, kBase), 32 + 16);
}

TEST(VideoFormatPlanes, BottomUpRgbStartsAtTheLastRow) {
    VideoFormatInfo f = Format(VIDEO_FORMAT_RGB32, 6, 10, FORMAT_FLAG_SWAPPED);
    PlaneSet p;
    ASSERT_TRUE(ncb::GetPlanes(f, kBase, false, &p));
    EXPECT_EQ(p.count, 1);
    EXPECT_EQ(At(p.plane0, kBase), 9 * 24);  // picture row 0 is memory row 9
    EXPECT_EQ(p.plane0.pitch, -24);

    f.nRectLeft = 1;
    f.nRectRight = 3;
    f.nRectTop = 2;
    f.nRectBottom = 5;
    ASSERT_TRUE(ncb::GetPlanes(f, kBase, true, &p));
    EXPECT_EQ(At(p.plane0, kBase), 7 * 24 + 4);  // picture row 2 is memory row 7
    EXPECT_EQ(p.plane0.width, 2);
    EXPECT_EQ(p.plane0.height, 3);

    // The flag means nothing to the packed YUV codes.
    ASSERT_TRUE(
        ncb::GetPlanes(Format(VIDEO_FORMAT_AYUV, 6, 10, FORMAT_FLAG_SWAPPED), kBase, false, &p));
    EXPECT_EQ(At(p.plane0, kBase), 0);
    EXPECT_EQ(p.plane0.pitch, 24);
}

TEST(VideoFormatPlanes, RectangleShiftsTheChromaOrigin) {
    VideoFormatInfo f = Format(VIDEO_FORMAT_YUV420, 16, 12);
    f.nRectLeft = 2;
    f.nRectRight = 6;
    f.nRectTop = 4;
    f.nRectBottom = 8;
    PlaneSet p;
    ASSERT_TRUE(ncb::GetPlanes(f, kBase, true, &p));
    EXPECT_EQ(At(p.plane0, kBase), 4 * 16 + 2);
    EXPECT_EQ(p.plane0.width, 4);
    EXPECT_EQ(p.plane0.height, 4);
    const ptrdiff_t uPlane = 16 * 12;
    EXPECT_EQ(At(p.u, kBase), uPlane + 2 * 8 + 1);  // chroma sample (1, 2)
    EXPECT_EQ(At(p.v, kBase), uPlane + 8 * 6 + 2 * 8 + 1);
    EXPECT_EQ(p.u.width, 2);
    EXPECT_EQ(p.u.height, 2);

    // Without the flag the whole picture is the work area.
    ASSERT_TRUE(ncb::GetPlanes(f, kBase, false, &p));
    EXPECT_EQ(At(p.plane0, kBase), 0);
    EXPECT_EQ(p.plane0.width, 16);
}

TEST(VideoFormatPlanes, PaddingMovesEveryPlane) {
    VideoFormatInfo f = Format(VIDEO_FORMAT_YUV422, 10, 4);
    f.nPadLeft = 3;
    f.nPadRight = 5;
    f.nPadTop = 2;
    f.nPadBottom = 1;
    f.nChromaPadLeft = 1;
    f.nChromaPadRight = 2;
    f.nChromaPadTop = 1;
    f.nChromaPadBottom = 3;
    ncb::FrameLayout fl;
    ASSERT_TRUE(ncb::GetFrameLayout(f, &fl));
    EXPECT_EQ(fl.pitch0, 18);
    EXPECT_EQ(fl.rows0, 7);
    EXPECT_EQ(fl.chromaPitch, 8);
    EXPECT_EQ(fl.chromaRows, 8);
    EXPECT_EQ(fl.uPlane, 126);
    EXPECT_EQ(fl.vPlane, 126 + 64);
    EXPECT_EQ(fl.totalBytes, 126 + 128);
    PlaneSet p;
    ASSERT_TRUE(ncb::GetPlanes(f, kBase, false, &p));
    EXPECT_EQ(At(p.plane0, kBase), 2 * 18 + 3);
    EXPECT_EQ(At(p.u, kBase), 126 + 8 + 1);
}

TEST(VideoFormatPlanes, Nv12HasOnePlaneOfPairs) {
    VideoFormatInfo f = Format(VIDEO_FORMAT_NV12, 10, 6);
    f.nChromaPadRight = 4;
    f.nRectLeft = 3;
    f.nRectRight = 9;
    f.nRectTop = 2;
    f.nRectBottom = 6;
    PlaneSet p;
    ASSERT_TRUE(ncb::GetPlanes(f, kBase, true, &p));
    EXPECT_EQ(p.count, 2);
    EXPECT_EQ(p.v.data, nullptr);
    EXPECT_EQ(p.u.pitch, 14);
    // The column offset is the rectangle's left edge in bytes, not halved.
    EXPECT_EQ(At(p.u, kBase), 60 + 1 * 14 + 3);
    EXPECT_EQ(p.u.width, 3);  // pairs
    EXPECT_EQ(p.u.height, 2);
}

TEST(VideoFormatPlanes, OutputTakesItsOriginButTheInputSize) {
    VideoFormatInfo in = Format(VIDEO_FORMAT_RGB32, 20, 20);
    in.nRectLeft = 4;
    in.nRectRight = 9;
    in.nRectTop = 1;
    in.nRectBottom = 3;
    VideoFormatInfo out = Format(VIDEO_FORMAT_RGB32, 20, 20);
    out.nRectLeft = 10;
    out.nRectTop = 7;
    Region r;
    ASSERT_TRUE(ncb::ProcessingRegion(out, in, true, &r));
    EXPECT_EQ(r.left, 10);
    EXPECT_EQ(r.top, 7);
    EXPECT_EQ(r.width, 5);
    EXPECT_EQ(r.height, 2);
    ASSERT_TRUE(ncb::ProcessingRegion(out, in, false, &r));
    EXPECT_EQ(r.left, 0);
    EXPECT_EQ(r.width, 20);
}

TEST(VideoFormatPlanes, FlipRowsWalksFromTheLastRow) {
    PlaneView v{kBase, 32, 8, 4};
    PlaneView f = ncb::FlipRows(v);
    EXPECT_EQ(At(f, kBase), 96);
    EXPECT_EQ(f.pitch, -32);
    PlaneView back = ncb::FlipRows(f);
    EXPECT_EQ(back.data, kBase);
    EXPECT_EQ(back.pitch, 32);
}

struct RuleCase {
    int code;
    int padRight;
    int chromaPadRight;
    int size;
};

class AllocationRule : public ::testing::TestWithParam<RuleCase> {};

// 10 x 6 pictures: 10 bytes pad to 16 (6), 20 to 32 (12), 30 to 32 (2),
// 40 to 48 (8).
TEST_P(AllocationRule, TenBySix) {
    const RuleCase& c = GetParam();
    VideoFormatInfo f = Format(c.code, 10, 6);
    f.nPadLeft = f.nPadTop = f.nChromaPadBottom = 7;  // the rule clears these
    ASSERT_TRUE(ncb::ApplyAllocationRule(&f));
    EXPECT_EQ(f.nPadRight, c.padRight);
    EXPECT_EQ(f.nChromaPadRight, c.chromaPadRight);
    EXPECT_EQ(f.nPadLeft + f.nPadTop + f.nPadBottom, 0);
    EXPECT_EQ(f.nChromaPadLeft + f.nChromaPadTop + f.nChromaPadBottom, 0);
    int size = 0;
    ASSERT_TRUE(ncb::AllocationRuleSize(f, &size));
    EXPECT_EQ(size, c.size);
    ncb::FrameLayout fl;
    ASSERT_TRUE(ncb::GetFrameLayout(f, &fl));
    EXPECT_EQ(fl.pitch0 % 16, 0);
}

INSTANTIATE_TEST_SUITE_P(
    EveryCode, AllocationRule,
    ::testing::Values(
        RuleCase{VIDEO_FORMAT_Y800, 6, 0, 96}, RuleCase{VIDEO_FORMAT_YUV420, 6, 3, 144},
        RuleCase{VIDEO_FORMAT_YUV422, 6, 3, 192}, RuleCase{VIDEO_FORMAT_YUV444, 6, 6, 288},
        RuleCase{VIDEO_FORMAT_YUV440, 6, 0, 96}, RuleCase{VIDEO_FORMAT_IYUV, 6, 3, 144},
        RuleCase{VIDEO_FORMAT_I420, 6, 3, 144}, RuleCase{VIDEO_FORMAT_YV12, 6, 3, 144},
        RuleCase{VIDEO_FORMAT_NV12, 6, 6, 144}, RuleCase{VIDEO_FORMAT_YUY2, 12, 0, 192},
        RuleCase{VIDEO_FORMAT_YVYU, 12, 0, 192}, RuleCase{VIDEO_FORMAT_UYVY, 12, 0, 192},
        RuleCase{VIDEO_FORMAT_VYUY, 12, 0, 192}, RuleCase{VIDEO_FORMAT_AYUV, 8, 0, 288},
        RuleCase{VIDEO_FORMAT_AI44, 6, 0, 96}, RuleCase{VIDEO_FORMAT_IA44, 6, 0, 96},
        RuleCase{VIDEO_FORMAT_RGB555, 12, 0, 192}, RuleCase{VIDEO_FORMAT_RGB565, 12, 0, 192},
        RuleCase{VIDEO_FORMAT_RGB24, 2, 0, 192}, RuleCase{VIDEO_FORMAT_RGB32, 8, 0, 288}));

TEST(AllocationRuleEdges, Rgb24WidthTenPitchThirtyTwo) {
    VideoFormatInfo f = Format(VIDEO_FORMAT_RGB24, 10, 1);
    ASSERT_TRUE(ncb::ApplyAllocationRule(&f));
    EXPECT_EQ(f.nPadRight, 2);
    PlaneSet p;
    ASSERT_TRUE(ncb::GetPlanes(f, kBase, false, &p));
    EXPECT_EQ(p.plane0.pitch, 32);
    // An exact multiple of 16 needs no padding.
    VideoFormatInfo g = Format(VIDEO_FORMAT_RGB32, 4, 1);
    ASSERT_TRUE(ncb::ApplyAllocationRule(&g));
    EXPECT_EQ(g.nPadRight, 0);
}

TEST(AllocationRuleEdges, CompressedCodesHaveNoPlanes) {
    for (int code : {VIDEO_FORMAT_JPEG, VIDEO_FORMAT_GIF, VIDEO_FORMAT_PNG, 0, 17, 261}) {
        VideoFormatInfo f = Format(code, 16, 16);
        const VideoFormatInfo before = f;
        PlaneSet p;
        int size;
        EXPECT_FALSE(ncb::ApplyAllocationRule(&f)) << code;
        EXPECT_EQ(std::memcmp(&f, &before, sizeof f), 0);
        EXPECT_FALSE(ncb::GetPlanes(f, kBase, false, &p)) << code;
        EXPECT_FALSE(ncb::AllocationRuleSize(f, &size)) << code;
        EXPECT_EQ(ncb::Bpp0(code), 0);
    }
}

// The rule's size holds the whole frame for every code it is used for, at
// every small size, odd ones included.
TEST(AllocationRuleEdges, RuleSizeCoversTheFrame) {
    for (int code : {1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 257, 258, 259, 260}) {
        for (int w = 1; w <= 40; ++w) {
            for (int h = 1; h <= 9; ++h) {
                VideoFormatInfo f = Format(code, w, h);
                ASSERT_TRUE(ncb::ApplyAllocationRule(&f));
                int size;
                ncb::FrameLayout fl;
                ASSERT_TRUE(ncb::AllocationRuleSize(f, &size));
                ASSERT_TRUE(ncb::GetFrameLayout(f, &fl));
                ASSERT_LE(fl.totalBytes, size) << code << " " << w << "x" << h;
            }
        }
    }
}

struct RefusalCase {
    const char* name;
    int code, width, height;
    int32_t VideoFormatInfo::*word;
    int32_t value;
    bool ruleRefuses;  // the allocation rule rewrites paddings, so only size faults stay
};

class Refusal : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(Refusal, NoAddressesForImpossibleFrames) {
    const RefusalCase& c = GetParam();
    VideoFormatInfo f = Format(c.code, c.width, c.height);
    if (c.word) f.*c.word = c.value;
    PlaneSet p;
    ncb::FrameLayout fl;
    EXPECT_FALSE(ncb::GetFrameLayout(f, &fl));
    EXPECT_FALSE(ncb::GetPlanes(f, kBase, false, &p));
    EXPECT_EQ(ncb::ApplyAllocationRule(&f), !c.ruleRefuses);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Refusal,
    ::testing::Values(
        RefusalCase{"WidthTimesBppOverflows", VIDEO_FORMAT_RGB32, INT_MAX, 1, nullptr, 0, true},
        RefusalCase{"FrameBeyondInt", VIDEO_FORMAT_RGB32, 65536, 65536, nullptr, 0, true},
        RefusalCase{"ChromaPushesPastInt", VIDEO_FORMAT_YUV444, 40000, 20000, nullptr, 0, true},
        RefusalCase{"NegativeWidth", VIDEO_FORMAT_YUV420, -2, 4, nullptr, 0, true},
        RefusalCase{"NegativeHeight", VIDEO_FORMAT_RGB24, 4, -1, nullptr, 0, true},
        RefusalCase{"NegativePad", VIDEO_FORMAT_Y800, 4, 4, &VideoFormatInfo::nPadLeft, -1, false},
        RefusalCase{"NegativeChromaPad", VIDEO_FORMAT_NV12, 4, 4, &VideoFormatInfo::nChromaPadTop,
                    -8, false},
        RefusalCase{"HugePadding", VIDEO_FORMAT_YUV420, 4, 4, &VideoFormatInfo::nChromaPadRight,
                    INT_MAX, false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RegionRefusal, RectangleOutsideThePicture) {
    VideoFormatInfo f = Format(VIDEO_FORMAT_RGB32, 8, 8);
    PlaneSet p;
    auto planesWithRect = [&](int l, int r, int t, int b) {
        f.nRectLeft = l;
        f.nRectRight = r;
        f.nRectTop = t;
        f.nRectBottom = b;
        return ncb::GetPlanes(f, kBase, true, &p);
    };
    EXPECT_TRUE(planesWithRect(0, 8, 0, 8));
    EXPECT_TRUE(planesWithRect(8, 8, 8, 8));  // empty is fine
    EXPECT_FALSE(planesWithRect(1, 9, 0, 8));
    EXPECT_FALSE(planesWithRect(0, 8, 2, 9));
    EXPECT_FALSE(planesWithRect(-1, 3, 0, 2));
    EXPECT_FALSE(planesWithRect(5, 4, 0, 2));  // inverted
    EXPECT_FALSE(planesWithRect(INT_MIN, INT_MAX, 0, 1));
    // An output origin that pushes the input's size past the output picture.
    VideoFormatInfo in = Format(VIDEO_FORMAT_RGB32, 8, 8);
    f.nRectLeft = 4;
    f.nRectTop = 0;
    Region r;
    ASSERT_TRUE(ncb::ProcessingRegion(f, in, true, &r));
    EXPECT_FALSE(ncb::GetPlanes(f, kBase, r, &p));
}

// Marks every sample of every view of a frame: no byte may be hit twice or
// lie outside the frame, and the padding must stay unmarked.
void ExpectPlanesTileTheFrame(const VideoFormatInfo& f) {
    ncb::FrameLayout fl;
    ASSERT_TRUE(ncb::GetFrameLayout(f, &fl));
    std::vector<uint8_t> hits(static_cast<size_t>(fl.totalBytes));
    PlaneSet p;
    ASSERT_TRUE(ncb::GetPlanes(f, hits.data(), false, &p));
    const int bpp = ncb::Bpp0(f.nCodecSubType);
    int64_t marked = 0;
    auto mark = [&](const PlaneView& v, int bytesPerSample) {
        for (int y = 0; y < v.height; ++y) {
            for (int x = 0; x < v.width * bytesPerSample; ++x) {
                const ptrdiff_t at = v.data - hits.data() + y * v.pitch + x;
                ASSERT_GE(at, 0);
                ASSERT_LT(at, fl.totalBytes);
                ASSERT_EQ(hits[at]++, 0) << "overlap at " << at;
                ++marked;
            }
        }
    };
    mark(p.plane0, bpp);
    if (p.count >= 2) mark(p.u, fl.format.pairs ? 2 : 1);
    if (p.count == 3) mark(p.v, 1);
    int64_t expected = int64_t{f.nWidth} * f.nHeight * bpp;
    if (fl.format.chromaPlanes == 2) expected += 2 * int64_t{fl.chromaWidth} * fl.chromaHeight;
    if (fl.format.pairs) expected += 2 * int64_t{fl.chromaWidth} * fl.chromaHeight;
    EXPECT_EQ(marked, expected);
}

TEST(VideoFormatProperty, PlanesTileTheFrame) {
    std::mt19937 rng(20240531);
    std::printf("seed 20240531\n");
    const int codes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 257, 258, 259, 260};
    std::uniform_int_distribution<int> size(0, 37), pad(0, 9), flag(0, 1);
    for (int round = 0; round < 400; ++round) {
        const int code = codes[round % std::size(codes)];
        VideoFormatInfo f = Format(code, size(rng), size(rng), flag(rng) * FORMAT_FLAG_SWAPPED);
        f.nPadLeft = pad(rng);
        f.nPadRight = pad(rng);
        f.nPadTop = pad(rng);
        f.nPadBottom = pad(rng);
        f.nChromaPadLeft = pad(rng);
        f.nChromaPadRight = pad(rng);
        f.nChromaPadTop = pad(rng);
        f.nChromaPadBottom = pad(rng);
        SCOPED_TRACE(testing::Message() << "code " << code << " " << f.nWidth << "x" << f.nHeight);
        ExpectPlanesTileTheFrame(f);
        if (HasFatalFailure()) return;
    }
}

TEST(AllocateFrame, GivesAnAlignedBufferThatHoldsEveryPlane) {
    CNCodecBuffer* buffer = CNCodecBuffer::CreateBuffer();
    ASSERT_NE(buffer, nullptr);
    for (int code : {VIDEO_FORMAT_NV12, VIDEO_FORMAT_YUV420, VIDEO_FORMAT_RGB24, 5}) {
        VideoFormatInfo f = Format(code, 37, 21);
        uint8_t* data = ncb::AllocateFrame(buffer, &f);
        ASSERT_NE(data, nullptr) << code;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % 16, 0u);
        EXPECT_EQ(data, buffer->GetAddress());
        ncb::FrameLayout fl;
        ASSERT_TRUE(ncb::GetFrameLayout(f, &fl));
        EXPECT_GE(buffer->GetDataSize(), fl.totalBytes);
        EXPECT_EQ(fl.pitch0 % 16, 0);
        // Touch every plane's last sample; the sanitizer build catches overruns.
        PlaneSet p;
        ASSERT_TRUE(ncb::GetPlanes(f, data, false, &p));
        for (const PlaneView* v : {&p.plane0, &p.u, &p.v}) {
            if (!v->data || v->height == 0) continue;
            v->data[(v->height - 1) * v->pitch + v->width - 1] = 0xA5;
        }
    }
    buffer->Release();
}

TEST(AllocateFrame, FailsSoftly) {
    CNCodecBuffer* buffer = CNCodecBuffer::CreateBuffer();
    ASSERT_NE(buffer, nullptr);
    VideoFormatInfo f = Format(VIDEO_FORMAT_RGB32, 64, 64);
    const VideoFormatInfo before = f;
    {
        nplat::fault::Scope failHeap(nplat::fault::Kind::kHeap, 0, 100);
        EXPECT_EQ(ncb::AllocateFrame(buffer, &f), nullptr);
    }
    EXPECT_EQ(std::memcmp(&f, &before, sizeof f), 0);
    VideoFormatInfo jpeg = Format(VIDEO_FORMAT_JPEG, 64, 64);
    EXPECT_EQ(ncb::AllocateFrame(buffer, &jpeg), nullptr);
    EXPECT_EQ(ncb::AllocateFrame(nullptr, &f), nullptr);
    buffer->Release();
}

}  // namespace

// Scene model of the video render: configuration defaults, buffers and their
// ids, frame kind and format checks, source-rectangle alignment, format
// normalisation, reference counting, texts, and allocation failures inside
// the lists.
#include <climits>

#include "platform/kernel/fault.h"
#include "tests/render/video/video_render_harness.h"

namespace ncbtest::render_video {
namespace {

using nplat::RECT;

TEST(VideoRenderConfigTest, InitWritesDefaultsAndSetConfigCopiesEveryWord) {
    CNVideoRender r;
    ASSERT_EQ(r.Init(), 1);
    EXPECT_EQ(r.GetExtendErrorCode(), 0);
    CNVideoRender::ConfigInfoTag c;
    ASSERT_EQ(r.GetConfig(&c), 1);
    EXPECT_EQ(c.nSize, 64u);
    EXPECT_EQ(c.uRenderFlags, 0x18Fu);
    EXPECT_EQ(c.nFrameRate, 60u);
    EXPECT_EQ(c.nRetryClosedMs, 1000u);
    EXPECT_EQ(c.nRetryMs, 50u);
    EXPECT_EQ(c.nCacheAgeSeconds, 3u);
    EXPECT_EQ(c.nCacheByteLimit, 0u);
    for (uint32_t f : c.uFormatFlags) EXPECT_EQ(f, 31u);
    EXPECT_EQ(c.uOverlayColorKey, 0x100010u);

    CNVideoRender::StatInfoTag s;
    ASSERT_EQ(r.GetStatInfo(&s), 1);
    EXPECT_EQ(s.nSize, 72u);
    EXPECT_EQ(s.nStatus, 0u);
    EXPECT_EQ(s.uPresentRateAverage, 0u);  // no whole second counted yet
    EXPECT_EQ(s.uRenderRateAverage, 0u);

    // Every word travels, also ones the render would never write itself.
    uint32_t words[16];
    for (int i = 0; i < 16; ++i) words[i] = 0x1000u + static_cast<uint32_t>(i);
    CNVideoRender::ConfigInfoTag set;
    std::memcpy(&set, words, sizeof(set));
    EXPECT_EQ(r.SetConfig(&set), 1);  // also when not open
    ASSERT_EQ(r.GetConfig(&c), 1);
    EXPECT_EQ(std::memcmp(&c, words, sizeof(c)), 0);
    EXPECT_EQ(r.ResetStatInfo(), 1);
    EXPECT_EQ(r.ClearStatErrorCode(), 1);
}

using BufferTest = RenderTest;

TEST_F(BufferTest, IdsAreUniqueAndMinusOneIsNeverABuffer) {
    EXPECT_EQ(render.CreateOffScreenBuffer(7, 64, 48, 0, 0, 0, 0, 0, 0), 1);
    EXPECT_EQ(render.CreateOffScreenBuffer(7, 64, 48, 0, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(render.CreateOffScreenBuffer(-1, 64, 48, 0, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(render.CreateOffScreenBuffer(SHRT_MAX + 1, 64, 48, 0, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(render.GetExtendErrorCode(), 0);
    EXPECT_EQ(render.IsOffScreenBufferExisting(7), 1);
    EXPECT_EQ(render.IsOffScreenBufferExisting(8), 0);

    int w, h, bw, bh, x, y;
    unsigned flags, colour;
    ASSERT_EQ(render.CreateOffScreenBuffer(9, 10, 20, 30, 40, 5, 6, 0x7FFF0103, 0x123456), 1);
    ASSERT_EQ(render.GetOffScreenBufferInfo(9, &w, &h, &bw, &bh, &x, &y, &flags, &colour), 1);
    EXPECT_EQ(w, 10);
    EXPECT_EQ(h, 20);
    EXPECT_EQ(bw, 30);
    EXPECT_EQ(bh, 40);
    EXPECT_EQ(x, 5);
    EXPECT_EQ(y, 6);
    EXPECT_EQ(flags, 0x0103u);  // the low 16 bits only
    EXPECT_EQ(colour, 0x123456u);
    EXPECT_EQ(render.GetOffScreenBufferInfo(9, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                            nullptr, nullptr),
              1);

    // Config replaces bits 8-15 and marks both change flags.
    ASSERT_EQ(render.ConfigOffScreenBuffer(9, 11, 21, 30, 40, 0, 0, 0xFFFF0A01), 1);
    ASSERT_EQ(render.GetOffScreenBufferInfo(9, &w, nullptr, nullptr, nullptr, nullptr, nullptr,
                                            &flags, nullptr),
              1);
    EXPECT_EQ(w, 11);
    EXPECT_EQ(flags, 0x0A03u | 0x80000u | 0x100000u);
}

TEST_F(BufferTest, CurrentDisplayBufferFollowsDestruction) {
    for (int id : {1, 2, 3}) ASSERT_EQ(render.CreateOffScreenBuffer(id, 8, 8, 0, 0, 0, 0, 0, 0), 1);
    int current = 0;
    ASSERT_EQ(render.GetCurrentDisplayBuffer(&current), 1);
    EXPECT_EQ(current, -1);
    EXPECT_EQ(render.SetCurrentDisplayBuffer(4), 0);
    ASSERT_EQ(render.SetCurrentDisplayBuffer(3), 1);
    // Destroying a buffer in front of the current one keeps the same buffer current.
    ASSERT_EQ(render.DestroyOffScreenBuffer(1), 1);
    ASSERT_EQ(render.GetCurrentDisplayBuffer(&current), 1);
    EXPECT_EQ(current, 3);
    ASSERT_EQ(render.DestroyOffScreenBuffer(3), 1);
    ASSERT_EQ(render.GetCurrentDisplayBuffer(&current), 1);
    EXPECT_EQ(current, -1);
    EXPECT_EQ(render.DestroyOffScreenBuffer(3), 0);
    ASSERT_EQ(render.SetCurrentDisplayBuffer(2), 1);
    ASSERT_EQ(render.SetCurrentDisplayBuffer(-1), 1);
    ASSERT_EQ(render.GetCurrentDisplayBuffer(&current), 1);
    EXPECT_EQ(current, -1);
}

TEST_F(BufferTest, LockCountsAndRefusesAnUnbalancedUnlock) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 8, 8, 0, 0, 0, 0, 0, 0), 1);
    unsigned flags;
    auto locked = [&] {
        render.GetOffScreenBufferInfo(1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      &flags, nullptr);
        return (flags & 0x10000u) != 0;
    };
    EXPECT_EQ(render.UnlockOffScreenBuffer(1), 0);
    ASSERT_EQ(render.LockOffScreenBuffer(1), 1);
    ASSERT_EQ(render.LockOffScreenBuffer(1), 1);
    EXPECT_TRUE(locked());
    Picture out;
    EXPECT_EQ(render.RenderToMemory(1, &out.format, &out.buffer, 0), 0);
    EXPECT_EQ(out.buffer, nullptr);
    ASSERT_EQ(render.UnlockOffScreenBuffer(1), 1);
    EXPECT_TRUE(locked());
    ASSERT_EQ(render.UnlockOffScreenBuffer(1), 1);
    EXPECT_FALSE(locked());
    Compose(1, &out);
}

// ---- Frame kind and format checks ----

struct KindCase {
    const char* name;
    unsigned flags;
    int frameId;
    unsigned alpha;
    int type;
    int subType;
    int accepted;
};

class FrameKindTest : public RenderTest, public ::testing::WithParamInterface<KindCase> {};

TEST_P(FrameKindTest, AddFrameAcceptsOnlyDrawableKinds) {
    const KindCase& c = GetParam();
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 64, 0, 0, 0, 0, 0, 0), 1);
    Picture p;
    // Contents do not matter: nothing is composed.
    Allocate(&p, VIDEO_FORMAT_RGB32, 16, 16);
    p.format.nCodecType = c.type;
    p.format.nCodecSubType = c.subType;
    EXPECT_EQ(render.AddFrame(1, c.frameId, 0, &p.format, p.buffer, nullptr, nullptr, c.flags, 0,
                              c.alpha, nullptr),
              c.accepted);
    EXPECT_EQ(render.IsFrameExisting(1, c.frameId, 0), c.accepted);
    EXPECT_EQ(p.buffer->GetRefCount(), 1 + c.accepted);
    EXPECT_EQ(render.GetExtendErrorCode(), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, FrameKindTest,
                         ::testing::Values(KindCase{"MainOpaque", 0x1, 0, 255, 0, 2, 1},
                                           KindCase{"MainTranslucent", 0x1, 0, 128, 0, 2, 0},
                                           KindCase{"SubTranslucent", 0x1, 3, 128, 0, 2, 1},
                                           KindCase{"VideoRgb555", 0x1, 3, 255, 256, 257, 1},
                                           KindCase{"VideoRgbOutOfRange", 0x1, 3, 255, 256, 261, 0},
                                           KindCase{"Video440", 0x1, 3, 255, 0, 5, 0},
                                           KindCase{"VideoAi44", 0x1, 3, 255, 0, 15, 0},
                                           KindCase{"VideoJpeg", 0x1, 3, 255, 512, 513, 0},
                                           KindCase{"TextAi44", 0x2, 3, 255, 0, 15, 1},
                                           KindCase{"TextIdZero", 0x2, 0, 255, 0, 15, 0},
                                           KindCase{"TextRgb32", 0x2, 3, 255, 256, 260, 0},
                                           KindCase{"BitmapAyuv", 0x4, 3, 255, 0, 14, 1},
                                           KindCase{"BitmapRgb32", 0x4, 3, 255, 256, 260, 1},
                                           KindCase{"BitmapIdZero", 0x4, 0, 255, 256, 260, 0},
                                           KindCase{"BitmapYuv420", 0x4, 3, 255, 0, 2, 0},
                                           KindCase{"TextBeforeBitmap", 0x6, 3, 255, 256, 260, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- Source rectangle alignment ----

struct AlignCase {
    const char* name;
    int subType;
    unsigned flags;
    RECT src;
    RECT expected;  // as GetFrameInfo returns it
    bool empty;
};

class FrameAlignTest : public RenderTest, public ::testing::WithParamInterface<AlignCase> {};

TEST_P(FrameAlignTest, SourceIsAlignedToTheChromaGrid) {
    const AlignCase& c = GetParam();
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 64, 0, 0, 0, 0, 0, 0), 1);
    Picture p;
    Allocate(&p, c.subType, 16, 16);
    RECT src = c.src, dst = {0, 0, 64, 64};
    ASSERT_EQ(
        render.AddFrame(1, 2, 0, &p.format, p.buffer, &src, &dst, 0x1 | c.flags, 0, 255, nullptr),
        1);
    RECT got;
    unsigned flags;
    ASSERT_EQ(render.GetFrameInfo(1, 2, 0, nullptr, nullptr, &got, nullptr, &flags, nullptr,
                                  nullptr, nullptr),
              1);
    EXPECT_EQ(got.left, c.expected.left);
    EXPECT_EQ(got.top, c.expected.top);
    EXPECT_EQ(got.right, c.expected.right);
    EXPECT_EQ(got.bottom, c.expected.bottom);
    EXPECT_EQ((flags & 0x100u) != 0, c.empty);

    // ConfigFrame aligns again, taking 0x4000 from its own flags.
    ASSERT_EQ(render.ConfigFrame(1, 2, &src, &dst, c.flags ^ 0x4000, 0, 255, nullptr), 1);
    ASSERT_EQ(render.ConfigFrame(1, 2, &src, &dst, c.flags, 0, 255, nullptr), 1);
    ASSERT_EQ(render.GetFrameInfo(1, 2, 0, nullptr, nullptr, &got, nullptr, nullptr, nullptr,
                                  nullptr, nullptr),
              1);
    EXPECT_EQ(got.top, c.expected.top);
    EXPECT_EQ(got.bottom, c.expected.bottom);
}

INSTANTIATE_TEST_SUITE_P(
    Alignments, FrameAlignTest,
    ::testing::Values(AlignCase{"Yuv420", 2, 0, {1, 1, 9, 9}, {2, 2, 8, 8}, false},
                      AlignCase{"Yuv420Deinterlaced", 2, 0x4000, {1, 1, 9, 9}, {2, 4, 8, 8}, false},
                      AlignCase{"Nv12", 9, 0, {3, 3, 7, 7}, {4, 4, 6, 6}, false},
                      AlignCase{"Yuv422", 3, 0, {1, 1, 9, 9}, {2, 1, 8, 9}, false},
                      AlignCase{"Yuv422Deinterlaced", 3, 0x4000, {1, 1, 9, 9}, {2, 2, 8, 8}, false},
                      AlignCase{"Yuy2", 10, 0, {1, 1, 9, 9}, {2, 1, 8, 9}, false},
                      AlignCase{"Yuv444", 4, 0, {1, 1, 9, 9}, {1, 1, 9, 9}, false},
                      AlignCase{"Y800Deinterlaced", 1, 0x4000, {1, 1, 9, 9}, {1, 2, 9, 8}, false},
                      AlignCase{"Rgb32", 260, 0x4000, {1, 1, 9, 9}, {1, 1, 9, 9}, false},
                      AlignCase{"Yuv420AlignsToNothing", 2, 0, {1, 0, 2, 8}, {2, 0, 2, 8}, true},
                      AlignCase{
                          "Yuv420DeinterlacedRows", 2, 0x4000, {0, 5, 8, 7}, {0, 8, 8, 4}, true}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- Normalisation and what GetFrameInfo reports ----

TEST_F(RenderTest, PlanarYuvCodesAreStoredAsYuv420) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 64, 0, 0, 0, 0, 0, 0), 1);
    const int codes[] = {VIDEO_FORMAT_YV12, VIDEO_FORMAT_IYUV, VIDEO_FORMAT_I420};
    for (int i = 0; i < 3; ++i) {
        Picture p;
        Allocate(&p, codes[i], 16, 16);
        ASSERT_EQ(render.AddFrame(1, i + 1, 0, &p.format, p.buffer, nullptr, nullptr, 0x1, 0, 255,
                                  nullptr),
                  1);
        Format got;
        ASSERT_EQ(render.GetFrameInfo(1, i + 1, 0, &got, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr),
                  1);
        EXPECT_EQ(got.nCodecSubType, VIDEO_FORMAT_YUV420);
        EXPECT_EQ((got.nFormatFlags & FORMAT_FLAG_SWAPPED) != 0, codes[i] == VIDEO_FORMAT_YV12);
    }
}

TEST_F(RenderTest, FrameInfoGivesBackWhatAddFrameTook) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 64, 0, 0, 0, 0, 0, 0), 1);
    Picture p;
    Allocate(&p, VIDEO_FORMAT_RGB32, 40, 30);
    p.format.nRectLeft = 10;  // the origin: src is relative to it
    p.format.nRectTop = 5;
    RECT src = {1, 2, 11, 12}, dst = {-5, 3, 60, 70};
    CNVideoProcessor::ConvertConfigTag convert = {0, 0, 128, 128, 9, 0, 0, 300, 256, 256, 255};
    ASSERT_EQ(render.AddFrame(1, 4, 0, &p.format, p.buffer, &src, &dst, 0x4 | 0x200 | 0x10,
                              0xABCDEF, 200, &convert),
              1);
    Format f;
    CNCodecBuffer* data = nullptr;
    RECT s, d;
    unsigned flags, key, alpha;
    CNVideoProcessor::ConvertConfigTag c;
    ASSERT_EQ(render.GetFrameInfo(1, 4, 0, &f, &data, &s, &d, &flags, &key, &alpha, &c), 1);
    EXPECT_EQ(data, p.buffer);
    EXPECT_EQ(p.buffer->GetRefCount(), 3);  // ours, the render's, and the one handed out
    data->Release();
    EXPECT_EQ(f.nRectLeft, 11);  // stored in buffer coordinates
    EXPECT_EQ(f.nRectBottom, 17);
    EXPECT_EQ(s.left, 1);
    EXPECT_EQ(s.top, 2);
    EXPECT_EQ(s.right, 11);
    EXPECT_EQ(s.bottom, 12);
    EXPECT_EQ(d.left, -5);
    EXPECT_EQ(d.bottom, 70);
    EXPECT_EQ(flags, 0x214u);
    EXPECT_EQ(key, 0xABCDEFu);
    EXPECT_EQ(alpha, 200u);
    EXPECT_EQ(c.nOffsetY, 9);
    EXPECT_EQ(c.nGainY, 300);
    EXPECT_EQ(c.nAlpha, 200);  // the last word carries the frame's alpha

    // The main frame's alpha is checked by AddFrame only.
    ASSERT_EQ(render.AddFrame(1, 0, 0, &p.format, p.buffer, nullptr, nullptr, 0x1, 0, 255, nullptr),
              1);
    EXPECT_EQ(render.ConfigFrame(1, 0, nullptr, nullptr, 0, 0, 128, nullptr), 1);
    ASSERT_EQ(render.RemoveFrame(1, 0, 0, 0), 1);

    // A null conversion stores the neutral settings.
    ASSERT_EQ(render.ConfigFrame(1, 4, nullptr, nullptr, 0, 0, 77, nullptr), 1);
    ASSERT_EQ(
        render.GetFrameInfo(1, 4, 0, nullptr, nullptr, &s, nullptr, &flags, nullptr, &alpha, &c),
        1);
    EXPECT_EQ(c.nFixedU, 128);
    EXPECT_EQ(c.nGainV, 256);
    EXPECT_EQ(c.nAlpha, 77);
    EXPECT_EQ(flags, 0x14u);      // bits 8-15 replaced
    EXPECT_EQ(s.right, 40 - 10);  // the whole rectangle from the origin

    // New data moves the reference; a removal gives it back.
    Picture q;
    Allocate(&q, VIDEO_FORMAT_RGB32, 40, 30);
    unsigned updateFlags = 0xC000;
    ASSERT_EQ(render.UpdateFrameData(1, 4, 0, q.buffer, &updateFlags), 1);
    EXPECT_EQ(p.buffer->GetRefCount(), 1);
    EXPECT_EQ(q.buffer->GetRefCount(), 2);
    ASSERT_EQ(render.GetFrameInfo(1, 4, 0, nullptr, nullptr, nullptr, nullptr, &flags, nullptr,
                                  nullptr, nullptr),
              1);
    EXPECT_EQ(flags, 0xC014u);
    ASSERT_EQ(render.RemoveFrame(1, 4, 0, 0), 1);
    EXPECT_EQ(q.buffer->GetRefCount(), 1);
    EXPECT_EQ(render.RemoveFrame(1, 4, 0, 0), 0);
    EXPECT_EQ(render.UpdateFrameData(1, 4, 0, q.buffer, nullptr), 0);
}

TEST_F(RenderTest, CloseReleasesEveryFramePicture) {
    Picture p;
    Allocate(&p, VIDEO_FORMAT_RGB32, 8, 8);
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 64, 0, 0, 0, 0, 0, 0), 1);
    ASSERT_EQ(render.CreateOffScreenBuffer(2, 64, 64, 64, 64, 0, 0, 0x1, 0), 1);
    ASSERT_EQ(render.AddFrame(1, 0, 0, &p.format, p.buffer, nullptr, nullptr, 0x1, 0, 255, nullptr),
              1);
    ASSERT_EQ(render.AddFrame(2, 0, 5, &p.format, p.buffer, nullptr, nullptr, 0x1, 0, 255, nullptr),
              1);
    ASSERT_EQ(render.AddFrame(2, 3, 0, &p.format, p.buffer, nullptr, nullptr, 0x4, 0, 255, nullptr),
              1);
    EXPECT_EQ(p.buffer->GetRefCount(), 4);
    render.Close();
    EXPECT_EQ(p.buffer->GetRefCount(), 1);
    EXPECT_EQ(render.IsOffScreenBufferExisting(1), 0);
}

TEST_F(RenderTest, BackgroundFramesAreNamedBySubId) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 32, 32, 32, 32, 0, 0, 0x1, 0), 1);
    Picture p;
    Allocate(&p, VIDEO_FORMAT_YUV420, 16, 16);
    RECT dst = {0, 0, 16, 16};
    ASSERT_EQ(render.AddFrame(1, 0, 7, &p.format, p.buffer, nullptr, &dst, 0x1, 0, 255, nullptr),
              1);
    EXPECT_EQ(render.AddFrame(1, 0, 7, &p.format, p.buffer, nullptr, &dst, 0x1, 0, 255, nullptr),
              0);
    // A background frame that aligns to nothing keeps no picture.
    RECT thin = {1, 0, 2, 16};
    ASSERT_EQ(render.AddFrame(1, 0, 8, &p.format, p.buffer, &thin, &dst, 0x1, 0, 255, nullptr), 1);
    EXPECT_EQ(p.buffer->GetRefCount(), 2);
    CNCodecBuffer* data = p.buffer;
    unsigned flags;
    ASSERT_EQ(render.GetFrameInfo(1, 0, 8, nullptr, &data, nullptr, nullptr, &flags, nullptr,
                                  nullptr, nullptr),
              1);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(flags & 0x100u, 0x100u);
    EXPECT_EQ(render.IsFrameExisting(1, 0, 7), 1);
    EXPECT_EQ(render.IsFrameExisting(1, 0, 9), 0);
    // Other frames are named by their id alone.
    ASSERT_EQ(render.AddFrame(1, 2, 1, &p.format, p.buffer, nullptr, &dst, 0x1, 0, 255, nullptr),
              1);
    EXPECT_EQ(render.IsFrameExisting(1, 2, 99), 1);
    EXPECT_EQ(render.AddFrame(1, 2, 2, &p.format, p.buffer, nullptr, &dst, 0x1, 0, 255, nullptr),
              0);
}

// ---- Texts ----

TEST_F(RenderTest, TextsHaveUniqueIdsAndBoundedLength) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 64, 0, 0, 0, 0, 0, 0), 1);
    unsigned char text[300];
    std::memset(text, 'a', sizeof(text));
    nplat::POINT at = {1, 2};
    EXPECT_EQ(render.AddText(1, 5, text, 256, 0x2, &at, nullptr), 1);
    EXPECT_EQ(render.AddText(1, 5, text, 3, 0x2, &at, nullptr), 0);
    EXPECT_EQ(render.AddText(1, 6, text, 257, 0x2, &at, nullptr), 0);
    EXPECT_EQ(render.AddText(1, 6, text, -1, 0x2, &at, nullptr), 0);
    EXPECT_EQ(render.AddText(2, 6, text, 3, 0x2, &at, nullptr), 0);
    EXPECT_EQ(render.IsTextExisting(1, 5), 1);
    EXPECT_EQ(render.IsTextExisting(1, 6), 0);
    EXPECT_EQ(render.RemoveText(1, 5), 1);
    EXPECT_EQ(render.RemoveText(1, 5), 0);
    EXPECT_EQ(render.IsTextExisting(1, 5), 0);
}

// ---- Allocation failures inside the lists ----

// Runs `step` with the n-th heap allocation failing, for n = 0, 1, ... until
// it succeeds without a fault; `check` runs after every failed attempt.
void EveryAllocationFails(const std::function<int()>& step, const std::function<void()>& check) {
    for (int skip = 0; skip < 64; ++skip) {
        int result;
        {
            nplat::fault::Scope fault(nplat::fault::Kind::kHeap, skip);
            result = step();
        }
        if (result) return;
        check();
    }
    ADD_FAILURE() << "never succeeded";
}

TEST_F(RenderTest, FailedInsertionsLeaveTheSceneUnchanged) {
    EveryAllocationFails(
        [&] { return render.CreateOffScreenBuffer(1, 64, 64, 64, 64, 0, 0, 0x1, 0); },
        [&] { EXPECT_EQ(render.IsOffScreenBufferExisting(1), 0); });
    Picture p;
    Allocate(&p, VIDEO_FORMAT_RGB32, 8, 8);
    for (int id = 1; id <= 12; ++id) {
        EveryAllocationFails(
            [&] {
                return render.AddFrame(1, id, 0, &p.format, p.buffer, nullptr, nullptr, 0x4, 0, 255,
                                       nullptr);
            },
            [&] {
                EXPECT_EQ(render.IsFrameExisting(1, id, 0), 0);
                EXPECT_EQ(p.buffer->GetRefCount(), id);
            });
    }
    unsigned char text[] = "hi";
    for (int id = 1; id <= 12; ++id)
        EveryAllocationFails([&] { return render.AddText(1, id, text, 2, 0x2, nullptr, nullptr); },
                             [&] { EXPECT_EQ(render.IsTextExisting(1, id), 0); });
    // A background that cannot grow leaves the buffer as it was.
    {
        nplat::fault::Scope fault(nplat::fault::Kind::kHeap, 0, 1000);
        EXPECT_EQ(render.ConfigOffScreenBuffer(1, 64, 64, 128, 128, 0, 0, 0), 0);
    }
    int bw = 0;
    render.GetOffScreenBufferInfo(1, nullptr, nullptr, &bw, nullptr, nullptr, nullptr, nullptr,
                                  nullptr);
    EXPECT_EQ(bw, 64);
}

}  // namespace
}  // namespace ncbtest::render_video

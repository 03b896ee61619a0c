// The layered render's scene model on the software device: lifecycle and
// configuration, the device support it insists on, suggested ids, the
// present lock, window changes, list rules (videos in use, subtitle pieces
// and slots) and the failure results of device errors, with no device object
// left behind.
#include <string>

#include "platform/kernel/resource.h"
#include "tests/render/layered/layered_harness.h"

namespace ncbtest::layered {
namespace {

TEST_F(LayeredRenderTest, InitWritesTheDefaultConfiguration) {
    CNHVideoRender::ConfigInfoTag cfg{};
    ASSERT_EQ(render_.GetConfig(&cfg), 0);
    EXPECT_EQ(cfg.uSize, 24u);
    EXPECT_EQ(cfg.uFlags & ~0x6u, 0x61u);
    EXPECT_EQ(cfg.uBackgroundColor, 0xFF000000u);
    EXPECT_EQ(cfg.nBackBufferCount, 2);
    cfg.uFlags = 0x8;  // SetConfig forces 0x1 back
    ASSERT_EQ(render_.SetConfig(&cfg), 0);
    ASSERT_EQ(render_.GetConfig(&cfg), 0);
    EXPECT_EQ(cfg.uFlags, 0x9u);
}

TEST_F(LayeredRenderTest, OpenUsesFlipExAndFallsBackToDiscard) {
    Open();
    CNHVideoRender::StatInfoTag st{};
    ASSERT_EQ(render_.GetStatInfo(&st), 0);
    EXPECT_EQ(st.uSize, sizeof(st));
    EXPECT_EQ(st.uStatus, 0x2u);
    EXPECT_EQ(st.nWidth, kWidth);
    EXPECT_EQ(st.nHeight, kHeight);
    EXPECT_NE(st.pDevice, nullptr);
    EXPECT_EQ(nplat::gfxtest::Counters().lastSwapEffect, nplat::D3DSWAPEFFECT_FLIPEX);
    render_.Close();
    nplat::gfxtest::SetRefuseFlipEx(true);
    ASSERT_EQ(render_.Open(window_), 0);
    ASSERT_EQ(render_.GetStatInfo(&st), 0);
    EXPECT_EQ(st.uStatus, 0u);
    EXPECT_EQ(nplat::gfxtest::Counters().lastSwapEffect, nplat::D3DSWAPEFFECT_DISCARD);
}

TEST_F(LayeredRenderTest, SystemVersionGradesInit) {
    CNHVideoRender old;
    ncb::layered::versiontest::SetReportedVersion(5, 1);
    EXPECT_EQ(old.Init(), 5);
    // Vista: no flip-ex even when the configuration asks for it.
    ncb::layered::versiontest::SetReportedVersion(6, 0);
    ASSERT_EQ(old.Init(), 0);
    ASSERT_EQ(old.Open(window_), 0);
    CNHVideoRender::StatInfoTag st{};
    ASSERT_EQ(old.GetStatInfo(&st), 0);
    EXPECT_EQ(st.uStatus & 0x2u, 0u);
    old.Uninit();
}

struct SupportCase {
    nplat::DWORD usage;
    nplat::D3DFORMAT format;
    int want;
};

class OpenSupportTest : public LayeredRenderTest,
                        public ::testing::WithParamInterface<SupportCase> {};

TEST_P(OpenSupportTest, NeedsEveryBasicFormat) {
    nplat::gfxtest::SetFormatSupported(GetParam().usage, GetParam().format, false);
    EXPECT_EQ(render_.Open(window_), GetParam().want);
    render_.Close();
}

INSTANTIATE_TEST_SUITE_P(
    Formats, OpenSupportTest,
    ::testing::Values(SupportCase{nplat::D3DUSAGE_RENDERTARGET, nplat::D3DFMT_X8R8G8B8, 3},
                      SupportCase{nplat::D3DUSAGE_RENDERTARGET, nplat::D3DFMT_A8R8G8B8, 3},
                      SupportCase{0, nplat::D3DFMT_X8R8G8B8, 3},
                      SupportCase{0, nplat::D3DFMT_A8R8G8B8, 3},
                      SupportCase{0, nplat::D3DFMT_L8, 3}, SupportCase{0, nplat::D3DFMT_A8L8, 3},
                      SupportCase{0, nplat::D3DFMT_R5G6B5, 0},
                      SupportCase{nplat::D3DUSAGE_RENDERTARGET, nplat::D3DFMT_R8G8B8, 0}),
    [](const auto& info) {
        return "usage" + std::to_string(info.param.usage) + "_fmt" +
               std::to_string(static_cast<unsigned>(info.param.format));
    });

struct CreationFailure {
    const char* name;
    nplat::GfxCall call;
};

class OpenFailureTest : public LayeredRenderTest,
                        public ::testing::WithParamInterface<CreationFailure> {};

TEST_P(OpenFailureTest, FailingCreationLeavesNothing) {
    nplat::gfxtest::FailCall(GetParam().call, 0, 4);
    EXPECT_EQ(render_.Open(window_), 3);
    nplat::gfxtest::ClearFailures();
    ASSERT_EQ(render_.Open(window_), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, OpenFailureTest,
    ::testing::Values(CreationFailure{"create9ex", nplat::GfxCall::kDirect3DCreate9Ex},
                      CreationFailure{"device", nplat::GfxCall::kCreateDeviceEx},
                      CreationFailure{"backbuffer", nplat::GfxCall::kGetBackBuffer},
                      CreationFailure{"vertexbuffer", nplat::GfxCall::kCreateVertexBuffer}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(LayeredRenderTest, MissingShaderResourceFailsOpen) {
    nplat::resourcetest::HideResource(101, "shader", true);
    EXPECT_EQ(render_.Open(window_), 3);
    nplat::resourcetest::HideResource(101, "shader", false);
    EXPECT_EQ(render_.Open(window_), 0);
}

TEST_F(LayeredRenderTest, ScenePrimitivesNeedAnOpenRender) {
    Picture p;
    RandomRgb32(&p, 4, 4, 1);
    EXPECT_EQ(render_.AddBitmap(0, 0, 255, &p.format, p.buffer), 1);
    EXPECT_EQ(render_.Present(0), 1);
}

TEST_F(LayeredRenderTest, SuggestedIdsFollowTheList) {
    Open();
    Picture p;
    RandomRgb32(&p, 8, 8, 2);
    for (unsigned id = 0; id < 3; ++id)
        ASSERT_EQ(render_.AddBitmap(id, 0, 0, &p.format, p.buffer), 0);
    CNHVideoRender::StatInfoTag st{};
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uNextBitmapId, 3u);
    ASSERT_EQ(render_.RemoveBitmap(1), 0);
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uNextBitmapId, 1u);
    EXPECT_EQ(render_.RemoveBitmap(1), 1);
    ASSERT_EQ(render_.AddLayer(5, 0x2, 0, 4, 4, 0xFFFFFFFFu), 0);
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uNextLayerId, 0u);
}

TEST_F(LayeredRenderTest, PresentLockDefersOnePresent) {
    Open();
    ASSERT_EQ(render_.LockPresent(), 0);
    EXPECT_EQ(render_.Present(0), 10);
    EXPECT_EQ(render_.Present(0), 10);
    const int before = nplat::gfxtest::Counters().presents;
    ASSERT_EQ(render_.UnlockPresent(0), 0);
    EXPECT_EQ(nplat::gfxtest::Counters().presents, before + 1);
    CNHVideoRender::StatInfoTag st{};
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uPresentDeferred, 2u);
    EXPECT_EQ(st.uPresentedAsFrame, 1u);
    EXPECT_EQ(render_.Present(0), 0);
    EXPECT_EQ(render_.SkipPresent(), 0);
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uPresented, 1u);
    EXPECT_EQ(st.uFrameSkipped, 1u);
    ASSERT_EQ(render_.ResetStatInfo(), 0);
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uPresented + st.uFrameSkipped + st.uPresentDeferred, 0u);
}

TEST_F(LayeredRenderTest, ResizeNeedsUpdateAndEmptyWindowSkips) {
    Open();
    AddFullStaticLayer(1, 0xFF336699);
    ASSERT_EQ(nplat::ResizeMemoryWindow(window_, 100, 80), 1);
    EXPECT_EQ(render_.Present(0), 9);
    CNHVideoRender::StatInfoTag st{};
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uStatus & 0x4u, 0x4u);
    EXPECT_EQ(render_.Update(), 0);
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.nWidth, 100);
    EXPECT_EQ(st.uStatus & 0x4u, 0u);
    EXPECT_EQ(render_.Present(0), 0);
    const int presents = nplat::gfxtest::Counters().presents;
    if (nplat::ResizeMemoryWindow(window_, 0, 0) == 1) {
        EXPECT_EQ(render_.Present(1), 7);
        EXPECT_EQ(nplat::gfxtest::Counters().presents, presents);
        render_.GetStatInfo(&st);
        EXPECT_EQ(st.uPresentSkipped, 1u);
    }
}

struct PresentResult {
    const char* name;
    nplat::HRESULT result;
    int want;
};

class PresentResultTest : public LayeredRenderTest,
                          public ::testing::WithParamInterface<PresentResult> {};

TEST_P(PresentResultTest, DeviceAnswersBecomeCodes) {
    Open();
    AddFullStaticLayer(1, 0xFF00FF00);
    nplat::gfxtest::QueuePresentResult(GetParam().result);
    EXPECT_EQ(render_.Present(1), GetParam().want);
    // A mode change resets the device and asks again: queue the answer twice.
    nplat::gfxtest::QueueDeviceState(GetParam().result);
    nplat::gfxtest::QueueDeviceState(GetParam().result);
    EXPECT_EQ(render_.CheckStatus(0), GetParam().want);
    CNHVideoRender::StatInfoTag st{};
    render_.GetStatInfo(&st);
    if (GetParam().want == 3) {
        EXPECT_EQ(st.uStatus & 1u, 1u);
        EXPECT_EQ(render_.Present(0), 3);
        EXPECT_EQ(render_.AddLayer(2, 0x2, 0, 1, 1, 0xFFFFFFFFu), 3);
        render_.Close();
        ASSERT_EQ(render_.Open(window_), 0);
        EXPECT_EQ(render_.Present(0), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Results, PresentResultTest,
                         ::testing::Values(PresentResult{"ok", nplat::S_OK, 0},
                                           PresentResult{"occluded", nplat::S_PRESENT_OCCLUDED, 7},
                                           PresentResult{"mode_changed",
                                                         nplat::S_PRESENT_MODE_CHANGED, 8},
                                           PresentResult{"lost", nplat::D3DERR_DEVICELOST, 3}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(LayeredRenderTest, VideoInUseIsKept) {
    Open();
    ASSERT_EQ(render_.AddVideo(3, 0x2, 0, 255, nullptr, nullptr), 0);
    ASSERT_EQ(render_.AddLayer(1, 0x1 | 0x20 | 0x100, 0xFF000000, 1.0f, 1.0f, 3), 0);
    EXPECT_EQ(render_.AddLayer(2, 0x1 | 0x20, 0, 1.0f, 1.0f, 9), 1);
    EXPECT_EQ(render_.RemoveVideo(3), 1);
    int layers = 0;
    ASSERT_EQ(render_.GetVideoInfo(3, &layers, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
    EXPECT_EQ(layers, 1);
    unsigned flags = 0x100;  // a video layer may not drop both crop and aspect
    EXPECT_EQ(render_.ConfigLayer(1, &flags, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr),
              1);
    ASSERT_EQ(render_.RemoveLayer(1), 0);
    EXPECT_EQ(render_.RemoveVideo(3), 0);
}

TEST_F(LayeredRenderTest, InputVideoNeedsAFormatFirst) {
    Open();
    ASSERT_EQ(render_.AddVideo(1, 0x2, 0, 255, nullptr, nullptr), 0);
    Picture p;
    RandomRgb32(&p, 16, 8, 3);
    EXPECT_EQ(render_.InputVideo(1, nullptr, p.buffer, 0), 1);
    EXPECT_EQ(render_.InputVideo(1, &p.format, p.buffer, 1), 0);
    int has = 0;
    render_.GetVideoInfo(1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr, &has);
    EXPECT_EQ(has, 1);
    EXPECT_EQ(render_.InputVideo(1, nullptr, nullptr, 0), 0);
    render_.GetVideoInfo(1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr, &has);
    EXPECT_EQ(has, 0);
}

// A text piece of `code` rendered at `rows`.
void MakePiece(CNSubTitleDecoder::OutputAddiInfoTag* info, Picture* p, int code, int rows) {
    MakePicture(p, code, 32, rows, [](int, int x, int) { return static_cast<uint8_t>(x * 7); });
    *info = {};
    info->nStructSize = sizeof(*info);
    info->tFormat = p->format;
    info->nSizeNumerator = rows;
    info->nSizeDenominator = 1;
}

TEST_F(LayeredRenderTest, SubTitlePiecesAreFilteredAndBounded) {
    Open();
    ASSERT_EQ(render_.AddSubTitle(1, 0x1), 0);
    ASSERT_EQ(render_.AddSubTitle(2, 0x0), 0);
    CNControlBase::SubTitleFormatInfoTag fmt{};
    fmt.nStructSize = sizeof(fmt);
    CNSubTitleDecoder::OutputAddiInfoTag info[5];
    Picture pics[5];
    MakePiece(&info[0], &pics[0], VIDEO_FORMAT_RGB32, 10);
    MakePiece(&info[1], &pics[1], VIDEO_FORMAT_YUV420, 12);
    MakePiece(&info[2], &pics[2], VIDEO_FORMAT_AYUV, 14);
    CNCodecBuffer* datas[5] = {pics[0].buffer, pics[1].buffer, pics[2].buffer};
    EXPECT_EQ(render_.InputSubTitleMulti(1, nullptr, 3, info, datas), 1);  // no format yet
    ASSERT_EQ(render_.InputSubTitleMulti(1, &fmt, 3, info, datas), 0);
    int pieces = 0;
    render_.GetSubTitleInfo(1, nullptr, nullptr, nullptr, nullptr, &pieces);
    EXPECT_EQ(pieces, 2);
    // Five usable pieces do not fit the four slots of a subtitle.
    MakePiece(&info[1], &pics[1], VIDEO_FORMAT_RGB32, 12);
    MakePiece(&info[3], &pics[3], VIDEO_FORMAT_RGB32, 16);
    MakePiece(&info[4], &pics[4], VIDEO_FORMAT_AI44, 18);
    for (int i = 0; i < 5; ++i) datas[i] = pics[i].buffer;
    EXPECT_EQ(render_.InputSubTitleMulti(1, &fmt, 5, info, datas), 1);
    render_.GetSubTitleInfo(1, nullptr, nullptr, nullptr, nullptr, &pieces);
    EXPECT_EQ(pieces, 2);
    // A bitmap subtitle takes one piece at a time.
    EXPECT_EQ(render_.InputSubTitleMulti(2, &fmt, 2, info, datas), 1);
    ASSERT_EQ(render_.InputSubTitle(2, &fmt, &info[0], datas[0]), 0);
}

TEST_F(LayeredRenderTest, SubTitleSlotsAreCountedAndBounded) {
    Open();
    ASSERT_EQ(render_.AddVideo(1, 0x2, 0, 255, nullptr, nullptr), 0);
    ASSERT_EQ(render_.AddSubTitle(7, 0x0), 0);
    ASSERT_EQ(render_.AddSubTitle(8, 0x1), 0);
    for (unsigned layer = 0; layer < 2; ++layer) {
        ASSERT_EQ(render_.AddLayer(layer, 0x21, 0, 1, 1, 1), 0);
    }
    for (int slot : {-1, 4, 1000}) {
        EXPECT_EQ(render_.ConfigVideoLayerPixelSubTitle(0, slot, 7, 1.0f, 0, 0, 0), 1);
        EXPECT_EQ(render_.ConfigVideoLayerTextSubTitle(0, slot, 8), 1);
        EXPECT_EQ(render_.GetVideoLayerTextSubTitleInfo(0, slot, nullptr), 1);
    }
    EXPECT_EQ(render_.ConfigVideoLayerPixelSubTitle(0, 0, 8, 1.0f, 0, 0, 0), 1);  // text kind
    EXPECT_EQ(render_.ConfigVideoLayerTextSubTitle(0, 0, 7), 1);                  // bitmap kind
    for (int slot = 0; slot < 4; ++slot) {
        ASSERT_EQ(render_.ConfigVideoLayerPixelSubTitle(0, slot, 7, 2.0f, 1, 2, 3), 0);
    }
    EXPECT_EQ(render_.ConfigVideoLayerPixelSubTitle(1, 0, 7, 1.0f, 0, 0, 0), 1);  // five slots
    // The same subtitle again only replaces the values.
    ASSERT_EQ(render_.ConfigVideoLayerPixelSubTitle(0, 2, 7, 0.5f, 4, 5, 6), 0);
    unsigned id = 0;
    float scale = 0;
    int v[3] = {};
    ASSERT_EQ(render_.GetVideoLayerPixelSubTitleInfo(0, 2, &id, &scale, &v[0], &v[1], &v[2]), 0);
    EXPECT_EQ(id, 7u);
    EXPECT_EQ(scale, 0.5f);
    EXPECT_EQ(v[2], 6);
    int slots = 0;
    render_.GetSubTitleInfo(7, &slots, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(slots, 4);
    EXPECT_EQ(render_.RemoveSubTitle(7), 1);
    ASSERT_EQ(render_.ConfigVideoLayerPixelSubTitle(0, 3, 0xFFFFFFFFu, 1.0f, 0, 0, 0), 0);
    ASSERT_EQ(render_.ConfigVideoLayerPixelSubTitle(1, 0, 7, 1.0f, 0, 0, 0), 0);
    ASSERT_EQ(render_.ConfigVideoLayerTextSubTitle(1, 3, 8), 0);
    int heights[4] = {}, count = 0;
    ASSERT_EQ(render_.GetSubTitleInfo(8, nullptr, nullptr, &count, heights, nullptr), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(heights[0], 1);
    ASSERT_EQ(render_.RemoveLayer(1), 0);
    render_.GetSubTitleInfo(7, &slots, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(slots, 3);
    render_.GetSubTitleInfo(8, &slots, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(slots, 0);
}

TEST_F(LayeredRenderTest, MappingsAreKeptAsGiven) {
    Open();
    ASSERT_EQ(render_.AddLayer(4, 0x0, 0xFF000000, 0.5f, 0.5f, 0xFFFFFFFFu), 0);
    Mapping m[2] = {WholeMapping(0.5f, 0.5f), WholeMapping(0.25f, 0.25f, 10, 20)};
    m[1].nRotate = 90;
    ASSERT_EQ(render_.ConfigLayerMappingInfo(4, 2, m), 0);
    int count = 0;
    ASSERT_EQ(render_.GetLayerMappingNumber(4, &count), 0);
    EXPECT_EQ(count, 2);
    Mapping back{};
    ASSERT_EQ(render_.GetLayerMappingInfo(4, 1, &back), 0);
    EXPECT_EQ(std::memcmp(&back, &m[1], sizeof(back)), 0);
    EXPECT_EQ(render_.GetLayerMappingInfo(4, 2, &back), 1);
    EXPECT_EQ(render_.GetLayerMappingInfo(5, 0, &back), 1);
}

TEST_F(LayeredRenderTest, FailingUploadsMarkTheRenderFailed) {
    Open();
    Picture p;
    RandomRgb32(&p, 8, 8, 4);
    nplat::gfxtest::FailCall(nplat::GfxCall::kCreateTexture, 0);
    EXPECT_EQ(render_.AddBitmap(0, 0, 0, &p.format, p.buffer), 3);
    EXPECT_EQ(render_.GetBitmapInfo(0, nullptr, nullptr, nullptr), 3);
    render_.Close();
    ASSERT_EQ(render_.Open(window_), 0);
    nplat::gfxtest::FailCall(nplat::GfxCall::kLockRect, 0);
    EXPECT_EQ(render_.AddBitmap(0, 0, 0, &p.format, p.buffer), 3);
    render_.Close();
    ASSERT_EQ(render_.Open(window_), 0);
    // Shaders are made at the first draw; refusing them fails the present.
    AddFullStaticLayer(1, 0xFF102030);
    nplat::gfxtest::FailCall(nplat::GfxCall::kCreatePixelShader, 0, 100);
    EXPECT_EQ(render_.Present(0), 3);
}

TEST_F(LayeredRenderTest, UnsupportedSubTypeIsRefusedAsAFailure) {
    Open();
    Picture p;
    MakePicture(&p, VIDEO_FORMAT_YUV420, 8, 8, [](int, int, int) { return uint8_t{0}; });
    EXPECT_EQ(render_.AddBitmap(0, 0, 0, &p.format, p.buffer), 3);
}

}  // namespace
}  // namespace ncbtest::layered

// The layered render drawing on the software device, read back from the
// memory window: exact 1:1 copies, fills and placement, the shader each
// kind of picture and mapping is drawn with (counted by the device), the
// de-interlacing pass with and without ps_2_a, the 16-bit fallback, and
// composed scenes against golden pictures made once and checked by eye.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ncodecbase/png_codec.h"
#include "platform/gfx/dxva2.h"
#include "tests/render/layered/layered_harness.h"

namespace ncbtest::layered {
namespace {

constexpr unsigned kNone = 0xFFFFFFFFu;

int Created(int record) { return nplat::gfxtest::Counters().shadersCreated[record]; }

TEST_F(LayeredRenderTest, OneToOneBitmapIsCopiedBitForBit) {
    Open();
    Picture p;
    RandomRgb32(&p, kWidth, kHeight, 11);
    ASSERT_EQ(render_.AddBitmap(2, 0xC0, 0, &p.format, p.buffer), 0);
    AddFullStaticLayer(1, 0xFF000000);
    CNHVideoRender::DrawLayerBitmapInfoTag item{0, 0, kWidth, kHeight, 0, 0, 0, 0};
    ASSERT_EQ(render_.DrawLayerBitmap(1, 2, 1, &item, 1), 0);
    ASSERT_EQ(render_.Present(0), 0);
    const std::vector<uint32_t> shown = Snapshot();
    const auto* src = reinterpret_cast<const uint32_t*>(p.Data());
    int differ = 0;
    for (int i = 0; i < kWidth * kHeight; ++i)
        differ += (shown[i] & 0xFFFFFF) != (src[i] & 0xFFFFFF);
    EXPECT_EQ(differ, 0);
    // The layer read back holds the same pixels, opaque.
    CNCodecBase::VideoFormatInfoTag fmt{};
    CNCodecBuffer* copy = CNCodecBuffer::CreateBuffer();
    ASSERT_EQ(render_.CopyLayerData(1, &fmt, copy), 0);
    EXPECT_EQ(fmt.nCodecSubType, VIDEO_FORMAT_RGB32);
    EXPECT_EQ(fmt.nWidth, kWidth);
    const auto* back = static_cast<const uint32_t*>(copy->GetAddress());
    differ = 0;
    for (int i = 0; i < kWidth * kHeight; ++i) differ += back[i] != (src[i] | 0xFF000000u);
    EXPECT_EQ(differ, 0);
    copy->Release();
}

TEST_F(LayeredRenderTest, FillsAndPlacementOnTheBackBuffer) {
    Open();
    CNHVideoRender::ConfigInfoTag cfg{};
    render_.GetConfig(&cfg);
    cfg.uBackgroundColor = 0xFF0000FF;
    ASSERT_EQ(render_.SetConfig(&cfg), 0);
    ASSERT_EQ(render_.AddLayer(1, 0x102, 0xFF00FF00, 40, 30, kNone), 0);
    CNHVideoRender::FillLayerInfoTag fill{0xFFFF0000, 10, 10, 100, 100};  // clipped to the layer
    ASSERT_EQ(render_.FillLayer(1, 1, &fill), 0);
    Mapping m = WholeMapping(40, 30, 20, 10);
    ASSERT_EQ(render_.ConfigLayerMappingInfo(1, 1, &m), 0);
    ASSERT_EQ(render_.Present(0), 0);
    std::vector<uint32_t> px = Snapshot();
    auto at = [&px](int x, int y) { return px[y * kWidth + x] & 0xFFFFFF; };
    EXPECT_EQ(at(0, 0), 0x0000FFu);    // background
    EXPECT_EQ(at(20, 10), 0x00FF00u);  // layer colour
    EXPECT_EQ(at(35, 25), 0xFF0000u);  // filled part
    EXPECT_EQ(at(59, 39), 0xFF0000u);
    EXPECT_EQ(at(60, 40), 0x0000FFu);
    // Invisible layers are not drawn at all.
    unsigned flags = 0x2;
    ASSERT_EQ(render_.ConfigLayer(1, &flags, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr),
              0);
    const int draws = nplat::gfxtest::Counters().drawPrimitive;
    ASSERT_EQ(render_.Present(0), 0);
    EXPECT_EQ(nplat::gfxtest::Counters().drawPrimitive, draws);
    EXPECT_EQ(Snapshot()[20 * kWidth + 30] & 0xFFFFFF, 0x0000FFu);
}

TEST_F(LayeredRenderTest, MirroredMappingsShowTheLayerTurned) {
    Open();
    Picture p;
    RandomRgb32(&p, 32, 32, 5);
    ASSERT_EQ(render_.AddBitmap(0, 0xC0, 0, &p.format, p.buffer), 0);
    ASSERT_EQ(render_.AddLayer(1, 0x102, 0xFF000000, 32, 32, kNone), 0);
    CNHVideoRender::DrawLayerBitmapInfoTag item{0, 0, 32, 32, 0, 0, 0, 0};
    ASSERT_EQ(render_.DrawLayerBitmap(1, 0, 1, &item, 1), 0);
    Mapping m[2] = {WholeMapping(32, 32, 0, 0), WholeMapping(32, 32, 64, 0)};
    m[1].nFlags |= 0x3;  // both mirrors: half a turn
    ASSERT_EQ(render_.ConfigLayerMappingInfo(1, 2, m), 0);
    ASSERT_EQ(render_.Present(0), 0);
    const std::vector<uint32_t> px = Snapshot();
    const auto* src = reinterpret_cast<const uint32_t*>(p.Data());
    // The half-texel shift turns with the quad: pixel i of the turned copy
    // samples texel 32 - i (the first one clamps to the last texel).
    auto texel = [](int i) { return i == 0 ? 31 : 32 - i; };
    int differ = 0;
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 32; ++x) {
            differ +=
                (px[y * kWidth + 64 + x] & 0xFFFFFF) != (src[texel(y) * 32 + texel(x)] & 0xFFFFFF);
        }
    }
    EXPECT_EQ(differ, 0);
}

TEST_F(LayeredRenderTest, SixteenBitBitmapWidenedWithoutDeviceSupport) {
    nplat::gfxtest::SetFormatSupported(0, nplat::D3DFMT_R5G6B5, false);
    Open();
    Picture p;
    MakePicture(&p, VIDEO_FORMAT_RGB565, kWidth, kHeight,
                [](int, int x, int) { return static_cast<uint8_t>(x & 1 ? 0xF8 : 0x00); });
    ASSERT_EQ(render_.AddBitmap(0, 0xC0, 0, &p.format, p.buffer), 0);
    AddFullStaticLayer(1, 0xFF000000);
    CNHVideoRender::DrawLayerBitmapInfoTag item{0, 0, kWidth, kHeight, 0, 0, 0, 0};
    ASSERT_EQ(render_.DrawLayerBitmap(1, 0, 1, &item, 1), 0);
    ASSERT_EQ(render_.Present(0), 0);
    EXPECT_EQ(Snapshot()[5 * kWidth + 7] & 0xFFFFFF, 0xF80000u);
}

// An NV12 video of the back buffer's size, shown 1:1 by a visible layer.
void AddNv12Video(CNHVideoRender* r, Picture* p, unsigned flags, int bufferFlags) {
    MakePicture(p, VIDEO_FORMAT_NV12, 160, 120, [](int plane, int x, int y) {
        return static_cast<uint8_t>(plane == 0 ? 16 + (x + y) % 200 : 96 + (x % 2) * 64);
    });
    p->buffer->SetBufferFlag(bufferFlags);
    Picture mask;
    MakePicture(&mask, VIDEO_FORMAT_Y800, 160, 120, [](int, int x, int) { return uint8_t(x); });
    ASSERT_EQ(r->AddVideo(1, flags, nplat::D3DFMT_NV12, 255, &mask.format, mask.buffer), 0);
    ASSERT_EQ(r->InputVideo(1, &p->format, p->buffer, 0), 0);
    ASSERT_EQ(r->AddLayer(1, 0x1 | 0x2 | 0x20 | 0x100, 0xFF000000, 160, 120, 1), 0);
    Mapping m = WholeMapping(160, 120);
    ASSERT_EQ(r->ConfigLayerMappingInfo(1, 1, &m), 0);
}

TEST_F(LayeredRenderTest, NV12WithMaskTintAndGain) {
    Open();
    Picture p;
    AddNv12Video(&render_, &p, 0x8, 0);
    ASSERT_EQ(render_.Present(0), 0);
    EXPECT_GT(Created(37), 0);
    unsigned flags = 0x400;
    ASSERT_EQ(render_.ConfigVideo(1, &flags, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr),
              0);
    ASSERT_EQ(render_.Present(0), 0);
    EXPECT_GT(Created(39), 0);
    flags = 0;
    int gain = 300;
    ASSERT_EQ(render_.ConfigVideo(1, &flags, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  &gain, nullptr, nullptr),
              0);
    ASSERT_EQ(render_.Present(0), 0);
    EXPECT_GT(Created(41), 0);
    EXPECT_EQ(Created(40), 0);
}

struct DeinterlaceCase {
    const char* name;
    bool refusePs2a;
    uint32_t configFlags;
    bool wantEdge;
};

class DeinterlaceTest : public LayeredRenderTest,
                        public ::testing::WithParamInterface<DeinterlaceCase> {};

TEST_P(DeinterlaceTest, FallsBackToLineAveraging) {
    nplat::gfxtest::SetRefusePs2a(GetParam().refusePs2a);
    Open(GetParam().configFlags);
    Picture p;
    AddNv12Video(&render_, &p, 0x2, 0x800);  // interlaced by the buffer flag
    ASSERT_EQ(render_.Present(0), 0);
    EXPECT_EQ(Created(11) > 0, GetParam().wantEdge);
    EXPECT_EQ(Created(10) > 0, !GetParam().wantEdge);
    EXPECT_EQ(Created(36) + Created(37), 0);  // drawn as one RGB texture
    EXPECT_GT(Created(13), 0);
}

INSTANTIATE_TEST_SUITE_P(Cases, DeinterlaceTest,
                         ::testing::Values(DeinterlaceCase{"edge", false, 0, true},
                                           DeinterlaceCase{"refused", true, 0, false},
                                           DeinterlaceCase{"ps20_only", false, 0x80, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(LayeredRenderTest, ProgressiveVideoNeverCreatesDeinterlacers) {
    Open();
    Picture p;
    AddNv12Video(&render_, &p, 0x2, 0);
    ASSERT_EQ(render_.Present(0), 0);
    for (int record = 4; record <= 11; ++record) EXPECT_EQ(Created(record), 0) << record;
    EXPECT_GT(Created(36), 0);
}

struct PieceCase {
    const char* name;
    int code;
    int mappingFlags;
    int want;
};

class SubTitleShaderTest : public LayeredRenderTest,
                           public ::testing::WithParamInterface<PieceCase> {};

TEST_P(SubTitleShaderTest, PieceKindAndMappingPickTheShader) {
    Open();
    Picture p;
    AddNv12Video(&render_, &p, 0x2, 0);
    Mapping m = WholeMapping(160, 120);
    m.nFlags |= GetParam().mappingFlags;
    m.nTintU = 200;
    ASSERT_EQ(render_.ConfigLayerMappingInfo(1, 1, &m), 0);
    ASSERT_EQ(render_.AddSubTitle(5, 0), 0);
    Picture piece;
    MakePicture(&piece, GetParam().code, 40, 10,
                [](int, int x, int) { return static_cast<uint8_t>(0x80 + x); });
    CNSubTitleDecoder::OutputAddiInfoTag info{};
    info.tFormat = piece.format;
    info.nPositionX = 20, info.nPositionY = 90;
    info.nSizeNumerator = 10, info.nSizeDenominator = 1;
    CNControlBase::SubTitleFormatInfoTag fmt{};
    ASSERT_EQ(render_.InputSubTitle(5, &fmt, &info, piece.buffer), 0);
    ASSERT_EQ(render_.ConfigVideoLayerPixelSubTitle(1, 0, 5, 1.0f, 0, 0, 0), 0);
    ASSERT_EQ(render_.Present(0), 0);
    EXPECT_GT(Created(GetParam().want), 0);
}

INSTANTIATE_TEST_SUITE_P(Pieces, SubTitleShaderTest,
                         ::testing::Values(PieceCase{"ayuv_tint", VIDEO_FORMAT_AYUV, 0x4, 24},
                                           PieceCase{"rgb_tint", VIDEO_FORMAT_RGB32, 0x4, 15},
                                           PieceCase{"ayuv_plain", VIDEO_FORMAT_AYUV, 0, 21},
                                           PieceCase{"rgb_plain", VIDEO_FORMAT_RGB32, 0, 12}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- golden scenes ----

std::string GoldenPath(const char* name) {
    return std::string(NCB_SOURCE_DIR) + "/tests/render/layered/golden/" + name + ".png";
}

// Compares the window with the golden picture, or writes it when
// NCB_UPDATE_GOLDEN is set (then check it by eye).
void CheckGolden(const std::vector<uint32_t>& px, int w, int h, const char* name) {
    CNCodecBase::VideoFormatInfoTag fmt{};
    ncb::InitVideoFormat(&fmt, VIDEO_FORMAT_RGB32, w, h);
    if (std::getenv("NCB_UPDATE_GOLDEN")) {
        std::vector<uint32_t> opaque(px);
        for (uint32_t& v : opaque) v |= 0xFF000000u;
        CNCodecBuffer* in =
            CNCodecBuffer::CreateWrapBuffer(opaque.data(), w * h * 4, w * h * 4, nullptr);
        CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
        CNCodecBase::VideoFormatInfoTag png{};
        ASSERT_EQ(CNPngCodec::Encode(&fmt, &png, in, out, 0), 1);
        FILE* f = std::fopen(GoldenPath(name).c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fwrite(out->GetAddress(), 1, static_cast<size_t>(out->GetDataSize()), f);
        std::fclose(f);
        in->Release();
        out->Release();
        return;
    }
    FILE* f = std::fopen(GoldenPath(name).c_str(), "rb");
    ASSERT_NE(f, nullptr) << GoldenPath(name);
    std::vector<uint8_t> file;
    uint8_t chunk[4096];
    for (size_t n; (n = std::fread(chunk, 1, sizeof(chunk), f)) > 0;)
        file.insert(file.end(), chunk, chunk + n);
    std::fclose(f);
    CNCodecBuffer* in = CNCodecBuffer::CreateWrapBuffer(file.data(), static_cast<int>(file.size()),
                                                        static_cast<int>(file.size()), nullptr);
    CNCodecBase::VideoFormatInfoTag inFmt{}, outFmt{};
    CNCodecBuffer* decoded = nullptr;
    ASSERT_EQ(CNPngCodec::Decode(&inFmt, &outFmt, in, &decoded), 1);
    ASSERT_EQ(outFmt.nWidth, w);
    ASSERT_EQ(outFmt.nHeight, h);
    const auto* want = static_cast<const uint32_t*>(decoded->GetAddress());
    int worst = 0;
    for (int i = 0; i < w * h; ++i) {
        for (int s = 0; s < 24; s += 8) {
            const int d = std::abs(static_cast<int>((px[i] >> s) & 0xFF) -
                                   static_cast<int>((want[i] >> s) & 0xFF));
            worst = d > worst ? d : worst;
        }
    }
    EXPECT_LE(worst, 2) << name;
    decoded->Release();
    in->Release();
}

TEST_F(LayeredRenderTest, GoldenVideoWithMarginsAndSubTitles) {
    Open();
    CNHVideoRender::ConfigInfoTag cfg{};
    render_.GetConfig(&cfg);
    cfg.uBackgroundColor = 0xFF202040;
    render_.SetConfig(&cfg);
    Picture video;
    MakePicture(&video, VIDEO_FORMAT_YUV420, 96, 54, [](int plane, int x, int y) {
        // A grey ramp, bluish on the left half and reddish in the top half.
        if (plane == 0) return static_cast<uint8_t>(40 + 2 * x);
        if (plane == 1) return static_cast<uint8_t>(x < 24 ? 170 : 128);
        return static_cast<uint8_t>(y < 13 ? 180 : 128);
    });
    ASSERT_EQ(render_.AddVideo(1, 0x2, 0, 255, nullptr, nullptr), 0);
    ASSERT_EQ(render_.InputVideo(1, &video.format, video.buffer, 0), 0);
    ASSERT_EQ(render_.AddLayer(1, 0x1 | 0x2 | 0x20 | 0x100, 0xFF406020, 150, 110, 1), 0);
    float top = 12, bottom = 4, textPos = 100, textHeight = 8;
    ASSERT_EQ(render_.ConfigLayer(1, nullptr, nullptr, nullptr, nullptr, &top, &bottom, &textPos,
                                  &textHeight),
              0);
    Mapping m = WholeMapping(150, 110, 5, 5);
    ASSERT_EQ(render_.ConfigLayerMappingInfo(1, 1, &m), 0);
    ASSERT_EQ(render_.AddSubTitle(9, 0x1), 0);
    Picture text;
    MakePicture(&text, VIDEO_FORMAT_RGB32, 60, 8, [](int, int x, int y) {
        const int c = x % 4;
        return static_cast<uint8_t>(c == 3 ? ((x / 4 + y) % 2 ? 255 : 0) : 255);
    });
    CNSubTitleDecoder::OutputAddiInfoTag info{};
    info.tFormat = text.format;
    info.nSizeNumerator = 8, info.nSizeDenominator = 1;
    CNControlBase::SubTitleFormatInfoTag fmt{};
    ASSERT_EQ(render_.InputSubTitle(9, &fmt, &info, text.buffer), 0);
    ASSERT_EQ(render_.ConfigVideoLayerTextSubTitle(1, 0, 9), 0);
    ASSERT_EQ(render_.Present(0), 0);
    CheckGolden(Snapshot(), kWidth, kHeight, "video_margins_text");
}

TEST_F(LayeredRenderTest, GoldenStaticLayersTurnedAndBlended) {
    Open();
    Picture p;
    MakePicture(&p, VIDEO_FORMAT_RGB32, 40, 30, [](int, int x, int y) {
        const int c = x % 4;
        const int px = x / 4;
        return static_cast<uint8_t>(c == 0 ? px * 6 : c == 1 ? y * 8 : c == 2 ? 255 - px * 6 : 255);
    });
    ASSERT_EQ(render_.AddBitmap(0, 0xC0, 0, &p.format, p.buffer), 0);
    ASSERT_EQ(render_.AddLayer(1, 0x102, 0xFF000000, 40, 30, kNone), 0);
    CNHVideoRender::DrawLayerBitmapInfoTag item{0, 0, 40, 30, 0, 0, 0, 0};
    ASSERT_EQ(render_.DrawLayerBitmap(1, 0, 1, &item, 1), 0);
    Mapping m[3] = {WholeMapping(40, 30, 10, 10), WholeMapping(40, 30, 70, 10),
                    WholeMapping(40, 30, 40, 50)};
    m[0].fDestWidth = 50, m[0].fDestHeight = 40;
    m[1].nRotate = 30;
    m[2].nAlpha = 128;
    m[2].fDestWidth = 100, m[2].fDestHeight = 60;
    m[2].nFlags |= 0x4;
    m[2].nTintU = 60, m[2].nTintV = 200;
    ASSERT_EQ(render_.ConfigLayerMappingInfo(1, 3, m), 0);
    ASSERT_EQ(render_.Present(0), 0);
    CheckGolden(Snapshot(), kWidth, kHeight, "static_turned_blended");
}

}  // namespace
}  // namespace ncbtest::layered

namespace ncbtest::layered {
namespace {

// A DXVA2 sample surface of the device, wrapped in a buffer as a decoder
// would hand it over.
struct HardwareSample {
    nplat::IDirectXVideoProcessorService* service = nullptr;
    nplat::IDirect3DSurface9* surface = nullptr;
    CNCodecBuffer* buffer = nullptr;
    CNCodecBase::VideoFormatInfoTag format{};
    ~HardwareSample() {
        if (buffer) buffer->Release();
        if (surface) surface->Release();
        if (service) service->Release();
    }
};

void MakeHardwareSample(CNHVideoRender* r, HardwareSample* s, int w, int h) {
    CNHVideoRender::StatInfoTag st{};
    ASSERT_EQ(r->GetStatInfo(&st), 0);
    void* service = nullptr;
    ASSERT_EQ(nplat::DXVA2CreateVideoService(static_cast<nplat::IDirect3DDevice9*>(st.pDevice),
                                             nplat::IID_IDirectXVideoProcessorService, &service),
              nplat::S_OK);
    s->service = static_cast<nplat::IDirectXVideoProcessorService*>(service);
    ASSERT_EQ(
        s->service->CreateSurface(w, h, 0, nplat::D3DFMT_NV12, nplat::D3DPOOL_DEFAULT, 0,
                                  nplat::DXVA2_VideoProcessorRenderTarget, &s->surface, nullptr),
        nplat::S_OK);
    s->buffer = CNCodecBuffer::CreateBuffer();
    s->buffer->WrapHardwareSample(s->surface, nullptr);
    ncb::InitVideoFormat(&s->format, VIDEO_FORMAT_NV12, w, h);
}

TEST_F(LayeredRenderTest, HardwareVideoGoesStraightToTheBackBuffer) {
    Open();
    HardwareSample sample;
    MakeHardwareSample(&render_, &sample, kWidth, kHeight);
    ASSERT_EQ(render_.AddVideo(1, 0x3, nplat::D3DFMT_NV12, 255, nullptr, nullptr), 0);
    ASSERT_EQ(render_.AddLayer(1, 0x1 | 0x2 | 0x20 | 0x100, 0xFF000000, kWidth, kHeight, 1), 0);
    Mapping m = WholeMapping(kWidth, kHeight);
    ASSERT_EQ(render_.ConfigLayerMappingInfo(1, 1, &m), 0);
    ASSERT_EQ(render_.InputVideo(1, &sample.format, sample.buffer, 0), 0);
    const nplat::GfxCounters before = nplat::gfxtest::Counters();
    ASSERT_EQ(render_.Present(0), 0);
    const nplat::GfxCounters direct = nplat::gfxtest::Counters();
    EXPECT_EQ(direct.stretchRects, before.stretchRects + 1);
    EXPECT_EQ(direct.drawPrimitive, before.drawPrimitive);  // no video quad
    // A second mapping rules the direct path out: the sample goes through a
    // texture and is drawn as a quad per mapping.
    Mapping two[2] = {m, WholeMapping(kWidth, kHeight, 10, 10)};
    ASSERT_EQ(render_.ConfigLayerMappingInfo(1, 2, two), 0);
    ASSERT_EQ(render_.Present(0), 0);
    const nplat::GfxCounters textured = nplat::gfxtest::Counters();
    EXPECT_EQ(textured.stretchRects, direct.stretchRects + 1);
    EXPECT_EQ(textured.drawPrimitive, direct.drawPrimitive + 2);
    EXPECT_GT(Created(13), 0);
}

}  // namespace
}  // namespace ncbtest::layered

namespace ncbtest::layered {
namespace {

TEST_F(LayeredRenderTest, PresentToLayerCapturesTheScene) {
    Open();
    AddFullStaticLayer(1, 0xFF00FF00);
    CNHVideoRender::FillLayerInfoTag fill{0xFFFF0000, 0, 0, 10, 10};
    ASSERT_EQ(render_.FillLayer(1, 1, &fill), 0);
    ASSERT_EQ(render_.AddLayer(2, 0x2, 0xFF000000, kWidth, kHeight, kNone), 0);
    ASSERT_EQ(render_.AddLayer(3, 0x102, 0xFF000000, kWidth, kHeight, kNone), 0);
    ASSERT_EQ(render_.AddLayer(4, 0x2, 0xFF000000, 10, 10, kNone), 0);
    EXPECT_EQ(render_.PresentToLayer(3), 1);  // visible
    EXPECT_EQ(render_.PresentToLayer(4), 1);  // another size
    ASSERT_EQ(render_.PresentToLayer(2), 0);
    CNCodecBase::VideoFormatInfoTag fmt{};
    CNCodecBuffer* copy = CNCodecBuffer::CreateBuffer();
    ASSERT_EQ(render_.CopyLayerData(2, &fmt, copy), 0);
    const auto* px = static_cast<const uint32_t*>(copy->GetAddress());
    EXPECT_EQ(px[0] & 0xFFFFFF, 0xFF0000u);
    EXPECT_EQ(px[20 * kWidth + 20] & 0xFFFFFF, 0x00FF00u);
    copy->Release();
}

TEST_F(LayeredRenderTest, ChangeLayerSizeKeepsTheTopLeftPart) {
    Open();
    AddFullStaticLayer(1, 0xFF0000FF);
    CNHVideoRender::FillLayerInfoTag fill{0xFFFFFFFF, 0, 0, 20, 20};
    ASSERT_EQ(render_.FillLayer(1, 1, &fill), 0);
    ASSERT_EQ(render_.ChangeLayerSize(1, 40, 30, 1), 0);
    CNCodecBase::VideoFormatInfoTag fmt{};
    CNCodecBuffer* copy = CNCodecBuffer::CreateBuffer();
    ASSERT_EQ(render_.CopyLayerData(1, &fmt, copy), 0);
    EXPECT_EQ(fmt.nWidth, 40);
    EXPECT_EQ(fmt.nHeight, 30);
    const auto* px = static_cast<const uint32_t*>(copy->GetAddress());
    EXPECT_EQ(px[19 * 40 + 19], 0xFFFFFFFFu);
    EXPECT_EQ(px[25 * 40 + 30], 0xFF0000FFu);
    ASSERT_EQ(render_.ChangeLayerSize(1, 50, 50, 0), 0);
    ASSERT_EQ(render_.CopyLayerData(1, &fmt, copy), 0);
    EXPECT_EQ(static_cast<const uint32_t*>(copy->GetAddress())[0], 0xFF0000FFu);
    copy->Release();
}

TEST_F(LayeredRenderTest, VideoLayerRenderedIntoAStaticLayer) {
    Open();
    Picture p;
    MakePicture(&p, VIDEO_FORMAT_Y800, 40, 30, [](int, int, int) { return uint8_t{200}; });
    ASSERT_EQ(render_.AddVideo(1, 0x2, 0, 255, nullptr, nullptr), 0);
    ASSERT_EQ(render_.InputVideo(1, &p.format, p.buffer, 1), 0);
    ASSERT_EQ(render_.AddLayer(5, 0x1 | 0x2 | 0x20, 0xFF000000, 40, 30, 1), 0);
    Mapping m = WholeMapping(40, 30);
    ASSERT_EQ(render_.ConfigLayerMappingInfo(5, 1, &m), 0);
    ASSERT_EQ(render_.AddLayer(6, 0x2, 0xFF0000FF, 80, 60, kNone), 0);
    EXPECT_EQ(render_.DrawLayerVideo(6, 5, 20, 10), 1);  // not marked for static layers
    // Flag 0x8 is one of the low four that only AddLayer sets.
    ASSERT_EQ(render_.RemoveLayer(5), 0);
    ASSERT_EQ(render_.AddLayer(5, 0x1 | 0x2 | 0x8 | 0x20, 0xFF000000, 40, 30, 1), 0);
    ASSERT_EQ(render_.ConfigLayerMappingInfo(5, 1, &m), 0);
    ASSERT_EQ(render_.DrawLayerVideo(6, 5, 20, 10), 0);
    CNCodecBase::VideoFormatInfoTag fmt{};
    CNCodecBuffer* copy = CNCodecBuffer::CreateBuffer();
    ASSERT_EQ(render_.CopyLayerData(6, &fmt, copy), 0);
    const auto* px = static_cast<const uint32_t*>(copy->GetAddress());
    EXPECT_EQ(px[10 * 80 + 19], 0xFF0000FFu);
    EXPECT_EQ(px[10 * 80 + 20] & 0xFFFFFF, 0xC8C8C8u);
    EXPECT_EQ(px[39 * 80 + 59] & 0xFFFFFF, 0xC8C8C8u);
    EXPECT_EQ(px[40 * 80 + 60], 0xFF0000FFu);
    copy->Release();
}

}  // namespace
}  // namespace ncbtest::layered

namespace ncbtest::layered {
namespace {

struct UploadCase {
    const char* name;
    int code;
    bool interlaced;
};

class VideoUploadTest : public LayeredRenderTest,
                        public ::testing::WithParamInterface<UploadCase> {};

// Mid-grey in every layout (Y, U, V and RGB bytes all 128) must come out as
// mid-grey whichever loader, plane split and de-interlacing pass it takes.
TEST_P(VideoUploadTest, MidGreyStaysMidGrey) {
    Open();
    Picture p;
    MakePicture(&p, GetParam().code, 37, 23, [](int, int, int) { return uint8_t{128}; });
    p.buffer->SetBufferFlag(GetParam().interlaced ? 0x800 : 0);
    ASSERT_EQ(render_.AddVideo(1, 0x2, 0, 255, nullptr, nullptr), 0);
    ASSERT_EQ(render_.InputVideo(1, &p.format, p.buffer, 0), 0);
    ASSERT_EQ(render_.AddLayer(1, 0x1 | 0x2 | 0x10 | 0x100, 0xFF000000, kWidth, kHeight, 1), 0);
    Mapping m = WholeMapping(kWidth, kHeight);
    ASSERT_EQ(render_.ConfigLayerMappingInfo(1, 1, &m), 0);
    ASSERT_EQ(render_.Present(0), 0);
    const std::vector<uint32_t> px = Snapshot();
    for (int i : {0, kWidth * kHeight / 2 + kWidth / 2, kWidth * kHeight - 1}) {
        for (int s = 0; s < 24; s += 8) {
            EXPECT_NEAR(static_cast<int>(px[i] >> s & 0xFF), 128, 1) << "pixel " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, VideoUploadTest,
                         ::testing::Values(UploadCase{"y800", VIDEO_FORMAT_Y800, false},
                                           UploadCase{"rgb24", VIDEO_FORMAT_RGB24, false},
                                           UploadCase{"rgb32", VIDEO_FORMAT_RGB32, false},
                                           UploadCase{"ayuv", VIDEO_FORMAT_AYUV, false},
                                           UploadCase{"yuy2", VIDEO_FORMAT_YUY2, false},
                                           UploadCase{"uyvy", VIDEO_FORMAT_UYVY, false},
                                           UploadCase{"yvyu", VIDEO_FORMAT_YVYU, false},
                                           UploadCase{"vyuy", VIDEO_FORMAT_VYUY, false},
                                           UploadCase{"nv12", VIDEO_FORMAT_NV12, false},
                                           UploadCase{"yuv420", VIDEO_FORMAT_YUV420, false},
                                           UploadCase{"yv12", VIDEO_FORMAT_YV12, false},
                                           UploadCase{"yuv422", VIDEO_FORMAT_YUV422, false},
                                           UploadCase{"yuv444", VIDEO_FORMAT_YUV444, false},
                                           UploadCase{"rgb32_interlaced", VIDEO_FORMAT_RGB32, true},
                                           UploadCase{"ayuv_interlaced", VIDEO_FORMAT_AYUV, true},
                                           UploadCase{"yuy2_interlaced", VIDEO_FORMAT_YUY2, true},
                                           UploadCase{"nv12_interlaced", VIDEO_FORMAT_NV12, true},
                                           UploadCase{"yuv420_interlaced", VIDEO_FORMAT_YUV420,
                                                      true}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace ncbtest::layered

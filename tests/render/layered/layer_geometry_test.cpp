// Layer geometry against numbers worked out by hand: video placement (fit,
// crop, stretch, margins), margin bands, subtitle boxes, mapping viewports and
// clip-space quads with mirroring and turning, texture-coordinate turns, and
// the shader chosen for a mapping.
#include "render/layered/layer_geometry.h"

#include <gtest/gtest.h>

#include <string>

namespace ncbtest::layered {
namespace {

using namespace ncb::layered;

struct VideoCase {
    const char* name;
    VideoAreaInput in;
    PixelRect want;
};

class VideoRectTest : public ::testing::TestWithParam<VideoCase> {};

TEST_P(VideoRectTest, PlacesTheVideo) {
    PixelRect r;
    ASSERT_TRUE(CalcVideoRect(GetParam().in, &r));
    const PixelRect& w = GetParam().want;
    EXPECT_EQ(r.x, w.x);
    EXPECT_EQ(r.y, w.y);
    EXPECT_EQ(r.w, w.w);
    EXPECT_EQ(r.h, w.h);
}

VideoAreaInput Area(int w, int h, int l, int r, int t, int b, unsigned flags, int ax, int ay) {
    VideoAreaInput in;
    in.layerWidth = w, in.layerHeight = h;
    in.left = l, in.right = r, in.top = t, in.bottom = b;
    in.layerFlags = flags, in.aspectX = ax, in.aspectY = ay, in.hasPicture = true;
    return in;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, VideoRectTest,
    ::testing::Values(
        // 4:3 in 1920x1080: pillar-boxed, 1440 wide, centred.
        VideoCase{"fit_4x3", Area(1920, 1080, 0, 0, 0, 0, 0x20, 4, 3), {240, 0, 1440, 1080}},
        // Cropped: covers the width, 1440 high, 180 rows cut above and below.
        VideoCase{"crop_4x3", Area(1920, 1080, 0, 0, 0, 0, 0x30, 4, 3), {0, -180, 1920, 1440}},
        // 16:9 in 640x480 under a 100-row top margin: flush with the bottom.
        VideoCase{"fit_bottom", Area(640, 480, 0, 0, 100, 0, 0x20, 16, 9), {0, 120, 640, 360}},
        // The same centred by flag 0x200: 100 + (380 - 360) / 2.
        VideoCase{"fit_centre", Area(640, 480, 0, 0, 100, 0, 0x220, 16, 9), {0, 110, 640, 360}},
        // Bottom margin larger: stays at the top margin.
        VideoCase{"fit_top", Area(640, 480, 0, 0, 0, 100, 0x20, 16, 9), {0, 0, 640, 360}},
        // Flag 0x40 forces 4:3 whatever the video says.
        VideoCase{"forced_4x3", Area(800, 300, 0, 0, 0, 0, 0x60, 16, 9), {200, 0, 400, 300}},
        // Left margin larger: pushed right, flush with the right margin.
        VideoCase{"fit_right", Area(1000, 300, 200, 0, 0, 0, 0x20, 4, 3), {600, 0, 400, 300}},
        // Flag 0x80: 16:9 into a square, fit.
        VideoCase{"forced_16x9", Area(320, 320, 0, 0, 0, 0, 0xA0, 1, 1), {0, 70, 320, 180}},
        // Crop of a tall video in a wide area: height kept, width cut.
        VideoCase{"crop_tall", Area(400, 300, 0, 0, 0, 0, 0x30, 16, 9), {-67, 0, 533, 300}},
        // Without aspect: the area inside the margins, stretched.
        VideoCase{"stretch", Area(640, 480, 10, 20, 30, 40, 0x10, 16, 9), {10, 30, 610, 410}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(VideoRect, InvalidWithoutPictureOrArea) {
    PixelRect r;
    VideoAreaInput in = Area(100, 100, 0, 0, 0, 0, 0x20, 4, 3);
    in.hasPicture = false;
    EXPECT_FALSE(CalcVideoRect(in, &r));
    EXPECT_FALSE(CalcVideoRect(Area(100, 100, 60, 40, 0, 0, 0x20, 4, 3), &r));
    EXPECT_FALSE(CalcVideoRect(Area(100, 100, 0, 0, 50, 50, 0x20, 4, 3), &r));
}

TEST(MarginBands, BandsAroundTheVideo) {
    const MarginBands m = CalcMarginBands(100, 80, 0xFF102030, true, {10, 20, 50, 30});
    EXPECT_EQ(m.mask, 15u);
    EXPECT_EQ(m.band[0].h, 20);  // top
    EXPECT_EQ(m.band[1].y, 50);  // bottom starts under the video
    EXPECT_EQ(m.band[1].h, 30);
    EXPECT_EQ(m.band[2].w, 10);  // left
    EXPECT_EQ(m.band[3].x, 60);  // right
    EXPECT_EQ(m.band[3].w, 40);
    EXPECT_EQ(m.band[3].h, 30);
    EXPECT_EQ(CalcMarginBands(100, 80, 0x00FFFFFF, true, {10, 20, 50, 30}).mask, 0u);
    EXPECT_EQ(CalcMarginBands(100, 80, 0xFF000000, true, {0, 0, 100, 80}).mask, 0u);
    const MarginBands whole = CalcMarginBands(100, 80, 0x80000000, false, {});
    EXPECT_EQ(whole.mask, 1u);
    EXPECT_EQ(whole.band[0].w, 100);
    EXPECT_EQ(whole.band[0].h, 80);
    // A cropped video hangs over the edges: no bands at all.
    EXPECT_EQ(CalcMarginBands(1920, 1080, 0xFF000000, true, {0, -180, 1920, 1440}).mask, 0u);
}

void ExpectQuad(const Quad& q, float x0, float y0, float x1, float y1, float x2, float y2, float x3,
                float y3) {
    const float want[8] = {x0, y0, x1, y1, x2, y2, x3, y3};
    for (int c = 0; c < 4; ++c) {
        EXPECT_NEAR(q.x[c], want[2 * c], 1e-5f) << "corner " << c;
        EXPECT_NEAR(q.y[c], want[2 * c + 1], 1e-5f) << "corner " << c;
    }
}

TEST(Mapping, WholeDestinationIsTheUnitQuad) {
    const MappingPlacement m = PlaceMapping({0, 0, 200, 100}, {10, 20, 200, 100}, 640, 480);
    ASSERT_FALSE(m.empty);
    EXPECT_EQ(m.viewport.x, 10);
    EXPECT_EQ(m.viewport.y, 20);
    EXPECT_EQ(m.viewport.w, 200);
    EXPECT_EQ(m.viewport.h, 100);
    ExpectQuad(m.base, -1, 1, 1, 1, -1, -1, 1, -1);
}

TEST(Mapping, HalfOutsideIsCutByTheViewport) {
    // 200 wide starting at -100: the visible half is the viewport and the quad
    // reaches to -3 on the cut side.
    const MappingPlacement m = PlaceMapping({0, 0, 200, 100}, {-100, 0, 200, 100}, 640, 480);
    ASSERT_FALSE(m.empty);
    EXPECT_EQ(m.viewport.x, 0);
    EXPECT_EQ(m.viewport.w, 100);
    ExpectQuad(m.base, -3, 1, 1, 1, -3, -1, 1, -1);
    // Over the bottom-right corner.
    const MappingPlacement br = PlaceMapping({0, 0, 100, 100}, {600, 440, 80, 80}, 640, 480);
    EXPECT_EQ(br.viewport.w, 40);
    EXPECT_EQ(br.viewport.h, 40);
    ExpectQuad(br.base, -1, 1, 3, 1, -1, -3, 3, -3);
}

TEST(Mapping, EmptyDestinations) {
    const PixelRect src{0, 0, 10, 10};
    EXPECT_TRUE(PlaceMapping(src, {0, 0, 0, 10}, 64, 64).empty);
    EXPECT_TRUE(PlaceMapping(src, {64, 0, 10, 10}, 64, 64).empty);
    EXPECT_TRUE(PlaceMapping(src, {0, 64, 10, 10}, 64, 64).empty);
    EXPECT_TRUE(PlaceMapping(src, {-10, 0, 10, 10}, 64, 64).empty);
    EXPECT_TRUE(PlaceMapping(src, {0, -10, 10, 10}, 64, 64).empty);
    EXPECT_FALSE(PlaceMapping(src, {-9, -9, 10, 10}, 64, 64).empty);
}

TEST(Mapping, QuarterOfALayerTwiceItsSize) {
    // Part (0,0,100,100) of a 200x200 layer onto 400x400: the whole layer is a
    // quad twice the viewport, of which the top-left quarter shows.
    const PixelRect src{0, 0, 100, 100};
    const MappingPlacement m = PlaceMapping(src, {0, 0, 400, 400}, 800, 800);
    const Quad q = ElementQuad(m, src, {0, 0, 200, 200});
    ExpectQuad(q, -1, 1, 3, 1, -1, -3, 3, -3);
}

TEST(Mapping, ElementsInsideTheLayerPart) {
    const PixelRect src{0, 0, 100, 50};
    const MappingPlacement m = PlaceMapping(src, {0, 0, 100, 50}, 100, 50);
    // The right half, lower 10 rows: x from 0 to 1, y from -0.6 to -1.
    ExpectQuad(ElementQuad(m, src, {50, 40, 50, 10}), 0, -0.6f, 1, -0.6f, 0, -1, 1, -1);
}

TEST(Mapping, MirrorsChangeWindingOnlyAlone) {
    Quad q = PlaceMapping({0, 0, 10, 10}, {0, 0, 10, 10}, 10, 10).base;
    Quad both = q;
    OrientQuad(&both, 0, 0, 0x3, 0);
    ExpectQuad(both, 1, -1, -1, -1, 1, 1, -1, 1);  // half a turn
    Quad lr = q;
    OrientQuad(&lr, 0, 0, 0x2, 0);
    ExpectQuad(lr, 1, 1, -1, 1, 1, -1, -1, -1);
}

TEST(Mapping, QuarterTurnClockwiseFillsTheSameDestination) {
    Quad q = PlaceMapping({0, 0, 10, 10}, {0, 0, 10, 10}, 20, 20).base;
    OrientQuad(&q, 0, 0, 0, 90);
    // Top-left goes to top-right, top-right to bottom-right, and so on.
    ExpectQuad(q, 1, 1, 1, -1, -1, 1, -1, -1);
    Quad off = PlaceMapping({0, 0, 10, 10}, {-10, 0, 20, 10}, 20, 20).base;  // x -3..1
    OrientQuad(&off, -1, 0, 0, 180);
    ExpectQuad(off, 1, -1, -3, -1, 1, 1, -3, 1);
}

struct TexCase {
    unsigned flags;
    float u[4], v[4];
};

class TexTurnTest : public ::testing::TestWithParam<TexCase> {};

TEST_P(TexTurnTest, CornersShowTheTurnedPicture) {
    const TexQuad t = OrientTexCoords(0, 0, 1, 1, GetParam().flags);
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(t.u[c], GetParam().u[c]) << "corner " << c;
        EXPECT_EQ(t.v[c], GetParam().v[c]) << "corner " << c;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Turns, TexTurnTest,
    ::testing::Values(TexCase{0x00, {0, 1, 0, 1}, {0, 0, 1, 1}},
                      TexCase{0x10, {0, 0, 1, 1}, {1, 0, 1, 0}},  // top-left shows bottom-left
                      TexCase{0x20, {1, 0, 1, 0}, {1, 1, 0, 0}},
                      TexCase{0x30, {1, 1, 0, 0}, {0, 1, 0, 1}},
                      TexCase{0x100, {0, 1, 0, 1}, {1, 1, 0, 0}},
                      TexCase{0x200, {1, 0, 1, 0}, {0, 0, 1, 1}},
                      TexCase{0x300, {1, 0, 1, 0}, {1, 1, 0, 0}}),
    [](const auto& info) { return "flags_" + std::to_string(info.param.flags); });

TEST(TexCoords, HalfTexelShift) {
    const TexQuad t = HalfTexelCoords(4, 2);
    EXPECT_FLOAT_EQ(t.u[kTopLeft], 0.125f);
    EXPECT_FLOAT_EQ(t.u[kBottomRight], 1.125f);
    EXPECT_FLOAT_EQ(t.v[kTopLeft], 0.25f);
    EXPECT_FLOAT_EQ(t.v[kBottomRight], 1.25f);
}

TEST(Aspect, DisplaySizeWinsAndQuarterTurnsSwap) {
    int ax, ay;
    VideoAspect(720, 576, 16, 9, 0, &ax, &ay);
    EXPECT_EQ(ax * 9, ay * 16);
    VideoAspect(720, 576, 0, 9, 0, &ax, &ay);
    EXPECT_EQ(ax, 720);
    VideoAspect(720, 576, 0, 0, 0x10, &ax, &ay);
    EXPECT_EQ(ax, 576);
    EXPECT_EQ(ay, 720);
    VideoAspect(720, 576, 0, 0, 0x20, &ax, &ay);
    EXPECT_EQ(ax, 720);
}

TEST(PixelSubTitle, ScaledFromCanvasToPictureToLayer) {
    PixelSubTitleInput in;
    in.pieceX = 100, in.pieceY = 400, in.pieceWidth = 200, in.pieceHeight = 40;
    in.canvasWidth = 1280, in.canvasHeight = 720;
    in.pictureWidth = 640, in.pictureHeight = 360;
    in.scale = 1.0f;
    PixelRect box;
    // Picture shown at twice its size from (10, 20).
    ASSERT_TRUE(CalcPixelSubTitleRect(in, {10, 20, 1280, 720}, &box));
    EXPECT_EQ(box.x, 10 + 100);
    EXPECT_EQ(box.y, 20 + 400);
    EXPECT_EQ(box.w, 200);
    EXPECT_EQ(box.h, 40);
    in.value1 = 1, in.value2 = 5, in.value3 = 7, in.scale = 0.5f;
    ASSERT_TRUE(CalcPixelSubTitleRect(in, {0, 0, 640, 360}, &box));
    EXPECT_EQ(box.x, 5);
    EXPECT_EQ(box.y, 7);
    EXPECT_EQ(box.w, 50);  // 200 -> 100 on the picture, half of it
    EXPECT_EQ(box.h, 10);
}

TEST(PixelSubTitle, MirroredAsThePictureTurns) {
    PixelSubTitleInput in;
    in.pieceX = 10, in.pieceY = 20, in.pieceWidth = 30, in.pieceHeight = 5;
    in.pictureWidth = 100, in.pictureHeight = 50;
    in.videoFlags = 0x20;
    PixelRect box;
    ASSERT_TRUE(CalcPixelSubTitleRect(in, {0, 0, 100, 50}, &box));
    EXPECT_EQ(box.x, 60);
    EXPECT_EQ(box.y, 25);
    in.videoFlags = 0x10;  // turned picture is 50x100
    ASSERT_TRUE(CalcPixelSubTitleRect(in, {0, 0, 50, 100}, &box));
    EXPECT_EQ(box.x, 25);
    EXPECT_EQ(box.y, 10);
    EXPECT_EQ(box.w, 5);
    EXPECT_EQ(box.h, 30);
}

TEST(TextSubTitle, NearestRenditionStackedAndCentred) {
    const TextPiece slot0[3] = {{100, 20, 20.0}, {150, 30, 30.0}, {200, 40, 40.0}};
    const TextPiece slot2[1] = {{60, 12, 24.0}};
    const TextPiece* pieces[4] = {slot0, nullptr, slot2, nullptr};
    const int counts[4] = {3, 0, 1, 0};
    TextSlotResult out[4];
    CalcTextSubTitleLayout(pieces, counts, 400, 300, 250, 28, 0, false, out);
    EXPECT_EQ(out[0].piece, 1);    // 30 is nearest to 28
    EXPECT_EQ(out[0].box.w, 140);  // 150 x 28 / 30
    EXPECT_EQ(out[0].box.h, 28);
    EXPECT_EQ(out[0].box.x, (400 - 140) / 2);
    EXPECT_EQ(out[0].box.y, 250);
    EXPECT_EQ(out[1].piece, -1);
    EXPECT_EQ(out[2].box.y, 250 + 28);  // stacked under slot 0
    EXPECT_EQ(out[2].box.h, 14);
    // Kept inside: the block of 42 rows would pass the bottom.
    CalcTextSubTitleLayout(pieces, counts, 400, 300, 280, 28, 0x800, false, out);
    EXPECT_EQ(out[0].box.y, 300 - 42);
    // Bottom edge at 20 with the block taller: inside makes it 0.
    CalcTextSubTitleLayout(pieces, counts, 400, 300, 20, 28, 0xC00, false, out);
    EXPECT_EQ(out[0].box.y, 0);
    CalcTextSubTitleLayout(pieces, counts, 400, 300, 100, 28, 0x400, false, out);
    EXPECT_EQ(out[0].box.y, 58);
    // Only exact renditions: neither slot has a 28-row piece.
    CalcTextSubTitleLayout(pieces, counts, 400, 300, 100, 28, 0, true, out);
    EXPECT_EQ(out[0].piece, -1);
    EXPECT_EQ(out[2].piece, -1);
    // A tie picks the first.
    const TextPiece tie[2] = {{10, 10, 10.0}, {30, 30, 30.0}};
    const TextPiece* tp[4] = {tie, nullptr, nullptr, nullptr};
    const int tc[4] = {2, 0, 0, 0};
    CalcTextSubTitleLayout(tp, tc, 100, 100, 0, 20, 0, false, out);
    EXPECT_EQ(out[0].piece, 0);
}

struct ShaderCase {
    const char* name;
    TextureLayout layout;
    unsigned alphaMode;
    bool tint;
    int uGain;
    int want;
};

class VideoShaderTest : public ::testing::TestWithParam<ShaderCase> {};

TEST_P(VideoShaderTest, PicksTheRecord) {
    VideoShaderInput in;
    in.layout = GetParam().layout;
    in.alphaMode = GetParam().alphaMode;
    in.tint = GetParam().tint;
    in.uGain = GetParam().uGain;
    const ShaderChoice s = ChooseVideoShader(in);
    EXPECT_EQ(s.shader, GetParam().want);
    EXPECT_EQ(s.twoConstants, GetParam().tint || GetParam().uGain != 256);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, VideoShaderTest,
    ::testing::Values(ShaderCase{"rgb_own", TextureLayout::kRgb, 0, false, 256, 12},
                      ShaderCase{"rgb_opaque", TextureLayout::kRgb, 2, false, 256, 13},
                      ShaderCase{"rgb_const", TextureLayout::kRgb, 4, false, 256, 13},
                      ShaderCase{"rgb_mask", TextureLayout::kRgb, 8, false, 256, 14},
                      ShaderCase{"rgb_tint", TextureLayout::kRgb, 2, true, 256, 16},
                      ShaderCase{"rgb_adjust", TextureLayout::kRgb, 8, false, 300, 20},
                      ShaderCase{"yuv_own", TextureLayout::kYuv, 0, false, 256, 21},
                      ShaderCase{"yuv_tint", TextureLayout::kYuv, 0, true, 256, 24},
                      ShaderCase{"yuv_adjust", TextureLayout::kYuv, 4, false, 100, 28},
                      ShaderCase{"three", TextureLayout::kThreePlanes, 2, false, 256, 30},
                      ShaderCase{"three_mask_tint", TextureLayout::kThreePlanes, 8, true, 256, 33},
                      ShaderCase{"three_adjust", TextureLayout::kThreePlanes, 0, false, 0, 34},
                      ShaderCase{"nv12", TextureLayout::kTwoPlanes, 2, false, 256, 36},
                      ShaderCase{"nv12_mask", TextureLayout::kTwoPlanes, 8, false, 256, 37},
                      ShaderCase{"nv12_mask_tint", TextureLayout::kTwoPlanes, 8, true, 256, 39},
                      ShaderCase{"nv12_mask_gain", TextureLayout::kTwoPlanes, 8, false, 512, 41}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(VideoShader, Constants) {
    VideoShaderInput in;
    in.layout = TextureLayout::kTwoPlanes;
    in.alphaMode = 4;
    in.constantAlpha = 51;
    in.mappingAlpha = 255;
    in.tint = true;
    in.tintU = 255, in.tintV = 0, in.lumaOffset = 51, in.lumaGain = 128;
    ShaderChoice s = ChooseVideoShader(in);
    EXPECT_FLOAT_EQ(s.c0[0], 0.2f);
    EXPECT_FLOAT_EQ(s.c0[1], 0.5f);
    EXPECT_FLOAT_EQ(s.c0[2], 0.5f);
    EXPECT_FLOAT_EQ(s.c0[3], -0.5f);
    EXPECT_FLOAT_EQ(s.c1[0], 0.2f);
    in.tint = false;
    in.vOffset = 255, in.lumaGain = 256, in.lumaOffset = 0;
    s = ChooseVideoShader(in);
    EXPECT_EQ(s.shader, 40);
    EXPECT_FLOAT_EQ(s.c0[2], 1.0f);
    EXPECT_FLOAT_EQ(s.c0[3], 1.0f);
    EXPECT_FLOAT_EQ(s.c1[1], 1.0f);
    EXPECT_FLOAT_EQ(s.c1[2], 0.2f);
}

TEST(OverlayShader, TintBeatsAdjustAndYuvPiecesAddNine) {
    EXPECT_EQ(ChooseOverlayShader(0, 255, 0, 0, 0, 0, 0).shader, 12);
    const ShaderChoice tint = ChooseOverlayShader(0x4, 102, 255, 0, 10, 20, 30);
    EXPECT_EQ(tint.shader, 15);  // an RGB piece; an AYUV piece takes 15 + 9 = 24
    EXPECT_FLOAT_EQ(tint.c1[0], 0.4f);
    EXPECT_FLOAT_EQ(tint.c0[1], 1.0f);
    const ShaderChoice adjust = ChooseOverlayShader(0, 255, 0, 0, 0, 0, 51);
    EXPECT_EQ(adjust.shader, 18);
    EXPECT_FLOAT_EQ(adjust.c0[2], 0.2f);
    EXPECT_FLOAT_EQ(adjust.c1[2], 1.0f);
}

}  // namespace
}  // namespace ncbtest::layered

// RenderToMemory: golden pictures of scenes a person can check, the edge
// cases of composing (locked buffers, whole backgrounds, frames outside the
// view, scaling before blending, band fills, text flags, burn-in and erase),
// the intermediate picture layouts, and allocation failures at every step.
#include "ncodecbase/gdi_text.h"
#include "platform/kernel/fault.h"
#include "tests/render/video/video_render_harness.h"

namespace ncbtest::render_video {
namespace {

using nplat::RECT;

constexpr uint32_t kRed = 0xFFFF0000, kGreen = 0xFF00FF00, kBlue = 0xFF0000FF;
constexpr uint32_t kWhite = 0xFFFFFFFF;
// Rotation bits 0x3000 all set mean "no rotation"; clear they turn the frame.
constexpr unsigned kNoTurn = 0x3000;
// Packed YUV background colours (Y, U, V): black, mid grey, a dark blue.
constexpr uint32_t kYuvBlack = 0x008080, kYuvGrey = 0x808080, kYuvNavy = 0x29F06E;
constexpr uint32_t kYuvSlate = 0x3C9678;

// Eight vertical colour bars in YUV 4:2:0.
void MakeBars(Picture* p, int w, int h) {
    static const uint8_t y[8] = {235, 210, 170, 145, 106, 81, 41, 16};
    static const uint8_t u[8] = {128, 16, 166, 54, 202, 90, 240, 128};
    static const uint8_t v[8] = {128, 146, 16, 34, 222, 240, 110, 128};
    MakeYuv(p, VIDEO_FORMAT_YUV420, w, h, [&](int plane, int x, int) -> uint8_t {
        const int bar = plane == 0 ? x * 8 / w : x * 16 / w;
        return plane == 0 ? y[bar] : plane == 1 ? u[bar] : v[bar];
    });
}

// A style DC drawing with box glyphs, so pictures do not depend on fonts.
struct Style {
    nplat::HDC dc = nullptr;
    nplat::HFONT font = nullptr;
    Style(nplat::COLORREF text, nplat::COLORREF back, int mode) {
        dc = nplat::CreateCompatibleDC(nullptr);
        font =
            nplat::CreateFontW(16, 0, 0, 0, nplat::FW_NORMAL, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
        nplat::SelectObject(dc, font);
        nplat::SetTextColor(dc, text);
        nplat::SetBkColor(dc, back);
        nplat::SetBkMode(dc, mode);
    }
    ~Style() {
        nplat::DeleteDC(dc);
        nplat::DeleteObject(font);
    }
};

int AddText(CNVideoRender& r, int buffer, int id, const char* text, int x, int y, Style& s,
            unsigned flags = 0x2) {
    nplat::POINT at = {x, y};
    return r.AddText(buffer, id, reinterpret_cast<unsigned char*>(const_cast<char*>(text)),
                     static_cast<int>(std::strlen(text)), flags, &at, s.dc);
}

int AddFrame(CNVideoRender& r, int buffer, int id, int sub, Picture& p, RECT dst, unsigned flags,
             unsigned alpha = 255, unsigned key = 0) {
    return r.AddFrame(buffer, id, sub, &p.format, p.buffer, nullptr, &dst, flags, key, alpha,
                      nullptr);
}

using GoldenTest = RenderTest;

// A 200x150 slate-blue background seen through a 160x120 view at (20, 15).
// Burnt into it: a red-to-blue RGB32 gradient at the top left (background
// frame 1), the colour bars stretched over the lower half (background frame
// 2, YUV 4:2:0), a copied green square, and, after a first composition, a
// slate notch cleared in the gradient. Above the background, not burnt in: a white disc whose alpha
// fades out towards its rim (bitmap frame 1).
TEST_F(GoldenTest, BackgroundScene) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 160, 120, 200, 150, 20, 15, 0x1, kYuvSlate), 1);
    Picture gradient, bars, square, disc;
    MakeRgb32(&gradient, 64, 48, [](int x, int y) {
        return 0xFF000000u | (255 - x * 4) << 16 | (y * 5) << 8 | (x * 4);
    });
    MakeBars(&bars, 64, 48);
    MakeRgb32(&square, 24, 24, [](int, int) { return kGreen; });
    MakeRgb32(&disc, 40, 40, [](int x, int y) {
        const int d2 = (x - 20) * (x - 20) + (y - 20) * (y - 20);
        const uint32_t a = d2 >= 400 ? 0 : 255 - d2 * 255 / 400;
        return a << 24 | 0xFFFFFF;
    });
    ASSERT_EQ(AddFrame(render, 1, 0, 1, gradient, {30, 20, 94, 68}, 0x1), 1);
    ASSERT_EQ(AddFrame(render, 1, 0, 2, bars, {20, 80, 180, 130}, 0x1 | kNoTurn), 1);
    ASSERT_EQ(render.CopyOffScreenBufferBackground(1, 120, 25, &square.format, square.buffer), 1);
    ASSERT_EQ(AddFrame(render, 1, 1, 0, disc, {100, 10, 140, 50}, 0x4), 1);
    Picture first, out;
    Compose(1, &first);  // burns the background frames in
    ASSERT_EQ(render.ClearOffScreenBufferBackgroundRect(1, 50, 30, 12, 12), 1);
    Compose(1, &out);
    EXPECT_EQ(out.format.nWidth, 160);
    EXPECT_EQ(out.format.nHeight, 120);
    // The background frames gave their pictures up once burnt in.
    EXPECT_EQ(gradient.buffer->GetRefCount(), 1);
    EXPECT_EQ(bars.buffer->GetRefCount(), 1);
    ExpectGolden(out, "background_scene");
}

// A 160x120 grey view (band fill around the main frame). The colour bars as
// main frame in the middle; three opaque squares added as 5 (red), 1
// (green), 3 (blue) overlapping at the top left, red on top, blue above
// green; a half-transparent white frame over the bars' lower right corner;
// a white disc with soft alpha at the right; and a keyed checkerboard whose
// magenta squares are cut out, at the top right.
TEST_F(GoldenTest, FramesInZOrderWithAlphaAndColourKey) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 160, 120, 0, 0, 0, 0, 0x100, kYuvGrey), 1);
    Picture bars, red, green, blue, veil, disc, checker;
    MakeBars(&bars, 80, 60);
    MakeRgb32(&red, 30, 30, [](int, int) { return kRed; });
    MakeRgb32(&green, 30, 30, [](int, int) { return kGreen; });
    MakeRgb32(&blue, 30, 30, [](int, int) { return kBlue; });
    MakeRgb32(&veil, 8, 8, [](int, int) { return kWhite; });
    MakeRgb32(&disc, 30, 30, [](int x, int y) {
        const int d2 = (x - 15) * (x - 15) + (y - 15) * (y - 15);
        return (d2 >= 225 ? 0u : 255u - d2 * 255 / 225) << 24 | 0xFFFF80;
    });
    MakeRgb32(&checker, 32, 32, [](int x, int y) {
        return ((x / 8 + y / 8) & 1) ? 0x00FF00FFu : 0xFF000000u | (x * 8) << 8 | 0xFF;
    });
    ASSERT_EQ(AddFrame(render, 1, 0, 0, bars, {40, 30, 120, 90}, 0x1 | kNoTurn), 1);
    ASSERT_EQ(AddFrame(render, 1, 5, 0, red, {10, 10, 40, 40}, 0x1), 1);
    ASSERT_EQ(AddFrame(render, 1, 1, 0, green, {20, 20, 50, 50}, 0x1), 1);
    ASSERT_EQ(AddFrame(render, 1, 3, 0, blue, {30, 30, 60, 60}, 0x1), 1);
    ASSERT_EQ(AddFrame(render, 1, 6, 0, veil, {90, 70, 130, 110}, 0x1, 128), 1);
    ASSERT_EQ(AddFrame(render, 1, 7, 0, disc, {125, 75, 155, 105}, 0x4), 1);
    ASSERT_EQ(AddFrame(render, 1, 8, 0, checker, {120, 5, 152, 37}, 0x4 | 0x200, 255, 0xFF00FF), 1);
    Picture out;
    Compose(1, &out);
    // Ids 5, 1, 3 are drawn in the order 1, 3, 5.
    EXPECT_EQ(Pixel(out, 35, 35), 0xFF0000u);
    EXPECT_EQ(Pixel(out, 45, 45), 0x0000FFu);
    EXPECT_EQ(Pixel(out, 22, 45), 0x00FF00u);
    EXPECT_EQ(Pixel(out, 0, 0), CNVideoProcessor::YUV2RGB(kYuvGrey));
    EXPECT_EQ(Pixel(out, 124, 13), 0x808080u);  // a keyed square shows the grey below
    ExpectGolden(out, "frames_zorder");
}

// Box-glyph texts on a 160x60 navy view with a striped frame: "Opaque" in
// yellow on a blue box at the top; "Clear" in white straight on the stripes
// (transparent background); a text marked screen-only and a hidden one do
// not appear.
TEST_F(GoldenTest, OpaqueAndTransparentTexts) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 160, 60, 0, 0, 0, 0, 0x100, kYuvNavy), 1);
    Picture stripes;
    MakeRgb32(&stripes, 160, 28,
              [](int, int y) { return (y / 4) & 1 ? 0xFF208020u : 0xFF802020u; });
    ASSERT_EQ(AddFrame(render, 1, 1, 0, stripes, {0, 30, 160, 58}, 0x1), 1);
    Style opaque(nplat::RGB(255, 255, 0), nplat::RGB(0, 0, 255), nplat::OPAQUE);
    Style clear(nplat::RGB(255, 255, 255), nplat::RGB(0, 0, 0), nplat::TRANSPARENT);
    ASSERT_EQ(AddText(render, 1, 1, "Opaque", 4, 6, opaque), 1);
    ASSERT_EQ(AddText(render, 1, 2, "Clear", 10, 36, clear), 1);
    ASSERT_EQ(AddText(render, 1, 3, "Screen", 90, 6, opaque, 0x2 | 0x4), 1);
    ASSERT_EQ(AddText(render, 1, 4, "Hidden", 90, 36, opaque, 0x2 | 0x8), 1);
    Picture out;
    Compose(1, &out);
    EXPECT_EQ(Pixel(out, 4, 6), 0xFFFF00u);    // the outline of the first box glyph
    EXPECT_EQ(Pixel(out, 6, 10), 0x0000FFu);   // inside it: the opaque background
    EXPECT_EQ(Pixel(out, 10, 36), 0xFFFFFFu);  // "Clear" glyph outline
    EXPECT_EQ(Pixel(out, 12, 38), 0x802020u);  // inside it the stripes show through
    EXPECT_EQ(Pixel(out, 95, 10), CNVideoProcessor::YUV2RGB(kYuvNavy));
    ExpectGolden(out, "texts");
}

// ---- Edge cases ----

TEST_F(RenderTest, FrameOutsideTheViewDrawsNothing) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 48, 0, 0, 0, 0, 0x100, kYuvBlack), 1);
    Picture red;
    MakeRgb32(&red, 8, 8, [](int, int) { return kRed; });
    ASSERT_EQ(AddFrame(render, 1, 1, 0, red, {64, 0, 100, 48}, 0x1), 1);
    ASSERT_EQ(AddFrame(render, 1, 2, 0, red, {-30, -30, 0, 10}, 0x4), 1);
    ASSERT_EQ(AddFrame(render, 1, 3, 0, red, {10, 10, 10, 20}, 0x1, 128), 1);
    Picture out;
    Compose(1, &out);
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x) ASSERT_EQ(Pixel(out, x, y), 0u) << x << "," << y;
}

TEST_F(RenderTest, TranslucentFrameIsScaledBeforeItIsBlended) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 640, 480, 0, 0, 0, 0, 0x100, kYuvBlack), 1);
    Picture white;
    MakeRgb32(&white, 320, 240, [](int, int) { return kWhite; });
    ASSERT_EQ(AddFrame(render, 1, 1, 0, white, {0, 0, 640, 480}, 0x1, 128), 1);
    Picture out;
    Compose(1, &out);
    // (255 x 64 + 0 x 64) >> 7 everywhere: the whole destination was covered.
    for (auto [x, y] : {std::pair{0, 0}, {639, 0}, {0, 479}, {639, 479}, {320, 240}})
        EXPECT_EQ(Pixel(out, x, y), 0x7F7F7Fu) << x << "," << y;
}

TEST_F(RenderTest, BandFillLeavesTheMainFrameArea) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 48, 0, 0, 0, 0, 0x100, kYuvGrey), 1);
    Picture frame;
    // The main frame's left half is transparent: a band fill leaves it unfilled.
    MakeRgb32(&frame, 32, 24, [](int x, int) { return x < 16 ? 0x00000000u : kRed; });
    ASSERT_EQ(AddFrame(render, 1, 0, 0, frame, {16, 12, 48, 36}, 0x1), 1);
    Picture out;
    Compose(1, &out);
    const uint32_t grey = CNVideoProcessor::YUV2RGB(kYuvGrey);
    EXPECT_EQ(Pixel(out, 0, 0), grey);    // top band
    EXPECT_EQ(Pixel(out, 5, 20), grey);   // left band
    EXPECT_EQ(Pixel(out, 60, 20), grey);  // right band
    EXPECT_EQ(Pixel(out, 20, 40), grey);  // bottom band
    EXPECT_EQ(Pixel(out, 40, 20), 0xFF0000u);
    EXPECT_EQ(Pixel(out, 20, 20), 0u);  // copied as it is, not filled
    // Without a main frame the whole view is filled.
    ASSERT_EQ(render.RemoveFrame(1, 0, 0, 0), 1);
    Picture all;
    Compose(1, &all);
    EXPECT_EQ(Pixel(all, 20, 20), grey);
}

struct TextFlagCase {
    const char* name;
    unsigned flags;
    bool drawn;
};
class TextFlagTest : public RenderTest, public ::testing::WithParamInterface<TextFlagCase> {};

TEST_P(TextFlagTest, ScreenOnlyAndHiddenTextsStayOutOfMemory) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 32, 0, 0, 0, 0, 0x100, kYuvBlack), 1);
    Style style(nplat::RGB(255, 255, 255), nplat::RGB(0, 0, 0), nplat::OPAQUE);
    ASSERT_EQ(AddText(render, 1, 1, "T", 8, 8, style, GetParam().flags), 1);
    Picture out;
    Compose(1, &out);
    EXPECT_EQ(Pixel(out, 8, 8) == 0xFFFFFFu, GetParam().drawn);
}

INSTANTIATE_TEST_SUITE_P(Flags, TextFlagTest,
                         ::testing::Values(TextFlagCase{"Ansi", 0x0, true},
                                           TextFlagCase{"Utf8", 0x2, true},
                                           TextFlagCase{"ScreenOnly", 0x4, false},
                                           TextFlagCase{"Hidden", 0x8, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(RenderTest, Utf16TextCountsBytes) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 64, 32, 0, 0, 0, 0, 0x100, kYuvBlack), 1);
    Style style(nplat::RGB(255, 255, 255), nplat::RGB(0, 0, 0), nplat::OPAQUE);
    const char16_t text[] = u"AB";
    nplat::POINT at = {0, 0};
    ASSERT_EQ(render.AddText(1, 1, reinterpret_cast<unsigned char*>(const_cast<char16_t*>(text)), 4,
                             0x1, &at, style.dc),
              1);
    Picture out;
    Compose(1, &out);
    EXPECT_EQ(Pixel(out, 8, 0), 0xFFFFFFu);  // second glyph's cell starts at 8
    EXPECT_EQ(Pixel(out, 16, 0), 0u);        // nothing after two glyphs
}

TEST_F(RenderTest, WholeBackgroundHasTheBackgroundSizeAndNothingElse) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 40, 30, 100, 80, 10, 10, 0x1, kYuvGrey), 1);
    Picture red;
    MakeRgb32(&red, 40, 30, [](int, int) { return kRed; });
    ASSERT_EQ(AddFrame(render, 1, 1, 0, red, {0, 0, 40, 30}, 0x1), 1);
    Picture whole, view;
    Compose(1, &whole, 1);
    EXPECT_EQ(whole.format.nWidth, 100);
    EXPECT_EQ(whole.format.nHeight, 80);
    EXPECT_EQ(Pixel(whole, 15, 15), CNVideoProcessor::YUV2RGB(kYuvGrey));
    Compose(1, &view);
    EXPECT_EQ(view.format.nWidth, 40);
    EXPECT_EQ(Pixel(view, 5, 5), 0xFF0000u);
}

TEST_F(RenderTest, EnlargedBackgroundKeepsItsTopLeftPicture) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 32, 32, 32, 32, 0, 0, 0x1, kYuvNavy), 1);
    Picture red;
    MakeRgb32(&red, 32, 32, [](int, int) { return kRed; });
    ASSERT_EQ(render.CopyOffScreenBufferBackground(1, 0, 0, &red.format, red.buffer), 1);
    ASSERT_EQ(render.ConfigOffScreenBuffer(1, 32, 32, 64, 48, 0, 0, 0), 1);
    Picture out;
    Compose(1, &out, 1);
    ASSERT_EQ(out.format.nWidth, 64);
    const uint32_t navy = CNVideoProcessor::YUV2RGB(kYuvNavy);
    EXPECT_EQ(Pixel(out, 31, 31), 0xFF0000u);
    EXPECT_EQ(Pixel(out, 32, 10), navy);  // the strip to the right
    EXPECT_EQ(Pixel(out, 10, 40), navy);  // the strip below
    EXPECT_EQ(Pixel(out, 63, 47), navy);
    // Shrinking keeps the top-left part too.
    ASSERT_EQ(render.ConfigOffScreenBuffer(1, 16, 16, 16, 16, 0, 0, 0), 1);
    Picture small;
    Compose(1, &small, 1);
    EXPECT_EQ(small.format.nWidth, 16);
    EXPECT_EQ(Pixel(small, 15, 15), 0xFF0000u);
}

TEST_F(RenderTest, MovedBackgroundBlocksMayOverlap) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 32, 8, 32, 8, 0, 0, 0x1, kYuvBlack), 1);
    Picture ramp;
    MakeRgb32(&ramp, 32, 8, [](int x, int) { return 0xFF000000u | static_cast<uint32_t>(x); });
    ASSERT_EQ(render.CopyOffScreenBufferBackground(1, 0, 0, &ramp.format, ramp.buffer), 1);
    ASSERT_EQ(render.MoveOffScreenBufferBackground(1, 0, 0, 4, 1, 20, 4), 1);
    Picture out;
    Compose(1, &out, 1);
    EXPECT_EQ(Pixel(out, 4, 1), 0u);
    EXPECT_EQ(Pixel(out, 23, 4), 19u);
    EXPECT_EQ(Pixel(out, 24, 1), 24u);  // past the block: untouched
    EXPECT_EQ(Pixel(out, 4, 0), 4u);
}

TEST_F(RenderTest, BackgroundIsHandedOutWithAReference) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 16, 16, 48, 32, 0, 0, 0x1, kYuvGrey), 1);
    Format f;
    CNCodecBuffer* bg = nullptr;
    ASSERT_EQ(render.GetOffScreenBufferBackground(1, 4, 6, 10, 12, &f, &bg), 1);
    ASSERT_NE(bg, nullptr);
    EXPECT_EQ(bg->GetRefCount(), 2);  // the render's and ours
    EXPECT_EQ(f.nCodecSubType, VIDEO_FORMAT_RGB32);
    EXPECT_EQ(f.nWidth, 48);
    EXPECT_EQ(f.nHeight, 32);
    EXPECT_EQ(f.nRectLeft, 4);
    EXPECT_EQ(f.nRectRight, 14);
    EXPECT_EQ(f.nRectTop, 6);
    EXPECT_EQ(f.nRectBottom, 18);
    uint32_t first;
    std::memcpy(&first, bg->GetAddress(), 4);
    EXPECT_EQ(first, CNVideoProcessor::YUV2RGB(kYuvGrey) | 0xFF000000u);  // opaque fill
    bg->Release();
    // Buffers without a background have none to give or change.
    ASSERT_EQ(render.CreateOffScreenBuffer(2, 16, 16, 0, 0, 0, 0, 0, 0), 1);
    EXPECT_EQ(render.GetOffScreenBufferBackground(2, 0, 0, 1, 1, &f, &bg), 0);
    EXPECT_EQ(render.ClearOffScreenBufferBackground(2), 0);
    EXPECT_EQ(render.MoveOffScreenBufferBackground(2, 0, 0, 1, 1, 2, 2), 0);
}

TEST_F(RenderTest, RotatedBackgroundFrameTurnsBeforeItIsBurntIn) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 8, 16, 8, 16, 0, 0, 0x1, kYuvBlack), 1);
    Picture p;
    // 16 x 8, bright left half: turned counter-clockwise (rotation 2) it
    // becomes 8 x 16 with the bright half at the bottom.
    MakeYuv(&p, VIDEO_FORMAT_YUV420, 16, 8,
            [](int plane, int x, int) -> uint8_t { return plane == 0 ? (x < 8 ? 235 : 16) : 128; });
    ASSERT_EQ(AddFrame(render, 1, 0, 1, p, {0, 0, 8, 16}, 0x1 | 0x2000), 1);
    Picture out;
    Compose(1, &out);
    EXPECT_GT(Pixel(out, 4, 14) & 0xFF, 0xE0u);
    EXPECT_LT(Pixel(out, 4, 2) & 0xFF, 0x20u);
}

struct RemoveCase {
    const char* name;
    int keepImage;
    bool composeFirst;
    bool pictureStays;
};
class RemoveBackgroundFrameTest : public RenderTest,
                                  public ::testing::WithParamInterface<RemoveCase> {};

TEST_P(RemoveBackgroundFrameTest, KeepsOrErasesThePicture) {
    const RemoveCase& c = GetParam();
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 32, 32, 32, 32, 0, 0, 0x1, kYuvNavy), 1);
    Picture red;
    MakeRgb32(&red, 16, 16, [](int, int) { return kRed; });
    ASSERT_EQ(AddFrame(render, 1, 0, 3, red, {4, 4, 20, 20}, 0x1), 1);
    Picture first;
    if (c.composeFirst) Compose(1, &first);
    ASSERT_EQ(render.RemoveFrame(1, 0, 3, c.keepImage), 1);
    EXPECT_EQ(red.buffer->GetRefCount(), 1);
    Picture out;
    Compose(1, &out);
    EXPECT_EQ(Pixel(out, 10, 10), c.pictureStays ? 0xFF0000u : CNVideoProcessor::YUV2RGB(kYuvNavy));
}

INSTANTIATE_TEST_SUITE_P(Cases, RemoveBackgroundFrameTest,
                         ::testing::Values(RemoveCase{"BurntKeep", 1, true, true},
                                           RemoveCase{"BurntErase", 0, true, false},
                                           RemoveCase{"UnburntKeepBurnsNow", 1, false, true},
                                           RemoveCase{"UnburntEraseNeverShows", 0, false, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(RenderTest, RotatedAndConvertedFramesTurnTheirPicture) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 8, 16, 0, 0, 0, 0, 0, 0), 1);
    Picture p;
    // 16 x 8 with a red left column: a quarter turn clockwise puts it on top.
    MakeRgb32(&p, 16, 8, [](int x, int) { return x == 0 ? kRed : kBlue; });
    ASSERT_EQ(AddFrame(render, 1, 1, 0, p, {0, 0, 8, 16}, 0x1 | 0x8000),
              1);  // rotation 0: clockwise
    Picture out;
    Compose(1, &out);
    // Through the YUV chain: colours come back within rounding.
    const uint32_t top = Pixel(out, 4, 0), below = Pixel(out, 4, 8);
    EXPECT_GT(top >> 16 & 0xFF, 0xF0u);
    EXPECT_LT(top & 0xFF, 0x10u);
    EXPECT_LT(below >> 16 & 0xFF, 0x10u);
    EXPECT_GT(below & 0xFF, 0xF0u);
}

TEST_F(RenderTest, YuvFrameMatchesTheSingleColourConversion) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 16, 16, 0, 0, 0, 0, 0, 0), 1);
    for (int code : {VIDEO_FORMAT_YUV420, VIDEO_FORMAT_YV12, VIDEO_FORMAT_NV12}) {
        Picture p;
        MakeYuv(&p, code, 16, 16, [](int plane, int, int) -> uint8_t {
            return plane == 0 ? 150 : plane == 1 ? 60 : 200;
        });
        ASSERT_EQ(AddFrame(render, 1, 1, 0, p, {0, 0, 16, 16}, 0x1 | kNoTurn), 1);
        Picture out;
        Compose(1, &out);
        const uint32_t expected = CNVideoProcessor::YUV2RGB(150 << 16 | 60 << 8 | 200);
        for (int shift : {0, 8, 16})
            EXPECT_NEAR(static_cast<int>(Pixel(out, 7, 7) >> shift & 0xFF),
                        static_cast<int>(expected >> shift & 0xFF), 2)
                << code;
        ASSERT_EQ(render.RemoveFrame(1, 1, 0, 0), 1);
    }
}

// Fills a one-plane picture (AI44 bytes, AYUV words) from `byte(x, i)`,
// i the byte within the pixel.
void FillPacked(Picture* p, int code, int w, int h, const std::function<uint8_t(int, int)>& byte) {
    Allocate(p, code, w, h);
    ncb::PlaneSet s;
    ASSERT_TRUE(ncb::GetPlanes(p->format, p->Data(), false, &s));
    const int bpp = ncb::Bpp0(code);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w * bpp; ++x)
            s.plane0.data[y * s.plane0.pitch + x] = byte(x / bpp, x % bpp);
}

TEST_F(RenderTest, TextAndAyuvBitmapFramesBlendByTheirOwnAlpha) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 16, 8, 0, 0, 0, 0, 0x100, kYuvBlack), 1);
    // AI44: the left half opaque palette entry 1 (white), the right half alpha 0.
    Picture text, bitmap;
    FillPacked(&text, VIDEO_FORMAT_AI44, 8, 8,
               [](int x, int) -> uint8_t { return x < 4 ? 0xF1 : 0x01; });
    auto* palette = static_cast<uint8_t*>(text.buffer->AllocateAddiInfo(64));
    ASSERT_NE(palette, nullptr);
    std::memset(palette, 0, 64);
    const uint8_t white[4] = {128, 128, 235, 0};  // V, U, Y; the alpha comes from each byte
    std::memcpy(palette + 4, white, 4);
    // AYUV (bytes V, U, Y, A): an opaque red.
    FillPacked(&bitmap, VIDEO_FORMAT_AYUV, 8, 8, [](int, int i) -> uint8_t {
        const uint8_t vuya[4] = {240, 90, 81, 255};
        return vuya[i];
    });
    ASSERT_EQ(AddFrame(render, 1, 1, 0, text, {0, 0, 8, 8}, 0x2), 1);
    ASSERT_EQ(AddFrame(render, 1, 2, 0, bitmap, {8, 0, 16, 8}, 0x4), 1);
    Picture out;
    Compose(1, &out);
    const uint32_t w = CNVideoProcessor::YUV2RGB(0xEB8080),
                   red = CNVideoProcessor::YUV2RGB(0x515AF0);
    for (int shift : {0, 8, 16}) {
        EXPECT_NEAR(static_cast<int>(Pixel(out, 1, 1) >> shift & 0xFF),
                    static_cast<int>(w >> shift & 0xFF), 3);
        EXPECT_NEAR(static_cast<int>(Pixel(out, 12, 4) >> shift & 0xFF),
                    static_cast<int>(red >> shift & 0xFF), 4);
    }
    EXPECT_EQ(Pixel(out, 6, 1), 0u);  // alpha 0: the fill stays
}

// ---- Intermediate pictures ----

struct LayoutCase {
    int subType;
    int width;
    int height;
    int normalise;
    int storedSubType;
    int swapped;
    int padRight;
    int chromaPadRight;
    int size;
};
class AllocateAloneTest : public RenderTest, public ::testing::WithParamInterface<LayoutCase> {};

TEST_P(AllocateAloneTest, RowsArePaddedToSixteenBytes) {
    const LayoutCase& c = GetParam();
    Format f;
    CNCodecBuffer* b =
        render.AllocateCodecBufferAlone(c.subType, c.width, c.height, &f, c.normalise, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(f.nStructSize, 104);
    EXPECT_EQ(f.nCodecType, c.subType < 256 ? 0 : 256);
    EXPECT_EQ(f.nCodecSubType, c.storedSubType);
    EXPECT_EQ((f.nFormatFlags & FORMAT_FLAG_SWAPPED) != 0, c.swapped != 0);
    EXPECT_EQ(f.nRectRight, c.width);
    EXPECT_EQ(f.nRectBottom, c.height);
    EXPECT_EQ(f.nPadRight, c.padRight);
    EXPECT_EQ(f.nChromaPadRight, c.chromaPadRight);
    EXPECT_EQ(b->GetDataSize(), c.size);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b->GetAddress()) % 16, 0u);
    // Reusing a buffer keeps it.
    EXPECT_EQ(render.AllocateCodecBufferAlone(c.subType, c.width, c.height, &f, c.normalise, b), b);
    b->Release();
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, AllocateAloneTest,
    ::testing::Values(
        LayoutCase{1, 10, 3, 0, 1, 0, 6, 0, 48}, LayoutCase{2, 20, 4, 0, 2, 0, 12, 6, 192},
        LayoutCase{3, 16, 2, 0, 3, 0, 0, 0, 64}, LayoutCase{4, 5, 2, 0, 4, 0, 11, 11, 96},
        LayoutCase{6, 20, 4, 1, 2, 0, 12, 6, 192}, LayoutCase{7, 20, 4, 0, 6, 0, 12, 6, 192},
        LayoutCase{7, 20, 4, 1, 2, 0, 12, 6, 192}, LayoutCase{8, 20, 4, 1, 2, 1, 12, 6, 192},
        LayoutCase{9, 20, 4, 0, 9, 0, 12, 12, 192}, LayoutCase{10, 9, 2, 0, 10, 0, 14, 0, 64},
        LayoutCase{14, 3, 1, 0, 14, 0, 4, 0, 16}, LayoutCase{259, 7, 2, 0, 259, 0, 11, 0, 64},
        LayoutCase{260, 3, 3, 0, 260, 0, 4, 0, 48}),
    [](const auto& info) {
        return "Code" + std::to_string(info.param.subType) + "Normalise" +
               std::to_string(info.param.normalise);
    });

TEST_F(RenderTest, AllocateAloneRefusesWhatItCannotLayOut) {
    Format f;
    EXPECT_EQ(render.AllocateCodecBufferAlone(5, 8, 8, &f, 0, nullptr), nullptr);
    EXPECT_EQ(render.AllocateCodecBufferAlone(260, 0, 8, &f, 0, nullptr), nullptr);
    EXPECT_EQ(render.AllocateCodecBufferAlone(260, 65536, 65536, &f, 0, nullptr), nullptr);
}

// ---- Failures ----

TEST_F(RenderTest, RenderToMemoryFailsCleanlyAtEveryAllocation) {
    ASSERT_EQ(render.CreateOffScreenBuffer(1, 96, 64, 0, 0, 0, 0, 0x100, kYuvGrey), 1);
    Picture bars, veil;
    MakeBars(&bars, 32, 32);
    MakeRgb32(&veil, 16, 16, [](int, int) { return kWhite; });
    ASSERT_EQ(AddFrame(render, 1, 0, 0, bars, {8, 8, 72, 56}, 0x1 | kNoTurn), 1);
    ASSERT_EQ(AddFrame(render, 1, 1, 0, veil, {40, 20, 90, 60}, 0x1, 100), 1);
    Style style(nplat::RGB(255, 255, 255), nplat::RGB(0, 0, 0), nplat::TRANSPARENT);
    ASSERT_EQ(AddText(render, 1, 1, "ok", 2, 2, style), 1);
    Picture reference;
    Compose(1, &reference);
    int skip = 0;
    for (; skip < 200; ++skip) {
        Format f;
        CNCodecBuffer* out = reinterpret_cast<CNCodecBuffer*>(1);
        int result;
        {
            nplat::fault::Scope fault(nplat::fault::Kind::kHeap, skip);
            result = render.RenderToMemory(1, &f, &out, 0);
        }
        if (result) {
            out->Release();
            break;
        }
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(f.nStructSize, 0);
    }
    EXPECT_GT(skip, 0);
    EXPECT_LT(skip, 200);
    EXPECT_EQ(bars.buffer->GetRefCount(), 2);  // ours and the render's: no reference leaked
    Picture again;
    Compose(1, &again);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 96; ++x) ASSERT_EQ(Pixel(again, x, y), Pixel(reference, x, y));
}

TEST_F(RenderTest, UnknownBufferFailsWithoutAnErrorCode) {
    Picture out;
    EXPECT_EQ(render.RenderToMemory(3, &out.format, &out.buffer, 0), 0);
    EXPECT_EQ(out.buffer, nullptr);
    EXPECT_EQ(render.GetExtendErrorCode(), 0);
}

}  // namespace
}  // namespace ncbtest::render_video

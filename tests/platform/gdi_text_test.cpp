// DrawTextW: layouts of box glyphs computed by hand (cell height h, advance
// h / 2, outline per character, blank space), opaque versus transparent
// painting into memory bitmaps and surfaces, clipping, the '&' prefix, and
// the render's own sequence (measure, make a bitmap of that size, draw,
// read back bottom-up). FreeType text with DejaVu Sans is checked for being
// monochrome and sensibly sized; it is skipped where that font is missing.
#include "ncodecbase/gdi_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace nplat;

constexpr uint32_t kPaper = 0x123456;  // 0x00RRGGBB, what the bitmap holds before drawing
constexpr COLORREF kInk = RGB(0xFF, 0x00, 0x00);
constexpr COLORREF kBack = RGB(0x00, 0x00, 0xFF);
constexpr uint32_t kInkPixel = 0xFF0000;
constexpr uint32_t kBackPixel = 0x0000FF;

HFONT BoxFont(int height, int weight = FW_NORMAL, int width = 0) {
    return CreateFontW(height, width, 0, 0, weight, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
}

// A memory context with a fresh 32-bit bitmap filled with kPaper and a font.
class Canvas {
  public:
    Canvas(int width, int height, HFONT font) : width_(width), height_(height), font_(font) {
        std::vector<uint32_t> paper(static_cast<size_t>(width) * height, kPaper);
        dc_ = CreateCompatibleDC(nullptr);
        bitmap_ = CreateBitmap(width, height, 1, 32, paper.data());
        oldBitmap_ = SelectObject(dc_, bitmap_);
        oldFont_ = SelectObject(dc_, font_);
        SetTextColor(dc_, kInk);
        SetBkColor(dc_, kBack);
    }
    ~Canvas() {
        SelectObject(dc_, oldBitmap_);
        SelectObject(dc_, oldFont_);
        DeleteDC(dc_);
        DeleteObject(bitmap_);
        DeleteObject(font_);
    }
    HDC dc() const { return dc_; }

    // Top-down copy of the pixels through GetDIBits.
    std::vector<uint32_t> Pixels() const {
        BITMAPINFO info = {};
        info.bmiHeader = {sizeof(BITMAPINFOHEADER), width_, -height_, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        std::vector<uint32_t> out(static_cast<size_t>(width_) * height_);
        EXPECT_EQ(GetDIBits(dc_, bitmap_, 0, height_, out.data(), &info, DIB_RGB_COLORS), height_);
        return out;
    }

  private:
    int width_, height_;
    HFONT font_;
    HDC dc_;
    HBITMAP bitmap_;
    HGDIOBJ oldBitmap_, oldFont_;
};

// ---- measuring ------------------------------------------------------------

struct MeasureCase {
    std::string name;
    std::u16string text;
    int fontHeight;
    int fontWidth;
    UINT format;
    int width;  // expected right - left
    int height;
};

class GdiMeasureBox : public ::testing::TestWithParam<MeasureCase> {};

TEST_P(GdiMeasureBox, MatchesTheHandComputedLayout) {
    const MeasureCase c = GetParam();
    HDC dc = CreateCompatibleDC(nullptr);
    HFONT font = BoxFont(c.fontHeight, FW_NORMAL, c.fontWidth);
    SelectObject(dc, font);
    RECT rect = {5, 7, 6, 8};
    EXPECT_EQ(DrawTextW(dc, c.text.data(), static_cast<int>(c.text.size()), &rect,
                        DT_CALCRECT | c.format),
              c.height);
    EXPECT_EQ(rect.left, 5);
    EXPECT_EQ(rect.top, 7);
    EXPECT_EQ(rect.right - rect.left, c.width);
    EXPECT_EQ(rect.bottom - rect.top, c.height);
    DeleteDC(dc);
    DeleteObject(font);
}

// Box glyphs: cell height |h| (16 for 0), advance h / 2 or the font width.
INSTANTIATE_TEST_SUITE_P(
    Layouts, GdiMeasureBox,
    ::testing::Values(MeasureCase{"SingleLine", u"ABC", -16, 0, 0, 24, 16},
                      MeasureCase{"CellHeight", u"ABC", 20, 0, 0, 30, 20},
                      MeasureCase{"DefaultHeight", u"AB", 0, 0, 0, 16, 16},
                      MeasureCase{"FontWidth", u"AB", -16, 5, 0, 10, 16},
                      MeasureCase{"SpaceAdvances", u"A B", -10, 0, 0, 15, 10},
                      MeasureCase{"CrLfIsOneBreak", u"AB\r\nC", -16, 0, 0, 16, 32},
                      MeasureCase{"LoneCrAndLf", u"A\rBBB\nC", -16, 0, 0, 24, 48},
                      MeasureCase{"TrailingBreak", u"A\n", -16, 0, 0, 8, 32},
                      MeasureCase{"BlankLines", u"\n\n", -16, 0, 0, 0, 48},
                      MeasureCase{"Empty", u"", -16, 0, 0, 0, 0},
                      MeasureCase{"SingleLineFlag", u"A\r\nB", -16, 0, DT_SINGLELINE, 16, 16},
                      MeasureCase{"PrefixHidesAmpersand", u"&AB", -16, 0, 0, 16, 16},
                      MeasureCase{"DoubleAmpersand", u"A&&B", -16, 0, 0, 24, 16},
                      MeasureCase{"NoPrefix", u"&AB", -16, 0, DT_NOPREFIX, 24, 16},
                      MeasureCase{"SurrogatePairIsOneGlyph", u"\U0001F600x", -16, 0, 0, 16, 16},
                      MeasureCase{"LoneSurrogateIsOneGlyph", u"\xD800x", -16, 0, 0, 16, 16}),
    [](const auto& info) { return info.param.name; });

TEST(GdiText, TerminatedAndCountedTextMeasureAlike) {
    HDC dc = CreateCompatibleDC(nullptr);
    HFONT font = BoxFont(-16);
    SelectObject(dc, font);
    RECT all = {0, 0, 1, 1}, part = {0, 0, 1, 1};
    EXPECT_EQ(DrawTextW(dc, u"ABCD", -1, &all, DT_CALCRECT), 16);
    EXPECT_EQ(all.right, 32);
    EXPECT_EQ(DrawTextW(dc, u"ABCD", 2, &part, DT_CALCRECT), 16);
    EXPECT_EQ(part.right, 16);
    DeleteDC(dc);
    DeleteObject(font);
}

TEST(GdiText, BadArgumentsFail) {
    HDC dc = CreateCompatibleDC(nullptr);
    RECT rect = {0, 0, 10, 10};
    EXPECT_EQ(DrawTextW(nullptr, u"A", 1, &rect, 0), 0);
    EXPECT_EQ(DrawTextW(dc, u"A", 1, nullptr, 0), 0);
    EXPECT_EQ(DrawTextW(dc, nullptr, 1, &rect, 0), 0);
    EXPECT_EQ(DrawTextW(dc, u"A", -2, &rect, 0), 0);
    EXPECT_EQ(DrawTextW(dc, u"A", 1, &rect, 0x1 /* centred */), 0);
    EXPECT_EQ(DrawTextW(dc, u"A", 1, &rect, 0x10 /* word breaks */), 0);
    DeleteDC(dc);
}

// ---- painting -------------------------------------------------------------

// Expected pixel of box text "A " (h 16, advance 8) drawn at (2, 3): the 'A'
// cell is x 2..9, y 3..18; the space cell x 10..17.
uint32_t ExpectedBoxPixel(int x, int y, bool opaque) {
    const bool inLine = x >= 2 && x < 18 && y >= 3 && y < 19;
    const bool outline =
        x >= 2 && x < 10 && y >= 3 && y < 19 && (x == 2 || x == 9 || y == 3 || y == 18);
    if (outline) return kInkPixel;
    if (inLine && opaque) return kBackPixel;
    return kPaper;
}

class GdiPaintMode : public ::testing::TestWithParam<int> {};

TEST_P(GdiPaintMode, OpaqueFillsTheCellBoxTransparentOnlyInks) {
    const bool opaque = GetParam() == OPAQUE;
    Canvas canvas(24, 22, BoxFont(-16));
    SetBkMode(canvas.dc(), GetParam());
    RECT rect = {2, 3, 24, 22};
    EXPECT_EQ(DrawTextW(canvas.dc(), u"A ", -1, &rect, 0), 16);
    const std::vector<uint32_t> pixels = canvas.Pixels();
    for (int y = 0; y < 22; ++y) {
        for (int x = 0; x < 24; ++x) {
            ASSERT_EQ(pixels[y * 24 + x], ExpectedBoxPixel(x, y, opaque)) << x << "," << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, GdiPaintMode, ::testing::Values(OPAQUE, TRANSPARENT),
                         [](const auto& info) {
                             return std::string(info.param == OPAQUE ? "Opaque" : "Transparent");
                         });

TEST(GdiText, OpaqueLinesFillOnlyTheirOwnWidth) {
    Canvas canvas(20, 10, BoxFont(-4));  // advance 2, line height 4
    RECT rect = {0, 0, 20, 10};
    EXPECT_EQ(DrawTextW(canvas.dc(), u"ABCD\nA", -1, &rect, 0), 8);
    const std::vector<uint32_t> pixels = canvas.Pixels();
    // Line 1 spans x 0..7, line 2 x 0..1; a 2x4 box glyph is all outline.
    EXPECT_EQ(pixels[0 * 20 + 7], kInkPixel);
    EXPECT_EQ(pixels[0 * 20 + 8], kPaper);
    EXPECT_EQ(pixels[5 * 20 + 1], kInkPixel);
    EXPECT_EQ(pixels[5 * 20 + 2], kPaper);
    EXPECT_EQ(pixels[8 * 20 + 0], kPaper);
}

TEST(GdiText, DrawingClipsToTheRectangleUnlessNoClip) {
    for (UINT format : {0u, DT_NOCLIP}) {
        Canvas canvas(40, 20, BoxFont(-16));
        RECT rect = {0, 0, 12, 10};
        EXPECT_EQ(DrawTextW(canvas.dc(), u"AAA", -1, &rect, format), 16);
        const std::vector<uint32_t> pixels = canvas.Pixels();
        int outside = 0;
        for (int y = 0; y < 20; ++y) {
            for (int x = 0; x < 40; ++x) {
                if ((x >= 12 || y >= 10) && pixels[y * 40 + x] != kPaper) ++outside;
            }
        }
        if (format == DT_NOCLIP) {
            EXPECT_GT(outside, 0);
        } else {
            EXPECT_EQ(outside, 0);
        }
    }
}

TEST(GdiText, TextPartlyOffTheTargetIsClippedAtItsEdges) {
    Canvas canvas(8, 8, BoxFont(-16));
    SetBkMode(canvas.dc(), TRANSPARENT);
    RECT rect = {-6, -6, 100, 100};
    EXPECT_EQ(DrawTextW(canvas.dc(), u"AB", -1, &rect, 0), 16);
    const std::vector<uint32_t> pixels = canvas.Pixels();
    // 'A' spans x -6..1 and 'B' x 2..9, both y -6..9: only A's right edge
    // (x 1) and B's left edge (x 2) fall inside.
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            EXPECT_EQ(pixels[y * 8 + x], x == 1 || x == 2 ? kInkPixel : kPaper) << x << "," << y;
        }
    }
}

TEST(GdiText, MeasuringNearTheEndOfTheCoordinateRangeSaturates) {
    HDC dc = CreateCompatibleDC(nullptr);
    HFONT font = BoxFont(-16);
    SelectObject(dc, font);
    RECT rect = {INT32_MAX - 10, INT32_MAX - 4, 0, 0};
    EXPECT_EQ(DrawTextW(dc, u"ABC", -1, &rect, DT_CALCRECT), 16);
    EXPECT_EQ(rect.right, INT32_MAX);
    EXPECT_EQ(rect.bottom, INT32_MAX);
    DeleteDC(dc);
    DeleteObject(font);
}

TEST(GdiText, PrefixUnderlinesTheNextCharacter) {
    Canvas canvas(16, 16, BoxFont(-16));
    SetBkMode(canvas.dc(), TRANSPARENT);
    RECT rect = {0, 0, 16, 16};
    EXPECT_EQ(DrawTextW(canvas.dc(), u"A&B", -1, &rect, 0), 16);
    const std::vector<uint32_t> pixels = canvas.Pixels();
    // Baseline at 16 * 3 / 4 = 12; the underline lies one row below it,
    // across B's advance (x 8..15) only.
    for (int x = 1; x < 7; ++x) EXPECT_EQ(pixels[13 * 16 + x], kPaper) << x;
    for (int x = 8; x < 16; ++x) EXPECT_EQ(pixels[13 * 16 + x], kInkPixel) << x;
}

TEST(GdiText, BoldBoxGlyphsHaveTwoPixelOutlines) {
    Canvas canvas(8, 8, BoxFont(-8, FW_BOLD));
    SetBkMode(canvas.dc(), TRANSPARENT);
    RECT rect = {0, 0, 8, 8};
    EXPECT_EQ(DrawTextW(canvas.dc(), u"A", -1, &rect, 0), 8);
    const std::vector<uint32_t> pixels = canvas.Pixels();  // a 4x8 cell
    EXPECT_EQ(pixels[1 * 8 + 1], kInkPixel);
    EXPECT_EQ(pixels[6 * 8 + 2], kInkPixel);
    EXPECT_EQ(pixels[3 * 8 + 4], kPaper);
}

TEST(GdiText, DefaultBitmapDrawsNothingButMeasures) {
    HDC dc = CreateCompatibleDC(nullptr);
    HFONT font = BoxFont(-16);
    SelectObject(dc, font);
    RECT rect = {0, 0, 100, 100};
    EXPECT_EQ(DrawTextW(dc, u"AB\nC", -1, &rect, 0), 32);
    HGDIOBJ stock = GetCurrentObject(dc, OBJ_BITMAP);
    BITMAPINFO info = {};
    info.bmiHeader = {sizeof(BITMAPINFOHEADER), 1, 1, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    uint32_t pixel = 0xFFFFFFFF;
    EXPECT_EQ(GetDIBits(dc, stock, 0, 1, &pixel, &info, DIB_RGB_COLORS), 1);
    EXPECT_EQ(pixel, 0u);
    DeleteDC(dc);
    DeleteObject(font);
}

// A surface stored bottom-up: the context gets the top row and a negative
// pitch, and text still lands top-down on screen.
TEST(GdiText, SurfaceContextDrawsIntoCallerPixels) {
    const int width = 12, height = 6;
    std::vector<uint32_t> storage(static_cast<size_t>(width) * height, kPaper);
    uint32_t* topRow = storage.data() + (height - 1) * width;
    HDC dc = CreateSurfaceDC(topRow, width, height, -width * 4);
    ASSERT_NE(dc, nullptr);
    HFONT font = BoxFont(-4);
    HGDIOBJ old = SelectObject(dc, font);
    SetTextColor(dc, kInk);
    SetBkMode(dc, TRANSPARENT);
    RECT rect = {1, 1, 12, 6};
    EXPECT_EQ(DrawTextW(dc, u"A", -1, &rect, 0), 4);
    auto at = [&](int x, int y) { return storage[(height - 1 - y) * width + x]; };
    EXPECT_EQ(at(1, 1), kInkPixel);  // top-left of the 2x4 cell
    EXPECT_EQ(at(2, 4), kInkPixel);  // bottom-right
    EXPECT_EQ(at(0, 0), kPaper);
    EXPECT_EQ(at(3, 1), kPaper);
    SelectObject(dc, old);
    DeleteSurfaceDC(dc);
    DeleteObject(font);
}

// The sequence the video render uses for a text in memory: measure from a
// 1x1 rectangle, make a bitmap of that size, draw opaque at 0,0 and read it
// back bottom-up.
TEST(GdiText, MeasureDrawAndReadBackBottomUp) {
    HDC dc = CreateCompatibleDC(nullptr);
    HFONT font = BoxFont(-4);
    HGDIOBJ oldFont = SelectObject(dc, font);
    SetTextColor(dc, RGB(0x10, 0x20, 0x30));
    SetBkColor(dc, RGB(0x40, 0x50, 0x60));
    RECT rect = {0, 0, 1, 1};
    ASSERT_EQ(DrawTextW(dc, u"A \nA", -1, &rect, DT_CALCRECT), 8);
    ASSERT_EQ(rect.right, 4);
    HBITMAP bitmap = CreateBitmap(rect.right, rect.bottom, 1, 32, nullptr);
    HGDIOBJ oldBitmap = SelectObject(dc, bitmap);
    RECT at = {0, 0, rect.right, rect.bottom};
    EXPECT_EQ(DrawTextW(dc, u"A \nA", -1, &at, 0), 8);
    BITMAPINFO info = {};
    info.bmiHeader = {
        sizeof(BITMAPINFOHEADER), rect.right, rect.bottom, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    std::vector<uint32_t> rows(static_cast<size_t>(rect.right) * rect.bottom);
    EXPECT_EQ(GetDIBits(dc, bitmap, 0, rect.bottom, rows.data(), &info, DIB_RGB_COLORS), 8);
    SelectObject(dc, oldBitmap);
    DeleteObject(bitmap);
    SelectObject(dc, oldFont);
    DeleteDC(dc);
    DeleteObject(font);

    // Screen picture, top row first: line 1 is "A " (ink box, background
    // space), line 2 is "A" (ink box) with the untouched black bitmap beside it.
    const uint32_t I = 0x102030, B = 0x405060, Z = 0;
    const uint32_t screen[8][4] = {{I, I, B, B}, {I, I, B, B}, {I, I, B, B}, {I, I, B, B},
                                   {I, I, Z, Z}, {I, I, Z, Z}, {I, I, Z, Z}, {I, I, Z, Z}};
    for (int r = 0; r < 8; ++r) {
        for (int x = 0; x < 4; ++x) EXPECT_EQ(rows[r * 4 + x], screen[7 - r][x]) << r << "," << x;
    }
}

// ---- FreeType -------------------------------------------------------------

// DejaVu Sans through fontconfig; null (and the test skips) where it is not
// what fontconfig offers.
HFONT DejaVu(int height, int weight = FW_NORMAL) {
    HFONT font = CreateFontW(height, 0, 0, 0, weight, 0, 0, 0, 0, 0, 0, 0, 0, u"DejaVu Sans");
    GdiFontInfo info = {};
    if (!GetGdiFontInfo(font, &info) || !info.freeType ||
        std::string(info.family) != "DejaVu Sans") {
        DeleteObject(font);
        return nullptr;
    }
    return font;
}

constexpr char kNoDejaVu[] = "DejaVu Sans through FreeType is not available";

int MeasureWidth(HFONT font, const char16_t* text) {
    HDC dc = CreateCompatibleDC(nullptr);
    HGDIOBJ old = SelectObject(dc, font);
    RECT rect = {0, 0, 1, 1};
    DrawTextW(dc, text, -1, &rect, DT_CALCRECT);
    SelectObject(dc, old);
    DeleteDC(dc);
    return rect.right;
}

TEST(GdiFreeType, HeightsFollowTheWindowsRule) {
    HFONT em = DejaVu(-20);
    if (!em) {
        GTEST_SKIP() << kNoDejaVu;
    }
    GdiFontInfo info = {};
    ASSERT_TRUE(GetGdiFontInfo(em, &info));
    // DejaVu Sans: 2048 units per em, Windows ascent 1901, descent 483.
    EXPECT_EQ(info.ascent, 19);
    EXPECT_EQ(info.lineHeight, 24);
    DeleteObject(em);
    HFONT cell = DejaVu(24);
    ASSERT_TRUE(GetGdiFontInfo(cell, &info));
    EXPECT_EQ(info.lineHeight, 24);
    EXPECT_EQ(info.ascent, 19);
    DeleteObject(cell);
}

TEST(GdiFreeType, WideGlyphsAdvanceFurtherThanNarrowOnes) {
    HFONT font = DejaVu(-20);
    if (!font) {
        GTEST_SKIP() << kNoDejaVu;
    }
    const int narrow = MeasureWidth(font, u"iiii");
    const int wide = MeasureWidth(font, u"WWWW");
    const int mixed = MeasureWidth(font, u"Hello, World");
    EXPECT_GT(narrow, 4 * 2);
    EXPECT_LT(narrow, 4 * 10);
    EXPECT_GT(wide, 2 * narrow);
    EXPECT_GT(mixed, 12 * 6);
    EXPECT_LT(mixed, 12 * 16);
    EXPECT_EQ(MeasureWidth(font, u"Hello"), MeasureWidth(font, u"He") + MeasureWidth(font, u"llo"));
    DeleteObject(font);
}

class GdiFreeTypeMode : public ::testing::TestWithParam<int> {};

TEST_P(GdiFreeTypeMode, TextIsMonochromeAndInsideItsBox) {
    HFONT font = DejaVu(-20);
    if (!font) {
        GTEST_SKIP() << kNoDejaVu;
    }
    const int width = MeasureWidth(font, u"Hello, World");
    Canvas canvas(width + 20, 40, font);
    SetBkMode(canvas.dc(), GetParam());
    RECT rect = {10, 8, width + 20, 40};
    EXPECT_EQ(DrawTextW(canvas.dc(), u"Hello, World", -1, &rect, 0), 24);
    const std::vector<uint32_t> pixels = canvas.Pixels();
    std::set<uint32_t> colours(pixels.begin(), pixels.end());
    const std::set<uint32_t> expected = GetParam() == OPAQUE
                                            ? std::set<uint32_t>{kPaper, kInkPixel, kBackPixel}
                                            : std::set<uint32_t>{kPaper, kInkPixel};
    EXPECT_EQ(colours, expected);
    int ink = 0, left = 1 << 30, right = -1, top = 1 << 30, bottom = -1;
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < width + 20; ++x) {
            const uint32_t p = pixels[y * (width + 20) + x];
            const bool inBox = x >= 10 && x < 10 + width && y >= 8 && y < 32;
            if (!inBox) {
                EXPECT_EQ(p, kPaper) << x << "," << y;
            }
            if (p != kInkPixel) continue;
            ++ink;
            left = std::min(left, x), right = std::max(right, x);
            top = std::min(top, y), bottom = std::max(bottom, y);
        }
    }
    // Cap height of 'H' (about 0.73 em) and a comma below the baseline.
    EXPECT_GT(ink, 150);
    EXPECT_LE(left, 13);
    EXPECT_GE(right, 10 + width - 4);
    EXPECT_LE(top, 8 + 19 - 13);
    EXPECT_GT(bottom, 8 + 19);
}

INSTANTIATE_TEST_SUITE_P(Modes, GdiFreeTypeMode, ::testing::Values(OPAQUE, TRANSPARENT),
                         [](const auto& info) {
                             return std::string(info.param == OPAQUE ? "Opaque" : "Transparent");
                         });

TEST(GdiFreeType, BoldInksMoreThanRegular) {
    HFONT regular = DejaVu(-20);
    if (!regular) {
        GTEST_SKIP() << kNoDejaVu;
    }
    HFONT bold = CreateFontW(-20, 0, 0, 0, FW_BOLD, 0, 0, 0, 0, 0, 0, 0, 0, u"DejaVu Sans");
    auto inkOf = [](HFONT font) {
        Canvas canvas(200, 30, font);
        SetBkMode(canvas.dc(), TRANSPARENT);
        RECT rect = {0, 0, 200, 30};
        DrawTextW(canvas.dc(), u"Hello", -1, &rect, 0);
        int ink = 0;
        for (uint32_t p : canvas.Pixels()) ink += p == kInkPixel;
        return ink;
    };
    EXPECT_GT(inkOf(bold), inkOf(regular) * 5 / 4);
}

TEST(GdiFreeType, StockFontsResolve) {
    for (int index : {SYSTEM_FONT, DEFAULT_GUI_FONT}) {
        GdiFontInfo info = {};
        ASSERT_TRUE(GetGdiFontInfo(GetStockObject(index), &info));
        EXPECT_GE(info.lineHeight, 11);
        EXPECT_LE(info.lineHeight, 20);
        EXPECT_GT(info.ascent, 0);
    }
}

TEST(GdiFreeType, BoxFaceNameAlwaysGivesBoxGlyphs) {
    HFONT font = CreateFontW(-16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, u"ncb BOX");
    GdiFontInfo info = {};
    ASSERT_TRUE(GetGdiFontInfo(font, &info));
    EXPECT_EQ(info.freeType, 0);
    EXPECT_STREQ(info.family, "NCB Box");
    EXPECT_EQ(info.lineHeight, 16);
    EXPECT_EQ(info.ascent, 12);
    DeleteObject(font);
}

}  // namespace

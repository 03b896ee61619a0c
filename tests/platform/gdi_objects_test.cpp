// GDI-style objects: contexts start with the stock font and 1x1 bitmap,
// SelectObject hands back what it replaced, a bitmap lives in one context at
// a time, deleting a selected object waits for its deselection, colours and
// modes return their previous values, and GetDIBits delivers rows in the
// order the header's sign asks for. Every allocation failure gives the
// documented null/0 (the sanitizer build checks that nothing leaks).
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "ncodecbase/gdi_text.h"
#include "platform/kernel/fault.h"

namespace {

using namespace nplat;

BITMAPINFO Info32(LONG width, LONG height) {
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    return info;
}

// Pixel (x, y) = y * 256 + x: rows are told apart at a glance.
std::vector<uint32_t> Ramp(int width, int height) {
    std::vector<uint32_t> pixels(static_cast<size_t>(width) * height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) pixels[static_cast<size_t>(y) * width + x] = y * 256 + x;
    }
    return pixels;
}

TEST(GdiObjects, NewMemoryContextHoldsStockFontAndOneByOneBitmap) {
    HDC dc = CreateCompatibleDC(nullptr);
    ASSERT_NE(dc, nullptr);
    EXPECT_EQ(GetCurrentObject(dc, OBJ_FONT), GetStockObject(SYSTEM_FONT));
    HGDIOBJ bitmap = GetCurrentObject(dc, OBJ_BITMAP);
    ASSERT_NE(bitmap, nullptr);
    BITMAPINFO info = Info32(0, 0);
    EXPECT_EQ(GetDIBits(dc, bitmap, 0, 0, nullptr, &info, DIB_RGB_COLORS), 1);
    EXPECT_EQ(info.bmiHeader.biWidth, 1);
    EXPECT_EQ(info.bmiHeader.biHeight, 1);
    EXPECT_EQ(GetCurrentObject(dc, 1), nullptr);  // pens and others are not kept
    EXPECT_EQ(DeleteDC(dc), 1);
}

TEST(GdiObjects, SelectObjectReturnsThePreviousObjectOfTheSameType) {
    HDC dc = CreateCompatibleDC(nullptr);
    HFONT font = CreateFontW(-12, 0, 0, 0, FW_NORMAL, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
    HBITMAP bitmap = CreateBitmap(4, 3, 1, 32, nullptr);
    ASSERT_NE(font, nullptr);
    ASSERT_NE(bitmap, nullptr);
    HGDIOBJ stockFont = GetStockObject(SYSTEM_FONT);
    HGDIOBJ stockBitmap = GetCurrentObject(dc, OBJ_BITMAP);

    EXPECT_EQ(SelectObject(dc, font), stockFont);
    EXPECT_EQ(SelectObject(dc, bitmap), stockBitmap);  // fonts and bitmaps are separate slots
    EXPECT_EQ(GetCurrentObject(dc, OBJ_FONT), font);
    EXPECT_EQ(GetCurrentObject(dc, OBJ_BITMAP), bitmap);
    EXPECT_EQ(SelectObject(dc, GetStockObject(DEFAULT_GUI_FONT)), font);
    EXPECT_EQ(SelectObject(dc, stockBitmap), bitmap);

    EXPECT_EQ(SelectObject(nullptr, font), nullptr);
    EXPECT_EQ(SelectObject(dc, nullptr), nullptr);
    EXPECT_EQ(DeleteObject(font), 1);
    EXPECT_EQ(DeleteObject(bitmap), 1);
    DeleteDC(dc);
}

TEST(GdiObjects, BitmapBelongsToOneContextAtATimeFontsToMany) {
    HDC first = CreateCompatibleDC(nullptr);
    HDC second = CreateCompatibleDC(first);
    HBITMAP bitmap = CreateBitmap(2, 2, 1, 32, nullptr);
    HFONT font = CreateFontW(10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
    ASSERT_NE(SelectObject(first, bitmap), nullptr);
    EXPECT_EQ(SelectObject(second, bitmap), nullptr);
    EXPECT_NE(SelectObject(first, font), nullptr);
    EXPECT_NE(SelectObject(second, font), nullptr);
    // Once the first context lets go, the second may take the bitmap.
    DeleteDC(first);
    EXPECT_NE(SelectObject(second, bitmap), nullptr);
    DeleteDC(second);
    DeleteObject(bitmap);
    DeleteObject(font);
}

TEST(GdiObjects, SurfaceContextTakesFontsButNoBitmap) {
    std::vector<uint32_t> pixels(8 * 4);
    HDC dc = CreateSurfaceDC(pixels.data(), 8, 4, 32);
    ASSERT_NE(dc, nullptr);
    HBITMAP bitmap = CreateBitmap(2, 2, 1, 32, nullptr);
    EXPECT_EQ(GetCurrentObject(dc, OBJ_BITMAP), nullptr);
    EXPECT_EQ(SelectObject(dc, bitmap), nullptr);
    EXPECT_EQ(GetCurrentObject(dc, OBJ_FONT), GetStockObject(SYSTEM_FONT));
    DeleteSurfaceDC(dc);
    DeleteObject(bitmap);
}

struct SurfaceGeometry {
    int width, height, pitch;
};

class GdiSurfaceGeometry : public ::testing::TestWithParam<SurfaceGeometry> {};

TEST_P(GdiSurfaceGeometry, IsRefused) {
    std::vector<uint32_t> pixels(64);
    const SurfaceGeometry g = GetParam();
    EXPECT_EQ(CreateSurfaceDC(pixels.data(), g.width, g.height, g.pitch), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Bad, GdiSurfaceGeometry,
                         ::testing::Values(SurfaceGeometry{0, 4, 16}, SurfaceGeometry{4, 0, 16},
                                           SurfaceGeometry{-1, 4, 16}, SurfaceGeometry{4, 4, 15},
                                           SurfaceGeometry{4, 4, -15}));

TEST(GdiObjects, NullSurfacePixelsAreRefused) {
    EXPECT_EQ(CreateSurfaceDC(nullptr, 4, 4, 16), nullptr);
}

TEST(GdiObjects, DeletingASelectedObjectWaitsForItsDeselection) {
    HDC dc = CreateCompatibleDC(nullptr);
    HBITMAP bitmap = CreateBitmap(3, 3, 1, 32, nullptr);
    HFONT font = CreateFontW(10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
    HGDIOBJ stockBitmap = SelectObject(dc, bitmap);
    SelectObject(dc, font);
    EXPECT_EQ(DeleteObject(bitmap), 1);
    EXPECT_EQ(DeleteObject(font), 1);
    // Still usable by the context that holds them...
    EXPECT_EQ(GetCurrentObject(dc, OBJ_BITMAP), bitmap);
    RECT rect = {0, 0, 3, 3};
    EXPECT_EQ(DrawTextW(dc, u"x", 1, &rect, 0), 10);
    // ...but no longer selectable elsewhere.
    HDC other = CreateCompatibleDC(nullptr);
    EXPECT_EQ(SelectObject(other, font), nullptr);
    DeleteDC(other);
    // Deselecting the bitmap frees it; deleting the context frees the font.
    SelectObject(dc, stockBitmap);
    DeleteDC(dc);
}

TEST(GdiObjects, StockObjectsSurviveDeletion) {
    HGDIOBJ font = GetStockObject(DEFAULT_GUI_FONT);
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(DeleteObject(font), 1);
    EXPECT_EQ(GetStockObject(DEFAULT_GUI_FONT), font);
    HDC dc = CreateCompatibleDC(nullptr);
    EXPECT_NE(SelectObject(dc, font), nullptr);
    DeleteDC(dc);
    EXPECT_EQ(GetStockObject(0), nullptr);
    EXPECT_EQ(DeleteObject(nullptr), 0);
    EXPECT_EQ(DeleteDC(nullptr), 0);
}

TEST(GdiObjects, ColoursAndModesReturnPreviousValues) {
    HDC dc = CreateCompatibleDC(nullptr);
    EXPECT_EQ(GetTextColor(dc), RGB(0, 0, 0));
    EXPECT_EQ(GetBkColor(dc), RGB(255, 255, 255));
    EXPECT_EQ(GetBkMode(dc), OPAQUE);
    EXPECT_EQ(SetTextColor(dc, RGB(1, 2, 3)), RGB(0, 0, 0));
    EXPECT_EQ(SetTextColor(dc, RGB(4, 5, 6)), RGB(1, 2, 3));
    EXPECT_EQ(SetBkColor(dc, RGB(7, 8, 9)), RGB(255, 255, 255));
    EXPECT_EQ(GetBkColor(dc), RGB(7, 8, 9));
    EXPECT_EQ(SetBkMode(dc, TRANSPARENT), OPAQUE);
    EXPECT_EQ(SetBkMode(dc, 3), 0);
    EXPECT_EQ(GetBkMode(dc), TRANSPARENT);
    DeleteDC(dc);

    EXPECT_EQ(SetTextColor(nullptr, 0), CLR_INVALID);
    EXPECT_EQ(GetTextColor(nullptr), CLR_INVALID);
    EXPECT_EQ(SetBkColor(nullptr, 0), CLR_INVALID);
    EXPECT_EQ(GetBkColor(nullptr), CLR_INVALID);
    EXPECT_EQ(SetBkMode(nullptr, OPAQUE), 0);
    EXPECT_EQ(GetBkMode(nullptr), 0);
}

struct BitmapArgs {
    int width, height;
    UINT planes, bits;
};

class GdiBadBitmap : public ::testing::TestWithParam<BitmapArgs> {};

TEST_P(GdiBadBitmap, IsRefused) {
    const BitmapArgs a = GetParam();
    EXPECT_EQ(CreateBitmap(a.width, a.height, a.planes, a.bits, nullptr), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Bad, GdiBadBitmap,
                         ::testing::Values(BitmapArgs{4, 4, 2, 32}, BitmapArgs{4, 4, 1, 24},
                                           BitmapArgs{4, 4, 1, 1}, BitmapArgs{0, 4, 1, 32},
                                           BitmapArgs{4, -1, 1, 32}, BitmapArgs{40000, 1, 1, 32},
                                           BitmapArgs{20000, 20000, 1, 32}));

// GetDIBits: a positive height delivers the bottom row first, a negative one
// the top row first; start and lines count in that order.
struct DibCase {
    int sign;
    UINT start, lines;
    int expectRows;
    std::vector<int> sourceRows;  // source row of each delivered row
};

class GdiDibRows : public ::testing::TestWithParam<DibCase> {};

TEST_P(GdiDibRows, FollowTheHeadersDirection) {
    const DibCase c = GetParam();
    const int width = 3, height = 4;
    std::vector<uint32_t> source = Ramp(width, height);
    HBITMAP bitmap = CreateBitmap(width, height, 1, 32, source.data());
    ASSERT_NE(bitmap, nullptr);
    BITMAPINFO info = Info32(width, c.sign * height);
    std::vector<uint32_t> out(static_cast<size_t>(width) * height, 0xDEADBEEF);
    EXPECT_EQ(GetDIBits(nullptr, bitmap, c.start, c.lines, out.data(), &info, DIB_RGB_COLORS),
              c.expectRows);
    for (size_t i = 0; i < c.sourceRows.size(); ++i) {
        for (int x = 0; x < width; ++x) {
            EXPECT_EQ(out[i * width + x], static_cast<uint32_t>(c.sourceRows[i] * 256 + x))
                << "row " << i << " x " << x;
        }
    }
    // Rows beyond the copied ones are untouched.
    for (size_t i = c.sourceRows.size() * width; i < out.size(); ++i) EXPECT_EQ(out[i], 0xDEADBEEF);
    DeleteObject(bitmap);
}

INSTANTIATE_TEST_SUITE_P(Rows, GdiDibRows,
                         ::testing::Values(DibCase{+1, 0, 4, 4, {3, 2, 1, 0}},
                                           DibCase{-1, 0, 4, 4, {0, 1, 2, 3}},
                                           DibCase{+1, 1, 2, 2, {2, 1}},
                                           DibCase{-1, 2, 9, 2, {2, 3}}, DibCase{+1, 4, 1, 0, {}}));

TEST(GdiDib, HeaderOnlyCallDescribesTheBitmap) {
    HBITMAP bitmap = CreateBitmap(5, 7, 1, 32, nullptr);
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    EXPECT_EQ(GetDIBits(nullptr, bitmap, 0, 7, nullptr, &info, DIB_RGB_COLORS), 1);
    EXPECT_EQ(info.bmiHeader.biWidth, 5);
    EXPECT_EQ(info.bmiHeader.biHeight, 7);
    EXPECT_EQ(info.bmiHeader.biPlanes, 1);
    EXPECT_EQ(info.bmiHeader.biBitCount, 32);
    EXPECT_EQ(info.bmiHeader.biCompression, BI_RGB);
    EXPECT_EQ(info.bmiHeader.biSizeImage, 5u * 7 * 4);
    DeleteObject(bitmap);
}

TEST(GdiDib, MismatchedOrUnsupportedRequestsFail) {
    HBITMAP bitmap = CreateBitmap(2, 2, 1, 32, nullptr);
    std::vector<uint32_t> out(16);
    auto call = [&](BITMAPINFO info, UINT usage = DIB_RGB_COLORS) {
        return GetDIBits(nullptr, bitmap, 0, 2, out.data(), &info, usage);
    };
    EXPECT_EQ(call(Info32(2, 2)), 2);
    EXPECT_EQ(call(Info32(3, 2)), 0);
    EXPECT_EQ(call(Info32(2, 3)), 0);
    EXPECT_EQ(call(Info32(2, 2), 1), 0);
    BITMAPINFO info = Info32(2, 2);
    info.bmiHeader.biBitCount = 24;
    EXPECT_EQ(call(info), 0);
    info = Info32(2, 2);
    info.bmiHeader.biCompression = 3;
    EXPECT_EQ(call(info), 0);
    info = Info32(2, 2);
    info.bmiHeader.biSize = 12;
    EXPECT_EQ(call(info), 0);
    EXPECT_EQ(GetDIBits(nullptr, nullptr, 0, 2, out.data(), &info, DIB_RGB_COLORS), 0);
    EXPECT_EQ(GetDIBits(nullptr, bitmap, 0, 2, out.data(), nullptr, DIB_RGB_COLORS), 0);
    HFONT font = CreateFontW(10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, nullptr);
    info = Info32(2, 2);
    EXPECT_EQ(GetDIBits(nullptr, font, 0, 2, out.data(), &info, DIB_RGB_COLORS), 0);
    DeleteObject(font);
    DeleteObject(bitmap);
}

// Every allocating call, with the N-th heap allocation made to fail for every
// N until the call succeeds: each failure is the documented null or 0.
TEST(GdiFaults, AllocationFailuresGiveNullOrZero) {
    using nplat::fault::Kind;
    using nplat::fault::Scope;
    std::vector<uint32_t> pixels(16);
    for (int skip = 0;; ++skip) {
        HDC dc = nullptr;
        HDC surface = nullptr;
        HFONT font = nullptr;
        HBITMAP bitmap = nullptr;
        int drawn = 0;
        {
            Scope fail(Kind::kHeap, skip);
            dc = CreateCompatibleDC(nullptr);
            surface = CreateSurfaceDC(pixels.data(), 4, 4, 16);
            font = CreateFontW(-8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
            bitmap = CreateBitmap(4, 4, 1, 32, nullptr);
            if (dc && font && bitmap) {
                SelectObject(dc, font);
                SelectObject(dc, bitmap);
                RECT rect = {0, 0, 4, 4};
                drawn = DrawTextW(dc, u"ab", 2, &rect, 0);
            }
        }
        const bool all = dc && surface && font && bitmap && drawn == 8;
        DeleteDC(dc);
        DeleteSurfaceDC(surface);
        DeleteObject(font);
        DeleteObject(bitmap);
        if (all) break;
        ASSERT_LT(skip, 20) << "allocations never stopped failing";
    }
}

}  // namespace

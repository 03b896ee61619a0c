// GDI-style text drawing: device contexts, fonts, 32-bit bitmaps, DrawTextW
// and GetDIBits, with the calling conventions of the Windows calls that the
// video render's text code was written against.
//
// Why this shape: the render copies colours, background mode and font from a
// host's style context into a surface or memory context and draws with
// DrawTextW, then reads a memory bitmap back with GetDIBits. Keeping those
// calls lets that code read line by line as it was designed.
//
// Rasterisers. Glyphs are drawn in monochrome: every pixel is either the text
// colour or left alone (transparent mode) / the background colour (opaque
// mode), because grey edges would fringe against the colour key that the
// transparent path keys out. Two rasterisers serve:
// - FreeType with fontconfig (when the library was built with them): the face
//   name, height, weight and italic flag of the LOGFONTW pick the font through
//   fontconfig; an empty face name means "sans-serif". Glyphs keep their
//   natural width (lfWidth is not applied); bold and italic are synthesised
//   when only a lighter or upright face is installed.
// - Box glyphs: selected by the face name "NCB Box", and the fallback when
//   FreeType or fontconfig is missing or no font file can be opened. The cell
//   height h is |lfHeight| (16 for 0); every character advances by lfWidth,
//   or max(1, h / 2) when lfWidth is 0; the space draws nothing, every other
//   character draws the one-pixel outline of its advance x h cell (two pixels
//   with lfWeight >= 600). The baseline lies h * 3 / 4 below the line top.
//   Layouts are thus computable by hand, for tests that must not depend on
//   installed fonts.
//
// Heights follow Windows: a negative lfHeight is the character (em) height in
// pixels, a positive one the cell height (ascent + descent), 0 a default of
// 16 pixels of cell height. Sizes are clamped to 1..2048 pixels.
//
// DrawTextW lays text out from the rectangle's top-left corner, one line per
// line break (CR LF, a lone CR and a lone LF each end a line), without
// wrapping. Empty text has no lines; "A\n" has two. Unless DT_NOPREFIX is
// given, '&' marks the next character with an underline and "&&" shows one
// '&', as on Windows. Every line is lineHeight tall and as wide as the sum of
// its advances. With DT_CALCRECT nothing is drawn: right becomes left plus
// the widest line, bottom becomes top plus the text height. Otherwise the text
// is drawn clipped to the rectangle (DT_NOCLIP: only to the target); in
// OPAQUE mode each line's cell box (its width x lineHeight) is first filled
// with the background colour. Both return the text height, 0 on failure
// (including unsupported format flags; empty text also returns 0).
//
// Targets. A memory context (CreateCompatibleDC) starts with a stock 1x1
// monochrome bitmap, as on Windows; drawing into it (or into any bitmap that
// is not 32-bit) draws nothing but still succeeds and measures. A 32-bit
// bitmap stores 0x00RRGGBB words, top row first; COLORREF values (0x00BBGGRR)
// are converted on the way in. A surface context (CreateSurfaceDC) draws
// straight into caller-owned 0x00RRGGBB pixels; it holds no bitmap.
//
// Object lifetime. Stock objects are never freed (DeleteObject on them is a
// successful no-op). DeleteObject on an object that is still selected into a
// context succeeds and defers the release until the object is deselected or
// its context is deleted, so neither a dangling selection nor a leak results.
// A bitmap can be selected into one context at a time; a font into any number.
//
// Thread safety: a context belongs to one thread at a time, as on Windows.
// Fonts and bitmaps may be selected into contexts on different threads
// concurrently; creation, selection and deletion bookkeeping and all glyph
// rasterisation are serialised inside the layer.
//
// Not provided: wrapping, alignment other than top-left, tab expansion,
// kerning, anti-aliasing, clip regions, pens, brushes and every other GDI call.
#pragma once

#include <cstdint>

#include "ncodecbase/export.h"
#include "ncodecbase/win_types.h"

namespace nplat {

using BYTE = uint8_t;
using WORD = uint16_t;

constexpr int LF_FACESIZE = 32;

struct LOGFONTW {
    LONG lfHeight;
    LONG lfWidth;
    LONG lfEscapement;
    LONG lfOrientation;
    LONG lfWeight;
    BYTE lfItalic;
    BYTE lfUnderline;
    BYTE lfStrikeOut;
    BYTE lfCharSet;
    BYTE lfOutPrecision;
    BYTE lfClipPrecision;
    BYTE lfQuality;
    BYTE lfPitchAndFamily;
    WCHAR lfFaceName[LF_FACESIZE];
};
static_assert(sizeof(LOGFONTW) == 92);

struct BITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight;  // positive: bottom-up rows; negative: top-down
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
};
static_assert(sizeof(BITMAPINFOHEADER) == 40);

struct RGBQUAD {
    BYTE rgbBlue;
    BYTE rgbGreen;
    BYTE rgbRed;
    BYTE rgbReserved;
};

struct BITMAPINFO {
    BITMAPINFOHEADER bmiHeader;
    RGBQUAD bmiColors[1];
};
static_assert(sizeof(BITMAPINFO) == 44);

constexpr DWORD BI_RGB = 0;
constexpr UINT DIB_RGB_COLORS = 0;

// Stock objects and object types.
constexpr int SYSTEM_FONT = 13;       // sans-serif, bold, cell height 16
constexpr int DEFAULT_GUI_FONT = 17;  // sans-serif, regular, character height 11
constexpr UINT OBJ_FONT = 6;
constexpr UINT OBJ_BITMAP = 7;

// Font weights.
constexpr LONG FW_DONTCARE = 0;
constexpr LONG FW_NORMAL = 400;
constexpr LONG FW_BOLD = 700;

// Background modes.
constexpr int TRANSPARENT = 1;
constexpr int OPAQUE = 2;

constexpr COLORREF CLR_INVALID = 0xFFFFFFFFu;

// DrawTextW format flags that are accepted; any other bit fails the call.
constexpr UINT DT_TOP = 0;
constexpr UINT DT_LEFT = 0;
constexpr UINT DT_SINGLELINE = 0x20;  // line breaks are dropped, one line results
constexpr UINT DT_NOCLIP = 0x100;
constexpr UINT DT_CALCRECT = 0x400;
constexpr UINT DT_NOPREFIX = 0x800;

inline constexpr COLORREF RGB(BYTE r, BYTE g, BYTE b) {
    return static_cast<COLORREF>(r) | (static_cast<COLORREF>(g) << 8) |
           (static_cast<COLORREF>(b) << 16);
}

// Contexts. CreateCompatibleDC ignores `reference` (which may be null) beyond
// accepting it: every memory context draws into 32-bit bitmaps. Null when
// memory runs out. DeleteDC returns 1, 0 for null.
NCB_API HDC CreateCompatibleDC(HDC reference);
NCB_API BOOL DeleteDC(HDC dc);

// A context drawing straight into a surface's pixels: 32-bit 0x00RRGGBB
// words, `pitchBytes` apart (negative for bottom-up storage; pixels then
// points at the top row), top row first. The caller keeps the pixels alive
// until DeleteSurfaceDC. Null for bad geometry or when memory runs out.
NCB_API HDC CreateSurfaceDC(void* pixels, int width, int height, int pitchBytes);
NCB_API void DeleteSurfaceDC(HDC dc);

// Fonts. Null when memory runs out or for a null description. The face is
// resolved on first use, so creation itself never touches fontconfig.
NCB_API HFONT CreateFontIndirectW(const LOGFONTW* font);
NCB_API HFONT CreateFontW(int height, int width, int escapement, int orientation, int weight,
                          DWORD italic, DWORD underline, DWORD strikeOut, DWORD charSet,
                          DWORD outPrecision, DWORD clipPrecision, DWORD quality,
                          DWORD pitchAndFamily, const WCHAR* faceName);

// 32-bit bitmaps: planes must be 1 and bits 32 (anything else gives null);
// `bits`, when given, holds width x height 0x00RRGGBB words, top row first;
// without it the bitmap starts black. Null for an empty or oversized bitmap
// or when memory runs out.
NCB_API HBITMAP CreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel,
                             const void* bits);

// SYSTEM_FONT and DEFAULT_GUI_FONT; null for any other index.
NCB_API HGDIOBJ GetStockObject(int index);
// Selects a font or bitmap and returns the previous object of the same type;
// null for a null argument, a bitmap on a surface context, or a bitmap that
// another context holds.
NCB_API HGDIOBJ SelectObject(HDC dc, HGDIOBJ object);
// OBJ_FONT or OBJ_BITMAP; null otherwise and for a surface's bitmap.
NCB_API HGDIOBJ GetCurrentObject(HDC dc, UINT type);
// 1, 0 for null. See "Object lifetime" above for selected and stock objects.
NCB_API BOOL DeleteObject(HGDIOBJ object);

// Colours and modes return the previous value; CLR_INVALID or 0 on failure
// (null context; a mode other than TRANSPARENT and OPAQUE). New contexts draw
// black text on white in OPAQUE mode.
NCB_API COLORREF SetTextColor(HDC dc, COLORREF colour);
NCB_API COLORREF GetTextColor(HDC dc);
NCB_API COLORREF SetBkColor(HDC dc, COLORREF colour);
NCB_API COLORREF GetBkColor(HDC dc);
NCB_API int SetBkMode(HDC dc, int mode);
NCB_API int GetBkMode(HDC dc);

// Draws or measures `count` UTF-16 units (-1: up to a terminating zero) with
// the context's font; see the layout rules above. Returns the text height.
NCB_API int DrawTextW(HDC dc, const WCHAR* text, int count, RECT* rect, UINT format);

// Copies rows of a bitmap as a 32-bit BI_RGB DIB. `info` must describe 32
// bits, one plane, BI_RGB, the bitmap's width and |biHeight| equal to its
// height; a positive biHeight gives bottom-up rows (DIB row 0 is the bottom
// row), a negative one top-down. Rows start .. start + lines - 1 of the DIB
// (clipped to its height) are written to `bits` back to back, width x 4 bytes
// each. With `bits` null only the header is completed (size, planes, bits,
// compression, image size) from the bitmap. Returns the number of rows
// copied (1 for a header-only call), 0 on failure. `dc` is not used and may
// be null.
NCB_API int GetDIBits(HDC dc, HBITMAP bitmap, UINT start, UINT lines, void* bits, BITMAPINFO* info,
                      UINT usage);

// Which rasteriser serves a font, for callers and tests that must know
// whether installed fonts are in play. Resolves the face if not done yet.
struct GdiFontInfo {
    int freeType;     // 1: FreeType glyphs; 0: box glyphs
    char family[64];  // family that fontconfig chose (UTF-8), "NCB Box" for box glyphs
    int lineHeight;   // cell height of one line in pixels
    int ascent;       // line top to baseline in pixels
};
NCB_API BOOL GetGdiFontInfo(HFONT font, GdiFontInfo* info);

}  // namespace nplat

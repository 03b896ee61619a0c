// GDI-style contexts, fonts and bitmaps: creation, selection with Windows'
// "returns the previous object" rule, deferred deletion of selected objects,
// colours and modes, and GetDIBits.
//
// Why deferred deletion: callers written for Windows often delete a bitmap or
// font while a context still holds it. Freeing it at once would leave the
// context dangling; refusing would leak it. The object is released when its
// last selection ends instead.
//
// Not here: glyph rasterisation and text layout (draw_text.cpp and the glyph
// sources).
#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/gdi/gdi_internal.h"
#include "platform/kernel/heap.h"

namespace nplat {
namespace gdi {

std::mutex& GdiLock() {
    static std::mutex lock;
    return lock;
}

bool WantsBoxGlyphs(const LOGFONTW& font) {
    static const char kBoxName[] = "ncb box";
    for (int i = 0; i < LF_FACESIZE; ++i) {
        char16_t c = font.lfFaceName[i];
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
        if (c != static_cast<unsigned char>(kBoxName[i])) return false;
        if (c == 0) return true;
    }
    return false;
}

GlyphSource* ResolveFont(GdiObject* font) {
    if (font->glyphs) return font->glyphs;
    GlyphSource* source = nullptr;
    if (!WantsBoxGlyphs(font->logFont)) source = CreateFreeTypeGlyphs(font->logFont);
    if (!source) source = CreateBoxGlyphs(font->logFont);
    // Null here means memory ran out; a later call tries again.
    font->glyphs = source;
    return source;
}

}  // namespace gdi

namespace {

using gdi::GdiLock;

LOGFONTW StockLogFont(LONG height, LONG weight) {
    LOGFONTW font = {};
    font.lfHeight = height;
    font.lfWeight = weight;
    const char16_t kFace[] = u"sans-serif";
    std::memcpy(font.lfFaceName, kFace, sizeof(kFace));
    return font;
}

GdiObject* MakeStockFont(LONG height, LONG weight) {
    // Stock objects live for the whole process; their storage is static so
    // that they exist even when the heap refuses.
    static GdiObject storage[2];
    GdiObject* font = &storage[weight == FW_BOLD ? 0 : 1];
    font->type = GdiObject::Type::kFont;
    font->stock = true;
    font->logFont = StockLogFont(height, weight);
    return font;
}

GdiObject* StockSystemFont() {
    static GdiObject* font = MakeStockFont(16, FW_BOLD);
    return font;
}

GdiObject* StockGuiFont() {
    static GdiObject* font = MakeStockFont(-11, FW_NORMAL);
    return font;
}

GdiObject* StockMonoBitmap() {
    static uint32_t pixel = 0;
    static GdiObject bitmap = [] {
        GdiObject b;
        b.type = GdiObject::Type::kBitmap;
        b.stock = true;
        b.width = 1;
        b.height = 1;
        b.bitsPerPixel = 1;
        b.pixels = &pixel;
        return b;
    }();
    return &bitmap;
}

void FreeObject(GdiObject* object) {
    if (object->glyphs) HeapDelete(object->glyphs);
    HeapFree(object->pixels);
    HeapDelete(object);
}

// Called with GdiLock held when a context stops holding `object`.
void Deselect(GdiObject* object) {
    if (!object) return;
    --object->selections;
    if (object->deletePending && object->selections == 0) FreeObject(object);
}

void Select(GdiObject* object) { ++object->selections; }

HDC NewContext(bool surface) {
    DeviceContext* dc = HeapNew<DeviceContext>();
    if (!dc) return nullptr;
    dc->surface = surface;
    std::lock_guard<std::mutex> hold(GdiLock());
    dc->font = StockSystemFont();
    Select(dc->font);
    if (!surface) {
        dc->bitmap = StockMonoBitmap();
        Select(dc->bitmap);
    }
    return dc;
}

void FreeContext(HDC dc) {
    {
        std::lock_guard<std::mutex> hold(GdiLock());
        Deselect(dc->font);
        Deselect(dc->bitmap);
    }
    HeapDelete(dc);
}

}  // namespace

HDC CreateCompatibleDC(HDC) { return NewContext(false); }

BOOL DeleteDC(HDC dc) {
    if (!dc) return 0;
    FreeContext(dc);
    return 1;
}

HDC CreateSurfaceDC(void* pixels, int width, int height, int pitchBytes) {
    if (!pixels || width <= 0 || height <= 0) return nullptr;
    const int64_t rowBytes = static_cast<int64_t>(width) * 4;
    const int64_t pitch = pitchBytes < 0 ? -static_cast<int64_t>(pitchBytes) : pitchBytes;
    if (pitch < rowBytes) return nullptr;
    HDC dc = NewContext(true);
    if (!dc) return nullptr;
    dc->surfacePixels = static_cast<uint8_t*>(pixels);
    dc->surfaceWidth = width;
    dc->surfaceHeight = height;
    dc->surfacePitch = pitchBytes;
    return dc;
}

void DeleteSurfaceDC(HDC dc) {
    if (dc && dc->surface) FreeContext(dc);
}

HFONT CreateFontIndirectW(const LOGFONTW* font) {
    if (!font) return nullptr;
    GdiObject* object = HeapNew<GdiObject>();
    if (!object) return nullptr;
    object->type = GdiObject::Type::kFont;
    object->logFont = *font;
    object->logFont.lfFaceName[LF_FACESIZE - 1] = 0;
    return object;
}

HFONT CreateFontW(int height, int width, int escapement, int orientation, int weight, DWORD italic,
                  DWORD underline, DWORD strikeOut, DWORD charSet, DWORD outPrecision,
                  DWORD clipPrecision, DWORD quality, DWORD pitchAndFamily, const WCHAR* faceName) {
    LOGFONTW font = {};
    font.lfHeight = height;
    font.lfWidth = width;
    font.lfEscapement = escapement;
    font.lfOrientation = orientation;
    font.lfWeight = weight;
    font.lfItalic = static_cast<BYTE>(italic);
    font.lfUnderline = static_cast<BYTE>(underline);
    font.lfStrikeOut = static_cast<BYTE>(strikeOut);
    font.lfCharSet = static_cast<BYTE>(charSet);
    font.lfOutPrecision = static_cast<BYTE>(outPrecision);
    font.lfClipPrecision = static_cast<BYTE>(clipPrecision);
    font.lfQuality = static_cast<BYTE>(quality);
    font.lfPitchAndFamily = static_cast<BYTE>(pitchAndFamily);
    for (int i = 0; faceName && i < LF_FACESIZE - 1 && faceName[i]; ++i) {
        font.lfFaceName[i] = faceName[i];
    }
    return CreateFontIndirectW(&font);
}

HBITMAP CreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel, const void* bits) {
    if (planes != 1 || bitsPerPixel != 32) return nullptr;
    // 32768 on a side and 1 GiB in all keep every size computation in range.
    constexpr int kMaxSide = 32768;
    constexpr int64_t kMaxBytes = int64_t{1} << 30;
    if (width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide) return nullptr;
    const int64_t bytes = static_cast<int64_t>(width) * height * 4;
    if (bytes > kMaxBytes) return nullptr;
    GdiObject* object = HeapNew<GdiObject>();
    if (!object) return nullptr;
    object->pixels = static_cast<uint32_t*>(HeapAlloc(static_cast<size_t>(bytes)));
    if (!object->pixels) {
        HeapDelete(object);
        return nullptr;
    }
    object->type = GdiObject::Type::kBitmap;
    object->width = width;
    object->height = height;
    if (bits) {
        std::memcpy(object->pixels, bits, static_cast<size_t>(bytes));
    } else {
        std::memset(object->pixels, 0, static_cast<size_t>(bytes));
    }
    return object;
}

HGDIOBJ GetStockObject(int index) {
    if (index == SYSTEM_FONT) return StockSystemFont();
    if (index == DEFAULT_GUI_FONT) return StockGuiFont();
    return nullptr;
}

HGDIOBJ SelectObject(HDC dc, HGDIOBJ object) {
    if (!dc || !object) return nullptr;
    std::lock_guard<std::mutex> hold(GdiLock());
    if (object->deletePending) return nullptr;
    GdiObject** slot = object->type == GdiObject::Type::kFont ? &dc->font : &dc->bitmap;
    if (object->type == GdiObject::Type::kBitmap) {
        if (dc->surface) return nullptr;
        // A bitmap belongs to one context at a time; the stock one is shared.
        if (object != *slot && object->selections > 0 && !object->stock) return nullptr;
    }
    GdiObject* previous = *slot;
    if (previous == object) return previous;
    Select(object);
    *slot = object;
    // A previous object whose deletion was pending is freed here; its handle
    // is then as dead as a deleted handle on Windows.
    Deselect(previous);
    return previous;
}

HGDIOBJ GetCurrentObject(HDC dc, UINT type) {
    if (!dc) return nullptr;
    if (type == OBJ_FONT) return dc->font;
    if (type == OBJ_BITMAP) return dc->bitmap;
    return nullptr;
}

BOOL DeleteObject(HGDIOBJ object) {
    if (!object) return 0;
    std::lock_guard<std::mutex> hold(GdiLock());
    if (object->stock) return 1;
    if (object->selections > 0) {
        object->deletePending = true;
        return 1;
    }
    FreeObject(object);
    return 1;
}

COLORREF SetTextColor(HDC dc, COLORREF colour) {
    if (!dc) return CLR_INVALID;
    COLORREF previous = dc->textColour;
    dc->textColour = colour & 0x00FFFFFFu;
    return previous;
}

COLORREF GetTextColor(HDC dc) { return dc ? dc->textColour : CLR_INVALID; }

COLORREF SetBkColor(HDC dc, COLORREF colour) {
    if (!dc) return CLR_INVALID;
    COLORREF previous = dc->bkColour;
    dc->bkColour = colour & 0x00FFFFFFu;
    return previous;
}

COLORREF GetBkColor(HDC dc) { return dc ? dc->bkColour : CLR_INVALID; }

int SetBkMode(HDC dc, int mode) {
    if (!dc || (mode != TRANSPARENT && mode != OPAQUE)) return 0;
    int previous = dc->bkMode;
    dc->bkMode = mode;
    return previous;
}

int GetBkMode(HDC dc) { return dc ? dc->bkMode : 0; }

int GetDIBits(HDC, HBITMAP bitmap, UINT start, UINT lines, void* bits, BITMAPINFO* info,
              UINT usage) {
    if (!bitmap || bitmap->type != GdiObject::Type::kBitmap || !info) return 0;
    if (usage != DIB_RGB_COLORS) return 0;
    BITMAPINFOHEADER& header = info->bmiHeader;
    if (header.biSize < sizeof(BITMAPINFOHEADER)) return 0;
    const uint32_t imageBytes = static_cast<uint32_t>(bitmap->width) * bitmap->height * 4;
    if (!bits) {
        header.biWidth = bitmap->width;
        header.biHeight = bitmap->height;
        header.biPlanes = 1;
        header.biBitCount = 32;
        header.biCompression = BI_RGB;
        header.biSizeImage = imageBytes;
        return 1;
    }
    if (header.biPlanes != 1 || header.biBitCount != 32 || header.biCompression != BI_RGB) {
        return 0;
    }
    const bool bottomUp = header.biHeight > 0;
    const int64_t dibHeight = bottomUp ? header.biHeight : -static_cast<int64_t>(header.biHeight);
    if (header.biWidth != bitmap->width || dibHeight != bitmap->height) return 0;
    if (start >= static_cast<UINT>(bitmap->height)) return 0;
    const UINT count = std::min<UINT>(lines, static_cast<UINT>(bitmap->height) - start);
    const size_t rowBytes = static_cast<size_t>(bitmap->width) * 4;
    auto* out = static_cast<uint8_t*>(bits);
    for (UINT i = 0; i < count; ++i) {
        const UINT dibRow = start + i;
        const UINT row = bottomUp ? static_cast<UINT>(bitmap->height) - 1 - dibRow : dibRow;
        std::memcpy(out + i * rowBytes, bitmap->pixels + static_cast<size_t>(row) * bitmap->width,
                    rowBytes);
    }
    header.biSizeImage = imageBytes;
    return static_cast<int>(count);
}

BOOL GetGdiFontInfo(HFONT font, GdiFontInfo* info) {
    if (!font || font->type != GdiObject::Type::kFont || !info) return 0;
    std::lock_guard<std::mutex> hold(GdiLock());
    gdi::GlyphSource* glyphs = gdi::ResolveFont(font);
    if (!glyphs) return 0;
    info->freeType = glyphs->IsFreeType() ? 1 : 0;
    std::memcpy(info->family, glyphs->Family(), sizeof(info->family));
    info->family[sizeof(info->family) - 1] = 0;
    info->lineHeight = glyphs->LineHeight();
    info->ascent = glyphs->Ascent();
    return 1;
}

}  // namespace nplat

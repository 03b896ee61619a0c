// The objects behind the GDI-style handles: contexts (memory or surface),
// fonts and bitmaps, shared by the object calls and the text drawing.
//
// One process-wide mutex (GdiLock) guards selection bookkeeping, lazy font
// resolution and glyph rasterisation; a context itself belongs to one thread
// at a time, so its colours and modes are plain fields.
#pragma once

#include <cstdint>
#include <mutex>

#include "ncodecbase/gdi_text.h"
#include "platform/gdi/glyph_source.h"

namespace nplat {

class GdiObject {
  public:
    enum class Type { kFont, kBitmap };

    Type type = Type::kFont;
    bool stock = false;
    bool deletePending = false;  // DeleteObject came while selected
    int selections = 0;          // contexts that hold it now

    // Font.
    LOGFONTW logFont = {};
    gdi::GlyphSource* glyphs = nullptr;  // resolved on first use

    // Bitmap: 0x00RRGGBB words, top row first. bitsPerPixel 1 marks the stock
    // monochrome bitmap, which is never drawn into.
    int width = 0;
    int height = 0;
    int bitsPerPixel = 32;
    uint32_t* pixels = nullptr;
};

class DeviceContext {
  public:
    bool surface = false;
    GdiObject* font = nullptr;
    GdiObject* bitmap = nullptr;  // memory contexts only

    // Surface contexts: caller-owned pixels.
    uint8_t* surfacePixels = nullptr;
    int surfaceWidth = 0;
    int surfaceHeight = 0;
    int surfacePitch = 0;

    COLORREF textColour = 0x000000;
    COLORREF bkColour = 0xFFFFFF;
    int bkMode = OPAQUE;
};

namespace gdi {

std::mutex& GdiLock();
// The glyph source of a font, resolving it on first use; null only when
// memory runs out. Call with GdiLock held.
GlyphSource* ResolveFont(GdiObject* font);

inline uint32_t ColourToPixel(COLORREF c) {
    return ((c & 0xFFu) << 16) | (c & 0xFF00u) | ((c >> 16) & 0xFFu);
}

}  // namespace gdi
}  // namespace nplat

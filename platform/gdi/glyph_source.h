// Glyph sources behind the GDI-style text layer: one object per resolved
// font that gives line metrics, advances and monochrome glyph masks.
//
// Two implementations: box glyphs (always present, deterministic, the rule
// is documented in gdi.h) and FreeType faces chosen through fontconfig
// (compiled in only with NCB_HAVE_FREETYPE). Callers hold GdiLock() around
// every call: a FreeType face must not be used by two threads at once.
//
// Not here: layout, clipping and painting (draw_text.cpp).
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/gdi_text.h"

namespace nplat::gdi {

// How a glyph's pixels are described. A box glyph is the outline of a
// rectangle; the others are bitmaps (1 bit per pixel, most significant bit
// first, or 8-bit coverage that is thresholded at one half).
enum class MaskKind { kNone, kBoxOutline, kMono, kGray };

struct GlyphMask {
    MaskKind kind = MaskKind::kNone;
    int left = 0;  // first column relative to the pen
    int top = 0;   // first row, counted upwards from the baseline (FreeType's rule)
    int width = 0;
    int rows = 0;
    int pitch = 0;                  // bytes per bitmap row; may be negative
    int thickness = 0;              // outline width of a box glyph
    const uint8_t* bits = nullptr;  // bitmap rows; valid until the next call
};

class GlyphSource {
  public:
    virtual ~GlyphSource() = default;
    int LineHeight() const { return lineHeight_; }
    int Ascent() const { return ascent_; }
    bool IsFreeType() const { return freeType_; }
    const char* Family() const { return family_; }

    // Advance of a character in whole pixels (0 when it cannot be loaded).
    virtual int Advance(char32_t c) = 0;
    // The glyph's pixels; kind kNone when it draws nothing.
    virtual GlyphMask Render(char32_t c) = 0;

  protected:
    int lineHeight_ = 1;
    int ascent_ = 1;
    bool freeType_ = false;
    char family_[64] = {};
};

constexpr int kDefaultCellHeight = 16;
constexpr int kMaxFontPixels = 2048;

// Box glyphs for a font description; null when memory runs out.
GlyphSource* CreateBoxGlyphs(const LOGFONTW& font);
// A FreeType face for the description, or null when FreeType is not built in,
// no usable font file matches, or memory runs out.
GlyphSource* CreateFreeTypeGlyphs(const LOGFONTW& font);
// True when the face name asks for box glyphs ("NCB Box", any case).
bool WantsBoxGlyphs(const LOGFONTW& font);

}  // namespace nplat::gdi

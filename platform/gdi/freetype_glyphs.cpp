// FreeType glyphs chosen through fontconfig: the LOGFONTW's face name,
// weight and italic flag become a fontconfig pattern, the best match is
// opened as a FreeType face and sized by Windows' height rule (negative:
// em height; positive: cell height, scaled by the font's Windows ascent and
// descent). Glyphs are hinted for and rendered in monochrome.
//
// Bold and italic are synthesised (emboldened outline, oblique shear) when
// fontconfig can only offer a lighter or upright face, as Windows does.
//
// Not here: lfWidth (glyphs keep their natural width), escapement, font
// fallback per character (a missing glyph draws the font's .notdef), bitmap-
// only fonts (a face that cannot scale falls back to box glyphs).
#include "platform/gdi/glyph_source.h"

#if NCB_HAVE_FREETYPE

#include <fontconfig/fontconfig.h>
#include <ft2build.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include FT_FREETYPE_H
#include FT_SYNTHESIS_H
#include FT_TRUETYPE_TABLES_H

#include "platform/gdi/gdi_internal.h"
#include "platform/kernel/heap.h"
#include "platform/win/text_conversion.h"

namespace nplat::gdi {
namespace {

// Process-wide FreeType and fontconfig state, made on first use and kept for
// the life of the process (faces made from it may outlive any owner).
FT_Library Library() {
    static FT_Library library = [] {
        FT_Library made = nullptr;
        return FT_Init_FreeType(&made) == 0 ? made : nullptr;
    }();
    return library;
}

bool g_fontconfigClosed = false;  // guarded by GdiLock

// fontconfig keeps parser state that only FcFini releases; without it every
// process that drew text would report leaks under the sanitizers. A thread
// still drawing at exit keeps the lock, and then the state is left alone.
void CloseFontconfig() {
    std::unique_lock<std::mutex> hold(GdiLock(), std::try_to_lock);
    if (!hold.owns_lock()) return;
    g_fontconfigClosed = true;
    FcFini();
}

// Called with GdiLock held.
bool FontconfigReady() {
    static const bool ready = [] {
        if (FcInit() != FcTrue) return false;
        std::atexit(CloseFontconfig);
        return true;
    }();
    return ready && !g_fontconfigClosed;
}

int64_t RoundDiv(int64_t num, int64_t den) { return (num + den / 2) / den; }

class FreeTypeGlyphs final : public GlyphSource {
  public:
    FreeTypeGlyphs() {
        freeType_ = true;
        std::fill(std::begin(asciiAdvance_), std::end(asciiAdvance_), int16_t{-1});
    }
    ~FreeTypeGlyphs() override {
        if (face_) FT_Done_Face(face_);
    }
    FreeTypeGlyphs(const FreeTypeGlyphs&) = delete;
    FreeTypeGlyphs& operator=(const FreeTypeGlyphs&) = delete;

    bool Open(const LOGFONTW& font);

    int Advance(char32_t c) override {
        if (c < 256 && asciiAdvance_[c] >= 0) return asciiAdvance_[c];
        const int advance = Load(c) ? static_cast<int>((face_->glyph->advance.x + 32) >> 6) : 0;
        if (c < 256) asciiAdvance_[c] = static_cast<int16_t>(std::clamp(advance, 0, 32767));
        return advance;
    }

    GlyphMask Render(char32_t c) override {
        GlyphMask mask;
        if (!Load(c)) return mask;
        FT_GlyphSlot slot = face_->glyph;
        if (slot->format != FT_GLYPH_FORMAT_BITMAP &&
            FT_Render_Glyph(slot, FT_RENDER_MODE_MONO) != 0) {
            return mask;
        }
        const FT_Bitmap& bitmap = slot->bitmap;
        if (!bitmap.buffer || bitmap.pitch <= 0) return mask;
        if (bitmap.pixel_mode == FT_PIXEL_MODE_MONO) {
            mask.kind = MaskKind::kMono;
        } else if (bitmap.pixel_mode == FT_PIXEL_MODE_GRAY) {
            mask.kind = MaskKind::kGray;
        } else {
            return mask;  // colour bitmaps have no monochrome form
        }
        mask.left = slot->bitmap_left;
        mask.top = slot->bitmap_top;
        mask.width = static_cast<int>(bitmap.width);
        mask.rows = static_cast<int>(bitmap.rows);
        mask.pitch = bitmap.pitch;
        mask.bits = bitmap.buffer;
        return mask;
    }

  private:
    bool Match(const LOGFONTW& font, FcChar8** file, int* index, int* weight, int* slant,
               FcPattern** match);
    bool SetSize(const LOGFONTW& font);

    bool Load(char32_t c) {
        const FT_UInt index = FT_Get_Char_Index(face_, c);
        if (FT_Load_Glyph(face_, index, FT_LOAD_TARGET_MONO) != 0) return false;
        if (face_->glyph->format == FT_GLYPH_FORMAT_OUTLINE) {
            if (oblique_) FT_GlyphSlot_Oblique(face_->glyph);
            if (embolden_) FT_GlyphSlot_Embolden(face_->glyph);
        }
        return true;
    }

    FT_Face face_ = nullptr;
    bool embolden_ = false;
    bool oblique_ = false;
    int16_t asciiAdvance_[256];
};

bool FreeTypeGlyphs::Match(const LOGFONTW& font, FcChar8** file, int* index, int* weight,
                           int* slant, FcPattern** match) {
    char name[LF_FACESIZE * 3 + 1] = {};
    int nameLength = 0;
    for (; nameLength < LF_FACESIZE && font.lfFaceName[nameLength]; ++nameLength) {
    }
    if (nameLength > 0 && WideCharToMultiByte(CP_UTF8, 0, font.lfFaceName, nameLength, name,
                                              sizeof(name) - 1, nullptr, nullptr) <= 0) {
        return false;
    }
    FcPattern* pattern = FcPatternCreate();
    if (!pattern) return false;
    const int requestedWeight = font.lfWeight > 0 ? std::clamp<int>(font.lfWeight, 1, 1000) : 400;
    FcPatternAddString(pattern, FC_FAMILY,
                       reinterpret_cast<const FcChar8*>(name[0] ? name : "sans-serif"));
    FcPatternAddInteger(pattern, FC_WEIGHT, FcWeightFromOpenType(requestedWeight));
    FcPatternAddInteger(pattern, FC_SLANT, font.lfItalic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    FcPatternAddBool(pattern, FC_SCALABLE, FcTrue);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    *match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    if (!*match || FcPatternGetString(*match, FC_FILE, 0, file) != FcResultMatch) return false;
    if (FcPatternGetInteger(*match, FC_INDEX, 0, index) != FcResultMatch) *index = 0;
    if (FcPatternGetInteger(*match, FC_WEIGHT, 0, weight) != FcResultMatch) {
        *weight = FC_WEIGHT_REGULAR;
    }
    if (FcPatternGetInteger(*match, FC_SLANT, 0, slant) != FcResultMatch) *slant = FC_SLANT_ROMAN;
    FcChar8* family = nullptr;
    if (FcPatternGetString(*match, FC_FAMILY, 0, &family) == FcResultMatch) {
        std::strncpy(family_, reinterpret_cast<const char*>(family), sizeof(family_) - 1);
    }
    embolden_ = requestedWeight >= 600 && *weight < FC_WEIGHT_DEMIBOLD;
    oblique_ = font.lfItalic && *slant == FC_SLANT_ROMAN;
    return true;
}

bool FreeTypeGlyphs::SetSize(const LOGFONTW& font) {
    // Windows measures cells with the OS/2 table's Windows ascent and
    // descent; fonts without one fall back to the horizontal header.
    const auto* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face_, FT_SFNT_OS2));
    int64_t ascender = face_->ascender;
    int64_t descender = -static_cast<int64_t>(face_->descender);
    if (os2 && os2->version != 0xFFFF && os2->usWinAscent + os2->usWinDescent > 0) {
        ascender = os2->usWinAscent;
        descender = os2->usWinDescent;
    }
    const int64_t unitsPerEm = std::max<int64_t>(1, face_->units_per_EM);
    if (ascender <= 0) ascender = unitsPerEm;
    descender = std::max<int64_t>(0, descender);
    const int64_t cellUnits = ascender + descender;

    int64_t request = font.lfHeight == 0 ? kDefaultCellHeight : font.lfHeight;
    request = std::clamp<int64_t>(request, -kMaxFontPixels, kMaxFontPixels);
    int64_t em = 0;
    if (request > 0) {
        em = RoundDiv(request * unitsPerEm, cellUnits);
        lineHeight_ = static_cast<int>(request);
        ascent_ = static_cast<int>(RoundDiv(request * ascender, cellUnits));
    } else {
        em = -request;
        ascent_ = static_cast<int>(RoundDiv(em * ascender, unitsPerEm));
        lineHeight_ = ascent_ + static_cast<int>(RoundDiv(em * descender, unitsPerEm));
    }
    lineHeight_ = std::max(1, lineHeight_);
    ascent_ = std::clamp(ascent_, 0, lineHeight_);
    em = std::clamp<int64_t>(em, 1, kMaxFontPixels);
    return FT_Set_Pixel_Sizes(face_, 0, static_cast<FT_UInt>(em)) == 0;
}

bool FreeTypeGlyphs::Open(const LOGFONTW& font) {
    if (!FontconfigReady() || !Library()) return false;
    FcChar8* file = nullptr;
    FcPattern* match = nullptr;
    int index = 0, weight = 0, slant = 0;
    bool ok = Match(font, &file, &index, &weight, &slant, &match) &&
              FT_New_Face(Library(), reinterpret_cast<const char*>(file), index, &face_) == 0;
    if (match) FcPatternDestroy(match);
    if (!ok) return false;
    if (!FT_IS_SCALABLE(face_)) return false;
    FT_Select_Charmap(face_, FT_ENCODING_UNICODE);
    return SetSize(font);
}

}  // namespace

GlyphSource* CreateFreeTypeGlyphs(const LOGFONTW& font) {
    FreeTypeGlyphs* glyphs = HeapNew<FreeTypeGlyphs>();
    if (!glyphs) return nullptr;
    if (!glyphs->Open(font)) {
        HeapDelete(glyphs);
        return nullptr;
    }
    return glyphs;
}

}  // namespace nplat::gdi

#else  // !NCB_HAVE_FREETYPE

namespace nplat::gdi {

GlyphSource* CreateFreeTypeGlyphs(const LOGFONTW&) { return nullptr; }

}  // namespace nplat::gdi

#endif

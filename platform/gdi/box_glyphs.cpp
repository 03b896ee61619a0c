// Box glyphs: a rasteriser that needs no font files, so that text layouts in
// tests are computable by hand and independent of what is installed. Every
// character but the space is the outline of its cell; the rule is stated in
// gdi.h where callers read it.
//
// Not here: any per-character shape beyond blank or outline, italics.
#include <algorithm>
#include <cstring>

#include "platform/gdi/glyph_source.h"
#include "platform/kernel/heap.h"

namespace nplat::gdi {
namespace {

class BoxGlyphs final : public GlyphSource {
  public:
    explicit BoxGlyphs(const LOGFONTW& font) {
        int64_t height = font.lfHeight < 0 ? -static_cast<int64_t>(font.lfHeight) : font.lfHeight;
        if (height == 0) height = kDefaultCellHeight;
        const int h = static_cast<int>(std::min<int64_t>(height, kMaxFontPixels));
        const int64_t width = font.lfWidth > 0 ? font.lfWidth : std::max(1, h / 2);
        advance_ = static_cast<int>(std::min<int64_t>(width, kMaxFontPixels));
        thickness_ = font.lfWeight >= 600 ? 2 : 1;
        lineHeight_ = h;
        ascent_ = h * 3 / 4;
        std::strcpy(family_, "NCB Box");
    }

    int Advance(char32_t) override { return advance_; }

    GlyphMask Render(char32_t c) override {
        GlyphMask mask;
        if (c == U' ') return mask;
        mask.kind = MaskKind::kBoxOutline;
        mask.left = 0;
        mask.top = ascent_;
        mask.width = advance_;
        mask.rows = lineHeight_;
        mask.thickness = thickness_;
        return mask;
    }

  private:
    int advance_ = 1;
    int thickness_ = 1;
};

}  // namespace

GlyphSource* CreateBoxGlyphs(const LOGFONTW& font) { return HeapNew<BoxGlyphs>(font); }

}  // namespace nplat::gdi

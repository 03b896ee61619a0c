// DrawTextW: lays text out from the rectangle's top-left corner, one line
// per CR/LF break, and paints monochrome glyphs into a memory bitmap or a
// surface. Each line is measured first (its width is the opaque cell box and
// the DT_CALCRECT result), then drawn from the same position in the text, so
// no line table is allocated.
//
// Coordinates are carried in 64 bits: a long text with a large font may run
// past the int range, and such runs must clip rather than wrap around.
//
// Not here: wrapping, alignment, tab expansion, kerning and grey levels; the
// rules callers rely on are in gdi.h.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <mutex>

#include "platform/gdi/gdi_internal.h"

namespace nplat {
namespace {

using gdi::GlyphMask;
using gdi::GlyphSource;
using gdi::MaskKind;

constexpr UINT kSupportedFormat = DT_SINGLELINE | DT_NOCLIP | DT_CALCRECT | DT_NOPREFIX;

bool IsBreak(WCHAR u) { return u == u'\r' || u == u'\n'; }

// Walks UTF-16 text as glyphs and line breaks, applying the '&' prefix rule
// and joining surrogate pairs (a lone surrogate becomes U+FFFD).
class TextCursor {
  public:
    enum class Item { kGlyph, kBreak, kEnd };

    TextCursor(const WCHAR* text, const WCHAR* end, bool prefix, bool singleLine)
        : p_(text), end_(end), prefix_(prefix), singleLine_(singleLine) {}

    Item Next(char32_t* c, bool* underline) {
        *underline = false;
        while (p_ < end_) {
            WCHAR u = *p_++;
            if (IsBreak(u)) {
                if (u == u'\r' && p_ < end_ && *p_ == u'\n') ++p_;
                if (singleLine_) continue;
                return Item::kBreak;
            }
            if (prefix_ && u == u'&') {
                if (p_ == end_ || IsBreak(*p_)) continue;  // a dangling '&' shows nothing
                if (*p_ != u'&') *underline = true;
                u = *p_++;
            }
            *c = Decode(u);
            return Item::kGlyph;
        }
        return Item::kEnd;
    }

  private:
    char32_t Decode(WCHAR u) {
        if (u < 0xD800 || u > 0xDFFF) return u;
        if (u <= 0xDBFF && p_ < end_ && *p_ >= 0xDC00 && *p_ <= 0xDFFF) {
            char32_t low = *p_++;
            return 0x10000 + ((static_cast<char32_t>(u) - 0xD800) << 10) + (low - 0xDC00);
        }
        return 0xFFFD;
    }

    const WCHAR* p_;
    const WCHAR* end_;
    bool prefix_;
    bool singleLine_;
};

// The pixels being drawn into and the clip rectangle inside them (right and
// bottom exclusive).
struct Canvas {
    uint8_t* top = nullptr;
    int64_t pitch = 0;
    int64_t clipLeft = 0, clipTop = 0, clipRight = 0, clipBottom = 0;

    uint32_t* Row(int64_t y) const { return reinterpret_cast<uint32_t*>(top + y * pitch); }

    void Fill(int64_t x0, int64_t y0, int64_t x1, int64_t y1, uint32_t pixel) const {
        x0 = std::max(x0, clipLeft);
        y0 = std::max(y0, clipTop);
        x1 = std::min(x1, clipRight);
        y1 = std::min(y1, clipBottom);
        if (x0 >= x1) return;
        for (int64_t y = y0; y < y1; ++y) std::fill(Row(y) + x0, Row(y) + x1, pixel);
    }
};

bool SetUpCanvas(HDC dc, const RECT& rect, UINT format, Canvas* canvas) {
    int64_t width = 0, height = 0;
    if (dc->surface) {
        canvas->top = dc->surfacePixels;
        canvas->pitch = dc->surfacePitch;
        width = dc->surfaceWidth;
        height = dc->surfaceHeight;
    } else {
        const GdiObject* bitmap = dc->bitmap;
        if (!bitmap || bitmap->bitsPerPixel != 32) return false;
        canvas->top = reinterpret_cast<uint8_t*>(bitmap->pixels);
        canvas->pitch = static_cast<int64_t>(bitmap->width) * 4;
        width = bitmap->width;
        height = bitmap->height;
    }
    canvas->clipRight = width;
    canvas->clipBottom = height;
    if (!(format & DT_NOCLIP)) {
        canvas->clipLeft = std::max<int64_t>(0, rect.left);
        canvas->clipTop = std::max<int64_t>(0, rect.top);
        canvas->clipRight = std::min<int64_t>(width, rect.right);
        canvas->clipBottom = std::min<int64_t>(height, rect.bottom);
    }
    return canvas->clipLeft < canvas->clipRight && canvas->clipTop < canvas->clipBottom;
}

bool MaskBit(const GlyphMask& mask, int row, int col) {
    const uint8_t* line = mask.bits + static_cast<int64_t>(row) * mask.pitch;
    if (mask.kind == MaskKind::kMono) return (line[col >> 3] >> (7 - (col & 7))) & 1;
    return line[col] >= 128;
}

void Paint(const Canvas& canvas, const GlyphMask& mask, int64_t penX, int64_t baseline,
           uint32_t pixel) {
    const int64_t x0 = penX + mask.left;
    const int64_t y0 = baseline - mask.top;
    const int64_t x1 = x0 + mask.width;
    const int64_t y1 = y0 + mask.rows;
    if (mask.kind == MaskKind::kBoxOutline) {
        const int t = mask.thickness;
        canvas.Fill(x0, y0, x1, std::min(y1, y0 + t), pixel);
        canvas.Fill(x0, std::max(y0, y1 - t), x1, y1, pixel);
        canvas.Fill(x0, y0, std::min(x1, x0 + t), y1, pixel);
        canvas.Fill(std::max(x0, x1 - t), y0, x1, y1, pixel);
        return;
    }
    if (mask.kind != MaskKind::kMono && mask.kind != MaskKind::kGray) return;
    const int64_t top = std::max(y0, canvas.clipTop), bottom = std::min(y1, canvas.clipBottom);
    const int64_t left = std::max(x0, canvas.clipLeft), right = std::min(x1, canvas.clipRight);
    for (int64_t y = top; y < bottom; ++y) {
        uint32_t* row = canvas.Row(y);
        for (int64_t x = left; x < right; ++x) {
            if (MaskBit(mask, static_cast<int>(y - y0), static_cast<int>(x - x0))) row[x] = pixel;
        }
    }
}

struct LineStyle {
    int64_t left;
    int64_t top;
    int64_t width;
    bool opaque;
    uint32_t text;
    uint32_t background;
};

void DrawLine(const Canvas& canvas, GlyphSource* glyphs, TextCursor cursor,
              const LineStyle& style) {
    const int lineHeight = glyphs->LineHeight();
    if (style.top >= canvas.clipBottom || style.top + lineHeight <= canvas.clipTop) return;
    if (style.opaque) {
        canvas.Fill(style.left, style.top, style.left + style.width, style.top + lineHeight,
                    style.background);
    }
    const int64_t baseline = style.top + glyphs->Ascent();
    const int64_t underlineRow = std::min(baseline + 1, style.top + lineHeight - 1);
    int64_t pen = style.left;
    char32_t c = 0;
    bool underline = false;
    while (cursor.Next(&c, &underline) == TextCursor::Item::kGlyph && pen < canvas.clipRight) {
        const int advance = glyphs->Advance(c);
        // Glyphs may overhang their advance a little (italics, bearings).
        if (pen + advance + lineHeight >= canvas.clipLeft) {
            Paint(canvas, glyphs->Render(c), pen, baseline, style.text);
            if (underline)
                canvas.Fill(pen, underlineRow, pen + advance, underlineRow + 1, style.text);
        }
        pen += advance;
    }
}

int SaturateInt(int64_t v) { return static_cast<int>(std::clamp<int64_t>(v, INT_MIN, INT_MAX)); }

}  // namespace

int DrawTextW(HDC dc, const WCHAR* text, int count, RECT* rect, UINT format) {
    if (!dc || !rect || count < -1 || (format & ~kSupportedFormat)) return 0;
    if (count != 0 && !text) return 0;
    if (count == -1) {
        count = 0;
        while (count < INT_MAX && text[count]) ++count;
    }
    const bool measureOnly = (format & DT_CALCRECT) != 0;
    if (count == 0) {
        if (measureOnly) {
            rect->right = rect->left;
            rect->bottom = rect->top;
        }
        return 0;
    }

    std::lock_guard<std::mutex> hold(gdi::GdiLock());
    GlyphSource* glyphs = gdi::ResolveFont(dc->font);
    if (!glyphs) return 0;
    Canvas canvas;
    const bool draw = !measureOnly && SetUpCanvas(dc, *rect, format, &canvas);
    LineStyle style = {rect->left,
                       rect->top,
                       0,
                       dc->bkMode == OPAQUE,
                       gdi::ColourToPixel(dc->textColour),
                       gdi::ColourToPixel(dc->bkColour)};

    TextCursor cursor(text, text + count, !(format & DT_NOPREFIX), (format & DT_SINGLELINE) != 0);
    int64_t widest = 0;
    int64_t lines = 0;
    for (;;) {
        TextCursor lineEnd = cursor;
        TextCursor::Item item;
        char32_t c = 0;
        bool underline = false;
        int64_t width = 0;
        while ((item = lineEnd.Next(&c, &underline)) == TextCursor::Item::kGlyph) {
            width += glyphs->Advance(c);
        }
        widest = std::max(widest, width);
        if (draw) {
            style.width = width;
            style.top = rect->top + lines * glyphs->LineHeight();
            DrawLine(canvas, glyphs, cursor, style);
        }
        ++lines;
        if (item == TextCursor::Item::kEnd) break;
        cursor = lineEnd;
    }
    const int64_t height = lines * glyphs->LineHeight();
    if (measureOnly) {
        rect->right = SaturateInt(rect->left + widest);
        rect->bottom = SaturateInt(rect->top + height);
    }
    return SaturateInt(height);
}

}  // namespace nplat

// CNVideoRender: drawing the GDI texts of a buffer, on a device surface
// (straight through the surface's DC) or into an RGB32 picture in memory.
//
// A text's look lives in the host's style DC: at each drawing its text
// colour, background colour, background mode and font are copied into the
// drawing context, so the host restyles a text by changing its DC. In memory
// every text is drawn opaque into a bitmap of its measured size and then put
// onto the picture: copied as drawn, or, when the style asks for a
// transparent background, keyed on the background colour (glyphs are
// monochrome, so no grey edge can survive the key).
//
// Not here: wrapping or alignment (DrawTextW draws from the top-left, line by
// line), and texts longer than 256 UTF-16 units, which are cut there.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/video_format.h"
#include "ncodecbase/gdi_text.h"
#include "platform/ddraw/ddraw.h"
#include "platform/gfx/d3d9.h"
#include "platform/win/text_conversion.h"
#include "render/video/video_render_internal.h"

using namespace ncb::render_video;
using VideoFormatInfoTag = CNCodecBase::VideoFormatInfoTag;

namespace {

constexpr int kMaxChars = 256;
constexpr int kDrawBox = 4096;

// The text of a record as UTF-16; the number of units, 0 for none.
int TextToUtf16(const CNVideoRender::TextInfoTag& t, uint32_t flags, nplat::WCHAR* out) {
    if (t.nLength <= 0) return 0;
    if (flags & kTextUtf16) {
        const int n = std::min(t.nLength / 2, kMaxChars);
        std::memcpy(out, t.chText, static_cast<size_t>(n) * 2);
        return n;
    }
    const uint32_t page = (flags & kTextUtf8) ? nplat::CP_UTF8 : nplat::CP_ACP;
    const char* src = reinterpret_cast<const char*>(t.chText);
    int n = nplat::MultiByteToWideChar(page, 0, src, t.nLength, out, kMaxChars);
    if (n == 0) {
        // Longer than the buffer once converted: keep what fits.
        for (int len = t.nLength - 1; len > 0 && n == 0; --len)
            n = nplat::MultiByteToWideChar(page, 0, src, len, out, kMaxChars);
    }
    return n;
}

// Copies the look of the style DC into the drawing DC; the font only when
// the style has one.
void CopyStyle(nplat::HDC style, nplat::HDC dc, bool forceOpaque) {
    if (!style) return;
    nplat::SetTextColor(dc, nplat::GetTextColor(style));
    nplat::SetBkColor(dc, nplat::GetBkColor(style));
    nplat::SetBkMode(dc, forceOpaque ? nplat::OPAQUE : nplat::GetBkMode(style));
    if (nplat::HGDIOBJ font = nplat::GetCurrentObject(style, nplat::OBJ_FONT))
        nplat::SelectObject(dc, font);
}

uint32_t ColorRefToRgb(nplat::COLORREF c) {
    return ((c & 0xFF) << 16) | (c & 0xFF00) | ((c >> 16) & 0xFF);
}

}  // namespace

int CNVideoRender::RenderDrawText(int direct3D, void* surface, CNDataList* texts, int adjust) {
    if (!texts || texts->GetParameterCount() == 0) return 1;
    if (!surface) return 0;
    nplat::HDC dc = nullptr;
    nplat::HRESULT hr = direct3D ? static_cast<nplat::IDirect3DSurface9*>(surface)->GetDC(&dc)
                                 : static_cast<nplat::IDirectDrawSurface*>(surface)->GetDC(&dc);
    if (nplat::FAILED(hr) || !dc) {
        std::lock_guard<CNLock> guard(m_lock);  // re-entrant: the render thread holds it already
        (direct3D ? m_stStat.uD3DError : m_stStat.uDDrawError) = static_cast<uint32_t>(hr);
        return 0;
    }
    nplat::HGDIOBJ font = nplat::GetCurrentObject(dc, nplat::OBJ_FONT);
    nplat::WCHAR text[kMaxChars];
    for (int i = 0; i < texts->GetParameterCount(); ++i) {
        const auto flags = static_cast<uint32_t>(texts->GetUserData2(i));
        if (flags & kTextHidden) continue;
        const auto* t = static_cast<const TextInfoTag*>(texts->GetBinaryData(i));
        const int n = TextToUtf16(*t, flags, text);
        if (n == 0) continue;
        CopyStyle(t->hStyle, dc, false);
        nplat::POINT at = {t->nX, t->nY};
        if (adjust == 1) AdjustBufferPoint(surface, &at);
        nplat::RECT box = {at.x, at.y, at.x + kDrawBox, at.y + kDrawBox};
        nplat::DrawTextW(dc, text, n, &box, 0);
    }
    if (font) nplat::SelectObject(dc, font);
    if (direct3D)
        static_cast<nplat::IDirect3DSurface9*>(surface)->ReleaseDC(dc);
    else
        static_cast<nplat::IDirectDrawSurface*>(surface)->ReleaseDC(dc);
    return 1;
}

int CNVideoRender::RenderDrawText_Memory(CNCodecBuffer* picture, VideoFormatInfoTag* format,
                                         CNDataList* texts) {
    if (!texts || texts->GetParameterCount() == 0) return 1;
    if (!picture || !format) return 0;
    nplat::HDC dc = nplat::CreateCompatibleDC(nullptr);
    if (!dc) return 0;
    nplat::HGDIOBJ font = nplat::GetCurrentObject(dc, nplat::OBJ_FONT);
    nplat::HGDIOBJ bitmap = nplat::GetCurrentObject(dc, nplat::OBJ_BITMAP);
    nplat::WCHAR text[kMaxChars];
    int ok = 1;
    for (int i = 0; i < texts->GetParameterCount() && ok; ++i) {
        const auto flags = static_cast<uint32_t>(texts->GetUserData2(i));
        if (flags & (kTextScreenOnly | kTextHidden)) continue;
        const auto* t = static_cast<const TextInfoTag*>(texts->GetBinaryData(i));
        const int n = TextToUtf16(*t, flags, text);
        if (n == 0) continue;
        CopyStyle(t->hStyle, dc, true);
        nplat::RECT box = {0, 0, 1, 1};
        nplat::DrawTextW(dc, text, n, &box, nplat::DT_CALCRECT);
        const int w = box.right, h = box.bottom;
        if (w < 1 || h < 1) continue;
        nplat::HBITMAP drawn = nplat::CreateBitmap(w, h, 1, 32, nullptr);
        CNCodecBuffer* pixels = CNCodecBuffer::CreateBuffer();
        if (!drawn || !pixels || int64_t{w} * h > INT32_MAX / 4 ||
            !pixels->Allocate(w * h * 4, 16, 0)) {
            if (drawn) nplat::DeleteObject(drawn);
            if (pixels) pixels->Release();
            ok = 0;
            break;
        }
        pixels->SetDataSize(w * h * 4);
        nplat::SelectObject(dc, drawn);
        nplat::RECT at = {0, 0, w, h};
        nplat::DrawTextW(dc, text, n, &at, 0);
        nplat::BITMAPINFO info = {};
        info.bmiHeader.biSize = sizeof(nplat::BITMAPINFOHEADER);
        info.bmiHeader.biWidth = w;
        info.bmiHeader.biHeight = h;
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        info.bmiHeader.biCompression = nplat::BI_RGB;
        const int rows = nplat::GetDIBits(dc, drawn, 0, static_cast<nplat::UINT>(h),
                                          pixels->GetAddress(), &info, nplat::DIB_RGB_COLORS);
        if (bitmap) nplat::SelectObject(dc, bitmap);
        nplat::DeleteObject(drawn);
        if (rows == h) {
            VideoFormatInfoTag f;
            ncb::InitVideoFormat(&f, VIDEO_FORMAT_RGB32, w, h);
            f.nFormatFlags = FORMAT_FLAG_SWAPPED;  // GetDIBits gave the rows bottom-up
            const int64_t x = int64_t{t->nX} + format->nRectLeft;
            const int64_t y = int64_t{t->nY} + format->nRectTop;
            if (x > INT32_MIN && x + w < INT32_MAX && y > INT32_MIN && y + h < INT32_MAX) {
                const nplat::RECT dst = {static_cast<int32_t>(x), static_cast<int32_t>(y),
                                         static_cast<int32_t>(x + w), static_cast<int32_t>(y + h)};
                const bool keyed = t->hStyle && nplat::GetBkMode(t->hStyle) == nplat::TRANSPARENT;
                ok = keyed ? RenderMemoryPlaceRGB32(pixels, &f, dst, picture, format, 2, 255,
                                                    ColorRefToRgb(nplat::GetBkColor(t->hStyle)))
                           : RenderMemoryPlaceRGB32(pixels, &f, dst, picture, format, -1, 255, 0);
            }
        } else {
            ok = 0;
        }
        pixels->Release();
    }
    if (font) nplat::SelectObject(dc, font);
    nplat::DeleteDC(dc);
    return ok;
}

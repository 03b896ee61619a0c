// Copies and fills of the software device: StretchRect (point or linear,
// with YUV sources converted to RGB), ColorFill in every surface format,
// GetRenderTargetData, and the scaling helper the DXVA2 processor shares.
//
// YUV surfaces convert with the full-range BT.601 equations the shader
// formulas use (a DXVA2 sample may ask for studio range or BT.709 instead).
// Chroma is taken from the pixel pair (and NV12 row pair) a pixel belongs
// to, without interpolation: the reference stays simple, and a linear filter
// smooths the result the same way on every device.
//
// Not here: format conversions into YUV targets (only same-format copies of
// equal size), copies between overlapping parts of one surface.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/gfx/gfx_formats.h"
#include "platform/gfx/gfx_test_controls.h"
#include "platform/gfx/soft_device.h"

namespace nplat::gfx {

SoftSurface* AsSoftSurface(IDirect3DSurface9* surface) {
    return surface ? dynamic_cast<SoftSurface*>(surface) : nullptr;
}

bool RectInside(const RECT& r, int width, int height) {
    return r.left >= 0 && r.top >= 0 && r.right <= width && r.bottom <= height &&
           r.left < r.right && r.top < r.bottom;
}

namespace {

void FillYuv(SoftSurface* s, const RECT& r, const Float4& colour) {
    float y, u, v;
    RgbToYuv(colour.r, colour.g, colour.b, &y, &u, &v);
    uint8_t Y = ToUnorm8(y), U = ToUnorm8(u + 0.5f), V = ToUnorm8(v + 0.5f);
    D3DFORMAT format = s->Format();
    if (format == D3DFMT_NV12) {
        for (int row = r.top; row < r.bottom; ++row)
            std::memset(s->Row(row) + r.left, Y, static_cast<size_t>(r.right - r.left));
        uint8_t* chroma = s->Row(s->Height());
        for (int row = r.top / 2; row < (r.bottom + 1) / 2; ++row) {
            uint8_t* p = chroma + static_cast<ptrdiff_t>(row) * s->Pitch();
            for (int x = r.left & ~1; x < r.right; x += 2) {
                p[x] = U;
                p[x + 1] = V;
            }
        }
        return;
    }
    bool yuy2 = format == D3DFMT_YUY2;
    for (int row = r.top; row < r.bottom; ++row) {
        uint8_t* p = s->Row(row);
        for (int x = r.left; x < r.right; ++x) {
            uint8_t* pair = p + (x & ~1) * 2;
            pair[yuy2 ? (x & 1) * 2 : 1 + (x & 1) * 2] = Y;
            pair[yuy2 ? 1 : 0] = U;
            pair[yuy2 ? 3 : 2] = V;
        }
    }
}

}  // namespace

void FillSurfaceRect(SoftSurface* s, const RECT& r, const Float4& colour) {
    D3DFORMAT format = s->Format();
    if (IsYuvSurfaceFormat(format)) {
        FillYuv(s, r, colour);
        return;
    }
    uint8_t pixel[4] = {};
    if (format == D3DFMT_L8 || format == D3DFMT_A8L8) {
        float y, u, v;
        RgbToYuv(colour.r, colour.g, colour.b, &y, &u, &v);
        pixel[0] = ToUnorm8(y);
        pixel[1] = ToUnorm8(colour.a);
    } else {
        StorePixel(format, pixel, colour);
    }
    int bytes = FormatBytes(format);
    for (int row = r.top; row < r.bottom; ++row) {
        uint8_t* p = s->Row(row) + static_cast<ptrdiff_t>(r.left) * bytes;
        for (int x = r.left; x < r.right; ++x, p += bytes) std::memcpy(p, pixel, bytes);
    }
}

Float4 ReadSurfacePixel(const SoftSurface* s, int x, int y, const YuvSourceRules& rules) {
    D3DFORMAT format = s->Format();
    if (!IsYuvSurfaceFormat(format)) {
        return LoadPixel(format, s->Row(y) + static_cast<ptrdiff_t>(x) * FormatBytes(format));
    }
    uint8_t yuv[3];
    LoadYuvPixel(format, s->Bits(), s->Pitch(), s->Height(), x, y, yuv);
    float fy = yuv[0] / 255.0f;
    float fu = (yuv[1] - 128) / 255.0f;
    float fv = (yuv[2] - 128) / 255.0f;
    if (rules.limitedRange) ExpandLimited(&fy, &fu, &fv);
    return YuvToRgb(fy, fu, fv, 1.0f, *rules.matrix);
}

namespace {

Float4 Mix(const Float4& a, const Float4& b, float w) {
    return {a.r + (b.r - a.r) * w, a.g + (b.g - a.g) * w, a.b + (b.b - a.b) * w,
            a.a + (b.a - a.a) * w};
}

// Left source index (relative to the rect) and weight in 1/256 steps.
void SplitLinear(double f, int size, int* i0, int* i1, float* w) {
    double t = f - 0.5;
    int i = static_cast<int>(std::floor(t));
    int q = static_cast<int>(std::lround((t - i) * 256.0));
    if (q >= 256) {
        ++i;
        q = 0;
    }
    *i0 = std::clamp(i, 0, size - 1);
    *i1 = std::clamp(i + 1, 0, size - 1);
    *w = static_cast<float>(q) / 256.0f;
}

}  // namespace

void ScaleSurface(const SoftSurface* src, const RECT& srcRect, SoftSurface* dst,
                  const RECT& dstRect, const RECT& clip, D3DTEXTUREFILTERTYPE filter,
                  const YuvSourceRules& rules) {
    int sw = srcRect.right - srcRect.left, sh = srcRect.bottom - srcRect.top;
    int dw = dstRect.right - dstRect.left, dh = dstRect.bottom - dstRect.top;
    int top = std::max(dstRect.top, clip.top), bottom = std::min(dstRect.bottom, clip.bottom);
    int left = std::max(dstRect.left, clip.left), right = std::min(dstRect.right, clip.right);
    D3DFORMAT format = dst->Format();
    int bytes = FormatBytes(format);
    double sx = static_cast<double>(sw) / dw, sy = static_cast<double>(sh) / dh;
    for (int y = top; y < bottom; ++y) {
        double fy = (y - dstRect.top + 0.5) * sy;
        uint8_t* p = dst->Row(y) + static_cast<ptrdiff_t>(left) * bytes;
        for (int x = left; x < right; ++x, p += bytes) {
            double fx = (x - dstRect.left + 0.5) * sx;
            Float4 c;
            if (filter == D3DTEXF_LINEAR) {
                int x0, x1, y0, y1;
                float wx, wy;
                SplitLinear(fx, sw, &x0, &x1, &wx);
                SplitLinear(fy, sh, &y0, &y1, &wy);
                int l = srcRect.left, t = srcRect.top;
                Float4 a = Mix(ReadSurfacePixel(src, l + x0, t + y0, rules),
                               ReadSurfacePixel(src, l + x1, t + y0, rules), wx);
                Float4 b = Mix(ReadSurfacePixel(src, l + x0, t + y1, rules),
                               ReadSurfacePixel(src, l + x1, t + y1, rules), wx);
                c = Mix(a, b, wy);
            } else {
                int ix = std::min(static_cast<int>(fx), sw - 1);
                int iy = std::min(static_cast<int>(fy), sh - 1);
                c = ReadSurfacePixel(src, srcRect.left + ix, srcRect.top + iy, rules);
            }
            StorePixel(format, p, c);
        }
    }
}

namespace {

// A surface the device may draw or copy into: render targets and default-pool
// off-screen surfaces.
bool CopyTarget(const SoftSurface* s) {
    if (s->Role().renderTarget) return true;
    return s->Pool() == D3DPOOL_DEFAULT && !s->Role().textureLevel;
}

bool CopySource(const SoftSurface* s) {
    return s->Pool() == D3DPOOL_DEFAULT && (s->Role().renderTarget || !s->Role().textureLevel);
}

void CopyRows(const SoftSurface* src, const RECT& from, SoftSurface* dst, const RECT& to) {
    int bytes = FormatBytes(src->Format());
    size_t rowBytes = static_cast<size_t>(from.right - from.left) * bytes;
    for (int y = 0; y < from.bottom - from.top; ++y) {
        std::memcpy(dst->Row(to.top + y) + static_cast<ptrdiff_t>(to.left) * bytes,
                    src->Row(from.top + y) + static_cast<ptrdiff_t>(from.left) * bytes, rowBytes);
    }
}

}  // namespace

HRESULT SoftDevice::StretchRect(IDirect3DSurface9* srcSurface, const RECT* srcRect,
                                IDirect3DSurface9* dstSurface, const RECT* dstRect,
                                D3DTEXTUREFILTERTYPE filter) {
    SoftSurface* src = AsSoftSurface(srcSurface);
    SoftSurface* dst = AsSoftSurface(dstSurface);
    if (!src || !dst || src == dst || !CopySource(src) || !CopyTarget(dst) || src->Locked() ||
        dst->Locked() || filter > D3DTEXF_LINEAR)
        return D3DERR_INVALIDCALL;
    RECT from = srcRect ? *srcRect : RECT{0, 0, src->Width(), src->Height()};
    RECT to = dstRect ? *dstRect : RECT{0, 0, dst->Width(), dst->Height()};
    if (!RectInside(from, src->Width(), src->Height()) ||
        !RectInside(to, dst->Width(), dst->Height()))
        return D3DERR_INVALIDCALL;
    bool sameSize = from.right - from.left == to.right - to.left &&
                    from.bottom - from.top == to.bottom - to.top;
    bool sameFormat = src->Format() == dst->Format();
    if (IsYuvSurfaceFormat(dst->Format())) {
        // YUV targets take equal-sized copies of their own format only, on
        // whole pixel pairs (NV12: whole surfaces).
        if (!sameFormat || !sameSize || (from.left | to.left | from.right | to.right) & 1)
            return D3DERR_INVALIDCALL;
        if (dst->Format() == D3DFMT_NV12 &&
            (from.left || from.top || to.left || to.top || src->Width() != dst->Width() ||
             src->Height() != dst->Height() || from.right != src->Width() ||
             from.bottom != src->Height()))
            return D3DERR_INVALIDCALL;
    } else if (!IsRgbFormat(dst->Format())) {
        return D3DERR_INVALIDCALL;
    }
    if (HRESULT hr = gfxtest::Injected(GfxCall::kStretchRect); FAILED(hr)) return hr;

    if (sameFormat && sameSize) {
        if (src->Format() == D3DFMT_NV12) {
            std::memcpy(dst->Bits(), src->Bits(),
                        SurfaceBytes(D3DFMT_NV12, src->Pitch(), src->Height()));
        } else {
            CopyRows(src, from, dst, to);
        }
    } else {
        ScaleSurface(src, from, dst, to, to,
                     filter == D3DTEXF_LINEAR ? D3DTEXF_LINEAR : D3DTEXF_POINT, YuvSourceRules{});
    }
    gfxtest::Count(&GfxCounters::stretchRects);
    return D3D_OK;
}

HRESULT SoftDevice::ColorFill(IDirect3DSurface9* surface, const RECT* rect, D3DCOLOR color) {
    SoftSurface* s = AsSoftSurface(surface);
    if (!s || !CopyTarget(s) || s->Locked()) return D3DERR_INVALIDCALL;
    RECT r = rect ? *rect : RECT{0, 0, s->Width(), s->Height()};
    if (!RectInside(r, s->Width(), s->Height())) return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kColorFill); FAILED(hr)) return hr;
    FillSurfaceRect(s, r, ColorToFloat4(color));
    gfxtest::Count(&GfxCounters::colorFills);
    return D3D_OK;
}

HRESULT SoftDevice::GetRenderTargetData(IDirect3DSurface9* renderTarget, IDirect3DSurface9* dest) {
    SoftSurface* src = AsSoftSurface(renderTarget);
    SoftSurface* dst = AsSoftSurface(dest);
    if (!src || !dst || !src->Role().renderTarget || dst->Pool() != D3DPOOL_SYSTEMMEM ||
        src->Format() != dst->Format() || src->Width() != dst->Width() ||
        src->Height() != dst->Height() || dst->Locked())
        return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kGetRenderTargetData); FAILED(hr)) return hr;
    RECT all{0, 0, src->Width(), src->Height()};
    CopyRows(src, all, dst, all);
    gfxtest::Count(&GfxCounters::getRenderTargetData);
    return D3D_OK;
}

}  // namespace nplat::gfx

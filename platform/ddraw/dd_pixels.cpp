// Surface layouts and the read-as-RGB and stretch conversions of the
// software DirectDraw. YUV is read as BT.601 studio range, the conversion a
// display driver applies to overlays and FOURCC blits.
#include "platform/ddraw/dd_pixels.h"

#include <algorithm>
#include <cstring>

#include "platform/window/window_internal.h"

namespace nplat::dd {
namespace {

struct LayoutInfo {
    Layout layout;
    DWORD fourcc;
    int bits;  // per pixel, as DirectDraw counts them
};

constexpr LayoutInfo kLayouts[] = {
    {Layout::kRGB32, 0, 32},
    {Layout::kRGB24, 0, 24},
    {Layout::kRGB565, 0, 16},
    {Layout::kRGB555, 0, 16},
    {Layout::kYV12, MAKEFOURCC('Y', 'V', '1', '2'), 12},
    {Layout::kI420, MAKEFOURCC('I', '4', '2', '0'), 12},
    {Layout::kIYUV, MAKEFOURCC('I', 'Y', 'U', 'V'), 12},
    {Layout::kNV12, MAKEFOURCC('N', 'V', '1', '2'), 12},
    {Layout::kYUY2, MAKEFOURCC('Y', 'U', 'Y', '2'), 16},
    {Layout::kYVYU, MAKEFOURCC('Y', 'V', 'Y', 'U'), 16},
    {Layout::kUYVY, MAKEFOURCC('U', 'Y', 'V', 'Y'), 16},
    {Layout::kVYUY, MAKEFOURCC('V', 'Y', 'U', 'Y'), 16},
};

const LayoutInfo& Info(Layout layout) { return kLayouts[static_cast<int>(layout)]; }

uint8_t Clamp255(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

uint32_t YuvToRgb(int y, int u, int v) {
    const int c = 298 * (y - 16) + 128, d = u - 128, e = v - 128;
    return static_cast<uint32_t>(Clamp255((c + 409 * e) >> 8)) << 16 |
           static_cast<uint32_t>(Clamp255((c - 100 * d - 208 * e) >> 8)) << 8 |
           Clamp255((c + 516 * d) >> 8);
}

// Byte positions of Y0, U and V inside a packed 4:2:2 pair (Y1 = Y0 + 2).
void PackedOrder(Layout layout, int* y0, int* u, int* v) {
    switch (layout) {
        case Layout::kYUY2:
            *y0 = 0, *u = 1, *v = 3;
            break;
        case Layout::kYVYU:
            *y0 = 0, *v = 1, *u = 3;
            break;
        case Layout::kUYVY:
            *u = 0, *y0 = 1, *v = 2;
            break;
        default:
            *v = 0, *y0 = 1, *u = 2;
            break;  // VYUY
    }
}

void ReadPlanar(Layout layout, const uint8_t* bits, int pitch, int height, const RECT& r,
                uint32_t* out) {
    const uint8_t* luma = bits;
    const uint8_t* chroma = bits + static_cast<size_t>(pitch) * height;
    const int cpitch = pitch / 2;
    const size_t cplane = static_cast<size_t>(cpitch) * (height / 2);
    const uint8_t* uPlane = layout == Layout::kYV12 ? chroma + cplane : chroma;
    const uint8_t* vPlane = layout == Layout::kYV12 ? chroma : chroma + cplane;
    const int w = r.right - r.left;
    for (int y = r.top; y < r.bottom; ++y) {
        const uint8_t* yr = luma + static_cast<size_t>(y) * pitch;
        for (int x = r.left; x < r.right; ++x) {
            int u, v;
            if (layout == Layout::kNV12) {
                const uint8_t* uv = chroma + static_cast<size_t>(y / 2) * pitch + (x & ~1);
                u = uv[0], v = uv[1];
            } else {
                const size_t at = static_cast<size_t>(y / 2) * cpitch + x / 2;
                u = uPlane[at], v = vPlane[at];
            }
            out[static_cast<size_t>(y - r.top) * w + (x - r.left)] = YuvToRgb(yr[x], u, v);
        }
    }
}

}  // namespace

bool IsFourCC(Layout layout) { return Info(layout).fourcc != 0; }

bool IsPlanar420(Layout layout) {
    return layout == Layout::kYV12 || layout == Layout::kI420 || layout == Layout::kIYUV ||
           layout == Layout::kNV12;
}

bool LayoutFromFourCC(DWORD code, Layout* layout) {
    for (const LayoutInfo& info : kLayouts) {
        if (info.fourcc && info.fourcc == code) {
            *layout = info.layout;
            return true;
        }
    }
    return false;
}

DWORD FourCCOf(Layout layout) { return Info(layout).fourcc; }

Layout LayoutFromScreen(ScreenFormat format) {
    switch (format) {
        case ScreenFormat::kRGB24:
            return Layout::kRGB24;
        case ScreenFormat::kRGB565:
            return Layout::kRGB565;
        case ScreenFormat::kRGB555:
            return Layout::kRGB555;
        default:
            return Layout::kRGB32;
    }
}

bool ScreenFromLayout(Layout layout, ScreenFormat* format) {
    switch (layout) {
        case Layout::kRGB32:
            *format = ScreenFormat::kRGB32;
            return true;
        case Layout::kRGB24:
            *format = ScreenFormat::kRGB24;
            return true;
        case Layout::kRGB565:
            *format = ScreenFormat::kRGB565;
            return true;
        case Layout::kRGB555:
            *format = ScreenFormat::kRGB555;
            return true;
        default:
            return false;
    }
}

void DescribeLayout(Layout layout, DDPIXELFORMAT* out) {
    std::memset(out, 0, sizeof(*out));
    out->dwSize = sizeof(DDPIXELFORMAT);
    const LayoutInfo& info = Info(layout);
    if (info.fourcc) {
        out->dwFlags = DDPF_FOURCC;
        out->dwFourCC = info.fourcc;
        out->dwYUVBitCount = static_cast<DWORD>(info.bits);
        return;
    }
    out->dwFlags = DDPF_RGB;
    out->dwRGBBitCount = static_cast<DWORD>(info.bits);
    if (layout == Layout::kRGB565) {
        out->dwRBitMask = 0xF800, out->dwGBitMask = 0x7E0, out->dwBBitMask = 0x1F;
    } else if (layout == Layout::kRGB555) {
        out->dwRBitMask = 0x7C00, out->dwGBitMask = 0x3E0, out->dwBBitMask = 0x1F;
    } else {
        out->dwRBitMask = 0xFF0000, out->dwGBitMask = 0xFF00, out->dwBBitMask = 0xFF;
    }
}

int PitchOf(Layout layout, int width) {
    const int bytes = IsPlanar420(layout) ? width : (width * Info(layout).bits + 7) / 8;
    return (bytes + 15) & ~15;
}

size_t BytesOf(Layout layout, int pitch, int height) {
    const size_t luma = static_cast<size_t>(pitch) * height;
    return IsPlanar420(layout) ? luma + luma / 2 : luma;
}

void FillBlack(Layout layout, uint8_t* bits, int pitch, int width, int height) {
    if (!IsFourCC(layout)) {
        std::memset(bits, 0, BytesOf(layout, pitch, height));
    } else if (IsPlanar420(layout)) {
        const size_t luma = static_cast<size_t>(pitch) * height;
        std::memset(bits, 16, luma);
        std::memset(bits + luma, 128, luma / 2);
    } else {
        int y0, u, v;
        PackedOrder(layout, &y0, &u, &v);
        for (int y = 0; y < height; ++y) {
            uint8_t* row = bits + static_cast<size_t>(y) * pitch;
            for (int x = 0; x < width; x += 2) {
                row[2 * x + y0] = row[2 * x + y0 + 2] = 16;
                row[2 * x + u] = row[2 * x + v] = 128;
            }
        }
    }
}

void ReadRGB(Layout layout, const uint8_t* bits, int pitch, int height, const RECT& r,
             uint32_t* out) {
    const int w = r.right - r.left;
    ScreenFormat format;
    if (ScreenFromLayout(layout, &format)) {
        const int bytes = ScreenFormatBytes(format);
        for (int y = r.top; y < r.bottom; ++y) {
            RowFromScreen(format, bits + static_cast<size_t>(y) * pitch + r.left * bytes,
                          out + static_cast<size_t>(y - r.top) * w, w);
        }
        return;
    }
    if (IsPlanar420(layout)) {
        ReadPlanar(layout, bits, pitch, height, r, out);
        return;
    }
    int y0, u, v;
    PackedOrder(layout, &y0, &u, &v);
    for (int y = r.top; y < r.bottom; ++y) {
        const uint8_t* row = bits + static_cast<size_t>(y) * pitch;
        for (int x = r.left; x < r.right; ++x) {
            const uint8_t* pair = row + 2 * (x & ~1);
            out[static_cast<size_t>(y - r.top) * w + (x - r.left)] =
                YuvToRgb(pair[y0 + 2 * (x & 1)], pair[u], pair[v]);
        }
    }
}

namespace {

// Source position of destination sample i in 1/256 steps, centres aligned,
// clamped to the first and last sample.
void Position(int i, int srcSize, int dstSize, int* i0, int* i1, int* frac) {
    int64_t pos = (static_cast<int64_t>(2 * i + 1) * srcSize * 256) / (2 * dstSize) - 128;
    if (pos < 0) pos = 0;
    *i0 = static_cast<int>(pos >> 8);
    *frac = static_cast<int>(pos & 255);
    if (*i0 >= srcSize - 1) *i0 = srcSize - 1, *frac = 0;
    *i1 = std::min(*i0 + 1, srcSize - 1);
}

uint32_t Mix(uint32_t a, uint32_t b, uint32_t c, uint32_t d, int fx, int fy) {
    uint32_t out = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        const int top = static_cast<int>((a >> shift) & 255) * (256 - fx) +
                        static_cast<int>((b >> shift) & 255) * fx;
        const int bottom = static_cast<int>((c >> shift) & 255) * (256 - fx) +
                           static_cast<int>((d >> shift) & 255) * fx;
        out |= static_cast<uint32_t>((top * (256 - fy) + bottom * fy + 32768) >> 16) << shift;
    }
    return out;
}

}  // namespace

void Stretch(const uint32_t* src, int sw, int sh, uint32_t* dst, int dw, int dh) {
    if (sw == dw && sh == dh) {
        std::memcpy(dst, src, static_cast<size_t>(sw) * sh * 4);
        return;
    }
    for (int y = 0; y < dh; ++y) {
        int y0, y1, fy;
        Position(y, sh, dh, &y0, &y1, &fy);
        const uint32_t* r0 = src + static_cast<size_t>(y0) * sw;
        const uint32_t* r1 = src + static_cast<size_t>(y1) * sw;
        for (int x = 0; x < dw; ++x) {
            int x0, x1, fx;
            Position(x, sw, dw, &x0, &x1, &fx);
            dst[static_cast<size_t>(y) * dw + x] = Mix(r0[x0], r0[x1], r1[x0], r1[x1], fx, fy);
        }
    }
}

}  // namespace nplat::dd

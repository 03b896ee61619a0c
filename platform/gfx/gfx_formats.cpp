// Pixel formats and colour arithmetic; see gfx_formats.h. Plain per-pixel
// code: the devices call it per span, and clarity beats speed here.
#include "platform/gfx/gfx_formats.h"

#include <cstring>

namespace nplat::gfx {

const YuvMatrix kBt601 = {1.402f, 0.34413f, 0.71414f, 1.772f};
const YuvMatrix kBt709 = {1.5748f, 0.18732f, 0.46812f, 1.8556f};

int FormatBytes(D3DFORMAT format) {
    switch (format) {
        case D3DFMT_A8R8G8B8:
        case D3DFMT_X8R8G8B8:
            return 4;
        case D3DFMT_R8G8B8:
            return 3;
        case D3DFMT_R5G6B5:
        case D3DFMT_X1R5G5B5:
        case D3DFMT_A1R5G5B5:
        case D3DFMT_A8L8:
        case D3DFMT_YUY2:
        case D3DFMT_UYVY:
            return 2;
        case D3DFMT_L8:
        case D3DFMT_NV12:
            return 1;
        default:
            return 0;
    }
}

bool IsRgbFormat(D3DFORMAT format) {
    switch (format) {
        case D3DFMT_A8R8G8B8:
        case D3DFMT_X8R8G8B8:
        case D3DFMT_R8G8B8:
        case D3DFMT_R5G6B5:
        case D3DFMT_X1R5G5B5:
        case D3DFMT_A1R5G5B5:
            return true;
        default:
            return false;
    }
}

bool IsYuvSurfaceFormat(D3DFORMAT format) {
    return format == D3DFMT_YUY2 || format == D3DFMT_UYVY || format == D3DFMT_NV12;
}

bool IsTextureFormat(D3DFORMAT format) {
    return IsRgbFormat(format) || format == D3DFMT_L8 || format == D3DFMT_A8L8;
}

bool IsRenderTargetFormat(D3DFORMAT format) { return IsRgbFormat(format); }

int SurfacePitch(D3DFORMAT format, int width) { return (width * FormatBytes(format) + 15) & ~15; }

size_t SurfaceBytes(D3DFORMAT format, int pitch, int height) {
    size_t rows = static_cast<size_t>(height);
    if (format == D3DFMT_NV12) rows += static_cast<size_t>((height + 1) / 2);
    return rows * static_cast<size_t>(pitch);
}

uint8_t ToUnorm8(float v) {
    if (!(v > 0.0f)) return 0;  // NaN too
    if (v >= 1.0f) return 255;
    return static_cast<uint8_t>(v * 255.0f + 0.5f);
}

namespace {

uint32_t ToUnormBits(float v, int max) {
    if (!(v > 0.0f)) return 0;
    if (v >= 1.0f) return static_cast<uint32_t>(max);
    return static_cast<uint32_t>(v * static_cast<float>(max) + 0.5f);
}

uint16_t Load16(const uint8_t* p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}

uint32_t Load32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

constexpr float kInv255 = 1.0f / 255.0f;

}  // namespace

Float4 LoadPixel(D3DFORMAT format, const uint8_t* p) {
    switch (format) {
        case D3DFMT_A8R8G8B8: {
            uint32_t v = Load32(p);
            return {static_cast<float>(v >> 16 & 0xFF) * kInv255,
                    static_cast<float>(v >> 8 & 0xFF) * kInv255,
                    static_cast<float>(v & 0xFF) * kInv255, static_cast<float>(v >> 24) * kInv255};
        }
        case D3DFMT_X8R8G8B8:
            return {p[2] * kInv255, p[1] * kInv255, p[0] * kInv255, 1.0f};
        case D3DFMT_R8G8B8:
            return {p[2] * kInv255, p[1] * kInv255, p[0] * kInv255, 1.0f};
        case D3DFMT_R5G6B5: {
            uint16_t v = Load16(p);
            return {static_cast<float>(v >> 11) / 31.0f, static_cast<float>(v >> 5 & 63) / 63.0f,
                    static_cast<float>(v & 31) / 31.0f, 1.0f};
        }
        case D3DFMT_X1R5G5B5:
        case D3DFMT_A1R5G5B5: {
            uint16_t v = Load16(p);
            float a = format == D3DFMT_A1R5G5B5 ? static_cast<float>(v >> 15) : 1.0f;
            return {static_cast<float>(v >> 10 & 31) / 31.0f,
                    static_cast<float>(v >> 5 & 31) / 31.0f, static_cast<float>(v & 31) / 31.0f, a};
        }
        case D3DFMT_L8: {
            float l = p[0] * kInv255;
            return {l, l, l, 1.0f};
        }
        case D3DFMT_A8L8: {
            float l = p[0] * kInv255;
            return {l, l, l, p[1] * kInv255};
        }
        default:
            return {0.0f, 0.0f, 0.0f, 1.0f};
    }
}

void StorePixel(D3DFORMAT format, uint8_t* p, const Float4& c) {
    switch (format) {
        case D3DFMT_A8R8G8B8:
        case D3DFMT_X8R8G8B8: {
            // X8 formats store an opaque alpha byte so a copy into a window or
            // an A8R8G8B8 surface reads as opaque.
            uint8_t a = format == D3DFMT_A8R8G8B8 ? ToUnorm8(c.a) : 0xFF;
            p[0] = ToUnorm8(c.b);
            p[1] = ToUnorm8(c.g);
            p[2] = ToUnorm8(c.r);
            p[3] = a;
            return;
        }
        case D3DFMT_R8G8B8:
            p[0] = ToUnorm8(c.b);
            p[1] = ToUnorm8(c.g);
            p[2] = ToUnorm8(c.r);
            return;
        case D3DFMT_R5G6B5: {
            uint16_t v = static_cast<uint16_t>(ToUnormBits(c.r, 31) << 11 |
                                               ToUnormBits(c.g, 63) << 5 | ToUnormBits(c.b, 31));
            std::memcpy(p, &v, 2);
            return;
        }
        case D3DFMT_X1R5G5B5:
        case D3DFMT_A1R5G5B5: {
            uint32_t a = format == D3DFMT_A1R5G5B5 ? ToUnormBits(c.a, 1) : 1;
            uint16_t v = static_cast<uint16_t>(a << 15 | ToUnormBits(c.r, 31) << 10 |
                                               ToUnormBits(c.g, 31) << 5 | ToUnormBits(c.b, 31));
            std::memcpy(p, &v, 2);
            return;
        }
        default:
            return;
    }
}

Float4 ColorToFloat4(D3DCOLOR color) {
    return {static_cast<float>(color >> 16 & 0xFF) * kInv255,
            static_cast<float>(color >> 8 & 0xFF) * kInv255,
            static_cast<float>(color & 0xFF) * kInv255, static_cast<float>(color >> 24) * kInv255};
}

Float4 YuvToRgb(float y, float u, float v, float a, const YuvMatrix& m) {
    return {y + m.kr * v, y - m.kgu * u - m.kgv * v, y + m.kb * u, a};
}

void RgbToYuv(float r, float g, float b, float* y, float* u, float* v) {
    *y = 0.299f * r + 0.587f * g + 0.114f * b;
    *u = -0.1687f * r - 0.3313f * g + 0.5f * b;
    *v = 0.5f * r - 0.4187f * g - 0.0813f * b;
}

void LoadYuvPixel(D3DFORMAT format, const uint8_t* bits, int pitch, int height, int x, int y,
                  uint8_t yuv[3]) {
    const uint8_t* row = bits + static_cast<ptrdiff_t>(y) * pitch;
    switch (format) {
        case D3DFMT_YUY2: {
            const uint8_t* pair = row + (x & ~1) * 2;
            yuv[0] = pair[(x & 1) * 2];
            yuv[1] = pair[1];
            yuv[2] = pair[3];
            return;
        }
        case D3DFMT_UYVY: {
            const uint8_t* pair = row + (x & ~1) * 2;
            yuv[0] = pair[1 + (x & 1) * 2];
            yuv[1] = pair[0];
            yuv[2] = pair[2];
            return;
        }
        case D3DFMT_NV12: {
            const uint8_t* chroma = bits + static_cast<ptrdiff_t>(height) * pitch +
                                    static_cast<ptrdiff_t>(y / 2) * pitch + (x & ~1);
            yuv[0] = row[x];
            yuv[1] = chroma[0];
            yuv[2] = chroma[1];
            return;
        }
        default:
            yuv[0] = 0;
            yuv[1] = 128;
            yuv[2] = 128;
            return;
    }
}

void ExpandLimited(float* y, float* u, float* v) {
    *y = (*y - 16.0f / 255.0f) * (255.0f / 219.0f);
    *u = *u * (255.0f / 224.0f);
    *v = *v * (255.0f / 224.0f);
}

}  // namespace nplat::gfx

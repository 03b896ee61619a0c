// Pixel formats of the graphics layer: sizes, which formats may be what
// (texture, render target, off-screen surface), the conversion of one stored
// pixel to a float colour and back, and YUV <-> RGB in float. Shared by every
// device implementation and by the tests' expectations.
//
// Float colours are 0..1 per channel. A float becomes an 8-bit value as a GPU
// writes a UNORM8 target: clamped to 0..1, times 255, rounded to nearest
// (halves up); 5- and 6-bit channels the same with 31 and 63. Stored values
// expand to float as value / max (L8 -> (l, l, l, 1), A8L8 -> (l, l, l, a),
// formats without alpha -> alpha 1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/gfx/d3d9.h"

namespace nplat::gfx {

struct Float4 {
    float r, g, b, a;
};

// Bytes per pixel of the first plane (NV12: the luma plane), 0 for a format
// the layer does not know.
constexpr int FormatBytes(D3DFORMAT format);
bool IsRgbFormat(D3DFORMAT format);         // the 16-, 24- and 32-bit RGB formats
bool IsYuvSurfaceFormat(D3DFORMAT format);  // YUY2, UYVY, NV12
bool IsTextureFormat(D3DFORMAT format);     // RGB, L8, A8L8
bool IsRenderTargetFormat(D3DFORMAT format);
// Row pitch the layer gives a surface of this width (16-byte aligned rows).
int SurfacePitch(D3DFORMAT format, int width);
// Bytes of a whole surface (NV12 adds the half-height chroma plane).
size_t SurfaceBytes(D3DFORMAT format, int pitch, int height);

inline uint8_t ToUnorm8(float v);
inline Float4 LoadPixel(D3DFORMAT format, const uint8_t* p);            // RGB, L8, A8L8
inline void StorePixel(D3DFORMAT format, uint8_t* p, const Float4& c);  // RGB formats
Float4 ColorToFloat4(D3DCOLOR color);

// Full-range YUV (U and V centred on 0) with the BT.601 weights the shader
// formulas use, or the BT.709 ones.
struct YuvMatrix {
    float kr;        // R = Y + kr V
    float kgu, kgv;  // G = Y - kgu U - kgv V
    float kb;        // B = Y + kb U
};
extern const YuvMatrix kBt601;
extern const YuvMatrix kBt709;
Float4 YuvToRgb(float y, float u, float v, float a, const YuvMatrix& m = kBt601);
// Y, U (centred), V (centred) of an RGB colour with the BT.601 weights.
void RgbToYuv(float r, float g, float b, float* y, float* u, float* v);

// One pixel of a YUV surface as full-range (Y, U, V) bytes; limited-range
// sources are expanded by the caller's choice (see ExpandLimited).
void LoadYuvPixel(D3DFORMAT format, const uint8_t* bits, int pitch, int height, int x, int y,
                  uint8_t yuv[3]);
// Studio swing (16-235 luma, 16-240 chroma) to full range, in float 0..1.
void ExpandLimited(float* y, float* u, float* v);

// ---- per-pixel helpers, defined here so that the samplers inline them ----

constexpr int FormatBytes(D3DFORMAT format) {
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

inline uint8_t ToUnorm8(float v) {
    if (!(v > 0.0f)) return 0;  // NaN too
    if (v >= 1.0f) return 255;
    return static_cast<uint8_t>(v * 255.0f + 0.5f);
}

namespace detail {

inline uint32_t ToUnormBits(float v, int max) {
    if (!(v > 0.0f)) return 0;
    if (v >= 1.0f) return static_cast<uint32_t>(max);
    return static_cast<uint32_t>(v * static_cast<float>(max) + 0.5f);
}

inline uint16_t Load16(const uint8_t* p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}

inline uint32_t Load32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

inline constexpr float kInv255 = 1.0f / 255.0f;

}  // namespace detail

[[gnu::always_inline]] inline Float4 LoadPixel(D3DFORMAT format, const uint8_t* p) {
    switch (format) {
        case D3DFMT_A8R8G8B8: {
            uint32_t v = detail::Load32(p);
            return {static_cast<float>(v >> 16 & 0xFF) * detail::kInv255,
                    static_cast<float>(v >> 8 & 0xFF) * detail::kInv255,
                    static_cast<float>(v & 0xFF) * detail::kInv255,
                    static_cast<float>(v >> 24) * detail::kInv255};
        }
        case D3DFMT_X8R8G8B8:
            return {p[2] * detail::kInv255, p[1] * detail::kInv255, p[0] * detail::kInv255, 1.0f};
        case D3DFMT_R8G8B8:
            return {p[2] * detail::kInv255, p[1] * detail::kInv255, p[0] * detail::kInv255, 1.0f};
        case D3DFMT_R5G6B5: {
            uint16_t v = detail::Load16(p);
            return {static_cast<float>(v >> 11) / 31.0f, static_cast<float>(v >> 5 & 63) / 63.0f,
                    static_cast<float>(v & 31) / 31.0f, 1.0f};
        }
        case D3DFMT_X1R5G5B5:
        case D3DFMT_A1R5G5B5: {
            uint16_t v = detail::Load16(p);
            float a = format == D3DFMT_A1R5G5B5 ? static_cast<float>(v >> 15) : 1.0f;
            return {static_cast<float>(v >> 10 & 31) / 31.0f,
                    static_cast<float>(v >> 5 & 31) / 31.0f, static_cast<float>(v & 31) / 31.0f, a};
        }
        case D3DFMT_L8: {
            float l = p[0] * detail::kInv255;
            return {l, l, l, 1.0f};
        }
        case D3DFMT_A8L8: {
            float l = p[0] * detail::kInv255;
            return {l, l, l, p[1] * detail::kInv255};
        }
        default:
            return {0.0f, 0.0f, 0.0f, 1.0f};
    }
}

inline void StorePixel(D3DFORMAT format, uint8_t* p, const Float4& c) {
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
            uint16_t v = static_cast<uint16_t>(detail::ToUnormBits(c.r, 31) << 11 |
                                               detail::ToUnormBits(c.g, 63) << 5 |
                                               detail::ToUnormBits(c.b, 31));
            std::memcpy(p, &v, 2);
            return;
        }
        case D3DFMT_X1R5G5B5:
        case D3DFMT_A1R5G5B5: {
            uint32_t a = format == D3DFMT_A1R5G5B5 ? detail::ToUnormBits(c.a, 1) : 1;
            uint16_t v = static_cast<uint16_t>(a << 15 | detail::ToUnormBits(c.r, 31) << 10 |
                                               detail::ToUnormBits(c.g, 31) << 5 |
                                               detail::ToUnormBits(c.b, 31));
            std::memcpy(p, &v, 2);
            return;
        }
        default:
            return;
    }
}

}  // namespace nplat::gfx

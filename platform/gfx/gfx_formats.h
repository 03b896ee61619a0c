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

#include "platform/gfx/d3d9.h"

namespace nplat::gfx {

struct Float4 {
    float r, g, b, a;
};

// Bytes per pixel of the first plane (NV12: the luma plane), 0 for a format
// the layer does not know.
int FormatBytes(D3DFORMAT format);
bool IsRgbFormat(D3DFORMAT format);         // the 16-, 24- and 32-bit RGB formats
bool IsYuvSurfaceFormat(D3DFORMAT format);  // YUY2, UYVY, NV12
bool IsTextureFormat(D3DFORMAT format);     // RGB, L8, A8L8
bool IsRenderTargetFormat(D3DFORMAT format);
// Row pitch the layer gives a surface of this width (16-byte aligned rows).
int SurfacePitch(D3DFORMAT format, int width);
// Bytes of a whole surface (NV12 adds the half-height chroma plane).
size_t SurfaceBytes(D3DFORMAT format, int pitch, int height);

uint8_t ToUnorm8(float v);
Float4 LoadPixel(D3DFORMAT format, const uint8_t* p);            // RGB, L8, A8L8
void StorePixel(D3DFORMAT format, uint8_t* p, const Float4& c);  // RGB formats
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

}  // namespace nplat::gfx

// Surface pixel layouts of the software DirectDraw and the two conversions
// every Blt and overlay goes through: a rectangle of any layout to 32-bit
// RGB, and a bilinear stretch of 32-bit RGB.
//
// Why plain code: these are a display emulation's pixels, not a hot path of
// the library; the render's own conversions are what hosts measure.
//
// Not here: YUV output (a FOURCC surface is written by its owner through
// Lock, or by a same-size copy), chroma interpolation (4:2:0 and 4:2:2
// chroma is taken from the nearest sample).
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/ddraw/ddraw.h"
#include "platform/window/window.h"

namespace nplat::dd {

enum class Layout {
    kRGB32,
    kRGB24,
    kRGB565,
    kRGB555,
    kYV12,
    kI420,
    kIYUV,
    kNV12,
    kYUY2,
    kYVYU,
    kUYVY,
    kVYUY
};

bool IsFourCC(Layout layout);
bool IsPlanar420(Layout layout);
// From a FOURCC code; false for a code this layer does not know.
bool LayoutFromFourCC(DWORD code, Layout* layout);
DWORD FourCCOf(Layout layout);
Layout LayoutFromScreen(ScreenFormat format);
bool ScreenFromLayout(Layout layout, ScreenFormat* format);  // RGB layouts only
void DescribeLayout(Layout layout, DDPIXELFORMAT* out);

// Row pitch (16-byte aligned) and total bytes of a width x height surface.
int PitchOf(Layout layout, int width);
size_t BytesOf(Layout layout, int pitch, int height);
// Fills the surface with black of its layout.
void FillBlack(Layout layout, uint8_t* bits, int pitch, int width, int height);

// Reads `rect` of a surface as 0x00RRGGBB rows (rect's size, packed).
void ReadRGB(Layout layout, const uint8_t* bits, int pitch, int height, const RECT& rect,
             uint32_t* out);
// Bilinear stretch with pixel centres aligned; equal sizes copy.
void Stretch(const uint32_t* src, int srcWidth, int srcHeight, uint32_t* dst, int dstWidth,
             int dstHeight);

}  // namespace nplat::dd

// Row kernels between YUV samples and RGB32 pixels (bytes B, G, R, A), with
// the fixed-point arithmetic of the conversions:
//
// YUV to RGB, 16-bit lanes: u = (U - 128) * 256, v likewise;
//   dR = ((v * 11485) >> 16) + 16, dB = ((u * 14516) >> 16) + 16,
//   dG = ((u * -2819) >> 16) + ((v * -5850) >> 16) + 16,
//   R = clamp((Y * 32 + dR) >> 5, 0, 255) and so on (3.13 coefficients,
//   5 fraction bits of luma, nearest chroma sample, no interpolation).
// RGB to luma: 2.14 weights for Y-only pictures (Luma14), 1.7 weights for
//   pictures with chroma (Luma).
// RGB to chroma: the 2.14 formulas on rounded-up averages of the pixels a
//   sample covers; for 4:2:0, pixels past the row's last whole 16-pixel block
//   use 1.7 weights instead (+16447 = offset 128 and rounding 63/128). That
//   tail rule is part of the result, which is why the twins take the whole
//   row width.
//
// Not here: adjustment (yuv_rows.h runs it on the samples first or after),
// 16- and 24-bit RGB (rgb_pack_rows.h widens or narrows through RGB32).
#pragma once

#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::video {

struct RgbRowKernels {
    // One chroma sample per pixel pair; the pixels of width & ~1 are written
    // (an odd last pixel is the caller's).
    void (*yuv422ToRgb32)(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                          uint8_t alpha, int width);
    void (*yuv444ToRgb32)(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                          uint8_t alpha, int width);
    void (*rgb32ToLuma14)(const uint8_t* src, uint8_t* y, int width);
    void (*rgb32ToLuma)(const uint8_t* src, uint8_t* y, int width);
    // width pixels of two rows give width / 2 samples each.
    void (*rgb32ToChroma420)(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                             int width);
    void (*rgb32ToChroma422)(const uint8_t* src, uint8_t* u, uint8_t* v, int width);
    void (*rgb32ToChroma444)(const uint8_t* src, uint8_t* u, uint8_t* v, int width);
    // Luma of both rows and their 4:2:0 chroma in one pass over the pixels;
    // the same bytes as rgb32ToLuma twice and rgb32ToChroma420. Null in
    // sets without a fused kernel (callers then make the three calls).
    void (*rgb32ToYuv420)(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1,
                          uint8_t* u, uint8_t* v, int width);
};

const RgbRowKernels& GetRgbRowKernels(KernelSet set);

void InstallRgbRowsScalar(RgbRowKernels* k);
void InstallRgbRowsSse2(RgbRowKernels* k);
void InstallRgbRowsSsse3(RgbRowKernels* k);
void InstallRgbRowsAvx2(RgbRowKernels* k);

// Scalar twins over [x0, width).
void Yuv422ToRgb32_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                     uint8_t alpha, int x0, int width);
void Yuv444ToRgb32_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                     uint8_t alpha, int x0, int width);
void Rgb32ToLuma14_c(const uint8_t* src, uint8_t* y, int x0, int width);
void Rgb32ToLuma_c(const uint8_t* src, uint8_t* y, int x0, int width);
void Rgb32ToChroma420_c(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v, int x0,
                        int width);
void Rgb32ToChroma422_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width);
void Rgb32ToChroma444_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width);
void Rgb32ToYuv420_c(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1, uint8_t* u,
                     uint8_t* v, int x0, int width);

}  // namespace ncb::video

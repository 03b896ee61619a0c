// Row kernels among the RGB layouts: RGB32 (bytes B, G, R, A), RGB24 (B, G,
// R), RGB565 and RGB555 (16-bit words). Narrowing keeps the top bits of each
// channel; widening shifts left and leaves the low bits 0, with alpha 0.
// Pairs that are neither to nor from RGB32 go through RGB32 (exact: widening
// then narrowing keeps the same top bits).
//
// The 16-to-32-bit kernels walk each row from its last pixel to its first, so
// that a row widened in place (output over input, same start) reads every
// pixel before it is overwritten.
#pragma once

#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::video {

struct RgbPackRowKernels {
    void (*rgb32ToRgb24)(const uint8_t* src, uint8_t* dst, int width);
    void (*rgb32ToRgb565)(const uint8_t* src, uint8_t* dst, int width);
    void (*rgb32ToRgb555)(const uint8_t* src, uint8_t* dst, int width);
    void (*rgb24ToRgb32)(const uint8_t* src, uint8_t* dst, int width);
    void (*rgb565ToRgb32)(const uint8_t* src, uint8_t* dst, int width);
    void (*rgb555ToRgb32)(const uint8_t* src, uint8_t* dst, int width);
};

const RgbPackRowKernels& GetRgbPackRowKernels(KernelSet set);

void InstallRgbPackRowsScalar(RgbPackRowKernels* k);
void InstallRgbPackRowsSse2(RgbPackRowKernels* k);
void InstallRgbPackRowsSsse3(RgbPackRowKernels* k);
void InstallRgbPackRowsSse41(RgbPackRowKernels* k);

// Scalar twins over [x0, width); the widening ones walk it backwards.
void Rgb32ToRgb24_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void Rgb32ToRgb565_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void Rgb32ToRgb555_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void Rgb24ToRgb32_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void Rgb565ToRgb32_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void Rgb555ToRgb32_c(const uint8_t* src, uint8_t* dst, int x0, int width);

}  // namespace ncb::video

// Block reconstruction for the JPEG decoder: dequantisation, level shift,
// the integer Chen-Wang 8x8 inverse transform and the store of saturated
// bytes, with one kernel table per processor level (video/kernels pattern).
//
// Arithmetic every kernel reproduces bit for bit (the scalar twin spells it
// out): coefficients times quantisers keep the low 16 bits; the DC gets
// +1024 and is clamped to 0..2047; both transform passes compute in 32-bit
// lanes that wrap, shift arithmetically and saturate their results to 16
// bits (never reached by valid data, but hostile coefficients get a defined
// answer); pixels saturate to 0..255. The block is zeroed afterwards.
#pragma once

#include <cstddef>
#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::jpeg {

using ncb::video::KernelSet;

// block: 64 coefficients in transposed order (16-byte aligned is not
// required); quant: 64 quantisers in the same order; dst: 8 rows of 8 bytes,
// `pitch` apart. Reads and writes exactly those bytes.
using ReconstructFn = void (*)(int16_t* block, const uint16_t* quant, uint8_t* dst,
                               ptrdiff_t pitch);

struct IdctKernels {
    ReconstructFn reconstruct;
};

const IdctKernels& IdctKernelsFor(KernelSet set);

void ReconstructBlock_c(int16_t* block, const uint16_t* quant, uint8_t* dst, ptrdiff_t pitch);

void InstallIdctSse2(IdctKernels* k);
void InstallIdctSse41(IdctKernels* k);
void InstallIdctAvx2(IdctKernels* k);

}  // namespace ncb::jpeg

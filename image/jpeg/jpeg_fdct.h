// Forward transform and quantisation for the JPEG encoder, with one kernel
// table per processor level (the video/kernels pattern).
//
// Arithmetic every kernel reproduces bit for bit (the scalar twin spells it
// out): the integer Loeffler-Ligtenberg-Moschytz transform with 13-bit
// constants, first down each column (results kept two bits up, odd and
// rotated terms rounded at 11 bits), then along each row (even terms rounded
// at 5 bits, the others at 18), which leaves coefficients at the scale of
// the orthonormal DCT (DC = 8 x mean). The DC loses 1024 (128 x 8), the
// level shift. Each coefficient c is then quantised with its reciprocal r in
// 16-bit lanes: ((((c << 3) * r) >> 16) + 4) >> 3, the product's high half,
// arithmetic shifts. Doing the columns first makes the row pass produce the
// block already transposed, the order the decoder and the tables use.
//
// Not here: the zig-zag walk and the Huffman codes (jpeg_encoder.cpp).
#pragma once

#include <cstddef>
#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::jpeg {

using ncb::video::KernelSet;

// src: 8 rows of 8 pixels, `pitch` apart (no alignment needed); recip: 64
// reciprocals 65536 / q in transposed order; out: 64 quantised coefficients
// in transposed order (coefficient of vertical frequency v and horizontal
// frequency u at 8u + v). Reads exactly those 64 pixels. Returns which
// outputs are non-zero: bit i for out[i] (so the zero count is 64 minus its
// population count).
using ForwardQuantFn = uint64_t (*)(const uint8_t* src, ptrdiff_t pitch, const int16_t* recip,
                                    int16_t* out);

// The same for the two side-by-side blocks at src and src + 8, written to
// out0 and out1, their masks to nonZero[0] and nonZero[1]. Sets without a
// kernel of their own run forwardQuant twice.
using ForwardQuantPairFn = void (*)(const uint8_t* src, ptrdiff_t pitch, const int16_t* recip,
                                    int16_t* out0, int16_t* out1, uint64_t nonZero[2]);

struct FdctKernels {
    ForwardQuantFn forwardQuant;
    ForwardQuantPairFn forwardQuantPair;
};

const FdctKernels& FdctKernelsFor(KernelSet set);

template <ForwardQuantFn kSingle>
void PairOfSingles(const uint8_t* src, ptrdiff_t pitch, const int16_t* recip, int16_t* out0,
                   int16_t* out1, uint64_t nonZero[2]) {
    nonZero[0] = kSingle(src, pitch, recip, out0);
    nonZero[1] = kSingle(src + 8, pitch, recip, out1);
}

uint64_t ForwardQuant_c(const uint8_t* src, ptrdiff_t pitch, const int16_t* recip, int16_t* out);

void InstallFdctSse2(FdctKernels* k);
void InstallFdctAvx2(FdctKernels* k);

}  // namespace ncb::jpeg

// The vector block reconstruction shared by the SSE2 and SSE4.1 kernels,
// included by each ISA's own source so every copy is compiled with that
// source's flags (internal linkage: no copy can leak into another).
//
// Transposed coefficient storage makes the first pass lane-parallel: block
// row u holds horizontal frequency u of all eight vertical frequencies, so
// the pass runs down the eight row vectors without moving data. One 8x8
// transpose then puts each pixel column's vertical frequencies across the
// rows for the second pass, whose results are already pixel rows.
// Products go through pmaddwd in pairs (W1 a + W7 b and so on), which equals
// the reference's staged sums modulo 2^32; the 181 rotation is the ISA's own
// choice (shifts and adds on SSE2, pmulld on SSE4.1).
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace ncb::jpeg {
namespace {

constexpr int16_t kW1 = 2841, kW2 = 2676, kW3 = 2408, kW5 = 1609, kW6 = 1108, kW7 = 565;

inline __m128i Pair(int16_t a, int16_t b) {
    return _mm_set1_epi32(static_cast<int32_t>(
        (static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16) | static_cast<uint16_t>(a)));
}

template <bool kColumn, typename Mul181>
inline void TransformHalf(__m128i p04, __m128i p17, __m128i p53, __m128i p26, __m128i out[8]) {
    constexpr int16_t kScale = kColumn ? 256 : 2048;
    const __m128i round = _mm_set1_epi32(kColumn ? 8192 : 128);
    auto inner = [](__m128i v) {
        return kColumn ? _mm_srai_epi32(_mm_add_epi32(v, _mm_set1_epi32(4)), 3) : v;
    };
    __m128i x8 = _mm_add_epi32(_mm_madd_epi16(p04, Pair(kScale, kScale)), round);
    __m128i x0 = _mm_add_epi32(_mm_madd_epi16(p04, Pair(kScale, -kScale)), round);
    __m128i x4 = inner(_mm_madd_epi16(p17, Pair(kW1, kW7)));
    __m128i x5 = inner(_mm_madd_epi16(p17, Pair(kW7, -kW1)));
    __m128i x6 = inner(_mm_madd_epi16(p53, Pair(kW5, kW3)));
    __m128i x7 = inner(_mm_madd_epi16(p53, Pair(kW3, -kW5)));
    __m128i x2 = inner(_mm_madd_epi16(p26, Pair(kW6, -kW2)));
    __m128i x3 = inner(_mm_madd_epi16(p26, Pair(kW2, kW6)));

    __m128i x1 = _mm_add_epi32(x4, x6);
    x4 = _mm_sub_epi32(x4, x6);
    x6 = _mm_add_epi32(x5, x7);
    x5 = _mm_sub_epi32(x5, x7);
    x7 = _mm_add_epi32(x8, x3);
    x8 = _mm_sub_epi32(x8, x3);
    x3 = _mm_add_epi32(x0, x2);
    x0 = _mm_sub_epi32(x0, x2);
    const __m128i r128 = _mm_set1_epi32(128);
    x2 = _mm_srai_epi32(_mm_add_epi32(Mul181()(_mm_add_epi32(x4, x5)), r128), 8);
    x4 = _mm_srai_epi32(_mm_add_epi32(Mul181()(_mm_sub_epi32(x4, x5)), r128), 8);

    constexpr int kShift = kColumn ? 14 : 8;
    out[0] = _mm_srai_epi32(_mm_add_epi32(x7, x1), kShift);
    out[1] = _mm_srai_epi32(_mm_add_epi32(x3, x2), kShift);
    out[2] = _mm_srai_epi32(_mm_add_epi32(x0, x4), kShift);
    out[3] = _mm_srai_epi32(_mm_add_epi32(x8, x6), kShift);
    out[4] = _mm_srai_epi32(_mm_sub_epi32(x8, x6), kShift);
    out[5] = _mm_srai_epi32(_mm_sub_epi32(x0, x4), kShift);
    out[6] = _mm_srai_epi32(_mm_sub_epi32(x3, x2), kShift);
    out[7] = _mm_srai_epi32(_mm_sub_epi32(x7, x1), kShift);
}

// One 1-D pass over eight int16x8 vectors, lane-parallel; results saturate
// to 16 bits.
template <bool kColumn, typename Mul181>
inline void TransformRows(const __m128i in[8], __m128i out[8]) {
    __m128i lo[8], hi[8];
    TransformHalf<kColumn, Mul181>(
        _mm_unpacklo_epi16(in[0], in[4]), _mm_unpacklo_epi16(in[1], in[7]),
        _mm_unpacklo_epi16(in[5], in[3]), _mm_unpacklo_epi16(in[2], in[6]), lo);
    TransformHalf<kColumn, Mul181>(
        _mm_unpackhi_epi16(in[0], in[4]), _mm_unpackhi_epi16(in[1], in[7]),
        _mm_unpackhi_epi16(in[5], in[3]), _mm_unpackhi_epi16(in[2], in[6]), hi);
    for (int i = 0; i < 8; ++i) out[i] = _mm_packs_epi32(lo[i], hi[i]);
}

inline void Transpose8x8(__m128i r[8]) {
    const __m128i a0 = _mm_unpacklo_epi16(r[0], r[1]), a1 = _mm_unpackhi_epi16(r[0], r[1]);
    const __m128i a2 = _mm_unpacklo_epi16(r[2], r[3]), a3 = _mm_unpackhi_epi16(r[2], r[3]);
    const __m128i a4 = _mm_unpacklo_epi16(r[4], r[5]), a5 = _mm_unpackhi_epi16(r[4], r[5]);
    const __m128i a6 = _mm_unpacklo_epi16(r[6], r[7]), a7 = _mm_unpackhi_epi16(r[6], r[7]);
    const __m128i b0 = _mm_unpacklo_epi32(a0, a2), b1 = _mm_unpackhi_epi32(a0, a2);
    const __m128i b2 = _mm_unpacklo_epi32(a1, a3), b3 = _mm_unpackhi_epi32(a1, a3);
    const __m128i b4 = _mm_unpacklo_epi32(a4, a6), b5 = _mm_unpackhi_epi32(a4, a6);
    const __m128i b6 = _mm_unpacklo_epi32(a5, a7), b7 = _mm_unpackhi_epi32(a5, a7);
    r[0] = _mm_unpacklo_epi64(b0, b4);
    r[1] = _mm_unpackhi_epi64(b0, b4);
    r[2] = _mm_unpacklo_epi64(b1, b5);
    r[3] = _mm_unpackhi_epi64(b1, b5);
    r[4] = _mm_unpacklo_epi64(b2, b6);
    r[5] = _mm_unpackhi_epi64(b2, b6);
    r[6] = _mm_unpacklo_epi64(b3, b7);
    r[7] = _mm_unpackhi_epi64(b3, b7);
}

template <typename Mul181>
inline void ReconstructBlockSimd(int16_t* block, const uint16_t* quant, uint8_t* dst,
                                 ptrdiff_t pitch) {
    __m128i c[8];
    const __m128i zero = _mm_setzero_si128();
    for (int u = 0; u < 8; ++u) {
        auto* b = reinterpret_cast<__m128i*>(block + 8 * u);
        c[u] = _mm_mullo_epi16(_mm_loadu_si128(b),
                               _mm_loadu_si128(reinterpret_cast<const __m128i*>(quant + 8 * u)));
        _mm_storeu_si128(b, zero);
    }
    c[0] = _mm_adds_epi16(c[0], _mm_setr_epi16(1024, 0, 0, 0, 0, 0, 0, 0));
    c[0] = _mm_max_epi16(c[0],
                         _mm_setr_epi16(0, -32768, -32768, -32768, -32768, -32768, -32768, -32768));
    c[0] =
        _mm_min_epi16(c[0], _mm_setr_epi16(2047, 32767, 32767, 32767, 32767, 32767, 32767, 32767));
    __m128i t[8];
    TransformRows<false, Mul181>(c, t);
    Transpose8x8(t);
    __m128i o[8];
    TransformRows<true, Mul181>(t, o);
    for (int y = 0; y < 8; y += 2) {
        const __m128i px = _mm_packus_epi16(o[y], o[y + 1]);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + y * pitch), px);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + (y + 1) * pitch),
                         _mm_unpackhi_epi64(px, px));
    }
}

}  // namespace
}  // namespace ncb::jpeg

// AVX2 forward transform and quantisation of two side-by-side blocks at
// once: block 0 in the low 128-bit lane of every vector, block 1 in the high
// lane. Every step of the SSE2 kernel (unpacks, multiply-adds, packs) stays
// inside its 128-bit lane in AVX2, so the same sequence on 256-bit vectors
// is the SSE2 kernel run twice, and the results equal the scalar twin's.
// The single-block entry stays the SSE2 one.
#include <immintrin.h>

#include "image/jpeg/jpeg_fdct.h"

namespace ncb::jpeg {
namespace {

constexpr int k0_298 = 2446, k0_390 = 3196, k0_541 = 4433, k0_765 = 6270, k0_899 = 7373,
              k1_175 = 9633, k1_501 = 12299, k1_847 = 15137, k1_961 = 16069, k2_053 = 16819,
              k2_562 = 20995, k3_072 = 25172;

__m256i Pair(int a, int b) {
    return _mm256_set1_epi32(
        static_cast<int>((static_cast<uint32_t>(b) << 16) | static_cast<uint16_t>(a)));
}

// Two 16-bit vectors x, y whose lanes pair up as (x[i], y[i]), and the sum
// a * x + b * y per lane, rounded and shifted by n, back in 16 bits.
struct Interleaved {
    __m256i lo, hi;
    Interleaved(__m256i x, __m256i y)
        : lo(_mm256_unpacklo_epi16(x, y)), hi(_mm256_unpackhi_epi16(x, y)) {}
};

template <int kShift>
__m256i Rotate(const Interleaved& xy, __m256i ab) {
    const __m256i round = _mm256_set1_epi32(1 << (kShift - 1));
    const __m256i lo =
        _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(xy.lo, ab), round), kShift);
    const __m256i hi =
        _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(xy.hi, ab), round), kShift);
    return _mm256_packs_epi32(lo, hi);
}

template <int kShift>
__m256i Rotate4(const Interleaved& xy, __m256i ab, const Interleaved& zw, __m256i cd) {
    const __m256i round = _mm256_set1_epi32(1 << (kShift - 1));
    __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(xy.lo, ab), _mm256_madd_epi16(zw.lo, cd));
    __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(xy.hi, ab), _mm256_madd_epi16(zw.hi, cd));
    lo = _mm256_srai_epi32(_mm256_add_epi32(lo, round), kShift);
    hi = _mm256_srai_epi32(_mm256_add_epi32(hi, round), kShift);
    return _mm256_packs_epi32(lo, hi);
}

// One 1-D transform across the eight vectors, lane by lane.
template <bool kPass2>
void Transform(__m256i d[8]) {
    constexpr int kShift = kPass2 ? 18 : 11;
    const __m256i tmp0 = _mm256_add_epi16(d[0], d[7]), tmp7 = _mm256_sub_epi16(d[0], d[7]);
    const __m256i tmp1 = _mm256_add_epi16(d[1], d[6]), tmp6 = _mm256_sub_epi16(d[1], d[6]);
    const __m256i tmp2 = _mm256_add_epi16(d[2], d[5]), tmp5 = _mm256_sub_epi16(d[2], d[5]);
    const __m256i tmp3 = _mm256_add_epi16(d[3], d[4]), tmp4 = _mm256_sub_epi16(d[3], d[4]);
    const __m256i tmp10 = _mm256_add_epi16(tmp0, tmp3), tmp13 = _mm256_sub_epi16(tmp0, tmp3);
    const __m256i tmp11 = _mm256_add_epi16(tmp1, tmp2), tmp12 = _mm256_sub_epi16(tmp1, tmp2);

    if (kPass2) {
        const __m256i round = _mm256_set1_epi16(16);
        d[0] = _mm256_srai_epi16(_mm256_add_epi16(_mm256_add_epi16(tmp10, tmp11), round), 5);
        d[4] = _mm256_srai_epi16(_mm256_add_epi16(_mm256_sub_epi16(tmp10, tmp11), round), 5);
    } else {
        d[0] = _mm256_slli_epi16(_mm256_add_epi16(tmp10, tmp11), 2);
        d[4] = _mm256_slli_epi16(_mm256_sub_epi16(tmp10, tmp11), 2);
    }
    const Interleaved even(tmp13, tmp12);
    d[2] = Rotate<kShift>(even, Pair(k0_541 + k0_765, k0_541));
    d[6] = Rotate<kShift>(even, Pair(k0_541, k0_541 - k1_847));

    const Interleaved t45(tmp4, tmp5), t67(tmp6, tmp7);
    d[7] = Rotate4<kShift>(t45, Pair(k0_298 - k0_899 - k1_961 + k1_175, k1_175), t67,
                           Pair(k1_175 - k1_961, k1_175 - k0_899));
    d[5] = Rotate4<kShift>(t45, Pair(k1_175, k2_053 - k2_562 - k0_390 + k1_175), t67,
                           Pair(k1_175 - k2_562, k1_175 - k0_390));
    d[3] = Rotate4<kShift>(t45, Pair(k1_175 - k1_961, k1_175 - k2_562), t67,
                           Pair(k3_072 - k2_562 - k1_961 + k1_175, k1_175));
    d[1] = Rotate4<kShift>(t45, Pair(k1_175 - k0_899, k1_175 - k0_390), t67,
                           Pair(k1_175, k1_501 - k0_899 - k0_390 + k1_175));
}

void Transpose(__m256i d[8]) {
    const __m256i a0 = _mm256_unpacklo_epi16(d[0], d[1]), a1 = _mm256_unpackhi_epi16(d[0], d[1]);
    const __m256i a2 = _mm256_unpacklo_epi16(d[2], d[3]), a3 = _mm256_unpackhi_epi16(d[2], d[3]);
    const __m256i a4 = _mm256_unpacklo_epi16(d[4], d[5]), a5 = _mm256_unpackhi_epi16(d[4], d[5]);
    const __m256i a6 = _mm256_unpacklo_epi16(d[6], d[7]), a7 = _mm256_unpackhi_epi16(d[6], d[7]);
    const __m256i b0 = _mm256_unpacklo_epi32(a0, a2), b1 = _mm256_unpackhi_epi32(a0, a2);
    const __m256i b2 = _mm256_unpacklo_epi32(a1, a3), b3 = _mm256_unpackhi_epi32(a1, a3);
    const __m256i b4 = _mm256_unpacklo_epi32(a4, a6), b5 = _mm256_unpackhi_epi32(a4, a6);
    const __m256i b6 = _mm256_unpacklo_epi32(a5, a7), b7 = _mm256_unpackhi_epi32(a5, a7);
    d[0] = _mm256_unpacklo_epi64(b0, b4);
    d[1] = _mm256_unpackhi_epi64(b0, b4);
    d[2] = _mm256_unpacklo_epi64(b1, b5);
    d[3] = _mm256_unpackhi_epi64(b1, b5);
    d[4] = _mm256_unpacklo_epi64(b2, b6);
    d[5] = _mm256_unpackhi_epi64(b2, b6);
    d[6] = _mm256_unpacklo_epi64(b3, b7);
    d[7] = _mm256_unpackhi_epi64(b3, b7);
}

void ForwardQuantPair_avx2(const uint8_t* src, ptrdiff_t pitch, const int16_t* recip, int16_t* out0,
                           int16_t* out1, uint64_t nonZero[2]) {
    const __m256i bias = _mm256_set1_epi16(128);
    __m256i d[8];
    for (int y = 0; y < 8; ++y) {
        const __m128i row = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + y * pitch));
        // Pixels 0-7 (block 0) to the low lane, 8-15 (block 1) to the high one.
        d[y] = _mm256_sub_epi16(_mm256_cvtepu8_epi16(row), bias);
    }
    Transform<false>(d);
    Transpose(d);
    Transform<true>(d);

    const __m256i four = _mm256_set1_epi16(4), zero = _mm256_setzero_si256();
    uint64_t zeros0 = 0, zeros1 = 0;
    for (int u = 0; u < 8; u += 2) {
        __m256i q[2];
        for (int i = 0; i < 2; ++i) {
            const __m256i r = _mm256_broadcastsi128_si256(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(recip + 8 * (u + i))));
            q[i] = _mm256_mulhi_epi16(_mm256_slli_epi16(d[u + i], 3), r);
            q[i] = _mm256_srai_epi16(_mm256_add_epi16(q[i], four), 3);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out0 + 8 * (u + i)),
                             _mm256_castsi256_si128(q[i]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out1 + 8 * (u + i)),
                             _mm256_extracti128_si256(q[i], 1));
        }
        // Packing stays in lane: bytes 0-15 belong to block 0, 16-31 to block 1.
        const __m256i isZero =
            _mm256_packs_epi16(_mm256_cmpeq_epi16(q[0], zero), _mm256_cmpeq_epi16(q[1], zero));
        const auto bits = static_cast<uint32_t>(_mm256_movemask_epi8(isZero));
        zeros0 |= static_cast<uint64_t>(bits & 0xFFFF) << (8 * u);
        zeros1 |= static_cast<uint64_t>(bits >> 16) << (8 * u);
    }
    nonZero[0] = ~zeros0;
    nonZero[1] = ~zeros1;
}

}  // namespace

void InstallFdctAvx2(FdctKernels* k) { k->forwardQuantPair = ForwardQuantPair_avx2; }

}  // namespace ncb::jpeg

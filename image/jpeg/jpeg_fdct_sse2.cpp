// SSE2 forward transform and quantisation: one 8x8 block in eight 16-bit
// vectors, one transpose.
//
// Pass 1 runs down the columns with a row of the block in each vector, so
// it needs no transpose; one transpose then puts a vertical frequency in
// each lane, and pass 2 leaves horizontal frequency u in vector u, which is
// the transposed coefficient order. Pixels are shifted by 128 on load so
// that every sum fits 16 bits (the column DC sum reaches -32768 exactly);
// rotations go through 32-bit multiply-add pairs whose constants are the
// flow graph's products folded together, so the integers equal the scalar
// twin's.
#include <emmintrin.h>

#include "image/jpeg/jpeg_fdct.h"

namespace ncb::jpeg {
namespace {

constexpr int k0_298 = 2446, k0_390 = 3196, k0_541 = 4433, k0_765 = 6270, k0_899 = 7373,
              k1_175 = 9633, k1_501 = 12299, k1_847 = 15137, k1_961 = 16069, k2_053 = 16819,
              k2_562 = 20995, k3_072 = 25172;

__m128i Pair(int a, int b) {
    return _mm_set1_epi32(
        static_cast<int>((static_cast<uint32_t>(b) << 16) | static_cast<uint16_t>(a)));
}

// Two 16-bit vectors x, y whose lanes pair up as (x[i], y[i]), and the sum
// a * x + b * y per lane, rounded and shifted by n, back in 16 bits.
struct Interleaved {
    __m128i lo, hi;
    Interleaved(__m128i x, __m128i y)
        : lo(_mm_unpacklo_epi16(x, y)), hi(_mm_unpackhi_epi16(x, y)) {}
};

template <int kShift>
__m128i Rotate(const Interleaved& xy, __m128i ab) {
    const __m128i round = _mm_set1_epi32(1 << (kShift - 1));
    const __m128i lo = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(xy.lo, ab), round), kShift);
    const __m128i hi = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(xy.hi, ab), round), kShift);
    return _mm_packs_epi32(lo, hi);
}

template <int kShift>
__m128i Rotate4(const Interleaved& xy, __m128i ab, const Interleaved& zw, __m128i cd) {
    const __m128i round = _mm_set1_epi32(1 << (kShift - 1));
    __m128i lo = _mm_add_epi32(_mm_madd_epi16(xy.lo, ab), _mm_madd_epi16(zw.lo, cd));
    __m128i hi = _mm_add_epi32(_mm_madd_epi16(xy.hi, ab), _mm_madd_epi16(zw.hi, cd));
    lo = _mm_srai_epi32(_mm_add_epi32(lo, round), kShift);
    hi = _mm_srai_epi32(_mm_add_epi32(hi, round), kShift);
    return _mm_packs_epi32(lo, hi);
}

// One 1-D transform across the eight vectors, lane by lane.
template <bool kPass2>
void Transform(__m128i d[8]) {
    constexpr int kShift = kPass2 ? 18 : 11;
    const __m128i tmp0 = _mm_add_epi16(d[0], d[7]), tmp7 = _mm_sub_epi16(d[0], d[7]);
    const __m128i tmp1 = _mm_add_epi16(d[1], d[6]), tmp6 = _mm_sub_epi16(d[1], d[6]);
    const __m128i tmp2 = _mm_add_epi16(d[2], d[5]), tmp5 = _mm_sub_epi16(d[2], d[5]);
    const __m128i tmp3 = _mm_add_epi16(d[3], d[4]), tmp4 = _mm_sub_epi16(d[3], d[4]);
    const __m128i tmp10 = _mm_add_epi16(tmp0, tmp3), tmp13 = _mm_sub_epi16(tmp0, tmp3);
    const __m128i tmp11 = _mm_add_epi16(tmp1, tmp2), tmp12 = _mm_sub_epi16(tmp1, tmp2);

    if (kPass2) {
        const __m128i round = _mm_set1_epi16(16);
        d[0] = _mm_srai_epi16(_mm_add_epi16(_mm_add_epi16(tmp10, tmp11), round), 5);
        d[4] = _mm_srai_epi16(_mm_add_epi16(_mm_sub_epi16(tmp10, tmp11), round), 5);
    } else {
        d[0] = _mm_slli_epi16(_mm_add_epi16(tmp10, tmp11), 2);
        d[4] = _mm_slli_epi16(_mm_sub_epi16(tmp10, tmp11), 2);
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

void Transpose(__m128i d[8]) {
    const __m128i a0 = _mm_unpacklo_epi16(d[0], d[1]), a1 = _mm_unpackhi_epi16(d[0], d[1]);
    const __m128i a2 = _mm_unpacklo_epi16(d[2], d[3]), a3 = _mm_unpackhi_epi16(d[2], d[3]);
    const __m128i a4 = _mm_unpacklo_epi16(d[4], d[5]), a5 = _mm_unpackhi_epi16(d[4], d[5]);
    const __m128i a6 = _mm_unpacklo_epi16(d[6], d[7]), a7 = _mm_unpackhi_epi16(d[6], d[7]);
    const __m128i b0 = _mm_unpacklo_epi32(a0, a2), b1 = _mm_unpackhi_epi32(a0, a2);
    const __m128i b2 = _mm_unpacklo_epi32(a1, a3), b3 = _mm_unpackhi_epi32(a1, a3);
    const __m128i b4 = _mm_unpacklo_epi32(a4, a6), b5 = _mm_unpackhi_epi32(a4, a6);
    const __m128i b6 = _mm_unpacklo_epi32(a5, a7), b7 = _mm_unpackhi_epi32(a5, a7);
    d[0] = _mm_unpacklo_epi64(b0, b4);
    d[1] = _mm_unpackhi_epi64(b0, b4);
    d[2] = _mm_unpacklo_epi64(b1, b5);
    d[3] = _mm_unpackhi_epi64(b1, b5);
    d[4] = _mm_unpacklo_epi64(b2, b6);
    d[5] = _mm_unpackhi_epi64(b2, b6);
    d[6] = _mm_unpacklo_epi64(b3, b7);
    d[7] = _mm_unpackhi_epi64(b3, b7);
}

uint64_t ForwardQuant_sse2(const uint8_t* src, ptrdiff_t pitch, const int16_t* recip,
                           int16_t* out) {
    const __m128i zero = _mm_setzero_si128(), bias = _mm_set1_epi16(128);
    __m128i d[8];
    for (int y = 0; y < 8; ++y) {
        const __m128i row = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + y * pitch));
        d[y] = _mm_sub_epi16(_mm_unpacklo_epi8(row, zero), bias);
    }
    Transform<false>(d);
    Transpose(d);
    Transform<true>(d);

    const __m128i four = _mm_set1_epi16(4);
    uint64_t zeros = 0;
    for (int u = 0; u < 8; u += 2) {
        __m128i q[2];
        for (int i = 0; i < 2; ++i) {
            const __m128i r =
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(recip + 8 * (u + i)));
            q[i] = _mm_mulhi_epi16(_mm_slli_epi16(d[u + i], 3), r);
            q[i] = _mm_srai_epi16(_mm_add_epi16(q[i], four), 3);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8 * (u + i)), q[i]);
        }
        const __m128i isZero =
            _mm_packs_epi16(_mm_cmpeq_epi16(q[0], zero), _mm_cmpeq_epi16(q[1], zero));
        zeros |= static_cast<uint64_t>(_mm_movemask_epi8(isZero)) << (8 * u);
    }
    return ~zeros;
}

}  // namespace

void InstallFdctSse2(FdctKernels* k) {
    k->forwardQuant = ForwardQuant_sse2;
    k->forwardQuantPair = PairOfSingles<ForwardQuant_sse2>;
}

}  // namespace ncb::jpeg

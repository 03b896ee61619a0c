// AVX2 kernels between YUV samples and RGB32, picked by level 2 on
// processors with AVX2: 32 pixels per step with the same 16-bit arithmetic
// as the SSE2 kernels. AVX2 works within 128-bit lanes, so pixel order is
// restored with cross-lane permutes before each store. The RGB-to-chroma
// kernel finishes with one 16-pixel SSE step where it fits, so that, as at
// every level, exactly the pixels after the last whole 16-pixel block reach
// the twin.
//
// Aligned variants need 32-byte alignment for 256-bit accesses, which the
// 16-byte test of Row<> does not promise, so these kernels use unaligned
// accesses throughout (as fast as aligned ones on AVX2 processors).
#include <immintrin.h>

#include "video/colour/rgb_colour_sse2.h"
#include "video/colour/rgb_rows.h"
#include "video/kernels/simd_row.h"
#include "video/kernels/simd_row_avx2.h"

namespace ncb::video {
namespace {

// (U - 128) * 256 of 16 chroma bytes in 16 lanes: samples 0-7 | 8-15.
inline __m256i Centred16(__m128i bytes) {
    return _mm256_xor_si256(_mm256_slli_epi16(_mm256_cvtepu8_epi16(bytes), 8),
                            _mm256_set1_epi16(-32768));
}

struct Terms {
    __m256i r, g, b;
};

inline Terms MakeTerms(__m256i u, __m256i v) {
    const __m256i half = _mm256_set1_epi16(16);
    Terms t;
    t.r = _mm256_add_epi16(_mm256_mulhi_epi16(v, _mm256_set1_epi16(11485)), half);
    t.b = _mm256_add_epi16(_mm256_mulhi_epi16(u, _mm256_set1_epi16(14516)), half);
    t.g = _mm256_add_epi16(_mm256_add_epi16(_mm256_mulhi_epi16(u, _mm256_set1_epi16(-2819)),
                                            _mm256_mulhi_epi16(v, _mm256_set1_epi16(-5850))),
                           half);
    return t;
}

inline __m256i Channel(__m256i y32, __m256i term) {
    return _mm256_srai_epi16(_mm256_add_epi16(y32, term), 5);
}

// 32 pixels of luma with terms for pixels [0-7 | 16-23] (lo) and
// [8-15 | 24-31] (hi), as 128 bytes of B, G, R, alpha.
inline void StoreRgb32x32(uint8_t* dst, __m256i luma, const Terms& lo, const Terms& hi,
                          __m256i alpha) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i ylo = _mm256_slli_epi16(_mm256_unpacklo_epi8(luma, zero), 5);
    const __m256i yhi = _mm256_slli_epi16(_mm256_unpackhi_epi8(luma, zero), 5);
    const __m256i b = _mm256_packus_epi16(Channel(ylo, lo.b), Channel(yhi, hi.b));
    const __m256i g = _mm256_packus_epi16(Channel(ylo, lo.g), Channel(yhi, hi.g));
    const __m256i r = _mm256_packus_epi16(Channel(ylo, lo.r), Channel(yhi, hi.r));
    const __m256i bg0 = _mm256_unpacklo_epi8(b, g);  // pixels 0-7 | 16-23
    const __m256i bg1 = _mm256_unpackhi_epi8(b, g);  // pixels 8-15 | 24-31
    const __m256i ra0 = _mm256_unpacklo_epi8(r, alpha);
    const __m256i ra1 = _mm256_unpackhi_epi8(r, alpha);
    const __m256i q0 = _mm256_unpacklo_epi16(bg0, ra0);  // 0-3 | 16-19
    const __m256i q1 = _mm256_unpackhi_epi16(bg0, ra0);  // 4-7 | 20-23
    const __m256i q2 = _mm256_unpacklo_epi16(bg1, ra1);  // 8-11 | 24-27
    const __m256i q3 = _mm256_unpackhi_epi16(bg1, ra1);  // 12-15 | 28-31
    Store256<false>(dst, _mm256_permute2x128_si256(q0, q1, 0x20));
    Store256<false>(dst + 32, _mm256_permute2x128_si256(q2, q3, 0x20));
    Store256<false>(dst + 64, _mm256_permute2x128_si256(q0, q1, 0x31));
    Store256<false>(dst + 96, _mm256_permute2x128_si256(q2, q3, 0x31));
}

template <bool A>
int Yuv422ToRgb32_avx2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                       uint8_t alpha, int width) {
    const __m256i a = _mm256_set1_epi8(static_cast<char>(alpha));
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const Terms t =
            MakeTerms(Centred16(Load<false>(u + x / 2)), Centred16(Load<false>(v + x / 2)));
        const Terms lo = {_mm256_unpacklo_epi16(t.r, t.r), _mm256_unpacklo_epi16(t.g, t.g),
                          _mm256_unpacklo_epi16(t.b, t.b)};
        const Terms hi = {_mm256_unpackhi_epi16(t.r, t.r), _mm256_unpackhi_epi16(t.g, t.g),
                          _mm256_unpackhi_epi16(t.b, t.b)};
        StoreRgb32x32(dst + 4 * x, Load256<false>(y + x), lo, hi, a);
    }
    return x;
}

template <bool A>
int Yuv444ToRgb32_avx2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                       uint8_t alpha, int width) {
    const __m256i a = _mm256_set1_epi8(static_cast<char>(alpha));
    const __m256i zero = _mm256_setzero_si256();
    const __m256i flip = _mm256_set1_epi16(-32768);
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m256i cu = Load256<false>(u + x);
        const __m256i cv = Load256<false>(v + x);
        // Low and high byte halves of each lane: samples [0-7 | 16-23] and
        // [8-15 | 24-31], the order StoreRgb32x32 takes.
        const Terms lo = MakeTerms(_mm256_xor_si256(_mm256_unpacklo_epi8(zero, cu), flip),
                                   _mm256_xor_si256(_mm256_unpacklo_epi8(zero, cv), flip));
        const Terms hi = MakeTerms(_mm256_xor_si256(_mm256_unpackhi_epi8(zero, cu), flip),
                                   _mm256_xor_si256(_mm256_unpackhi_epi8(zero, cv), flip));
        StoreRgb32x32(dst + 4 * x, Load256<false>(y + x), lo, hi, a);
    }
    return x;
}

// 1.7 luma of 32 pixels (four vectors of eight) as 32 bytes in order.
inline __m256i Luma32(const __m256i p[4]) {
    const __m256i weights = _mm256_set1_epi32(0x00264B0F);  // 15, 75, 38, 0
    const __m256i round = _mm256_set1_epi16(64);
    __m256i m[4];
#pragma GCC unroll 8
    for (int i = 0; i < 4; ++i) m[i] = _mm256_maddubs_epi16(p[i], weights);
    // Sums of pixels [0-3, 8-11 | 4-7, 12-15] and [16-19, 24-27 | 20-23, 28-31].
    const __m256i h01 =
        _mm256_srli_epi16(_mm256_add_epi16(_mm256_hadd_epi16(m[0], m[1]), round), 7);
    const __m256i h23 =
        _mm256_srli_epi16(_mm256_add_epi16(_mm256_hadd_epi16(m[2], m[3]), round), 7);
    return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(h01, h23),
                                       _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// The same for 16 pixels with 128-bit vectors.
inline __m128i Luma16(const __m128i q[4]) {
    const __m128i weights = _mm_set1_epi32(0x00264B0F);
    const __m128i round = _mm_set1_epi16(64);
    __m128i m[4];
#pragma GCC unroll 8
    for (int i = 0; i < 4; ++i) m[i] = _mm_maddubs_epi16(q[i], weights);
    const __m128i lo = _mm_srli_epi16(_mm_add_epi16(_mm_hadd_epi16(m[0], m[1]), round), 7);
    const __m128i hi = _mm_srli_epi16(_mm_add_epi16(_mm_hadd_epi16(m[2], m[3]), round), 7);
    return _mm_packus_epi16(lo, hi);
}

template <bool A>
int Rgb32ToLuma_avx2(const uint8_t* src, uint8_t* y, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        __m256i p[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) p[i] = Load256<false>(src + 4 * x + 32 * i);
        Store256<false>(y + x, Luma32(p));
    }
    return x;
}

// B, G, R of 16 pixels (two vectors of eight, pixels in order) in 16-bit
// lanes ordered [0-3, 8-11 | 4-7, 12-15].
struct Channels256 {
    __m256i b, g, r;
};

inline Channels256 SplitChannels(__m256i p0, __m256i p1) {
    const __m256i low = _mm256_set1_epi32(0xFF);
    Channels256 c;
    c.b = _mm256_packs_epi32(_mm256_and_si256(p0, low), _mm256_and_si256(p1, low));
    c.g = _mm256_packs_epi32(_mm256_and_si256(_mm256_srli_epi32(p0, 8), low),
                             _mm256_and_si256(_mm256_srli_epi32(p1, 8), low));
    c.r = _mm256_packs_epi32(_mm256_and_si256(_mm256_srli_epi32(p0, 16), low),
                             _mm256_and_si256(_mm256_srli_epi32(p1, 16), low));
    return c;
}

inline void Chroma14x16(const Channels256& c, __m256i* u, __m256i* v) {
    const __m256i round = _mm256_set1_epi16(32);
    const __m256i b8 = _mm256_slli_epi16(c.b, 8);
    const __m256i g8 = _mm256_slli_epi16(c.g, 8);
    const __m256i r8 = _mm256_slli_epi16(c.r, 8);
    __m256i tu = _mm256_sub_epi16(_mm256_slli_epi16(c.b, 5),
                                  _mm256_mulhi_epu16(g8, _mm256_set1_epi16(5428)));
    tu = _mm256_add_epi16(_mm256_sub_epi16(tu, _mm256_mulhi_epu16(r8, _mm256_set1_epi16(2764))),
                          round);
    __m256i tv = _mm256_sub_epi16(_mm256_slli_epi16(c.r, 5),
                                  _mm256_mulhi_epu16(g8, _mm256_set1_epi16(6860)));
    tv = _mm256_add_epi16(_mm256_sub_epi16(tv, _mm256_mulhi_epu16(b8, _mm256_set1_epi16(1332))),
                          round);
    *u = _mm256_srai_epi16(tu, 6);
    *v = _mm256_srai_epi16(tv, 6);
}

// Rounded-up means of the pixel pairs of 16 pixels (two vectors), in order.
inline __m256i HalvePixels256(__m256i p0, __m256i p1) {
    const __m256 a = _mm256_castsi256_ps(p0);
    const __m256 b = _mm256_castsi256_ps(p1);
    const __m256i even = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m256i odd = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    // Means of pairs [0, 1, 4, 5 | 2, 3, 6, 7]; put them in order.
    return _mm256_permute4x64_epi64(_mm256_avg_epu8(even, odd), _MM_SHUFFLE(3, 1, 2, 0));
}

// 16 chroma samples of 32 pixels whose rows are already averaged (four
// vectors of eight).
inline void Chroma16(const __m256i a[4], uint8_t* u, uint8_t* v) {
    __m256i cu, cv;
    Chroma14x16(SplitChannels(HalvePixels256(a[0], a[1]), HalvePixels256(a[2], a[3])), &cu, &cv);
    // U [0-3, 8-11, V 0-3, 8-11 | U 4-7, 12-15, V 4-7, 12-15] as bytes.
    const __m256i bytes = _mm256_xor_si256(_mm256_packs_epi16(cu, cv), _mm256_set1_epi8(-128));
    const __m256i ordered =
        _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    Store<false>(u, _mm256_castsi256_si128(ordered));
    Store<false>(v, _mm256_extracti128_si256(ordered, 1));
}

// Eight chroma samples of 16 pixels of averaged rows, 128-bit.
inline void Chroma8(const __m128i a[4], uint8_t* u, uint8_t* v) {
    __m128i cu, cv;
    Chroma14(SplitChannels_sse2(HalvePixels(a[0], a[1]), HalvePixels(a[2], a[3])), &cu, &cv);
    const __m128i bytes = OffsetBytes(cu, cv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(u), bytes);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(v), _mm_unpackhi_epi64(bytes, bytes));
}

template <bool A>
int Rgb32ToChroma420_avx2(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                          int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        __m256i a[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i)
            a[i] = _mm256_avg_epu8(Load256<false>(src0 + 4 * x + 32 * i),
                                   Load256<false>(src1 + 4 * x + 32 * i));
        Chroma16(a, u + x / 2, v + x / 2);
    }
    if (x + 16 <= width) {
        __m128i a[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i)
            a[i] = _mm_avg_epu8(Load<false>(src0 + 4 * x + 16 * i),
                                Load<false>(src1 + 4 * x + 16 * i));
        Chroma8(a, u + x / 2, v + x / 2);
        x += 16;
    }
    return x;
}

// Both luma rows and the chroma of a row pair, each pixel loaded once; the
// last whole 16-pixel block, if any, in 128-bit form.
template <bool A>
int Rgb32ToYuv420_avx2(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1,
                       uint8_t* u, uint8_t* v, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        __m256i p0[4], p1[4], a[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) {
            p0[i] = Load256<false>(src0 + 4 * x + 32 * i);
            p1[i] = Load256<false>(src1 + 4 * x + 32 * i);
            a[i] = _mm256_avg_epu8(p0[i], p1[i]);
        }
        Store256<false>(y0 + x, Luma32(p0));
        Store256<false>(y1 + x, Luma32(p1));
        Chroma16(a, u + x / 2, v + x / 2);
    }
    if (x + 16 <= width) {
        __m128i q0[4], q1[4], a[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) {
            q0[i] = Load<false>(src0 + 4 * x + 16 * i);
            q1[i] = Load<false>(src1 + 4 * x + 16 * i);
            a[i] = _mm_avg_epu8(q0[i], q1[i]);
        }
        Store<false>(y0 + x, Luma16(q0));
        Store<false>(y1 + x, Luma16(q1));
        Chroma8(a, u + x / 2, v + x / 2);
        x += 16;
    }
    return x;
}

}  // namespace

void InstallRgbRowsAvx2(RgbRowKernels* k) {
    using ToRgb = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*, uint8_t)>;
    k->yuv422ToRgb32 =
        ToRgb::Vector<Yuv422ToRgb32_avx2<true>, Yuv422ToRgb32_avx2<false>, Yuv422ToRgb32_c>;
    k->yuv444ToRgb32 =
        ToRgb::Vector<Yuv444ToRgb32_avx2<true>, Yuv444ToRgb32_avx2<false>, Yuv444ToRgb32_c>;
    k->rgb32ToLuma =
        Row<void(const uint8_t*, uint8_t*)>::Vector<Rgb32ToLuma_avx2<true>, Rgb32ToLuma_avx2<false>,
                                                    Rgb32ToLuma_c>;
    k->rgb32ToChroma420 = Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*)>::Vector<
        Rgb32ToChroma420_avx2<true>, Rgb32ToChroma420_avx2<false>, Rgb32ToChroma420_c>;
    k->rgb32ToYuv420 =
        Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*, uint8_t*, uint8_t*)>::Vector<
            Rgb32ToYuv420_avx2<true>, Rgb32ToYuv420_avx2<false>, Rgb32ToYuv420_c>;
}

}  // namespace ncb::video

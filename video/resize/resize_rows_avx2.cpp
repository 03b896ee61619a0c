// AVX2 resize kernels (level 2 on capable processors). Horizontal: the
// shared 128-bit kernels, except that two inside RGB32 pixels share one
// 256-bit register, one per lane, so each multiply-add serves both.
// Vertical: the same high-half products and saturating sums as the 128-bit
// kernels, 32 values per step. Results equal the scalar twins bit for bit.
#include <immintrin.h>

#include "video/kernels/simd_row_avx2.h"
#include "video/resize/resize_rows_x86.h"

namespace ncb::video {
namespace {

inline __m256i Pair128(__m128i lo, __m128i hi) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}

inline __m128i Load64(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }

struct Avx2Ops {
    static constexpr bool kPairSums = true;

    static __m128i SpreadPair(__m128i v) {
        const __m128i order = _mm_setr_epi8(0, -1, 4, -1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1);
        return _mm_shuffle_epi8(v, order);
    }
    static __m128i SpreadHighPair(__m128i v) {
        const __m128i order =
            _mm_setr_epi8(8, -1, 12, -1, 9, -1, 13, -1, 10, -1, 14, -1, 11, -1, 15, -1);
        return _mm_shuffle_epi8(v, order);
    }

    // Channel sums of pixel 0 (taps at p0, weights w0) and pixel 1.
    template <int T>
    static void Rgb32PairSums(const uint8_t* p0, const uint8_t* p1, const int16_t* w0,
                              const int16_t* w1, __m128i* a, __m128i* b) {
        const __m256i low =
            _mm256_setr_epi8(0, -1, 4, -1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1, 0, -1, 4, -1,
                             1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1);
        const __m256i high =
            _mm256_setr_epi8(8, -1, 12, -1, 9, -1, 13, -1, 10, -1, 14, -1, 11, -1, 15, -1, 8, -1,
                             12, -1, 9, -1, 13, -1, 10, -1, 14, -1, 11, -1, 15, -1);
        __m256i acc = _mm256_setzero_si256();
#pragma GCC unroll 3
        for (int quad = 0; quad < T / 4; ++quad) {
            const __m256i v =
                Pair128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p0 + 16 * quad)),
                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(p1 + 16 * quad)));
            const __m256i wq = Pair128(Load64(w0 + 4 * quad), Load64(w1 + 4 * quad));
            acc = _mm256_add_epi32(
                acc, _mm256_madd_epi16(_mm256_shuffle_epi8(v, low), _mm256_shuffle_epi32(wq, 0)));
            acc = _mm256_add_epi32(acc, _mm256_madd_epi16(_mm256_shuffle_epi8(v, high),
                                                          _mm256_shuffle_epi32(wq, 0x55)));
        }
        if constexpr (T % 4 != 0) {
            const __m256i v = Pair128(Load64(p0 + 16 * (T / 4)), Load64(p1 + 16 * (T / 4)));
            const __m256i wq = Pair128(_mm_cvtsi32_si128(Load32(w0 + T - 2)),
                                       _mm_cvtsi32_si128(Load32(w1 + T - 2)));
            acc = _mm256_add_epi32(
                acc, _mm256_madd_epi16(_mm256_shuffle_epi8(v, low), _mm256_shuffle_epi32(wq, 0)));
        }
        *a = _mm256_castsi256_si128(acc);
        *b = _mm256_extracti128_si256(acc, 1);
    }
};

inline __m256i Weight256(const uint16_t* w) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(w)));
}

void VInter_avx2(const int16_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                 int count) {
    int x = 0;
    for (; x + 32 <= count; x += 32) {
        __m256i a0 = _mm256_setzero_si256(), a1 = a0;
        for (int r = 0; r < n; ++r) {
            const __m256i w = Weight256(weights + 8 * r);
            a0 = _mm256_adds_epu16(a0, _mm256_mulhi_epu16(Load256<false>(rows[r] + x), w));
            a1 = _mm256_adds_epu16(a1, _mm256_mulhi_epu16(Load256<false>(rows[r] + x + 16), w));
        }
        // packus works per 128-bit lane: restore the order of the 64-bit quarters.
        const __m256i packed =
            _mm256_packus_epi16(_mm256_srai_epi16(a0, 6), _mm256_srai_epi16(a1, 6));
        Store256<false>(dst + x, _mm256_permute4x64_epi64(packed, _MM_SHUFFLE(3, 1, 2, 0)));
    }
    if (x < count) ResizeVInter_c(rows, n, weights, dst, x, count);
}

void VBytes_avx2(const uint8_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                 int count) {
    const __m256i zero = _mm256_setzero_si256();
    int x = 0;
    for (; x + 32 <= count; x += 32) {
        __m256i a0 = zero, a1 = zero;
        for (int r = 0; r < n; ++r) {
            const __m256i w = Weight256(weights + 8 * r);
            const __m256i v = Load256<false>(rows[r] + x);
            a0 = _mm256_adds_epu16(a0, _mm256_mulhi_epu16(_mm256_unpacklo_epi8(zero, v), w));
            a1 = _mm256_adds_epu16(a1, _mm256_mulhi_epu16(_mm256_unpackhi_epi8(zero, v), w));
        }
        // The unpacks and the pack both work per lane, so the order comes back.
        Store256<false>(dst + x,
                        _mm256_packus_epi16(_mm256_srai_epi16(a0, 7), _mm256_srai_epi16(a1, 7)));
    }
    if (x < count) ResizeVBytes_c(rows, n, weights, dst, x, count);
}

}  // namespace

void InstallResizeAvx2(ResizeKernels* k) {
    ResizeSimd<Avx2Ops>::Install(k);
    k->vInter = VInter_avx2;
    k->vBytes = VBytes_avx2;
}

}  // namespace ncb::video

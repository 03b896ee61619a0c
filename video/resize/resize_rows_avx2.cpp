// AVX2 vertical resize kernels (level 2 on capable processors): the same
// high-half products and saturating sums as the 128-bit kernels, 32 values
// per step. The horizontal kernels stay those of the level below: their
// gathers, not their width, set their speed.
#include <immintrin.h>

#include "video/kernels/simd_row_avx2.h"
#include "video/resize/resize_rows.h"

namespace ncb::video {
namespace {

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
    k->vInter = VInter_avx2;
    k->vBytes = VBytes_avx2;
}

}  // namespace ncb::video

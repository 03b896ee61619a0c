// AVX2 compositing kernels (level 2 on capable processors) for the two
// blends a render runs over whole frames: constant alpha per byte and
// per-pixel alpha. Same 16-bit products and shifts as the SSE2 kernels,
// eight pixels per step; everything else stays with the level below.
// Rows are only known to be 16-byte aligned, so the 256-bit loads and
// stores are the unaligned forms on both paths.
#include <immintrin.h>

#include "video/composite/composite_rows.h"
#include "video/kernels/simd_row.h"
#include "video/kernels/simd_row_avx2.h"

namespace ncb::video {
namespace {

inline __m256i Mix128(__m256i s, __m256i d, __m256i a, __m256i na) {
    return _mm256_srli_epi16(_mm256_add_epi16(_mm256_mullo_epi16(s, a), _mm256_mullo_epi16(d, na)),
                             7);
}

// The unpacks and the pack work per 128-bit lane, so bytes come back in
// their places.
inline __m256i Blend(__m256i s, __m256i d, __m256i aLo, __m256i naLo, __m256i aHi, __m256i naHi) {
    const __m256i z = _mm256_setzero_si256();
    const __m256i lo = Mix128(_mm256_unpacklo_epi8(s, z), _mm256_unpacklo_epi8(d, z), aLo, naLo);
    const __m256i hi = Mix128(_mm256_unpackhi_epi8(s, z), _mm256_unpackhi_epi8(d, z), aHi, naHi);
    return _mm256_packus_epi16(lo, hi);
}

template <bool A>
int BlendBytes_avx2(const uint8_t* src, uint8_t* dst, int a, int bytes) {
    const __m256i va = _mm256_set1_epi16(static_cast<int16_t>(a));
    const __m256i vna = _mm256_set1_epi16(static_cast<int16_t>(128 - a));
    int x = 0;
    for (; x + 32 <= bytes; x += 32)
        Store256<false>(dst + x,
                        Blend(Load256<false>(src + x), Load256<false>(dst + x), va, vna, va, vna));
    return x;
}

template <bool A>
int BlendPixelAlpha_avx2(const uint8_t* src, uint8_t* dst, int width) {
    const __m256i c128 = _mm256_set1_epi16(128);
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        const __m256i s = Load256<false>(src + 4 * x), d = Load256<false>(dst + 4 * x);
        __m256i a = _mm256_srli_epi32(s, 25);
        a = _mm256_or_si256(a, _mm256_slli_epi32(a, 16));
        const __m256i aLo = _mm256_unpacklo_epi32(a, a), aHi = _mm256_unpackhi_epi32(a, a);
        Store256<false>(dst + 4 * x, Blend(s, d, aLo, _mm256_sub_epi16(c128, aLo), aHi,
                                           _mm256_sub_epi16(c128, aHi)));
    }
    return x;
}

}  // namespace

void InstallCompositeAvx2(CompositeKernels* k) {
    k->blendBytes =
        Row<void(const uint8_t*, uint8_t*, int)>::Vector<BlendBytes_avx2<true>,
                                                         BlendBytes_avx2<false>, BlendBytes_c>;
    k->blendPixelAlpha =
        Row<void(const uint8_t*, uint8_t*)>::Vector<BlendPixelAlpha_avx2<true>,
                                                    BlendPixelAlpha_avx2<false>, BlendPixelAlpha_c>;
}

}  // namespace ncb::video

// SSE2 kernels of the scene detector: psadbw block searches with the current
// block held in registers across all candidates, the weighted prediction
// through pmaddwd (reference x weight + 128 in one 32-bit step, so the result
// is exact for every weight), and psadbw sums for rows and blocks.
#include <emmintrin.h>

#include "video/scene/scene_kernels.h"
#include "video/scene/scene_sad_sse2.h"

namespace ncb::video {
namespace {

// Eight predictions min(255, (ref x w + 128) >> 8) as 16-bit lanes, from the
// eight bytes in the low half of `ref8`.
inline __m128i Predict8(__m128i ref8, __m128i weightPairs) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i ones = _mm_set1_epi16(1);
    const __m128i ref16 = _mm_unpacklo_epi8(ref8, zero);
    const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(ref16, ones), weightPairs);
    const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(ref16, ones), weightPairs);
    return _mm_packs_epi32(_mm_srai_epi32(lo, 8), _mm_srai_epi32(hi, 8));
}

// 16 predictions as bytes (packus saturates at 255).
inline __m128i Predict16(__m128i ref, __m128i weightPairs) {
    return _mm_packus_epi16(Predict8(ref, weightPairs),
                            Predict8(_mm_srli_si128(ref, 8), weightPairs));
}

uint32_t WeightedSad_sse2(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* ref,
                          ptrdiff_t refPitch, int size, int weight) {
    const __m128i weightPairs = _mm_set1_epi32(128 << 16 | weight);
    __m128i acc = _mm_setzero_si128();
    if (size == 16) {
        for (int r = 0; r < 16; ++r) {
            const __m128i pred = Predict16(Load<false>(ref + r * refPitch), weightPairs);
            acc = _mm_add_epi32(acc, _mm_sad_epu8(Load<false>(cur + r * curPitch), pred));
        }
    } else {
        for (int r = 0; r < size; r += 2) {
            const __m128i pred = Predict16(LoadPair8(ref + r * refPitch, refPitch), weightPairs);
            acc = _mm_add_epi32(acc, _mm_sad_epu8(LoadPair8(cur + r * curPitch, curPitch), pred));
        }
    }
    return SadTotal(acc);
}

uint32_t BlockSum_sse2(const uint8_t* p, ptrdiff_t pitch, int size) {
    const __m128i zero = _mm_setzero_si128();
    __m128i acc = zero;
    if (size == 16) {
        for (int r = 0; r < 16; ++r)
            acc = _mm_add_epi32(acc, _mm_sad_epu8(Load<false>(p + r * pitch), zero));
    } else {
        for (int r = 0; r < size; r += 2)
            acc = _mm_add_epi32(acc, _mm_sad_epu8(LoadPair8(p + r * pitch, pitch), zero));
    }
    return SadTotal(acc);
}

template <bool A>
uint64_t RowDiffBlocks(const uint8_t* a, const uint8_t* b, int width, int* done) {
    __m128i acc = _mm_setzero_si128();
    int x = 0;
    for (; x + 16 <= width; x += 16)
        acc = _mm_add_epi64(acc, _mm_sad_epu8(Load<A>(a + x), Load<A>(b + x)));
    *done = x;
    return static_cast<uint64_t>(_mm_cvtsi128_si64(acc)) +
           static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_srli_si128(acc, 8)));
}

uint64_t RowDiff_sse2(const uint8_t* a, const uint8_t* b, int width) {
    int done = 0;
    const uint64_t sum = Aligned16(a, b) ? RowDiffBlocks<true>(a, b, width, &done)
                                         : RowDiffBlocks<false>(a, b, width, &done);
    return sum + RowDiff_c(a, b, done, width);
}

}  // namespace

void InstallSceneSse2(SceneKernels* k) {
    k->search16 = SearchRows<16, FirstSmallest>;
    k->search8 = SearchRows<8, FirstSmallest>;
    k->weightedSad = WeightedSad_sse2;
    k->blockSum = BlockSum_sse2;
    k->rowDiff = RowDiff_sse2;
}

}  // namespace ncb::video

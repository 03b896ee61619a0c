// SSSE3 kernels of the scene detector: the weighted prediction through
// pmulhrsw. With the reference scaled by 128, (ref x 128 x w + 2^14) >> 15 is
// exactly (ref x w + 128) >> 8 for every weight up to 32767, so one multiply
// per eight samples replaces the SSE2 unpack-and-pmaddwd pairs. The searches
// and sums keep the SSE2 kernels: psadbw is already one instruction a row.
#include <tmmintrin.h>

#include "video/scene/scene_kernels.h"
#include "video/scene/scene_sad_sse2.h"

namespace ncb::video {
namespace {

inline __m128i Predict16(__m128i ref, __m128i weight) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo = _mm_mulhrs_epi16(_mm_slli_epi16(_mm_unpacklo_epi8(ref, zero), 7), weight);
    const __m128i hi = _mm_mulhrs_epi16(_mm_slli_epi16(_mm_unpackhi_epi8(ref, zero), 7), weight);
    return _mm_packus_epi16(lo, hi);
}

uint32_t WeightedSad_ssse3(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* ref,
                           ptrdiff_t refPitch, int size, int weight) {
    const __m128i w = _mm_set1_epi16(static_cast<int16_t>(weight));
    __m128i acc = _mm_setzero_si128();
    if (size == 16) {
        for (int r = 0; r < 16; ++r) {
            const __m128i pred = Predict16(Load<false>(ref + r * refPitch), w);
            acc = _mm_add_epi32(acc, _mm_sad_epu8(Load<false>(cur + r * curPitch), pred));
        }
    } else {
        for (int r = 0; r < size; r += 2) {
            const __m128i pred = Predict16(LoadPair8(ref + r * refPitch, refPitch), w);
            acc = _mm_add_epi32(acc, _mm_sad_epu8(LoadPair8(cur + r * curPitch, curPitch), pred));
        }
    }
    return SadTotal(acc);
}

}  // namespace

void InstallSceneSsse3(SceneKernels* k) { k->weightedSad = WeightedSad_ssse3; }

}  // namespace ncb::video

// SSE2 cross-fade of rate control: four frames a step with the 16-byte fade
// tables; stereo repeats each factor for the two channels of its frame. The
// operations are the twin's: fresh x in + old x out, rounded to nearest.
#include <emmintrin.h>

#include "audio/rate_control.h"

namespace ncb::audio {
namespace {

__m128 Widen(__m128i v) { return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16)); }
__m128 WidenHigh(__m128i v) {
    return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16));
}

__m128i RoundSaturate(__m128 v) {
    return _mm_cvtps_epi32(
        _mm_min_ps(_mm_max_ps(v, _mm_set1_ps(-32768.0f)), _mm_set1_ps(32767.0f)));
}

__m128 Blend(__m128 fresh, __m128 old, __m128 in, __m128 out) {
    return _mm_add_ps(_mm_mul_ps(fresh, in), _mm_mul_ps(old, out));
}

void CrossFade_sse2(const int16_t* fresh, int16_t* out, const float* fadeIn, const float* fadeOut,
                    int frames, int channels) {
    for (int k = 0; k < frames; k += 4) {
        const __m128 in = _mm_loadu_ps(fadeIn + k), fo = _mm_loadu_ps(fadeOut + k);
        if (channels == 1) {
            const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(fresh + k));
            const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(out + k));
            const __m128i r = RoundSaturate(Blend(Widen(a), Widen(b), in, fo));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + k), _mm_packs_epi32(r, r));
        } else {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(fresh + 2 * k));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(out + 2 * k));
            const __m128i lo = RoundSaturate(
                Blend(Widen(a), Widen(b), _mm_unpacklo_ps(in, in), _mm_unpacklo_ps(fo, fo)));
            const __m128i hi = RoundSaturate(Blend(
                WidenHigh(a), WidenHigh(b), _mm_unpackhi_ps(in, in), _mm_unpackhi_ps(fo, fo)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * k), _mm_packs_epi32(lo, hi));
        }
    }
}

}  // namespace

void FillRateControlKernels_sse2(RateControlKernels* t) { t->crossFade = CrossFade_sse2; }

}  // namespace ncb::audio

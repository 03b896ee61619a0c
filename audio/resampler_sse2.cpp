// SSE2 resampler kernel: samples widen by unpacking each word with itself and
// shifting the sign down. The kernel itself is resampler_kernel_inl.h.
#include "audio/resampler.h"
#include "audio/resampler_kernel_inl.h"

namespace ncb::audio {
namespace {

struct WidenSse2 {
    static __m128 Four(const int16_t* s) {
        const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s));
        return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16));
    }
    static void Eight(const int16_t* s, __m128* lo, __m128* hi) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        *lo = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16));
        *hi = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16));
    }
};

}  // namespace

void FillResamplerKernels_sse2(ResamplerKernels* t) { t->block = ResampleBlock<WidenSse2>; }

}  // namespace ncb::audio

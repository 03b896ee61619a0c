// SSE4.1 resampler kernel: PMOVSXWD widens four samples in one instruction,
// which is most of the inner loop's integer work. Same arithmetic as SSE2.
#include <smmintrin.h>

#include "audio/resampler.h"
#include "audio/resampler_kernel_inl.h"

namespace ncb::audio {
namespace {

struct WidenSse41 {
    static __m128 Four(const int16_t* s) {
        return _mm_cvtepi32_ps(
            _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(s))));
    }
    static void Eight(const int16_t* s, __m128* lo, __m128* hi) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        *lo = _mm_cvtepi32_ps(_mm_cvtepi16_epi32(v));
        *hi = _mm_cvtepi32_ps(_mm_cvtepi16_epi32(_mm_unpackhi_epi64(v, v)));
    }
};

}  // namespace

void FillResamplerKernels_sse41(ResamplerKernels* t) { t->block = ResampleBlock<WidenSse41>; }

}  // namespace ncb::audio

// SSE4.1 compositing kernels: the alpha scaling needs the low 32 bits of a
// 32 x 32-bit product per pixel, which pmulld gives in one instruction; SSE2
// has no such multiply, so its level keeps the scalar twin for it.
#include <smmintrin.h>

#include "video/composite/composite_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

template <bool A>
int AlphaScale_sse41(const uint8_t* src, uint8_t* dst, uint32_t scale, int width) {
    const __m128i vs = _mm_set1_epi32(static_cast<int32_t>(scale));
    const __m128i rgb = _mm_set1_epi32(0x00FFFFFF);
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i s = Load<A>(src + 4 * x);
        const __m128i alpha = _mm_srli_epi32(_mm_mullo_epi32(_mm_srli_epi32(s, 8), vs), 24);
        Store<A>(dst + 4 * x, _mm_or_si128(_mm_and_si128(s, rgb), _mm_slli_epi32(alpha, 24)));
    }
    return x;
}

}  // namespace

void InstallCompositeSse41(CompositeKernels* k) {
    k->alphaScale =
        Row<void(const uint8_t*, uint8_t*,
                 uint32_t)>::Vector<AlphaScale_sse41<true>, AlphaScale_sse41<false>, AlphaScale_c>;
}

}  // namespace ncb::video

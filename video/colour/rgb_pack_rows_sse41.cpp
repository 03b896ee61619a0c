// SSE4.1 kernels from RGB32 to the 16-bit layouts: packusdw packs the 32-bit
// words straight to 16 bits, where SSE2 needs a sign-extension detour.
#include <smmintrin.h>

#include "video/colour/rgb_pack_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

template <bool A, bool k565>
int Narrow_sse41(const uint8_t* src, uint8_t* dst, int width) {
    // B, G, R field masks after the shifts by 3, 5 / 6 and 8 / 9.
    const __m128i mb = _mm_set1_epi32(0x001F);
    const __m128i mg = _mm_set1_epi32(k565 ? 0x07E0 : 0x03E0);
    const __m128i mr = _mm_set1_epi32(k565 ? 0xF800 : 0x7C00);
    auto narrow = [&](__m128i p) {
        const __m128i b = _mm_and_si128(_mm_srli_epi32(p, 3), mb);
        const __m128i g = _mm_and_si128(_mm_srli_epi32(p, k565 ? 5 : 6), mg);
        const __m128i r = _mm_and_si128(_mm_srli_epi32(p, k565 ? 8 : 9), mr);
        return _mm_or_si128(_mm_or_si128(b, g), r);
    };
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        const __m128i lo = narrow(Load<A>(src + 4 * x));
        const __m128i hi = narrow(Load<A>(src + 4 * x + 16));
        Store<A>(dst + 2 * x, _mm_packus_epi32(lo, hi));
    }
    return x;
}

template <bool A>
int Rgb32ToRgb565_sse41(const uint8_t* src, uint8_t* dst, int width) {
    return Narrow_sse41<A, true>(src, dst, width);
}

template <bool A>
int Rgb32ToRgb555_sse41(const uint8_t* src, uint8_t* dst, int width) {
    return Narrow_sse41<A, false>(src, dst, width);
}

}  // namespace

void InstallRgbPackRowsSse41(RgbPackRowKernels* k) {
    using Pack = Row<void(const uint8_t*, uint8_t*)>;
    k->rgb32ToRgb565 =
        Pack::Vector<Rgb32ToRgb565_sse41<true>, Rgb32ToRgb565_sse41<false>, Rgb32ToRgb565_c>;
    k->rgb32ToRgb555 =
        Pack::Vector<Rgb32ToRgb555_sse41<true>, Rgb32ToRgb555_sse41<false>, Rgb32ToRgb555_c>;
}

}  // namespace ncb::video

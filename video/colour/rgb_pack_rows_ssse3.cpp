// SSSE3 kernels among the RGB layouts: 24-bit pixels gathered and spread
// with pshufb / palignr instead of the SSE2 masks and shifts.
#include <tmmintrin.h>

#include "video/colour/rgb_pack_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

template <bool A>
int Rgb24ToRgb32_ssse3(const uint8_t* src, uint8_t* dst, int width) {
    const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8_t* s = src + 3 * x;
        const __m128i v0 = Load<A>(s);
        const __m128i v1 = Load<A>(s + 16);
        const __m128i v2 = Load<A>(s + 32);
        uint8_t* d = dst + 4 * x;
        Store<A>(d, _mm_shuffle_epi8(v0, spread));
        Store<A>(d + 16, _mm_shuffle_epi8(_mm_alignr_epi8(v1, v0, 12), spread));
        Store<A>(d + 32, _mm_shuffle_epi8(_mm_alignr_epi8(v2, v1, 8), spread));
        Store<A>(d + 48, _mm_shuffle_epi8(_mm_srli_si128(v2, 4), spread));
    }
    return x;
}

template <bool A>
int Rgb32ToRgb24_ssse3(const uint8_t* src, uint8_t* dst, int width) {
    const __m128i drop = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i c[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) c[i] = _mm_shuffle_epi8(Load<A>(src + 4 * x + 16 * i), drop);
        uint8_t* d = dst + 3 * x;
        Store<A>(d, _mm_or_si128(c[0], _mm_slli_si128(c[1], 12)));
        Store<A>(d + 16, _mm_or_si128(_mm_srli_si128(c[1], 4), _mm_slli_si128(c[2], 8)));
        Store<A>(d + 32, _mm_or_si128(_mm_srli_si128(c[2], 8), _mm_slli_si128(c[3], 4)));
    }
    return x;
}

}  // namespace

void InstallRgbPackRowsSsse3(RgbPackRowKernels* k) {
    using Pack = Row<void(const uint8_t*, uint8_t*)>;
    k->rgb24ToRgb32 =
        Pack::Vector<Rgb24ToRgb32_ssse3<true>, Rgb24ToRgb32_ssse3<false>, Rgb24ToRgb32_c>;
    k->rgb32ToRgb24 =
        Pack::Vector<Rgb32ToRgb24_ssse3<true>, Rgb32ToRgb24_ssse3<false>, Rgb32ToRgb24_c>;
}

}  // namespace ncb::video

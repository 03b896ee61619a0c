// SSSE3 kernel of the PNG codec: 8-bit RGB samples to RGB32 pixels with one
// byte shuffle per four pixels. Built with -mssse3 and reached only through
// the level table (png_kernels.cpp), so no SSSE3 instruction runs on a
// processor without it.
#include <tmmintrin.h>

#include "image/png/png_kernels.h"

namespace ncb::png {

void RgbToBgra_ssse3(const uint8_t* src, uint8_t* dst, int width) {
    // Four RGB pixels (12 of the 16 loaded bytes) to B, G, R, then alpha from
    // the OR below (the shuffle writes 0 where the index has its top bit set).
    const __m128i order = _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1);
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    int x = 0;
    // A 16-byte load reads 4 bytes past the four pixels: stop while six
    // pixels (18 bytes) still remain so the load stays inside the row.
    for (; x + 6 <= width; x += 4) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 3 * x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 4 * x),
                         _mm_or_si128(_mm_shuffle_epi8(v, order), alpha));
    }
    RgbToBgra_c(src + 3 * x, dst + 4 * x, width - x);
}

}  // namespace ncb::png

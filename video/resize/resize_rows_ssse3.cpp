// SSSE3 resize kernels: the shared 128-bit kernels with one byte shuffle to
// spread a pixel pair into zero-extended channel pairs.
#include <tmmintrin.h>

#include "video/resize/resize_rows_x86.h"

namespace ncb::video {
namespace {

struct Ssse3Ops {
    static constexpr bool kPairSums = false;
    static __m128i SpreadPair(__m128i v) {
        const __m128i order = _mm_setr_epi8(0, -1, 4, -1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1);
        return _mm_shuffle_epi8(v, order);
    }
    static __m128i SpreadHighPair(__m128i v) {
        const __m128i order =
            _mm_setr_epi8(8, -1, 12, -1, 9, -1, 13, -1, 10, -1, 14, -1, 11, -1, 15, -1);
        return _mm_shuffle_epi8(v, order);
    }
};

}  // namespace

void InstallResizeSsse3(ResizeKernels* k) { ResizeSimd<Ssse3Ops>::Install(k); }

}  // namespace ncb::video

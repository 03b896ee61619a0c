// SSE2 resize kernels: the shared 128-bit kernels with two unpacks to spread
// a pixel pair into channel pairs.
#include <emmintrin.h>

#include "video/resize/resize_rows_x86.h"

namespace ncb::video {
namespace {

struct Sse2Ops {
    static constexpr bool kPairSums = false;
    // B0 G0 R0 A0 B1 G1 R1 A1 (bytes) -> B0 B1 G0 G1 R0 R1 A0 A1 (16-bit).
    static __m128i SpreadPair(__m128i v) {
        const __m128i x = _mm_unpacklo_epi8(v, _mm_setzero_si128());
        return _mm_unpacklo_epi16(x, _mm_srli_si128(x, 8));
    }
    static __m128i SpreadHighPair(__m128i v) { return SpreadPair(_mm_srli_si128(v, 8)); }
};

}  // namespace

void InstallResizeSse2(ResizeKernels* k) { ResizeSimd<Sse2Ops>::Install(k); }

}  // namespace ncb::video

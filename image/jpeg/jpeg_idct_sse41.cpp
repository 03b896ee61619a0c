// SSE4.1 block reconstruction: the shared vector body with the 181 rotation
// as one pmulld.
#include <smmintrin.h>

#include "image/jpeg/jpeg_idct.h"
#include "image/jpeg/jpeg_idct_simd.h"

namespace ncb::jpeg {
namespace {

struct Mul181Mullo {
    __m128i operator()(__m128i v) const { return _mm_mullo_epi32(v, _mm_set1_epi32(181)); }
};

void ReconstructBlock_sse41(int16_t* block, const uint16_t* quant, uint8_t* dst, ptrdiff_t pitch) {
    ReconstructBlockSimd<Mul181Mullo>(block, quant, dst, pitch);
}

}  // namespace

void InstallIdctSse41(IdctKernels* k) { k->reconstruct = ReconstructBlock_sse41; }

}  // namespace ncb::jpeg

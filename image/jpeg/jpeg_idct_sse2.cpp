// SSE2 block reconstruction: the shared vector body with the 181 rotation
// as shifts and adds (SSE2 has no 32-bit multiply that keeps the low half).
#include "image/jpeg/jpeg_idct.h"
#include "image/jpeg/jpeg_idct_simd.h"

namespace ncb::jpeg {
namespace {

struct Mul181ShiftAdd {
    __m128i operator()(__m128i v) const {
        // 181 = 128 + 32 + 16 + 4 + 1
        __m128i r = _mm_add_epi32(_mm_slli_epi32(v, 7), _mm_slli_epi32(v, 5));
        r = _mm_add_epi32(r, _mm_slli_epi32(v, 4));
        r = _mm_add_epi32(r, _mm_slli_epi32(v, 2));
        return _mm_add_epi32(r, v);
    }
};

void ReconstructBlock_sse2(int16_t* block, const uint16_t* quant, uint8_t* dst, ptrdiff_t pitch) {
    ReconstructBlockSimd<Mul181ShiftAdd>(block, quant, dst, pitch);
}

}  // namespace

void InstallIdctSse2(IdctKernels* k) { k->reconstruct = ReconstructBlock_sse2; }

}  // namespace ncb::jpeg

// AVX2 block reconstruction (level 2 on processors that have it): the same
// arithmetic as the SSE kernels, but each pass keeps all eight 32-bit lanes
// of a row in one register, halving the work of the 32-bit stages. The
// transpose and the 16-bit steps stay 128-bit.
#include <immintrin.h>

#include "image/jpeg/jpeg_idct.h"
#include "image/jpeg/jpeg_idct_simd.h"

namespace ncb::jpeg {
namespace {

inline __m256i Pair256(int16_t a, int16_t b) {
    return _mm256_set1_epi32(static_cast<int32_t>(
        (static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16) | static_cast<uint16_t>(a)));
}

inline __m256i Interleave(__m128i a, __m128i b) {
    return _mm256_set_m128i(_mm_unpackhi_epi16(a, b), _mm_unpacklo_epi16(a, b));
}

template <bool kColumn>
inline void TransformRows256(const __m128i in[8], __m128i out[8]) {
    constexpr int16_t kScale = kColumn ? 256 : 2048;
    const __m256i round = _mm256_set1_epi32(kColumn ? 8192 : 128);
    auto inner = [](__m256i v) {
        return kColumn ? _mm256_srai_epi32(_mm256_add_epi32(v, _mm256_set1_epi32(4)), 3) : v;
    };
    const __m256i p04 = Interleave(in[0], in[4]), p17 = Interleave(in[1], in[7]);
    const __m256i p53 = Interleave(in[5], in[3]), p26 = Interleave(in[2], in[6]);
    __m256i x8 = _mm256_add_epi32(_mm256_madd_epi16(p04, Pair256(kScale, kScale)), round);
    __m256i x0 = _mm256_add_epi32(_mm256_madd_epi16(p04, Pair256(kScale, -kScale)), round);
    __m256i x4 = inner(_mm256_madd_epi16(p17, Pair256(kW1, kW7)));
    __m256i x5 = inner(_mm256_madd_epi16(p17, Pair256(kW7, -kW1)));
    __m256i x6 = inner(_mm256_madd_epi16(p53, Pair256(kW5, kW3)));
    __m256i x7 = inner(_mm256_madd_epi16(p53, Pair256(kW3, -kW5)));
    __m256i x2 = inner(_mm256_madd_epi16(p26, Pair256(kW6, -kW2)));
    __m256i x3 = inner(_mm256_madd_epi16(p26, Pair256(kW2, kW6)));

    __m256i x1 = _mm256_add_epi32(x4, x6);
    x4 = _mm256_sub_epi32(x4, x6);
    x6 = _mm256_add_epi32(x5, x7);
    x5 = _mm256_sub_epi32(x5, x7);
    x7 = _mm256_add_epi32(x8, x3);
    x8 = _mm256_sub_epi32(x8, x3);
    x3 = _mm256_add_epi32(x0, x2);
    x0 = _mm256_sub_epi32(x0, x2);
    const __m256i k181 = _mm256_set1_epi32(181), r128 = _mm256_set1_epi32(128);
    x2 = _mm256_srai_epi32(
        _mm256_add_epi32(_mm256_mullo_epi32(_mm256_add_epi32(x4, x5), k181), r128), 8);
    x4 = _mm256_srai_epi32(
        _mm256_add_epi32(_mm256_mullo_epi32(_mm256_sub_epi32(x4, x5), k181), r128), 8);

    // Each result is narrowed as soon as it exists, so few 256-bit values
    // stay live at once (fewer spills).
    constexpr int kShift = kColumn ? 14 : 8;
    auto narrow = [](__m256i v) {
        v = _mm256_srai_epi32(v, kShift);
        return _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    };
    out[0] = narrow(_mm256_add_epi32(x7, x1));
    out[7] = narrow(_mm256_sub_epi32(x7, x1));
    out[1] = narrow(_mm256_add_epi32(x3, x2));
    out[6] = narrow(_mm256_sub_epi32(x3, x2));
    out[2] = narrow(_mm256_add_epi32(x0, x4));
    out[5] = narrow(_mm256_sub_epi32(x0, x4));
    out[3] = narrow(_mm256_add_epi32(x8, x6));
    out[4] = narrow(_mm256_sub_epi32(x8, x6));
}

void ReconstructBlock_avx2(int16_t* block, const uint16_t* quant, uint8_t* dst, ptrdiff_t pitch) {
    __m128i c[8];
    const __m128i zero = _mm_setzero_si128();
    for (int u = 0; u < 8; ++u) {
        auto* b = reinterpret_cast<__m128i*>(block + 8 * u);
        c[u] = _mm_mullo_epi16(_mm_loadu_si128(b),
                               _mm_loadu_si128(reinterpret_cast<const __m128i*>(quant + 8 * u)));
        _mm_storeu_si128(b, zero);
    }
    c[0] = _mm_adds_epi16(c[0], _mm_setr_epi16(1024, 0, 0, 0, 0, 0, 0, 0));
    c[0] = _mm_max_epi16(c[0],
                         _mm_setr_epi16(0, -32768, -32768, -32768, -32768, -32768, -32768, -32768));
    c[0] =
        _mm_min_epi16(c[0], _mm_setr_epi16(2047, 32767, 32767, 32767, 32767, 32767, 32767, 32767));
    __m128i t[8];
    TransformRows256<false>(c, t);
    Transpose8x8(t);
    __m128i o[8];
    TransformRows256<true>(t, o);
    for (int y = 0; y < 8; y += 2) {
        const __m128i px = _mm_packus_epi16(o[y], o[y + 1]);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + y * pitch), px);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + (y + 1) * pitch),
                         _mm_unpackhi_epi64(px, px));
    }
}

}  // namespace

void InstallIdctAvx2(IdctKernels* k) { k->reconstruct = ReconstructBlock_avx2; }

}  // namespace ncb::jpeg

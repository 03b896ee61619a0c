// AVX2 YUV row kernels, picked by level 2 on processors with AVX2: the
// repacking rows of the common surface conversions (NV12 chroma split,
// packed 4:2:2 unpacking and packing) at 32 or 64 samples per step. Packs
// and unpacks work within 128-bit lanes; a 64-bit permute puts the samples
// back in order. Unaligned accesses throughout (see rgb_rows_avx2.cpp).
#include <immintrin.h>

#include "video/colour/yuv_rows_c.h"
#include "video/kernels/simd_row.h"
#include "video/kernels/simd_row_avx2.h"

namespace ncb::video {
namespace {

constexpr int kInOrder = _MM_SHUFFLE(3, 1, 2, 0);

inline __m256i EvenBytes(__m256i v) { return _mm256_and_si256(v, _mm256_set1_epi16(0x00FF)); }
inline __m256i OddBytes(__m256i v) { return _mm256_srli_epi16(v, 8); }

// The even (or odd) bytes of 64 bytes, in order.
template <bool kOdd>
inline __m256i Gather(__m256i a, __m256i b) {
    const __m256i packed = kOdd ? _mm256_packus_epi16(OddBytes(a), OddBytes(b))
                                : _mm256_packus_epi16(EvenBytes(a), EvenBytes(b));
    return _mm256_permute4x64_epi64(packed, kInOrder);
}

template <bool A>
int SplitUV_avx2(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m256i a = Load256<false>(src + 2 * x);
        const __m256i b = Load256<false>(src + 2 * x + 32);
        Store256<false>(u + x, Gather<false>(a, b));
        Store256<false>(v + x, Gather<true>(a, b));
    }
    return x;
}

template <bool A, bool kLumaOdd>
int UnpackLuma_avx2(const uint8_t* src, uint8_t* y, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32)
        Store256<false>(
            y + x, Gather<kLumaOdd>(Load256<false>(src + 2 * x), Load256<false>(src + 2 * x + 32)));
    return x;
}

template <bool A>
int UnpackYuy2Luma_avx2(const uint8_t* src, uint8_t* y, int width) {
    return UnpackLuma_avx2<A, false>(src, y, width);
}

template <bool A>
int UnpackUyvyLuma_avx2(const uint8_t* src, uint8_t* y, int width) {
    return UnpackLuma_avx2<A, true>(src, y, width);
}

// Chroma of 64 packed pixels of two rows, averaged: 32 U and 32 V.
template <bool A, bool kChromaOdd, bool kTwoRows>
int UnpackChroma_avx2(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v, int width) {
    int x = 0;
    for (; x + 64 <= width; x += 64) {
        __m256i p[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) {
            p[i] = Load256<false>(src0 + 2 * x + 32 * i);
            if (kTwoRows) p[i] = _mm256_avg_epu8(p[i], Load256<false>(src1 + 2 * x + 32 * i));
        }
        const __m256i c0 = Gather<kChromaOdd>(p[0], p[1]);  // U V pairs of pixels 0-31
        const __m256i c1 = Gather<kChromaOdd>(p[2], p[3]);
        Store256<false>(u + x / 2, Gather<false>(c0, c1));
        Store256<false>(v + x / 2, Gather<true>(c0, c1));
    }
    return x;
}

template <bool A>
int UnpackYuy2Chroma_avx2(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    return UnpackChroma_avx2<A, true, false>(src, src, u, v, width);
}

template <bool A>
int UnpackUyvyChroma_avx2(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    return UnpackChroma_avx2<A, false, false>(src, src, u, v, width);
}

template <bool A>
int UnpackYuy2ChromaRows_avx2(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                              int width) {
    return UnpackChroma_avx2<A, true, true>(src0, src1, u, v, width);
}

template <bool A>
int UnpackUyvyChromaRows_avx2(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                              int width) {
    return UnpackChroma_avx2<A, false, true>(src0, src1, u, v, width);
}

template <bool A, bool kChromaFirst>
int Pack422_avx2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m128i cu = Load<false>(u + x / 2);
        const __m128i cv = Load<false>(v + x / 2);
        // Pairs 0-7 | 8-15, matching luma 0-15 | 16-31 after the unpacks.
        const __m256i uv = _mm256_set_m128i(_mm_unpackhi_epi8(cu, cv), _mm_unpacklo_epi8(cu, cv));
        const __m256i luma = Load256<false>(y + x);
        const __m256i lo = kChromaFirst ? _mm256_unpacklo_epi8(uv, luma)
                                        : _mm256_unpacklo_epi8(luma, uv);  // 0-7 | 16-23
        const __m256i hi = kChromaFirst ? _mm256_unpackhi_epi8(uv, luma)
                                        : _mm256_unpackhi_epi8(luma, uv);  // 8-15 | 24-31
        Store256<false>(dst + 2 * x, _mm256_permute2x128_si256(lo, hi, 0x20));
        Store256<false>(dst + 2 * x + 32, _mm256_permute2x128_si256(lo, hi, 0x31));
    }
    return x;
}

template <bool A>
int PackYuy2_avx2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int width) {
    return Pack422_avx2<A, false>(y, u, v, dst, width);
}

template <bool A>
int PackUyvy_avx2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int width) {
    return Pack422_avx2<A, true>(y, u, v, dst, width);
}

}  // namespace

void InstallYuvRowsAvx2(YuvRowKernels* k) {
    using Pack = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*)>;
    using Unpack = Row<void(const uint8_t*, uint8_t*)>;
    using UnpackChroma = Row<void(const uint8_t*, uint8_t*, uint8_t*)>;
    using RowsChroma = Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*)>;
    k->splitUV = UnpackChroma::Vector<SplitUV_avx2<true>, SplitUV_avx2<false>, SplitUV_c>;
    k->unpackYuy2Luma =
        Unpack::Vector<UnpackYuy2Luma_avx2<true>, UnpackYuy2Luma_avx2<false>, UnpackYuy2Luma_c>;
    k->unpackUyvyLuma =
        Unpack::Vector<UnpackUyvyLuma_avx2<true>, UnpackUyvyLuma_avx2<false>, UnpackUyvyLuma_c>;
    k->unpackYuy2Chroma = UnpackChroma::Vector<UnpackYuy2Chroma_avx2<true>,
                                               UnpackYuy2Chroma_avx2<false>, UnpackYuy2Chroma_c>;
    k->unpackUyvyChroma = UnpackChroma::Vector<UnpackUyvyChroma_avx2<true>,
                                               UnpackUyvyChroma_avx2<false>, UnpackUyvyChroma_c>;
    k->unpackYuy2ChromaRows =
        RowsChroma::Vector<UnpackYuy2ChromaRows_avx2<true>, UnpackYuy2ChromaRows_avx2<false>,
                           UnpackYuy2ChromaRows_c>;
    k->unpackUyvyChromaRows =
        RowsChroma::Vector<UnpackUyvyChromaRows_avx2<true>, UnpackUyvyChromaRows_avx2<false>,
                           UnpackUyvyChromaRows_c>;
    k->packYuy2 = Pack::Vector<PackYuy2_avx2<true>, PackYuy2_avx2<false>, PackYuy2_c>;
    k->packUyvy = Pack::Vector<PackUyvy_avx2<true>, PackUyvy_avx2<false>, PackUyvy_c>;
}

}  // namespace ncb::video

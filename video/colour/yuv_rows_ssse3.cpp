// SSSE3 YUV row kernels: the de-interleaving ones (NV12 chroma, packed 4:2:2,
// AYUV) gather their bytes with one pshufb per vector instead of the SSE2
// mask-shift-pack sequences. Everything else stays with the SSE2 entries.
#include <tmmintrin.h>

#include "video/colour/yuv_rows_c.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

// Even bytes to the low half, odd bytes to the high half.
inline __m128i EvenOddShuffle() {
    return _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
}

template <bool A>
int SplitUV_ssse3(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    const __m128i shuffle = EvenOddShuffle();
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i a = _mm_shuffle_epi8(Load<A>(src + 2 * x), shuffle);
        const __m128i b = _mm_shuffle_epi8(Load<A>(src + 2 * x + 16), shuffle);
        Store<A>(u + x, _mm_unpacklo_epi64(a, b));
        Store<A>(v + x, _mm_unpackhi_epi64(a, b));
    }
    return x;
}

// Luma of 16 packed 4:2:2 pixels; kLumaOdd for UYVY.
template <bool A, bool kLumaOdd>
int UnpackLuma_ssse3(const uint8_t* src, uint8_t* y, int width) {
    const __m128i shuffle = EvenOddShuffle();
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i a = _mm_shuffle_epi8(Load<A>(src + 2 * x), shuffle);
        const __m128i b = _mm_shuffle_epi8(Load<A>(src + 2 * x + 16), shuffle);
        Store<A>(y + x, kLumaOdd ? _mm_unpackhi_epi64(a, b) : _mm_unpacklo_epi64(a, b));
    }
    return x;
}

template <bool A>
int UnpackYuy2Luma_ssse3(const uint8_t* src, uint8_t* y, int width) {
    return UnpackLuma_ssse3<A, false>(src, y, width);
}

template <bool A>
int UnpackUyvyLuma_ssse3(const uint8_t* src, uint8_t* y, int width) {
    return UnpackLuma_ssse3<A, true>(src, y, width);
}

// Chroma of 32 packed pixels: each vector of 8 pixels gives 4 U (low dword)
// and 4 V (next dword).
template <bool A, bool kChromaOdd, bool kTwoRows>
int UnpackChroma_ssse3(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                       int width) {
    const __m128i shuffle =
        kChromaOdd ? _mm_setr_epi8(1, 5, 9, 13, 3, 7, 11, 15, -1, -1, -1, -1, -1, -1, -1, -1)
                   : _mm_setr_epi8(0, 4, 8, 12, 2, 6, 10, 14, -1, -1, -1, -1, -1, -1, -1, -1);
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        __m128i c[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) {
            __m128i p = Load<A>(src0 + 2 * x + 16 * i);
            if (kTwoRows) p = _mm_avg_epu8(p, Load<A>(src1 + 2 * x + 16 * i));
            c[i] = _mm_shuffle_epi8(p, shuffle);  // U x4, V x4
        }
        const __m128i c01 = _mm_unpacklo_epi32(c[0], c[1]);  // U 0-3, U 4-7, V 0-3, V 4-7
        const __m128i c23 = _mm_unpacklo_epi32(c[2], c[3]);  // U 8-11, U 12-15, V ...
        Store<A>(u + x / 2, _mm_unpacklo_epi64(c01, c23));
        Store<A>(v + x / 2, _mm_unpackhi_epi64(c01, c23));
    }
    return x;
}

template <bool A>
int UnpackYuy2Chroma_ssse3(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    return UnpackChroma_ssse3<A, true, false>(src, src, u, v, width);
}

template <bool A>
int UnpackUyvyChroma_ssse3(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    return UnpackChroma_ssse3<A, false, false>(src, src, u, v, width);
}

template <bool A>
int UnpackYuy2ChromaRows_ssse3(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                               int width) {
    return UnpackChroma_ssse3<A, true, true>(src0, src1, u, v, width);
}

template <bool A>
int UnpackUyvyChromaRows_ssse3(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                               int width) {
    return UnpackChroma_ssse3<A, false, true>(src0, src1, u, v, width);
}

template <bool A>
int UnpackAyuv_ssse3(const uint8_t* src, uint8_t* y, uint8_t* u, uint8_t* v, int width) {
    // Per vector of 4 pixels: V x4, U x4, Y x4, A x4.
    const __m128i shuffle = _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i p[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) p[i] = _mm_shuffle_epi8(Load<A>(src + 4 * x + 16 * i), shuffle);
        // Transpose the 4 x 4 dword matrix: rows become V, U, Y, A.
        const __m128i t0 = _mm_unpacklo_epi32(p[0], p[1]);  // V0 V1 U0 U1
        const __m128i t1 = _mm_unpacklo_epi32(p[2], p[3]);  // V2 V3 U2 U3
        const __m128i t2 = _mm_unpackhi_epi32(p[0], p[1]);  // Y0 Y1 A0 A1
        const __m128i t3 = _mm_unpackhi_epi32(p[2], p[3]);  // Y2 Y3 A2 A3
        Store<A>(v + x, _mm_unpacklo_epi64(t0, t1));
        Store<A>(u + x, _mm_unpackhi_epi64(t0, t1));
        Store<A>(y + x, _mm_unpacklo_epi64(t2, t3));
    }
    return x;
}

}  // namespace

void InstallYuvRowsSsse3(YuvRowKernels* k) {
    using Unpack = Row<void(const uint8_t*, uint8_t*)>;
    using UnpackChroma = Row<void(const uint8_t*, uint8_t*, uint8_t*)>;
    using RowsChroma = Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*)>;
    k->splitUV = UnpackChroma::Vector<SplitUV_ssse3<true>, SplitUV_ssse3<false>, SplitUV_c>;
    k->unpackYuy2Luma =
        Unpack::Vector<UnpackYuy2Luma_ssse3<true>, UnpackYuy2Luma_ssse3<false>, UnpackYuy2Luma_c>;
    k->unpackUyvyLuma =
        Unpack::Vector<UnpackUyvyLuma_ssse3<true>, UnpackUyvyLuma_ssse3<false>, UnpackUyvyLuma_c>;
    k->unpackYuy2Chroma = UnpackChroma::Vector<UnpackYuy2Chroma_ssse3<true>,
                                               UnpackYuy2Chroma_ssse3<false>, UnpackYuy2Chroma_c>;
    k->unpackUyvyChroma = UnpackChroma::Vector<UnpackUyvyChroma_ssse3<true>,
                                               UnpackUyvyChroma_ssse3<false>, UnpackUyvyChroma_c>;
    k->unpackYuy2ChromaRows =
        RowsChroma::Vector<UnpackYuy2ChromaRows_ssse3<true>, UnpackYuy2ChromaRows_ssse3<false>,
                           UnpackYuy2ChromaRows_c>;
    k->unpackUyvyChromaRows =
        RowsChroma::Vector<UnpackUyvyChromaRows_ssse3<true>, UnpackUyvyChromaRows_ssse3<false>,
                           UnpackUyvyChromaRows_c>;
    k->unpackAyuv =
        Row<void(const uint8_t*, uint8_t*, uint8_t*,
                 uint8_t*)>::Vector<UnpackAyuv_ssse3<true>, UnpackAyuv_ssse3<false>, UnpackAyuv_c>;
}

}  // namespace ncb::video

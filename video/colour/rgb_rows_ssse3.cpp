// SSSE3 kernels between YUV samples and RGB32: luma with pmaddubsw/phaddw
// (the 1.7 weights sum to 128, so every partial sum fits a signed word) and
// channel splitting with pshufb. YUV to RGB needs no SSSE3 instruction and
// keeps the SSE2 entries.
#include <tmmintrin.h>

#include "video/colour/rgb_colour_sse2.h"
#include "video/colour/rgb_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

// B, G, R of eight pixels in 16-bit lanes, gathered by pshufb.
inline Channels SplitChannels_ssse3(__m128i p0, __m128i p1) {
    const __m128i bg = _mm_setr_epi8(0, -1, 4, -1, 8, -1, 12, -1, 1, -1, 5, -1, 9, -1, 13, -1);
    const __m128i r = _mm_setr_epi8(2, -1, 6, -1, 10, -1, 14, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i bg0 = _mm_shuffle_epi8(p0, bg);
    const __m128i bg1 = _mm_shuffle_epi8(p1, bg);
    Channels c;
    c.b = _mm_unpacklo_epi64(bg0, bg1);
    c.g = _mm_unpackhi_epi64(bg0, bg1);
    c.r = _mm_unpacklo_epi64(_mm_shuffle_epi8(p0, r), _mm_shuffle_epi8(p1, r));
    return c;
}

template <bool A>
int Rgb32ToLuma_ssse3(const uint8_t* src, uint8_t* y, int width) {
    const __m128i weights =
        _mm_setr_epi8(15, 75, 38, 0, 15, 75, 38, 0, 15, 75, 38, 0, 15, 75, 38, 0);
    const __m128i round = _mm_set1_epi16(64);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8_t* s = src + 4 * x;
        __m128i m[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) m[i] = _mm_maddubs_epi16(Load<A>(s + 16 * i), weights);
        const __m128i lo = _mm_srli_epi16(_mm_add_epi16(_mm_hadd_epi16(m[0], m[1]), round), 7);
        const __m128i hi = _mm_srli_epi16(_mm_add_epi16(_mm_hadd_epi16(m[2], m[3]), round), 7);
        Store<A>(y + x, _mm_packus_epi16(lo, hi));
    }
    return x;
}

template <bool A>
int Rgb32ToLuma14_ssse3(const uint8_t* src, uint8_t* y, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8_t* s = src + 4 * x;
        const __m128i lo = Luma14(SplitChannels_ssse3(Load<A>(s), Load<A>(s + 16)));
        const __m128i hi = Luma14(SplitChannels_ssse3(Load<A>(s + 32), Load<A>(s + 48)));
        Store<A>(y + x, _mm_packus_epi16(lo, hi));
    }
    return x;
}

inline void StoreChroma8(__m128i m0, __m128i m1, uint8_t* u, uint8_t* v) {
    __m128i cu, cv;
    Chroma14(SplitChannels_ssse3(m0, m1), &cu, &cv);
    const __m128i bytes = OffsetBytes(cu, cv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(u), bytes);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(v), _mm_unpackhi_epi64(bytes, bytes));
}

template <bool A>
int Rgb32ToChroma420_ssse3(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                           int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i p[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i)
            p[i] = _mm_avg_epu8(Load<A>(src0 + 4 * x + 16 * i), Load<A>(src1 + 4 * x + 16 * i));
        StoreChroma8(HalvePixels(p[0], p[1]), HalvePixels(p[2], p[3]), u + x / 2, v + x / 2);
    }
    return x;
}

template <bool A>
int Rgb32ToChroma422_ssse3(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i p[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) p[i] = Load<A>(src + 4 * x + 16 * i);
        StoreChroma8(HalvePixels(p[0], p[1]), HalvePixels(p[2], p[3]), u + x / 2, v + x / 2);
    }
    return x;
}

template <bool A>
int Rgb32ToChroma444_ssse3(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8_t* s = src + 4 * x;
        __m128i u0, v0, u1, v1;
        Chroma14(SplitChannels_ssse3(Load<A>(s), Load<A>(s + 16)), &u0, &v0);
        Chroma14(SplitChannels_ssse3(Load<A>(s + 32), Load<A>(s + 48)), &u1, &v1);
        Store<A>(u + x, OffsetBytes(u0, u1));
        Store<A>(v + x, OffsetBytes(v0, v1));
    }
    return x;
}

}  // namespace

void InstallRgbRowsSsse3(RgbRowKernels* k) {
    using ToLuma = Row<void(const uint8_t*, uint8_t*)>;
    using ToChroma = Row<void(const uint8_t*, uint8_t*, uint8_t*)>;
    k->rgb32ToLuma14 =
        ToLuma::Vector<Rgb32ToLuma14_ssse3<true>, Rgb32ToLuma14_ssse3<false>, Rgb32ToLuma14_c>;
    k->rgb32ToLuma =
        ToLuma::Vector<Rgb32ToLuma_ssse3<true>, Rgb32ToLuma_ssse3<false>, Rgb32ToLuma_c>;
    k->rgb32ToChroma420 = Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*)>::Vector<
        Rgb32ToChroma420_ssse3<true>, Rgb32ToChroma420_ssse3<false>, Rgb32ToChroma420_c>;
    k->rgb32ToChroma422 = ToChroma::Vector<Rgb32ToChroma422_ssse3<true>,
                                           Rgb32ToChroma422_ssse3<false>, Rgb32ToChroma422_c>;
    k->rgb32ToChroma444 = ToChroma::Vector<Rgb32ToChroma444_ssse3<true>,
                                           Rgb32ToChroma444_ssse3<false>, Rgb32ToChroma444_c>;
}

}  // namespace ncb::video

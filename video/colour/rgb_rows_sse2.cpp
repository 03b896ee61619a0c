// SSE2 kernels between YUV samples and RGB32: 16 pixels per step. The
// RGB-to-chroma kernels step exactly one 16-pixel block at a time, so the
// twin receives exactly the pixels after the last whole block (the 4:2:0 tail
// rule depends on that).
#include <emmintrin.h>

#include "video/colour/rgb_colour_sse2.h"
#include "video/colour/rgb_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

template <bool A>
int Yuv422ToRgb32_sse2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                       uint8_t alpha, int width) {
    const __m128i a = _mm_set1_epi8(static_cast<char>(alpha));
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i cu = CentredLo(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(u + x / 2)));
        const __m128i cv = CentredLo(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(v + x / 2)));
        const ChromaTerms t = MakeChromaTerms(cu, cv);
        StoreRgb32<A>(dst + 4 * x, Load<A>(y + x), DoubleLo(t), DoubleHi(t), a);
    }
    return x;
}

template <bool A>
int Yuv444ToRgb32_sse2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                       uint8_t alpha, int width) {
    const __m128i a = _mm_set1_epi8(static_cast<char>(alpha));
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i cu = Load<A>(u + x);
        const __m128i cv = Load<A>(v + x);
        const ChromaTerms lo = MakeChromaTerms(CentredLo(cu), CentredLo(cv));
        const ChromaTerms hi = MakeChromaTerms(CentredHi(cu), CentredHi(cv));
        StoreRgb32<A>(dst + 4 * x, Load<A>(y + x), lo, hi, a);
    }
    return x;
}

template <bool A>
int Rgb32ToLuma14_sse2(const uint8_t* src, uint8_t* y, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8_t* s = src + 4 * x;
        const __m128i lo = Luma14(SplitChannels_sse2(Load<A>(s), Load<A>(s + 16)));
        const __m128i hi = Luma14(SplitChannels_sse2(Load<A>(s + 32), Load<A>(s + 48)));
        Store<A>(y + x, _mm_packus_epi16(lo, hi));
    }
    return x;
}

inline __m128i Luma7(const Channels& c) {
    __m128i sum = _mm_add_epi16(_mm_mullo_epi16(c.r, _mm_set1_epi16(38)),
                                _mm_mullo_epi16(c.g, _mm_set1_epi16(75)));
    sum = _mm_add_epi16(sum, _mm_mullo_epi16(c.b, _mm_set1_epi16(15)));
    return _mm_srli_epi16(_mm_add_epi16(sum, _mm_set1_epi16(64)), 7);
}

template <bool A>
int Rgb32ToLuma_sse2(const uint8_t* src, uint8_t* y, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8_t* s = src + 4 * x;
        const __m128i lo = Luma7(SplitChannels_sse2(Load<A>(s), Load<A>(s + 16)));
        const __m128i hi = Luma7(SplitChannels_sse2(Load<A>(s + 32), Load<A>(s + 48)));
        Store<A>(y + x, _mm_packus_epi16(lo, hi));
    }
    return x;
}

// Eight chroma samples from eight averaged pixels (two vectors of four).
inline void StoreChroma8(__m128i m0, __m128i m1, uint8_t* u, uint8_t* v) {
    __m128i cu, cv;
    Chroma14(SplitChannels_sse2(m0, m1), &cu, &cv);
    const __m128i bytes = OffsetBytes(cu, cv);  // U x8, V x8
    _mm_storel_epi64(reinterpret_cast<__m128i*>(u), bytes);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(v), _mm_unpackhi_epi64(bytes, bytes));
}

template <bool A>
int Rgb32ToChroma420_sse2(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
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
int Rgb32ToChroma422_sse2(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
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
int Rgb32ToChroma444_sse2(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8_t* s = src + 4 * x;
        __m128i u0, v0, u1, v1;
        Chroma14(SplitChannels_sse2(Load<A>(s), Load<A>(s + 16)), &u0, &v0);
        Chroma14(SplitChannels_sse2(Load<A>(s + 32), Load<A>(s + 48)), &u1, &v1);
        Store<A>(u + x, OffsetBytes(u0, u1));
        Store<A>(v + x, OffsetBytes(v0, v1));
    }
    return x;
}

}  // namespace

void InstallRgbRowsSse2(RgbRowKernels* k) {
    using ToRgb = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*, uint8_t)>;
    using ToLuma = Row<void(const uint8_t*, uint8_t*)>;
    using ToChroma = Row<void(const uint8_t*, uint8_t*, uint8_t*)>;
    k->yuv422ToRgb32 =
        ToRgb::Vector<Yuv422ToRgb32_sse2<true>, Yuv422ToRgb32_sse2<false>, Yuv422ToRgb32_c>;
    k->yuv444ToRgb32 =
        ToRgb::Vector<Yuv444ToRgb32_sse2<true>, Yuv444ToRgb32_sse2<false>, Yuv444ToRgb32_c>;
    k->rgb32ToLuma14 =
        ToLuma::Vector<Rgb32ToLuma14_sse2<true>, Rgb32ToLuma14_sse2<false>, Rgb32ToLuma14_c>;
    k->rgb32ToLuma = ToLuma::Vector<Rgb32ToLuma_sse2<true>, Rgb32ToLuma_sse2<false>, Rgb32ToLuma_c>;
    k->rgb32ToChroma420 = Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*)>::Vector<
        Rgb32ToChroma420_sse2<true>, Rgb32ToChroma420_sse2<false>, Rgb32ToChroma420_c>;
    k->rgb32ToChroma422 = ToChroma::Vector<Rgb32ToChroma422_sse2<true>,
                                           Rgb32ToChroma422_sse2<false>, Rgb32ToChroma422_c>;
    k->rgb32ToChroma444 = ToChroma::Vector<Rgb32ToChroma444_sse2<true>,
                                           Rgb32ToChroma444_sse2<false>, Rgb32ToChroma444_c>;
}

}  // namespace ncb::video

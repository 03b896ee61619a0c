// SSE2 YUV row kernels: 16 output samples (or pixels) per step, with byte
// averages from pavgb / pavgw (both round up, as the rule does) and the
// adjustment's product formed exactly in 32 bits from pmullw / pmulhw.
// The rest of each row goes to the scalar twin through Row<>::Vector.
#include <emmintrin.h>

#include "video/colour/yuv_rows_c.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

inline __m128i EvenBytes(__m128i v) { return _mm_and_si128(v, _mm_set1_epi16(0x00FF)); }
inline __m128i OddBytes(__m128i v) { return _mm_srli_epi16(v, 8); }

// Mean of each byte pair of 32 bytes, rounded up, as 16 bytes.
inline __m128i HalvePairs(__m128i a, __m128i b) {
    const __m128i lo = _mm_avg_epu16(EvenBytes(a), OddBytes(a));
    const __m128i hi = _mm_avg_epu16(EvenBytes(b), OddBytes(b));
    return _mm_packus_epi16(lo, hi);
}

template <bool A>
int Fill_sse2(uint8_t* dst, uint8_t value, int width) {
    const __m128i v = _mm_set1_epi8(static_cast<char>(value));
    int x = 0;
    for (; x + 16 <= width; x += 16) Store<A>(dst + x, v);
    return x;
}

template <bool A>
int Copy_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) Store<A>(dst + x, Load<A>(src + x));
    return x;
}

template <bool A>
int AverageRows_sse2(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16)
        Store<A>(dst + x, _mm_avg_epu8(Load<A>(a + x), Load<A>(b + x)));
    return x;
}

template <bool A>
int HalveRow_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16)
        Store<A>(dst + x, HalvePairs(Load<A>(src + 2 * x), Load<A>(src + 2 * x + 16)));
    return x;
}

template <bool A>
int AverageHalveRows_sse2(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i lo = _mm_avg_epu8(Load<A>(a + 2 * x), Load<A>(b + 2 * x));
        const __m128i hi = _mm_avg_epu8(Load<A>(a + 2 * x + 16), Load<A>(b + 2 * x + 16));
        Store<A>(dst + x, HalvePairs(lo, hi));
    }
    return x;
}

template <bool A>
int DoubleRow_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m128i v = Load<A>(src + x / 2);
        Store<A>(dst + x, _mm_unpacklo_epi8(v, v));
        Store<A>(dst + x + 16, _mm_unpackhi_epi8(v, v));
    }
    return x;
}

// Eight samples (16-bit lanes, 0..255) times the gain, >> 8, + offset, as
// saturated 16-bit lanes.
inline __m128i AdjustWords(__m128i x, __m128i gain, __m128i offset) {
    const __m128i lo = _mm_mullo_epi16(x, gain);
    const __m128i hi = _mm_mulhi_epi16(x, gain);
    const __m128i p0 = _mm_add_epi32(_mm_srai_epi32(_mm_unpacklo_epi16(lo, hi), 8), offset);
    const __m128i p1 = _mm_add_epi32(_mm_srai_epi32(_mm_unpackhi_epi16(lo, hi), 8), offset);
    return _mm_packs_epi32(p0, p1);
}

template <bool A>
int Adjust_sse2(const uint8_t* src, uint8_t* dst, const SampleAdjust& adjust, int width) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i gain = _mm_set1_epi16(static_cast<int16_t>(adjust.gain));
    const __m128i offset = _mm_set1_epi32(adjust.offset);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i v = Load<A>(src + x);
        const __m128i lo = AdjustWords(_mm_unpacklo_epi8(v, zero), gain, offset);
        const __m128i hi = AdjustWords(_mm_unpackhi_epi8(v, zero), gain, offset);
        Store<A>(dst + x, _mm_packus_epi16(lo, hi));
    }
    return x;
}

template <bool A>
int InterleaveUV_sse2(const uint8_t* u, const uint8_t* v, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i vu = Load<A>(u + x);
        const __m128i vv = Load<A>(v + x);
        Store<A>(dst + 2 * x, _mm_unpacklo_epi8(vu, vv));
        Store<A>(dst + 2 * x + 16, _mm_unpackhi_epi8(vu, vv));
    }
    return x;
}

template <bool A>
int SplitUV_sse2(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i a = Load<A>(src + 2 * x);
        const __m128i b = Load<A>(src + 2 * x + 16);
        Store<A>(u + x, _mm_packus_epi16(EvenBytes(a), EvenBytes(b)));
        Store<A>(v + x, _mm_packus_epi16(OddBytes(a), OddBytes(b)));
    }
    return x;
}

template <bool A, bool kChromaFirst>
int Pack422_sse2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m128i cu = Load<A>(u + x / 2);
        const __m128i cv = Load<A>(v + x / 2);
        const __m128i uv[2] = {_mm_unpacklo_epi8(cu, cv), _mm_unpackhi_epi8(cu, cv)};
#pragma GCC unroll 8
        for (int half = 0; half < 2; ++half) {
            const __m128i luma = Load<A>(y + x + 16 * half);
            const __m128i lo = kChromaFirst ? _mm_unpacklo_epi8(uv[half], luma)
                                            : _mm_unpacklo_epi8(luma, uv[half]);
            const __m128i hi = kChromaFirst ? _mm_unpackhi_epi8(uv[half], luma)
                                            : _mm_unpackhi_epi8(luma, uv[half]);
            Store<A>(dst + 2 * x + 32 * half, lo);
            Store<A>(dst + 2 * x + 32 * half + 16, hi);
        }
    }
    return x;
}

template <bool A>
int PackYuy2_sse2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int width) {
    return Pack422_sse2<A, false>(y, u, v, dst, width);
}

template <bool A>
int PackUyvy_sse2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int width) {
    return Pack422_sse2<A, true>(y, u, v, dst, width);
}

template <bool A, bool kLumaOdd>
int UnpackLuma_sse2(const uint8_t* src, uint8_t* y, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i a = Load<A>(src + 2 * x);
        const __m128i b = Load<A>(src + 2 * x + 16);
        const __m128i luma = kLumaOdd ? _mm_packus_epi16(OddBytes(a), OddBytes(b))
                                      : _mm_packus_epi16(EvenBytes(a), EvenBytes(b));
        Store<A>(y + x, luma);
    }
    return x;
}

template <bool A>
int UnpackYuy2Luma_sse2(const uint8_t* src, uint8_t* y, int width) {
    return UnpackLuma_sse2<A, false>(src, y, width);
}

template <bool A>
int UnpackUyvyLuma_sse2(const uint8_t* src, uint8_t* y, int width) {
    return UnpackLuma_sse2<A, true>(src, y, width);
}

// The chroma bytes of 32 packed pixels (64 bytes in four vectors) as 16 U
// and 16 V samples.
template <bool kChromaOdd>
inline void SplitPackedChroma(const __m128i p[4], __m128i* u, __m128i* v) {
    auto chroma = [](__m128i a, __m128i b) {
        return kChromaOdd ? _mm_packus_epi16(OddBytes(a), OddBytes(b))
                          : _mm_packus_epi16(EvenBytes(a), EvenBytes(b));
    };
    const __m128i c0 = chroma(p[0], p[1]);  // U V U V ... of pixels 0-15
    const __m128i c1 = chroma(p[2], p[3]);
    *u = _mm_packus_epi16(EvenBytes(c0), EvenBytes(c1));
    *v = _mm_packus_epi16(OddBytes(c0), OddBytes(c1));
}

template <bool A, bool kChromaOdd, bool kTwoRows>
int UnpackChroma_sse2(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        __m128i p[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) {
            p[i] = Load<A>(src0 + 2 * x + 16 * i);
            if (kTwoRows) p[i] = _mm_avg_epu8(p[i], Load<A>(src1 + 2 * x + 16 * i));
        }
        __m128i cu, cv;
        SplitPackedChroma<kChromaOdd>(p, &cu, &cv);
        Store<A>(u + x / 2, cu);
        Store<A>(v + x / 2, cv);
    }
    return x;
}

template <bool A>
int UnpackYuy2Chroma_sse2(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    return UnpackChroma_sse2<A, true, false>(src, src, u, v, width);
}

template <bool A>
int UnpackUyvyChroma_sse2(const uint8_t* src, uint8_t* u, uint8_t* v, int width) {
    return UnpackChroma_sse2<A, false, false>(src, src, u, v, width);
}

template <bool A>
int UnpackYuy2ChromaRows_sse2(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                              int width) {
    return UnpackChroma_sse2<A, true, true>(src0, src1, u, v, width);
}

template <bool A>
int UnpackUyvyChromaRows_sse2(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                              int width) {
    return UnpackChroma_sse2<A, false, true>(src0, src1, u, v, width);
}

template <bool A>
int PackAyuv_sse2(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, uint8_t alpha,
                  int width) {
    const __m128i a = _mm_set1_epi8(static_cast<char>(alpha));
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i cy = Load<A>(y + x);
        const __m128i cu = Load<A>(u + x);
        const __m128i cv = Load<A>(v + x);
        const __m128i vu[2] = {_mm_unpacklo_epi8(cv, cu), _mm_unpackhi_epi8(cv, cu)};
        const __m128i ya[2] = {_mm_unpacklo_epi8(cy, a), _mm_unpackhi_epi8(cy, a)};
#pragma GCC unroll 8
        for (int half = 0; half < 2; ++half) {
            Store<A>(dst + 4 * x + 32 * half, _mm_unpacklo_epi16(vu[half], ya[half]));
            Store<A>(dst + 4 * x + 32 * half + 16, _mm_unpackhi_epi16(vu[half], ya[half]));
        }
    }
    return x;
}

template <bool A>
int UnpackAyuv_sse2(const uint8_t* src, uint8_t* y, uint8_t* u, uint8_t* v, int width) {
    const __m128i low = _mm_set1_epi32(0xFF);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i p[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) p[i] = Load<A>(src + 4 * x + 16 * i);
        auto channel = [&](int shift) {
            __m128i w[4];
#pragma GCC unroll 8
            for (int i = 0; i < 4; ++i)
                w[i] = _mm_and_si128(_mm_srl_epi32(p[i], _mm_cvtsi32_si128(shift)), low);
            return _mm_packus_epi16(_mm_packs_epi32(w[0], w[1]), _mm_packs_epi32(w[2], w[3]));
        };
        Store<A>(v + x, channel(0));
        Store<A>(u + x, channel(8));
        Store<A>(y + x, channel(16));
    }
    return x;
}

}  // namespace

void InstallYuvRowsSse2(YuvRowKernels* k) {
    using Pack = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*)>;
    using Unpack = Row<void(const uint8_t*, uint8_t*)>;
    using UnpackChroma = Row<void(const uint8_t*, uint8_t*, uint8_t*)>;
    using Rows = Row<void(const uint8_t*, const uint8_t*, uint8_t*)>;
    using RowsChroma = Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*)>;
    k->fill = Row<void(uint8_t*, uint8_t)>::Vector<Fill_sse2<true>, Fill_sse2<false>, Fill_c>;
    k->copy = Unpack::Vector<Copy_sse2<true>, Copy_sse2<false>, Copy_c>;
    k->averageRows = Rows::Vector<AverageRows_sse2<true>, AverageRows_sse2<false>, AverageRows_c>;
    k->halveRow = Unpack::Vector<HalveRow_sse2<true>, HalveRow_sse2<false>, HalveRow_c>;
    k->averageHalveRows =
        Rows::Vector<AverageHalveRows_sse2<true>, AverageHalveRows_sse2<false>, AverageHalveRows_c>;
    k->doubleRow = Unpack::Vector<DoubleRow_sse2<true>, DoubleRow_sse2<false>, DoubleRow_c>;
    k->adjust =
        Row<void(const uint8_t*, uint8_t*,
                 const SampleAdjust&)>::Vector<Adjust_sse2<true>, Adjust_sse2<false>, Adjust_c>;
    k->interleaveUV =
        Rows::Vector<InterleaveUV_sse2<true>, InterleaveUV_sse2<false>, InterleaveUV_c>;
    k->splitUV = UnpackChroma::Vector<SplitUV_sse2<true>, SplitUV_sse2<false>, SplitUV_c>;
    k->packYuy2 = Pack::Vector<PackYuy2_sse2<true>, PackYuy2_sse2<false>, PackYuy2_c>;
    k->packUyvy = Pack::Vector<PackUyvy_sse2<true>, PackUyvy_sse2<false>, PackUyvy_c>;
    k->unpackYuy2Luma =
        Unpack::Vector<UnpackYuy2Luma_sse2<true>, UnpackYuy2Luma_sse2<false>, UnpackYuy2Luma_c>;
    k->unpackUyvyLuma =
        Unpack::Vector<UnpackUyvyLuma_sse2<true>, UnpackUyvyLuma_sse2<false>, UnpackUyvyLuma_c>;
    k->unpackYuy2Chroma = UnpackChroma::Vector<UnpackYuy2Chroma_sse2<true>,
                                               UnpackYuy2Chroma_sse2<false>, UnpackYuy2Chroma_c>;
    k->unpackUyvyChroma = UnpackChroma::Vector<UnpackUyvyChroma_sse2<true>,
                                               UnpackUyvyChroma_sse2<false>, UnpackUyvyChroma_c>;
    k->unpackYuy2ChromaRows =
        RowsChroma::Vector<UnpackYuy2ChromaRows_sse2<true>, UnpackYuy2ChromaRows_sse2<false>,
                           UnpackYuy2ChromaRows_c>;
    k->unpackUyvyChromaRows =
        RowsChroma::Vector<UnpackUyvyChromaRows_sse2<true>, UnpackUyvyChromaRows_sse2<false>,
                           UnpackUyvyChromaRows_c>;
    k->packAyuv = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*,
                           uint8_t)>::Vector<PackAyuv_sse2<true>, PackAyuv_sse2<false>, PackAyuv_c>;
    k->unpackAyuv =
        Row<void(const uint8_t*, uint8_t*, uint8_t*,
                 uint8_t*)>::Vector<UnpackAyuv_sse2<true>, UnpackAyuv_sse2<false>, UnpackAyuv_c>;
}

}  // namespace ncb::video

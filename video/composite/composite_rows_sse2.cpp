// SSE2 compositing kernels: 16 bytes per step, products in 16-bit lanes
// (255 x 128 and 255 x 255 both fit unsigned), colour-key and alpha tests as
// 32-bit compares that select between the blended and the old pixel. The
// "no read" copies never load the destination: a block whose four pixels
// all pass is stored whole, one where none passes is skipped, and a mixed
// block goes to the scalar twin.
#include <emmintrin.h>

#include "video/composite/composite_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

inline __m128i Mix128(__m128i s, __m128i d, __m128i a, __m128i na) {
    return _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(s, a), _mm_mullo_epi16(d, na)), 7);
}

// Bytes of s and d blended with 16-bit weights given for the low and high
// eight bytes.
inline __m128i BlendBytes(__m128i s, __m128i d, __m128i aLo, __m128i naLo, __m128i aHi,
                          __m128i naHi) {
    const __m128i z = _mm_setzero_si128();
    const __m128i lo = Mix128(_mm_unpacklo_epi8(s, z), _mm_unpacklo_epi8(d, z), aLo, naLo);
    const __m128i hi = Mix128(_mm_unpackhi_epi8(s, z), _mm_unpackhi_epi8(d, z), aHi, naHi);
    return _mm_packus_epi16(lo, hi);
}

// Per-pixel weights (s >> 24) >> 1 spread over each pixel's four bytes.
inline __m128i BlendByOwnAlpha(__m128i s, __m128i d) {
    __m128i a = _mm_srli_epi32(s, 25);
    a = _mm_or_si128(a, _mm_slli_epi32(a, 16));
    const __m128i aLo = _mm_unpacklo_epi32(a, a), aHi = _mm_unpackhi_epi32(a, a);
    const __m128i c128 = _mm_set1_epi16(128);
    return BlendBytes(s, d, aLo, _mm_sub_epi16(c128, aLo), aHi, _mm_sub_epi16(c128, aHi));
}

inline __m128i Select(__m128i mask, __m128i ifSet, __m128i ifClear) {
    return _mm_or_si128(_mm_and_si128(mask, ifSet), _mm_andnot_si128(mask, ifClear));
}

template <bool A>
int BlendBytes_sse2(const uint8_t* src, uint8_t* dst, int a, int bytes) {
    const __m128i va = _mm_set1_epi16(static_cast<int16_t>(a));
    const __m128i vna = _mm_set1_epi16(static_cast<int16_t>(128 - a));
    int x = 0;
    for (; x + 16 <= bytes; x += 16)
        Store<A>(dst + x, BlendBytes(Load<A>(src + x), Load<A>(dst + x), va, vna, va, vna));
    return x;
}

// Channels of eight 16-bit pixels mixed by `mix`, repacked.
template <int kGreenBits, typename Mix>
inline __m128i Mix16(__m128i s, __m128i d, Mix&& mix) {
    constexpr int kRedShift = 5 + kGreenBits;
    const __m128i m5 = _mm_set1_epi16(31);
    const __m128i mg = _mm_set1_epi16((1 << kGreenBits) - 1);
    const __m128i b = mix(_mm_and_si128(s, m5), _mm_and_si128(d, m5));
    const __m128i g =
        mix(_mm_and_si128(_mm_srli_epi16(s, 5), mg), _mm_and_si128(_mm_srli_epi16(d, 5), mg));
    const __m128i r = mix(_mm_and_si128(_mm_srli_epi16(s, kRedShift), m5),
                          _mm_and_si128(_mm_srli_epi16(d, kRedShift), m5));
    return _mm_or_si128(_mm_or_si128(b, _mm_slli_epi16(g, 5)), _mm_slli_epi16(r, kRedShift));
}

template <int kGreenBits, bool A>
int Blend16_sse2(const uint8_t* src, uint8_t* dst, int a, int width) {
    const __m128i va = _mm_set1_epi16(static_cast<int16_t>(a));
    const __m128i vna = _mm_set1_epi16(static_cast<int16_t>(128 - a));
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        const __m128i v =
            Mix16<kGreenBits>(Load<A>(src + 2 * x), Load<A>(dst + 2 * x),
                              [&](__m128i s, __m128i d) { return Mix128(s, d, va, vna); });
        Store<A>(dst + 2 * x, v);
    }
    return x;
}

template <bool A>
int BlendPixelAlpha_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 4 <= width; x += 4)
        Store<A>(dst + 4 * x, BlendByOwnAlpha(Load<A>(src + 4 * x), Load<A>(dst + 4 * x)));
    return x;
}

template <bool A>
int BlendConstKey_sse2(const uint8_t* src, uint8_t* dst, int a, uint32_t key, int width) {
    const __m128i va = _mm_set1_epi16(static_cast<int16_t>(a));
    const __m128i vna = _mm_set1_epi16(static_cast<int16_t>(128 - a));
    const __m128i vk = _mm_set1_epi32(static_cast<int32_t>(key));
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i s = Load<A>(src + 4 * x), d = Load<A>(dst + 4 * x);
        Store<A>(dst + 4 * x,
                 Select(_mm_cmpeq_epi32(s, vk), d, BlendBytes(s, d, va, vna, va, vna)));
    }
    return x;
}

template <bool A>
int BlendPixelAlphaKey_sse2(const uint8_t* src, uint8_t* dst, uint32_t key, int width) {
    const __m128i vk = _mm_set1_epi32(static_cast<int32_t>(key));
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i s = Load<A>(src + 4 * x), d = Load<A>(dst + 4 * x);
        Store<A>(dst + 4 * x, Select(_mm_cmpeq_epi32(s, vk), d, BlendByOwnAlpha(s, d)));
    }
    return x;
}

// Fills start at a multiple of 16 bytes of the row, so the pattern block
// index runs 0, 1, 2 from the row start.
template <bool A>
int Fill_sse2(uint8_t* dst, const FillPattern* p, int bytes) {
    const __m128i v[3] = {Load<true>(p->bytes), Load<true>(p->bytes + 16),
                          Load<true>(p->bytes + 32)};
    int x = 0, k = 0;
    for (; x + 16 <= bytes; x += 16, k = k == 2 ? 0 : k + 1) Store<A>(dst + x, v[k]);
    return x;
}

template <bool A>
int FillBlend_sse2(uint8_t* dst, const FillPattern* p, int a, int bytes) {
    const __m128i z = _mm_setzero_si128();
    const __m128i va = _mm_set1_epi16(static_cast<int16_t>(a));
    const __m128i vna = _mm_set1_epi16(static_cast<int16_t>(127 - a));
    __m128i lo[3], hi[3];
    for (int k = 0; k < 3; ++k) {
        const __m128i c = Load<true>(p->bytes + 16 * k);
        lo[k] = _mm_mullo_epi16(_mm_unpacklo_epi8(c, z), va);
        hi[k] = _mm_mullo_epi16(_mm_unpackhi_epi8(c, z), va);
    }
    int x = 0, k = 0;
    for (; x + 16 <= bytes; x += 16, k = k == 2 ? 0 : k + 1) {
        const __m128i d = Load<A>(dst + x);
        const __m128i l =
            _mm_srli_epi16(_mm_add_epi16(lo[k], _mm_mullo_epi16(_mm_unpacklo_epi8(d, z), vna)), 7);
        const __m128i h =
            _mm_srli_epi16(_mm_add_epi16(hi[k], _mm_mullo_epi16(_mm_unpackhi_epi8(d, z), vna)), 7);
        Store<A>(dst + x, _mm_packus_epi16(l, h));
    }
    return x;
}

template <int kGreenBits, bool A>
int FillBlend16_sse2(uint8_t* dst, uint32_t colour, int a, int width) {
    const __m128i c = _mm_set1_epi16(static_cast<int16_t>(colour));
    const __m128i va = _mm_set1_epi16(static_cast<int16_t>(a));
    const __m128i vna = _mm_set1_epi16(static_cast<int16_t>(127 - a));
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        const __m128i v = Mix16<kGreenBits>(
            c, Load<A>(dst + 2 * x), [&](__m128i s, __m128i d) { return Mix128(s, d, va, vna); });
        Store<A>(dst + 2 * x, v);
    }
    return x;
}

// Stores the block when all four pixels pass the test, skips it when none
// does, and leaves a mixed block (and the rest of the row) to the twin.
template <bool A, typename Pass>
int CopyWhere(const uint8_t* src, uint8_t* dst, int width, Pass&& pass) {
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i s = Load<A>(src + 4 * x);
        const int bits = _mm_movemask_ps(_mm_castsi128_ps(pass(s)));
        if (bits == 15) {
            Store<A>(dst + 4 * x, s);
        } else if (bits != 0) {
            break;
        }
    }
    return x;
}

template <bool A>
int CopyAlphaNonZero_sse2(const uint8_t* src, uint8_t* dst, int width) {
    const __m128i z = _mm_setzero_si128();
    int x = 0;
    while (x + 4 <= width) {
        x += CopyWhere<A>(src + 4 * x, dst + 4 * x, width - x, [z](__m128i s) {
            return _mm_xor_si128(_mm_cmpeq_epi32(_mm_srli_epi32(s, 24), z), _mm_set1_epi32(-1));
        });
        if (x + 4 > width) break;
        CopyAlphaNonZero_c(src, dst, x, x + 4);
        x += 4;
    }
    return x;
}

template <bool A>
int CopyNotKey_sse2(const uint8_t* src, uint8_t* dst, uint32_t key, int width) {
    const __m128i vk = _mm_set1_epi32(static_cast<int32_t>(key));
    int x = 0;
    while (x + 4 <= width) {
        x += CopyWhere<A>(src + 4 * x, dst + 4 * x, width - x, [vk](__m128i s) {
            return _mm_xor_si128(_mm_cmpeq_epi32(s, vk), _mm_set1_epi32(-1));
        });
        if (x + 4 > width) break;
        CopyNotKey_c(src, dst, key, x, x + 4);
        x += 4;
    }
    return x;
}

template <bool A>
int CopyJustReadAlpha_sse2(const uint8_t* src, uint8_t* dst, uint32_t key, int width) {
    const __m128i z = _mm_setzero_si128();
    const __m128i vk = _mm_set1_epi32(static_cast<int32_t>(key));
    const __m128i opaque = _mm_set1_epi32(255);
    const __m128i c255 = _mm_set1_epi16(255);
    const __m128i rgb = _mm_set1_epi32(0x00FFFFFF);
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i s = Load<A>(src + 4 * x), d = Load<A>(dst + 4 * x);
        const __m128i alpha = _mm_srli_epi32(s, 24);
        __m128i a = _mm_or_si128(alpha, _mm_slli_epi32(alpha, 16));
        const __m128i aLo = _mm_unpacklo_epi32(a, a), aHi = _mm_unpackhi_epi32(a, a);
        const __m128i lo = _mm_srli_epi16(
            _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(d, z), _mm_sub_epi16(c255, aLo)),
                          _mm_mullo_epi16(_mm_unpacklo_epi8(s, z), aLo)),
            8);
        const __m128i hi = _mm_srli_epi16(
            _mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(d, z), _mm_sub_epi16(c255, aHi)),
                          _mm_mullo_epi16(_mm_unpackhi_epi8(s, z), aHi)),
            8);
        const __m128i mixed = _mm_and_si128(_mm_packus_epi16(lo, hi), rgb);
        __m128i out = Select(_mm_cmpeq_epi32(alpha, opaque), s, mixed);
        out = Select(_mm_cmpeq_epi32(s, vk), d, out);
        Store<A>(dst + 4 * x, out);
    }
    return x;
}

template <bool A>
int CopyModifyBackground_sse2(const uint8_t* src, uint8_t* dst, int width) {
    const __m128i black = _mm_set1_epi32(static_cast<int32_t>(0xFF000000u));
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i s = Load<A>(src + 4 * x);
        Store<A>(dst + 4 * x, _mm_andnot_si128(_mm_cmpeq_epi32(s, black), s));
    }
    return x;
}

template <bool A>
int AlphaSet_sse2(const uint8_t* src, uint8_t* dst, uint32_t value, int width) {
    const __m128i z = _mm_setzero_si128();
    const __m128i alpha = _mm_set1_epi32(static_cast<int32_t>((value & 0xFF) << 24));
    const __m128i rgb = _mm_set1_epi32(0x00FFFFFF);
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i s = Load<A>(src + 4 * x);
        const __m128i clear = _mm_cmpeq_epi32(_mm_srli_epi32(s, 24), z);
        Store<A>(dst + 4 * x, Select(clear, s, _mm_or_si128(_mm_and_si128(s, rgb), alpha)));
    }
    return x;
}

template <bool A>
int AlphaFlat_sse2(uint8_t* data, uint32_t alpha, int width) {
    const __m128i z = _mm_setzero_si128();
    const __m128i va = _mm_set1_epi32(static_cast<int32_t>(alpha << 24));
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i s = Load<A>(data + 4 * x);
        Store<A>(data + 4 * x, _mm_or_si128(s, _mm_andnot_si128(_mm_cmpeq_epi32(s, z), va)));
    }
    return x;
}

}  // namespace

void InstallCompositeSse2(CompositeKernels* k) {
    using BlendRow = Row<void(const uint8_t*, uint8_t*, int)>;
    using PlainRow = Row<void(const uint8_t*, uint8_t*)>;
    using KeyRow = Row<void(const uint8_t*, uint8_t*, uint32_t)>;
    k->blendBytes = BlendRow::Vector<BlendBytes_sse2<true>, BlendBytes_sse2<false>, BlendBytes_c>;
    k->blend555 = BlendRow::Vector<Blend16_sse2<5, true>, Blend16_sse2<5, false>, Blend555_c>;
    k->blend565 = BlendRow::Vector<Blend16_sse2<6, true>, Blend16_sse2<6, false>, Blend565_c>;
    k->blendPixelAlpha = PlainRow::Vector<BlendPixelAlpha_sse2<true>, BlendPixelAlpha_sse2<false>,
                                          BlendPixelAlpha_c>;
    k->blendConstKey = Row<void(const uint8_t*, uint8_t*, int, uint32_t)>::Vector<
        BlendConstKey_sse2<true>, BlendConstKey_sse2<false>, BlendConstKey_c>;
    k->blendPixelAlphaKey = KeyRow::Vector<BlendPixelAlphaKey_sse2<true>,
                                           BlendPixelAlphaKey_sse2<false>, BlendPixelAlphaKey_c>;
    k->fill =
        Row<void(uint8_t*, const FillPattern*)>::Vector<Fill_sse2<true>, Fill_sse2<false>, Fill_c>;
    k->fillBlend = Row<void(uint8_t*, const FillPattern*,
                            int)>::Vector<FillBlend_sse2<true>, FillBlend_sse2<false>, FillBlend_c>;
    k->fillBlend555 =
        Row<void(uint8_t*, uint32_t, int)>::Vector<FillBlend16_sse2<5, true>,
                                                   FillBlend16_sse2<5, false>, FillBlend555_c>;
    k->fillBlend565 =
        Row<void(uint8_t*, uint32_t, int)>::Vector<FillBlend16_sse2<6, true>,
                                                   FillBlend16_sse2<6, false>, FillBlend565_c>;
    k->copyAlphaNonZero = PlainRow::Vector<CopyAlphaNonZero_sse2<true>,
                                           CopyAlphaNonZero_sse2<false>, CopyAlphaNonZero_c>;
    k->copyNotKey = KeyRow::Vector<CopyNotKey_sse2<true>, CopyNotKey_sse2<false>, CopyNotKey_c>;
    k->copyJustReadAlpha = KeyRow::Vector<CopyJustReadAlpha_sse2<true>,
                                          CopyJustReadAlpha_sse2<false>, CopyJustReadAlpha_c>;
    k->copyModifyBackground =
        PlainRow::Vector<CopyModifyBackground_sse2<true>, CopyModifyBackground_sse2<false>,
                         CopyModifyBackground_c>;
    k->alphaSet = KeyRow::Vector<AlphaSet_sse2<true>, AlphaSet_sse2<false>, AlphaSet_c>;
    k->alphaFlat = Row<void(uint8_t*, uint32_t)>::Vector<AlphaFlat_sse2<true>,
                                                         AlphaFlat_sse2<false>, AlphaFlat_c>;
}

}  // namespace ncb::video

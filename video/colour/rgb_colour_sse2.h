// SSE2 building blocks of the YUV <-> RGB32 kernels, shared by the SSE2 and
// SSSE3 files (internal linkage, so each file gets a copy built with its own
// flags). Lanes are 16-bit; every step is the scalar twin's operation on
// eight samples at once.
#pragma once

#include <emmintrin.h>

#include <cstdint>

#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

// (U - 128) * 256 for the low eight bytes of `bytes`: the byte in the high
// half of each lane, top bit flipped.
inline __m128i CentredLo(__m128i bytes) {
    return _mm_xor_si128(_mm_unpacklo_epi8(_mm_setzero_si128(), bytes), _mm_set1_epi16(-32768));
}
inline __m128i CentredHi(__m128i bytes) {
    return _mm_xor_si128(_mm_unpackhi_epi8(_mm_setzero_si128(), bytes), _mm_set1_epi16(-32768));
}

struct ChromaTerms {
    __m128i r, g, b;
};

inline ChromaTerms MakeChromaTerms(__m128i u, __m128i v) {
    const __m128i half = _mm_set1_epi16(16);
    ChromaTerms t;
    t.r = _mm_add_epi16(_mm_mulhi_epi16(v, _mm_set1_epi16(11485)), half);
    t.b = _mm_add_epi16(_mm_mulhi_epi16(u, _mm_set1_epi16(14516)), half);
    t.g = _mm_add_epi16(_mm_add_epi16(_mm_mulhi_epi16(u, _mm_set1_epi16(-2819)),
                                      _mm_mulhi_epi16(v, _mm_set1_epi16(-5850))),
                        half);
    return t;
}

// Each chroma term twice, for the two pixels of a 4:2:2 pair.
inline ChromaTerms DoubleLo(const ChromaTerms& t) {
    return {_mm_unpacklo_epi16(t.r, t.r), _mm_unpacklo_epi16(t.g, t.g),
            _mm_unpacklo_epi16(t.b, t.b)};
}
inline ChromaTerms DoubleHi(const ChromaTerms& t) {
    return {_mm_unpackhi_epi16(t.r, t.r), _mm_unpackhi_epi16(t.g, t.g),
            _mm_unpackhi_epi16(t.b, t.b)};
}

inline __m128i Channel(__m128i y32, __m128i term) {
    return _mm_srai_epi16(_mm_add_epi16(y32, term), 5);
}

// 16 pixels of luma and their chroma terms (low eight, high eight) as 64
// bytes of B, G, R, alpha.
template <bool A>
inline void StoreRgb32(uint8_t* dst, __m128i luma, const ChromaTerms& lo, const ChromaTerms& hi,
                       __m128i alpha) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i ylo = _mm_slli_epi16(_mm_unpacklo_epi8(luma, zero), 5);
    const __m128i yhi = _mm_slli_epi16(_mm_unpackhi_epi8(luma, zero), 5);
    const __m128i b = _mm_packus_epi16(Channel(ylo, lo.b), Channel(yhi, hi.b));
    const __m128i g = _mm_packus_epi16(Channel(ylo, lo.g), Channel(yhi, hi.g));
    const __m128i r = _mm_packus_epi16(Channel(ylo, lo.r), Channel(yhi, hi.r));
    const __m128i bg0 = _mm_unpacklo_epi8(b, g);
    const __m128i bg1 = _mm_unpackhi_epi8(b, g);
    const __m128i ra0 = _mm_unpacklo_epi8(r, alpha);
    const __m128i ra1 = _mm_unpackhi_epi8(r, alpha);
    Store<A>(dst, _mm_unpacklo_epi16(bg0, ra0));
    Store<A>(dst + 16, _mm_unpackhi_epi16(bg0, ra0));
    Store<A>(dst + 32, _mm_unpacklo_epi16(bg1, ra1));
    Store<A>(dst + 48, _mm_unpackhi_epi16(bg1, ra1));
}

// B, G, R of eight pixels (two vectors of four) in 16-bit lanes.
struct Channels {
    __m128i b, g, r;
};

inline Channels SplitChannels_sse2(__m128i p0, __m128i p1) {
    const __m128i low = _mm_set1_epi32(0xFF);
    Channels c;
    c.b = _mm_packs_epi32(_mm_and_si128(p0, low), _mm_and_si128(p1, low));
    c.g = _mm_packs_epi32(_mm_and_si128(_mm_srli_epi32(p0, 8), low),
                          _mm_and_si128(_mm_srli_epi32(p1, 8), low));
    c.r = _mm_packs_epi32(_mm_and_si128(_mm_srli_epi32(p0, 16), low),
                          _mm_and_si128(_mm_srli_epi32(p1, 16), low));
    return c;
}

// Rounded-up mean of each pixel pair of eight pixels (two vectors): four
// pixels.
inline __m128i HalvePixels(__m128i p0, __m128i p1) {
    const __m128 a = _mm_castsi128_ps(p0);
    const __m128 b = _mm_castsi128_ps(p1);
    const __m128i even = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m128i odd = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    return _mm_avg_epu8(even, odd);
}

// The 2.14 chroma of eight pixels, as eight signed 16-bit lanes of U - 128
// and V - 128 before the final clamp.
inline void Chroma14(const Channels& c, __m128i* u, __m128i* v) {
    const __m128i round = _mm_set1_epi16(32);
    const __m128i b8 = _mm_slli_epi16(c.b, 8);
    const __m128i g8 = _mm_slli_epi16(c.g, 8);
    const __m128i r8 = _mm_slli_epi16(c.r, 8);
    __m128i tu = _mm_sub_epi16(_mm_slli_epi16(c.b, 5), _mm_mulhi_epu16(g8, _mm_set1_epi16(5428)));
    tu = _mm_add_epi16(_mm_sub_epi16(tu, _mm_mulhi_epu16(r8, _mm_set1_epi16(2764))), round);
    __m128i tv = _mm_sub_epi16(_mm_slli_epi16(c.r, 5), _mm_mulhi_epu16(g8, _mm_set1_epi16(6860)));
    tv = _mm_add_epi16(_mm_sub_epi16(tv, _mm_mulhi_epu16(b8, _mm_set1_epi16(1332))), round);
    *u = _mm_srai_epi16(tu, 6);
    *v = _mm_srai_epi16(tv, 6);
}

// Signed lanes clamped to -128..127, then + 128, as bytes.
inline __m128i OffsetBytes(__m128i lo, __m128i hi) {
    return _mm_xor_si128(_mm_packs_epi16(lo, hi), _mm_set1_epi8(-128));
}

// The 2.14 luma of eight pixels (16-bit lanes, 0..255).
inline __m128i Luma14(const Channels& c) {
    const __m128i sum =
        _mm_add_epi16(_mm_add_epi16(_mm_mulhi_epu16(_mm_slli_epi16(c.b, 8), _mm_set1_epi16(1868)),
                                    _mm_mulhi_epu16(_mm_slli_epi16(c.g, 8), _mm_set1_epi16(9617))),
                      _mm_add_epi16(_mm_mulhi_epu16(_mm_slli_epi16(c.r, 8), _mm_set1_epi16(4899)),
                                    _mm_set1_epi16(32)));
    return _mm_srli_epi16(sum, 6);
}

}  // namespace
}  // namespace ncb::video

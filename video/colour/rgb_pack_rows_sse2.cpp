// SSE2 kernels among the RGB layouts. 16-bit words are packed with the
// sign-extension trick (shift up 16, arithmetic shift down 16, packssdw),
// since SSE2 has no unsigned 32-to-16 pack; 24-bit pixels are moved with
// byte shifts of whole vectors.
#include <emmintrin.h>

#include "video/colour/rgb_pack_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

inline __m128i PackWords(__m128i lo, __m128i hi) {
    lo = _mm_srai_epi32(_mm_slli_epi32(lo, 16), 16);
    hi = _mm_srai_epi32(_mm_slli_epi32(hi, 16), 16);
    return _mm_packs_epi32(lo, hi);
}

inline __m128i To565(__m128i p) {
    const __m128i b = _mm_and_si128(_mm_srli_epi32(p, 3), _mm_set1_epi32(0x001F));
    const __m128i g = _mm_and_si128(_mm_srli_epi32(p, 5), _mm_set1_epi32(0x07E0));
    const __m128i r = _mm_and_si128(_mm_srli_epi32(p, 8), _mm_set1_epi32(0xF800));
    return _mm_or_si128(_mm_or_si128(b, g), r);
}

inline __m128i To555(__m128i p) {
    const __m128i b = _mm_and_si128(_mm_srli_epi32(p, 3), _mm_set1_epi32(0x001F));
    const __m128i g = _mm_and_si128(_mm_srli_epi32(p, 6), _mm_set1_epi32(0x03E0));
    const __m128i r = _mm_and_si128(_mm_srli_epi32(p, 9), _mm_set1_epi32(0x7C00));
    return _mm_or_si128(_mm_or_si128(b, g), r);
}

template <bool A, __m128i (*kNarrow)(__m128i)>
int Narrow_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        const __m128i lo = kNarrow(Load<A>(src + 4 * x));
        const __m128i hi = kNarrow(Load<A>(src + 4 * x + 16));
        Store<A>(dst + 2 * x, PackWords(lo, hi));
    }
    return x;
}

template <bool A>
int Rgb32ToRgb565_sse2(const uint8_t* src, uint8_t* dst, int width) {
    return Narrow_sse2<A, To565>(src, dst, width);
}

template <bool A>
int Rgb32ToRgb555_sse2(const uint8_t* src, uint8_t* dst, int width) {
    return Narrow_sse2<A, To555>(src, dst, width);
}

// Four pixels of B, G, R, A as 12 bytes B, G, R in the low bytes, zeros above.
inline __m128i Drop4(__m128i p) {
    const __m128i a = _mm_and_si128(p, _mm_set1_epi32(0x00FFFFFF));
    // Each 64-bit lane: pixel 0 in bytes 0-2, pixel 1 moved down to bytes 3-5.
    const __m128i pixel0 = _mm_set_epi32(0, 0x00FFFFFF, 0, 0x00FFFFFF);
    const __m128i pixel1 = _mm_set_epi32(0x0000FFFF, static_cast<int>(0xFF000000u), 0x0000FFFF,
                                         static_cast<int>(0xFF000000u));
    const __m128i lanes =
        _mm_or_si128(_mm_and_si128(a, pixel0), _mm_and_si128(_mm_srli_epi64(a, 8), pixel1));
    // Pixels 2-3 (bytes 8-13) down to bytes 6-11.
    const __m128i low6 = _mm_set_epi32(0, 0, 0x0000FFFF, -1);
    return _mm_or_si128(_mm_and_si128(lanes, low6),
                        _mm_andnot_si128(low6, _mm_srli_si128(lanes, 2)));
}

template <bool A>
int Rgb32ToRgb24_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i c[4];
#pragma GCC unroll 8
        for (int i = 0; i < 4; ++i) c[i] = Drop4(Load<A>(src + 4 * x + 16 * i));
        uint8_t* d = dst + 3 * x;
        // Alignment of dst + 3x follows dst only every 16 pixels; 48 is a
        // multiple of 16, so the three stores keep dst's alignment.
        Store<A>(d, _mm_or_si128(c[0], _mm_slli_si128(c[1], 12)));
        Store<A>(d + 16, _mm_or_si128(_mm_srli_si128(c[1], 4), _mm_slli_si128(c[2], 8)));
        Store<A>(d + 32, _mm_or_si128(_mm_srli_si128(c[2], 8), _mm_slli_si128(c[3], 4)));
    }
    return x;
}

// 12 bytes of B, G, R (the low bytes of v) as four pixels with alpha 0.
inline __m128i Spread4(__m128i v) {
    const __m128i p01 = _mm_unpacklo_epi32(v, _mm_srli_si128(v, 3));
    const __m128i p23 = _mm_unpacklo_epi32(_mm_srli_si128(v, 6), _mm_srli_si128(v, 9));
    return _mm_and_si128(_mm_unpacklo_epi64(p01, p23), _mm_set1_epi32(0x00FFFFFF));
}

template <bool A>
int Rgb24ToRgb32_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8_t* s = src + 3 * x;
        const __m128i v0 = Load<A>(s);
        const __m128i v1 = Load<A>(s + 16);
        const __m128i v2 = Load<A>(s + 32);
        uint8_t* d = dst + 4 * x;
        Store<A>(d, Spread4(v0));
        Store<A>(d + 16, Spread4(_mm_or_si128(_mm_srli_si128(v0, 12), _mm_slli_si128(v1, 4))));
        Store<A>(d + 32, Spread4(_mm_or_si128(_mm_srli_si128(v1, 8), _mm_slli_si128(v2, 8))));
        Store<A>(d + 48, Spread4(_mm_srli_si128(v2, 4)));
    }
    return x;
}

// Eight 16-bit pixels as 32 bytes: B and G in each low word, R above.
template <bool A, bool k565>
inline void Widen8(__m128i w, uint8_t* dst) {
    const __m128i mask = _mm_set1_epi16(0xF8);
    const __m128i b = _mm_and_si128(_mm_slli_epi16(w, 3), mask);
    const __m128i g = k565 ? _mm_and_si128(_mm_srli_epi16(w, 3), _mm_set1_epi16(0xFC))
                           : _mm_and_si128(_mm_srli_epi16(w, 2), mask);
    const __m128i r = k565 ? _mm_srli_epi16(w, 8) : _mm_and_si128(_mm_srli_epi16(w, 7), mask);
    const __m128i bg = _mm_or_si128(b, _mm_slli_epi16(g, 8));
    const __m128i r8 = k565 ? _mm_and_si128(r, mask) : r;
    Store<A>(dst, _mm_unpacklo_epi16(bg, r8));
    Store<A>(dst + 16, _mm_unpackhi_epi16(bg, r8));
}

// Whole steps of eight pixels below `width` (a multiple of 8), highest
// first; every load of a step comes before its stores.
template <bool A, bool k565>
int Widen_sse2(const uint8_t* src, uint8_t* dst, int width) {
    for (int x = width - 8; x >= 0; x -= 8) Widen8<A, k565>(Load<A>(src + 2 * x), dst + 4 * x);
    return width;
}

template <bool A>
int Rgb565ToRgb32_sse2(const uint8_t* src, uint8_t* dst, int width) {
    return Widen_sse2<A, true>(src, dst, width);
}

template <bool A>
int Rgb555ToRgb32_sse2(const uint8_t* src, uint8_t* dst, int width) {
    return Widen_sse2<A, false>(src, dst, width);
}

}  // namespace

void InstallRgbPackRowsSse2(RgbPackRowKernels* k) {
    using Pack = Row<void(const uint8_t*, uint8_t*)>;
    k->rgb32ToRgb24 =
        Pack::Vector<Rgb32ToRgb24_sse2<true>, Rgb32ToRgb24_sse2<false>, Rgb32ToRgb24_c>;
    k->rgb32ToRgb565 =
        Pack::Vector<Rgb32ToRgb565_sse2<true>, Rgb32ToRgb565_sse2<false>, Rgb32ToRgb565_c>;
    k->rgb32ToRgb555 =
        Pack::Vector<Rgb32ToRgb555_sse2<true>, Rgb32ToRgb555_sse2<false>, Rgb32ToRgb555_c>;
    k->rgb24ToRgb32 =
        Pack::Vector<Rgb24ToRgb32_sse2<true>, Rgb24ToRgb32_sse2<false>, Rgb24ToRgb32_c>;
    k->rgb565ToRgb32 =
        Pack::Backward<8, Rgb565ToRgb32_sse2<true>, Rgb565ToRgb32_sse2<false>, Rgb565ToRgb32_c>;
    k->rgb555ToRgb32 =
        Pack::Backward<8, Rgb555ToRgb32_sse2<true>, Rgb555ToRgb32_sse2<false>, Rgb555ToRgb32_c>;
}

}  // namespace ncb::video

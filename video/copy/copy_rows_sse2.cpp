// SSE2 kernels of the copy family: 64-byte row copies, 8 x 8 byte and 4 x 4
// pixel transposes built from unpack ladders, row reversal by shuffles, and
// the de-interlacing rule on 16 columns at a time (unsigned byte compares
// through saturating subtraction, selects through and / andnot).
#include <emmintrin.h>

#include "video/copy/copy_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

template <bool A>
int CopyRow_sse2(const uint8_t* src, uint8_t* dst, int bytes) {
    int x = 0;
    for (; x + 64 <= bytes; x += 64) {
        const __m128i a = Load<A>(src + x);
        const __m128i b = Load<A>(src + x + 16);
        const __m128i c = Load<A>(src + x + 32);
        const __m128i d = Load<A>(src + x + 48);
        Store<A>(dst + x, a);
        Store<A>(dst + x + 16, b);
        Store<A>(dst + x + 32, c);
        Store<A>(dst + x + 48, d);
    }
    for (; x + 16 <= bytes; x += 16) Store<A>(dst + x, Load<A>(src + x));
    return x;
}

inline __m128i Load8(const uint8_t* p) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

inline void Store8(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }

void Transpose8x8(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch) {
    __m128i r[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) r[i] = Load8(src + i * srcPitch);
    const __m128i a0 = _mm_unpacklo_epi8(r[0], r[1]);
    const __m128i a1 = _mm_unpacklo_epi8(r[2], r[3]);
    const __m128i a2 = _mm_unpacklo_epi8(r[4], r[5]);
    const __m128i a3 = _mm_unpacklo_epi8(r[6], r[7]);
    const __m128i b0 = _mm_unpacklo_epi16(a0, a1);  // columns 0-3 of rows 0-3
    const __m128i b1 = _mm_unpackhi_epi16(a0, a1);  // columns 4-7 of rows 0-3
    const __m128i b2 = _mm_unpacklo_epi16(a2, a3);
    const __m128i b3 = _mm_unpackhi_epi16(a2, a3);
    const __m128i c[4] = {_mm_unpacklo_epi32(b0, b2), _mm_unpackhi_epi32(b0, b2),
                          _mm_unpacklo_epi32(b1, b3), _mm_unpackhi_epi32(b1, b3)};
#pragma GCC unroll 8
    for (int i = 0; i < 4; ++i) {
        Store8(dst + (2 * i) * dstPitch, c[i]);
        Store8(dst + (2 * i + 1) * dstPitch, _mm_unpackhi_epi64(c[i], c[i]));
    }
}

// A 16 x 16 tile as four 8 x 8 blocks, so that each call moves 256 bytes.
void Transpose8Tile(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch) {
    for (int by = 0; by < 16; by += 8) {
        for (int bx = 0; bx < 16; bx += 8)
            Transpose8x8(src + by * srcPitch + bx, srcPitch, dst + bx * dstPitch + by, dstPitch);
    }
}

void Transpose8_sse2(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                     int width, int height) {
    TransposeTiles<16, 1>(src, srcPitch, dst, dstPitch, width, height, Transpose8Tile,
                          Transpose8_c);
}

template <bool A>
void Transpose4x4(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch) {
    const __m128i r0 = Load<A>(src);
    const __m128i r1 = Load<A>(src + srcPitch);
    const __m128i r2 = Load<A>(src + 2 * srcPitch);
    const __m128i r3 = Load<A>(src + 3 * srcPitch);
    const __m128i t0 = _mm_unpacklo_epi32(r0, r1);
    const __m128i t1 = _mm_unpacklo_epi32(r2, r3);
    const __m128i t2 = _mm_unpackhi_epi32(r0, r1);
    const __m128i t3 = _mm_unpackhi_epi32(r2, r3);
    Store<A>(dst, _mm_unpacklo_epi64(t0, t1));
    Store<A>(dst + dstPitch, _mm_unpackhi_epi64(t0, t1));
    Store<A>(dst + 2 * dstPitch, _mm_unpacklo_epi64(t2, t3));
    Store<A>(dst + 3 * dstPitch, _mm_unpackhi_epi64(t2, t3));
}

// A 16 x 16 pixel tile as 4 x 4 blocks: each destination row of the tile is
// one whole 64-byte line.
template <bool A>
void Transpose32Tile(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch) {
    for (int by = 0; by < 16; by += 4) {
        for (int bx = 0; bx < 16; bx += 4)
            Transpose4x4<A>(src + by * srcPitch + 4 * bx, srcPitch, dst + bx * dstPitch + 4 * by,
                            dstPitch);
    }
}

void Transpose32_sse2(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                      int width, int height) {
    const bool aligned = Aligned16(src, dst) && ((srcPitch | dstPitch) & 15) == 0;
    TransposeTiles<16, 4>(src, srcPitch, dst, dstPitch, width, height,
                          aligned ? Transpose32Tile<true> : Transpose32Tile<false>, Transpose32_c);
}

inline __m128i ReverseBytes(__m128i v) {
    v = _mm_shuffle_epi32(v, _MM_SHUFFLE(0, 1, 2, 3));
    v = _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, _MM_SHUFFLE(2, 3, 0, 1)),
                            _MM_SHUFFLE(2, 3, 0, 1));
    return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}

// The source blocks sit at width - 16 - x, which alignment of the row start
// does not make aligned; only the stores follow A.
template <bool A>
int Reverse8_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16)
        Store<A>(dst + x, ReverseBytes(Load<false>(src + width - 16 - x)));
    return x;
}

template <bool A>
int Reverse32_sse2(const uint8_t* src, uint8_t* dst, int width) {
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i v = Load<false>(src + 4 * (width - 4 - x));
        Store<A>(dst + 4 * x, _mm_shuffle_epi32(v, _MM_SHUFFLE(0, 1, 2, 3)));
    }
    return x;
}

inline __m128i AbsDiff(__m128i a, __m128i b) {
    return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a));
}

// a < b per unsigned byte.
inline __m128i Below(__m128i a, __m128i b) {
    return _mm_xor_si128(_mm_cmpeq_epi8(_mm_subs_epu8(b, a), _mm_setzero_si128()),
                         _mm_set1_epi8(-1));
}

inline __m128i Select(__m128i mask, __m128i a, __m128i b) {
    return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}

// Keep s where it lies in [min(p, q), max(p, q)], else the pair's mean.
inline __m128i KeepOrMean(__m128i s, __m128i p, __m128i q) {
    const __m128i lo = _mm_min_epu8(p, q);
    const __m128i hi = _mm_max_epu8(p, q);
    const __m128i inside = _mm_and_si128(_mm_cmpeq_epi8(_mm_max_epu8(s, lo), s),
                                         _mm_cmpeq_epi8(_mm_min_epu8(s, hi), s));
    return Select(inside, s, _mm_avg_epu8(lo, hi));
}

inline __m128i Directional16(const uint8_t* above, const uint8_t* current, const uint8_t* below,
                             int x) {
    const __m128i a = Load<false>(above + x);
    const __m128i b = Load<false>(below + x);
    const __m128i am = Load<false>(above + x - 1);
    const __m128i ap = Load<false>(above + x + 1);
    const __m128i bm = Load<false>(below + x - 1);
    const __m128i bp = Load<false>(below + x + 1);
    const __m128i d0 = AbsDiff(b, a);
    const __m128i d1 = AbsDiff(bp, am);
    const __m128i d2 = AbsDiff(bm, ap);
    const __m128i first = Below(d1, d0);
    __m128i p = Select(first, bp, b);
    __m128i q = Select(first, am, a);
    const __m128i second = Below(d2, _mm_min_epu8(d0, d1));
    p = Select(second, bm, p);
    q = Select(second, ap, q);
    return KeepOrMean(Load<false>(current + x), p, q);
}

// The first 8 columns with the vertical pair, then whole directional blocks;
// the columns after them are the twin's.
template <bool A>
int DeinterlaceRow_sse2(const uint8_t* above, const uint8_t* current, const uint8_t* below,
                        uint8_t* dst, int width) {
    if (width < 8) return 0;
    Store8(dst, KeepOrMean(Load8(current), Load8(below), Load8(above)));
    const int end = DeinterlaceDirectionalEnd(width);
    int x = 8;
    for (; x < end; x += 16) Store<false>(dst + x, Directional16(above, current, below, x));
    return x;
}

}  // namespace

void InstallCopySse2(CopyKernels* k) {
    using Pair = Row<void(const uint8_t*, uint8_t*)>;
    k->copyRow = Pair::Vector<CopyRow_sse2<true>, CopyRow_sse2<false>, CopyRow_c>;
    k->transpose8 = Transpose8_sse2;
    k->transpose32 = Transpose32_sse2;
    k->reverse8 = Pair::Vector<Reverse8_sse2<true>, Reverse8_sse2<false>, Reverse8_c>;
    k->reverse32 = Pair::Vector<Reverse32_sse2<true>, Reverse32_sse2<false>, Reverse32_c>;
    k->deinterlaceRow = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*)>::Vector<
        DeinterlaceRow_sse2<true>, DeinterlaceRow_sse2<false>, DeinterlaceRow_c>;
}

}  // namespace ncb::video

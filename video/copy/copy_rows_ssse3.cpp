// The second kernels of the copy family, used by levels 1 and 2: row copies
// through the C library's memcpy (tuned for the running processor, with
// non-temporal or string stores for long rows), byte reversal with one
// pshufb, and the de-interlacer on two blocks per step. Same bytes as the
// SSE2 kernels.
#include <tmmintrin.h>

#include <cstring>

#include "video/copy/copy_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

void CopyRow_ssse3(const uint8_t* src, uint8_t* dst, int bytes) {
    if (bytes > 0) std::memcpy(dst, src, static_cast<size_t>(bytes));
}

template <bool A>
int Reverse8_ssse3(const uint8_t* src, uint8_t* dst, int width) {
    const __m128i reverse = _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    int x = 0;
    for (; x + 16 <= width; x += 16)
        Store<A>(dst + x, _mm_shuffle_epi8(Load<false>(src + width - 16 - x), reverse));
    return x;
}

inline __m128i AbsDiff(__m128i a, __m128i b) {
    return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a));
}

// All-ones where a < b (unsigned bytes): exactly where max(a, b) is not a.
inline __m128i Below(__m128i a, __m128i b) {
    return _mm_andnot_si128(_mm_cmpeq_epi8(_mm_max_epu8(a, b), a), _mm_set1_epi8(-1));
}

inline __m128i Select(__m128i mask, __m128i a, __m128i b) {
    return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}

inline __m128i KeepOrMean(__m128i s, __m128i p, __m128i q) {
    const __m128i lo = _mm_min_epu8(p, q);
    const __m128i hi = _mm_max_epu8(p, q);
    // s outside [lo, hi] exactly when clamping it moves it.
    const __m128i clamped = _mm_min_epu8(_mm_max_epu8(s, lo), hi);
    return Select(_mm_cmpeq_epi8(clamped, s), s, _mm_avg_epu8(lo, hi));
}

struct Neighbours {
    __m128i a, am, ap, b, bm, bp;
};

inline Neighbours LoadNeighbours(const uint8_t* above, const uint8_t* below, int x) {
    return {Load<false>(above + x), Load<false>(above + x - 1), Load<false>(above + x + 1),
            Load<false>(below + x), Load<false>(below + x - 1), Load<false>(below + x + 1)};
}

inline __m128i Directional(const Neighbours& n, __m128i s) {
    const __m128i d0 = AbsDiff(n.b, n.a);
    const __m128i d1 = AbsDiff(n.bp, n.am);
    const __m128i d2 = AbsDiff(n.bm, n.ap);
    const __m128i first = Below(d1, d0);
    const __m128i second = Below(d2, _mm_min_epu8(d0, d1));
    const __m128i p = Select(second, n.bm, Select(first, n.bp, n.b));
    const __m128i q = Select(second, n.ap, Select(first, n.am, n.a));
    return KeepOrMean(s, p, q);
}

template <bool A>
int DeinterlaceRow_ssse3(const uint8_t* above, const uint8_t* current, const uint8_t* below,
                         uint8_t* dst, int width) {
    if (width < 8) return 0;
    const __m128i head = KeepOrMean(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(current)),
                                    _mm_loadl_epi64(reinterpret_cast<const __m128i*>(below)),
                                    _mm_loadl_epi64(reinterpret_cast<const __m128i*>(above)));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), head);
    const int end = DeinterlaceDirectionalEnd(width);
    int x = 8;
    for (; x + 32 <= end; x += 32) {
        const Neighbours n0 = LoadNeighbours(above, below, x);
        const Neighbours n1 = LoadNeighbours(above, below, x + 16);
        const __m128i s0 = Load<false>(current + x);
        const __m128i s1 = Load<false>(current + x + 16);
        Store<false>(dst + x, Directional(n0, s0));
        Store<false>(dst + x + 16, Directional(n1, s1));
    }
    for (; x < end; x += 16)
        Store<false>(dst + x,
                     Directional(LoadNeighbours(above, below, x), Load<false>(current + x)));
    return x;
}

}  // namespace

void InstallCopySsse3(CopyKernels* k) {
    using Pair = Row<void(const uint8_t*, uint8_t*)>;
    k->copyRow = CopyRow_ssse3;
    k->reverse8 = Pair::Vector<Reverse8_ssse3<true>, Reverse8_ssse3<false>, Reverse8_c>;
    k->deinterlaceRow = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*)>::Vector<
        DeinterlaceRow_ssse3<true>, DeinterlaceRow_ssse3<false>, DeinterlaceRow_c>;
}

}  // namespace ncb::video

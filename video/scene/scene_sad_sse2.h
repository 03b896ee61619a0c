// Sums of absolute differences on 16- and 8-wide block rows, shared by the
// SSE2, SSSE3 and SSE4.1 kernel files (each compiles its own copy with its
// own instruction-set flags, so everything here has internal linkage).
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

inline bool CurrentAligned(const uint8_t* cur, ptrdiff_t curPitch) {
    return ((reinterpret_cast<uintptr_t>(cur) | static_cast<uintptr_t>(curPitch)) & 15) == 0;
}

// The two 64-bit halves of a psadbw accumulator added.
inline uint32_t SadTotal(__m128i acc) {
    return static_cast<uint32_t>(_mm_cvtsi128_si32(acc) +
                                 _mm_cvtsi128_si32(_mm_srli_si128(acc, 8)));
}

inline __m128i LoadPair8(const uint8_t* p, ptrdiff_t pitch) {
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)),
                              _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + pitch)));
}

// The current block's rows, loaded once per search call.
template <bool kAligned>
inline void LoadRows16(const uint8_t* cur, ptrdiff_t pitch, __m128i rows[16]) {
    for (int r = 0; r < 16; ++r) rows[r] = Load<kAligned>(cur + r * pitch);
}

inline void LoadRows8(const uint8_t* cur, ptrdiff_t pitch, __m128i rows[4]) {
    for (int r = 0; r < 4; ++r) rows[r] = LoadPair8(cur + 2 * r * pitch, pitch);
}

inline uint32_t Sad16(const __m128i rows[16], const uint8_t* ref, ptrdiff_t pitch) {
    __m128i acc = _mm_setzero_si128();
    for (int r = 0; r < 16; ++r)
        acc = _mm_add_epi32(acc, _mm_sad_epu8(rows[r], Load<false>(ref + r * pitch)));
    return SadTotal(acc);
}

inline uint32_t Sad8(const __m128i rows[4], const uint8_t* ref, ptrdiff_t pitch) {
    __m128i acc = _mm_setzero_si128();
    for (int r = 0; r < 4; ++r)
        acc = _mm_add_epi32(acc, _mm_sad_epu8(rows[r], LoadPair8(ref + 2 * r * pitch, pitch)));
    return SadTotal(acc);
}

// A block's sums of absolute differences against a list of candidates;
// `pick` returns the index of the first smallest.
template <int kSize, int (*kPick)(const uint32_t*, int)>
int SearchRows(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* const* refs,
               ptrdiff_t refPitch, int count, uint32_t* sads) {
    if constexpr (kSize == 16) {
        __m128i rows[16];
        if (CurrentAligned(cur, curPitch)) {
            LoadRows16<true>(cur, curPitch, rows);
        } else {
            LoadRows16<false>(cur, curPitch, rows);
        }
        for (int i = 0; i < count; ++i) sads[i] = Sad16(rows, refs[i], refPitch);
    } else {
        __m128i rows[4];
        LoadRows8(cur, curPitch, rows);
        for (int i = 0; i < count; ++i) sads[i] = Sad8(rows, refs[i], refPitch);
    }
    return kPick(sads, count);
}

}  // namespace
}  // namespace ncb::video

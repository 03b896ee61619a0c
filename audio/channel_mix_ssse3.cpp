// SSSE3 entries of the channel kernels (levels 1 and 2): interleaving of 3
// and 5 planes, which unpack sequences cannot weave, through the PSHUFB
// scatter masks of word_shuffles.h. Every other shape keeps its SSE2 entry.
#include <tmmintrin.h>

#include "audio/channel_mix.h"
#include "audio/word_shuffles.h"

namespace ncb::audio {
namespace {

__m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
__m128i Mask(const ByteMask& m) { return _mm_load_si128(reinterpret_cast<const __m128i*>(m.b)); }

__m128i Scale(__m128i v, __m128i volume) {
    const __m128i lo = _mm_mullo_epi16(v, volume);
    const __m128i hi = _mm_mulhi_epi16(v, volume);
    return _mm_packs_epi32(_mm_srai_epi32(_mm_unpacklo_epi16(lo, hi), 8),
                           _mm_srai_epi32(_mm_unpackhi_epi16(lo, hi), 8));
}

template <int N, bool kVolume>
void InterleaveN(const int16_t* const* planes, int16_t volume, int16_t* dst, int frames) {
    const __m128i vol = _mm_set1_epi16(volume);
    const int whole = frames & ~7;
    for (int i = 0; i < whole; i += 8) {
        __m128i p[N];
        for (int c = 0; c < N; ++c) {
            p[c] = Load(planes[c] + i);
            if constexpr (kVolume) p[c] = Scale(p[c], vol);
        }
        for (int j = 0; j < N; ++j) {
            __m128i out = _mm_shuffle_epi8(p[0], Mask(kWordShuffles.scatter[N][j][0]));
            for (int c = 1; c < N; ++c)
                out =
                    _mm_or_si128(out, _mm_shuffle_epi8(p[c], Mask(kWordShuffles.scatter[N][j][c])));
            Store(dst + N * i + 8 * j, out);
        }
    }
    InterleaveTail_c(planes, N, kVolume, volume, dst, whole, frames);
}

void Interleave_ssse3(const int16_t* const* planes, int n, int16_t* dst, int frames) {
    if (n == 3) return InterleaveN<3, false>(planes, 0, dst, frames);
    if (n == 5) return InterleaveN<5, false>(planes, 0, dst, frames);
    Interleave_sse2(planes, n, dst, frames);
}

void InterleaveVolume_ssse3(const int16_t* const* planes, int n, int16_t volume, int16_t* dst,
                            int frames) {
    if (n == 3) return InterleaveN<3, true>(planes, volume, dst, frames);
    if (n == 5) return InterleaveN<5, true>(planes, volume, dst, frames);
    InterleaveVolume_sse2(planes, n, volume, dst, frames);
}

}  // namespace

void FillMixKernels_ssse3(MixKernels* t) {
    t->interleave = Interleave_ssse3;
    t->interleaveVolume = InterleaveVolume_ssse3;
}

}  // namespace ncb::audio

// SSE2 entries of the channel kernels (level 0 and the base of the others).
//
// Down-mix pairs the input planes word by word and lets PMADDWD form two
// products and their sum in one step; the 32-bit lanes then add with
// wrap-around, shift and pack with saturation. Interleaving covers 2, 4 and 6
// planes with unpack sequences (6 as three pairs woven together in 32-bit
// units); 3 and 5 planes need a byte shuffle and run the twin at this level.
#include <emmintrin.h>

#include "audio/channel_mix.h"

namespace ncb::audio {
namespace {

__m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

__m128i CoefPair(int16_t a, int16_t b) {
    return _mm_set1_epi32(static_cast<int>(static_cast<uint16_t>(a) |
                                           static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16));
}

template <int N>
void DownmixN(const int16_t* const* in, const int16_t* coef, int16_t* out, int frames) {
    constexpr int kPairs = (N + 1) / 2;
    __m128i pair[kPairs];
    for (int p = 0; p < kPairs; ++p)
        pair[p] = CoefPair(coef[2 * p], 2 * p + 1 < N ? coef[2 * p + 1] : int16_t{0});
    const int whole = frames & ~7;
    for (int i = 0; i < whole; i += 8) {
        __m128i lo = _mm_setzero_si128(), hi = _mm_setzero_si128();
        for (int p = 0; p < kPairs; ++p) {
            const __m128i a = Load(in[2 * p] + i);
            const __m128i b = 2 * p + 1 < N ? Load(in[2 * p + 1] + i) : _mm_setzero_si128();
            lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(a, b), pair[p]));
            hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(a, b), pair[p]));
        }
        Store(out + i, _mm_packs_epi32(_mm_srai_epi32(lo, 14), _mm_srai_epi32(hi, 14)));
    }
    DownmixTail_c(in, coef, N, out, whole, frames);
}

void Downmix_sse2(const int16_t* const* in, const int16_t* coef, int n, int16_t* out, int frames) {
    switch (n) {
        case 1:
            return DownmixN<1>(in, coef, out, frames);
        case 2:
            return DownmixN<2>(in, coef, out, frames);
        case 3:
            return DownmixN<3>(in, coef, out, frames);
        case 4:
            return DownmixN<4>(in, coef, out, frames);
        case 5:
            return DownmixN<5>(in, coef, out, frames);
        default:
            return Downmix_c(in, coef, n, out, frames);
    }
}

// saturate((v x volume) >> 8) per word.
__m128i Scale(__m128i v, __m128i volume) {
    const __m128i lo = _mm_mullo_epi16(v, volume);
    const __m128i hi = _mm_mulhi_epi16(v, volume);
    return _mm_packs_epi32(_mm_srai_epi32(_mm_unpacklo_epi16(lo, hi), 8),
                           _mm_srai_epi32(_mm_unpackhi_epi16(lo, hi), 8));
}

__m128 AsPs(__m128i v) { return _mm_castsi128_ps(v); }
__m128i AsSi(__m128 v) { return _mm_castps_si128(v); }

// Three vectors of 32-bit units A, B, C to A0 B0 C0 A1 | B1 C1 A2 B2 | C2 A3 B3 C3.
void Weave3(__m128i a, __m128i b, __m128i c, __m128i* out) {
    const __m128i abLo = _mm_unpacklo_epi32(a, b), abHi = _mm_unpackhi_epi32(a, b);
    const __m128i bcLo = _mm_unpacklo_epi32(b, c), bcHi = _mm_unpackhi_epi32(b, c);
    const __m128i caLo = _mm_unpacklo_epi32(c, a), caHi = _mm_unpackhi_epi32(c, a);
    out[0] = AsSi(_mm_shuffle_ps(AsPs(abLo), AsPs(caLo), _MM_SHUFFLE(3, 0, 1, 0)));
    out[1] = AsSi(_mm_shuffle_ps(AsPs(bcLo), AsPs(abHi), _MM_SHUFFLE(1, 0, 3, 2)));
    out[2] = AsSi(_mm_shuffle_ps(AsPs(caHi), AsPs(bcHi), _MM_SHUFFLE(3, 2, 3, 0)));
}

// Eight frames: N plane vectors to N interleaved vectors.
template <int N>
void Interleave8(const __m128i* p, __m128i* out) {
    if constexpr (N == 1) {
        out[0] = p[0];
    } else if constexpr (N == 2) {
        out[0] = _mm_unpacklo_epi16(p[0], p[1]);
        out[1] = _mm_unpackhi_epi16(p[0], p[1]);
    } else if constexpr (N == 4) {
        const __m128i abLo = _mm_unpacklo_epi16(p[0], p[1]), abHi = _mm_unpackhi_epi16(p[0], p[1]);
        const __m128i cdLo = _mm_unpacklo_epi16(p[2], p[3]), cdHi = _mm_unpackhi_epi16(p[2], p[3]);
        out[0] = _mm_unpacklo_epi32(abLo, cdLo);
        out[1] = _mm_unpackhi_epi32(abLo, cdLo);
        out[2] = _mm_unpacklo_epi32(abHi, cdHi);
        out[3] = _mm_unpackhi_epi32(abHi, cdHi);
    } else {
        static_assert(N == 6);
        Weave3(_mm_unpacklo_epi16(p[0], p[1]), _mm_unpacklo_epi16(p[2], p[3]),
               _mm_unpacklo_epi16(p[4], p[5]), out);
        Weave3(_mm_unpackhi_epi16(p[0], p[1]), _mm_unpackhi_epi16(p[2], p[3]),
               _mm_unpackhi_epi16(p[4], p[5]), out + 3);
    }
}

template <int N, bool kVolume>
void InterleaveN(const int16_t* const* planes, int16_t volume, int16_t* dst, int frames) {
    const __m128i vol = _mm_set1_epi16(volume);
    const int whole = frames & ~7;
    for (int i = 0; i < whole; i += 8) {
        __m128i p[N], out[N];
        for (int c = 0; c < N; ++c) {
            p[c] = Load(planes[c] + i);
            if constexpr (kVolume) p[c] = Scale(p[c], vol);
        }
        Interleave8<N>(p, out);
        for (int j = 0; j < N; ++j) Store(dst + N * i + 8 * j, out[j]);
    }
    InterleaveTail_c(planes, N, kVolume, volume, dst, whole, frames);
}

template <bool kVolume>
void InterleaveAny(const int16_t* const* planes, int n, int16_t volume, int16_t* dst, int frames) {
    switch (n) {
        case 1:
            if constexpr (kVolume) return InterleaveN<1, true>(planes, volume, dst, frames);
            break;
        case 2:
            return InterleaveN<2, kVolume>(planes, volume, dst, frames);
        case 4:
            return InterleaveN<4, kVolume>(planes, volume, dst, frames);
        case 6:
            return InterleaveN<6, kVolume>(planes, volume, dst, frames);
        default:
            break;
    }
    InterleaveTail_c(planes, n, kVolume, volume, dst, 0, frames);
}

// Copies the chosen word of every 32-bit frame to both of its words.
template <bool kVolume>
void Mux2Any(const int16_t* src, int channel, int16_t volume, int16_t* dst, int frames) {
    const __m128i vol = _mm_set1_epi16(volume);
    const int whole = frames & ~7;
    for (int i = 0; i < whole; i += 4) {
        __m128i v = Load(src + 2 * i);
        if constexpr (kVolume) v = Scale(v, vol);
        v = channel == 0 ? _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, _MM_SHUFFLE(2, 2, 0, 0)),
                                               _MM_SHUFFLE(2, 2, 0, 0))
                         : _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, _MM_SHUFFLE(3, 3, 1, 1)),
                                               _MM_SHUFFLE(3, 3, 1, 1));
        Store(dst + 2 * i, v);
    }
    if constexpr (kVolume) {
        Mux2Volume_c(src + 2 * whole, channel, volume, dst + 2 * whole, frames - whole);
    } else {
        Mux2_c(src + 2 * whole, channel, dst + 2 * whole, frames - whole);
    }
}

void Mux2_sse2(const int16_t* src, int channel, int16_t* dst, int frames) {
    Mux2Any<false>(src, channel, 0, dst, frames);
}

void Mux2Volume_sse2(const int16_t* src, int channel, int16_t volume, int16_t* dst, int frames) {
    Mux2Any<true>(src, channel, volume, dst, frames);
}

}  // namespace

void Interleave_sse2(const int16_t* const* planes, int n, int16_t* dst, int frames) {
    InterleaveAny<false>(planes, n, 0, dst, frames);
}

void InterleaveVolume_sse2(const int16_t* const* planes, int n, int16_t volume, int16_t* dst,
                           int frames) {
    InterleaveAny<true>(planes, n, volume, dst, frames);
}

void FillMixKernels_sse2(MixKernels* t) {
    t->downmix = Downmix_sse2;
    t->interleave = Interleave_sse2;
    t->interleaveVolume = InterleaveVolume_sse2;
    t->mux2 = Mux2_sse2;
    t->mux2Volume = Mux2Volume_sse2;
}

}  // namespace ncb::audio

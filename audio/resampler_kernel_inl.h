// The resampler's block kernel as a template over how four (mono) or eight
// (stereo) 16-bit samples become floats, shared by the SSE2 and SSE4.1
// translation units. Internal linkage on purpose: each unit compiles its own
// copy with its own instruction set, so no higher-level code can be merged
// into a lower level's kernel.
//
// Mono runs four outputs at a time, each with four partial sums (taps j mod 4
// in the lanes), transposed so the four totals (s0 + s1) + (s2 + s3) come out
// in one vector. Stereo keeps the two channels of a frame side by side and
// splits taps over two accumulators, which gives each channel the same four
// partial sums and the same final order. N is a multiple of 4, so every load
// is a whole group of taps; nothing is read past the last tap.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace ncb::audio {
namespace {

__m128i RoundSaturate(__m128 v) {
    v = _mm_min_ps(_mm_max_ps(v, _mm_set1_ps(-32768.0f)), _mm_set1_ps(32767.0f));
    return _mm_cvtps_epi32(v);
}

template <typename Widen>
void ResampleMono(const int16_t* base, int16_t* out, const int32_t* steps, const float* coefs,
                  int L, int N) {
    const uint8_t* pos = reinterpret_cast<const uint8_t*>(base);
    for (int p = 0; p < L; p += 4) {
        __m128 acc[4];
        for (int q = 0; q < 4; ++q) {
            pos += steps[p + q];
            const int16_t* s = reinterpret_cast<const int16_t*>(pos);
            const float* k = coefs + static_cast<ptrdiff_t>(p + q) * N;
            __m128 a = _mm_setzero_ps();
            for (int j = 0; j < N; j += 4)
                a = _mm_add_ps(a, _mm_mul_ps(_mm_loadu_ps(k + j), Widen::Four(s + j)));
            acc[q] = a;
        }
        _MM_TRANSPOSE4_PS(acc[0], acc[1], acc[2], acc[3]);
        const __m128 sum = _mm_add_ps(_mm_add_ps(acc[0], acc[1]), _mm_add_ps(acc[2], acc[3]));
        const __m128i r = RoundSaturate(sum);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + p), _mm_packs_epi32(r, r));
    }
}

// One stereo frame: left in lane 0, right in lane 1.
template <typename Widen>
__m128 StereoFrame(const int16_t* s, const float* k, int N) {
    __m128 a = _mm_setzero_ps(), b = _mm_setzero_ps();
    for (int j = 0; j < N; j += 4) {
        const __m128 taps = _mm_loadu_ps(k + j);
        __m128 lo, hi;
        Widen::Eight(s + 2 * j, &lo, &hi);
        a = _mm_add_ps(a, _mm_mul_ps(_mm_unpacklo_ps(taps, taps), lo));
        b = _mm_add_ps(b, _mm_mul_ps(_mm_unpackhi_ps(taps, taps), hi));
    }
    return _mm_add_ps(_mm_add_ps(a, _mm_movehl_ps(a, a)), _mm_add_ps(b, _mm_movehl_ps(b, b)));
}

template <typename Widen>
void ResampleStereo(const int16_t* base, int16_t* out, const int32_t* steps, const float* coefs,
                    int L, int N) {
    const uint8_t* pos = reinterpret_cast<const uint8_t*>(base);
    for (int p = 0; p < L; p += 4) {
        __m128 f[4];
        for (int q = 0; q < 4; ++q) {
            pos += steps[p + q];
            f[q] = StereoFrame<Widen>(reinterpret_cast<const int16_t*>(pos),
                                      coefs + static_cast<ptrdiff_t>(p + q) * N, N);
        }
        const __m128i lo = RoundSaturate(_mm_movelh_ps(f[0], f[1]));
        const __m128i hi = RoundSaturate(_mm_movelh_ps(f[2], f[3]));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * p), _mm_packs_epi32(lo, hi));
    }
}

template <typename Widen>
void ResampleBlock(const int16_t* base, int16_t* out, const int32_t* steps, const float* coefs,
                   int L, int N, int channels) {
    if (channels == 2) {
        ResampleStereo<Widen>(base, out, steps, coefs, L, N);
    } else {
        ResampleMono<Widen>(base, out, steps, coefs, L, N);
    }
}

}  // namespace
}  // namespace ncb::audio

// SSE2 block kernel of the equalizer. One vector holds four bands, so a
// channel's twelve slots are three vectors that stay in registers for the
// whole call; frames run one after another (each depends on the last), four
// to a block so that the conversion to 16 bits rounds four results at once.
// The arithmetic is the per-frame filter's, operation for operation.
#include <emmintrin.h>

#include "audio/equalizer.h"

namespace ncb::audio {
namespace {

struct Channel {
    __m128 y1[3], y2[3];
    float x1, x2;
};

struct Coefficients {
    __m128 alpha[3], beta[3], gamma[3], gain[3];
};

void LoadChannel(uint8_t* state, int c, Channel* ch) {
    const EqualizerBandHistory* yh = EqBandHistory(state, c);
    for (int g = 0; g < 3; ++g) {
        ch->y1[g] = _mm_loadu_ps(yh->y1 + 4 * g);
        ch->y2[g] = _mm_loadu_ps(yh->y2 + 4 * g);
    }
    ch->x1 = EqInputHistory(state, c)->x1;
    ch->x2 = EqInputHistory(state, c)->x2;
}

void StoreChannel(uint8_t* state, int c, const Channel& ch) {
    EqualizerBandHistory* yh = EqBandHistory(state, c);
    for (int g = 0; g < 3; ++g) {
        _mm_storeu_ps(yh->y1 + 4 * g, ch.y1[g]);
        _mm_storeu_ps(yh->y2 + 4 * g, ch.y2[g]);
    }
    EqInputHistory(state, c)->x1 = ch.x1;
    EqInputHistory(state, c)->x2 = ch.x2;
}

// One frame of one channel; the result in lane 0.
__m128 Frame(const Coefficients& k, Channel* ch, float x) {
    const __m128 xs = _mm_set_ss(x);
    const __m128 dx = _mm_set1_ps(x - ch->x2);
    __m128 acc = _mm_setzero_ps();
    for (int g = 0; g < 3; ++g) {
        const __m128 y =
            _mm_sub_ps(_mm_add_ps(_mm_mul_ps(k.alpha[g], dx), _mm_mul_ps(k.gamma[g], ch->y1[g])),
                       _mm_mul_ps(k.beta[g], ch->y2[g]));
        ch->y2[g] = ch->y1[g];
        ch->y1[g] = y;
        const __m128 weighted = _mm_mul_ps(k.gain[g], y);
        acc = g == 0 ? weighted : _mm_add_ps(acc, weighted);
    }
    const __m128 pairs = _mm_add_ps(acc, _mm_movehl_ps(acc, acc));
    const __m128 sum = _mm_add_ss(pairs, _mm_shuffle_ps(pairs, pairs, _MM_SHUFFLE(1, 1, 1, 1)));
    ch->x2 = ch->x1;
    ch->x1 = x;
    return _mm_add_ss(_mm_mul_ss(_mm_set_ss(0.25f), xs), sum);
}

__m128i RoundSaturate(__m128 v) {
    v = _mm_min_ps(_mm_max_ps(v, _mm_set1_ps(-32768.0f)), _mm_set1_ps(32767.0f));
    return _mm_cvtps_epi32(v);
}

// Four frame results (lane 0 of each) into one vector.
__m128 Gather(__m128 a, __m128 b, __m128 c, __m128 d) {
    return _mm_movelh_ps(_mm_unpacklo_ps(a, b), _mm_unpacklo_ps(c, d));
}

void EqualizerBlocks_sse2(const int16_t* input, int16_t* output, int frames, uint8_t* state) {
    const EqualizerHeader& h = *EqHeader(state);
    Coefficients k;
    for (int g = 0; g < 3; ++g) {
        k.alpha[g] = _mm_loadu_ps(h.alpha + 4 * g);
        k.beta[g] = _mm_loadu_ps(h.beta + 4 * g);
        k.gamma[g] = _mm_loadu_ps(h.gamma + 4 * g);
        k.gain[g] = _mm_loadu_ps(h.gain + 4 * g);
    }
    if (!h.stereo) {
        Channel ch;
        LoadChannel(state, 0, &ch);
        for (int f = 0; f < frames; f += 4) {
            const __m128 r0 = Frame(k, &ch, input[f]);
            const __m128 r1 = Frame(k, &ch, input[f + 1]);
            const __m128 r2 = Frame(k, &ch, input[f + 2]);
            const __m128 r3 = Frame(k, &ch, input[f + 3]);
            const __m128i v = RoundSaturate(Gather(r0, r1, r2, r3));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(output + f), _mm_packs_epi32(v, v));
        }
        StoreChannel(state, 0, ch);
        return;
    }
    Channel left, right;
    LoadChannel(state, 0, &left);
    LoadChannel(state, 1, &right);
    for (int f = 0; f < frames; f += 4) {
        const int16_t* in = input + 2 * f;
        __m128 r[8];
        for (int j = 0; j < 4; ++j) {
            r[2 * j] = Frame(k, &left, in[2 * j]);
            r[2 * j + 1] = Frame(k, &right, in[2 * j + 1]);
        }
        const __m128i lo = RoundSaturate(Gather(r[0], r[1], r[2], r[3]));
        const __m128i hi = RoundSaturate(Gather(r[4], r[5], r[6], r[7]));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(output + 2 * f), _mm_packs_epi32(lo, hi));
    }
    StoreChannel(state, 0, left);
    StoreChannel(state, 1, right);
}

}  // namespace

void FillEqualizerKernels_sse2(EqualizerKernels* t) { t->filterBlocks = EqualizerBlocks_sse2; }

}  // namespace ncb::audio

// SSE2 entries of the sample kernels (level 0 and the base of the others).
//
// Widening 24-bit samples without a byte shuffle: each group of four samples
// is twelve bytes; shifting the loaded vector right by 1 + k + (its offset)
// bytes brings sample k's upper two bytes to word k, and a word mask keeps
// just that word. De-interleaving covers 2 and 4 channels with unpack
// sequences; 3, 5 and 6 channels need the byte shuffle of SSSE3 and run the
// scalar twin at this level.
#include <emmintrin.h>

#include "audio/sample_kernels.h"

namespace ncb::audio {
namespace {

__m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

void Widen8_sse2(const uint8_t* src, int16_t* dst, int count) {
    const int whole = count & ~15;
    const __m128i zero = _mm_setzero_si128();
    for (int i = 0; i < whole; i += 16) {
        const __m128i v = Load(src + i);
        Store(dst + i, _mm_unpacklo_epi8(zero, v));
        Store(dst + i + 8, _mm_unpackhi_epi8(zero, v));
    }
    Widen8_c(src + whole, dst + whole, count - whole);
}

// Four samples whose twelve bytes start `kOffset` bytes into v, to words 0-3.
template <int kOffset>
__m128i Gather4(__m128i v) {
    const __m128i w0 =
        _mm_and_si128(_mm_srli_si128(v, kOffset + 1), _mm_set_epi32(0, 0, 0, 0xFFFF));
    const __m128i w1 = _mm_and_si128(_mm_srli_si128(v, kOffset + 2),
                                     _mm_set_epi32(0, 0, 0, static_cast<int>(0xFFFF0000u)));
    const __m128i w2 =
        _mm_and_si128(_mm_srli_si128(v, kOffset + 3), _mm_set_epi32(0, 0, 0xFFFF, 0));
    const __m128i w3 = _mm_and_si128(_mm_srli_si128(v, kOffset + 4),
                                     _mm_set_epi32(0, 0, static_cast<int>(0xFFFF0000u), 0));
    return _mm_or_si128(_mm_or_si128(w0, w1), _mm_or_si128(w2, w3));
}

// Sixteen 24-bit samples (48 bytes, read exactly) to two vectors of words.
void Widen24x16(const uint8_t* p, __m128i* lo, __m128i* hi) {
    const __m128i g0 = Gather4<0>(Load(p));
    const __m128i g1 = Gather4<0>(Load(p + 12));
    const __m128i g2 = Gather4<0>(Load(p + 24));
    const __m128i g3 = Gather4<4>(Load(p + 32));  // the last load ends at byte 48
    *lo = _mm_unpacklo_epi64(g0, g1);
    *hi = _mm_unpacklo_epi64(g2, g3);
}

void Widen24_sse2(const uint8_t* src, int16_t* dst, int count) {
    const int whole = count & ~15;
    for (int i = 0; i < whole; i += 16) {
        __m128i lo, hi;
        Widen24x16(src + 3 * i, &lo, &hi);
        Store(dst + i, lo);
        Store(dst + i + 8, hi);
    }
    Widen24_c(src + 3 * whole, dst + whole, count - whole);
}

// Eight interleaved frames (N vectors of words) to N plane vectors.
template <int N>
void Deinterleave8(const __m128i* in, __m128i* out);

template <>
void Deinterleave8<2>(const __m128i* in, __m128i* out) {
    out[0] = _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(in[0], 16), 16),
                             _mm_srai_epi32(_mm_slli_epi32(in[1], 16), 16));
    out[1] = _mm_packs_epi32(_mm_srai_epi32(in[0], 16), _mm_srai_epi32(in[1], 16));
}

template <>
void Deinterleave8<4>(const __m128i* in, __m128i* out) {
    const __m128i t0 = _mm_unpacklo_epi16(in[0], in[1]);
    const __m128i t1 = _mm_unpackhi_epi16(in[0], in[1]);
    const __m128i t2 = _mm_unpacklo_epi16(in[2], in[3]);
    const __m128i t3 = _mm_unpackhi_epi16(in[2], in[3]);
    const __m128i u0 = _mm_unpacklo_epi16(t0, t1);
    const __m128i u1 = _mm_unpackhi_epi16(t0, t1);
    const __m128i u2 = _mm_unpacklo_epi16(t2, t3);
    const __m128i u3 = _mm_unpackhi_epi16(t2, t3);
    out[0] = _mm_unpacklo_epi64(u0, u2);
    out[1] = _mm_unpackhi_epi64(u0, u2);
    out[2] = _mm_unpacklo_epi64(u1, u3);
    out[3] = _mm_unpackhi_epi64(u1, u3);
}

// Sixteen frames of N channels widened to 2N word vectors in interleaved order.
template <int kBytes, int N>
void Widen16Frames(const uint8_t* p, __m128i* words) {
    if constexpr (kBytes == 1) {
        const __m128i zero = _mm_setzero_si128();
        for (int i = 0; i < N; ++i) {
            const __m128i v = Load(p + 16 * i);
            words[2 * i] = _mm_unpacklo_epi8(zero, v);
            words[2 * i + 1] = _mm_unpackhi_epi8(zero, v);
        }
    } else {
        for (int i = 0; i < N; ++i) Widen24x16(p + 48 * i, &words[2 * i], &words[2 * i + 1]);
    }
}

template <int kBytes, int N>
void DemuxN(const uint8_t* src, int16_t* dst, int frames) {
    const int whole = frames & ~15;
    for (int f = 0; f < whole; f += 16) {
        __m128i words[2 * N], planes[2 * N];
        Widen16Frames<kBytes, N>(src + f * N * kBytes, words);
        Deinterleave8<N>(words, planes);
        Deinterleave8<N>(words + N, planes + N);
        for (int c = 0; c < N; ++c) {
            Store(dst + c * frames + f, planes[c]);
            Store(dst + c * frames + f + 8, planes[N + c]);
        }
    }
    DemuxFrames_c(src, kBytes, N, dst, frames, whole, frames - whole);
}

template <int kBytes>
void Demux_sse2(const uint8_t* src, int16_t* dst, int frames, int channels) {
    switch (channels) {
        case 2:
            return DemuxN<kBytes, 2>(src, dst, frames);
        case 4:
            return DemuxN<kBytes, 4>(src, dst, frames);
        default:
            return DemuxFrames_c(src, kBytes, channels, dst, frames, 0, frames);
    }
}

__m128i Abs16_sse2(__m128i v) { return _mm_max_epi16(v, _mm_sub_epi16(_mm_setzero_si128(), v)); }

int16_t HorizontalMax(__m128i v) {
    v = _mm_max_epi16(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
    v = _mm_max_epi16(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
    v = _mm_max_epi16(v, _mm_shufflelo_epi16(v, _MM_SHUFFLE(2, 3, 0, 1)));
    return static_cast<int16_t>(_mm_cvtsi128_si32(v));
}

int16_t MaxAbs_sse2(const int16_t* src, int count, int16_t previous) {
    const int whole = count & ~15;
    __m128i peak = _mm_set1_epi16(previous);
    for (int i = 0; i < whole; i += 16) {
        peak = _mm_max_epi16(peak, Abs16_sse2(Load(src + i)));
        peak = _mm_max_epi16(peak, Abs16_sse2(Load(src + i + 8)));
    }
    return MaxAbs_c(src + whole, count - whole, HorizontalMax(peak));
}

void MaxAbsStereo_sse2(const int16_t* src, int frames, int16_t* left, int16_t* right) {
    const int whole = frames & ~7;
    __m128i peak = _mm_set1_epi32(static_cast<int>(
        static_cast<uint16_t>(*left) | static_cast<uint32_t>(static_cast<uint16_t>(*right)) << 16));
    for (int i = 0; i < whole; i += 8) {
        peak = _mm_max_epi16(peak, Abs16_sse2(Load(src + 2 * i)));
        peak = _mm_max_epi16(peak, Abs16_sse2(Load(src + 2 * i + 8)));
    }
    peak = _mm_max_epi16(peak, _mm_shuffle_epi32(peak, _MM_SHUFFLE(1, 0, 3, 2)));
    peak = _mm_max_epi16(peak, _mm_shuffle_epi32(peak, _MM_SHUFFLE(2, 3, 0, 1)));
    const uint32_t pair = static_cast<uint32_t>(_mm_cvtsi128_si32(peak));
    *left = static_cast<int16_t>(pair & 0xFFFF);
    *right = static_cast<int16_t>(pair >> 16);
    MaxAbsStereo_c(src + 2 * whole, frames - whole, left, right);
}

}  // namespace

void FillSampleKernels_sse2(SampleKernels* t) {
    t->widen8 = Widen8_sse2;
    t->widen24 = Widen24_sse2;
    t->demux8 = Demux_sse2<1>;
    t->demux24 = Demux_sse2<3>;
    t->maxAbs = MaxAbs_sse2;
    t->maxAbsStereo = MaxAbsStereo_sse2;
}

}  // namespace ncb::audio

// SSSE3 entries of the sample kernels (levels 1 and 2): PSHUFB picks the
// upper bytes of 24-bit samples directly, de-interleaves every channel count
// from 2 to 6 through the mask tables of word_shuffles.h, and PABSW forms the
// peaks' absolute values (0x8000 stays 0x8000, as in the twins).
#include <tmmintrin.h>

#include "audio/sample_kernels.h"
#include "audio/word_shuffles.h"

namespace ncb::audio {
namespace {

__m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
__m128i Mask(const ByteMask& m) { return _mm_load_si128(reinterpret_cast<const __m128i*>(m.b)); }

void Widen24x16(const uint8_t* p, __m128i* lo, __m128i* hi) {
    const auto& m = kWordShuffles.widen24;
    const __m128i v0 = Load(p), v1 = Load(p + 16), v2 = Load(p + 32);
    *lo = _mm_or_si128(_mm_shuffle_epi8(v0, Mask(m[0][0])), _mm_shuffle_epi8(v1, Mask(m[0][1])));
    *hi = _mm_or_si128(_mm_shuffle_epi8(v1, Mask(m[1][1])), _mm_shuffle_epi8(v2, Mask(m[1][2])));
}

void Widen24_ssse3(const uint8_t* src, int16_t* dst, int count) {
    const int whole = count & ~15;
    for (int i = 0; i < whole; i += 16) {
        __m128i lo, hi;
        Widen24x16(src + 3 * i, &lo, &hi);
        Store(dst + i, lo);
        Store(dst + i + 8, hi);
    }
    Widen24_c(src + 3 * whole, dst + whole, count - whole);
}

template <int N>
void Deinterleave8(const __m128i* in, __m128i* out) {
    for (int c = 0; c < N; ++c) {
        __m128i plane = _mm_shuffle_epi8(in[0], Mask(kWordShuffles.gather[N][c][0]));
        for (int j = 1; j < N; ++j)
            plane =
                _mm_or_si128(plane, _mm_shuffle_epi8(in[j], Mask(kWordShuffles.gather[N][c][j])));
        out[c] = plane;
    }
}

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
void Demux_ssse3(const uint8_t* src, int16_t* dst, int frames, int channels) {
    switch (channels) {
        case 2:
            return DemuxN<kBytes, 2>(src, dst, frames);
        case 3:
            return DemuxN<kBytes, 3>(src, dst, frames);
        case 4:
            return DemuxN<kBytes, 4>(src, dst, frames);
        case 5:
            return DemuxN<kBytes, 5>(src, dst, frames);
        case 6:
            return DemuxN<kBytes, 6>(src, dst, frames);
        default:
            return DemuxFrames_c(src, kBytes, channels, dst, frames, 0, frames);
    }
}

int16_t MaxAbs_ssse3(const int16_t* src, int count, int16_t previous) {
    const int whole = count & ~15;
    __m128i peak = _mm_set1_epi16(previous);
    for (int i = 0; i < whole; i += 16) {
        peak = _mm_max_epi16(peak, _mm_abs_epi16(Load(src + i)));
        peak = _mm_max_epi16(peak, _mm_abs_epi16(Load(src + i + 8)));
    }
    peak = _mm_max_epi16(peak, _mm_shuffle_epi32(peak, _MM_SHUFFLE(1, 0, 3, 2)));
    peak = _mm_max_epi16(peak, _mm_shuffle_epi32(peak, _MM_SHUFFLE(2, 3, 0, 1)));
    peak = _mm_max_epi16(peak, _mm_shufflelo_epi16(peak, _MM_SHUFFLE(2, 3, 0, 1)));
    return MaxAbs_c(src + whole, count - whole, static_cast<int16_t>(_mm_cvtsi128_si32(peak)));
}

void MaxAbsStereo_ssse3(const int16_t* src, int frames, int16_t* left, int16_t* right) {
    const int whole = frames & ~7;
    const uint32_t start =
        static_cast<uint16_t>(*left) | static_cast<uint32_t>(static_cast<uint16_t>(*right)) << 16;
    __m128i peak = _mm_set1_epi32(static_cast<int>(start));
    for (int i = 0; i < whole; i += 8) {
        peak = _mm_max_epi16(peak, _mm_abs_epi16(Load(src + 2 * i)));
        peak = _mm_max_epi16(peak, _mm_abs_epi16(Load(src + 2 * i + 8)));
    }
    peak = _mm_max_epi16(peak, _mm_shuffle_epi32(peak, _MM_SHUFFLE(1, 0, 3, 2)));
    peak = _mm_max_epi16(peak, _mm_shuffle_epi32(peak, _MM_SHUFFLE(2, 3, 0, 1)));
    const uint32_t pair = static_cast<uint32_t>(_mm_cvtsi128_si32(peak));
    *left = static_cast<int16_t>(pair & 0xFFFF);
    *right = static_cast<int16_t>(pair >> 16);
    MaxAbsStereo_c(src + 2 * whole, frames - whole, left, right);
}

}  // namespace

void FillSampleKernels_ssse3(SampleKernels* t) {
    t->widen24 = Widen24_ssse3;
    t->demux8 = Demux_ssse3<1>;
    t->demux24 = Demux_ssse3<3>;
    t->maxAbs = MaxAbs_ssse3;
    t->maxAbsStereo = MaxAbsStereo_ssse3;
}

}  // namespace ncb::audio

// Channel kernels: fixed-point down-mix of up to five planes into one, and
// interleaving of up to six planes into the device layout with an optional
// volume factor, one table per processor level (kernel_levels.h).
//
// Arithmetic shared by the twins and every vector entry: products and sums in
// 32-bit two's complement (a five-term sum of extreme values wraps, as the
// vector multiply-add does), arithmetic right shifts without a rounding
// constant (>> 14 for Q14 coefficients, >> 8 for Q8 volumes), saturation to
// -32768..32767. Vector entries run 8 frames a step with unaligned loads and
// hand the remainder to the twins.
#pragma once

#include <algorithm>
#include <cstdint>

namespace ncb::audio {

inline constexpr int kMaxDownmixInputs = 5;
inline constexpr int kMaxInterleavePlanes = 6;

struct MixKernels {
    // out[i] = saturate((in[0][i] x coef[0] + ... ) >> 14), n = 1..5.
    void (*downmix)(const int16_t* const* in, const int16_t* coef, int n, int16_t* out, int frames);
    // dst[n x i + c] = planes[c][i], n = 2..6.
    void (*interleave)(const int16_t* const* planes, int n, int16_t* dst, int frames);
    // The same with saturate((sample x volume) >> 8), n = 1..6.
    void (*interleaveVolume)(const int16_t* const* planes, int n, int16_t volume, int16_t* dst,
                             int frames);
    // Interleaved stereo in; channel 0 or 1 goes to both outputs.
    void (*mux2)(const int16_t* src, int channel, int16_t* dst, int frames);
    void (*mux2Volume)(const int16_t* src, int channel, int16_t volume, int16_t* dst, int frames);
};

const MixKernels& GetMixKernels(int level);

inline int16_t Saturate16(int32_t v) {
    return static_cast<int16_t>(std::clamp(v, int32_t{-32768}, int32_t{32767}));
}
inline int16_t ApplyVolume(int16_t sample, int16_t volume) {
    return Saturate16((int32_t{sample} * volume) >> 8);
}

void Downmix_c(const int16_t* const* in, const int16_t* coef, int n, int16_t* out, int frames);
void Interleave_c(const int16_t* const* planes, int n, int16_t* dst, int frames);
void InterleaveVolume_c(const int16_t* const* planes, int n, int16_t volume, int16_t* dst,
                        int frames);
void Mux2_c(const int16_t* src, int channel, int16_t* dst, int frames);
void Mux2Volume_c(const int16_t* src, int channel, int16_t volume, int16_t* dst, int frames);

// Frames [first, frames) through the twins, for the vector entries' remainder.
void DownmixTail_c(const int16_t* const* in, const int16_t* coef, int n, int16_t* out, int first,
                   int frames);
void InterleaveTail_c(const int16_t* const* planes, int n, bool volume, int16_t volumeFactor,
                      int16_t* dst, int first, int frames);

// The SSE2 interleaving entries, which the SSSE3 ones fall back on for the
// plane counts that unpack sequences already serve best.
void Interleave_sse2(const int16_t* const* planes, int n, int16_t* dst, int frames);
void InterleaveVolume_sse2(const int16_t* const* planes, int n, int16_t volume, int16_t* dst,
                           int frames);

void FillMixKernels_sse2(MixKernels* table);
void FillMixKernels_ssse3(MixKernels* table);

}  // namespace ncb::audio

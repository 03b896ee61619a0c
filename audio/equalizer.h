// Layout of the equalizer state and its kernel table.
//
// The state lives in the caller's CNCodecBuffer, 16-byte aligned:
//   0x00  band count, stereo flag, the processor level Init was given, spare
//   0x10  alpha[12], beta[12], gamma[12], gain[12]  (structure of arrays, so
//         one vector holds four bands)
//   0xD0  per channel: x[n-1], x[n-2] and six spare floats        (0x20 each)
//   then  per channel: y[n-1][12], y[n-2][12]                      (0x60 each)
// 336 bytes mono, 464 stereo. Unused band slots keep zero coefficients and
// gains, so every kernel may run all twelve slots.
//
// Summation order (shared by the block kernels and the per-frame filter, so
// a frame gives the same float whichever path runs it): lane l of the four
// lanes sums g[l] y[l] + g[l+4] y[l+4] + g[l+8] y[l+8] in that order; the
// lanes add as (l0 + l2) + (l1 + l3); 0.25 x comes first:
// out = 0.25 x + lanes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ncb::audio {

inline constexpr int kEqualizerSlots = 12;

struct EqualizerHeader {
    int32_t bandCount;
    int32_t stereo;
    int32_t level;
    int32_t spare;
    float alpha[kEqualizerSlots];
    float beta[kEqualizerSlots];
    float gamma[kEqualizerSlots];
    float gain[kEqualizerSlots];
};
static_assert(sizeof(EqualizerHeader) == 0xD0);

struct EqualizerInputHistory {
    float x1, x2;
    float spare[6];
};
static_assert(sizeof(EqualizerInputHistory) == 0x20);

struct EqualizerBandHistory {
    float y1[kEqualizerSlots];
    float y2[kEqualizerSlots];
};
static_assert(sizeof(EqualizerBandHistory) == 0x60);

inline int EqualizerStateBytes(int stereo) {
    const int channels = stereo ? 2 : 1;
    return static_cast<int>(sizeof(EqualizerHeader)) +
           channels *
               static_cast<int>(sizeof(EqualizerInputHistory) + sizeof(EqualizerBandHistory));
}

// Views of a state's memory; `state` is its start.
inline EqualizerHeader* EqHeader(uint8_t* state) {
    return reinterpret_cast<EqualizerHeader*>(state);
}
inline EqualizerInputHistory* EqInputHistory(uint8_t* state, int channel) {
    return reinterpret_cast<EqualizerInputHistory*>(state + sizeof(EqualizerHeader)) + channel;
}
inline EqualizerBandHistory* EqBandHistory(uint8_t* state, int channel) {
    const int channels = EqHeader(state)->stereo ? 2 : 1;
    return reinterpret_cast<EqualizerBandHistory*>(state + sizeof(EqualizerHeader) +
                                                   channels * sizeof(EqualizerInputHistory)) +
           channel;
}

struct EqualizerKernels {
    // Whole blocks of 4 frames (frames a multiple of 4), rounded to nearest
    // with saturation. In place allowed (output == input).
    void (*filterBlocks)(const int16_t* input, int16_t* output, int frames, uint8_t* state);
};

const EqualizerKernels& GetEqualizerKernels(int level);

// Scalar twin of filterBlocks.
void EqualizerBlocks_c(const int16_t* input, int16_t* output, int frames, uint8_t* state);
// One frame of one channel: runs every band, updates the histories and
// returns 0.25 x + the weighted band outputs.
float EqualizerFrame_c(const EqualizerHeader& h, EqualizerInputHistory* xh,
                       EqualizerBandHistory* yh, float x);
// Round to nearest (ties to even) after clamping to the 16-bit range, as the
// vector conversion does it.
int16_t RoundSaturate16(float v);

void FillEqualizerKernels_sse2(EqualizerKernels* table);

}  // namespace ncb::audio

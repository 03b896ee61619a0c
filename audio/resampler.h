// Layout of the resampler state and its kernel table.
//
// State memory (16-byte aligned): a 48-byte header, then the history, the
// step table and the coefficient table, each rounded up to 16 bytes.
//
// The filter reads, for the block whose window starts at stream frame S, the
// frames S + 1 - H .. S + M + H - 1: H - 1 frames of look-back and H frames of
// look-ahead around the M frames it turns into L outputs. The history room
// of N + M frames keeps that whole span: the H frames before the window
// (look-back) followed by the window fill h (the frames from S on that are
// held but not yet consumed by a block). A block is complete once the window
// holds H + M frames; the next window starts M frames later.
#pragma once

#include <cstdint>

namespace ncb::audio {

struct ResamplerHeader {
    int32_t channels;   // C, 1 or 2
    int32_t level;      // stored, picks the kernel table
    int32_t inFrames;   // M per block
    int32_t outFrames;  // L per block
    int32_t fill;       // h, window frames held
    int32_t historyOffset;
    int32_t stepOffset;
    int32_t coefOffset;
    int32_t taps;  // N
    int32_t half;  // H = N / 2
    int32_t spare[2];
};
static_assert(sizeof(ResamplerHeader) == 48);

struct ResamplerKernels {
    // One block: for p = 0..L-1 the read position (bytes, from `base`)
    // advances by steps[p] and output frame p is the N-tap product of
    // coefs[p] with the frames from there, rounded to nearest and saturated.
    // L is a multiple of 4, N of 4; channels 1 or 2 (interleaved).
    void (*block)(const int16_t* base, int16_t* out, const int32_t* steps, const float* coefs,
                  int L, int N, int channels);
};

const ResamplerKernels& GetResamplerKernels(int level);

void ResampleBlock_c(const int16_t* base, int16_t* out, const int32_t* steps, const float* coefs,
                     int L, int N, int channels);

void FillResamplerKernels_sse2(ResamplerKernels* table);
void FillResamplerKernels_sse41(ResamplerKernels* table);

}  // namespace ncb::audio

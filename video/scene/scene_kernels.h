// Kernels of the scene detector: the block search (sums of absolute
// differences of one block against a list of candidate blocks of the
// previous frame, and which candidate matched best), the brightness-scaled
// block difference of the weighted-prediction test, block sums, and the
// absolute difference of two rows (the inter-field test).
//
// Blocks are square, 8 or 16 samples a side; a 16 x 16 sum of absolute
// differences is at most 65280, so it fits an unsigned 16-bit lane, which
// the SSE4.1 search uses to pick the best of eight candidates in one step.
// The current block takes aligned loads when its address and pitch are
// multiples of 16; candidates are read unaligned. No kernel reads outside the
// blocks and rows it is given.
//
// Not here: where the candidates lie (the search pattern lives in the
// detector) and the luma histogram, which is a scatter no vector set helps.
#pragma once

#include <cstddef>
#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::video {

// Candidate lists passed to one search call hold at most this many blocks.
inline constexpr int kSceneMaxCandidates = 80;

struct SceneKernels {
    // Writes the sum of absolute differences of the block at `cur` against
    // each of the `count` (1..kSceneMaxCandidates) candidates to sads[] and
    // returns the index of the first smallest one.
    int (*search16)(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* const* refs,
                    ptrdiff_t refPitch, int count, uint32_t* sads);
    int (*search8)(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* const* refs,
                   ptrdiff_t refPitch, int count, uint32_t* sads);
    // Sum over a size x size block (size 8 or 16) of |cur - pred| with
    // pred = min(255, (ref x weight + 128) >> 8); weight 0..32767 (8.8 fixed).
    uint32_t (*weightedSad)(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* ref,
                            ptrdiff_t refPitch, int size, int weight);
    // Sum of the samples of a size x size block.
    uint32_t (*blockSum)(const uint8_t* p, ptrdiff_t pitch, int size);
    // Sum of |a[x] - b[x]| over x < width.
    uint64_t (*rowDiff)(const uint8_t* a, const uint8_t* b, int width);
};

const SceneKernels& GetSceneKernels(KernelSet set);

void InstallSceneScalar(SceneKernels* k);
void InstallSceneSse2(SceneKernels* k);
void InstallSceneSsse3(SceneKernels* k);
void InstallSceneSse41(SceneKernels* k);

// Scalar twins.
uint32_t BlockSad_c(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* ref, ptrdiff_t refPitch,
                    int size);
int SearchBlock_c(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* const* refs,
                  ptrdiff_t refPitch, int count, int size, uint32_t* sads);
uint32_t WeightedSad_c(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* ref,
                       ptrdiff_t refPitch, int size, int weight);
uint32_t BlockSum_c(const uint8_t* p, ptrdiff_t pitch, int size);
uint64_t RowDiff_c(const uint8_t* a, const uint8_t* b, int x0, int width);

namespace {  // internal linkage: kernel files of every instruction set include this

// The index of the first smallest of `count` sums.
inline int FirstSmallest(const uint32_t* sads, int count) {
    int best = 0;
    for (int i = 1; i < count; ++i)
        if (sads[i] < sads[best]) best = i;
    return best;
}

}  // namespace
}  // namespace ncb::video

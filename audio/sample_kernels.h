// Sample kernels of the converter family: widening 8- and 24-bit PCM to 16
// bits, de-interleaving into planes and peak measurement, one table per
// processor level (kernel_levels.h). The scalar twins are the reference: every
// vector entry gives their bits. Vector entries run whole steps of 16 samples
// (peaks of stereo: 8 frames) with unaligned loads and hand the remainder to
// the twins, so they accept any count and any alignment; they never read or
// write past the samples they are given.
#pragma once

#include <cstdint>

namespace ncb::audio {

struct SampleKernels {
    void (*widen8)(const uint8_t* src, int16_t* dst, int count);
    void (*widen24)(const uint8_t* src, int16_t* dst, int count);
    // Interleaved input of `channels` (2..6) to planes of `frames` samples,
    // plane c at dst + c x frames.
    void (*demux8)(const uint8_t* src, int16_t* dst, int frames, int channels);
    void (*demux24)(const uint8_t* src, int16_t* dst, int frames, int channels);
    int16_t (*maxAbs)(const int16_t* src, int count, int16_t previous);
    void (*maxAbsStereo)(const int16_t* src, int frames, int16_t* left, int16_t* right);
};

const SampleKernels& GetSampleKernels(int level);

// Scalar twins.
void Widen8_c(const uint8_t* src, int16_t* dst, int count);
void Widen24_c(const uint8_t* src, int16_t* dst, int count);
void Demux8_c(const uint8_t* src, int16_t* dst, int frames, int channels);
void Demux24_c(const uint8_t* src, int16_t* dst, int frames, int channels);
int16_t MaxAbs_c(const int16_t* src, int count, int16_t previous);
void MaxAbsStereo_c(const int16_t* src, int frames, int16_t* left, int16_t* right);

// The twins' frame loop over frames [first, first + count) of an interleaved
// input whose planes are `planeFrames` long; the vector kernels finish their
// remainder with it. `bytes` is 1 (signed 8-bit) or 3 (24-bit).
void DemuxFrames_c(const uint8_t* src, int bytes, int channels, int16_t* dst, int planeFrames,
                   int first, int count);

// A sample's 16-bit value: b x 256 for signed bytes, the upper two bytes of
// a little-endian 24-bit sample.
inline int16_t Widen8(uint8_t b) { return static_cast<int16_t>(static_cast<uint16_t>(b << 8)); }
inline int16_t Widen24(const uint8_t* p) {
    return static_cast<int16_t>(static_cast<uint16_t>(p[1] | p[2] << 8));
}
// Absolute value in 16 bits: -32768 stays -32768 and so never wins a max.
inline int16_t Abs16(int16_t v) {
    return static_cast<int16_t>(v < 0 ? static_cast<uint16_t>(-static_cast<uint16_t>(v)) : v);
}

void FillSampleKernels_sse2(SampleKernels* table);
void FillSampleKernels_ssse3(SampleKernels* table);

}  // namespace ncb::audio

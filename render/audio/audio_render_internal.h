// Internals shared by the audio render's source files: the input queue
// record, the per-stream post-processing slot, and the constants of the
// chain. Not part of the interface.
#pragma once

#include <cstdint>

#include "ncodecbase/audio_render.h"

namespace ncb::render_audio {

// Input is converted and written in chunks of at most this many frames, so
// the work buffers have a size fixed at Open whatever the input buffers
// hold. A multiple of 16 keeps the vector paths whole.
constexpr int kChunkFrames = 2048;

constexpr int kPlayConfigSize = 116;
constexpr int kStatInfoSize = 24;
constexpr int kFlagLeftBoth = 0x01;
constexpr int kFlagRightBoth = 0x02;
constexpr int kFlagVolume = 0x04;
constexpr int kFlagEqualizer = 0x08;
constexpr int kFlagSpeed = 0x10;
constexpr int kFlagSpeedByRate = 0x20;

constexpr int kStateClosed = 0;
constexpr int kStatePlaying = 1;
constexpr int kStatePaused = 2;
constexpr int kStateDry = 3;
constexpr int kStateEnd = 4;
constexpr int kStateFatal = 5;

constexpr int kErrorSingleChannel = 1;
constexpr int kErrorDevice = 3;
constexpr int kErrorMixer = 4;
constexpr int kErrorEnumeration = 5;
constexpr int kErrorCpuInfo = 6;
constexpr int kErrorNoSse2 = 7;
constexpr int kErrorFatalState = 8;
constexpr int kErrorChain = 10;

constexpr uint64_t kHighForward = 1ull << 32;
constexpr uint64_t kHighReverse = 0xFFFFFFFEull << 32;

}  // namespace ncb::render_audio

// The binary payload of one input-queue record.
struct CNAudioRender::QueueEntry {
    CNCodecBuffer* buffer;  // one reference held
    uint64_t time;          // 64-bit time stamp, valid once loaded
    int32_t loaded;
    int32_t frames;  // usable frames (0 when the data is shorter than announced)
};

// One post-processing stream: mono plane, or interleaved stereo in joint
// stereo. The staging and output buffers are owned CNCodecBuffers sized when
// the chain is built, so the processors' Allocate keeps their blocks.
struct CNAudioRender::Stream {
    int channels;
    CNCodecBuffer* equalizer;
    CNCodecBuffer* rateControl;
    CNCodecBuffer* resampler;
    CNCodecBuffer* stage;  // chain input (equalizer output or a copy)
    CNCodecBuffer* rateOut;
    CNCodecBuffer* resampleOut;
    CNCodecBuffer* empty;  // zero-length input for the final flush
};

// Rate control of CNAudioProcessor: tempo change without pitch change by
// fixed splicing. The input is cut into 20 ms blocks; each block becomes a
// piece of the target length by truncating it or by repeating its middle,
// with 5 ms linear cross-fades at every splice, and every piece ends with the
// block's own last 5 ms so consecutive pieces join seamlessly.
//
// Piece lengths come from the running totals (blocks done x T x W / R minus
// frames produced), so rounding never accumulates: any stretch of output
// follows T / R to within one frame per call.
//
// Not here: a similarity search for the splice points (they are fixed, which
// keeps the cost at a copy and a cross-fade per block and the result
// deterministic), and filtering other than the optional fixed high-pass that
// tames the low-frequency build-up of slowed-down material.
#include "audio/rate_control.h"

#include <algorithm>
#include <cstring>

#include "audio/equalizer.h"
#include "audio/kernel_levels.h"
#include "base/checked_size.h"

namespace ncb::audio {

void CrossFade_c(const int16_t* fresh, int16_t* out, const float* fadeIn, const float* fadeOut,
                 int frames, int channels) {
    for (int k = 0; k < frames; ++k)
        for (int c = 0; c < channels; ++c) {
            const int i = k * channels + c;
            out[i] = RoundSaturate16(static_cast<float>(fresh[i]) * fadeIn[k] +
                                     static_cast<float>(out[i]) * fadeOut[k]);
        }
}

const RateControlKernels& GetRateControlKernels(int level) {
    static const std::array<RateControlKernels, kLevelCount> tables =
        BuildLevelTables<RateControlKernels>({CrossFade_c}, FillRateControlKernels_sse2, nullptr,
                                             nullptr);
    return tables[LevelIndex(level)];
}

namespace {

constexpr int kHeaderBytes = sizeof(RateControlState);
static_assert(kHeaderBytes % 16 == 0);

RateControlState* Header(CNCodecBuffer* state) {
    return state ? static_cast<RateControlState*>(state->GetAddress()) : nullptr;
}

uint8_t* Bytes(RateControlState* s) { return reinterpret_cast<uint8_t*>(s); }
int16_t* Pending(RateControlState* s) {
    return reinterpret_cast<int16_t*>(Bytes(s) + s->nPendingOffset);
}
const float* FadeIn(RateControlState* s) {
    return reinterpret_cast<const float*>(Bytes(s) + s->nFadeInOffset);
}
const float* FadeOut(RateControlState* s) {
    return reinterpret_cast<const float*>(Bytes(s) + s->nFadeOutOffset);
}
int Channels(const RateControlState* s) { return s->nStereo ? 2 : 1; }

size_t FrameBytes(const RateControlState* s, int64_t frames) {
    return static_cast<size_t>(frames) * Channels(s) * 2;
}

// Zero-pads the input to whole blocks for the last call of a stream.
bool PadInput(RateControlState* s, CNCodecBuffer* input, int64_t* n) {
    const int64_t total = s->nPendingFrames + *n;
    if (total % s->nBlockFrames == 0) return true;
    if (!input) return false;
    const int64_t padded = *n + (s->nBlockFrames - total % s->nBlockFrames);
    const int64_t bytes = static_cast<int64_t>(FrameBytes(s, padded));
    if (!FitsBufferSize(bytes)) return false;
    auto* data = static_cast<uint8_t*>(input->Allocate(static_cast<int>(bytes), 0, 1));
    if (!data) return false;
    input->SetDataSize(static_cast<int>(bytes));
    std::memset(data + FrameBytes(s, *n), 0, FrameBytes(s, padded - *n));
    *n = padded;
    return true;
}

// The fixed high-pass: a second-order section from a zero state, computed in
// single precision; histories keep the unclamped values.
void HighPass(int16_t* samples, int frames, int channels) {
    for (int c = 0; c < channels; ++c) {
        float x1 = 0, x2 = 0, y1 = 0, y2 = 0;
        for (int f = 0; f < frames; ++f) {
            int16_t& sample = samples[f * channels + c];
            const float x = sample;
            const float y = 0.92727435f * x - 1.8544941f * x1 + 0.92727435f * x2 + 1.9059465f * y1 -
                            0.9114024f * y2;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
            sample = static_cast<int16_t>(static_cast<int>(std::clamp(y, -32768.0f, 32767.0f)));
        }
    }
}

}  // namespace
}  // namespace ncb::audio

namespace rc = ncb::audio;

int CNAudioProcessor::RateControlInit(int inRate, int targetRate, int stereo, int level,
                                      int highPass, CNCodecBuffer* state) {
    if (!state || targetRate < 1) return 0;
    const int64_t W = int64_t{inRate} * 20 / 1000;
    const int64_t O = int64_t{inRate} * 5 / 1000 / 4 * 4;
    if (W < 1 || O < 1) return 0;
    const int channels = stereo ? 2 : 1;
    const int64_t bytes = (channels * W + 4 * O) * 2 + rc::kHeaderBytes;
    if (!ncb::FitsBufferSize(bytes)) return 0;
    auto* memory = static_cast<uint8_t*>(state->Allocate(static_cast<int>(bytes), 16, 0));
    if (!memory) return 0;
    auto* s = reinterpret_cast<RateControlDataInfoTag*>(memory);
    *s = {};
    s->nStereo = stereo ? 1 : 0;
    s->nLevel = level;
    s->nInputRate = inRate;
    s->nTargetRate = targetRate;
    s->nHighPass = highPass;
    s->nBlockFrames = static_cast<int32_t>(W);
    s->nFadeFrames = static_cast<int32_t>(O);
    s->nFadeInOffset = rc::kHeaderBytes;
    s->nFadeOutOffset = static_cast<int32_t>(rc::kHeaderBytes + 4 * O);
    s->nPendingOffset = static_cast<int32_t>(rc::kHeaderBytes + 8 * O);
    auto* fadeIn = reinterpret_cast<float*>(memory + s->nFadeInOffset);
    auto* fadeOut = reinterpret_cast<float*>(memory + s->nFadeOutOffset);
    const float step = 1.0f / static_cast<float>(O);
    for (int k = 0; k < O; ++k) {
        fadeIn[k] = static_cast<float>(k) * step;
        fadeOut[k] = 1.0f - fadeIn[k];
    }
    std::memset(memory + s->nPendingOffset, 0, rc::FrameBytes(s, W));
    state->SetDataSize(static_cast<int>(bytes));
    return 1;
}

void CNAudioProcessor::RateControlConvertOnce(short* block, short* output, int outFrames,
                                              RateControlDataInfoTag* state) {
    const int W = state->nBlockFrames, O = state->nFadeFrames, C = rc::Channels(state);
    const auto& kernels = rc::GetRateControlKernels(state->nLevel);
    int written = 0, from = 0;
    while (written < outFrames) {
        const int copy = std::min(outFrames - written, written == 0 ? W : W - O);
        std::memmove(output + written * C, block + from * C, rc::FrameBytes(state, copy));
        written += copy;
        from = O;
        if (written <= O) continue;
        // Unfinished: fade into the block's start, where the next copy
        // continues from frame O. Finished: fade into the block's end, so the
        // piece ends as the block does.
        const int target = written < outFrames ? 0 : W - O;
        kernels.crossFade(block + target * C, output + (written - O) * C, rc::FadeIn(state),
                          rc::FadeOut(state), O, C);
    }
}

int CNAudioProcessor::RateControlFilter(CNCodecBuffer* input, CNCodecBuffer* output, int flush,
                                        CNCodecBuffer* state) {
    RateControlDataInfoTag* s = rc::Header(state);
    if (!s) return 0;
    const int C = rc::Channels(s), W = s->nBlockFrames;
    int64_t n = input ? input->GetDataSize() / (2 * C) : 0;
    if (flush == 1 && !rc::PadInput(s, input, &n)) return 0;
    const int64_t blocks = (s->nPendingFrames + n) / W;
    int64_t L = 0, outBytes = 0;
    if (blocks > 0) {
        const int64_t done = s->nBlocksProcessed;
        L = ((done + blocks) * s->nTargetRate * W / s->nInputRate - s->nOutputProduced) / blocks;
        outBytes = static_cast<int64_t>(rc::FrameBytes(s, blocks * L));
        if (!output || !ncb::FitsBufferSize(outBytes)) return 0;
        if (outBytes > 0 && !output->Allocate(static_cast<int>(outBytes), 4, 0)) return 0;
        output->SetBufferUserData(s->nPendingFrames);
    }
    if (output) output->SetDataSize(static_cast<int>(outBytes));

    const auto* in = n > 0 ? static_cast<const int16_t*>(input->GetAddress()) : nullptr;
    auto* out = blocks > 0 ? static_cast<int16_t*>(output->GetAddress()) : nullptr;
    int16_t* pending = rc::Pending(s);
    int64_t at = 0;  // input frames used so far
    for (int64_t b = 0; b < blocks; ++b) {
        const int16_t* block = in + at * C;
        if (s->nPendingFrames > 0) {
            const int need = W - s->nPendingFrames;
            std::memmove(pending + s->nPendingFrames * C, in + at * C, rc::FrameBytes(s, need));
            at += need;
            s->nPendingFrames = 0;
            block = pending;
        } else {
            at += W;
        }
        RateControlConvertOnce(const_cast<short*>(block), out + b * L * C, static_cast<int>(L), s);
    }
    if (n > at) {
        std::memmove(pending + s->nPendingFrames * C, in + at * C, rc::FrameBytes(s, n - at));
        s->nPendingFrames += static_cast<int32_t>(n - at);
    }
    s->nBlocksProcessed += static_cast<int32_t>(blocks);
    s->nInputConsumed += W * blocks;
    s->nOutputProduced += blocks * L;
    if (blocks > 0 && s->nTargetRate > s->nInputRate && s->nHighPass == 1)
        rc::HighPass(out, static_cast<int>(blocks * L), C);
    return 1;
}

int CNAudioProcessor::RateControlReset(CNCodecBuffer* state) {
    if (RateControlDataInfoTag* s = rc::Header(state)) {
        s->nPendingFrames = 0;
        s->nInputConsumed = s->nOutputProduced = 0;
        s->nBlocksProcessed = 0;
    }
    return 1;
}

int CNAudioProcessor::RateControlUninit(CNCodecBuffer* state) {
    if (state) state->Free();
    return 1;
}

void CNAudioProcessor::HighPassFilterMono(short* samples, int frames) {
    rc::HighPass(samples, frames, 1);
}

void CNAudioProcessor::HighPassFilterStereo(short* samples, int frames) {
    rc::HighPass(samples, frames, 2);
}

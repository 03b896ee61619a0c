// Twelve-band octave graphic equalizer of CNAudioProcessor.
//
// Each band is a second-order band-pass y = alpha (x - x[n-2]) + gamma y[n-1]
// - beta y[n-2], designed so that the gain at the lower band edge (centre /
// sqrt 2) is 1/sqrt 2 of the centre gain; the output is a quarter of the
// input plus the bands weighted by plain linear gains. The design arithmetic
// below keeps its exact mix of single and double precision because the
// coefficients, and so every output bit, depend on it.
//
// Conversion back to 16 bits follows two rules on purpose: frames in whole
// blocks of four go through the vector kernel and round to nearest; the
// frames a block leaves over go through the per-frame filter, which clamps
// and truncates. Unifying the two would change output bits.
//
// Not here: decibel gains (callers convert), smoothing of gain changes (a new
// gain applies from the next sample with the histories kept).
#include "audio/equalizer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "audio/kernel_levels.h"
#include "ncodecbase/audio_processor.h"

namespace ncb::audio {

float EqualizerFrame_c(const EqualizerHeader& h, EqualizerInputHistory* xh,
                       EqualizerBandHistory* yh, float x) {
    const float dx = x - xh->x2;
    float lane[4] = {0, 0, 0, 0};
    for (int group = 0; group < 3; ++group) {
        for (int l = 0; l < 4; ++l) {
            const int b = 4 * group + l;
            const float y = h.alpha[b] * dx + h.gamma[b] * yh->y1[b] - h.beta[b] * yh->y2[b];
            yh->y2[b] = yh->y1[b];
            yh->y1[b] = y;
            lane[l] = group == 0 ? h.gain[b] * y : lane[l] + h.gain[b] * y;
        }
    }
    const float sum = (lane[0] + lane[2]) + (lane[1] + lane[3]);
    xh->x2 = xh->x1;
    xh->x1 = x;
    return 0.25f * x + sum;
}

namespace {

float ClampTo16(float v) {
    // The comparisons of MAXPS / MINPS, so a NaN clamps like the vector path.
    v = v > -32768.0f ? v : -32768.0f;
    return v < 32767.0f ? v : 32767.0f;
}

int16_t TruncateSaturate16(float v) { return static_cast<int16_t>(static_cast<int>(ClampTo16(v))); }

}  // namespace

int16_t RoundSaturate16(float v) {
    return static_cast<int16_t>(static_cast<int>(std::nearbyint(ClampTo16(v))));
}

void EqualizerBlocks_c(const int16_t* input, int16_t* output, int frames, uint8_t* state) {
    const EqualizerHeader& h = *EqHeader(state);
    const int channels = h.stereo ? 2 : 1;
    for (int f = 0; f < frames; f += 4) {
        float out[8];
        for (int k = 0; k < 4; ++k)
            for (int c = 0; c < channels; ++c)
                out[k * channels + c] =
                    EqualizerFrame_c(h, EqInputHistory(state, c), EqBandHistory(state, c),
                                     input[(f + k) * channels + c]);
        for (int k = 0; k < 4 * channels; ++k) output[f * channels + k] = RoundSaturate16(out[k]);
    }
}

const EqualizerKernels& GetEqualizerKernels(int level) {
    static const std::array<EqualizerKernels, kLevelCount> tables =
        BuildLevelTables<EqualizerKernels>({EqualizerBlocks_c}, FillEqualizerKernels_sse2, nullptr,
                                           nullptr);
    return tables[LevelIndex(level)];
}

namespace {

struct BandCoefficients {
    float alpha, beta, gamma;
};

// The band-pass design for centre f0 at rate fs; false when it has no root.
bool DesignBand(int f0, int fs, BandCoefficients* out) {
    constexpr double kTwoPi = 6.2831854820251465;  // 2 pi rounded to single precision
    constexpr double kG = 0.5000000016780315;      // (1 / sqrt 2)^2 in single precision
    constexpr double kTwoG = 1.000000003356063;
    constexpr double kQuarterG = 0.12500000041950787;
    constexpr double kHalfG = 0.25000000083901575;

    const float invSqrt2 = 1.0f / std::pow(2.0f, 0.5f);
    const float f1 = invSqrt2 * static_cast<float>(f0);
    const double invFs = 1.0 / fs;
    const double t0 = f0 * kTwoPi * invFs;
    const double t1 = static_cast<double>(f1) * kTwoPi * invFs;
    const double c0 = std::cos(t0), c1 = std::cos(t1), s1 = std::sin(t1);
    const double c0Sq = c0 * c0, c1Sq = c1 * c1, s1Sq = s1 * s1;

    const float a = static_cast<float>(((kG * c0Sq - (c1 * kTwoG) * c0) + kG) - s1Sq);
    const float b =
        static_cast<float>((((kTwoG * c1Sq + kG * c0Sq) - (c1 * kTwoG) * c0) - kG) + s1Sq);
    const float c =
        static_cast<float>((((kQuarterG * c0Sq - (c1 * kHalfG) * c0) + kQuarterG) - 0.25 * s1Sq));

    const float k = c - (b * b) / (4.0f * a);
    const float h = -(b / (2.0f * a));
    const float d = -(k / a);
    // A NaN (a band at 0 Hz makes a zero) has no root either.
    if (!(d >= 0.0f)) return false;
    const float root = std::sqrt(d);
    const float x0 = std::min(h - root, h + root);
    out->beta = 2.0f * x0;
    out->alpha = 2.0f * ((0.5f - x0) * 0.5f);
    out->gamma = static_cast<float>(2.0 * (static_cast<double>(x0) + 0.5) * c0);
    return true;
}

uint8_t* StateMemory(CNCodecBuffer* state) { return static_cast<uint8_t*>(state->GetAddress()); }

void ClearHistories(uint8_t* state) {
    const int channels = EqHeader(state)->stereo ? 2 : 1;
    for (int c = 0; c < channels; ++c) {
        std::memset(EqInputHistory(state, c), 0, sizeof(EqualizerInputHistory));
        std::memset(EqBandHistory(state, c), 0, sizeof(EqualizerBandHistory));
    }
}

// The per-frame filter over `frames` frames with clamp-and-truncate output.
void FilterFrames(const int16_t* input, int16_t* output, int frames, uint8_t* state) {
    const EqualizerHeader& h = *EqHeader(state);
    const int channels = h.stereo ? 2 : 1;
    for (int f = 0; f < frames; ++f) {
        for (int c = 0; c < channels; ++c) {
            const float y = EqualizerFrame_c(h, EqInputHistory(state, c), EqBandHistory(state, c),
                                             input[f * channels + c]);
            output[f * channels + c] = TruncateSaturate16(y);
        }
    }
}

int Filter(const int16_t* input, int16_t* output, int frames, CNCodecBuffer* state) {
    if (frames < 1) return 1;
    uint8_t* memory = StateMemory(state);
    const int channels = EqHeader(memory)->stereo ? 2 : 1;
    const int blocks = frames - frames % 4;
    GetEqualizerKernels(EqHeader(memory)->level).filterBlocks(input, output, blocks, memory);
    FilterFrames(input + blocks * channels, output + blocks * channels, frames - blocks, memory);
    return 1;
}

}  // namespace
}  // namespace ncb::audio

namespace eq = ncb::audio;

int CNAudioProcessor::EqualizerInit(int sampleRate, int bandCount, int* frequencies, float* gains,
                                    int stereo, int level, CNCodecBuffer* state) {
    if (!state || sampleRate < 1 || bandCount < 0 || (bandCount > 0 && (!frequencies || !gains)))
        return 0;
    int kept[eq::kEqualizerSlots];
    int n = 0;
    for (int i = 0; i < bandCount; ++i) {
        if (2LL * frequencies[i] > sampleRate) continue;
        if (n == eq::kEqualizerSlots) return 0;  // more bands than slots
        kept[n++] = i;
    }
    const int bytes = eq::EqualizerStateBytes(stereo);
    uint8_t* memory = static_cast<uint8_t*>(state->Allocate(bytes, 16, 0));
    if (!memory) return 0;
    std::memset(memory, 0, bytes);
    state->SetDataSize(bytes);
    eq::EqualizerHeader* h = eq::EqHeader(memory);
    h->bandCount = n;
    h->stereo = stereo ? 1 : 0;
    h->level = level;
    for (int b = 0; b < n; ++b) {
        eq::BandCoefficients k;
        if (!eq::DesignBand(frequencies[kept[b]], sampleRate, &k)) {
            state->Free();
            return 0;
        }
        h->alpha[b] = k.alpha;
        h->beta[b] = k.beta;
        h->gamma[b] = k.gamma;
        h->gain[b] = gains[kept[b]];
    }
    return 1;
}

int CNAudioProcessor::EqualizerFilter(short* samples, int frames, CNCodecBuffer* state) {
    return eq::Filter(samples, samples, frames, state);
}

int CNAudioProcessor::EqualizerFilter(short* input, int frames, CNCodecBuffer* state,
                                      short* output) {
    return eq::Filter(input, output, frames, state);
}

int CNAudioProcessor::EqualizerConfig(float* gains, CNCodecBuffer* state) {
    eq::EqualizerHeader* h = eq::EqHeader(eq::StateMemory(state));
    if (gains) std::copy(gains, gains + h->bandCount, h->gain);
    return 1;
}

int CNAudioProcessor::EqualizerReset(CNCodecBuffer* state) {
    eq::ClearHistories(eq::StateMemory(state));
    return 1;
}

int CNAudioProcessor::EqualizerUninit(CNCodecBuffer* state) {
    if (state) state->Free();
    return 1;
}

void CNAudioProcessor::ProcessFraqSamplesMono(short* input, short* output, int frames,
                                              unsigned char* state) {
    eq::FilterFrames(input, output, frames, state);
}

void CNAudioProcessor::ProcessFraqSamplesStereo(short* input, short* output, int frames,
                                                unsigned char* state) {
    eq::FilterFrames(input, output, frames, state);
}

// Polyphase resampler of CNAudioProcessor: a Kaiser-windowed sinc (beta 6,
// cut-off at 0.45 of the lower rate) tabulated for every output phase of a
// block of M input frames -> L output frames, so no trigonometry runs per
// sample. The table design keeps its exact order of single-precision
// operations: the coefficients, and so every output bit, depend on it.
//
// Streaming: a call consumes all its input. Complete blocks are filtered
// straight from the caller's samples where the filter span lies inside them,
// and through the history room where it reaches back into frames of earlier
// calls; what is left (look-back and an incomplete window) goes into the
// room for the next call. See resampler.h for the spans.
//
// Not here: arbitrary-ratio interpolation between phases (the ratio is exact,
// reduced and scaled to whole blocks), more than two channels.
#include "audio/resampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

#include "audio/equalizer.h"
#include "audio/kernel_levels.h"
#include "base/checked_size.h"
#include "ncodecbase/audio_processor.h"

namespace ncb::audio {

void ResampleBlock_c(const int16_t* base, int16_t* out, const int32_t* steps, const float* coefs,
                     int L, int N, int channels) {
    const uint8_t* pos = reinterpret_cast<const uint8_t*>(base);
    for (int p = 0; p < L; ++p) {
        pos += steps[p];
        const int16_t* s = reinterpret_cast<const int16_t*>(pos);
        const float* k = coefs + static_cast<ptrdiff_t>(p) * N;
        for (int c = 0; c < channels; ++c) {
            float part[4] = {0, 0, 0, 0};
            for (int j = 0; j < N; ++j)
                part[j % 4] += k[j] * static_cast<float>(s[j * channels + c]);
            out[p * channels + c] = RoundSaturate16((part[0] + part[1]) + (part[2] + part[3]));
        }
    }
}

const ResamplerKernels& GetResamplerKernels(int level) {
    static const std::array<ResamplerKernels, kLevelCount> tables =
        BuildLevelTables<ResamplerKernels>({ResampleBlock_c}, FillResamplerKernels_sse2, nullptr,
                                           FillResamplerKernels_sse41);
    return tables[LevelIndex(level)];
}

namespace {

constexpr int kHeaderBytes = sizeof(ResamplerHeader);
constexpr int64_t kMinBlockFrames = 256;
constexpr int64_t kBaseTaps = 36;

struct Design {
    int64_t L = 0, M = 0;
    int N = 0, H = 0;
    float cutoff = 1.0f;  // c: the lower rate over the input rate
    bool down = false;
};

bool MakeDesign(int inRate, int outRate, Design* d) {
    const int64_t g = std::gcd(inRate, outRate);
    int64_t L = outRate / g, M = inRate / g;
    const int64_t four = 4 / std::gcd(L, int64_t{4});
    L *= four;
    M *= four;
    if (M < kMinBlockFrames) {
        const int64_t f = kMinBlockFrames / M + 1;
        L *= f;
        M *= f;
    }
    if (L < kMinBlockFrames) {
        const int64_t f = kMinBlockFrames / L + 1;
        L *= f;
        M *= f;
    }
    d->down = outRate < inRate;
    int64_t N = kBaseTaps;
    if (d->down) {
        const int64_t n0 = int64_t{inRate} * kBaseTaps / outRate;
        N = (n0 / 2 + 1) * 2;  // the smallest even number above n0
    }
    N = (N + 3) / 4 * 4;
    if (L > INT32_MAX || M > INT32_MAX || N > INT32_MAX / 2) return false;
    d->L = L;
    d->M = M;
    d->N = static_cast<int>(N);
    d->H = d->N / 2;
    d->cutoff = d->down ? static_cast<float>(outRate) / static_cast<float>(inRate) : 1.0f;
    return true;
}

// I0(2 half): the power series with terms (half / k)^2 apart, summed in single
// precision until a term falls below 1e-21 of the sum.
float BesselI0(float half) {
    float sum = 1.0f, term = 1.0f;
    for (int k = 1; k < 1000; ++k) {
        const float q = half / static_cast<float>(k);
        term = term * (q * q);
        sum += term;
        if (static_cast<double>(term) < 1e-21 * static_cast<double>(sum)) break;
    }
    return sum;
}

float Coefficient(float x, float cutoff, float invI0Beta) {
    const float a = x * 3.1415927f;
    float sinc = 0.9f;
    if (a != 0.0f) {
        const float arg = 2.0f * 0.45f * a;
        sinc = static_cast<float>(std::sin(static_cast<double>(arg)) / static_cast<double>(a));
    }
    const float xs = x * 0.0555555559694767f;  // x / 18
    float v = 1.0f - xs * xs;
    if (v < 0.0f) v = 0.0f;
    const float half = std::sqrt(v) * 6.0f * 0.5f;
    return ((BesselI0(half) * invI0Beta) * sinc) * cutoff;
}

void FillTables(const Design& d, int inRate, int outRate, int channels, int32_t* steps,
                float* coefs) {
    const float invI0Beta = static_cast<float>(1.0 / static_cast<double>(BesselI0(3.0f)));
    const float invOut = 1.0f / static_cast<float>(outRate);
    const float invIn = 1.0f / static_cast<float>(inRate);
    const int L = static_cast<int>(d.L), M = static_cast<int>(d.M);
    int previous = 0;
    for (int p = 0; p < L; ++p) {
        const float t = static_cast<float>(p) * static_cast<float>(inRate) * invOut;
        // The clamp only guards the table against rounding at the block end.
        const int i = std::clamp(static_cast<int>(std::floor(t)), 0, M - 1);
        float frac = t - static_cast<float>(i);
        if (d.down) frac = frac * static_cast<float>(outRate) * invIn;
        const int position = i + 1 - d.H;
        steps[p] = (position - previous) * channels * 2;
        previous = position;
        float x = -(frac + static_cast<float>(d.H - 1) * d.cutoff);
        float* row = coefs + static_cast<ptrdiff_t>(p) * d.N;
        for (int j = 0; j < d.N; ++j, x += d.cutoff) row[j] = Coefficient(x, d.cutoff, invI0Beta);
    }
}

int64_t Round16(int64_t bytes) { return (bytes + 15) / 16 * 16; }

ResamplerHeader* Header(uint8_t* memory) { return reinterpret_cast<ResamplerHeader*>(memory); }

struct View {
    ResamplerHeader* h;
    int16_t* room;
    const int32_t* steps;
    const float* coefs;
    int C, M, L, N, H;
    const ResamplerKernels* kernels;

    explicit View(uint8_t* memory)
        : h(Header(memory)),
          room(reinterpret_cast<int16_t*>(memory + h->historyOffset)),
          steps(reinterpret_cast<const int32_t*>(memory + h->stepOffset)),
          coefs(reinterpret_cast<const float*>(memory + h->coefOffset)),
          C(h->channels),
          M(h->inFrames),
          L(h->outFrames),
          N(h->taps),
          H(h->half),
          kernels(&GetResamplerKernels(h->level)) {}

    void Block(const int16_t* windowStart, int16_t* out) const {
        kernels->block(windowStart, out, steps, coefs, L, N, C);
    }
    int16_t* RoomFrame(int64_t frame) const { return room + frame * C; }
    size_t Bytes(int64_t frames) const { return static_cast<size_t>(frames * C * 2); }
};

// Sizes the output for `blocks` blocks and stamps it with the delay of its
// first frame; false (nothing changed in the state) when it cannot be allocated.
bool PrepareOutput(const View& v, CNCodecBuffer* output, int64_t blocks) {
    if (!output) return false;
    int64_t bytes = 0;
    if (!CheckedMul<int64_t>(blocks, int64_t{v.L} * v.C * 2, &bytes) || !FitsBufferSize(bytes))
        return false;
    if (bytes > 0 && !output->Allocate(static_cast<int>(bytes), 16, 0)) return false;
    output->SetDataSize(static_cast<int>(bytes));
    output->SetBufferUserData(v.h->fill);
    return true;
}

void CopyFrames(const View& v, int16_t* to, const int16_t* in, int64_t first, int64_t frames) {
    if (frames > 0) std::memcpy(to, in + first * v.C, v.Bytes(frames));
}

// Filters the complete blocks of `frames` new frames and keeps the rest.
void Consume(const View& v, const int16_t* in, int64_t n, int64_t blocks, int16_t* out) {
    const int64_t h = v.h->fill;
    int64_t roomFill = v.H + h;  // the room holds stream frames [S - H, S + h)
    bool roomValid = true;
    for (int64_t j = 0; j < blocks; ++j) {
        const int64_t w = j * v.M - h;  // window start, in input frames
        int16_t* dst = out + j * v.L * v.C;
        if (w + 1 - v.H >= 0) {
            v.Block(in + w * v.C, dst);
            roomValid = false;
            continue;
        }
        const int64_t from = w - v.H + roomFill;  // the room ends where the input resumes
        CopyFrames(v, v.RoomFrame(roomFill), in, from, v.N + v.M - roomFill);
        v.Block(v.RoomFrame(v.H), dst);
        std::memmove(v.room, v.RoomFrame(v.M), v.Bytes(v.N));
        roomFill = v.N;
    }
    const int64_t next = blocks * v.M - h;  // the next window start, in input frames
    if (!roomValid) {
        roomFill = n - (next - v.H);
        CopyFrames(v, v.room, in, next - v.H, roomFill);
    } else {
        const int64_t from = next - v.H + roomFill;
        CopyFrames(v, v.RoomFrame(roomFill), in, from, n - from);
        roomFill += n - from;
    }
    v.h->fill = static_cast<int32_t>(roomFill - v.H);
}

// Pads the window with zeros to a full block and filters it.
void FlushBlock(const View& v, int16_t* out) {
    const int64_t held = v.H + v.h->fill;
    std::memset(v.RoomFrame(held), 0, v.Bytes(v.N + v.M - held));
    v.Block(v.RoomFrame(v.H), out);
    std::memmove(v.room, v.RoomFrame(v.M), v.Bytes(v.N));
    v.h->fill = v.H;
}

int Resample(CNCodecBuffer* input, CNCodecBuffer* output, CNCodecBuffer* state, bool last) {
    uint8_t* memory = state ? static_cast<uint8_t*>(state->GetAddress()) : nullptr;
    if (!memory) return 0;
    const View v(memory);
    const int64_t n = input ? input->GetDataSize() / v.C / 2 : 0;
    const int64_t blocks = std::max<int64_t>(0, (n - v.H + v.h->fill) / v.M);
    if (!PrepareOutput(v, output, blocks + (last ? 1 : 0))) return 0;
    auto* out = static_cast<int16_t*>(output->GetAddress());
    const auto* in = n > 0 ? static_cast<const int16_t*>(input->GetAddress()) : nullptr;
    Consume(v, in, n, blocks, out);
    if (last) FlushBlock(v, out + blocks * v.L * v.C);
    return 1;
}

}  // namespace
}  // namespace ncb::audio

namespace rs = ncb::audio;

int CNAudioProcessor::AccurateResampleInit(int inRate, int outRate, int channels, int level,
                                           CNCodecBuffer* state) {
    if (!state || inRate < 1 || outRate < 1 || (channels != 1 && channels != 2)) return 0;
    rs::Design d;
    if (!rs::MakeDesign(inRate, outRate, &d)) return 0;
    const int64_t history = rs::Round16((d.N + d.M) * channels * 2);
    const int64_t steps = rs::Round16(d.L * 4);
    int64_t coefs = 0, total = 0;
    if (!ncb::CheckedMul<int64_t>(d.L, int64_t{d.N} * 4, &coefs) ||
        !ncb::CheckedMulAdd(1, rs::kHeaderBytes + history + steps, rs::Round16(coefs), &total) ||
        !ncb::FitsBufferSize(total))
        return 0;
    auto* memory = static_cast<uint8_t*>(state->Allocate(static_cast<int>(total), 16, 0));
    if (!memory) return 0;
    rs::ResamplerHeader* h = rs::Header(memory);
    *h = {};
    h->channels = channels;
    h->level = level;
    h->inFrames = static_cast<int32_t>(d.M);
    h->outFrames = static_cast<int32_t>(d.L);
    h->fill = 0;
    h->historyOffset = rs::kHeaderBytes;
    h->stepOffset = static_cast<int32_t>(rs::kHeaderBytes + history);
    h->coefOffset = static_cast<int32_t>(rs::kHeaderBytes + history + steps);
    h->taps = d.N;
    h->half = d.H;
    std::memset(memory + h->historyOffset, 0, static_cast<size_t>(history));
    rs::FillTables(d, inRate, outRate, channels, reinterpret_cast<int32_t*>(memory + h->stepOffset),
                   reinterpret_cast<float*>(memory + h->coefOffset));
    state->SetDataSize(static_cast<int>(total));
    return 1;
}

int CNAudioProcessor::AccurateResample(CNCodecBuffer* input, CNCodecBuffer* output,
                                       CNCodecBuffer* state) {
    return rs::Resample(input, output, state, false);
}

int CNAudioProcessor::AccurateResampleLast(CNCodecBuffer* input, CNCodecBuffer* output,
                                           CNCodecBuffer* state) {
    return rs::Resample(input, output, state, true);
}

int CNAudioProcessor::AccurateResampleUninit(CNCodecBuffer* output, CNCodecBuffer* state) {
    if (!state) return 1;
    auto* memory = static_cast<uint8_t*>(state->GetAddress());
    int result = 1;
    if (memory && output) {
        const rs::View v(memory);
        if (rs::PrepareOutput(v, output, 1)) {
            rs::FlushBlock(v, static_cast<int16_t*>(output->GetAddress()));
        } else {
            result = 0;
        }
    } else if (output) {
        output->SetDataSize(0);
    }
    state->Free();
    return result;
}

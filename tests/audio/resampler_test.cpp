// Resampler: block design values, the block kernel against its twin at every
// level, streaming (any split of the input gives the same samples, the delay
// reported in user data), flushing and failures, and quality measured on
// sines: THD+N, error against the ideal band-limited sine, passband ripple,
// alias rejection, and agreement with sox's own resampler.
#include "audio/resampler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numbers>
#include <vector>

#include "ncodecbase/audio_processor.h"
#include "platform/kernel/fault.h"
#include "tests/audio/signal_util.h"
#include "tests/audio/sox_util.h"
#include "tests/support/kernel_checker.h"

namespace {

using AP = CNAudioProcessor;
using ncbtest::CaseRandom;
using ncbtest::Plane;
namespace sig = ncbtest::audio;

struct BufferDeleter {
    void operator()(CNCodecBuffer* b) const { b->Release(); }
};
using BufferPtr = std::unique_ptr<CNCodecBuffer, BufferDeleter>;
BufferPtr NewBuffer() { return BufferPtr(CNCodecBuffer::CreateBuffer()); }

const ncb::audio::ResamplerHeader& Header(CNCodecBuffer* state) {
    return *static_cast<const ncb::audio::ResamplerHeader*>(state->GetAddress());
}

BufferPtr Resampler(int inRate, int outRate, int channels, int level = 0) {
    BufferPtr state = NewBuffer();
    EXPECT_EQ(AP::AccurateResampleInit(inRate, outRate, channels, level, state.get()), 1);
    return state;
}

// A buffer holding `samples`.
BufferPtr Input(const std::vector<int16_t>& samples) {
    BufferPtr b = NewBuffer();
    const int bytes = static_cast<int>(samples.size() * 2);
    if (bytes > 0) {
        std::memcpy(b->Allocate(bytes, 16, 0), samples.data(), bytes);
        b->SetDataSize(bytes);
    }
    return b;
}

std::vector<int16_t> Samples(CNCodecBuffer* b) {
    const auto* p = static_cast<const int16_t*>(b->GetAddress());
    return p ? std::vector<int16_t>(p, p + b->GetDataSize() / 2) : std::vector<int16_t>{};
}

// One call; appends the output to *out and returns the reported delay.
int Push(CNCodecBuffer* state, const std::vector<int16_t>& in, std::vector<int16_t>* out,
         bool last = false) {
    BufferPtr input = Input(in), output = NewBuffer();
    output->SetBufferUserData(-12345);
    EXPECT_EQ(
        (last ? AP::AccurateResampleLast : AP::AccurateResample)(input.get(), output.get(), state),
        1);
    const std::vector<int16_t> got = Samples(output.get());
    out->insert(out->end(), got.begin(), got.end());
    return output->GetBufferUserData();
}

// The whole signal in pieces of `chunk` frames (0: one piece), then a flush.
std::vector<int16_t> ResampleAll(const std::vector<int16_t>& in, int channels, int inRate,
                                 int outRate, int chunk = 0, int level = 0) {
    BufferPtr state = Resampler(inRate, outRate, channels, level);
    std::vector<int16_t> out;
    const size_t step = chunk > 0 ? static_cast<size_t>(chunk) * channels : in.size();
    for (size_t at = 0; at < in.size(); at += step)
        Push(state.get(),
             std::vector<int16_t>(in.begin() + at, in.begin() + std::min(in.size(), at + step)),
             &out);
    Push(state.get(), {}, &out, true);
    return out;
}

// ---- Block design ----

struct DesignCase {
    int in, out, L, M, N;
};

class ResamplerDesign : public ::testing::TestWithParam<DesignCase> {};

TEST_P(ResamplerDesign, BlockAndTaps) {
    const DesignCase& d = GetParam();
    BufferPtr state = Resampler(d.in, d.out, 2);
    const auto& h = Header(state.get());
    EXPECT_EQ(h.outFrames, d.L);
    EXPECT_EQ(h.inFrames, d.M);
    EXPECT_EQ(h.taps, d.N);
    EXPECT_EQ(h.half, d.N / 2);
    EXPECT_EQ(h.channels, 2);
    EXPECT_EQ(h.fill, 0);
    // 48-byte header, then history, steps and coefficients rounded to 16 bytes.
    auto round16 = [](int b) { return (b + 15) / 16 * 16; };
    EXPECT_EQ(state->GetDataSize(),
              48 + round16((d.N + d.M) * 2 * 2) + round16(d.L * 4) + round16(d.L * d.N * 4));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(state->GetAddress()) % 16, 0u);
    // The steps walk the read position 1 - H frames back first and then
    // through the block: they add up to the last output's tap start.
    const auto* steps = reinterpret_cast<const int32_t*>(
        static_cast<const uint8_t*>(state->GetAddress()) + h.stepOffset);
    EXPECT_EQ(steps[0], (1 - d.N / 2) * 4);
    long sum = 0;
    for (int p = 0; p < d.L; ++p) {
        ASSERT_GE(p == 0 ? 0 : steps[p], 0);
        sum += steps[p];
    }
    EXPECT_EQ(sum / 4, static_cast<long>(std::floor(double(d.L - 1) * d.in / d.out)) + 1 - d.N / 2);
}

INSTANTIATE_TEST_SUITE_P(Rates, ResamplerDesign,
                         ::testing::Values(DesignCase{48000, 44100, 588, 640, 40},
                                           DesignCase{44100, 48000, 320, 294, 36},
                                           DesignCase{96000, 44100, 588, 1280, 80},
                                           DesignCase{44100, 44100, 260, 260, 36},
                                           DesignCase{8000, 96000, 3084, 257, 36},
                                           DesignCase{96000, 22050, 588, 2560, 160}),
                         [](const auto& info) {
                             return std::to_string(info.param.in) + "_to_" +
                                    std::to_string(info.param.out);
                         });

TEST(ResamplerDesign, CutoffScalesTheTapsWhenDownsampling) {
    // The coefficients of a phase add up to about 1 (unity gain at DC) in
    // both directions: the cut-off scale c multiplies each tap.
    for (auto [in, out] : {std::pair{48000, 44100}, {44100, 48000}, {96000, 44100}}) {
        BufferPtr state = Resampler(in, out, 1);
        const auto& h = Header(state.get());
        const auto* coefs = reinterpret_cast<const float*>(
            static_cast<const uint8_t*>(state->GetAddress()) + h.coefOffset);
        for (int p = 0; p < h.outFrames; p += 37) {
            double sum = 0;
            for (int j = 0; j < h.taps; ++j) sum += coefs[p * h.taps + j];
            EXPECT_NEAR(sum, 1.0, 2e-3) << in << " -> " << out << ", phase " << p;
        }
    }
}

// ---- Kernel equivalence ----

constexpr int kRates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000, 88200, 96000};

struct BlockCase {
    int L = 0, N = 0, H = 0, M = 0, channels = 1;
    Plane window, steps, coefs, out;
    std::vector<const Plane*> Planes() const { return {&window, &steps, &coefs, &out}; }
    std::string Describe() const {
        return "L " + std::to_string(L) + ", M " + std::to_string(M) + ", N " + std::to_string(N) +
               ", channels " + std::to_string(channels);
    }
    const int16_t* Base() const { return window.As<int16_t>() + H * channels; }
};

BlockCase MakeBlockCase(CaseRandom& r) {
    BlockCase c;
    const int in = kRates[r.Uniform(0, 8)], out = kRates[r.Uniform(0, 8)];
    c.channels = r.Uniform(1, 2);
    BufferPtr state = Resampler(in, out, c.channels);
    const auto& h = Header(state.get());
    c.L = h.outFrames;
    c.M = h.inFrames;
    c.N = h.taps;
    c.H = h.half;
    // The span one block reads: look-back, window and look-ahead.
    c.window = r.MakeSamples<int16_t>((c.N + c.M) * c.channels, "window");
    if (r.Chance(30)) r.FillUniform<int16_t>(c.window, -300, 300);
    const auto* base = static_cast<const uint8_t*>(state->GetAddress());
    c.steps = r.MakeSamples<int32_t>(c.L, "steps");
    std::memcpy(c.steps.Data(), base + h.stepOffset, c.L * 4);
    c.coefs = r.MakeSamples<float>(c.L * c.N, "coefs");
    std::memcpy(c.coefs.Data(), base + h.coefOffset, c.L * c.N * 4);
    if (r.Chance(20)) {  // gains that saturate
        for (int k = 0; k < c.L * c.N; ++k) c.coefs.As<float>()[k] *= 3.0f;
    }
    c.out = r.MakeSamples<int16_t>(c.L * c.channels, "out");
    return c;
}

TEST(ResamplerKernels, BlockMatchesTwinAtEveryLevel) {
    ncbtest::CheckAllLevels<BlockCase>(
        {
            .name = "AccurateResample block",
            .make = MakeBlockCase,
            .twin =
                [](BlockCase& c) {
                    ncb::audio::ResampleBlock_c(c.Base(), c.out.As<int16_t>(),
                                                c.steps.As<int32_t>(), c.coefs.As<float>(), c.L,
                                                c.N, c.channels);
                },
            .atLevel =
                [](BlockCase& c, int level) {
                    ncb::audio::GetResamplerKernels(level).block(
                        c.Base(), c.out.As<int16_t>(), c.steps.As<int32_t>(), c.coefs.As<float>(),
                        c.L, c.N, c.channels);
                },
        },
        {.cases = 40});
}

TEST(ResamplerKernels, WholeStreamIsTheSameAtEveryLevel) {
    const std::vector<int16_t> in = sig::Tone(20000, 3001, 44100, 30000, 2, 0.7);
    const std::vector<int16_t> want = ResampleAll(in, 2, 44100, 48000, 0, 0);
    for (int level : ncbtest::SupportedLevels())
        EXPECT_EQ(ResampleAll(in, 2, 44100, 48000, 1000, level), want) << "level " << level;
}

// ---- Streaming ----

struct SplitCase {
    int in, out, channels;
};

class ResamplerStreaming : public ::testing::TestWithParam<SplitCase> {};

// Any way of cutting the input into calls gives the same output, and each
// call reports the window fill it started from.
TEST_P(ResamplerStreaming, AnySplitGivesTheSameSamples) {
    const SplitCase& s = GetParam();
    const int frames = s.in / 2;
    const std::vector<int16_t> in = sig::Tone(frames, 440.5, s.in, 20000, s.channels, 1.1);
    const std::vector<int16_t> whole = ResampleAll(in, s.channels, s.in, s.out);
    BufferPtr state = Resampler(s.in, s.out, s.channels);
    const auto& h = Header(state.get());
    const int H = h.half, M = h.inFrames, L = h.outFrames;
    ASSERT_EQ(whole.size() % (L * s.channels), 0u);
    // Blocks of the whole stream: one per M frames beyond H, plus the flush.
    EXPECT_EQ(whole.size() / (L * s.channels), static_cast<size_t>((frames - H) / M + 1));

    CaseRandom r(static_cast<uint64_t>(s.in) * 7 + s.out, false);
    std::vector<int16_t> pieces;
    int expectedFill = 0;
    for (int at = 0; at < frames;) {
        const int n = std::min(frames - at, r.Chance(30) ? r.Uniform(0, 3) : r.Uniform(1, 3 * M));
        std::vector<int16_t> piece(in.begin() + at * s.channels,
                                   in.begin() + (at + n) * s.channels);
        const size_t before = pieces.size();
        EXPECT_EQ(Push(state.get(), piece, &pieces), expectedFill);
        const int blocks = std::max(0, (n - H + expectedFill) / M);
        EXPECT_EQ(pieces.size() - before, static_cast<size_t>(blocks * L * s.channels));
        expectedFill = expectedFill + n - blocks * M;
        EXPECT_EQ(h.fill, expectedFill);
        at += n;
    }
    Push(state.get(), {}, &pieces, true);
    EXPECT_EQ(pieces, whole);
}

INSTANTIATE_TEST_SUITE_P(Rates, ResamplerStreaming,
                         ::testing::Values(SplitCase{44100, 48000, 2}, SplitCase{48000, 44100, 1},
                                           SplitCase{8000, 96000, 1}, SplitCase{96000, 22050, 2},
                                           SplitCase{44100, 44100, 2}),
                         [](const auto& info) {
                             return std::to_string(info.param.in) + "_to_" +
                                    std::to_string(info.param.out) + "_" +
                                    std::to_string(info.param.channels) + "ch";
                         });

TEST(ResamplerStreamingEdges, ShortInputOnlyFillsTheHistory) {
    BufferPtr state = Resampler(44100, 48000, 1);  // H = 18, M = 294
    std::vector<int16_t> out;
    EXPECT_EQ(Push(state.get(), std::vector<int16_t>(10, 1000), &out), 0);
    EXPECT_EQ(Push(state.get(), std::vector<int16_t>(7, 1000), &out), 10);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(Header(state.get()).fill, 17);
    // 18 + 294 frames make the first block.
    EXPECT_EQ(Push(state.get(), std::vector<int16_t>(295, 1000), &out), 17);
    EXPECT_EQ(out.size(), 320u);
    EXPECT_EQ(Header(state.get()).fill, 18);
}

TEST(ResamplerStreamingEdges, LastAndUninitFlushOneBlockEach) {
    BufferPtr state = Resampler(48000, 44100, 2);  // L = 588, M = 640, H = 20
    std::vector<int16_t> out;
    Push(state.get(), std::vector<int16_t>(2 * 700, 500), &out, true);
    EXPECT_EQ(out.size(), 2u * 2 * 588);  // one complete block and the flush
    BufferPtr final = NewBuffer();
    EXPECT_EQ(AP::AccurateResampleUninit(final.get(), state.get()), 1);
    EXPECT_EQ(final->GetDataSize(), 588 * 2 * 2);
    EXPECT_EQ(state->GetAddress(), nullptr);
    // Uninit of a state that has no memory, and without an output.
    EXPECT_EQ(AP::AccurateResampleUninit(final.get(), state.get()), 1);
    EXPECT_EQ(final->GetDataSize(), 0);
    BufferPtr other = Resampler(8000, 16000, 1);
    EXPECT_EQ(AP::AccurateResampleUninit(nullptr, other.get()), 1);
    EXPECT_EQ(other->GetAddress(), nullptr);
}

TEST(ResamplerStreamingEdges, FlushedToneEndsWithTheSignal) {
    // A constant input comes out constant (unity DC gain) until the padded
    // zeros of the flush enter the filter, and the flush covers the input's
    // last frames.
    const std::vector<int16_t> dc(44100 / 2, 10000);
    const std::vector<int16_t> out = ResampleAll(dc, 1, 44100, 48000);
    for (size_t k = 100; k + 700 < out.size(); ++k) ASSERT_NEAR(out[k], 10000, 12) << k;
    const size_t covered = 48000 / 2 - 30;
    EXPECT_GE(out.size(), covered);
}

TEST(ResamplerFailures, OutputAllocationFailureLeavesTheStateAsItWas) {
    const std::vector<int16_t> in = sig::Tone(5000, 1000, 44100, 8000);
    BufferPtr a = Resampler(44100, 48000, 1), b = Resampler(44100, 48000, 1);
    std::vector<int16_t> outA, outB;
    Push(a.get(), std::vector<int16_t>(in.begin(), in.begin() + 1000), &outA);
    Push(b.get(), std::vector<int16_t>(in.begin(), in.begin() + 1000), &outB);
    {
        BufferPtr input = Input(std::vector<int16_t>(in.begin() + 1000, in.end()));
        BufferPtr output = NewBuffer();
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0, 2);
        EXPECT_EQ(AP::AccurateResample(input.get(), output.get(), a.get()), 0);
        EXPECT_EQ(AP::AccurateResampleLast(input.get(), output.get(), a.get()), 0);
    }
    {
        BufferPtr output = NewBuffer();
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0);
        EXPECT_EQ(AP::AccurateResampleUninit(output.get(), b.get()), 0);
        EXPECT_EQ(b->GetAddress(), nullptr);  // freed all the same
    }
    Push(a.get(), std::vector<int16_t>(in.begin() + 1000, in.end()), &outA, true);
    EXPECT_EQ(outA, ResampleAll(in, 1, 44100, 48000));
}

TEST(ResamplerFailures, InitRefusals) {
    BufferPtr state = NewBuffer();
    EXPECT_EQ(AP::AccurateResampleInit(0, 48000, 1, 0, state.get()), 0);
    EXPECT_EQ(AP::AccurateResampleInit(44100, -1, 1, 0, state.get()), 0);
    EXPECT_EQ(AP::AccurateResampleInit(44100, 48000, 3, 0, state.get()), 0);
    EXPECT_EQ(AP::AccurateResampleInit(44100, 48000, 1, 0, nullptr), 0);
    {
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0);
        EXPECT_EQ(AP::AccurateResampleInit(44100, 48000, 1, 0, state.get()), 0);
    }
    EXPECT_EQ(state->GetAddress(), nullptr);
    std::vector<int16_t> out;
    BufferPtr input = Input({1, 2, 3}), output = NewBuffer();
    EXPECT_EQ(AP::AccurateResample(input.get(), output.get(), state.get()), 0);  // no state
}

// ---- Quality ----

struct QualityCase {
    int in, out;
    double thdnBound;    // dB, at most
    double rippleBound;  // dB, at most
    double idealBound;   // dB, SNR against the ideal sine at least
};

class ResamplerQuality : public ::testing::TestWithParam<QualityCase> {};

// The steady part of an output: past the filter start-up, before the flush.
constexpr size_t kSkip = 400;

TEST_P(ResamplerQuality, SinesAndPassband) {
    const QualityCase& q = GetParam();
    const int low = std::min(q.in, q.out);
    const double seconds = 0.5;
    const int frames = static_cast<int>(q.in * seconds);

    // THD+N at 1 kHz, half scale, and the error against the ideal sine at
    // the output rate (checks gain, delay and distortion together).
    const double f = 1000, amplitude = 16384;
    const std::vector<double> y =
        sig::Channel(ResampleAll(sig::Tone(frames, f, q.in, amplitude), 1, q.in, q.out), 1, 0);
    const size_t count = static_cast<size_t>(q.out * seconds) - 2 * kSkip;
    const sig::SineFit fit = sig::FitSine(y, kSkip, count, f, q.out);
    double err = 0;
    for (size_t k = kSkip; k < kSkip + count; ++k) {
        const double ideal = amplitude * std::sin(2 * std::numbers::pi * f * k / q.out);
        err += (y[k] - ideal) * (y[k] - ideal);
    }
    const double idealSnr = -sig::Db(std::sqrt(err / count) / (amplitude / std::sqrt(2.0)));

    // Passband: gains from 50 Hz to 0.4 of the lower rate.
    double lo = 1e9, hi = -1e9;
    for (double pf = 50; pf <= 0.4 * low; pf *= 1.25) {
        const std::vector<double> py =
            sig::Channel(ResampleAll(sig::Tone(frames, pf, q.in, 8000), 1, q.in, q.out), 1, 0);
        const double gain = sig::Db(sig::FitSine(py, kSkip, count, pf, q.out).amplitude / 8000.0);
        lo = std::min(lo, gain);
        hi = std::max(hi, gain);
    }
    std::printf(
        "[ quality  ] resample %d -> %d: THD+N %.1f dB at 1 kHz -6 dBFS, SNR against the ideal "
        "sine %.1f dB, passband 50 Hz..%.0f Hz gain %+.3f..%+.3f dB (ripple %.3f dB)\n",
        q.in, q.out, fit.ThdN(), idealSnr, 0.4 * low, lo, hi, hi - lo);
    EXPECT_LT(fit.ThdN(), q.thdnBound);
    EXPECT_GT(idealSnr, q.idealBound);
    EXPECT_LT(hi - lo, q.rippleBound);
    EXPECT_NEAR(fit.amplitude / amplitude, 1.0, 0.01);
}

class ResamplerAliasing : public ::testing::TestWithParam<QualityCase> {};

TEST_P(ResamplerAliasing, AliasesAreRejected) {
    const QualityCase& q = GetParam();
    // A tone 10 % above the new Nyquist frequency would fold back to 10 %
    // below it; the filter must remove it.
    const double f = 0.55 * q.out;
    const int frames = q.in / 2;
    const std::vector<double> y =
        sig::Channel(ResampleAll(sig::Tone(frames, f, q.in, 16384), 1, q.in, q.out), 1, 0);
    double e = 0;
    const size_t count = static_cast<size_t>(q.out / 2) - 2 * kSkip;
    for (size_t k = kSkip; k < kSkip + count; ++k) e += y[k] * y[k];
    const double rejection = -sig::Db(std::sqrt(e / count) / (16384 / std::sqrt(2.0)));
    std::printf("[ quality  ] resample %d -> %d: a tone at %.0f Hz is %.1f dB down\n", q.in, q.out,
                f, rejection);
    EXPECT_GT(rejection, 50);
}

INSTANTIATE_TEST_SUITE_P(Rates, ResamplerQuality,
                         // Bounds a few dB inside what the fixed filter gives:
                         // 36 taps (more when downsampling), Kaiser beta 6.
                         ::testing::Values(QualityCase{44100, 48000, -80, 0.02, 72},
                                           QualityCase{48000, 44100, -80, 0.02, 78},
                                           QualityCase{8000, 96000, -75, 0.02, 75},
                                           QualityCase{96000, 22050, -85, 0.02, 84}),
                         [](const auto& info) {
                             return std::to_string(info.param.in) + "_to_" +
                                    std::to_string(info.param.out);
                         });

// Nothing folds back when upsampling; these are the downsampling cases.
INSTANTIATE_TEST_SUITE_P(Rates, ResamplerAliasing,
                         ::testing::Values(QualityCase{48000, 44100, 0, 0, 0},
                                           QualityCase{96000, 22050, 0, 0, 0}),
                         [](const auto& info) {
                             return std::to_string(info.param.in) + "_to_" +
                                    std::to_string(info.param.out);
                         });

// sox resamples the same tones: both outputs agree sample by sample (both
// are time-aligned band-limited interpolations) and tone by tone.
TEST_P(ResamplerQuality, AgreesWithSox) {
    if (!sig::SoxAvailable()) GTEST_SKIP() << "sox is not installed";
    const QualityCase& q = GetParam();
    const int frames = q.in / 2;
    const int low = std::min(q.in, q.out);
    std::vector<int16_t> in(frames);
    const double tones[3] = {0.013 * low, 0.11 * low, 0.37 * low};
    for (int i = 0; i < frames; ++i) {
        double v = 0;
        for (double t : tones) v += 7000 * std::sin(2 * std::numbers::pi * t * i / q.in);
        in[i] = static_cast<int16_t>(std::lround(v));
    }
    const std::vector<double> ours = sig::Channel(ResampleAll(in, 1, q.in, q.out), 1, 0);
    const std::vector<double> sox = sig::Channel(sig::SoxResample(in, 1, q.in, q.out), 1, 0);
    ASSERT_GT(sox.size(), static_cast<size_t>(q.out / 2 - 10));
    const size_t count = static_cast<size_t>(q.out / 2) - 2 * kSkip;
    double diff = 0, power = 0;
    for (size_t k = kSkip; k < kSkip + count; ++k) {
        diff += (ours[k] - sox[k]) * (ours[k] - sox[k]);
        power += sox[k] * sox[k];
    }
    const double agreement = -10 * std::log10(diff / power);
    double worstTone = 0;
    for (double t : tones) {
        const double a = sig::FitSine(ours, kSkip, count, t, q.out).amplitude;
        const double b = sig::FitSine(sox, kSkip, count, t, q.out).amplitude;
        worstTone = std::max(worstTone, std::abs(sig::Db(a / b)));
    }
    std::printf(
        "[ quality  ] resample %d -> %d against sox -v: difference %.1f dB below the signal, "
        "tones within %.3f dB\n",
        q.in, q.out, agreement, worstTone);
    EXPECT_GT(agreement, 60);
    EXPECT_LT(worstTone, 0.05);
}

}  // namespace

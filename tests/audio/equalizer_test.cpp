// Equalizer: the block kernel against its twin at every level, the two
// conversion rules, band selection, failures, and the magnitude response
// measured with sine sweeps against an independent design of the same
// one-octave band-pass (0.25 x input plus the gain-weighted bands).
#include "audio/equalizer.h"

#include <gtest/gtest.h>

#include <complex>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numbers>
#include <vector>

#include "ncodecbase/audio_processor.h"
#include "platform/kernel/fault.h"
#include "tests/audio/signal_util.h"
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

// An initialised state, or a failed test.
BufferPtr Equalizer(int rate, std::vector<int> freqs, std::vector<float> gains, int stereo,
                    int level = 0) {
    BufferPtr state = NewBuffer();
    EXPECT_EQ(AP::EqualizerInit(rate, static_cast<int>(freqs.size()), freqs.data(), gains.data(),
                                stereo, level, state.get()),
              1);
    return state;
}

std::vector<int16_t> Filter(CNCodecBuffer* state, std::vector<int16_t> samples, int channels) {
    EXPECT_EQ(
        AP::EqualizerFilter(samples.data(), static_cast<int>(samples.size()) / channels, state), 1);
    return samples;
}

int BandCount(CNCodecBuffer* state) {
    return ncb::audio::EqHeader(static_cast<uint8_t*>(state->GetAddress()))->bandCount;
}

// ---- Kernel equivalence ----

struct EqCase {
    int frames = 0;
    bool stereo = false, inPlace = false;
    Plane input, output, state;
    std::vector<const Plane*> Planes() const { return {&input, &output, &state}; }
    std::string Describe() const {
        return "frames " + std::to_string(frames) + (stereo ? ", stereo" : ", mono") +
               (inPlace ? ", in place" : "");
    }
    int16_t* Out() { return (inPlace ? input : output).As<int16_t>(); }
};

EqCase MakeEqCase(CaseRandom& r) {
    EqCase c;
    c.stereo = r.Chance(50);
    c.inPlace = r.Chance(30);
    c.frames = r.Chance(50) ? 4 * r.Uniform(1, 60) : r.Size(1, 240);
    const int channels = c.stereo ? 2 : 1;
    c.input = r.MakeSamples<int16_t>(c.frames * channels, "input");
    if (r.Chance(50)) r.FillUniform<int16_t>(c.input, -3000, 3000);
    c.output = r.MakeSamples<int16_t>(c.frames * channels, "output");

    const int rate = r.Chance(50) ? 44100 : r.Uniform(8000, 96000);
    std::vector<int> freqs;
    std::vector<float> gains;
    const int bands = r.Uniform(0, 12);
    for (int b = 0; b < bands; ++b) {
        freqs.push_back(r.Uniform(20, rate / 2));
        gains.push_back(static_cast<float>(r.Uniform(-300, 300)) / 100.0f);
    }
    BufferPtr state = Equalizer(rate, freqs, gains, c.stereo);
    const int bytes = state->GetDataSize();
    c.state = r.MakeSamples<float>(bytes / 4, "state");
    std::memcpy(c.state.Data(), state->GetAddress(), bytes);
    // Histories from an earlier stretch of signal, big enough to saturate now and then.
    for (int ch = 0; ch < channels; ++ch) {
        uint8_t* s = c.state.Data();
        ncb::audio::EqInputHistory(s, ch)->x1 = static_cast<float>(r.Uniform(-32768, 32767));
        ncb::audio::EqInputHistory(s, ch)->x2 = static_cast<float>(r.Uniform(-32768, 32767));
        auto* y = ncb::audio::EqBandHistory(s, ch);
        for (int b = 0; b < bands && b < 12; ++b) {
            y->y1[b] = static_cast<float>(r.Uniform(-40000, 40000));
            y->y2[b] = static_cast<float>(r.Uniform(-40000, 40000));
        }
    }
    return c;
}

TEST(EqualizerKernels, FilterMatchesTwinAtEveryLevel) {
    ncbtest::CheckAllLevels<EqCase>({
        .name = "EqualizerFilter",
        .make = MakeEqCase,
        .twin =
            [](EqCase& c) {
                const int channels = c.stereo ? 2 : 1;
                const int blocks = c.frames - c.frames % 4;
                uint8_t* s = c.state.Data();
                int16_t* in = c.input.As<int16_t>();
                ncb::audio::EqualizerBlocks_c(in, c.Out(), blocks, s);
                (c.stereo ? AP::ProcessFraqSamplesStereo : AP::ProcessFraqSamplesMono)(
                    in + blocks * channels, c.Out() + blocks * channels, c.frames - blocks, s);
            },
        .atLevel =
            [](EqCase& c, int level) {
                uint8_t* s = c.state.Data();
                ncb::audio::EqHeader(s)->level = level;
                const int bytes = c.state.Width() * 4;
                CNCodecBuffer* wrap = CNCodecBuffer::CreateWrapBuffer(s, bytes, bytes, nullptr);
                if (c.inPlace) {
                    AP::EqualizerFilter(c.input.As<short>(), c.frames, wrap);
                } else {
                    AP::EqualizerFilter(c.input.As<short>(), c.frames, wrap, c.output.As<short>());
                }
                wrap->Release();
                ncb::audio::EqHeader(s)->level = 0;
            },
    });
}

// ---- Conversion rules, band selection, lifecycle ----

TEST(Equalizer, StateSizeFollowsChannelCount) {
    EXPECT_EQ(Equalizer(44100, {1000}, {1.0f}, 0)->GetDataSize(), 336);
    EXPECT_EQ(Equalizer(44100, {1000}, {1.0f}, 1)->GetDataSize(), 464);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(Equalizer(44100, {}, {}, 1)->GetAddress()) % 16, 0u);
}

TEST(Equalizer, NoBandsGiveAQuarterRoundedInBlocksTruncatedAfter) {
    BufferPtr state = Equalizer(44100, {}, {}, 0);
    // 0.25 x: 0.75, -0.75, 0.5, 1.5 round to 1, -1, 0 (even), 2; then
    // 0.75, -0.75, 1.5 truncate to 0, 0, 1.
    const std::vector<int16_t> in = {3, -3, 2, 6, 3, -3, 6};
    EXPECT_EQ(Filter(state.get(), in, 1), (std::vector<int16_t>{1, -1, 0, 2, 0, 0, 1}));
    // Extremes saturate only through the bands, never through the quarter.
    const std::vector<int16_t> big = {-32768, 32767, -32768, 32767, 32767};
    EXPECT_EQ(Filter(state.get(), big, 1), (std::vector<int16_t>{-8192, 8192, -8192, 8192, 8191}));
}

TEST(Equalizer, BandsAboveHalfTheRateAreDropped) {
    EXPECT_EQ(BandCount(Equalizer(44100, {22050}, {1.0f}, 0).get()), 1);
    EXPECT_EQ(BandCount(Equalizer(44100, {22051}, {1.0f}, 0).get()), 0);
    EXPECT_EQ(BandCount(Equalizer(8000, {100, 5000, 200, 4001, 4000}, {1, 1, 1, 1, 1}, 1).get()),
              3);
    // All bands dropped: the output is the input times 0.25.
    BufferPtr none = Equalizer(8000, {5000, 6000}, {2.0f, 2.0f}, 0);
    EXPECT_EQ(Filter(none.get(), {400, 800, -400, 1200}, 1),
              (std::vector<int16_t>{100, 200, -100, 300}));
}

TEST(Equalizer, ConfigTakesOneGainPerKeptBandInOrder) {
    BufferPtr state = Equalizer(8000, {100, 5000, 200}, {0.5f, 9.0f, 0.25f}, 0);
    const auto* h = ncb::audio::EqHeader(static_cast<uint8_t*>(state->GetAddress()));
    EXPECT_EQ(h->gain[0], 0.5f);
    EXPECT_EQ(h->gain[1], 0.25f);
    EXPECT_EQ(h->gain[2], 0.0f);
    float gains[2] = {3.0f, 4.0f};
    EXPECT_EQ(AP::EqualizerConfig(gains, state.get()), 1);
    EXPECT_EQ(h->gain[0], 3.0f);
    EXPECT_EQ(h->gain[1], 4.0f);
    EXPECT_EQ(h->gain[2], 0.0f);
}

TEST(Equalizer, InitFailures) {
    // A band at 0 Hz has no filter: the state memory is freed again.
    BufferPtr state = NewBuffer();
    int freqs[2] = {1000, 0};
    float gains[2] = {1, 1};
    EXPECT_EQ(AP::EqualizerInit(44100, 2, freqs, gains, 0, 0, state.get()), 0);
    EXPECT_EQ(state->GetAddress(), nullptr);
    // Out of memory.
    {
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0);
        EXPECT_EQ(AP::EqualizerInit(44100, 1, freqs, gains, 1, 0, state.get()), 0);
    }
    EXPECT_EQ(state->GetAddress(), nullptr);
    // A wrap buffer cannot be allocated.
    uint8_t memory[512];
    CNCodecBuffer* wrap = CNCodecBuffer::CreateWrapBuffer(memory, 512, 0, nullptr);
    EXPECT_EQ(AP::EqualizerInit(44100, 1, freqs, gains, 0, 0, wrap), 0);
    wrap->Release();
    // More than twelve kept bands.
    std::vector<int> many(13, 1000);
    std::vector<float> ones(13, 1.0f);
    EXPECT_EQ(AP::EqualizerInit(44100, 13, many.data(), ones.data(), 0, 0, state.get()), 0);
    // Uninit frees.
    BufferPtr ok = Equalizer(44100, {1000}, {1}, 0);
    EXPECT_EQ(AP::EqualizerUninit(ok.get()), 1);
    EXPECT_EQ(ok->GetAddress(), nullptr);
}

// ---- Signal properties ----

constexpr int kRate = 44100;

// Steady-state gain at `freq` through `state`, from a 1 s tone (the last half).
double MeasuredGain(CNCodecBuffer* state, double freq, int channels = 1) {
    const double amplitude = 6000;
    AP::EqualizerReset(state);
    std::vector<int16_t> in = sig::Tone(kRate, freq, kRate, amplitude, channels, 1.0);
    std::vector<int16_t> out = Filter(state, in, channels);
    double first = 0;
    for (int c = 0; c < channels; ++c) {
        const auto x = sig::Channel(in, channels, c), y = sig::Channel(out, channels, c);
        const double gain = sig::FitSine(y, kRate / 2, kRate / 2, freq, kRate).amplitude /
                            sig::FitSine(x, kRate / 2, kRate / 2, freq, kRate).amplitude;
        if (c == 0) first = gain;
        EXPECT_NEAR(gain, first, 1e-3) << "channel " << c << " at " << freq << " Hz";
    }
    return first;
}

// The band-pass with unit gain at f0 and 1/sqrt 2 at f0 / sqrt 2, from the
// textbook constant-peak design, evaluated in double precision.
std::complex<double> BandResponse(double f0, double f, double rate) {
    const double w0 = 2 * std::numbers::pi * f0 / rate;
    const double w1 = w0 / std::numbers::sqrt2;
    const double q = (std::cos(w1) - std::cos(w0)) / std::sin(w1);  // bandwidth term
    const double b0 = q / (1 + q), a1 = -2 * std::cos(w0) / (1 + q), a2 = (1 - q) / (1 + q);
    const std::complex<double> z1 = std::polar(1.0, -2 * std::numbers::pi * f / rate);
    return b0 * (1.0 - z1 * z1) / (1.0 + a1 * z1 + a2 * z1 * z1);
}

double ExpectedGain(const std::vector<int>& freqs, const std::vector<float>& gains, double f) {
    std::complex<double> h = 0.25;
    for (size_t b = 0; b < freqs.size(); ++b)
        if (2 * freqs[b] <= kRate)
            h += static_cast<double>(gains[b]) * BandResponse(freqs[b], f, kRate);
    return std::abs(h);
}

TEST(EqualizerResponse, ThousandHertzBandAtThreeQuartersGivesUnity) {
    BufferPtr state = Equalizer(kRate, {1000}, {0.75f}, 0);
    const double gain = MeasuredGain(state.get(), 1000);
    std::printf("[ quality  ] 1000 Hz band, gain 0.75: %.4f (%.3f dB) at 1000 Hz\n", gain,
                sig::Db(gain));
    EXPECT_NEAR(gain, 1.0, 0.002);
    // One octave band: at the lower edge the band gives 1/sqrt 2 of its
    // centre gain, with the phase of the band added to the quarter.
    EXPECT_NEAR(MeasuredGain(state.get(), 1000 / std::numbers::sqrt2),
                ExpectedGain({1000}, {0.75f}, 1000 / std::numbers::sqrt2), 0.002);
}

TEST(EqualizerResponse, DcSettlesAtAQuarter) {
    BufferPtr state = Equalizer(kRate, {31, 1000, 16000}, {2.0f, 2.0f, 2.0f}, 0);
    std::vector<int16_t> dc(kRate, 10000);
    std::vector<int16_t> out = Filter(state.get(), dc, 1);
    for (size_t i = out.size() - 1000; i < out.size(); ++i) ASSERT_NEAR(out[i], 2500, 1);
}

struct Setting {
    const char* name;
    std::vector<int> freqs;
    std::vector<float> gains;
    int channels;
};

class EqualizerSweep : public ::testing::TestWithParam<Setting> {};

// The same structure from the coefficients the state holds, evaluated in
// double precision: what the filter must do, given its single-precision design.
double StateGain(CNCodecBuffer* state, double f) {
    const auto* h = ncb::audio::EqHeader(static_cast<uint8_t*>(state->GetAddress()));
    const std::complex<double> z1 = std::polar(1.0, -2 * std::numbers::pi * f / kRate);
    std::complex<double> sum = 0.25;
    for (int b = 0; b < h->bandCount; ++b)
        sum += static_cast<double>(h->gain[b]) * static_cast<double>(h->alpha[b]) *
               (1.0 - z1 * z1) /
               (1.0 - static_cast<double>(h->gamma[b]) * z1 +
                static_cast<double>(h->beta[b]) * z1 * z1);
    return std::abs(sum);
}

// Sine sweep over band centres and the points between them. The measured
// magnitude matches the state's own coefficients within 0.005 dB (the filter
// runs the structure faithfully) and the textbook design within 0.05 dB (the
// single-precision design hits the intended bands; its rounding shows most in
// the narrow low bands).
TEST_P(EqualizerSweep, MagnitudeMatchesTheStructure) {
    const Setting& s = GetParam();
    BufferPtr state = Equalizer(kRate, s.freqs, s.gains, s.channels == 2);
    std::vector<double> probes;
    for (double f = 31.25; f < 20000; f *= std::sqrt(std::numbers::sqrt2)) probes.push_back(f);
    probes.push_back(21000);
    double worstDesign = 0, worstState = 0;
    std::printf("[ quality  ] equalizer %s: Hz, measured dB, design dB, from coefficients dB\n",
                s.name);
    for (double f : probes) {
        const double got = sig::Db(MeasuredGain(state.get(), f, s.channels));
        const double design = sig::Db(ExpectedGain(s.freqs, s.gains, f));
        const double fromState = sig::Db(StateGain(state.get(), f));
        worstDesign = std::max(worstDesign, std::abs(got - design));
        worstState = std::max(worstState, std::abs(got - fromState));
        std::printf("[ quality  ]   %8.1f %8.3f %8.3f %8.3f\n", f, got, design, fromState);
        EXPECT_NEAR(got, fromState, 0.005) << "at " << f << " Hz";
        EXPECT_NEAR(got, design, 0.05) << "at " << f << " Hz";
    }
    std::printf(
        "[ quality  ] equalizer %s: largest deviation %.4f dB from the design, %.4f dB from "
        "its coefficients\n",
        s.name, worstDesign, worstState);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, EqualizerSweep,
    ::testing::Values(
        Setting{"flat_unity",
                {31, 62, 125, 250, 500, 1000, 2000, 4000, 8000, 16000},
                {0.75f, 0.75f, 0.75f, 0.75f, 0.75f, 0.75f, 0.75f, 0.75f, 0.75f, 0.75f},
                1},
        Setting{"bass_boost_treble_cut",
                {31, 62, 125, 250, 500, 1000, 2000, 4000, 8000, 16000, 22050, 30000},
                {2.0f, 1.5f, 1.0f, 0.5f, 0.0f, 0.0f, 0.0f, 0.0f, 0.1f, 0.2f, 0.3f, 5.0f},
                1},
        Setting{"stereo_peaks", {100, 3000, 12000}, {1.75f, -0.2f, 0.75f}, 2}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(EqualizerResponse, StereoChannelsAreFilteredApart) {
    // Left silent, right a tone: nothing leaks into the left channel.
    BufferPtr state = Equalizer(kRate, {1000, 4000}, {1.0f, 1.0f}, 1);
    std::vector<int16_t> in(2 * 4410);
    const std::vector<int16_t> tone = sig::Tone(4410, 1000, kRate, 8000);
    for (int i = 0; i < 4410; ++i) in[2 * i + 1] = tone[i];
    std::vector<int16_t> out = Filter(state.get(), in, 2);
    for (int i = 0; i < 4410; ++i) ASSERT_EQ(out[2 * i], 0);
}

TEST(EqualizerLifecycle, ConfigMidStreamEqualsTheNewGainsFromTheStart) {
    // Histories hold band outputs, which do not depend on the gains: after a
    // gain change the output is exactly that of a filter that always had the
    // new gains. No click, no reset.
    const std::vector<int16_t> music = sig::Tone(8000, 440, kRate, 9000);
    std::vector<int16_t> first(music.begin(), music.begin() + 4000);
    std::vector<int16_t> second(music.begin() + 4000, music.end());
    BufferPtr changed = Equalizer(kRate, {250, 1000, 4000}, {0.1f, 0.2f, 0.3f}, 0);
    BufferPtr always = Equalizer(kRate, {250, 1000, 4000}, {2.0f, 1.0f, 0.5f}, 0);
    Filter(changed.get(), first, 1);
    Filter(always.get(), first, 1);
    float gains[3] = {2.0f, 1.0f, 0.5f};
    AP::EqualizerConfig(gains, changed.get());
    EXPECT_EQ(Filter(changed.get(), second, 1), Filter(always.get(), second, 1));
}

TEST(EqualizerLifecycle, ResetEqualsAFreshState) {
    const std::vector<int16_t> noise = sig::Tone(3001, 5000, kRate, 20000, 2, 0.5);
    BufferPtr used = Equalizer(kRate, {60, 600, 6000}, {1.5f, 0.5f, 1.0f}, 1);
    BufferPtr fresh = Equalizer(kRate, {60, 600, 6000}, {1.5f, 0.5f, 1.0f}, 1);
    Filter(used.get(), noise, 2);
    EXPECT_EQ(AP::EqualizerReset(used.get()), 1);
    EXPECT_EQ(Filter(used.get(), noise, 2), Filter(fresh.get(), noise, 2));
}

TEST(EqualizerLifecycle, SplittingTheInputOnBlockBoundariesChangesNothing) {
    const std::vector<int16_t> in = sig::Tone(4096, 1234, kRate, 15000, 2, 1.0);
    BufferPtr whole = Equalizer(kRate, {1000, 2000}, {1.0f, 2.0f}, 1);
    BufferPtr parts = Equalizer(kRate, {1000, 2000}, {1.0f, 2.0f}, 1);
    std::vector<int16_t> a = Filter(whole.get(), in, 2);
    std::vector<int16_t> b;
    for (size_t at = 0; at < in.size(); at += 2 * 512) {
        std::vector<int16_t> piece(in.begin() + at, in.begin() + at + 2 * 512);
        piece = Filter(parts.get(), piece, 2);
        b.insert(b.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(a, b);
}

}  // namespace

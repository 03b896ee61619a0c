// Rate control: block and fade sizes, the splice structure of a piece at
// the documented speeds, running piece lengths, pending frames and the flush,
// the high-pass option, failures, the cross-fade kernel against its twin, and
// signal properties: pitch stays put and the output length hits the target.
#include "audio/rate_control.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numbers>
#include <numeric>
#include <vector>

#include "audio/equalizer.h"
#include "ncodecbase/audio_processor.h"
#include "platform/kernel/fault.h"
#include "tests/audio/signal_util.h"
#include "tests/support/kernel_checker.h"

namespace {

using AP = CNAudioProcessor;
using ncbtest::CaseRandom;
using ncbtest::Plane;
namespace sig = ncbtest::audio;
using Tag = CNAudioProcessor::RateControlDataInfoTag;

struct BufferDeleter {
    void operator()(CNCodecBuffer* b) const { b->Release(); }
};
using BufferPtr = std::unique_ptr<CNCodecBuffer, BufferDeleter>;
BufferPtr NewBuffer() { return BufferPtr(CNCodecBuffer::CreateBuffer()); }

BufferPtr RateControl(int rate, int target, int stereo, int highPass = 0, int level = 0) {
    BufferPtr state = NewBuffer();
    EXPECT_EQ(AP::RateControlInit(rate, target, stereo, level, highPass, state.get()), 1);
    return state;
}

Tag* Header(CNCodecBuffer* state) { return static_cast<Tag*>(state->GetAddress()); }

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
    return p && b->GetDataSize() ? std::vector<int16_t>(p, p + b->GetDataSize() / 2)
                                 : std::vector<int16_t>{};
}

// One call; appends the output and returns its user data.
int Push(CNCodecBuffer* state, const std::vector<int16_t>& in, std::vector<int16_t>* out,
         int flush = 0) {
    BufferPtr input = Input(in), output = NewBuffer();
    output->SetBufferUserData(-1);
    EXPECT_EQ(AP::RateControlFilter(input.get(), output.get(), flush, state), 1);
    const std::vector<int16_t> got = Samples(output.get());
    out->insert(out->end(), got.begin(), got.end());
    return output->GetBufferUserData();
}

std::vector<int16_t> Stretch(const std::vector<int16_t>& in, int channels, int rate, int target,
                             int chunk, int highPass = 0, int level = 0) {
    BufferPtr state = RateControl(rate, target, channels == 2, highPass, level);
    std::vector<int16_t> out;
    const size_t step = static_cast<size_t>(chunk) * channels;
    for (size_t at = 0; at < in.size(); at += step) {
        const bool last = at + step >= in.size();
        Push(state.get(),
             std::vector<int16_t>(in.begin() + at, in.begin() + std::min(in.size(), at + step)),
             &out, last ? 1 : 0);
    }
    return out;
}

// ---- Sizes ----

TEST(RateControl, BlockFadeAndStateSizes) {
    BufferPtr mono = RateControl(44100, 44100, 0);
    EXPECT_EQ(Header(mono.get())->nBlockFrames, 882);
    EXPECT_EQ(Header(mono.get())->nFadeFrames, 220);
    EXPECT_EQ(mono->GetDataSize(), (882 + 4 * 220) * 2 + 64);
    BufferPtr stereo = RateControl(48000, 60000, 1);
    EXPECT_EQ(Header(stereo.get())->nBlockFrames, 960);
    EXPECT_EQ(Header(stereo.get())->nFadeFrames, 240);
    EXPECT_EQ(stereo->GetDataSize(), (2 * 960 + 4 * 240) * 2 + 64);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(stereo->GetAddress()) % 16, 0u);
    // 22050: 5 ms is 110.25 frames, rounded down to a multiple of 4.
    EXPECT_EQ(Header(RateControl(22050, 22050, 0).get())->nFadeFrames, 108);
    // The fade tables: k / O rising, 1 - k / O falling.
    Tag* h = Header(mono.get());
    const auto* in =
        reinterpret_cast<const float*>(reinterpret_cast<uint8_t*>(h) + h->nFadeInOffset);
    const auto* out =
        reinterpret_cast<const float*>(reinterpret_cast<uint8_t*>(h) + h->nFadeOutOffset);
    EXPECT_EQ(in[0], 0.0f);
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_FLOAT_EQ(in[110], 0.5f);
    EXPECT_NEAR(out[219], 1.0f / 220, 1e-6);
}

TEST(RateControl, InitRefusals) {
    BufferPtr state = NewBuffer();
    EXPECT_EQ(AP::RateControlInit(799, 799, 0, 0, 0, state.get()), 0);  // O would be 0
    EXPECT_EQ(AP::RateControlInit(800, 800, 0, 0, 0, state.get()), 1);  // W 16, O 4
    EXPECT_EQ(AP::RateControlInit(44100, 0, 0, 0, 0, state.get()), 0);
    EXPECT_EQ(AP::RateControlInit(44100, 44100, 0, 0, 0, nullptr), 0);
    BufferPtr fresh = NewBuffer();
    nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0);
    EXPECT_EQ(AP::RateControlInit(44100, 44100, 1, 0, 0, fresh.get()), 0);
    EXPECT_EQ(fresh->GetAddress(), nullptr);
}

// ---- The piece of one block ----

// A block whose frames are easy to recognise: frame f holds 10 f + 1 (and
// its negative in the right channel).
std::vector<int16_t> Ramp(int frames, int channels) {
    std::vector<int16_t> v(static_cast<size_t>(frames) * channels);
    for (int f = 0; f < frames; ++f)
        for (int c = 0; c < channels; ++c)
            v[f * channels + c] = static_cast<int16_t>((c ? -1 : 1) * (10 * f + 1));
    return v;
}

int16_t Fade(int16_t fresh, int16_t old, int k, int O) {
    const float in = static_cast<float>(k) * (1.0f / O);
    return static_cast<int16_t>(std::nearbyint(fresh * in + old * (1.0f - in)));
}

class Piece : public ::testing::TestWithParam<int> {};

// Speed 2x: the block's first 10 ms, whose last 5 ms fade into the block's last 5 ms.
TEST_P(Piece, DoubleSpeedKeepsTheFirstHalf) {
    const int C = GetParam();
    BufferPtr state = RateControl(44100, 22050, C == 2);
    const int W = 882, O = 220, L = 441;
    std::vector<int16_t> block = Ramp(W, C), out(L * C);
    AP::RateControlConvertOnce(block.data(), out.data(), L, Header(state.get()));
    for (int f = 0; f < L; ++f)
        for (int c = 0; c < C; ++c) {
            const int16_t want = f < L - O ? block[f * C + c]
                                           : Fade(block[(W - O + f - (L - O)) * C + c],
                                                  block[f * C + c], f - (L - O), O);
            ASSERT_EQ(out[f * C + c], want) << "frame " << f << " channel " << c;
        }
}

// Speed 0.8x: the whole block, then W / 4 frames from frame O, with a fade
// at the splice (into the block's start) and at the end (into its end).
TEST_P(Piece, SlowerSpeedRepeatsFromTheFadeLength) {
    const int C = GetParam();
    BufferPtr state = RateControl(44100, 55125, C == 2);
    const int W = 882, O = 220, L = W + W / 4;  // 1102 (W / 4 rounded down)
    std::vector<int16_t> block = Ramp(W, C), out(L * C);
    AP::RateControlConvertOnce(block.data(), out.data(), L, Header(state.get()));
    // Reference, built step by step.
    std::vector<int16_t> ref(L * C);
    for (int f = 0; f < W; ++f)
        for (int c = 0; c < C; ++c) ref[f * C + c] = block[f * C + c];
    for (int k = 0; k < O; ++k)
        for (int c = 0; c < C; ++c)
            ref[(W - O + k) * C + c] = Fade(block[k * C + c], ref[(W - O + k) * C + c], k, O);
    for (int f = W; f < L; ++f)
        for (int c = 0; c < C; ++c) ref[f * C + c] = block[(O + f - W) * C + c];
    for (int k = 0; k < O; ++k)
        for (int c = 0; c < C; ++c)
            ref[(L - O + k) * C + c] =
                Fade(block[(W - O + k) * C + c], ref[(L - O + k) * C + c], k, O);
    EXPECT_EQ(out, ref);
}

// Same rate: the piece is the block (its last O frames fade into themselves).
TEST_P(Piece, SameRateReproducesTheBlock) {
    const int C = GetParam();
    BufferPtr state = RateControl(44100, 44100, C == 2);
    std::vector<int16_t> block = sig::Tone(882, 997, 44100, 32000, C, 0.3), out(882 * C);
    AP::RateControlConvertOnce(block.data(), out.data(), 882, Header(state.get()));
    EXPECT_EQ(out, block);
}

// Three times slower: the middle repeats twice, every splice faded.
TEST_P(Piece, LongPiecesRepeatTheMiddle) {
    const int C = GetParam();
    BufferPtr state = RateControl(800, 2400, C == 2);  // W 16, O 4
    std::vector<int16_t> block = Ramp(16, C), out(48 * C);
    AP::RateControlConvertOnce(block.data(), out.data(), 48, Header(state.get()));
    // Untouched stretches: frames 0-11, then 16-23 (block 4..11), 28-35, 40-43.
    for (int f : {0, 11, 16, 23, 28, 35, 40, 43})
        ASSERT_EQ(out[f * C], block[(f < 16 ? f : 4 + (f - 16) % 12) * C]) << f;
    // The very last frames are the block's last frames faded in.
    EXPECT_EQ(out[44 * C], Fade(block[12 * C], block[8 * C], 0, 4));
    EXPECT_EQ(out[47 * C], Fade(block[15 * C], block[11 * C], 3, 4));
}

INSTANTIATE_TEST_SUITE_P(Channels, Piece, ::testing::Values(1, 2),
                         [](const auto& info) { return info.param == 1 ? "mono" : "stereo"; });

// ---- Streaming ----

TEST(RateControlStreaming, PiecesFollowTheRatioWithoutDrift) {
    for (int target : {48000, 37000, 44101, 29999}) {
        BufferPtr state = RateControl(44100, target, 0);
        CaseRandom r(static_cast<uint64_t>(target), false);
        int64_t inFrames = 0;
        std::vector<int16_t> out;
        for (int call = 0; call < 60; ++call) {
            const int n = r.Uniform(0, 3000);
            Push(state.get(), std::vector<int16_t>(n, 100), &out);
            inFrames += n;
            const int64_t blocks = inFrames / 882;
            // Whatever the calls, the total trails floor(blocks x T x W / R)
            // by less than one frame per block of the last call: what a call
            // cannot spread evenly over its pieces, the next one catches up.
            const int64_t callBlocks = blocks - (inFrames - n) / 882;
            const int64_t behind = blocks * target * 882 / 44100 - static_cast<int64_t>(out.size());
            ASSERT_GE(behind, 0) << "target " << target << ", call " << call;
            ASSERT_LT(behind, std::max<int64_t>(callBlocks, 1)) << "target " << target;
        }
        EXPECT_EQ(Header(state.get())->nBlocksProcessed, inFrames / 882);
        // Packed 64-bit fields: read them by value.
        const int64_t consumed = Header(state.get())->nInputConsumed;
        const int64_t produced = Header(state.get())->nOutputProduced;
        EXPECT_EQ(consumed, inFrames / 882 * 882);
        EXPECT_EQ(produced, static_cast<int64_t>(out.size()));
    }
}

TEST(RateControlStreaming, PieceLengthsDifferByAtMostOneFrame) {
    // One block per call, as a render feeding 20 ms at a time does.
    for (int target : {48000, 44101, 29999, 61234}) {
        BufferPtr state = RateControl(44100, target, 1);
        std::vector<int16_t> out;
        std::vector<size_t> lengths;
        for (int call = 0; call < 200; ++call) {
            const size_t before = out.size();
            Push(state.get(), std::vector<int16_t>(2 * 882, 100), &out);
            lengths.push_back((out.size() - before) / 2);
        }
        const auto [lo, hi] = std::minmax_element(lengths.begin(), lengths.end());
        EXPECT_LE(*hi - *lo, 1u) << "target " << target;
        EXPECT_EQ(out.size() / 2, static_cast<size_t>(200LL * target * 882 / 44100));
    }
}

TEST(RateControlStreaming, PendingFramesAndFlush) {
    BufferPtr state = RateControl(44100, 44100, 1);
    std::vector<int16_t> out;
    // 300 frames: no block, all pending, user data untouched without output.
    BufferPtr input = Input(Ramp(300, 2)), output = NewBuffer();
    output->SetBufferUserData(-7);
    ASSERT_EQ(AP::RateControlFilter(input.get(), output.get(), 0, state.get()), 1);
    EXPECT_EQ(output->GetDataSize(), 0);
    EXPECT_EQ(output->GetBufferUserData(), -7);
    EXPECT_EQ(Header(state.get())->nPendingFrames, 300);
    // 100 more with flush: padded to 882 - 300 = 582 frames of input, one
    // piece out, the delay of its first frame is the 300 older frames.
    BufferPtr more = Input(Ramp(100, 2));
    ASSERT_EQ(AP::RateControlFilter(more.get(), output.get(), 1, state.get()), 1);
    EXPECT_EQ(more->GetDataSize(), 582 * 4);
    const std::vector<int16_t> padded = Samples(more.get());
    for (int i = 200; i < 582 * 2; ++i) ASSERT_EQ(padded[i], 0) << i;
    EXPECT_EQ(output->GetDataSize(), 882 * 4);
    EXPECT_EQ(output->GetBufferUserData(), 300);
    EXPECT_EQ(Header(state.get())->nPendingFrames, 0);
    const std::vector<int16_t> piece = Samples(output.get());
    const std::vector<int16_t> first = Ramp(300, 2);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), piece.begin()));
    // A flush that needs no padding leaves the input alone.
    BufferPtr exact = Input(Ramp(882, 2));
    ASSERT_EQ(AP::RateControlFilter(exact.get(), output.get(), 1, state.get()), 1);
    EXPECT_EQ(exact->GetDataSize(), 882 * 4);
    EXPECT_EQ(output->GetBufferUserData(), 0);
}

TEST(RateControlStreaming, SameRateIsTheInputDelayedByThePendingFrames) {
    const std::vector<int16_t> in = sig::Tone(44100 / 2, 440, 44100, 30000, 2, 0.4);
    const std::vector<int16_t> out = Stretch(in, 2, 44100, 44100, 1000);
    ASSERT_GE(out.size(), in.size());
    EXPECT_TRUE(std::equal(in.begin(), in.end(), out.begin()));
}

TEST(RateControlStreaming, ResetDropsPendingFramesAndCounters) {
    BufferPtr state = RateControl(44100, 50000, 0);
    std::vector<int16_t> out;
    Push(state.get(), std::vector<int16_t>(2000, 5), &out);
    EXPECT_EQ(AP::RateControlReset(state.get()), 1);
    const Tag* h = Header(state.get());
    EXPECT_EQ(h->nPendingFrames, 0);
    EXPECT_EQ(h->nBlocksProcessed, 0);
    const int64_t consumed = h->nInputConsumed, produced = h->nOutputProduced;
    EXPECT_EQ(consumed, 0);
    EXPECT_EQ(produced, 0);
    EXPECT_EQ(Push(state.get(), std::vector<int16_t>(882, 5), &out), 0);
    EXPECT_EQ(AP::RateControlUninit(state.get()), 1);
    EXPECT_EQ(state->GetAddress(), nullptr);
}

TEST(RateControlFailures, AllocationFailuresLeaveTheStateAsItWas) {
    BufferPtr state = RateControl(44100, 50000, 0);
    std::vector<int16_t> out;
    Push(state.get(), std::vector<int16_t>(500, 5), &out);
    {
        BufferPtr input = Input(std::vector<int16_t>(1000, 9)), output = NewBuffer();
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0, 10);
        EXPECT_EQ(AP::RateControlFilter(input.get(), output.get(), 0, state.get()), 0);
        EXPECT_EQ(AP::RateControlFilter(input.get(), output.get(), 1, state.get()), 0);
    }
    EXPECT_EQ(Header(state.get())->nPendingFrames, 500);
    EXPECT_EQ(Header(state.get())->nBlocksProcessed, 0);
    // A wrap buffer cannot be grown for the flush padding.
    int16_t raw[100] = {};
    CNCodecBuffer* wrap = CNCodecBuffer::CreateWrapBuffer(raw, 200, 200, nullptr);
    BufferPtr output = NewBuffer();
    EXPECT_EQ(AP::RateControlFilter(wrap, output.get(), 1, state.get()), 0);
    wrap->Release();
    EXPECT_EQ(Header(state.get())->nPendingFrames, 500);
}

// ---- High-pass ----

// The documented difference equation as a transfer function, in double precision.
double HighPassGain(double f, double rate) {
    const std::complex<double> z = std::polar(1.0, -2 * std::numbers::pi * f / rate);
    const std::complex<double> num = 0.92727435 - 1.8544941 * z + 0.92727435 * z * z;
    const std::complex<double> den = 1.0 - 1.9059465 * z + 0.9114024 * z * z;
    return std::abs(num / den);
}

TEST(RateControlHighPass, ResponseFollowsItsCoefficients) {
    // At 44.1 kHz: about -40 dB at DC (the numerator is a hair off a double
    // zero), -3 dB near 500 Hz, -0.25 dB above 1 kHz.
    for (double f : {150.0, 500.0, 1000.0, 5000.0, 15000.0}) {
        std::vector<int16_t> tone = sig::Tone(16000, f, 44100, 10000, 2, 1.0);
        AP::HighPassFilterStereo(tone.data(), 16000);
        for (int c = 0; c < 2; ++c) {
            const double gain =
                sig::FitSine(sig::Channel(tone, 2, c), 8000, 8000, f, 44100).amplitude / 10000;
            EXPECT_NEAR(sig::Db(gain), sig::Db(HighPassGain(f, 44100)), 0.02) << f << " Hz";
        }
    }
    std::vector<int16_t> dc(8000, 12000);
    AP::HighPassFilterMono(dc.data(), 8000);
    EXPECT_GT(dc[0], 10000);  // a zero state: the step passes at first
    EXPECT_NEAR(dc[7999], 12000 * HighPassGain(0, 44100), 1.5);
    // Each call starts from a zero state.
    std::vector<int16_t> a(100, 3000), b(100, 3000);
    AP::HighPassFilterMono(a.data(), 100);
    AP::HighPassFilterMono(b.data(), 50);
    AP::HighPassFilterMono(b.data() + 50, 50);
    EXPECT_NE(a[50], b[50]);
    EXPECT_EQ(b[50], a[0]);
    // Clamped output, unclamped histories: a full-scale step overshoots.
    std::vector<int16_t> step(50, 0);
    std::fill(step.begin() + 2, step.end(), -32768);
    AP::HighPassFilterMono(step.data(), 50);
    EXPECT_EQ(step[2], -30384);  // 0.92727435 x -32768, truncated toward zero
}

TEST(RateControlHighPass, OnlyWhenSlowingDownAndAskedFor) {
    const std::vector<int16_t> dc(44100 / 2, 8000);
    const std::vector<int16_t> slowWith = Stretch(dc, 1, 44100, 55125, 4410, 1);
    const std::vector<int16_t> slowWithout = Stretch(dc, 1, 44100, 55125, 4410, 0);
    const std::vector<int16_t> fastWith = Stretch(dc, 1, 44100, 35280, 4410, 1);
    EXPECT_EQ(slowWithout[slowWithout.size() / 2], 8000);
    EXPECT_EQ(fastWith[fastWith.size() / 2], 8000);
    EXPECT_LT(std::abs(slowWith[slowWith.size() / 2]), 100);
}

// ---- Kernel ----

struct FadeCase {
    int frames = 0, channels = 1;
    Plane fresh, out, fadeIn, fadeOut;
    std::vector<const Plane*> Planes() const { return {&fresh, &out, &fadeIn, &fadeOut}; }
    std::string Describe() const {
        return "frames " + std::to_string(frames) + ", channels " + std::to_string(channels);
    }
};

TEST(RateControlKernels, CrossFadeMatchesTwinAtEveryLevel) {
    ncbtest::CheckAllLevels<FadeCase>({
        .name = "RateControl cross-fade",
        .make =
            [](CaseRandom& r) {
                FadeCase c;
                c.frames = 4 * r.Uniform(1, 70);
                c.channels = r.Uniform(1, 2);
                c.fresh = r.MakeSamples<int16_t>(c.frames * c.channels, "fresh");
                c.out = r.MakeSamples<int16_t>(c.frames * c.channels, "out");
                c.fadeIn = r.MakeSamples<float>(c.frames, "fadeIn");
                c.fadeOut = r.MakeSamples<float>(c.frames, "fadeOut");
                // Real tables mostly, sometimes factors that saturate.
                const bool wild = r.Chance(20);
                for (int k = 0; k < c.frames; ++k) {
                    const float f = static_cast<float>(k) * (1.0f / c.frames);
                    c.fadeIn.As<float>()[k] = wild ? 2.5f - f : f;
                    c.fadeOut.As<float>()[k] = wild ? 3.0f * f : 1.0f - f;
                }
                return c;
            },
        .twin =
            [](FadeCase& c) {
                ncb::audio::CrossFade_c(c.fresh.As<int16_t>(), c.out.As<int16_t>(),
                                        c.fadeIn.As<float>(), c.fadeOut.As<float>(), c.frames,
                                        c.channels);
            },
        .atLevel =
            [](FadeCase& c, int level) {
                ncb::audio::GetRateControlKernels(level).crossFade(
                    c.fresh.As<int16_t>(), c.out.As<int16_t>(), c.fadeIn.As<float>(),
                    c.fadeOut.As<float>(), c.frames, c.channels);
            },
    });
}

TEST(RateControlKernels, WholeStreamIsTheSameAtEveryLevel) {
    const std::vector<int16_t> in = sig::Tone(30000, 1234, 48000, 31000, 2, 2.0);
    const std::vector<int16_t> want = Stretch(in, 2, 48000, 38400, 7000, 0, 0);
    for (int level : ncbtest::SupportedLevels())
        EXPECT_EQ(Stretch(in, 2, 48000, 38400, 7000, 0, level), want) << "level " << level;
}

// ---- Signal properties ----

struct TempoCase {
    double speed;  // 1.25: faster
    int rate, channels;
};

class Tempo : public ::testing::TestWithParam<TempoCase> {};

TEST_P(Tempo, KeepsPitchAndHitsTheLength) {
    const TempoCase& t = GetParam();
    const int target = static_cast<int>(std::lround(t.rate / t.speed));
    const int frames = 2 * t.rate;
    const double f = 1000;
    const std::vector<int16_t> in = sig::Tone(frames, f, t.rate, 16000, t.channels, 0.5);
    const std::vector<int16_t> out = Stretch(in, t.channels, t.rate, target, 4096);
    const int W = t.rate * 20 / 1000;
    const double outFrames = static_cast<double>(out.size()) / t.channels;
    const double want = static_cast<double>(frames) * target / t.rate;
    const double blockOut = static_cast<double>(W) * target / t.rate;
    const sig::Peak peak =
        sig::DominantFrequency(sig::Channel(out, t.channels, 0), 0, 32768, t.rate);
    std::printf(
        "[ quality  ] tempo %.2fx at %d Hz: %d frames -> %.0f (target %.0f, within %.2f blocks), "
        "1000 Hz tone peaks at %.1f Hz (bin %.2f Hz)\n",
        t.speed, t.rate, frames, outFrames, want, std::abs(outFrames - want) / blockOut, peak.freq,
        peak.binWidth);
    EXPECT_LE(std::abs(outFrames - want), blockOut);
    EXPECT_LE(std::abs(peak.freq - f), peak.binWidth);
}

INSTANTIATE_TEST_SUITE_P(Speeds, Tempo,
                         ::testing::Values(TempoCase{1.25, 44100, 2}, TempoCase{0.8, 44100, 2},
                                           TempoCase{2.0, 48000, 1}, TempoCase{0.5, 22050, 1}),
                         [](const auto& info) {
                             return "x" + std::to_string(static_cast<int>(info.param.speed * 100)) +
                                    "_" + std::to_string(info.param.rate) + "_" +
                                    std::to_string(info.param.channels) + "ch";
                         });

}  // namespace

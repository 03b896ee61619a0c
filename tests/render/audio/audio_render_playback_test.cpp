// The audio render end to end on the virtual device under a manual clock:
// what the device plays (the capture) against the input converted by an
// independent reference, the silence pads, the state changes and their
// events, and the play clock against the true position of the capture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "platform/kernel/fault.h"
#include "tests/render/audio/render_harness.h"

namespace ncbtest::render_audio {
namespace {

constexpr int kRate = 48000;

// Index of the first capture sample that is not silence, from `from`.
size_t NonZeroFrom(const std::vector<int16_t>& s, size_t from) {
    while (from < s.size() && s[from] == 0) ++from;
    return from;
}

// The capture is `audio` exactly, followed by silence only, at most `padMs`.
void ExpectAudioThenSilence(const std::vector<int16_t>& capture, const std::vector<int16_t>& audio,
                            int channels, int rate, int padMs) {
    ASSERT_GE(capture.size(), audio.size());
    ASSERT_TRUE(std::equal(audio.begin(), audio.end(), capture.begin()))
        << "first difference at sample "
        << (std::mismatch(audio.begin(), audio.end(), capture.begin()).first - audio.begin());
    EXPECT_EQ(NonZeroFrom(capture, audio.size()), capture.size()) << "stale audio after the end";
    EXPECT_LE(capture.size() - audio.size(), static_cast<size_t>(rate * padMs / 1000 * channels));
}

// ---- Conversion to the device layout, per input layout ----

struct LayoutCase {
    const char* name;
    int bits;
    int channels;
    int mask;
    bool interleaved;
};

class RenderLayout : public RenderHarness, public ::testing::WithParamInterface<LayoutCase> {};

// Independent reference: the 16-bit value of each kept channel, frame by frame.
int16_t Reference16(const std::vector<uint8_t>& raw, const LayoutCase& c, int frames, int frame,
                    int channel) {
    const int bytes = c.bits / 8;
    const size_t index = c.interleaved ? static_cast<size_t>(frame) * c.channels + channel
                                       : static_cast<size_t>(channel) * frames + frame;
    const uint8_t* p = raw.data() + index * bytes;
    if (c.bits == 8) return static_cast<int16_t>(static_cast<int8_t>(p[0]) * 256);
    if (c.bits == 16) return static_cast<int16_t>(p[0] | p[1] << 8);
    return static_cast<int16_t>(p[1] | p[2] << 8);
}

TEST_P(RenderLayout, DevicePlaysEveryFrameOnceThenSilence) {
    const LayoutCase c = GetParam();
    const int speakers = __builtin_popcount(c.mask);
    OpenRender(Format(kRate, c.channels, c.mask, c.bits));
    // Five buffers of 100 ms plus one odd-sized one, so fills split buffers
    // and chunks straddle the ring's wrap.
    std::vector<int16_t> want;
    uint32_t stamp = 0;
    for (int b = 0; b < 6; ++b) {
        const int frames = b == 5 ? 1237 : kRate / 10;
        std::vector<uint8_t> raw(static_cast<size_t>(frames) * c.channels * c.bits / 8);
        uint32_t x = 77u + b;
        for (auto& v : raw) v = static_cast<uint8_t>((x = x * 1103515245u + 12345u) >> 23);
        for (int f = 0; f < frames; ++f)
            for (int ch = 0; ch < speakers; ++ch)
                want.push_back(Reference16(raw, c, frames, f, ch));
        Append(raw.data(), static_cast<int>(raw.size()), frames, stamp, c.interleaved);
        stamp += static_cast<uint32_t>(frames * 1000 / kRate);
    }
    render_.AppendBuffer(nullptr);
    ASSERT_EQ(render_.Play(), 1);
    ASSERT_TRUE(RunUntilState(4, 2000));
    EXPECT_TRUE(Signalled(status_));
    ExpectAudioThenSilence(Capture(), want, speakers, kRate, 50);
    EXPECT_EQ(sound_.GetBufferState(0).format.dwChannelMask, static_cast<nplat::DWORD>(c.mask));
}

INSTANTIATE_TEST_SUITE_P(Layouts, RenderLayout,
                         ::testing::Values(LayoutCase{"mono16", 16, 1, 0x4, true},
                                           LayoutCase{"stereo16", 16, 2, 0x3, true},
                                           LayoutCase{"stereo16planar", 16, 2, 0x3, false},
                                           LayoutCase{"stereo8", 8, 2, 0x3, true},
                                           LayoutCase{"stereo8planar", 8, 2, 0x3, false},
                                           LayoutCase{"stereo24", 24, 2, 0x3, true},
                                           LayoutCase{"surround24planar", 24, 6, 0x3F, false},
                                           LayoutCase{"quadPlusTwoExtra16", 16, 6, 0x33, true},
                                           LayoutCase{"stereoPlusExtra8", 8, 3, 0x3, true},
                                           LayoutCase{"fivePlusExtra24", 24, 6, 0x1F, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- States, events and the play clock ----

class RenderPlayback : public RenderHarness {};

TEST_F(RenderPlayback, NothingIsHeardBeforePlay) {
    OpenRender(Format(kRate, 2, 0x3));
    EXPECT_EQ(State(), 2);
    Append16(Signal(kRate / 2, 2), 2, 0);
    Step(10);
    Step(500);
    EXPECT_EQ(sound_.CaptureSize(0), 0u);
    EXPECT_EQ(State(), 2);
}

TEST_F(RenderPlayback, RunningDryWithoutEndMarkGivesStateThreeAndOneEvent) {
    OpenRender(Format(kRate, 2, 0x3));
    const auto audio = Signal(kRate / 5, 2);
    Append16(audio, 2, 0);
    render_.Play();
    ASSERT_TRUE(RunUntilState(3, 1000));
    EXPECT_TRUE(Signalled(status_));
    Step(100);
    EXPECT_FALSE(Signalled(status_));  // no repeat while dry
    ExpectAudioThenSilence(Capture(), audio, 2, kRate, 50);
    EXPECT_FALSE(sound_.GetBufferState(0).playing);
}

TEST_F(RenderPlayback, PlayClockFollowsTheCaptureWithinOnePoll) {
    OpenRender(Format(kRate, 2, 0x3));
    const uint32_t first = 700000;
    EXPECT_EQ(render_.GetCurrentPlayTime(), 0u);
    std::vector<int16_t> all;
    for (int b = 0; b < 15; ++b) {
        const auto part = Signal(kRate / 10, 2, b + 1);
        all.insert(all.end(), part.begin(), part.end());
        Append16(part, 2, first + b * 100);
    }
    EXPECT_EQ(render_.GetCurrentPlayTime(), first);  // nothing written yet
    render_.Play();
    Settle();
    uint32_t last = first;
    while (State() == 1) {
        Step(7);
        const size_t heard = std::min(Capture().size(), all.size()) / 2;
        const double truth = first + heard * 1000.0 / kRate;
        const uint32_t now = render_.GetCurrentPlayTime();
        EXPECT_NEAR(static_cast<double>(now), truth, 10.0);
        EXPECT_GE(now, last);
        last = now;
    }
    EXPECT_EQ(State(), 3);
    EXPECT_EQ(render_.GetCurrentPlayTime(), first + 1500);  // end time
    CNAudioRender::StatInfoTag st{};
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uPlayedTime, 1500000u);
    EXPECT_EQ(st.nBufferedTime, 0);
    ExpectAudioThenSilence(Capture(), all, 2, kRate, 50);
}

TEST_F(RenderPlayback, PauseAndResumeLoseAndRepeatNothing) {
    OpenRender(Format(kRate, 2, 0x3));
    const auto audio = Signal(kRate, 2);
    Append16(audio, 2, 0);
    render_.AppendBuffer(nullptr);
    render_.Play();
    Step(10);
    for (int i = 0; i < 30; ++i) Step(10);
    ASSERT_EQ(render_.Pause(), 1);
    EXPECT_EQ(State(), 2);
    const size_t paused = Capture().size();
    const uint32_t time = render_.GetCurrentPlayTime();
    Step(10);
    Step(400);
    EXPECT_EQ(Capture().size(), paused);
    EXPECT_EQ(render_.GetCurrentPlayTime(), time);
    render_.Play();
    ASSERT_TRUE(RunUntilState(4, 2000));
    ExpectAudioThenSilence(Capture(), audio, 2, kRate, 50);
}

TEST_F(RenderPlayback, UnderrunThenMoreInputContinuesAfterTheSilencePad) {
    OpenRender(Format(kRate, 2, 0x3));
    const auto a = Signal(kRate / 10, 2, 1), b = Signal(kRate / 10, 2, 2);
    Append16(a, 2, 0);
    render_.Play();
    ASSERT_TRUE(RunUntilState(3, 1000));
    Append16(b, 2, 100);
    render_.AppendBuffer(nullptr);
    render_.Play();
    ASSERT_TRUE(RunUntilState(4, 1000));
    const auto cap = Capture();
    ASSERT_TRUE(std::equal(a.begin(), a.end(), cap.begin()));
    const size_t resume = NonZeroFrom(cap, a.size());
    EXPECT_LE(resume - a.size(), static_cast<size_t>(kRate * 50 / 1000 * 2));
    ExpectAudioThenSilence(std::vector<int16_t>(cap.begin() + resume, cap.end()), b, 2, kRate, 50);
}

TEST_F(RenderPlayback, ZeroFrameBuffersDoNotStallTheReader) {
    OpenRender(Format(kRate, 1, 0x4));
    const auto a = Signal(kRate / 10, 1, 1), b = Signal(kRate / 10, 1, 2);
    Append16(a, 1, 0);
    Append(nullptr, 0, 0, 100);
    Append(a.data(), 10, 1000, 100);  // announces more frames than it holds
    Append16(b, 1, 100);
    render_.AppendBuffer(nullptr);
    render_.Play();
    ASSERT_TRUE(RunUntilState(4, 1000));
    std::vector<int16_t> want = a;
    want.insert(want.end(), b.begin(), b.end());
    ExpectAudioThenSilence(Capture(), want, 1, kRate, 50);
}

TEST_F(RenderPlayback, ResetDropsTheQueueAndRestartsTheClock) {
    OpenRender(Format(kRate, 2, 0x3));
    CNCodecBuffer* held = MakeBuffer(Signal(kRate, 2).data(), kRate * 4, kRate, 5000);
    render_.AppendBuffer(held);
    render_.Play();
    for (int i = 0; i < 20; ++i) Step(10);
    EXPECT_EQ(held->GetRefCount(), 2);
    ASSERT_EQ(render_.Reset(), 1);
    EXPECT_EQ(held->GetRefCount(), 1);  // released by the reset
    held->Release();
    Settle();
    EXPECT_EQ(State(), 2);
    EXPECT_FALSE(sound_.GetBufferState(0).playing);
    sound_.ClearCapture(0);
    const auto b = Signal(kRate / 5, 2, 9);
    Append16(b, 2, 90000);
    EXPECT_EQ(render_.GetCurrentPlayTime(), 90000u);
    render_.AppendBuffer(nullptr);
    render_.Play();
    ASSERT_TRUE(RunUntilState(4, 1000));
    ExpectAudioThenSilence(Capture(), b, 2, kRate, 50);
    EXPECT_EQ(render_.GetCurrentPlayTime(), 90200u);
}

TEST_F(RenderPlayback, PlayedBuffersAreReleasedAsTheyPlay) {
    OpenRender(Format(kRate, 2, 0x3));
    std::vector<CNCodecBuffer*> held;
    for (int b = 0; b < 5; ++b) {
        held.push_back(
            MakeBuffer(Signal(kRate / 10, 2, b).data(), kRate / 10 * 4, kRate / 10, b * 100));
        render_.AppendBuffer(held.back());
    }
    render_.Play();
    for (int i = 0; i < 16; ++i) Step(10);  // 160 ms played
    EXPECT_EQ(held[0]->GetRefCount(), 1);
    EXPECT_EQ(held[1]->GetRefCount(), 2);  // partly played
    EXPECT_EQ(held[4]->GetRefCount(), 2);
    ASSERT_TRUE(RunUntilState(3, 1000));
    for (CNCodecBuffer* b : held) {
        EXPECT_EQ(b->GetRefCount(), 1);
        b->Release();
    }
}

TEST_F(RenderPlayback, TimeStampsThatWrapStayContinuous) {
    OpenRender(Format(kRate, 1, 0x4));
    const uint32_t start = 4294967000u;
    for (int b = 0; b < 6; ++b) Append16(Signal(kRate / 10, 1, b), 1, start + b * 100);
    render_.Play();
    Step(10);
    uint64_t last = start;
    for (int i = 0; i < 55; ++i) {
        Step(10);
        const uint32_t now = render_.GetCurrentPlayTime();
        const uint64_t unwrapped = now < start ? now + (1ull << 32) : now;
        EXPECT_GE(unwrapped, last);
        EXPECT_LE(unwrapped - last, 20u);
        last = unwrapped;
    }
    EXPECT_GT(last, 1ull << 32);
}

TEST_F(RenderPlayback, ReverseStampsMakeTheClockRunBackwards) {
    OpenRender(Format(kRate, 1, 0x4), 1);
    Append16(Signal(kRate, 1, 1), 1, 5000);
    Append16(Signal(kRate, 1, 2), 1, 4000);
    EXPECT_EQ(render_.GetCurrentPlayTime(), 5000u);
    render_.Play();
    Step(10);
    uint32_t last = 5000;
    for (int i = 0; i < 150; ++i) {
        Step(10);
        const uint32_t now = render_.GetCurrentPlayTime();
        EXPECT_LE(now, last);
        last = now;
    }
    EXPECT_NEAR(static_cast<double>(last), 5000 - 1510, 12.0);
}

TEST_F(RenderPlayback, CursorJitterIsIgnoredUpToTenMilliseconds) {
    OpenRender(Format(kRate, 2, 0x3));
    Append16(Signal(kRate, 2), 2, 0);
    render_.Play();
    for (int i = 0; i < 30; ++i) Step(10);
    const uint32_t before = render_.GetCurrentPlayTime();
    sound_.InjectCursorJitter(kRate * 5 / 1000, 1);
    EXPECT_EQ(render_.GetCurrentPlayTime(), before);
    // A cursor 20 ms back is believed: it lies before everything still
    // queued, so the clock no longer reports `before`.
    sound_.InjectCursorJitter(kRate * 20 / 1000, 1);
    EXPECT_NE(render_.GetCurrentPlayTime(), before);
    EXPECT_EQ(render_.GetCurrentPlayTime(), before);
}

TEST_F(RenderPlayback, NotificationFiresWhenItsTimeIsHeard) {
    OpenRender(Format(kRate, 2, 0x3));
    Append16(Signal(kRate, 2), 2, 1000);
    render_.Play();
    Step(10);
    EXPECT_EQ(render_.SetNotifyTime(1333), 1);
    // The thread shortens its poll so the event comes within 2 ms.
    for (;;) {
        const uint32_t now = render_.GetCurrentPlayTime();
        if (Signalled(position_)) {
            EXPECT_GE(now, 1333u);
            break;
        }
        ASSERT_LE(now, 1333u + 2);
        Step(1);
    }
    EXPECT_EQ(render_.SetNotifyTime(1200), 2);  // already passed: at once
    EXPECT_TRUE(Signalled(position_));
    EXPECT_EQ(render_.SetNotifyTime(1600), 1);
    EXPECT_EQ(render_.ClearNotifyTime(), 1);
    for (int i = 0; i < 50; ++i) Step(10);
    EXPECT_FALSE(Signalled(position_));
}

// ---- Failures ----

TEST_F(RenderPlayback, FatalDeviceErrorIsStickyUntilClose) {
    OpenRender(Format(kRate, 2, 0x3));
    Append16(Signal(kRate / 2, 2), 2, 0);
    render_.Play();
    Step(10);
    sound_.FailCall(nplat::SoundCall::kLock, 1);
    Append16(Signal(kRate, 2), 2, 500);
    for (int i = 0; i < 20 && State() != 5; ++i) Step(10);
    ASSERT_EQ(State(), 5);
    EXPECT_TRUE(Signalled(status_));
    CNCodecBuffer* b = MakeBuffer(nullptr, 0, 0, 0);
    EXPECT_EQ(render_.AppendBuffer(b), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 8);
    EXPECT_EQ(b->GetRefCount(), 1);
    b->Release();
    EXPECT_EQ(render_.Play(), 0);
    EXPECT_EQ(render_.Pause(), 0);
    EXPECT_EQ(render_.Reset(), 0);
    EXPECT_EQ(render_.GetCurrentPlayTime(), 0u);
    EXPECT_EQ(render_.GetExtendErrorCode(), 8);
    EXPECT_EQ(render_.SetNotifyTime(1), 0);
    EXPECT_EQ(render_.ResetStatInfo(), 0);
    CNAudioRender::StatInfoTag st{};
    EXPECT_EQ(render_.GetStatInfo(&st), 1);
    EXPECT_EQ(st.nState, 5);
    EXPECT_EQ(render_.Close(), 1);
    EXPECT_EQ(State(), 0);
}

struct FatalCall {
    const char* name;
    nplat::SoundCall call;
};

class RenderFatal : public RenderHarness, public ::testing::WithParamInterface<FatalCall> {};

TEST_P(RenderFatal, FailingDeviceCallEndsInStateFive) {
    OpenRender(Format(kRate, 2, 0x3));
    sound_.FailCall(GetParam().call, 1, 1000);
    Append16(Signal(kRate / 5, 2), 2, 0);
    render_.Play();
    ASSERT_TRUE(RunUntilState(5, 1000));
    EXPECT_TRUE(Signalled(status_));
    sound_.ClearFailures();
}

INSTANTIATE_TEST_SUITE_P(Calls, RenderFatal,
                         ::testing::Values(FatalCall{"Lock", nplat::SoundCall::kLock},
                                           FatalCall{"Play", nplat::SoundCall::kPlay},
                                           FatalCall{"Stop", nplat::SoundCall::kStop},
                                           FatalCall{"SetCurrentPosition",
                                                     nplat::SoundCall::kSetCurrentPosition}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace ncbtest::render_audio

namespace ncbtest::render_audio {
namespace {

// ---- Silence pad and real-time discipline ----

TEST_F(RenderPlayback, SilencePadKeepsALateWakeUpFromReplayingOldAudio) {
    OpenRender(Format(kRate, 1, 0x4));
    const auto audio = Signal(kRate * 2, 1, 4);  // longer than the ring: old audio lies ahead
    Append16(audio, 1, 0);
    render_.Play();
    Settle();
    CNAudioRender::StatInfoTag st{};
    do {
        Step(10);
        render_.GetStatInfo(&st);
    } while (st.nBufferedTime > 100);
    // One late wake-up: the cursor runs 40 ms past the end of the audio.
    clock_.Advance(static_cast<uint64_t>(st.nBufferedTime) + 40);
    const auto cap = Capture();
    ASSERT_GE(cap.size(), audio.size() + kRate * 40 / 1000 - 1);
    EXPECT_TRUE(std::equal(audio.begin(), audio.end(), cap.begin()));
    for (size_t i = audio.size(); i < cap.size(); ++i) ASSERT_EQ(cap[i], 0) << i;
    Settle();
}

struct RealTimeCase {
    const char* name;
    int flags;
    int speed;
    nplat::DWORD maxRate;
    int formatFlags;
};

class RenderRealTime : public RenderHarness, public ::testing::WithParamInterface<RealTimeCase> {};

// Once playing, the render thread needs no memory: with every library
// allocation failing it still plays the whole stream.
TEST_P(RenderRealTime, PlaysToTheEndWithEveryAllocationFailing) {
    const RealTimeCase c = GetParam();
    nplat::VirtualDeviceConfig d;
    d.maxRate = c.maxRate;
    sound_.SetDevices(&d, 1);
    ASSERT_EQ(render_.Init(), 1);
    CNAudioRender::PlayConfigInfoTag config{};
    config.nSize = 116;
    config.nFlags = c.flags;
    config.nVolume = 200;
    config.nSpeed = c.speed;
    config.nEqualizerBands = 3;
    for (int b = 0; b < 3; ++b) {
        config.nEqualizerFreq[b] = 250 << (2 * b);
        config.fEqualizerGain[b] = 0.5f + b * 0.4f;
    }
    ASSERT_EQ(CNAudioRender::CheckPlayConfig(&config), 1);
    render_.SetPlayConfig(&config);
    status_ = NCreateEvent(0, 0);
    auto f = Format(kRate, 2, 0x3, 16, c.formatFlags);
    ASSERT_EQ(render_.Open(nullptr, 0, &f, nullptr, status_, 0, 0), 1);
    Settle();
    for (int b = 0; b < 40; ++b) Append16(Signal(kRate / 20, 2, b), 2, b * 50);
    render_.AppendBuffer(nullptr);
    ASSERT_TRUE(sound_.ReserveCapture(0, 16 << 20));
    {
        nplat::fault::Scope noMemory(nplat::fault::Kind::kHeap, 0, 1 << 30);
        render_.Play();
        Settle();
        for (int t = 0; t < 6000 && State() == 1; t += 10) Step(10);
    }
    EXPECT_EQ(State(), 4);
    EXPECT_FALSE(sound_.CaptureTruncated(0));
    EXPECT_GT(Capture().size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Chains, RenderRealTime,
    ::testing::Values(RealTimeCase{"Direct", 0, 25, 200000, 0},
                      RealTimeCase{"DirectVolumeLeft", 0x05, 25, 200000, 0},
                      RealTimeCase{"Equalizer", 0x08, 25, 200000, 0},
                      RealTimeCase{"EqualizerJoint", 0x08, 25, 200000, AUDIO_FLAG_JOINT_STEREO},
                      RealTimeCase{"TempoSlow", 0x10, 15, 200000, 0},
                      RealTimeCase{"TempoFastJoint", 0x10, 60, 200000, AUDIO_FLAG_JOINT_STEREO},
                      RealTimeCase{"Resample", 0, 25, 44100, 0},
                      RealTimeCase{"EverythingJoint", 0x1C, 40, 44100, AUDIO_FLAG_JOINT_STEREO}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace ncbtest::render_audio

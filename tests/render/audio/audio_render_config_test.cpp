// The audio render's set-up and configuration: device list, Open and its
// failures, format changes with and without a rebuild, play configuration
// changes in place (volume with the 100 ms cut-back, speed by sample rate)
// and through a rebuild, tempo and resampling chains, and the validity
// rules. Audio is judged on the virtual device's capture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "ncodecbase/audio_processor.h"
#include "tests/audio/signal_util.h"
#include "tests/render/audio/render_harness.h"

namespace ncbtest::render_audio {
namespace {

constexpr int kRate = 48000;

CNAudioRender::PlayConfigInfoTag DefaultConfig() {
    CNAudioRender::PlayConfigInfoTag c{};
    c.nSize = 116;
    c.nVolume = 256;
    c.nSpeed = 25;
    return c;
}

size_t FirstNonZero(const std::vector<int16_t>& s, size_t from) {
    while (from < s.size() && s[from] == 0) ++from;
    return from;
}

// Length of `s` without its trailing silence.
size_t FirstNonZeroFromEnd(const std::vector<int16_t>& s) {
    size_t n = s.size();
    while (n > 0 && s[n - 1] == 0) --n;
    return n;
}

// ---- Devices and Open ----

class RenderSetup : public RenderHarness {};

TEST_F(RenderSetup, DeviceListSkipsThePrimaryAndKeepsEight) {
    std::vector<nplat::VirtualDeviceConfig> devices(10);
    for (int i = 0; i < 10; ++i)
        std::snprintf(devices[i].description, sizeof(devices[i].description), "Card %d", i);
    sound_.SetDevices(devices.data(), 10);
    ASSERT_EQ(render_.Init(), 1);
    EXPECT_EQ(render_.GetDeviceNumber(), 8);
    CNAudioRender::SoundDeviceInfoTag info[3] = {};
    EXPECT_EQ(render_.GetDeviceInfo(info, 2), 2);
    EXPECT_EQ(info[1].nIndex, 1);
    EXPECT_STREQ(info[1].chDescription, "Card 1");
    EXPECT_EQ(info[2].chDescription[0], 0);
    sound_.SetDevices(devices.data(), 3);
    EXPECT_EQ(render_.RefreshDeviceInfo(), 1);
    EXPECT_EQ(render_.GetDeviceNumber(), 3);
    sound_.FailCall(nplat::SoundCall::kEnumerate, 1);
    EXPECT_EQ(render_.RefreshDeviceInfo(), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 5);
}

TEST_F(RenderSetup, InitFailsWhenEnumerationFails) {
    sound_.FailCall(nplat::SoundCall::kEnumerate, 1);
    EXPECT_EQ(render_.Init(), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 5);
}

TEST_F(RenderSetup, DeviceIndicesOutsideTheListFailWithoutCode) {
    ASSERT_EQ(render_.Init(), 1);
    auto f = Format(kRate, 2, 0x3);
    EXPECT_EQ(render_.Open(nullptr, -2, &f, nullptr, nullptr, 0, 0), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 0);
    EXPECT_EQ(render_.Open(nullptr, 1, &f, nullptr, nullptr, 0, 0), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 0);
    EXPECT_EQ(render_.Open(nullptr, -1, &f, nullptr, nullptr, 0, 0), 1);
    Settle();
    CNAudioRender::StatInfoTag st{};
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.nSize, 24);
    EXPECT_EQ(st.nState, 2);
}

struct OpenFailure {
    const char* name;
    nplat::SoundCall call;
    int error;
};

class RenderOpenFailure : public RenderHarness,
                          public ::testing::WithParamInterface<OpenFailure> {};

TEST_P(RenderOpenFailure, LeavesTheRenderClosedAndCanOpenAgain) {
    ASSERT_EQ(render_.Init(), 1);
    auto f = Format(kRate, 2, 0x3);
    sound_.FailCall(GetParam().call, 1);
    EXPECT_EQ(render_.Open(nullptr, 0, &f, nullptr, nullptr, 0, 0), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), GetParam().error);
    EXPECT_FALSE(sound_.GetBufferState(0).exists);
    CNAudioRender::StatInfoTag st{};
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.nState, 0);
    EXPECT_EQ(render_.Open(nullptr, 0, &f, nullptr, nullptr, 0, 0), 1);
    Settle();
}

INSTANTIATE_TEST_SUITE_P(
    Calls, RenderOpenFailure,
    ::testing::Values(OpenFailure{"Create", nplat::SoundCall::kCreateDevice, 3},
                      OpenFailure{"Caps", nplat::SoundCall::kGetCaps, 3},
                      OpenFailure{"Cooperative", nplat::SoundCall::kSetCooperativeLevel, 3},
                      OpenFailure{"Buffer", nplat::SoundCall::kCreateSoundBuffer, 3}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(RenderSetup, AFormatTheChainCannotUseFailsWithErrorTen) {
    ASSERT_EQ(render_.Init(), 1);
    auto f = Format(kRate, 2, 0x40);  // no speaker the render plays
    EXPECT_EQ(render_.Open(nullptr, 0, &f, nullptr, nullptr, 0, 0), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 10);
}

TEST_F(RenderSetup, WorkingRateRoundsDownToTwentyFiveHertz) {
    OpenRender(Format(44101, 2, 0x3));
    EXPECT_EQ(sound_.GetBufferState(0).frequency, 44100u);
    EXPECT_EQ(sound_.GetBufferState(0).size, 44100u * 3 / 2 * 4);
    CNCodecBase::AudioFormatInfoTag latest{}, current{};
    EXPECT_EQ(render_.GetCurrentInputFormatInfo(&latest, &current), 1);
    EXPECT_EQ(current.nSampleRate, 44101);
}

// ---- Format changes ----

class RenderFormatChange : public RenderHarness {};

TEST_F(RenderFormatChange, BitsOnlyChangeContinuesWithoutRebuild) {
    OpenRender(Format(kRate, 1, 0x4, 16));
    const auto a = Signal(kRate / 5, 1, 1);
    Append16(a, 1, 0);
    auto eight = Format(kRate, 1, 0x4, 8);
    ASSERT_EQ(render_.FormatChange(&eight), 1);
    std::vector<uint8_t> raw(kRate / 5);
    for (size_t i = 0; i < raw.size(); ++i) raw[i] = static_cast<uint8_t>(i * 7 + 1);
    Append(raw.data(), static_cast<int>(raw.size()), static_cast<int>(raw.size()), 200);
    render_.AppendBuffer(nullptr);
    render_.Play();
    ASSERT_TRUE(RunUntilState(4, 1000));
    std::vector<int16_t> want = a;
    for (uint8_t v : raw) want.push_back(static_cast<int16_t>(static_cast<int8_t>(v) * 256));
    const auto cap = Capture();
    ASSERT_GE(cap.size(), want.size());
    EXPECT_TRUE(std::equal(want.begin(), want.end(), cap.begin()));
    EXPECT_EQ(sound_.GetBufferState(0).created, 1);
}

TEST_F(RenderFormatChange, NewRatePlaysAfterTheOldAudioAndKeepsVolumeAndPan) {
    OpenRender(Format(kRate, 2, 0x3));
    ASSERT_EQ(render_.SetVolume(0, 2, 70, 30), 1);
    const auto a = Signal(kRate / 5, 2, 1);
    Append16(a, 2, 0);
    auto f = Format(32000, 2, 0x3);
    ASSERT_EQ(render_.FormatChange(&f), 1);
    const auto b = Signal(32000 / 5, 2, 2);
    Append16(b, 2, 200);
    render_.AppendBuffer(nullptr);
    render_.Play();
    ASSERT_TRUE(RunUntilState(4, 2000));
    const auto state = sound_.GetBufferState(0);
    EXPECT_EQ(state.created, 2);
    EXPECT_EQ(state.frequency, 32000u);
    EXPECT_EQ(state.volume, -600);
    EXPECT_EQ(state.pan, 3000);
    const auto cap = Capture();
    ASSERT_TRUE(std::equal(a.begin(), a.end(), cap.begin()));
    const size_t start = FirstNonZero(cap, a.size());
    ASSERT_LE(start - a.size(), static_cast<size_t>(kRate / 20 * 2));
    ASSERT_GE(cap.size() - start, b.size());
    EXPECT_TRUE(std::equal(b.begin(), b.end(), cap.begin() + start));
    CNCodecBase::AudioFormatInfoTag latest{}, current{};
    render_.GetCurrentInputFormatInfo(&latest, &current);
    EXPECT_EQ(current.nSampleRate, 32000);
}

TEST_F(RenderFormatChange, AFailedRebuildIsFatal) {
    OpenRender(Format(kRate, 2, 0x3));
    Append16(Signal(kRate / 10, 2, 1), 2, 0);
    auto f = Format(22050, 2, 0x3);
    ASSERT_EQ(render_.FormatChange(&f), 1);
    Append16(Signal(22050 / 10, 2, 2), 2, 100);
    sound_.FailCall(nplat::SoundCall::kCreateSoundBuffer, 1);
    render_.Play();
    ASSERT_TRUE(RunUntilState(5, 1000));
    EXPECT_TRUE(Signalled(status_));
    EXPECT_EQ(render_.FormatChange(&f), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 8);
    EXPECT_EQ(render_.GetCurrentInputFormatInfo(nullptr, nullptr), 0);
}

TEST_F(RenderFormatChange, BufferedTimeCountsQueueAndDevice) {
    OpenRender(Format(kRate, 2, 0x3));
    for (int b = 0; b < 20; ++b) Append16(Signal(kRate / 10, 2, b), 2, b * 100);
    CNAudioRender::StatInfoTag st{};
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.nBufferedTime, 2000);
    render_.Play();
    Settle();
    for (int i = 0; i < 30; ++i) Step(10);
    render_.GetStatInfo(&st);
    EXPECT_NEAR(st.nBufferedTime, 1700, 12);
    EXPECT_EQ(st.uPlayedTime / 1000, 300u);
    EXPECT_EQ(render_.ResetStatInfo(), 1);
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.uPlayedTime, 0u);
}

// ---- Play configuration ----

class RenderPlayConfig : public RenderHarness {};

TEST_F(RenderPlayConfig, VolumeChangeCutsBackToOneHundredMilliseconds) {
    OpenRender(Format(kRate, 1, 0x4));
    std::vector<int16_t> a(kRate * 2);
    for (size_t i = 0; i < a.size(); ++i) a[i] = static_cast<int16_t>(1000 + i % 5000);
    Append16(a, 1, 0);
    render_.AppendBuffer(nullptr);
    render_.Play();
    for (int i = 0; i < 31; ++i) Step(10);
    const size_t heardAtChange = Capture().size();
    auto c = DefaultConfig();
    c.nFlags = 0x04;
    c.nVolume = 128;
    ASSERT_EQ(render_.SetPlayConfig(&c), 1);
    ASSERT_TRUE(RunUntilState(4, 3000));
    // Unchanged samples first, then every later one at half volume: nothing
    // lost, nothing repeated, the switch within 100 ms of the change.
    const auto cap = Capture();
    size_t i = 0;
    while (i < a.size() && cap[i] == a[i]) ++i;
    EXPECT_GE(i, heardAtChange);
    EXPECT_LE(i, heardAtChange + kRate / 10);
    for (size_t j = i; j < a.size(); ++j) ASSERT_EQ(cap[j], a[j] / 2) << j;
    EXPECT_EQ(FirstNonZero(cap, a.size()), cap.size());
    EXPECT_EQ(sound_.GetBufferState(0).created, 1);
    CNAudioRender::PlayConfigInfoTag back{};
    render_.GetPlayConfig(&back);
    EXPECT_EQ(back.nVolume, 128);
}

TEST_F(RenderPlayConfig, RightChannelOnBothSpeakersInJointStereo) {
    auto c = DefaultConfig();
    c.nFlags = 0x02;
    ASSERT_EQ(render_.Init(), 1);
    ASSERT_EQ(render_.SetPlayConfig(&c), 1);
    auto f = Format(kRate, 2, 0x3, 16, AUDIO_FLAG_JOINT_STEREO);
    ASSERT_EQ(render_.Open(nullptr, 0, &f, nullptr, nullptr, 0, 0), 1);
    Settle();
    const auto a = Signal(kRate / 10, 2);
    Append16(a, 2, 0);
    render_.AppendBuffer(nullptr);
    render_.Play();
    ASSERT_TRUE(RunUntilState(4, 1000));
    const auto cap = Capture();
    for (size_t i = 0; i < a.size(); i += 2) {
        ASSERT_EQ(cap[i], a[i + 1]);
        ASSERT_EQ(cap[i + 1], a[i + 1]);
    }
}

struct SpeedCase {
    const char* name;
    nplat::DWORD maxRate;
    nplat::DWORD wantFrequency;
};

class RenderSpeedByRate : public RenderHarness, public ::testing::WithParamInterface<SpeedCase> {};

TEST_P(RenderSpeedByRate, DoubleSpeedPlaysAtTheDeviceRateOrResamples) {
    nplat::VirtualDeviceConfig d;
    d.maxRate = GetParam().maxRate;
    sound_.SetDevices(&d, 1);
    ASSERT_EQ(render_.Init(), 1);
    auto c = DefaultConfig();
    c.nFlags = 0x30;
    c.nSpeed = 50;
    render_.SetPlayConfig(&c);
    auto f = Format(kRate, 1, 0x4);
    ASSERT_EQ(render_.Open(nullptr, 0, &f, nullptr, nullptr, 0, 0), 1);
    Settle();
    EXPECT_EQ(sound_.GetBufferState(0).frequency, GetParam().wantFrequency);
    const auto tone = audio::Tone(kRate, 1000, kRate, 8000);
    Append16(tone, 1, 0);
    render_.AppendBuffer(nullptr);
    render_.Play();
    Settle();
    Step(10);
    for (int i = 0; i < 25; ++i) Step(10);
    // Half a second of output is a whole second of input.
    EXPECT_NEAR(render_.GetCurrentPlayTime(), 520.0, 12.0);
    ASSERT_TRUE(RunUntilState(4, 2000));
    const auto cap = Capture();
    const double frames = static_cast<double>(FirstNonZeroFromEnd(cap));
    EXPECT_NEAR(frames, GetParam().wantFrequency / 2.0, 300.0);
}

INSTANTIATE_TEST_SUITE_P(Devices, RenderSpeedByRate,
                         ::testing::Values(SpeedCase{"FastDevice", 100000, 96000},
                                           SpeedCase{"SlowDevice", 48000, 44100}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(RenderPlayConfig, TempoAtDoubleSpeedHalvesTheOutputAndDoublesTheClock) {
    ASSERT_EQ(render_.Init(), 1);
    auto c = DefaultConfig();
    c.nFlags = 0x10;
    c.nSpeed = 50;
    render_.SetPlayConfig(&c);
    auto f = Format(kRate, 2, 0x3, 16, AUDIO_FLAG_JOINT_STEREO);
    ASSERT_EQ(render_.Open(nullptr, 0, &f, nullptr, nullptr, 0, 0), 1);
    Settle();
    const auto tone = audio::Tone(kRate * 3, 440, kRate, 8000, 2);
    for (int b = 0; b < 30; ++b)
        Append(tone.data() + b * kRate / 10 * 2, kRate / 10 * 4, kRate / 10, b * 100);
    render_.AppendBuffer(nullptr);
    render_.Play();
    Settle();
    Step(10);
    for (int i = 0; i < 50; ++i) Step(10);
    // 510 ms of output since play started stand for about 1020 ms of input
    // (less the splice delay of the tempo filter at the start).
    EXPECT_NEAR(render_.GetCurrentPlayTime(), 1020.0, 40.0);
    ASSERT_TRUE(RunUntilState(4, 3000));
    const auto cap = Capture();
    EXPECT_NEAR(FirstNonZeroFromEnd(cap) / 2.0, kRate * 1.5, kRate * 0.03);
    EXPECT_NEAR(render_.GetCurrentPlayTime(), 3000.0, 30.0);
    // Still a 440 Hz tone: tempo changes keep the pitch. Splices shift the
    // phase, so the tone is fitted over short windows.
    const auto left = audio::Channel(cap, 2, 0);
    int tonal = 0;
    for (int w = 0; w < 20; ++w) {
        const auto fit = audio::FitSine(left, kRate / 4 + w * 2400, 240, 440, kRate);
        tonal += fit.amplitude > 7000 && fit.residualRms < 800 ? 1 : 0;
    }
    EXPECT_GE(tonal, 16);
}

TEST_F(RenderPlayConfig, EqualizerChainMatchesTheProcessorRunOnItsOwn) {
    ASSERT_EQ(render_.Init(), 1);
    auto c = DefaultConfig();
    c.nFlags = 0x08;
    c.nEqualizerBands = 2;
    c.nEqualizerFreq[0] = 250;
    c.nEqualizerFreq[1] = 4000;
    c.fEqualizerGain[0] = 1.5f;
    c.fEqualizerGain[1] = 0.5f;
    render_.SetPlayConfig(&c);
    auto f = Format(kRate, 1, 0x4);
    ASSERT_EQ(render_.Open(nullptr, 0, &f, nullptr, nullptr, 0, 0), 1);
    Settle();
    const auto a = Signal(kRate / 2, 1, 3);
    for (int b = 0; b < 5; ++b)
        Append(a.data() + b * kRate / 10, kRate / 10 * 2, kRate / 10, b * 100);
    render_.AppendBuffer(nullptr);
    render_.Play();
    ASSERT_TRUE(RunUntilState(4, 2000));
    CNCodecBuffer* state = CNCodecBuffer::CreateBuffer();
    ASSERT_EQ(
        CNAudioProcessor::EqualizerInit(kRate, 2, c.nEqualizerFreq, c.fEqualizerGain, 0, 0, state),
        1);
    std::vector<int16_t> want(a.size());
    CNAudioProcessor::EqualizerFilter(const_cast<int16_t*>(a.data()), static_cast<int>(a.size()),
                                      state, want.data());
    CNAudioProcessor::EqualizerUninit(state);
    state->Release();
    const auto cap = Capture();
    ASSERT_GE(cap.size(), want.size());
    EXPECT_TRUE(std::equal(want.begin(), want.end(), cap.begin()));
}

TEST_F(RenderPlayConfig, FailingSetFrequencyTurnsASpeedChangeIntoARebuild) {
    OpenRender(Format(kRate, 1, 0x4));
    const auto a = Signal(kRate / 2, 1, 1);
    Append16(a, 1, 0);
    render_.Play();
    Step(10);
    sound_.FailCall(nplat::SoundCall::kSetFrequency, 1);
    auto c = DefaultConfig();
    c.nFlags = 0x30;
    c.nSpeed = 30;
    EXPECT_EQ(render_.SetPlayConfig(&c), 1);
    EXPECT_EQ(sound_.GetBufferState(0).frequency, 48000u);
    Append16(Signal(kRate / 2, 1, 2), 1, 500);
    for (int i = 0; i < 120 && sound_.GetBufferState(0).created < 2; ++i) Step(10);
    EXPECT_EQ(sound_.GetBufferState(0).created, 2);
    EXPECT_EQ(sound_.GetBufferState(0).frequency, 57600u);
    // Everything queued before the change played at the old rate first.
    const auto cap = Capture();
    EXPECT_TRUE(std::equal(a.begin(), a.end(), cap.begin()));
}

TEST_F(RenderPlayConfig, SpeedBySampleRateChangesInPlace) {
    OpenRender(Format(kRate, 1, 0x4));
    Append16(Signal(kRate, 1, 1), 1, 0);
    render_.Play();
    Step(10);
    auto c = DefaultConfig();
    c.nFlags = 0x30;
    c.nSpeed = 50;
    EXPECT_EQ(render_.SetPlayConfig(&c), 1);
    const auto state = sound_.GetBufferState(0);
    EXPECT_EQ(state.frequency, 96000u);
    EXPECT_EQ(state.created, 1);
}

// ---- Validity rules ----

struct ConfigCase {
    const char* name;
    int flags, volume, bands, speed, freq0;
    int valid;
};

class RenderConfigCheck : public ::testing::TestWithParam<ConfigCase> {};

TEST_P(RenderConfigCheck, FollowsTheLimits) {
    const ConfigCase k = GetParam();
    auto c = DefaultConfig();
    c.nFlags = k.flags;
    c.nVolume = k.volume;
    c.nEqualizerBands = k.bands;
    c.nSpeed = k.speed;
    for (int& f : c.nEqualizerFreq) f = 1000;
    c.nEqualizerFreq[0] = k.freq0;
    EXPECT_EQ(CNAudioRender::CheckPlayConfig(&c), k.valid);
}

INSTANTIATE_TEST_SUITE_P(Cases, RenderConfigCheck,
                         ::testing::Values(ConfigCase{"Defaults", 0, 256, 0, 25, 1000, 1},
                                           ConfigCase{"LeftAndRight", 3, 256, 0, 25, 1000, 0},
                                           ConfigCase{"VolumeTop", 4, 25600, 0, 25, 1000, 1},
                                           ConfigCase{"VolumeOver", 4, 25601, 0, 25, 1000, 0},
                                           ConfigCase{"VolumeUnder", 4, 1, 0, 25, 1000, 0},
                                           ConfigCase{"VolumeUnusedWithoutFlag", 0, 25601, 0, 25,
                                                      1000, 1},
                                           ConfigCase{"TwelveBands", 8, 256, 12, 25, 1000, 1},
                                           ConfigCase{"ThirteenBands", 8, 256, 13, 25, 1000, 0},
                                           ConfigCase{"NoBands", 8, 256, 0, 25, 1000, 0},
                                           ConfigCase{"ZeroFrequency", 8, 256, 3, 25, 0, 0},
                                           ConfigCase{"SpeedTop", 0x10, 256, 0, 625, 1000, 1},
                                           ConfigCase{"SpeedOver", 0x10, 256, 0, 626, 1000, 0},
                                           ConfigCase{"SpeedZero", 0x10, 256, 0, 0, 1000, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RenderConfigCheck, RejectsNullAndWrongSize) {
    EXPECT_EQ(CNAudioRender::CheckPlayConfig(nullptr), 0);
    auto c = DefaultConfig();
    c.nSize = 112;
    EXPECT_EQ(CNAudioRender::CheckPlayConfig(&c), 0);
}

TEST(RenderFormatCheck, FollowsTheValidityRule) {
    auto f = Format(4000, 2, 0x3);
    EXPECT_EQ(CNAudioRender::CheckAudioFormatInfo(&f), 1);
    f.nSampleRate = 192000;
    EXPECT_EQ(CNAudioRender::CheckAudioFormatInfo(&f), 1);
    f.nSampleRate = 3999;
    EXPECT_EQ(CNAudioRender::CheckAudioFormatInfo(&f), 0);
    f.nSampleRate = 192001;
    EXPECT_EQ(CNAudioRender::CheckAudioFormatInfo(&f), 0);
    f = Format(kRate, 2, 0x3, 32);
    EXPECT_EQ(CNAudioRender::CheckAudioFormatInfo(&f), 0);
    f = Format(kRate, 1, 0x40);
    EXPECT_EQ(CNAudioRender::CheckAudioFormatInfo(&f), 0);
    f = Format(kRate, 2, 0x3);
    f.nCodecSubType = 2;
    EXPECT_EQ(CNAudioRender::CheckAudioFormatInfo(&f), 0);
    EXPECT_EQ(CNAudioRender::CheckAudioFormatInfo(nullptr), 0);
}

// ---- Volumes and speakers ----

class RenderVolume : public RenderHarness {};

TEST_F(RenderVolume, BufferVolumeAndPanRoundTrip) {
    OpenRender(Format(kRate, 2, 0x3));
    ASSERT_EQ(render_.SetVolume(0, 2, 50, 0), 1);
    EXPECT_EQ(sound_.GetBufferState(0).volume, -1000);
    EXPECT_EQ(sound_.GetBufferState(0).pan, 0);
    int v = -1, b = -1;
    ASSERT_EQ(render_.GetVolume(0, 2, &v, &b), 1);
    EXPECT_EQ(v, 50);
    EXPECT_EQ(b, 0);
    ASSERT_EQ(render_.SetVolume(0, 2, 1, -100), 1);
    EXPECT_EQ(sound_.GetBufferState(0).volume, -1980);
    EXPECT_EQ(sound_.GetBufferState(0).pan, -10000);
    ASSERT_EQ(render_.GetVolume(0, 2, &v, &b), 1);
    EXPECT_EQ(v, 1);
    EXPECT_EQ(b, -100);
    ASSERT_EQ(render_.SetVolume(0, 2, 0, 100), 1);
    EXPECT_EQ(sound_.GetBufferState(0).volume, -10000);
    ASSERT_EQ(render_.GetVolume(0, 2, &v, nullptr), 1);
    EXPECT_EQ(v, 0);
    sound_.FailCall(nplat::SoundCall::kSetPan, 1);
    EXPECT_EQ(render_.SetVolume(0, 2, 50, 0), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 3);
    sound_.FailCall(nplat::SoundCall::kGetVolume, 1);
    EXPECT_EQ(render_.GetVolume(0, 2, &v, &b), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 3);
}

TEST_F(RenderVolume, BufferTargetNeedsAnOpenRender) {
    ASSERT_EQ(render_.Init(), 1);
    int v;
    EXPECT_EQ(render_.GetVolume(0, 2, &v, nullptr), 0);
    EXPECT_EQ(render_.SetVolume(0, 2, 50, 0), 0);
}

TEST_F(RenderVolume, MixerLinesTakeTwoChannelsWithBalance) {
    ASSERT_EQ(render_.Init(), 1);
    ASSERT_EQ(render_.SetVolume(-1, 0, 100, -50), 1);
    nplat::DWORD l, r;
    ASSERT_TRUE(sound_.GetMixerValues(0, true, &l, &r));
    EXPECT_EQ(l, 65535u);
    EXPECT_EQ(r, 32768u);
    int v, b;
    ASSERT_EQ(render_.GetVolume(0, 0, &v, &b), 1);
    EXPECT_EQ(v, 100);
    EXPECT_EQ(b, -49);  // (32768 - 65535) x 100 / 65535, truncated
    ASSERT_EQ(render_.SetVolume(0, 1, 40, 25), 1);
    ASSERT_TRUE(sound_.GetMixerValues(0, false, &l, &r));
    EXPECT_EQ(l, 19661u);
    EXPECT_EQ(r, 26214u);
    ASSERT_EQ(render_.GetVolume(0, 1, &v, &b), 1);
    EXPECT_EQ(v, 40);
    EXPECT_EQ(b, 24);
    EXPECT_EQ(render_.GetExtendErrorCode(), 0);
    EXPECT_EQ(render_.SetVolume(1, 0, 10, 0), 0);
    EXPECT_EQ(render_.SetVolume(-2, 0, 10, 0), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 0);
}

TEST_F(RenderVolume, SingleChannelControlWorksWithoutBalance) {
    nplat::VirtualDeviceConfig d;
    d.masterChannels = 1;
    sound_.SetDevices(&d, 1);
    ASSERT_EQ(render_.Init(), 1);
    EXPECT_EQ(render_.SetVolume(0, 0, 60, -50), 1);
    EXPECT_EQ(render_.GetExtendErrorCode(), 1);
    nplat::DWORD l, r;
    sound_.GetMixerValues(0, true, &l, &r);
    EXPECT_EQ(l, 39321u);
    EXPECT_EQ(r, 39321u);
    int v = 0, b = 7;
    EXPECT_EQ(render_.GetVolume(0, 0, &v, &b), 1);
    EXPECT_EQ(render_.GetExtendErrorCode(), 1);
    EXPECT_EQ(v, 60);
    EXPECT_EQ(b, 0);
}

TEST_F(RenderVolume, MixerFailuresGiveErrorFour) {
    nplat::VirtualDeviceConfig devices[2];
    devices[1].hasMixer = false;
    std::snprintf(devices[1].description, sizeof(devices[1].description), "Second card");
    sound_.SetDevices(devices, 2);
    ASSERT_EQ(render_.Init(), 1);
    int v;
    EXPECT_EQ(render_.GetVolume(1, 1, &v, nullptr), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 4);
    sound_.FailCall(nplat::SoundCall::kMixerOpen, 1);
    EXPECT_EQ(render_.SetVolume(0, 1, 50, 0), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 4);
    sound_.FailCall(nplat::SoundCall::kMixerSetDetails, 1, 2);
    EXPECT_EQ(render_.SetVolume(0, 1, 50, 0), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 4);
}

TEST_F(RenderVolume, EndpointVolumeServesTheMasterWhereTheSystemHasIt) {
    sound_.SetEndpointVolume(true);
    ASSERT_EQ(render_.Init(), 1);
    ASSERT_EQ(render_.SetVolume(0, 0, 40, -80), 1);
    EXPECT_FLOAT_EQ(sound_.GetEndpointLevel(0), 0.4f);
    nplat::DWORD l, r;
    sound_.GetMixerValues(0, true, &l, &r);
    EXPECT_EQ(l, 65535u);  // the mixer is not touched
    int v, b = 5;
    ASSERT_EQ(render_.GetVolume(0, 0, &v, &b), 1);
    EXPECT_EQ(v, 40);
    EXPECT_EQ(b, 0);
    sound_.FailCall(nplat::SoundCall::kEndpointVolume, 1);
    EXPECT_EQ(render_.GetVolume(0, 0, &v, &b), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 0);
    ASSERT_EQ(render_.SetVolume(0, 1, 30, 0), 1);  // wave-out stays on the mixer
    sound_.GetMixerValues(0, false, &l, &r);
    EXPECT_EQ(l, 19660u);
}

TEST_F(RenderVolume, SpeakerConfigurationMapsCodes) {
    nplat::VirtualDeviceConfig d;
    d.speakerConfig = nplat::DSSPEAKER_7POINT1_SURROUND;
    sound_.SetDevices(&d, 1);
    ASSERT_EQ(render_.Init(), 1);
    unsigned int code = 99;
    ASSERT_EQ(render_.GetSpeakerConfig(0, 0, &code), 1);
    EXPECT_EQ(code, 7u);
    ASSERT_EQ(render_.SetSpeakerConfig(-1, 0, 4), 1);
    EXPECT_EQ(sound_.GetSpeakerConfigValue(0), 0x140004u);
    ASSERT_EQ(render_.GetSpeakerConfig(0, 0, &code), 1);
    EXPECT_EQ(code, 4u);
    ASSERT_EQ(render_.SetSpeakerConfig(0, 0, 9), 1);
    ASSERT_EQ(render_.GetSpeakerConfig(0, 0, &code), 1);
    EXPECT_EQ(code, 6u);
    EXPECT_EQ(render_.SetSpeakerConfig(1, 0, 2), 0);
    sound_.FailCall(nplat::SoundCall::kGetSpeakerConfig, 1);
    EXPECT_EQ(render_.GetSpeakerConfig(0, 0, &code), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 3);
    sound_.FailCall(nplat::SoundCall::kCreateDevice, 1);
    EXPECT_EQ(render_.SetSpeakerConfig(0, 0, 2), 0);
    EXPECT_EQ(render_.GetExtendErrorCode(), 3);
}

}  // namespace
}  // namespace ncbtest::render_audio

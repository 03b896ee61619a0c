// The DirectSound- and WINMM-shaped sound layer on the virtual system:
// enumeration order, the looping buffer's cursor against the clock, the
// capture (stale data included), Lock at the wrap, frequency re-basing,
// volume and pan limits, failure hooks, and the mixer line and control
// queries.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/kernel/sync.h"
#include "platform/sound/virtual_sound.h"

namespace {

using namespace nplat;

class VirtualSound : public ::testing::Test {
  protected:
    void SetUp() override {
        SetClock(&clock_);
        SetSoundSystem(&sound_);
    }
    void TearDown() override {
        if (buffer_) buffer_->Release();
        if (device_) device_->Release();
        SetSoundSystem(nullptr);
        SetClock(nullptr);
    }

    // A 16-bit mono buffer of `frames` frames at `rate`.
    void MakeBuffer(DWORD rate, DWORD frames) {
        ASSERT_EQ(DirectSoundCreate(nullptr, &device_, nullptr), DS_OK);
        WAVEFORMATEXTENSIBLE wfx{};
        wfx.Format = {WAVE_FORMAT_EXTENSIBLE, 1, rate, rate * 2, 2, 16, 22};
        wfx.wValidBitsPerSample = 16;
        wfx.dwChannelMask = 4;
        wfx.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
        DSBUFFERDESC desc{};
        desc.dwSize = sizeof(desc);
        desc.dwBufferBytes = frames * 2;
        desc.lpwfxFormat = &wfx.Format;
        ASSERT_EQ(device_->CreateSoundBuffer(&desc, &buffer_, nullptr), DS_OK);
    }

    // Writes sample values first..first+count-1 at frame `at`.
    void Write(DWORD at, int count, int first) {
        void *p1, *p2;
        DWORD b1, b2;
        ASSERT_EQ(buffer_->Lock(at * 2, count * 2, &p1, &b1, &p2, &b2, 0), DS_OK);
        for (DWORD i = 0; i < b1 / 2; ++i) static_cast<int16_t*>(p1)[i] = first++;
        for (DWORD i = 0; i < b2 / 2; ++i) static_cast<int16_t*>(p2)[i] = first++;
        buffer_->Unlock(p1, b1, p2, b2);
    }

    std::vector<int16_t> Capture() {
        std::vector<int16_t> out(sound_.CaptureSize(0) / 2);
        sound_.ReadCapture(0, 0, out.data(), out.size() * 2);
        return out;
    }

    DWORD Cursor() {
        DWORD play = 0;
        EXPECT_EQ(buffer_->GetCurrentPosition(&play, nullptr), DS_OK);
        return play / 2;
    }

    ManualClock clock_{500};
    VirtualSoundSystem sound_;
    IDirectSound* device_ = nullptr;
    IDirectSoundBuffer* buffer_ = nullptr;
};

TEST_F(VirtualSound, EnumerationListsThePrimaryFirstThenEveryDevice) {
    VirtualDeviceConfig devices[3];
    std::strcpy(devices[1].description, "Second");
    std::strcpy(devices[2].description, "Third");
    sound_.SetDevices(devices, 3);
    struct Seen {
        std::vector<std::string> names;
        std::vector<bool> nullGuid;
        std::vector<GUID> guids;
    } seen;
    ASSERT_EQ(DirectSoundEnumerateA(
                  [](GUID* g, const char* d, const char*, void* ctx) -> BOOL {
                      auto* s = static_cast<Seen*>(ctx);
                      s->names.push_back(d);
                      s->nullGuid.push_back(g == nullptr);
                      if (g) s->guids.push_back(*g);
                      return 1;
                  },
                  &seen),
              DS_OK);
    ASSERT_EQ(seen.names.size(), 4u);
    EXPECT_TRUE(seen.nullGuid[0]);
    EXPECT_EQ(seen.names[1], "NCodec virtual sound device");
    EXPECT_EQ(seen.names[3], "Third");
    EXPECT_FALSE(IsEqualGUID(seen.guids[0], seen.guids[1]));
    IDirectSound* ds = nullptr;
    ASSERT_EQ(DirectSoundCreate(&seen.guids[2], &ds, nullptr), DS_OK);
    ds->Release();
    GUID unknown{};
    EXPECT_EQ(DirectSoundCreate(&unknown, &ds, nullptr), DSERR_NODRIVER);
}

TEST_F(VirtualSound, CursorAdvancesWithTheClockAndWraps) {
    MakeBuffer(1000, 100);  // one frame per millisecond
    EXPECT_EQ(Cursor(), 0u);
    clock_.Advance(50);
    EXPECT_EQ(Cursor(), 0u);  // not playing yet
    ASSERT_EQ(buffer_->Play(0, 0, DSBPLAY_LOOPING), DS_OK);
    clock_.Advance(37);
    EXPECT_EQ(Cursor(), 37u);
    clock_.Advance(80);
    EXPECT_EQ(Cursor(), 17u);
    ASSERT_EQ(buffer_->Stop(), DS_OK);
    clock_.Advance(1000);
    EXPECT_EQ(Cursor(), 17u);
    ASSERT_EQ(buffer_->SetCurrentPosition(120), DS_OK);  // bytes: frame 60
    ASSERT_EQ(buffer_->Play(0, 0, DSBPLAY_LOOPING), DS_OK);
    clock_.Advance(5);
    EXPECT_EQ(Cursor(), 65u);
    EXPECT_EQ(Capture().size(), 117u + 5u);
}

TEST_F(VirtualSound, CaptureHoldsWhatWasInTheRingWhenTheCursorPassed) {
    MakeBuffer(1000, 100);
    Write(0, 100, 1);
    buffer_->Play(0, 0, DSBPLAY_LOOPING);
    clock_.Advance(30);
    Write(10, 10, 1000);  // too late: frames 10..19 have played
    Write(40, 10, 2000);  // in time
    clock_.Advance(120);  // wraps: the first 50 frames play again
    const auto cap = Capture();
    ASSERT_EQ(cap.size(), 150u);
    EXPECT_EQ(cap[10], 11);
    EXPECT_EQ(cap[40], 2000);
    EXPECT_EQ(cap[99], 100);
    EXPECT_EQ(cap[110], 1000);  // the stale replay hears the late write
}

TEST_F(VirtualSound, LockReturnsTwoPartsAtTheWrap) {
    MakeBuffer(1000, 100);
    void *p1, *p2;
    DWORD b1, b2;
    ASSERT_EQ(buffer_->Lock(180, 60, &p1, &b1, &p2, &b2, 0), DS_OK);
    EXPECT_EQ(b1, 20u);
    EXPECT_EQ(b2, 40u);
    ASSERT_NE(p2, nullptr);
    buffer_->Unlock(p1, b1, p2, b2);
    ASSERT_EQ(buffer_->Lock(0, 60, &p1, &b1, &p2, &b2, 0), DS_OK);
    EXPECT_EQ(b1, 60u);
    EXPECT_EQ(p2, nullptr);
    EXPECT_EQ(b2, 0u);
    EXPECT_EQ(buffer_->Lock(200, 2, &p1, &b1, &p2, &b2, 0), DSERR_INVALIDPARAM);
    EXPECT_EQ(buffer_->Lock(0, 202, &p1, &b1, &p2, &b2, 0), DSERR_INVALIDPARAM);
}

TEST_F(VirtualSound, SetFrequencyRebasesTheCursor) {
    MakeBuffer(1000, 1000);
    buffer_->Play(0, 0, DSBPLAY_LOOPING);
    clock_.Advance(100);
    ASSERT_EQ(buffer_->SetFrequency(3000), DS_OK);
    clock_.Advance(10);
    EXPECT_EQ(Cursor(), 130u);
    EXPECT_EQ(buffer_->SetFrequency(99), DSERR_INVALIDPARAM);
    DWORD f;
    buffer_->GetFrequency(&f);
    EXPECT_EQ(f, 3000u);
}

TEST_F(VirtualSound, VolumeAndPanKeepTheirLimits) {
    MakeBuffer(1000, 100);
    for (LONG v : {-10000, -1234, 0}) {
        ASSERT_EQ(buffer_->SetVolume(v), DS_OK);
        LONG back;
        buffer_->GetVolume(&back);
        EXPECT_EQ(back, v);
    }
    EXPECT_EQ(buffer_->SetVolume(1), DSERR_INVALIDPARAM);
    EXPECT_EQ(buffer_->SetVolume(-10001), DSERR_INVALIDPARAM);
    for (LONG p : {-10000, 77, 10000}) {
        ASSERT_EQ(buffer_->SetPan(p), DS_OK);
        LONG back;
        buffer_->GetPan(&back);
        EXPECT_EQ(back, p);
    }
    EXPECT_EQ(buffer_->SetPan(10001), DSERR_INVALIDPARAM);
}

TEST_F(VirtualSound, FailureHooksHitTheNthUse) {
    MakeBuffer(1000, 100);
    sound_.FailCall(SoundCall::kSetVolume, 2, 1, E_OUTOFMEMORY);
    EXPECT_EQ(buffer_->SetVolume(-1), DS_OK);
    EXPECT_EQ(buffer_->SetVolume(-2), E_OUTOFMEMORY);
    EXPECT_EQ(buffer_->SetVolume(-3), DS_OK);
    sound_.InjectCursorJitter(7, 1);
    buffer_->Play(0, 0, DSBPLAY_LOOPING);
    clock_.Advance(20);
    EXPECT_EQ(Cursor(), 13u);
    EXPECT_EQ(Cursor(), 20u);
}

TEST_F(VirtualSound, MixerLinesAndControlsFollowTheWinmmRules) {
    ASSERT_EQ(mixerGetNumDevs(), 1u);
    MIXERCAPSA caps;
    ASSERT_EQ(mixerGetDevCapsA(0, &caps, sizeof(caps)), MMSYSERR_NOERROR);
    EXPECT_STREQ(caps.szPname, "NCodec virtual sound device");
    EXPECT_EQ(caps.cDestinations, 1u);
    HMIXER mixer;
    ASSERT_EQ(mixerOpen(&mixer, 0, 0, 0, MIXER_OBJECTF_MIXER), MMSYSERR_NOERROR);
    MIXERLINEA line{};
    line.cbStruct = sizeof(line);
    ASSERT_EQ(mixerGetLineInfoA(mixer, &line, MIXER_GETLINEINFOF_DESTINATION), MMSYSERR_NOERROR);
    EXPECT_EQ(line.dwComponentType, MIXERLINE_COMPONENTTYPE_DST_SPEAKERS);
    EXPECT_EQ(line.cControls, 2u);
    EXPECT_EQ(line.cConnections, 1u);
    MIXERLINEA source{};
    source.cbStruct = sizeof(source);
    source.dwSource = 0;
    ASSERT_EQ(mixerGetLineInfoA(mixer, &source, MIXER_GETLINEINFOF_SOURCE), MMSYSERR_NOERROR);
    EXPECT_EQ(source.dwComponentType, MIXERLINE_COMPONENTTYPE_SRC_WAVEOUT);
    source.dwSource = 1;
    EXPECT_EQ(mixerGetLineInfoA(mixer, &source, MIXER_GETLINEINFOF_SOURCE), MIXERR_INVALLINE);

    MIXERCONTROLA controls[2];
    MIXERLINECONTROLSA query{};
    query.cbStruct = sizeof(query);
    query.dwLineID = line.dwLineID;
    query.cControls = 2;
    query.cbmxctrl = sizeof(MIXERCONTROLA);
    query.pamxctrl = controls;
    ASSERT_EQ(mixerGetLineControlsA(mixer, &query, MIXER_GETLINECONTROLSF_ALL), MMSYSERR_NOERROR);
    EXPECT_EQ(controls[0].dwControlType, MIXERCONTROL_CONTROLTYPE_VOLUME);
    EXPECT_EQ(controls[1].dwControlType, MIXERCONTROL_CONTROLTYPE_MUTE);

    DWORD values[3] = {1000, 2000, 0};
    MIXERCONTROLDETAILS d{};
    d.cbStruct = sizeof(d);
    d.dwControlID = controls[0].dwControlID;
    d.cChannels = 2;
    d.cbDetails = sizeof(MIXERCONTROLDETAILS_UNSIGNED);
    d.paDetails = values;
    ASSERT_EQ(mixerSetControlDetails(mixer, &d, 0), MMSYSERR_NOERROR);
    d.cChannels = 3;
    EXPECT_EQ(mixerSetControlDetails(mixer, &d, 0), MMSYSERR_INVALPARAM);
    d.cChannels = 2;
    values[0] = values[1] = 0;
    ASSERT_EQ(mixerGetControlDetailsA(mixer, &d, 0), MMSYSERR_NOERROR);
    EXPECT_EQ(values[0], 1000u);
    EXPECT_EQ(values[1], 2000u);
    values[0] = 70000;
    EXPECT_EQ(mixerSetControlDetails(mixer, &d, 0), MMSYSERR_INVALPARAM);
    d.dwControlID = 999;
    EXPECT_EQ(mixerGetControlDetailsA(mixer, &d, 0), MIXERR_INVALCONTROL);
    EXPECT_EQ(mixerClose(mixer), MMSYSERR_NOERROR);
    EXPECT_EQ(mixerOpen(&mixer, 1, 0, 0, MIXER_OBJECTF_MIXER), MMSYSERR_BADDEVICEID);
}

TEST_F(VirtualSound, SingleChannelControlsRefuseTwoChannels) {
    VirtualDeviceConfig d;
    d.waveOutChannels = 1;
    sound_.SetDevices(&d, 1);
    HMIXER mixer;
    ASSERT_EQ(mixerOpen(&mixer, 0, 0, 0, MIXER_OBJECTF_MIXER), MMSYSERR_NOERROR);
    MIXERCONTROLA control;
    MIXERLINECONTROLSA query{};
    query.cbStruct = sizeof(query);
    query.dwLineID = 0x20000;
    query.dwControlType = MIXERCONTROL_CONTROLTYPE_VOLUME;
    query.cbmxctrl = sizeof(MIXERCONTROLA);
    query.pamxctrl = &control;
    ASSERT_EQ(mixerGetLineControlsA(mixer, &query, MIXER_GETLINECONTROLSF_ONEBYTYPE),
              MMSYSERR_NOERROR);
    DWORD values[2] = {5, 6};
    MIXERCONTROLDETAILS det{};
    det.cbStruct = sizeof(det);
    det.dwControlID = control.dwControlID;
    det.cChannels = 2;
    det.cbDetails = sizeof(MIXERCONTROLDETAILS_UNSIGNED);
    det.paDetails = values;
    EXPECT_EQ(mixerGetControlDetailsA(mixer, &det, 0), MMSYSERR_INVALPARAM);
    det.cChannels = 1;
    EXPECT_EQ(mixerSetControlDetails(mixer, &det, 0), MMSYSERR_NOERROR);
    mixerClose(mixer);
}

TEST(SoundGuid, StringFromGuidSpellsTheRegistryForm) {
    const GUID g = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
    WCHAR out[39];
    ASSERT_EQ(StringFromGUID2(g, out, 39), 39);
    std::string s;
    for (WCHAR c : out)
        if (c) s += static_cast<char>(c);
    EXPECT_EQ(s, "{12345678-9ABC-DEF0-0102-030405060708}");
    EXPECT_EQ(StringFromGUID2(g, out, 38), 0);
}

}  // namespace

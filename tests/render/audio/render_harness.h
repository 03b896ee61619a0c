// Test harness for the audio render: a manual clock, the virtual sound
// system installed in place of the default, helpers that build audio
// buffers, and a step function that advances time and waits until the
// render thread is idle again, so every check sees a settled render.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "ncodecbase/audio_render.h"
#include "ncodecbase/host_events.h"
#include "platform/kernel/sync.h"
#include "platform/sound/virtual_sound.h"

namespace ncbtest::render_audio {

inline CNCodecBase::AudioFormatInfoTag Format(int rate, int channels, int mask, int bits = 16,
                                              int flags = 0) {
    CNCodecBase::AudioFormatInfoTag f{};
    f.nStructSize = 80;
    f.nCodecType = AUDIO_TYPE_PCM;
    f.nCodecSubType = AUDIO_FORMAT_PCM;
    f.nFormatFlags = flags;
    f.nChannels = channels;
    f.nSpeakerInfo = mask;
    f.nSampleRate = rate;
    f.nBitsPerSample = bits;
    return f;
}

// A buffer holding a copy of `bytes`, with the audio conventions set.
inline CNCodecBuffer* MakeBuffer(const void* bytes, int size, int frames, uint32_t stamp,
                                 bool interleaved = true) {
    CNCodecBuffer* b = CNCodecBuffer::CreateBuffer();
    void* p = b->Allocate(size > 0 ? size : 1, 16, 0);
    if (size > 0) std::memcpy(p, bytes, static_cast<size_t>(size));
    b->SetDataSize(size);
    b->SetBufferUserData(frames);
    b->SetTimeStamp(stamp);
    b->SetBufferFlag(interleaved ? AUDIO_BUFFER_FLAG_INTERLEAVED : 0);
    return b;
}

// Deterministic, non-repeating 16-bit test signal: every sample differs
// from its neighbours, so a lost, repeated or shifted frame shows.
inline std::vector<int16_t> Signal(int frames, int channels, uint32_t seed = 1) {
    std::vector<int16_t> s(static_cast<size_t>(frames) * channels);
    uint32_t x = seed * 2654435761u + 12345;
    for (auto& v : s) {
        x = x * 1664525u + 1013904223u;
        v = static_cast<int16_t>(x >> 16);
        if (v == 0) v = 1;  // zero is silence, kept apart
    }
    return s;
}

class RenderHarness : public ::testing::Test {
  protected:
    void SetUp() override {
        nplat::SetClock(&clock_);
        nplat::SetSoundSystem(&sound_);
    }
    void TearDown() override {
        render_.Close();
        render_.Uninit();
        nplat::SetSoundSystem(nullptr);
        nplat::SetClock(nullptr);
        for (nplat::HANDLE e : {position_, status_})
            if (e) NCloseHandle(e);
    }

    // Init and Open on device 0 with events.
    void OpenRender(const CNCodecBase::AudioFormatInfoTag& format, int reverse = 0) {
        ASSERT_EQ(render_.Init(), 1);
        position_ = NCreateEvent(0, 0);
        status_ = NCreateEvent(0, 0);
        auto f = format;
        ASSERT_EQ(render_.Open(nullptr, 0, &f, position_, status_, reverse, 0), 1)
            << render_.GetExtendErrorCode();
        Settle();
    }

    // Idle means the render thread waits again, or has ended on a fatal
    // error (state 5 is set just before it returns).
    void Settle() {
        for (int i = 0; i < 250; ++i) {
            if (nplat::WaitUntilThreadsBlocked(1, 20)) return;
            if (State() == 5) {
                nplat::Sleep(0);
                return;
            }
        }
        FAIL() << "render thread never became idle";
    }
    void Step(int ms) {
        clock_.Advance(static_cast<uint64_t>(ms));
        Settle();
    }

    // Appends and drops our own reference (the render holds one).
    void Append(const void* bytes, int size, int frames, uint32_t stamp, bool interleaved = true) {
        CNCodecBuffer* b = MakeBuffer(bytes, size, frames, stamp, interleaved);
        ASSERT_EQ(render_.AppendBuffer(b), 1);
        b->Release();
    }
    void Append16(const std::vector<int16_t>& s, int channels, uint32_t stamp) {
        Append(s.data(), static_cast<int>(s.size() * 2), static_cast<int>(s.size()) / channels,
               stamp);
    }

    int State() {
        CNAudioRender::StatInfoTag st{};
        render_.GetStatInfo(&st);
        return st.nState;
    }
    bool Signalled(nplat::HANDLE e) { return NWaitForSingleObject(e, 0) == nplat::WAIT_OBJECT_0; }

    std::vector<int16_t> Capture(int device = 0) {
        std::vector<int16_t> out(sound_.CaptureSize(device) / 2);
        sound_.ReadCapture(device, 0, out.data(), out.size() * 2);
        return out;
    }

    // Steps 10 ms at a time until the state is `state` or `limitMs` pass.
    bool RunUntilState(int state, int limitMs) {
        for (int t = 0; t < limitMs; t += 10) {
            if (State() == state) return true;
            Step(10);
        }
        return State() == state;
    }

    nplat::ManualClock clock_{1000};
    nplat::VirtualSoundSystem sound_;
    CNAudioRender render_;
    nplat::HANDLE position_ = nullptr;
    nplat::HANDLE status_ = nullptr;
};

}  // namespace ncbtest::render_audio

// Demo step "play": one second of a stereo tone played through the audio
// render on the virtual sound device under a manual clock, in four buffers.
// It reports the play clock against what the device has played, checks that
// the device played every input frame once, followed only by silence, and
// writes the device's capture to play_capture.wav. Written to play.txt.
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "ncodecbase/audio_render.h"
#include "ncodecbase/host_events.h"
#include "platform/kernel/sync.h"
#include "platform/sound/virtual_sound.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"
#include "tools/ncodec/wav_file.h"

namespace ncodec {
namespace {

constexpr int kRate = 48000;

std::vector<int16_t> Tone() {
    std::vector<int16_t> s(kRate * 2);
    for (int i = 0; i < kRate; ++i) {
        const double t = static_cast<double>(i) / kRate;
        s[2 * i] =
            static_cast<int16_t>(std::lround(9000 * std::sin(2 * std::numbers::pi * 440 * t)));
        s[2 * i + 1] =
            static_cast<int16_t>(std::lround(9000 * std::sin(2 * std::numbers::pi * 660 * t)));
    }
    return s;
}

// Plays `audio` and fills the report; returns the capture.
std::vector<int16_t> Play(const std::vector<int16_t>& audio, nplat::ManualClock& clock,
                          nplat::VirtualSoundSystem& sound, DemoReport& r) {
    CNAudioRender render;
    if (!r.Check(render.Init() == 1, "Init")) return {};
    CNCodecBase::AudioFormatInfoTag f{};
    f.nCodecSubType = AUDIO_FORMAT_PCM;
    f.nChannels = 2;
    f.nSpeakerInfo = 0x3;
    f.nSampleRate = kRate;
    f.nBitsPerSample = 16;
    nplat::HANDLE status = NCreateEvent(0, 0);
    if (!r.Check(render.Open(nullptr, 0, &f, nullptr, status, 0, 0) == 1, "Open")) return {};
    const int piece = kRate / 4;
    for (int b = 0; b < 4; ++b) {
        CNCodecBuffer* buffer = CNCodecBuffer::CreateWrapBuffer(
            const_cast<int16_t*>(audio.data()) + b * piece * 2, piece * 4, piece * 4, nullptr);
        buffer->SetBufferUserData(piece);
        buffer->SetBufferFlag(AUDIO_BUFFER_FLAG_INTERLEAVED);
        buffer->SetTimeStamp(static_cast<uint32_t>(10000 + b * 250));
        render.AppendBuffer(buffer);
        buffer->Release();
    }
    render.AppendBuffer(nullptr);
    render.Play();
    r.Line("%8s %10s %10s", "clock ms", "play time", "heard ms");
    int state = 1;
    for (int t = 0; t <= 1200 && state != 4; t += 10) {
        nplat::WaitUntilThreadsBlocked(1);
        CNAudioRender::StatInfoTag st{};
        render.GetStatInfo(&st);
        state = st.nState;
        if (t % 100 == 0)
            r.Line("%8d %10u %10.1f", t, render.GetCurrentPlayTime(),
                   sound.CaptureSize(0) / 4 * 1000.0 / kRate);
        clock.Advance(10);
    }
    r.Check(state == 4, "end of stream reached");
    r.Check(render.GetCurrentPlayTime() == 11000, "play clock ends at the last frame");
    render.Close();
    NCloseHandle(status);
    std::vector<int16_t> captured(sound.CaptureSize(0) / 2);
    sound.ReadCapture(0, 0, captured.data(), captured.size() * 2);
    return captured;
}

}  // namespace

bool DemoPlay(const DemoContext& context, std::string* error) {
    DemoReport r;
    r.Line("audio render on the virtual device: 1 s of 440/660 Hz stereo in four buffers");
    nplat::ManualClock clock(0);
    nplat::VirtualSoundSystem sound;
    nplat::SetClock(&clock);
    nplat::SetSoundSystem(&sound);
    const auto audio = Tone();
    const auto captured = Play(audio, clock, sound, r);
    nplat::SetSoundSystem(nullptr);
    nplat::SetClock(nullptr);

    bool exact = captured.size() >= audio.size();
    for (size_t i = 0; exact && i < audio.size(); ++i) exact = captured[i] == audio[i];
    bool silentAfter = true;
    for (size_t i = audio.size(); i < captured.size(); ++i) silentAfter &= captured[i] == 0;
    r.Line("device played %zu frames: %zu of audio, %zu of silence pad", captured.size() / 2,
           audio.size() / 2, captured.size() / 2 - std::min(captured.size(), audio.size()) / 2);
    r.Check(exact, "every input frame played once, in order");
    r.Check(silentAfter, "only silence after the end");
    if (!captured.empty() &&
        !WriteWav16((context.outDir / "play_capture.wav").string(), captured.data(),
                    static_cast<int>(captured.size() / 2), 2, kRate, 0x3, error))
        return false;
    if (!context.WriteText("play.txt", r.text(), error)) return false;
    if (!r.ok()) *error = r.firstFailure();
    return r.ok();
}

}  // namespace ncodec

// Smoke tests of the ALSA backend, in a binary of their own labelled `alsa`.
// They use PCMs that need no sound card: "null" (clocked mode must play in
// real time, not in a burst) and the "file" plugin (what it writes must be
// what the virtual device hears for the same input). Each test skips when
// the PCM cannot be opened here.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/sound/alsa_sound.h"
#include "tests/audio/signal_util.h"
#include "tests/render/audio/render_harness.h"

namespace ncbtest::render_audio {
namespace {

using Clock = std::chrono::steady_clock;

bool CanOpen(const char* pcm) {
    nplat::AlsaSoundSystem system(&pcm, 1);
    nplat::IDirectSound* ds = nullptr;
    if (nplat::FAILED(system.CreateDevice(0, &ds))) return false;
    nplat::DSCAPS caps;
    caps.dwSize = sizeof(caps);
    const bool ok = nplat::SUCCEEDED(ds->GetCaps(&caps));
    ds->Release();
    return ok;
}

// Plays `audio` (16-bit interleaved) through the render on device 0 of the
// installed system, in real time, until the end of the stream.
double PlayToEnd(const std::vector<int16_t>& audio, int channels, int rate, uint32_t* endTime) {
    CNAudioRender render;
    EXPECT_EQ(render.Init(), 1);
    nplat::HANDLE status = NCreateEvent(1, 0);
    auto f = Format(rate, channels, channels == 2 ? 0x3 : 0x4);
    EXPECT_EQ(render.Open(nullptr, 0, &f, nullptr, status, 0, 0), 1);
    const int frames = static_cast<int>(audio.size()) / channels;
    CNCodecBuffer* b = MakeBuffer(audio.data(), static_cast<int>(audio.size() * 2), frames, 0);
    render.AppendBuffer(b);
    b->Release();
    render.AppendBuffer(nullptr);
    const auto start = Clock::now();
    render.Play();
    EXPECT_EQ(NWaitForSingleObject(status, 10000), nplat::WAIT_OBJECT_0);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    CNAudioRender::StatInfoTag st{};
    render.GetStatInfo(&st);
    EXPECT_EQ(st.nState, 4);
    *endTime = render.GetCurrentPlayTime();
    render.Close();
    NCloseHandle(status);
    return seconds;
}

TEST(AlsaSmoke, NullPcmPlaysTwoSecondsInRealTime) {
    const char* pcm = "null";
    if (!CanOpen(pcm)) GTEST_SKIP() << "no ALSA null PCM here";
    nplat::AlsaSoundSystem system(&pcm, 1);
    nplat::SetSoundSystem(&system);
    const auto tone = audio::Tone(2 * 44100, 440, 44100, 10000, 2);
    uint32_t end = 0;
    const double seconds = PlayToEnd(tone, 2, 44100, &end);
    nplat::SetSoundSystem(nullptr);
    EXPECT_NEAR(seconds, 2.0, 0.1);
    EXPECT_EQ(end, 2000u);
}

TEST(AlsaSmoke, FilePcmWritesWhatTheVirtualDeviceHears) {
    char dir[] = "/tmp/ncb-alsa-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/out.raw";
    const std::string name = "file:'" + path + "',raw";
    const char* pcm = name.c_str();
    if (!CanOpen(pcm)) GTEST_SKIP() << "no ALSA file PCM here";
    const auto audio = Signal(48000 / 2, 2, 5);
    {
        nplat::AlsaSoundSystem system(&pcm, 1);
        nplat::SetSoundSystem(&system);
        uint32_t end = 0;
        PlayToEnd(audio, 2, 48000, &end);
        nplat::SetSoundSystem(nullptr);
    }
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<int16_t> written(bytes.size() / 2);
    std::memcpy(written.data(), bytes.data(), written.size() * 2);
    std::remove(path.c_str());
    rmdir(dir);

    // The same input on the virtual device, under a manual clock.
    nplat::ManualClock clock(0);
    nplat::VirtualSoundSystem virt;
    nplat::SetClock(&clock);
    nplat::SetSoundSystem(&virt);
    std::vector<int16_t> heard;
    {
        CNAudioRender render;
        ASSERT_EQ(render.Init(), 1);
        auto f = Format(48000, 2, 0x3);
        ASSERT_EQ(render.Open(nullptr, 0, &f, nullptr, nullptr, 0, 0), 1);
        CNCodecBuffer* b = MakeBuffer(audio.data(), static_cast<int>(audio.size() * 2),
                                      static_cast<int>(audio.size() / 2), 0);
        render.AppendBuffer(b);
        b->Release();
        render.AppendBuffer(nullptr);
        render.Play();
        for (int i = 0; i < 100; ++i) {
            ASSERT_TRUE(nplat::WaitUntilThreadsBlocked(1));
            clock.Advance(10);
        }
        render.Close();
        heard.resize(virt.CaptureSize(0) / 2);
        virt.ReadCapture(0, 0, heard.data(), heard.size() * 2);
    }
    nplat::SetSoundSystem(nullptr);
    nplat::SetClock(nullptr);

    ASSERT_GE(written.size(), audio.size());
    ASSERT_GE(heard.size(), audio.size());
    EXPECT_TRUE(std::equal(audio.begin(), audio.end(), written.begin()));
    EXPECT_TRUE(std::equal(audio.begin(), audio.end(), heard.begin()));
}

TEST(AlsaSmoke, DefaultSystemHasDevicesOnlyWithACard) {
    nplat::AlsaSoundSystem system(nullptr, 0);
    if (system.DeviceCount() == 0) {
        EXPECT_EQ(system.MixerCount(), 0);
        return;
    }
    nplat::SoundDeviceDesc desc;
    ASSERT_TRUE(system.GetDevice(0, &desc));
    EXPECT_STREQ(desc.module, "default");
}

}  // namespace
}  // namespace ncbtest::render_audio

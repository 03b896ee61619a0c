// The audio render with host threads calling it while its own thread plays
// on the virtual device in real time: appends, volume and configuration
// changes, clock reads, pauses, and Close from every state. These run under
// ThreadSanitizer with the tsan label; they check that nothing races,
// deadlocks or leaks a buffer reference.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ncodecbase/audio_render.h"
#include "ncodecbase/host_events.h"
#include "platform/kernel/sync.h"
#include "platform/sound/virtual_sound.h"
#include "tests/render/audio/render_harness.h"

namespace ncbtest::render_audio {
namespace {

constexpr int kRate = 16000;

class RenderThreads : public ::testing::Test {
  protected:
    void SetUp() override {
        nplat::SetSoundSystem(&sound_);
        ASSERT_EQ(render_.Init(), 1);
        status_ = NCreateEvent(1, 0);
        position_ = NCreateEvent(0, 0);
        auto f = Format(kRate, 2, 0x3);
        ASSERT_EQ(render_.Open(nullptr, 0, &f, position_, status_, 0, 0), 1);
    }
    void TearDown() override {
        render_.Close();
        render_.Uninit();
        for (CNCodecBuffer* b : held_) {
            EXPECT_EQ(b->GetRefCount(), 1);
            b->Release();
        }
        nplat::SetSoundSystem(nullptr);
        NCloseHandle(status_);
        NCloseHandle(position_);
    }

    // A 20 ms buffer we keep a reference to, to check the render lets go.
    CNCodecBuffer* Buffer(uint32_t stamp) {
        const auto s = Signal(kRate / 50, 2, stamp + 1);
        CNCodecBuffer* b = MakeBuffer(s.data(), static_cast<int>(s.size() * 2), kRate / 50, stamp);
        held_.push_back(b);
        return b;
    }

    static void RunFor(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

    nplat::VirtualSoundSystem sound_;
    CNAudioRender render_;
    nplat::HANDLE status_ = nullptr;
    nplat::HANDLE position_ = nullptr;
    std::vector<CNCodecBuffer*> held_;
};

TEST_F(RenderThreads, HostCallsFromSeveralThreadsWhilePlaying) {
    std::vector<CNCodecBuffer*> toAppend;
    for (int i = 0; i < 40; ++i) toAppend.push_back(Buffer(i * 20));
    // A head start, so the feeder (faster than real time) never lets it run dry.
    for (int i = 0; i < 5; ++i) render_.AppendBuffer(toAppend[i]);
    toAppend.erase(toAppend.begin(), toAppend.begin() + 5);
    ASSERT_EQ(render_.Play(), 1);
    std::atomic<bool> stop{false};
    std::thread feeder([&] {
        for (CNCodecBuffer* b : toAppend) {
            render_.AppendBuffer(b);
            RunFor(5);
        }
        render_.AppendBuffer(nullptr);
    });
    std::thread mixer([&] {
        CNAudioRender::PlayConfigInfoTag c{};
        c.nSize = 116;
        c.nSpeed = 25;
        for (int i = 0; !stop; ++i) {
            render_.SetVolume(0, 2, i % 101, (i % 201) - 100);
            int v, bal;
            render_.GetVolume(0, 2, &v, &bal);
            c.nFlags = i % 2 ? 0x04 : 0;
            c.nVolume = 64 + i % 200;
            render_.SetPlayConfig(&c);
            RunFor(3);
        }
    });
    std::thread reader([&] {
        while (!stop) {
            render_.GetCurrentPlayTime();
            CNAudioRender::StatInfoTag st;
            render_.GetStatInfo(&st);
            render_.SetNotifyTime(render_.GetCurrentPlayTime() + 15);
            RunFor(2);
        }
    });
    feeder.join();
    for (int i = 0; i < 300 && NWaitForSingleObject(status_, 0) != nplat::WAIT_OBJECT_0; ++i)
        RunFor(10);
    stop = true;
    mixer.join();
    reader.join();
    CNAudioRender::StatInfoTag st;
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.nState, 4);
    EXPECT_GT(sound_.CaptureSize(0), static_cast<size_t>(kRate * 4 * 8 / 10));
}

TEST_F(RenderThreads, PauseAndPlayFromAnotherThread) {
    for (int i = 0; i < 20; ++i) render_.AppendBuffer(Buffer(i * 20));
    render_.Play();
    std::thread toggler([&] {
        for (int i = 0; i < 20; ++i) {
            i % 2 ? render_.Play() : render_.Pause();
            RunFor(4);
        }
        render_.Play();
    });
    toggler.join();
    render_.AppendBuffer(nullptr);
    for (int i = 0; i < 200 && NWaitForSingleObject(status_, 0) != nplat::WAIT_OBJECT_0; ++i)
        RunFor(10);
    CNAudioRender::StatInfoTag st;
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.nState, 4);
}

enum class CloseFrom { kPaused, kPlaying, kDry, kEnd, kFatal };

class RenderClose : public RenderThreads, public ::testing::WithParamInterface<CloseFrom> {};

TEST_P(RenderClose, CloseReturnsFromEveryState) {
    const CloseFrom from = GetParam();
    if (from == CloseFrom::kFatal) sound_.FailCall(nplat::SoundCall::kLock, 3);
    if (from != CloseFrom::kPaused) {
        for (int i = 0; i < 3; ++i) render_.AppendBuffer(Buffer(i * 20));
        if (from == CloseFrom::kEnd) render_.AppendBuffer(nullptr);
        if (from == CloseFrom::kPlaying)
            for (int i = 3; i < 50; ++i) render_.AppendBuffer(Buffer(i * 20));
        render_.Play();
    }
    if (from != CloseFrom::kPaused && from != CloseFrom::kPlaying)
        EXPECT_EQ(NWaitForSingleObject(status_, 5000), nplat::WAIT_OBJECT_0);
    else
        RunFor(30);
    CNAudioRender::StatInfoTag st;
    render_.GetStatInfo(&st);
    const int want[] = {2, 1, 3, 4, 5};
    EXPECT_EQ(st.nState, want[static_cast<int>(from)]);
    // Close from a second thread while this one keeps calling in.
    std::thread closer([&] { EXPECT_EQ(render_.Close(), 1); });
    for (int i = 0; i < 20; ++i) {
        render_.GetCurrentPlayTime();
        render_.GetStatInfo(&st);
    }
    closer.join();
    render_.GetStatInfo(&st);
    EXPECT_EQ(st.nState, 0);
    sound_.ClearFailures();
}

INSTANTIATE_TEST_SUITE_P(States, RenderClose,
                         ::testing::Values(CloseFrom::kPaused, CloseFrom::kPlaying, CloseFrom::kDry,
                                           CloseFrom::kEnd, CloseFrom::kFatal));

}  // namespace
}  // namespace ncbtest::render_audio

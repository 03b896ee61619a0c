// The codec manager under several threads: decoders of several types
// allocated and freed at once, some pairs shared between threads, some files
// shared between pairs, one pair frozen and unfrozen meanwhile. A checker
// compares, under the manager's lock, every plug-in's own count of live
// instances with the sum of its records' counts. The test plug-ins count in
// plain ints, so ThreadSanitizer also flags any call into a plug-in that the
// manager failed to serialise.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "ncodecbase/codec_manager.h"
#include "tests/codec/plugin_probe.h"

namespace {

using M = CNCodecManager;

struct Pair {
    bool video;
    int type, subtype;
    const char* file;
};

// Two threads per pair for the first two; AAC and 264 each under two rules.
const Pair kPairs[] = {
    {false, 0x200, 0x201, "NAudioDecoderAAC.dll"}, {false, 0x200, 0x201, "NAudioDecoderAAC.dll"},
    {true, 0x1500, -1, "NVideoDecoder264.dll"},    {true, 0x1500, -1, "NVideoDecoder264.dll"},
    {false, 0x200, 0x202, "NAudioDecoderAAC.dll"}, {true, 0x1500, 0x1504, "NVideoDecoder264.dll"},
    {false, 0, 1, "NAudioDecoderCommon.dll"},      {true, 0, 9, "NVideoDecoderCommon.dll"},
};
constexpr int kRounds = 300;

// Sum of record counts per module equals the plug-in's live instances.
bool CountsAgree() {
    std::lock_guard<CNLock> guard(M::s_Lock);  // re-entrant: LoadedRecords locks again
    std::map<nplat::HMODULE, int> perModule;
    for (const auto& record : ncbtest::LoadedRecords()) perModule[record.module] += record.count;
    for (const auto& [module, count] : perModule) {
        if (ncbtest::LiveInstances(module) != count) return false;
    }
    return true;
}

void Worker(const Pair& pair, int seed, std::atomic<int>& failures) {
    auto allocate = pair.video ? M::AllocateVideoDecoder : M::AllocateAudioDecoder;
    auto release = pair.video ? M::FreeVideoDecoder : M::FreeAudioDecoder;
    std::vector<void*> held;
    for (int round = 0; round < kRounds; ++round) {
        int want = 1 + (round + seed) % 3;
        for (int i = 0; i < want; ++i) {
            auto* decoder = static_cast<NTestDecoder*>(allocate(pair.type, pair.subtype));
            if (!decoder || decoder->magic != NTEST_DECODER_LIVE ||
                decoder->codecSubType != pair.subtype ||
                std::string(decoder->fileName) != pair.file) {
                ++failures;
                continue;
            }
            held.push_back(decoder);
        }
        // Keep one instance across rounds now and then, so loads overlap.
        size_t keep = (round % 4 == 0) ? 1 : 0;
        while (held.size() > keep) {
            release(held.back(), pair.type, pair.subtype);
            held.pop_back();
        }
    }
    for (void* decoder : held) release(decoder, pair.type, pair.subtype);
}

TEST(CodecManagerThreads, CountsStayRightWhileDecodersComeAndGo) {
    ASSERT_EQ(
        M::Init(ncbtest::CodecPluginDir("audio").c_str(), ncbtest::CodecPluginDir("video").c_str()),
        1);
    std::atomic<int> failures{0};
    std::atomic<bool> stop{false};
    std::atomic<int> disagreements{0};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < std::size(kPairs); ++i)
        threads.emplace_back(Worker, std::cref(kPairs[i]), static_cast<int>(i), std::ref(failures));
    std::thread checker([&] {
        while (!stop.load()) {
            if (!CountsAgree()) ++disagreements;
            // Freeze and unfreeze a shared pair meanwhile; 0 when it is not loaded.
            M::FreezeAudioDecoder(0x200, 0x201);
            M::UnfreezeAudioDecoder(0x200, 0x201);
            std::this_thread::yield();
        }
    });
    for (auto& t : threads) t.join();
    stop = true;
    checker.join();

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(disagreements.load(), 0);
    // Every instance is back; idle unfrozen records went with their last Free.
    for (const auto& record : ncbtest::LoadedRecords()) {
        EXPECT_EQ(record.count, 0) << "key " << record.key;
        EXPECT_EQ(ncbtest::LiveInstances(record.module), 0);
    }
    EXPECT_EQ(M::Uninit(), 1);
    for (const Pair& pair : kPairs) {
        std::string folder = ncbtest::CodecPluginDir(pair.video ? "video" : "audio");
        EXPECT_EQ(ncbtest::MappingCount(folder + "/" + pair.file), 0) << pair.file;
    }
}

}  // namespace

// Reference counting on buffers and pools from several threads at once.
// These run in every build and are the tests the tsan preset runs.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/codec_flat_buffer.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 2000;

TEST(CodecBufferThreads, SharedReferencesBalanceAndTheLastReleaseDestroys) {
    CNCodecBuffer* parent = CNCodecBuffer::CreateBuffer();
    void* data = parent->Allocate(1024, 16, 0);
    ASSERT_NE(data, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([parent, data] {
            for (int i = 0; i < kRounds; ++i) {
                parent->AddRef();
                // Wrapping children take and drop parent references too.
                CNCodecBuffer* child = CNCodecBuffer::CreateWrapBuffer(data, 64, 0, parent);
                child->SetTimeStamp(static_cast<uint32_t>(i));
                child->Release();
                parent->Release();
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(parent->GetRefCount(), 1);
    EXPECT_EQ(parent->Release(), 0);
}

TEST(CodecBufferThreads, PoolBlocksComeAndGoFromManyThreads) {
    constexpr int kPage = 4096;
    CNCodecFlatBuffer* pool = CNCodecFlatBuffer::CreateFlatBuffer();
    ASSERT_EQ(pool->Init(kThreads * 8 * kPage), 1);
    std::atomic<int> handedOver{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([pool, &handedOver, t] {
            for (int i = 0; i < kRounds / 4; ++i) {
                auto* block = static_cast<uint8_t*>(pool->AllocateFlatBuffer(2 * kPage, kPage));
                if (!block) continue;  // another thread holds the space for a moment
                block[0] = static_cast<uint8_t>(t);
                if (i % 2) {
                    pool->FreeFlatBuffer(block);
                    continue;
                }
                CNCodecBuffer* buffer = pool->DetachFlatBuffer(block, 1);
                ASSERT_NE(buffer, nullptr);
                ++handedOver;
                EXPECT_EQ(static_cast<uint8_t*>(buffer->GetAddress())[0], t);
                buffer->Release();
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_GT(handedOver.load(), 0);
    EXPECT_EQ(pool->GetBlockCount(), 1);  // everything merged back
    EXPECT_EQ(pool->Release(), 0);
}

TEST(CodecBufferThreads, ReleasedPoolDiesWithTheLastBufferOnAnotherThread) {
    CNCodecFlatBuffer* pool = CNCodecFlatBuffer::CreateFlatBuffer();
    ASSERT_EQ(pool->Init(kThreads * 4096), 1);
    std::vector<CNCodecBuffer*> buffers;
    for (int t = 0; t < kThreads; ++t)
        buffers.push_back(pool->DetachFlatBuffer(pool->AllocateFlatBuffer(4096, 4096), 0));
    pool->Release();
    std::vector<std::thread> threads;
    for (CNCodecBuffer* b : buffers) threads.emplace_back([b] { b->Release(); });
    for (auto& t : threads) t.join();
}

}  // namespace

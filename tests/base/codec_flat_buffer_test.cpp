#include "ncodecbase/codec_flat_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "platform/kernel/fault.h"

namespace {

using nplat::fault::Kind;
using nplat::fault::Scope;

constexpr int kPage = 4096;

struct Block {
    int offset, length, committed, state;
    bool operator==(const Block&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Block& b) {
    return os << "{" << b.offset << "," << b.length << "," << b.committed << "," << b.state << "}";
}

class FlatBufferTest : public ::testing::Test {
  protected:
    void SetUp() override {
        pool_ = CNCodecFlatBuffer::CreateFlatBuffer();
        ASSERT_NE(pool_, nullptr);
        ASSERT_EQ(pool_->Init(16 * kPage), 1);
        base_ = static_cast<uint8_t*>(pool_->GetRegionAddress());
    }
    void TearDown() override {
        if (pool_) pool_->Release();
    }

    // The block list as offsets, checked to tile the region without gaps.
    std::vector<Block> Blocks() {
        std::vector<Block> out;
        int expected = 0;
        for (int i = 0; i < pool_->GetBlockCount(); ++i) {
            void* address;
            Block b;
            pool_->GetBlockInfo(i, &address, &b.length, &b.committed, &b.state);
            b.offset = static_cast<int>(static_cast<uint8_t*>(address) - base_);
            EXPECT_EQ(b.offset, expected) << "gap or overlap before block " << i;
            expected = b.offset + b.length;
            out.push_back(b);
        }
        EXPECT_EQ(expected, pool_->GetRegionSize());
        return out;
    }

    CNCodecFlatBuffer* pool_ = nullptr;
    uint8_t* base_ = nullptr;
};

TEST_F(FlatBufferTest, InitTwiceFails) {
    EXPECT_EQ(pool_->Init(kPage), 0);
    EXPECT_EQ(pool_->GetRegionSize(), 16 * kPage);
    EXPECT_EQ(Blocks(), (std::vector<Block>{{0, 16 * kPage, 0, 0}}));
}

TEST_F(FlatBufferTest, FirstFitSplitsAndFreeMerges) {
    uint8_t* a = static_cast<uint8_t*>(pool_->AllocateFlatBuffer(2 * kPage, kPage));
    uint8_t* b = static_cast<uint8_t*>(pool_->AllocateFlatBuffer(3 * kPage, 0));
    uint8_t* c = static_cast<uint8_t*>(pool_->AllocateFlatBuffer(kPage, kPage));
    ASSERT_EQ(a, base_);
    ASSERT_EQ(b, base_ + 2 * kPage);
    ASSERT_EQ(c, base_ + 5 * kPage);
    std::memset(a, 1, kPage);  // committed pages are writable
    std::memset(c, 3, kPage);

    pool_->FreeFlatBuffer(b);
    pool_->FreeFlatBuffer(a);
    EXPECT_EQ(Blocks(), (std::vector<Block>{{0, 5 * kPage, 0, 0},
                                            {5 * kPage, kPage, kPage, 1},
                                            {6 * kPage, 10 * kPage, 0, 0}}));
    pool_->FreeFlatBuffer(c);
    EXPECT_EQ(Blocks(), (std::vector<Block>{{0, 16 * kPage, 0, 0}}));
}

TEST_F(FlatBufferTest, ExactFitUsesTheRecordWithoutSplit) {
    void* a = pool_->AllocateFlatBuffer(4 * kPage, 0);
    void* b = pool_->AllocateFlatBuffer(12 * kPage, 2 * kPage);
    ASSERT_NE(b, nullptr);
    pool_->FreeFlatBuffer(a);
    EXPECT_EQ(pool_->AllocateFlatBuffer(4 * kPage, kPage), a);
    EXPECT_EQ(Blocks(), (std::vector<Block>{{0, 4 * kPage, kPage, 1},
                                            {4 * kPage, 12 * kPage, 2 * kPage, 1}}));
}

TEST_F(FlatBufferTest, NoFitWhenFreeSpaceIsFragmented) {
    void* a = pool_->AllocateFlatBuffer(4 * kPage, 0);
    ASSERT_NE(pool_->AllocateFlatBuffer(4 * kPage, 0), nullptr);
    ASSERT_NE(pool_->AllocateFlatBuffer(4 * kPage, 0), nullptr);
    pool_->FreeFlatBuffer(a);
    // 8 pages free in total, but the largest free block has 4.
    EXPECT_EQ(pool_->AllocateFlatBuffer(5 * kPage, 0), nullptr);
    EXPECT_EQ(pool_->AllocateFlatBuffer(17 * kPage, 0), nullptr);
}

TEST_F(FlatBufferTest, BadArgumentsAreRefused) {
    EXPECT_EQ(pool_->AllocateFlatBuffer(0, 0), nullptr);
    EXPECT_EQ(pool_->AllocateFlatBuffer(kPage, 2 * kPage), nullptr);
    EXPECT_EQ(pool_->AllocateFlatBuffer(kPage, -1), nullptr);
    void* a = pool_->AllocateFlatBuffer(2 * kPage, 0);
    EXPECT_EQ(pool_->CommitMemory(a, 3 * kPage), 0);
    EXPECT_EQ(pool_->CommitMemory(base_ + 1, kPage), 0);
    EXPECT_EQ(pool_->CommitMemory(nullptr, kPage), 0);
    pool_->FreeFlatBuffer(base_ + 100 * kPage);         // outside: nothing
    EXPECT_EQ(pool_->DetachFlatBuffer(a, 1), nullptr);  // nothing committed
    EXPECT_EQ(Blocks().size(), 2u);
}

TEST_F(FlatBufferTest, CommitGrowsAndShrinks) {
    auto* a = static_cast<uint8_t*>(pool_->AllocateFlatBuffer(4 * kPage, kPage));
    a[0] = 7;
    ASSERT_EQ(pool_->CommitMemory(a, 3 * kPage), 1);
    a[3 * kPage - 1] = 9;
    EXPECT_EQ(a[0], 7);
    ASSERT_EQ(pool_->CommitMemory(a, kPage), 1);
    ASSERT_EQ(pool_->CommitMemory(a, 2 * kPage), 1);
    EXPECT_EQ(a[0], 7);
    EXPECT_EQ(a[kPage], 0);  // decommitted pages come back as zeros
    EXPECT_EQ(Blocks()[0], (Block{0, 4 * kPage, 2 * kPage, 1}));
}

TEST_F(FlatBufferTest, DetachGivesTheUncommittedTailBack) {
    void* a = pool_->AllocateFlatBuffer(2 * kPage, kPage);
    CNCodecBuffer* buffer = pool_->DetachFlatBuffer(a, 100);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetAddress(), a);
    EXPECT_EQ(buffer->GetBufferSize(), kPage);
    EXPECT_EQ(buffer->GetDataSize(), 100);
    EXPECT_EQ(buffer->GetAlignBytes(), 16);
    // The tail merged into the free block that followed.
    EXPECT_EQ(Blocks(), (std::vector<Block>{{0, kPage, kPage, 2}, {kPage, 15 * kPage, 0, 0}}));

    // Free and Release only accept their own state.
    pool_->FreeFlatBuffer(a);
    EXPECT_EQ(Blocks()[0].state, 2);
    void* b = pool_->AllocateFlatBuffer(kPage, 0);
    pool_->ReleaseFlatBuffer(b);
    EXPECT_EQ(Blocks()[1].state, 1);

    EXPECT_EQ(buffer->Release(), 0);
    EXPECT_EQ(Blocks(),
              (std::vector<Block>{
                  {0, kPage, 0, 0}, {kPage, kPage, 0, 1}, {2 * kPage, 14 * kPage, 0, 0}}));
}

TEST_F(FlatBufferTest, DetachInsertsATailRecordBeforeAnAllocatedNeighbour) {
    void* a = pool_->AllocateFlatBuffer(2 * kPage, kPage);
    ASSERT_NE(pool_->AllocateFlatBuffer(14 * kPage, 0), nullptr);
    CNCodecBuffer* buffer = pool_->DetachFlatBuffer(a, 0);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(Blocks(),
              (std::vector<Block>{
                  {0, kPage, kPage, 2}, {kPage, kPage, 0, 0}, {2 * kPage, 14 * kPage, 0, 1}}));
    buffer->Release();
}

TEST_F(FlatBufferTest, FailedTailSplitStillHandsTheBlockOver) {
    void* a = pool_->AllocateFlatBuffer(2 * kPage, kPage);
    ASSERT_NE(pool_->AllocateFlatBuffer(14 * kPage, 0), nullptr);
    CNCodecBuffer* buffer;
    {
        Scope fail(Kind::kHeap, 0);
        buffer = pool_->DetachFlatBuffer(a, 0);
    }
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetBufferSize(), kPage);
    EXPECT_EQ(Blocks()[0], (Block{0, 2 * kPage, kPage, 2}));
    buffer->Release();
    EXPECT_EQ(Blocks()[0], (Block{0, 2 * kPage, 0, 0}));
}

TEST_F(FlatBufferTest, OutOfMemoryLeavesTheListAsItWas) {
    void* a = pool_->AllocateFlatBuffer(kPage, 0);
    const auto before = Blocks();
    {
        Scope fail(Kind::kHeap, 0, 10);
        EXPECT_EQ(pool_->AllocateFlatBuffer(kPage, kPage), nullptr);  // split insertion
        EXPECT_EQ(pool_->CommitMemory(a, kPage), 1);                  // needs no heap
        EXPECT_EQ(pool_->CommitMemory(a, 0), 1);
    }
    EXPECT_EQ(Blocks(), before);
    {
        Scope fail(Kind::kCommit, 0);
        EXPECT_EQ(pool_->AllocateFlatBuffer(kPage, kPage), nullptr);
    }
    EXPECT_EQ(Blocks(), before);
    {
        Scope fail(Kind::kCommit, 0);
        EXPECT_EQ(pool_->CommitMemory(a, kPage), 0);
    }
    EXPECT_EQ(Blocks(), before);
    {
        // Creating the handed-over buffer object fails: the block stays allocated.
        ASSERT_EQ(pool_->CommitMemory(a, kPage), 1);
        Scope fail(Kind::kHeap, 0);
        EXPECT_EQ(pool_->DetachFlatBuffer(a, 0), nullptr);
    }
    EXPECT_EQ(Blocks()[0], (Block{0, kPage, kPage, 1}));
}

TEST(FlatBuffer, InitFailuresLeaveThePoolUninitialised) {
    CNCodecFlatBuffer pool;
    {
        Scope fail(Kind::kReserve, 0);
        EXPECT_EQ(pool.Init(kPage), 0);
    }
    {
        Scope fail(Kind::kHeap, 0, 10);
        EXPECT_EQ(pool.Init(kPage), 0);
    }
    EXPECT_EQ(pool.GetRegionAddress(), nullptr);
    EXPECT_EQ(pool.Uninit(), 0);
    EXPECT_EQ(pool.AllocateFlatBuffer(kPage, 0), nullptr);
    EXPECT_EQ(pool.Init(0), 0);
    EXPECT_EQ(pool.Init(kPage), 1);
    EXPECT_EQ(pool.Uninit(), 1);
    EXPECT_EQ(pool.Init(2 * kPage), 1);  // may be initialised again
}

TEST(FlatBuffer, LastHandedOverBufferDestroysAReleasedPool) {
    CNCodecFlatBuffer* pool = CNCodecFlatBuffer::CreateFlatBuffer();
    ASSERT_EQ(pool->Init(8 * kPage), 1);
    auto* a = static_cast<uint8_t*>(pool->AllocateFlatBuffer(kPage, kPage));
    auto* b = static_cast<uint8_t*>(pool->AllocateFlatBuffer(kPage, kPage));
    CNCodecBuffer* first = pool->DetachFlatBuffer(a, 0);
    CNCodecBuffer* second = pool->DetachFlatBuffer(b, 0);
    EXPECT_EQ(pool->AddRef(), 4);
    EXPECT_EQ(pool->Release(), 3);
    EXPECT_EQ(pool->Release(), 2);  // the creator lets go
    std::memset(second->GetAddress(), 1, kPage);
    first->Release();
    second->Release();  // pool and region go with it (ASan and LSan check)
}

TEST(FlatBuffer, UninitWithLiveBuffersDoesNotLeakThePool) {
    CNCodecFlatBuffer* pool = CNCodecFlatBuffer::CreateFlatBuffer();
    ASSERT_EQ(pool->Init(4 * kPage), 1);
    CNCodecBuffer* buffer = pool->DetachFlatBuffer(pool->AllocateFlatBuffer(kPage, kPage), 0);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(pool->Uninit(), 1);
    EXPECT_EQ(pool->Release(), 1);
    buffer->Release();  // drops the last reference: LSan reports the pool otherwise
}

}  // namespace

#include "ncodecbase/codec_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "ncodecbase/codec_flat_buffer.h"
#include "platform/kernel/fault.h"
#include "platform/kernel/sync.h"

namespace {

using nplat::fault::Kind;
using nplat::fault::Scope;

struct ReleaseBuffer {
    void operator()(CNCodecBuffer* b) const {
        if (b) b->Release();
    }
};
using BufferPtr = std::unique_ptr<CNCodecBuffer, ReleaseBuffer>;

BufferPtr MakeOwned() { return BufferPtr(CNCodecBuffer::CreateBuffer()); }

uintptr_t Addr(const void* p) { return reinterpret_cast<uintptr_t>(p); }

void FillPattern(void* p, int n) {
    auto* b = static_cast<uint8_t*>(p);
    for (int i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i * 7 + 3);
}

bool HasPattern(const void* p, int n) {
    auto* b = static_cast<const uint8_t*>(p);
    for (int i = 0; i < n; ++i)
        if (b[i] != static_cast<uint8_t>(i * 7 + 3)) return false;
    return true;
}

TEST(CodecBuffer, ConstructorsSetTheDocumentedInitialState) {
    BufferPtr owned = MakeOwned();
    EXPECT_EQ(owned->GetAddress(), nullptr);
    EXPECT_EQ(owned->GetBufferSize(), 0);
    EXPECT_EQ(owned->GetAlignBytes(), 1);
    EXPECT_EQ(owned->GetRefCount(), 1);

    char memory[64];
    BufferPtr wrap(CNCodecBuffer::CreateWrapBuffer(memory, 64, 10, nullptr));
    EXPECT_EQ(wrap->GetAddress(), memory);
    EXPECT_EQ(wrap->GetBufferSize(), 64);
    EXPECT_EQ(wrap->GetDataSize(), 10);
    EXPECT_EQ(wrap->GetFreeSize(), 54);
    EXPECT_EQ(wrap->GetAlignBytes(), 1);
}

TEST(CodecBuffer, AllocateOnEmptyBuffer) {
    BufferPtr b = MakeOwned();
    EXPECT_EQ(b->Allocate(0, 0, 0), nullptr);
    EXPECT_EQ(b->GetBufferSize(), 0);

    void* p = b->Allocate(100, 1, 0);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(b->GetBufferSize(), 101);

    BufferPtr c = MakeOwned();
    void* q = c->Allocate(1000, 64, 0);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(Addr(q) % 64, 0u);
    EXPECT_GE(c->GetBufferSize(), 1000);
    EXPECT_EQ(c->GetAlignBytes(), 64);
}

TEST(CodecBuffer, SmallerAllocateKeepsTheBlock) {
    BufferPtr b = MakeOwned();
    void* p = b->Allocate(4096, 16, 0);
    ASSERT_NE(p, nullptr);
    b->SetDataSize(100);
    EXPECT_EQ(b->Allocate(1000, 16, 1), p);
    EXPECT_EQ(b->GetDataSize(), 100);
    EXPECT_EQ(b->Allocate(1000, 0, 0), p);
    EXPECT_EQ(b->GetDataSize(), 0);
}

TEST(CodecBuffer, RaisingAlignmentRealignsInsideTheBlockWithTheData) {
    BufferPtr b = MakeOwned();
    // Alignment 1 leaves the data at the block start; find a block whose start
    // is not 64-aligned so the realignment has to move.
    void* p = b->Allocate(4000, 1, 0);
    ASSERT_NE(p, nullptr);
    if (Addr(p) % 64 == 0) GTEST_SKIP() << "heap returned a 64-aligned block";
    FillPattern(p, 500);
    b->SetDataSize(500);
    const int room = b->GetBufferSize();

    void* q = b->Allocate(2000, 64, 1);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(Addr(q) % 64, 0u);
    EXPECT_GT(Addr(q), Addr(p));
    EXPECT_LT(Addr(q), Addr(p) + 64);
    EXPECT_EQ(b->GetBufferSize(), room - static_cast<int>(Addr(q) - Addr(p)));
    EXPECT_EQ(b->GetDataSize(), 500);
    EXPECT_TRUE(HasPattern(q, 500));
}

TEST(CodecBuffer, GrowCopiesDataWhenAsked) {
    for (int keep : {0, 1}) {
        BufferPtr b = MakeOwned();
        void* p = b->Allocate(256, 16, 0);
        FillPattern(p, 256);
        b->SetDataSize(256);
        void* q = b->Allocate(1 << 20, 32, keep);
        ASSERT_NE(q, nullptr);
        EXPECT_EQ(Addr(q) % 32, 0u);
        EXPECT_GE(b->GetBufferSize(), 1 << 20);
        if (keep) {
            EXPECT_EQ(b->GetDataSize(), 256);
            EXPECT_TRUE(HasPattern(q, 256));
        } else {
            EXPECT_EQ(b->GetDataSize(), 0);
        }
    }
}

TEST(CodecBuffer, FailedGrowLeavesBufferUnchanged) {
    BufferPtr b = MakeOwned();
    void* p = b->Allocate(64, 16, 0);
    b->SetDataSize(10);
    {
        Scope fail(Kind::kHeap, 0);
        EXPECT_EQ(b->Allocate(1 << 16, 32, 1), nullptr);
    }
    EXPECT_EQ(b->GetAddress(), p);
    EXPECT_EQ(b->GetDataSize(), 10);
    EXPECT_EQ(b->GetAlignBytes(), 16);
    EXPECT_EQ(b->Allocate(INT32_MAX, 0, 0), nullptr);
    EXPECT_EQ(b->Allocate(-1, 0, 0), nullptr);
}

TEST(CodecBuffer, WrapAndPoolKindsRefuseMemoryChanges) {
    char memory[128];
    BufferPtr wrap(CNCodecBuffer::CreateWrapBuffer(memory, 128, 0, nullptr));
    CNCodecFlatBuffer* pool = CNCodecFlatBuffer::CreateFlatBuffer();
    ASSERT_EQ(pool->Init(1 << 16), 1);
    void* blockAddress = pool->AllocateFlatBuffer(4096, 4096);
    BufferPtr block(pool->DetachFlatBuffer(blockAddress, 0));
    pool->Release();  // the block keeps the pool alive
    ASSERT_TRUE(block);
    EXPECT_EQ(block->GetAlignBytes(), 16);

    for (CNCodecBuffer* b : {wrap.get(), block.get()}) {
        void* address = b->GetAddress();
        const int size = b->GetBufferSize();
        const int align = b->GetAlignBytes();
        EXPECT_EQ(b->Allocate(16, 16, 0), nullptr);
        b->Free();
        b->SetAlignBytes(64);
        EXPECT_EQ(b->GetAddress(), address);
        EXPECT_EQ(b->GetBufferSize(), size);
        EXPECT_EQ(b->GetAlignBytes(), align);
    }
}

TEST(CodecBuffer, FreeEmptiesAnOwnedBuffer) {
    BufferPtr b = MakeOwned();
    b->Allocate(100, 16, 0);
    b->SetDataSize(5);
    b->Free();
    EXPECT_EQ(b->GetAddress(), nullptr);
    EXPECT_EQ(b->GetBufferSize(), 0);
    EXPECT_EQ(b->GetDataSize(), 0);
}

TEST(CodecBuffer, SetDataSizeIgnoresOutOfRangeValues) {
    BufferPtr b = MakeOwned();
    b->Allocate(100, 1, 0);
    b->SetDataSize(50);
    b->SetDataSize(-1);
    EXPECT_EQ(b->GetDataSize(), 50);
    b->SetDataSize(b->GetBufferSize() + 1);
    EXPECT_EQ(b->GetDataSize(), 50);
    b->SetDataSize(b->GetBufferSize());
    EXPECT_EQ(b->GetFreeSize(), 0);
}

TEST(CodecBuffer, AdditionalInformationKeepsLeadingBytes) {
    BufferPtr b = MakeOwned();
    auto* info = static_cast<uint8_t*>(b->AllocateAddiInfo(64));
    ASSERT_NE(info, nullptr);
    FillPattern(info, 64);
    info = static_cast<uint8_t*>(b->AllocateAddiInfo(16));
    EXPECT_TRUE(HasPattern(info, 16));
    info = static_cast<uint8_t*>(b->AllocateAddiInfo(128));
    EXPECT_TRUE(HasPattern(info, 16));
    EXPECT_EQ(b->GetAddiInfoSize(), 128);
    {
        Scope fail(Kind::kHeap, 0);
        EXPECT_EQ(b->AllocateAddiInfo(256), nullptr);
    }
    EXPECT_EQ(b->GetAddiInfo(), info);
    EXPECT_EQ(b->GetAddiInfoSize(), 128);
}

TEST(CodecBuffer, HardwareSampleSignalsItsEventOnceOnDestruction) {
    nplat::HANDLE first = nplat::CreateEvent(true, false);
    nplat::HANDLE second = nplat::CreateEvent(true, false);
    int sample = 0, other = 0;
    CNCodecBuffer* b = CNCodecBuffer::CreateBuffer();
    b->WrapHardwareSample(&sample, first);
    b->WrapHardwareSample(&other, second);  // ignored
    EXPECT_EQ(b->GetHardwareSample(), &sample);
    EXPECT_EQ(nplat::WaitForSingleObject(first, 0), nplat::WAIT_TIMEOUT);
    b->Release();
    EXPECT_EQ(nplat::WaitForSingleObject(first, 0), nplat::WAIT_OBJECT_0);
    EXPECT_EQ(nplat::WaitForSingleObject(second, 0), nplat::WAIT_TIMEOUT);
    nplat::CloseHandle(first);
    nplat::CloseHandle(second);

    char memory[8];
    BufferPtr wrap(CNCodecBuffer::CreateWrapBuffer(memory, 8, 0, nullptr));
    wrap->WrapHardwareSample(&sample, nullptr);
    EXPECT_EQ(wrap->GetHardwareSample(), nullptr);
}

TEST(CodecBuffer, WrapKeepsParentAliveUntilItGoes) {
    CNCodecBuffer* parent = CNCodecBuffer::CreateBuffer();
    void* p = parent->Allocate(256, 16, 0);
    CNCodecBuffer* child = CNCodecBuffer::CreateWrapBuffer(p, 128, 0, parent);
    EXPECT_EQ(parent->GetRefCount(), 2);
    EXPECT_EQ(parent->Release(), 1);
    std::memset(child->GetAddress(), 0xAB, 128);  // parent memory still valid
    EXPECT_EQ(child->Release(), 0);               // destroys the parent too (ASan checks)
}

TEST(CodecBuffer, CreateFailsSoftlyWhenMemoryRunsOut) {
    Scope fail(Kind::kHeap, 0, 3);
    EXPECT_EQ(CNCodecBuffer::CreateBuffer(), nullptr);
    EXPECT_EQ(CNCodecBuffer::CreateWrapBuffer(nullptr, 0, 0, nullptr), nullptr);
    EXPECT_EQ(CNCodecBuffer::NewBuffer(10), nullptr);
}

TEST(CodecBuffer, ByteAlignedBlocks) {
    for (int align : {1, 2, 4, 8, 16, 32, 64}) {
        for (int size : {0, 1, 100}) {
            auto* p = static_cast<uint8_t*>(CNCodecBuffer::NewByteAlignBuffer(size, align));
            ASSERT_NE(p, nullptr);
            EXPECT_EQ(Addr(p) % align, 0u);
            EXPECT_GE(p[-1], 1);
            EXPECT_LE(p[-1], align);
            std::memset(p, 0x5A, size);
            CNCodecBuffer::DeleteByteAlignBuffer(p);
        }
    }
    EXPECT_EQ(CNCodecBuffer::NewByteAlignBuffer(10, 128), nullptr);
    EXPECT_EQ(CNCodecBuffer::NewByteAlignBuffer(10, 3), nullptr);
    EXPECT_EQ(CNCodecBuffer::NewByteAlignBuffer(-1, 16), nullptr);
    CNCodecBuffer::DeleteByteAlignBuffer(nullptr);
}

TEST(CodecBuffer, PlainFieldsRoundTrip) {
    BufferPtr b = MakeOwned();
    b->SetTimeStamp(0xFFFFFFF0u);
    b->SetBufferFlag(0x100);
    b->SetBufferUserData(-5);
    b->SetBufferId(7);
    b->SetBufferFlagEx(1);
    b->SetBufferUserDataEx(2);
    b->SetBufferFlagEx2(3);
    b->SetBufferUserDataEx2(4);
    EXPECT_EQ(b->GetTimeStamp(), 0xFFFFFFF0u);
    EXPECT_EQ(b->GetBufferFlag(), 0x100);
    EXPECT_EQ(b->GetBufferUserData(), -5);
    EXPECT_EQ(b->GetBufferId(), 7);
    EXPECT_EQ(b->GetBufferFlagEx() + b->GetBufferUserDataEx() + b->GetBufferFlagEx2() +
                  b->GetBufferUserDataEx2(),
              10);
}

}  // namespace

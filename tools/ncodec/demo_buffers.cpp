// Demo step "buffers": the three kinds of CNCodecBuffer (owned, wrapping
// caller memory with a parent reference, pool block of a CNCodecFlatBuffer),
// aligned allocation that keeps data, and reference counts, written up in
// buffers.txt.
#include <cstdint>
#include <cstring>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/codec_flat_buffer.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"

namespace ncodec {
namespace {

bool Aligned(const void* p, uintptr_t align) {
    return p && reinterpret_cast<uintptr_t>(p) % align == 0;
}

// Owned buffer: allocate aligned, grow keeping the data, wrap part of it.
void OwnedAndWrap(DemoReport& r) {
    r.Line("owned buffer");
    CNCodecBuffer* owned = CNCodecBuffer::CreateBuffer();
    if (!r.Check(owned != nullptr, "CreateBuffer")) return;
    auto* data = static_cast<uint8_t*>(owned->Allocate(1000, 64, 0));
    r.Check(Aligned(data, 64), "Allocate(1000, 64) is 64-byte aligned");
    if (data) {
        for (int i = 0; i < 1000; ++i) data[i] = static_cast<uint8_t>(i * 7);
        owned->SetDataSize(1000);
    }
    r.Line("  size %d, data size %d, align %d", owned->GetBufferSize(), owned->GetDataSize(),
           owned->GetAlignBytes());
    auto* grown = static_cast<uint8_t*>(owned->Allocate(100000, 32, 1));
    bool kept = grown != nullptr;
    for (int i = 0; kept && i < 1000; ++i) kept = grown[i] == static_cast<uint8_t>(i * 7);
    r.Check(Aligned(grown, 32) && kept, "Allocate(100000, 32, keep) keeps the data");
    r.Line("  grown: size %d, data size %d", owned->GetBufferSize(), owned->GetDataSize());

    r.Line("wrap buffer over bytes 100..299 of the owned one");
    CNCodecBuffer* wrap =
        grown ? CNCodecBuffer::CreateWrapBuffer(grown + 100, 200, 200, owned) : nullptr;
    if (r.Check(wrap != nullptr, "CreateWrapBuffer")) {
        r.Check(owned->GetRefCount() == 2, "the wrap holds its parent");
        r.Check(wrap->Allocate(16, 16, 0) == nullptr, "a wrap refuses to allocate");
        r.Check(std::memcmp(wrap->GetAddress(), grown + 100, 200) == 0, "the wrap sees the bytes");
        wrap->Release();
        r.Check(owned->GetRefCount() == 1, "releasing the wrap drops the parent reference");
    }
    owned->Release();
}

// Pool: reserve, carve a block, commit part of it, hand it over as a buffer.
void Pool(DemoReport& r) {
    r.Line("flat pool of 1 MiB");
    CNCodecFlatBuffer* pool = CNCodecFlatBuffer::CreateFlatBuffer();
    if (!r.Check(pool != nullptr, "CreateFlatBuffer")) return;
    if (r.Check(pool->Init(1 << 20) == 1, "Init(1 MiB)")) {
        void* block = pool->AllocateFlatBuffer(65536, 16384);
        r.Check(block != nullptr, "AllocateFlatBuffer(64 KiB, 16 KiB committed)");
        if (block) std::memset(block, 0x5A, 16384);
        CNCodecBuffer* buffer = block ? pool->DetachFlatBuffer(block, 16384) : nullptr;
        if (r.Check(buffer != nullptr, "DetachFlatBuffer")) {
            r.Line("  block buffer: size %d, data size %d", buffer->GetBufferSize(),
                   buffer->GetDataSize());
            const int held = pool->AddRef() - 1;  // the count without our probe
            pool->Release();
            r.Check(held == 2, "a handed-over block holds the pool");
            buffer->Release();
        }
        for (int i = 0;; ++i) {
            void* address;
            int length, committed, state;
            if (!pool->GetBlockInfo(i, &address, &length, &committed, &state)) break;
            r.Line("  block %d: length %d, committed %d, state %d", i, length, committed, state);
        }
        r.Check(pool->Uninit() == 1, "Uninit");
    }
    pool->Release();
}

}  // namespace

bool DemoBuffers(const DemoContext& context, std::string* error) {
    DemoReport r;
    OwnedAndWrap(r);
    Pool(r);
    if (!context.WriteText("buffers.txt", r.text(), error)) return false;
    if (!r.ok()) *error = "check failed: " + r.firstFailure();
    return r.ok();
}

}  // namespace ncodec

// base/aligned_alloc: one 64 KiB block aligned to 64 bytes, allocated and
// freed per iteration, through CNCodecBuffer (ours) and through
// posix_memalign (libc, what a host would otherwise call). Mostly a check that
// the buffer's bookkeeping and lock add little over the allocator itself; the
// memory is not touched, so page faults are left out of both.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "ncodecbase/codec_buffer.h"

namespace {

constexpr int kSize = 64 * 1024;
constexpr int kAlign = 64;

void AlignedAllocOurs(benchmark::State& state) {
    CNCodecBuffer* buffer = CNCodecBuffer::CreateBuffer();
    for (auto _ : state) {
        void* p = buffer->Allocate(kSize, kAlign, 0);
        benchmark::DoNotOptimize(p);
        buffer->Free();
    }
    buffer->Release();
}

void AlignedAllocLibc(benchmark::State& state) {
    for (auto _ : state) {
        void* p = nullptr;
        if (posix_memalign(&p, kAlign, kSize) != 0) state.SkipWithError("out of memory");
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}

BENCHMARK(AlignedAllocOurs)->Name("base/aligned_alloc/64KiB/ours");
BENCHMARK(AlignedAllocLibc)->Name("base/aligned_alloc/64KiB/libc");

}  // namespace

// mmap(PROT_NONE) reserves, mprotect commits, madvise(MADV_DONTNEED) plus
// PROT_NONE decommits (the pages go back to the system and read as zero when
// committed again), munmap releases.
#include "platform/kernel/virtual_memory.h"

#include <sys/mman.h>

#include <cstdint>

#include "platform/kernel/fault.h"

namespace nplat {
namespace {

// The page-aligned span that covers every page the byte range touches.
struct PageSpan {
    void* start;
    size_t length;
};

PageSpan Pages(void* address, size_t size) {
    uintptr_t begin = reinterpret_cast<uintptr_t>(address) & ~(uintptr_t)(kPageSize - 1);
    uintptr_t end =
        (reinterpret_cast<uintptr_t>(address) + size + kPageSize - 1) & ~(uintptr_t)(kPageSize - 1);
    return {reinterpret_cast<void*>(begin), end - begin};
}

}  // namespace

void* VirtualReserve(size_t size) {
    if (size == 0 || fault::ShouldFail(fault::Kind::kReserve)) return nullptr;
    void* p = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}

bool VirtualCommit(void* address, size_t size) {
    if (!address || fault::ShouldFail(fault::Kind::kCommit)) return false;
    if (size == 0) return true;
    PageSpan span = Pages(address, size);
    return mprotect(span.start, span.length, PROT_READ | PROT_WRITE) == 0;
}

bool VirtualDecommit(void* address, size_t size) {
    if (!address) return false;
    if (size == 0) return true;
    PageSpan span = Pages(address, size);
    if (madvise(span.start, span.length, MADV_DONTNEED) != 0) return false;
    return mprotect(span.start, span.length, PROT_NONE) == 0;
}

bool VirtualRelease(void* address, size_t size) {
    if (!address) return false;
    return munmap(address, size) == 0;
}

}  // namespace nplat

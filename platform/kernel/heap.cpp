#include "platform/kernel/heap.h"

#include <cstdlib>
#include <new>

#include "platform/kernel/fault.h"

namespace nplat {

void* HeapAlloc(size_t size) {
    if (fault::ShouldFail(fault::Kind::kHeap)) return nullptr;
    return std::malloc(size ? size : 1);
}

void* HeapRealloc(void* block, size_t size) {
    if (fault::ShouldFail(fault::Kind::kHeap)) return nullptr;
    return std::realloc(block, size ? size : 1);
}

void HeapFree(void* block) { std::free(block); }

}  // namespace nplat

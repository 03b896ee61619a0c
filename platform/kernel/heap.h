// The library's heap: malloc/free behind one door so tests can make any
// allocation fail (fault.h). Nothing here throws; failure is a null result.
#pragma once

#include <cstddef>
#include <new>

namespace nplat {

void* HeapAlloc(size_t size);
void* HeapRealloc(void* block, size_t size);  // null on failure, block untouched
void HeapFree(void* block);

// Construct an object on the library heap; null when memory runs out or the
// constructor throws. Pair with HeapDelete.
template <typename T, typename... Args>
T* HeapNew(Args&&... args) {
    void* p = HeapAlloc(sizeof(T));
    if (!p) return nullptr;
    try {
        return new (p) T(static_cast<Args&&>(args)...);
    } catch (...) {
        HeapFree(p);
        return nullptr;
    }
}

template <typename T>
void HeapDelete(T* object) {
    if (!object) return;
    object->~T();
    HeapFree(object);
}

}  // namespace nplat

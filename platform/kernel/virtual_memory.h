// Address-space reservation with page-granular commit, as the flat buffer pool
// expects of the operating system: reserve a range with no access, commit and
// decommit every page that a byte range touches, release the whole range.
#pragma once

#include <cstddef>

namespace nplat {

constexpr size_t kPageSize = 4096;

// Reserves `size` bytes of inaccessible address space; null on failure.
void* VirtualReserve(size_t size);
// Makes every page touched by [address, address + size) readable and writable.
bool VirtualCommit(void* address, size_t size);
// Drops the contents of every page touched by the range and makes it inaccessible.
bool VirtualDecommit(void* address, size_t size);
// Gives back a whole reservation made by VirtualReserve.
bool VirtualRelease(void* address, size_t size);

}  // namespace nplat

// Resources compiled into the library, looked up the way a Windows module's
// resources are: FindResourceA by numeric id and type name, LoadResource,
// LockResource, SizeofResource. The bytes are built into the library at
// build time (cmake/ShaderResource.cmake writes the table), so a lookup never
// touches a file.
//
// Only this library's own module holds resources: pass a null module. Names
// are numeric ids (MAKEINTRESOURCEA); string names are not supported.
// Resources are read-only and live as long as the process.
//
// Thread safety: lookups may run on any thread; the test control below is
// meant for tests that run one at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/win_types.h"

namespace nplat {

struct EmbeddedResource {
    const char* type;  // e.g. "shader"
    uint32_t id;
    const unsigned char* data;
    size_t size;
};

using HRSRC = const EmbeddedResource*;
using HGLOBAL = const EmbeddedResource*;

inline const char* MAKEINTRESOURCEA(uint32_t id) {
    return reinterpret_cast<const char*>(static_cast<uintptr_t>(id & 0xFFFF));
}
inline bool IS_INTRESOURCE(const char* name) {
    return (reinterpret_cast<uintptr_t>(name) >> 16) == 0;
}

// Null when the module is not this library's (non-null), the name is not a
// numeric id, the type is missing or nothing matches.
HRSRC FindResourceA(HMODULE module, const char* name, const char* type);
HGLOBAL LoadResource(HMODULE module, HRSRC resource);
const void* LockResource(HGLOBAL resource);
DWORD SizeofResource(HMODULE module, HRSRC resource);

namespace resource_table {
// Defined by the generated source.
extern const EmbeddedResource kEntries[];
extern const int kCount;
}  // namespace resource_table

namespace resourcetest {
// Makes FindResourceA miss the resource (id, type) while hidden is true, so
// tests can drive a library built without it. One resource at a time.
void HideResource(uint32_t id, const char* type, bool hidden);
}  // namespace resourcetest

}  // namespace nplat

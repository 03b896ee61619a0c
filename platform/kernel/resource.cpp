// Embedded-resource lookup over the table the build generates. A linear
// search: the library carries a handful of resources and looks each up once
// per device.
#include "platform/kernel/resource.h"

#include <atomic>
#include <cstring>

namespace nplat {
namespace {

std::atomic<uint32_t> g_hiddenId{0};
std::atomic<const char*> g_hiddenType{nullptr};

bool IsHidden(const EmbeddedResource& entry) {
    const char* type = g_hiddenType.load(std::memory_order_relaxed);
    return type && g_hiddenId.load(std::memory_order_relaxed) == entry.id &&
           std::strcmp(type, entry.type) == 0;
}

}  // namespace

HRSRC FindResourceA(HMODULE module, const char* name, const char* type) {
    if (module || !type || !IS_INTRESOURCE(name)) return nullptr;
    const uint32_t id = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(name));
    for (int i = 0; i < resource_table::kCount; ++i) {
        const EmbeddedResource& entry = resource_table::kEntries[i];
        if (entry.id == id && std::strcmp(entry.type, type) == 0 && !IsHidden(entry)) {
            return &entry;
        }
    }
    return nullptr;
}

HGLOBAL LoadResource(HMODULE module, HRSRC resource) { return module ? nullptr : resource; }

const void* LockResource(HGLOBAL resource) { return resource ? resource->data : nullptr; }

DWORD SizeofResource(HMODULE module, HRSRC resource) {
    return module || !resource ? 0 : static_cast<DWORD>(resource->size);
}

namespace resourcetest {

void HideResource(uint32_t id, const char* type, bool hidden) {
    g_hiddenId.store(id, std::memory_order_relaxed);
    g_hiddenType.store(hidden ? type : nullptr, std::memory_order_relaxed);
}

}  // namespace resourcetest
}  // namespace nplat

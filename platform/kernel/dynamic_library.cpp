// Thin mapping onto the dynamic loader; see dynamic_library.h. Not here:
// search paths of our own, GetModuleHandle, the loader lock's semantics.
#include "platform/kernel/dynamic_library.h"

#include <dlfcn.h>

#include "platform/kernel/heap.h"
#include "platform/win/text_conversion.h"

namespace nplat {

HMODULE LoadLibrary(const char* path) {
    // dlopen(nullptr) would hand back the main program; Windows fails instead.
    if (!path || !*path) return nullptr;
    return static_cast<HMODULE>(dlopen(path, RTLD_NOW | RTLD_LOCAL));
}

HMODULE LoadLibraryW(const WCHAR* path) {
    if (!path) return nullptr;
    int bytes = WideCharToMultiByte(CP_UTF8, 0, path, -1, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return nullptr;
    char* utf8 = static_cast<char*>(HeapAlloc(static_cast<size_t>(bytes)));
    if (!utf8) return nullptr;
    HMODULE module = nullptr;
    if (WideCharToMultiByte(CP_UTF8, 0, path, -1, utf8, bytes, nullptr, nullptr) == bytes)
        module = LoadLibrary(utf8);
    HeapFree(utf8);
    return module;
}

FARPROC GetProcAddress(HMODULE module, const char* name) {
    if (!module || !name) return nullptr;
    return reinterpret_cast<FARPROC>(dlsym(module, name));
}

bool FreeLibrary(HMODULE module) { return module && dlclose(module) == 0; }

}  // namespace nplat

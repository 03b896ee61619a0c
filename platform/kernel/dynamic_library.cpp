// Thin mapping onto the dynamic loader; see dynamic_library.h. Not here:
// search paths of our own, GetModuleHandle, the loader lock's semantics.
//
// The system modules the renders load by name ("d3d9.dll", "dxva2.dll") are
// built in: they name this library's own graphics layer, so they resolve
// before any file is searched and can never pick up a stray file of that
// name. Their handles point into a static table; loading and freeing them
// counts nothing.
#include "platform/kernel/dynamic_library.h"

#include <dlfcn.h>
#include <strings.h>

#include <cstring>

#include "platform/gfx/d3d9.h"
#include "platform/gfx/dxva2.h"
#include "platform/kernel/heap.h"
#include "platform/win/text_conversion.h"

namespace nplat {

namespace {

struct BuiltinExport {
    const char* name;
    FARPROC address;
};

struct BuiltinModule {
    const char* fileName;
    BuiltinExport exports[1];
};

const BuiltinModule kBuiltinModules[] = {
    {"d3d9.dll", {{"Direct3DCreate9Ex", reinterpret_cast<FARPROC>(&Direct3DCreate9Ex)}}},
    {"dxva2.dll",
     {{"DXVA2CreateVideoService", reinterpret_cast<FARPROC>(&DXVA2CreateVideoService)}}},
};

// Module names compare without case, as Windows file names do; a path is a
// file, never a built-in module.
const BuiltinModule* FindBuiltin(const char* path) {
    for (const BuiltinModule& m : kBuiltinModules)
        if (strcasecmp(m.fileName, path) == 0) return &m;
    return nullptr;
}

const BuiltinModule* AsBuiltin(HMODULE module) {
    for (const BuiltinModule& m : kBuiltinModules)
        if (reinterpret_cast<const void*>(&m) == static_cast<const void*>(module)) return &m;
    return nullptr;
}

}  // namespace

HMODULE LoadLibrary(const char* path) {
    // dlopen(nullptr) would hand back the main program; Windows fails instead.
    if (!path || !*path) return nullptr;
    if (const BuiltinModule* builtin = FindBuiltin(path))
        return reinterpret_cast<HMODULE>(const_cast<BuiltinModule*>(builtin));
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
    if (const BuiltinModule* builtin = AsBuiltin(module)) {
        for (const BuiltinExport& e : builtin->exports)
            if (std::strcmp(e.name, name) == 0) return e.address;
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(dlsym(module, name));
}

bool FreeLibrary(HMODULE module) {
    if (AsBuiltin(module)) return true;
    return module && dlclose(module) == 0;
}

}  // namespace nplat

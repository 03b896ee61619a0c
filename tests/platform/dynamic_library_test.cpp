// Loading plug-ins by their ".dll" names: resolve and call, reference-counted
// loads, local symbol scope, eager binding, wide paths, and every failure.
#include "platform/kernel/dynamic_library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/gfx/d3d9.h"
#include "platform/gfx/dxva2.h"
#include "tests/support/test_paths.h"

namespace {

using namespace nplat;

std::string PluginPath(const char* name) { return std::string(NCB_TEST_PLUGIN_DIR) + "/" + name; }

using AddFn = int (*)(int, int);
using NameFn = const char* (*)();

TEST(DynamicLibrary, LoadsResolvesCallsAndFrees) {
    HMODULE module = LoadLibrary(PluginPath("NTestPlugin.dll").c_str());
    ASSERT_NE(module, nullptr);
    auto add = reinterpret_cast<AddFn>(GetProcAddress(module, "NTestPluginAdd"));
    auto name = reinterpret_cast<NameFn>(GetProcAddress(module, "NTestPluginName"));
    ASSERT_NE(add, nullptr);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(add(2, 40), 42);
    EXPECT_STREQ(name(), "NTestPlugin");
    EXPECT_EQ(GetProcAddress(module, "NTestPluginMissing"), nullptr);
    EXPECT_EQ(GetProcAddress(module, nullptr), nullptr);
    EXPECT_TRUE(FreeLibrary(module));
}

TEST(DynamicLibrary, LoadsAreCountedAndSymbolsStayLocal) {
    std::string path = PluginPath("NTestPlugin.dll");
    HMODULE first = LoadLibrary(path.c_str());
    HMODULE second = LoadLibrary(path.c_str());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    // Plug-ins must not leak their symbols into the global scope.
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "NTestPluginAdd"), nullptr);
    EXPECT_TRUE(FreeLibrary(first));
    auto add = reinterpret_cast<AddFn>(GetProcAddress(second, "NTestPluginAdd"));
    ASSERT_NE(add, nullptr);  // still loaded: one load remains
    EXPECT_EQ(add(1, 1), 2);
    EXPECT_TRUE(FreeLibrary(second));
}

TEST(DynamicLibrary, UnresolvedSymbolsFailTheLoadNotTheCall) {
    EXPECT_EQ(LoadLibrary(PluginPath("NTestPluginUnresolved.dll").c_str()), nullptr);
}

TEST(DynamicLibrary, WidePathWithNonAsciiName) {
    std::filesystem::path dir = ncbtest::ScratchDir();
    std::u8string name = u8"Plüg-ïn \u20AC\U0001F600.dll";
    std::filesystem::path target = dir / name;
    std::filesystem::copy_file(PluginPath("NTestPlugin.dll"), target);
    std::u16string wide = target.u16string();
    HMODULE module = LoadLibraryW(reinterpret_cast<const WCHAR*>(wide.c_str()));
    ASSERT_NE(module, nullptr);
    auto add = reinterpret_cast<AddFn>(GetProcAddress(module, "NTestPluginAdd"));
    ASSERT_NE(add, nullptr);
    EXPECT_EQ(add(20, 3), 23);
    EXPECT_TRUE(FreeLibrary(module));
}

TEST(DynamicLibrary, FailuresGiveNull) {
    EXPECT_EQ(LoadLibrary(nullptr), nullptr);
    EXPECT_EQ(LoadLibrary(""), nullptr);
    EXPECT_EQ(LoadLibraryW(nullptr), nullptr);
    EXPECT_EQ(LoadLibrary(PluginPath("NoSuchPlugin.dll").c_str()), nullptr);

    std::string notALibrary = ncbtest::ScratchDir() + "/NText.dll";
    std::ofstream(notALibrary) << "not an ELF file";
    EXPECT_EQ(LoadLibrary(notALibrary.c_str()), nullptr);

    EXPECT_EQ(GetProcAddress(nullptr, "NTestPluginAdd"), nullptr);
    EXPECT_FALSE(FreeLibrary(nullptr));
}

// The system modules the renders load resolve to the library's own graphics
// layer, whatever their case and whatever files lie around.
TEST(DynamicLibrary, BuiltInGraphicsModulesResolveBeforeAnyFile) {
    std::filesystem::path cwd = std::filesystem::current_path();
    std::filesystem::current_path(ncbtest::ScratchDir());
    std::ofstream("d3d9.dll") << "a stray file that must never be opened";
    HMODULE d3d9 = LoadLibrary("d3d9.dll");
    HMODULE upper = LoadLibrary("D3D9.DLL");
    HMODULE dxva2 = LoadLibrary("dxva2.dll");
    std::filesystem::current_path(cwd);
    ASSERT_NE(d3d9, nullptr);
    ASSERT_NE(dxva2, nullptr);
    EXPECT_EQ(d3d9, upper);
    EXPECT_EQ(GetProcAddress(d3d9, "Direct3DCreate9Ex"),
              reinterpret_cast<FARPROC>(&nplat::Direct3DCreate9Ex));
    EXPECT_EQ(GetProcAddress(dxva2, "DXVA2CreateVideoService"),
              reinterpret_cast<FARPROC>(&nplat::DXVA2CreateVideoService));
    EXPECT_EQ(GetProcAddress(d3d9, "Direct3DCreate9"), nullptr);
    EXPECT_EQ(GetProcAddress(dxva2, "Direct3DCreate9Ex"), nullptr);

    auto create =
        reinterpret_cast<nplat::Direct3DCreate9ExFn>(GetProcAddress(d3d9, "Direct3DCreate9Ex"));
    nplat::IDirect3D9Ex* d3d = nullptr;
    ASSERT_EQ(create(nplat::D3D_SDK_VERSION, &d3d), nplat::D3D_OK);
    EXPECT_EQ(d3d->GetAdapterCount(), 1u);
    d3d->Release();
    EXPECT_TRUE(FreeLibrary(d3d9));
    EXPECT_TRUE(FreeLibrary(upper));
    EXPECT_TRUE(FreeLibrary(dxva2));
    // A path names a file, never the built-in module.
    EXPECT_EQ(LoadLibrary((ncbtest::ScratchDir() + "/d3d9.dll").c_str()), nullptr);
}

}  // namespace

// Loading plug-ins by their ".dll" names: resolve and call, reference-counted
// loads, local symbol scope, eager binding, wide paths, and every failure.
#include "platform/kernel/dynamic_library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

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

}  // namespace

#include "tests/support/test_paths.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace ncbtest {

std::string TestDataPath(const std::string& relative) {
    return std::string(NCB_TESTDATA_DIR) + "/" + relative;
}

std::string ScratchDir() {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info ? std::string(info->test_suite_name()) + "." + info->name() : "scratch";
    for (char& c : name)
        if (c == '/') c = '_';
    std::filesystem::path dir = std::filesystem::path(NCB_BINARY_DIR) / "test-scratch" / name;
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir.string();
}

}  // namespace ncbtest

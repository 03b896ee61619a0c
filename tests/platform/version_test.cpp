// The version query agrees with the version the project declares.
#include "platform/kernel/version.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

TEST(Version, MatchesProjectVersion) {
    int expected[4] = {0, 0, 0, 0};
    int parsed = std::sscanf(NCB_TEST_PROJECT_VERSION, "%d.%d.%d.%d", &expected[0], &expected[1],
                             &expected[2], &expected[3]);
    ASSERT_GE(parsed, 2);
    EXPECT_STREQ(nplat::GetLibraryVersionString(), NCB_TEST_PROJECT_VERSION);

    int v[4] = {-1, -1, -1, -1};
    ASSERT_TRUE(nplat::GetLibraryVersion(&v[0], &v[1], &v[2], &v[3]));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(v[i], expected[i]) << "part " << i;

    nplat::DWORD ms = 0, ls = 0;
    ASSERT_TRUE(nplat::GetLibraryFileVersion(&ms, &ls));
    EXPECT_EQ(ms, static_cast<nplat::DWORD>(expected[0] << 16 | expected[1]));
    EXPECT_EQ(ls, static_cast<nplat::DWORD>(expected[2] << 16 | expected[3]));
    EXPECT_TRUE(nplat::GetLibraryVersion(nullptr, nullptr, nullptr, nullptr));
}

}  // namespace

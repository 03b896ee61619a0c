// Reserve, commit, decommit and release, checked against what the kernel
// reports: page protections from /proc/self/maps and residency from mincore.
#include "platform/kernel/virtual_memory.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/kernel/fault.h"

namespace {

using namespace nplat;

// The protection string ("rw-p", "---p") of the mapping holding `address`,
// or "" when nothing is mapped there.
std::string Protection(const void* address) {
    const auto target = reinterpret_cast<uintptr_t>(address);
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        unsigned long begin = 0, end = 0;
        char perms[8] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %7s", &begin, &end, perms) != 3) continue;
        if (target >= begin && target < end) return perms;
    }
    return "";
}

bool Resident(const void* page) {
    unsigned char vec = 0;
    EXPECT_EQ(mincore(const_cast<void*>(page), kPageSize, &vec), 0);
    return vec & 1;
}

class VirtualMemoryTest : public ::testing::Test {
  protected:
    static constexpr size_t kPages = 8;
    void SetUp() override {
        m_base = static_cast<uint8_t*>(VirtualReserve(kPages * kPageSize));
        ASSERT_NE(m_base, nullptr);
    }
    void TearDown() override {
        fault::Disarm();
        if (!m_base) return;
        EXPECT_TRUE(VirtualRelease(m_base, kPages * kPageSize));
    }
    uint8_t* Page(size_t i) const { return m_base + i * kPageSize; }
    uint8_t* m_base = nullptr;
};

TEST_F(VirtualMemoryTest, ReservationIsInaccessibleUntilCommitted) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(m_base) % kPageSize, 0u);
    for (size_t i = 0; i < kPages; ++i) EXPECT_EQ(Protection(Page(i)), "---p") << i;
}

TEST_F(VirtualMemoryTest, CommitCoversEveryPageTheRangeTouches) {
    // Starts inside page 2 and ends inside page 4.
    ASSERT_TRUE(VirtualCommit(Page(2) + 100, 2 * kPageSize));
    EXPECT_EQ(Protection(Page(1)), "---p");
    for (size_t i = 2; i <= 4; ++i) EXPECT_EQ(Protection(Page(i)), "rw-p") << i;
    EXPECT_EQ(Protection(Page(5)), "---p");
    std::memset(Page(2), 0x5A, 3 * kPageSize);  // all three pages writable
    EXPECT_EQ(Page(4)[kPageSize - 1], 0x5A);
}

TEST_F(VirtualMemoryTest, DecommitGivesPagesBackAndRecommitReadsZero) {
    ASSERT_TRUE(VirtualCommit(Page(0), 3 * kPageSize));
    std::memset(Page(0), 0xA5, 3 * kPageSize);
    EXPECT_TRUE(Resident(Page(1)));

    ASSERT_TRUE(VirtualDecommit(Page(1) + 10, 1));  // one byte decommits its whole page
    EXPECT_EQ(Protection(Page(1)), "---p");
    EXPECT_FALSE(Resident(Page(1)));
    EXPECT_EQ(Page(0)[kPageSize - 1], 0xA5);  // neighbours keep their contents
    EXPECT_EQ(Page(2)[0], 0xA5);

    ASSERT_TRUE(VirtualCommit(Page(1), kPageSize));
    std::vector<uint8_t> zeros(kPageSize, 0);
    EXPECT_EQ(std::memcmp(Page(1), zeros.data(), kPageSize), 0);
}

TEST_F(VirtualMemoryTest, ReleaseUnmapsTheWholeRange) {
    ASSERT_TRUE(VirtualCommit(Page(3), kPageSize));
    ASSERT_TRUE(VirtualRelease(m_base, kPages * kPageSize));
    for (size_t i = 0; i < kPages; ++i) EXPECT_EQ(Protection(Page(i)), "") << i;
    m_base = nullptr;
}

TEST_F(VirtualMemoryTest, InjectedCommitFailureLeavesPagesInaccessible) {
    {
        fault::Scope fail(fault::Kind::kCommit, 0);
        EXPECT_FALSE(VirtualCommit(Page(0), kPageSize));
    }
    EXPECT_EQ(Protection(Page(0)), "---p");
    EXPECT_TRUE(VirtualCommit(Page(0), kPageSize));
}

TEST_F(VirtualMemoryTest, EdgeArguments) {
    EXPECT_TRUE(VirtualCommit(Page(0), 0));
    EXPECT_EQ(Protection(Page(0)), "---p");
    EXPECT_TRUE(VirtualDecommit(Page(0), 0));
    EXPECT_FALSE(VirtualCommit(nullptr, kPageSize));
    EXPECT_FALSE(VirtualDecommit(nullptr, kPageSize));
    EXPECT_FALSE(VirtualRelease(nullptr, kPageSize));
}

TEST(VirtualMemory, ReserveFailures) {
    EXPECT_EQ(VirtualReserve(0), nullptr);
    fault::Scope fail(fault::Kind::kReserve, 1);
    void* first = VirtualReserve(kPageSize);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(VirtualReserve(kPageSize), nullptr);
    EXPECT_TRUE(VirtualRelease(first, kPageSize));
}

TEST(VirtualMemory, LargeReservationCostsNoMemoryUntilCommitted) {
    const size_t size = size_t{1} << 32;  // 4 GiB of address space
    auto* base = static_cast<uint8_t*>(VirtualReserve(size));
    ASSERT_NE(base, nullptr);
    uint8_t* last = base + size - kPageSize;
    ASSERT_TRUE(VirtualCommit(last, kPageSize));
    last[kPageSize - 1] = 1;
    EXPECT_EQ(Protection(base), "---p");
    EXPECT_TRUE(VirtualRelease(base, size));
}

}  // namespace

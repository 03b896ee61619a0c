// CPU identification over canned CPUID tables (topologies and vendors this
// machine is not), the processor level and extension detection built on it,
// and the x87 / SSE control words checked against the raw registers and
// against the arithmetic they govern.
#include "ncodecbase/helper.h"

#include <gtest/gtest.h>
#include <x86intrin.h>

#include <cstring>
#include <map>
#include <utility>

#include "base/cpu_features.h"
#include "base/cpuid_source.h"
#include "base/processor_level.h"

namespace {

using ncb::CpuidRegs;
using Tag = CNHelper::CPUInfoTag;

// A processor described by a table of leaves; leaves not in the table read as
// zeros, as reserved leaves do on real parts.
class TableSource final : public ncb::CpuidSource {
  public:
    TableSource(const char* vendor, uint32_t maxLeaf, uint32_t maxExtLeaf, int processors)
        : m_processors(processors) {
        CpuidRegs leaf0;
        leaf0.eax = maxLeaf;
        std::memcpy(&leaf0.ebx, vendor, 4);
        std::memcpy(&leaf0.edx, vendor + 4, 4);
        std::memcpy(&leaf0.ecx, vendor + 8, 4);
        Set(0, 0, leaf0);
        Set(0x80000000u, 0, {maxExtLeaf, 0, 0, 0});
    }
    void Set(uint32_t leaf, uint32_t sub, CpuidRegs regs) { m_leaves[{leaf, sub}] = regs; }
    void SetNoCpuid() { m_hasCpuid = false; }
    void SetXcr0(uint64_t value) { m_xcr0 = value; }
    int xcr0Reads() const { return m_xcr0Reads; }

    bool HasCpuid() const override { return m_hasCpuid; }
    CpuidRegs Query(uint32_t leaf, uint32_t sub) const override {
        auto it = m_leaves.find({leaf, sub});
        return it == m_leaves.end() ? CpuidRegs{} : it->second;
    }
    int ProcessorCount() const override { return m_processors; }
    uint64_t Xcr0() const override {
        ++m_xcr0Reads;
        return m_xcr0;
    }

  private:
    std::map<std::pair<uint32_t, uint32_t>, CpuidRegs> m_leaves;
    int m_processors;
    bool m_hasCpuid = true;
    uint64_t m_xcr0 = 0;
    mutable int m_xcr0Reads = 0;
};

constexpr const char* kIntel = "GenuineIntel";
constexpr const char* kAmd = "AuthenticAMD";

CpuidRegs Leaf1WithLogical(uint32_t logical) { return {0, logical << 16, 0, 0}; }

// Leaf 4 EAX: cache level, cores-1 in bits 26-31, sharing threads-1 in 14-25.
uint32_t Leaf4Eax(uint32_t level, uint32_t cores, uint32_t threads) {
    return (level << 5) | ((cores - 1) << 26) | ((threads - 1) << 14);
}

// Leaf 4 sub-leaf for a cache of ways x partitions x line x sets bytes.
CpuidRegs CacheLeaf(uint32_t level, uint32_t ways, uint32_t partitions, uint32_t line,
                    uint32_t sets) {
    return {level << 5, ((ways - 1) << 22) | ((partitions - 1) << 12) | (line - 1), sets - 1, 0};
}

Tag Fill(const TableSource& src) {
    Tag t;
    std::memset(&t, 0x5A, sizeof t);
    EXPECT_EQ(ncb::FillCpuInfo(src, &t), 1);
    return t;
}

struct Topology {
    int packages, cores, threads;
};

void ExpectTopology(const Tag& t, Topology want) {
    EXPECT_EQ(t.nPackages, want.packages);
    EXPECT_EQ(t.nCoresPerPackage, want.cores);
    EXPECT_EQ(t.nThreadsPerCore, want.threads);
}

TEST(CpuInfoTopology, IntelFourCoresEightThreadsFromLeaf11) {
    TableSource src(kIntel, 0x16, 0x80000008u, 8);
    src.Set(11, 0, {1, 2, 0, 0});         // SMT level: 2 threads per core
    src.Set(11, 1, {4, 8, 1, 0});         // core level: 8 logical per package
    src.Set(1, 0, Leaf1WithLogical(16));  // must be ignored when leaf 11 exists
    src.Set(4, 0, {Leaf4Eax(1, 8, 1), 0, 0, 0});
    Tag t = Fill(src);
    EXPECT_EQ(t.nVendor, 0);
    ExpectTopology(t, {1, 4, 2});
}

TEST(CpuInfoTopology, IntelTwoPackagesFromLeaf4) {
    TableSource src(kIntel, 0x0A, 0x80000008u, 16);
    src.Set(1, 0, Leaf1WithLogical(8));
    src.Set(4, 0, {Leaf4Eax(1, 4, 2), 0, 0, 0});
    ExpectTopology(Fill(src), {2, 4, 2});
}

TEST(CpuInfoTopology, Leaf4ProductMismatchKeepsLogicalCount) {
    TableSource src(kIntel, 0x0A, 0x80000008u, 8);
    src.Set(1, 0, Leaf1WithLogical(8));
    src.Set(4, 0, {Leaf4Eax(1, 4, 1), 0, 0, 0});  // 4 x 1 != 8
    ExpectTopology(Fill(src), {1, 8, 1});
}

TEST(CpuInfoTopology, Leaf11ThreadsThatDoNotDivideAreIgnored) {
    TableSource src(kIntel, 0x16, 0x80000008u, 6);
    src.Set(11, 1, {0, 6, 0, 0});
    src.Set(11, 0, {0, 4, 0, 0});  // 4 does not divide 6
    ExpectTopology(Fill(src), {1, 6, 1});
}

struct LogicalCase {
    int processors;
    uint32_t logicalPerPackage;
    Topology want;
};

class CpuInfoLogicalCount : public ::testing::TestWithParam<LogicalCase> {};

// Per-package counts that are zero, larger than the system, or do not divide
// it leave every package holding one processor.
TEST_P(CpuInfoLogicalCount, DividesOnlyWhenItFits) {
    const LogicalCase& c = GetParam();
    TableSource src("CentaurHauls", 1, 0x80000000u, c.processors);
    src.Set(1, 0, Leaf1WithLogical(c.logicalPerPackage));
    Tag t = Fill(src);
    EXPECT_EQ(t.nVendor, 2);
    ExpectTopology(t, c.want);
}

INSTANTIATE_TEST_SUITE_P(Cases, CpuInfoLogicalCount,
                         ::testing::Values(LogicalCase{6, 4, {6, 1, 1}},
                                           LogicalCase{2, 4, {2, 1, 1}},
                                           LogicalCase{4, 0, {4, 1, 1}},
                                           LogicalCase{12, 6, {2, 6, 1}},
                                           LogicalCase{5, 5, {1, 5, 1}}));

TEST(CpuInfoVendor, AmdReads3DNowAndKeepsOneThreadPerCore) {
    TableSource src(kAmd, 0x10, 0x8000001Fu, 4);
    src.Set(1, 0, Leaf1WithLogical(4));
    src.Set(11, 1, {0, 4, 0, 0});
    src.Set(11, 0, {0, 2, 0, 0});  // SMT on leaf 11 is read only for Intel
    src.Set(0x80000001u, 0, {0, 0, 0, 0xC0000000u});
    Tag t = Fill(src);
    EXPECT_EQ(t.nVendor, 1);
    ExpectTopology(t, {1, 4, 1});
    EXPECT_EQ(t.n3DNow, 1);
    EXPECT_EQ(t.n3DNowExt, 1);
}

TEST(CpuInfoVendor, AmdWithoutExtendedLeavesHasNo3DNow) {
    TableSource src(kAmd, 1, 0x80000000u, 1);
    src.Set(0x80000001u, 0, {0, 0, 0, 0xC0000000u});
    Tag t = Fill(src);
    EXPECT_EQ(t.n3DNow, 0);
    EXPECT_EQ(t.n3DNowExt, 0);
}

TEST(CpuInfoVendor, IntelNeverReports3DNow) {
    TableSource src(kIntel, 1, 0x80000008u, 1);
    src.Set(0x80000001u, 0, {0, 0, 0, 0xC0000000u});
    Tag t = Fill(src);
    EXPECT_EQ(t.n3DNow, 0);
    EXPECT_EQ(t.n3DNowExt, 0);
}

TEST(CpuInfoVendor, MaxLeafZeroGivesOnlyVendorAndProcessorCount) {
    TableSource src(kIntel, 0, 0x80000000u, 3);
    src.Set(1, 0, {0, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu});
    Tag t = Fill(src);
    ExpectTopology(t, {3, 1, 1});
    EXPECT_EQ(t.nSSE2, 0);
    EXPECT_EQ(t.nL1CacheSize, 0);
}

TEST(CpuInfo, NoCpuidLeavesTagUntouched) {
    TableSource src(kIntel, 0x16, 0x80000008u, 8);
    src.SetNoCpuid();
    Tag t;
    std::memset(&t, 0x77, sizeof t);
    Tag before = t;
    EXPECT_EQ(ncb::FillCpuInfo(src, &t), 0);
    EXPECT_EQ(std::memcmp(&t, &before, sizeof t), 0);
    EXPECT_EQ(ncb::FillCpuInfo(src, nullptr), 0);
}

struct FeatureBit {
    const char* name;
    bool inEdx;
    int bit;
    int32_t Tag::*field;
};

class CpuInfoFeature : public ::testing::TestWithParam<FeatureBit> {};

// Each leaf-1 bit turns on its own word and no other.
TEST_P(CpuInfoFeature, OneBitOneWord) {
    const FeatureBit& f = GetParam();
    TableSource src(kIntel, 1, 0x80000000u, 1);
    CpuidRegs leaf1;
    (f.inEdx ? leaf1.edx : leaf1.ecx) = 1u << f.bit;
    src.Set(1, 0, leaf1);
    Tag t = Fill(src);
    const int32_t Tag::*all[] = {&Tag::nMMX,   &Tag::nSSE,   &Tag::nSSE2, &Tag::nSSE3,
                                 &Tag::nSSSE3, &Tag::nSSE41, &Tag::nSSE42};
    for (auto field : all) EXPECT_EQ(t.*field, field == f.field ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(LeafOne, CpuInfoFeature,
                         ::testing::Values(FeatureBit{"MMX", true, 23, &Tag::nMMX},
                                           FeatureBit{"SSE", true, 25, &Tag::nSSE},
                                           FeatureBit{"SSE2", true, 26, &Tag::nSSE2},
                                           FeatureBit{"SSE3", false, 0, &Tag::nSSE3},
                                           FeatureBit{"SSSE3", false, 9, &Tag::nSSSE3},
                                           FeatureBit{"SSE41", false, 19, &Tag::nSSE41},
                                           FeatureBit{"SSE42", false, 20, &Tag::nSSE42}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CpuInfoCaches, SumsLevelOneDataAndInstruction) {
    TableSource src(kIntel, 0x0A, 0x80000008u, 1);
    src.Set(4, 0, CacheLeaf(1, 8, 1, 64, 64));     // 32 KiB data
    src.Set(4, 1, CacheLeaf(1, 8, 1, 64, 64));     // 32 KiB instruction
    src.Set(4, 2, CacheLeaf(2, 4, 1, 64, 1024));   // 256 KiB
    src.Set(4, 3, CacheLeaf(5, 2, 1, 64, 64));     // unknown level: skipped
    src.Set(4, 4, CacheLeaf(3, 16, 2, 64, 4096));  // 8 MiB
    Tag t = Fill(src);
    EXPECT_EQ(t.nL1CacheSize, 65536);
    EXPECT_EQ(t.nL2CacheSize, 262144);
    EXPECT_EQ(t.nL3CacheSize, 8 << 20);
}

TEST(CpuInfoCaches, WalkStopsAtLevelZeroAndAfterSevenSubLeaves) {
    TableSource src(kIntel, 0x0A, 0x80000008u, 1);
    for (uint32_t sub = 0; sub < 9; ++sub) src.Set(4, sub, CacheLeaf(2, 1, 1, 64, 16));
    EXPECT_EQ(Fill(src).nL2CacheSize, 7 * 1024);

    TableSource early(kIntel, 0x0A, 0x80000008u, 1);
    early.Set(4, 0, CacheLeaf(2, 1, 1, 64, 16));
    early.Set(4, 1, CpuidRegs{});
    early.Set(4, 2, CacheLeaf(2, 1, 1, 64, 16));
    EXPECT_EQ(Fill(early).nL2CacheSize, 1024);
}

TEST(CpuInfoCaches, NeedsLeafFourAndNeverWrapsNegative) {
    TableSource old(kIntel, 3, 0x80000008u, 1);
    old.Set(4, 0, CacheLeaf(1, 8, 1, 64, 64));
    EXPECT_EQ(Fill(old).nL1CacheSize, 0);

    TableSource huge(kIntel, 4, 0x80000008u, 1);
    huge.Set(4, 0, {1u << 5, 0xFFFFFFFFu, 0xFFFFFFFFu, 0});
    EXPECT_GT(Fill(huge).nL1CacheSize, 0);
}

TEST(CpuInfo, RunningProcessorHasSse2) {
    Tag t{};
    ASSERT_EQ(CNHelper::GetCpuInfo(&t), 1);
    EXPECT_EQ(t.nSSE2, 1);  // the x86-64 baseline
    EXPECT_GE(t.nPackages, 1);
    EXPECT_GE(t.nCoresPerPackage, 1);
    EXPECT_GE(t.nThreadsPerCore, 1);
    EXPECT_GE(ncb::ProcessorLevel(), 0);
}

TEST(CpuTick, Advances) {
    const uint64_t first = CNHelper::GetCpuTick();
    volatile uint64_t sink = 0;
    for (int i = 0; i < 100000; ++i) sink = sink + i;
    EXPECT_NE(CNHelper::GetCpuTick(), first);
}

struct LevelCase {
    int sse2, ssse3, sse41, level;
    const char* name;
};

class ProcessorLevelRule : public ::testing::TestWithParam<LevelCase> {};

TEST_P(ProcessorLevelRule, FromCpuInfo) {
    const LevelCase& c = GetParam();
    Tag t{};
    t.nSSE2 = c.sse2;
    t.nSSSE3 = c.ssse3;
    t.nSSE41 = c.sse41;
    const int level = ncb::ProcessorLevelFromCpuInfo(t);
    EXPECT_EQ(level, c.level);
    EXPECT_STREQ(ncb::ProcessorLevelName(level), c.name);
}

INSTANTIATE_TEST_SUITE_P(Cases, ProcessorLevelRule,
                         ::testing::Values(LevelCase{0, 1, 1, -1, "none"},
                                           LevelCase{1, 0, 0, 0, "SSE2"},
                                           LevelCase{1, 1, 0, 1, "SSSE3"},
                                           LevelCase{1, 1, 1, 2, "SSE4.1"},
                                           LevelCase{1, 0, 1, 2, "SSE4.1"}));

constexpr uint32_t kOsxsave = 1u << 27, kAvx = 1u << 28, kFma = 1u << 12;
constexpr uint32_t kPclmul = 1u << 1, kSse41 = 1u << 19;

TableSource Avx2Machine(uint32_t leaf1Ecx, uint64_t xcr0, uint32_t maxLeaf = 7) {
    TableSource src(kIntel, maxLeaf, 0x80000008u, 1);
    src.Set(1, 0, {0, 0, leaf1Ecx, 0});
    src.Set(7, 0, {0, 1u << 5, 0, 0});
    src.SetXcr0(xcr0);
    return src;
}

TEST(CpuFeatures, Avx2NeedsProcessorAndOsSupport) {
    EXPECT_TRUE(ncb::DetectCpuFeatures(Avx2Machine(kOsxsave | kAvx | kFma, 0x7)).avx2);
    EXPECT_FALSE(ncb::DetectCpuFeatures(Avx2Machine(kOsxsave | kAvx | kFma, 0x3)).avx2);
    EXPECT_FALSE(ncb::DetectCpuFeatures(Avx2Machine(kOsxsave | kAvx, 0x7)).avx2);
    EXPECT_FALSE(ncb::DetectCpuFeatures(Avx2Machine(kOsxsave | kAvx | kFma, 0x7, 6)).avx2);
}

TEST(CpuFeatures, NoXgetbvWithoutOsxsave) {
    TableSource src = Avx2Machine(kAvx | kFma, 0x7);
    EXPECT_FALSE(ncb::DetectCpuFeatures(src).avx2);
    EXPECT_EQ(src.xcr0Reads(), 0);
}

TEST(CpuFeatures, PclmulNeedsSse41) {
    EXPECT_TRUE(ncb::DetectCpuFeatures(Avx2Machine(kPclmul | kSse41, 0)).pclmul);
    EXPECT_FALSE(ncb::DetectCpuFeatures(Avx2Machine(kPclmul, 0)).pclmul);
}

// Control words: each test restores the thread's words through the raw
// instructions, not through the code under test.
class ControlWords : public ::testing::Test {
  protected:
    void SetUp() override {
        asm volatile("fnclex");
        asm volatile("fnstcw %0" : "=m"(m_x87));
        m_mxcsr = _mm_getcsr();
    }
    void TearDown() override { Restore(); }
    void Restore() {
        asm volatile("fnclex");
        asm volatile("fldcw %0" : : "m"(m_x87));
        _mm_setcsr(m_mxcsr);
    }
    static uint16_t RawX87() {
        uint16_t cw;
        asm volatile("fnstcw %0" : "=m"(cw));
        return cw;
    }

    uint16_t m_x87 = 0;
    uint32_t m_mxcsr = 0;
};

using Fpu = CNHelper::FpuControlInfoTag;
using Sse = CNHelper::SseControlInfoTag;

Fpu MakeFpu(int rc, int pc, int mask) { return {rc, pc, mask, mask, mask, mask, mask, mask}; }
Sse MakeSse(int rc, int daz, int ftz, int mask) {
    return {rc, daz, ftz, mask, mask, mask, mask, mask, mask};
}

class FpuRoundTrip : public ControlWords,
                     public ::testing::WithParamInterface<std::tuple<int, int, int>> {};

TEST_P(FpuRoundTrip, GetReturnsWhatSetWrote) {
    auto [rc, pc, mask] = GetParam();
    Fpu in = MakeFpu(rc, pc, mask), out{};
    ASSERT_EQ(CNHelper::SetFpuControlInfo(&in), 1);
    const uint16_t raw = RawX87();
    ASSERT_EQ(CNHelper::GetFpuControlInfo(&out), 1);
    Restore();
    EXPECT_EQ(std::memcmp(&in, &out, sizeof in), 0);
    EXPECT_EQ((raw >> 10) & 3, rc);
    EXPECT_EQ((raw >> 8) & 3, pc);
    EXPECT_EQ(raw & 0x3F, mask ? 0x3F : 0);
    EXPECT_EQ(raw & ~0x0F3F, m_x87 & ~0x0F3F);  // bits without a field are kept
}

INSTANTIATE_TEST_SUITE_P(AllModes, FpuRoundTrip,
                         ::testing::Combine(::testing::Range(0, 4), ::testing::Range(0, 4),
                                            ::testing::Values(0, 1)));

class SseRoundTrip : public ControlWords,
                     public ::testing::WithParamInterface<std::tuple<int, int, int, int>> {};

TEST_P(SseRoundTrip, GetReturnsWhatSetWrote) {
    auto [rc, daz, ftz, mask] = GetParam();
    Sse in = MakeSse(rc, daz, ftz, mask), out{};
    ASSERT_EQ(CNHelper::SetSseControlInfo(&in), 1);
    const uint32_t raw = _mm_getcsr();
    ASSERT_EQ(CNHelper::GetSseControlInfo(&out), 1);
    Restore();
    EXPECT_EQ(std::memcmp(&in, &out, sizeof in), 0);
    EXPECT_EQ((raw >> 13) & 3, static_cast<uint32_t>(rc));
    EXPECT_EQ((raw >> 6) & 1, static_cast<uint32_t>(daz));
    EXPECT_EQ((raw >> 15) & 1, static_cast<uint32_t>(ftz));
    EXPECT_EQ((raw >> 7) & 0x3F, mask ? 0x3Fu : 0u);
}

INSTANTIATE_TEST_SUITE_P(AllModes, SseRoundTrip,
                         ::testing::Combine(::testing::Range(0, 4), ::testing::Values(0, 1),
                                            ::testing::Values(0, 1), ::testing::Values(0, 1)));

TEST_F(ControlWords, SseFlagsCountOnlyWhenExactlyOne) {
    Sse on = MakeSse(0, 1, 1, 1);
    CNHelper::SetSseControlInfo(&on);
    Sse two = MakeSse(0, 2, 2, 2);
    CNHelper::SetSseControlInfo(&two);
    const uint32_t raw = _mm_getcsr();
    Restore();
    EXPECT_EQ(raw & (1u << 15), 0u);  // flush-to-zero 2 clears the bit
    EXPECT_EQ(raw & (1u << 6), 0u);
    EXPECT_EQ(raw & (0x3Fu << 7), 0u);
}

TEST_F(ControlWords, SseRoundingOutOfRangeStaysInItsBits) {
    Sse in = MakeSse(4 + 1, 0, 0, 1);  // would reach flush-to-zero if it spilled
    CNHelper::SetSseControlInfo(&in);
    const uint32_t raw = _mm_getcsr();
    Restore();
    EXPECT_EQ((raw >> 13) & 3, 1u);
    EXPECT_EQ(raw & (1u << 15), 0u);
}

TEST_F(ControlWords, X87FieldsAreShiftedWithoutMasking) {
    Fpu in = MakeFpu(0, 4, 1);  // precision 4 lands on the rounding bits
    CNHelper::SetFpuControlInfo(&in);
    Fpu out{};
    CNHelper::GetFpuControlInfo(&out);
    Restore();
    EXPECT_EQ(out.nRoundingControl, 1);
    EXPECT_EQ(out.nPrecisionControl, 0);
}

// The words do what they claim: division rounds as the rounding field says.
TEST_F(ControlWords, RoundingChangesArithmetic) {
    volatile float one = 1.0f, three = 3.0f;
    Sse down = MakeSse(1, 0, 0, 1), up = MakeSse(2, 0, 0, 1);
    CNHelper::SetSseControlInfo(&down);
    const volatile float low = one / three;
    CNHelper::SetSseControlInfo(&up);
    const volatile float high = one / three;
    Restore();
    EXPECT_LT(low, high);

    volatile long double lone = 1.0L, lthree = 3.0L;
    Fpu fdown = MakeFpu(1, 3, 1), fup = MakeFpu(2, 3, 1);
    CNHelper::SetFpuControlInfo(&fdown);
    const volatile long double llow = lone / lthree;
    CNHelper::SetFpuControlInfo(&fup);
    const volatile long double lhigh = lone / lthree;
    Restore();
    EXPECT_LT(llow, lhigh);
}

TEST_F(ControlWords, FlushToZeroFlushesDenormals) {
    volatile float tiny = 1e-38f, scale = 0.001f;
    Sse ftz = MakeSse(0, 0, 1, 1);
    CNHelper::SetSseControlInfo(&ftz);
    const volatile float flushed = tiny * scale;
    Restore();
    const volatile float kept = tiny * scale;
    EXPECT_EQ(flushed, 0.0f);
    EXPECT_GT(kept, 0.0f);
}

TEST(ControlWordsNull, RefuseNullTags) {
    EXPECT_EQ(CNHelper::GetFpuControlInfo(nullptr), 0);
    EXPECT_EQ(CNHelper::SetFpuControlInfo(nullptr), 0);
    EXPECT_EQ(CNHelper::GetSseControlInfo(nullptr), 0);
    EXPECT_EQ(CNHelper::SetSseControlInfo(nullptr), 0);
    EXPECT_EQ(CNHelper::GetCpuInfo(nullptr), 0);
}

}  // namespace

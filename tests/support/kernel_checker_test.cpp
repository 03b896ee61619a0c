// Proves the kernel checker itself: a toy family (byte-wise saturating add)
// passes, and deliberately broken variants are caught: a wrong result, a write
// one byte past the row end, and a fault that shows only at odd widths. Also
// pins down the placement the checker promises (offsets, pitches, sentinels)
// and the seed handling that makes a failure repeatable.
#include "tests/support/kernel_checker.h"

#include <emmintrin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <set>

namespace {

using ncbtest::CaseRandom;
using ncbtest::FindKernelMismatch;
using ncbtest::KernelFamily;
using ncbtest::Plane;
using ::testing::HasSubstr;

using AddRow = void (*)(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width);

void AddRow_c(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width) {
    for (int x = 0; x < width; ++x) dst[x] = static_cast<uint8_t>(std::min(a[x] + b[x], 255));
}

template <bool kSaturate>
void AddVectors_sse2(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width) {
    for (int x = 0; x + 16 <= width; x += 16) {
        __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + x));
        __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + x));
        __m128i sum = kSaturate ? _mm_adds_epu8(va, vb) : _mm_add_epi8(va, vb);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), sum);
    }
}

// Whole vectors, then the remainder through the twin.
void AddRow_sse2(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width) {
    const int whole = width & ~15;
    AddVectors_sse2<true>(a, b, dst, whole);
    AddRow_c(a + whole, b + whole, dst + whole, width - whole);
}

// Broken on purpose: wraps instead of saturating.
void AddRowWrapping_sse2(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width) {
    const int whole = width & ~15;
    AddVectors_sse2<false>(a, b, dst, whole);
    AddRow_c(a + whole, b + whole, dst + whole, width - whole);
}

// Broken on purpose: right values, then one byte too many (flipped, so it
// always differs from whatever was there).
void AddRowOverrun_sse2(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width) {
    AddRow_sse2(a, b, dst, width);
    dst[width] = static_cast<uint8_t>(~dst[width]);
}

// Broken on purpose: the odd last byte forgets to add b.
void AddRowOddTail_sse2(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width) {
    const int even = width & ~1;
    AddRow_sse2(a, b, dst, even);
    if (width & 1) dst[even] = a[even];
}

struct AddCase {
    int width = 0;
    int height = 0;
    Plane a, b, dst;

    std::vector<const Plane*> Planes() const { return {&a, &b, &dst}; }
    std::string Describe() const {
        return "width " + std::to_string(width) + ", height " + std::to_string(height);
    }
    void Run(AddRow row) {
        for (int y = 0; y < height; ++y) row(a.Row(y), b.Row(y), dst.Row(y), width);
    }
};

AddCase MakeAddCase(CaseRandom& random) {
    AddCase c;
    c.width = random.Size(1, 200);
    c.height = random.Uniform(1, 4);
    c.a = random.MakePlane(c.width, c.height, 1, {.label = "a"});
    c.b = random.MakePlane(c.width, c.height, 1, {.label = "b"});
    c.dst = random.MakePlane(c.width, c.height, 1, {.label = "dst"});
    return c;
}

KernelFamily<AddCase> AddFamily(AddRow levelRow) {
    return {
        .name = "SaturatingAdd",
        .make = MakeAddCase,
        .twin = [](AddCase& c) { c.Run(AddRow_c); },
        .atLevel = [levelRow](AddCase& c, int) { c.Run(levelRow); },
    };
}

class KernelCheckerPasses : public ::testing::TestWithParam<bool> {};

TEST_P(KernelCheckerPasses, CorrectKernelAtEveryPlacement) {
    EXPECT_EQ(FindKernelMismatch(AddFamily(AddRow_sse2), {.cases = 300, .tightEnds = GetParam()}),
              std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(TightEnds, KernelCheckerPasses, ::testing::Bool());

struct BrokenKernel {
    const char* name;
    AddRow row;
    const char* expected;
};

class KernelCheckerCatches : public ::testing::TestWithParam<BrokenKernel> {};

TEST_P(KernelCheckerCatches, BrokenKernel) {
    // Tight ends would let the overrun leave the allocation; sentinels must catch it.
    std::optional<std::string> report =
        FindKernelMismatch(AddFamily(GetParam().row), {.cases = 300, .tightEnds = false});
    ASSERT_TRUE(report.has_value());
    EXPECT_THAT(*report, HasSubstr(GetParam().expected));
    EXPECT_THAT(*report, HasSubstr("SaturatingAdd: level 0"));
    EXPECT_THAT(*report, HasSubstr("NCB_CHECK_SEED="));
    EXPECT_THAT(*report, HasSubstr("dst: "));
    EXPECT_THAT(*report, HasSubstr("width "));
}

INSTANTIATE_TEST_SUITE_P(Faults, KernelCheckerCatches,
                         ::testing::Values(BrokenKernel{"WrongResult", AddRowWrapping_sse2,
                                                        "differs from the scalar twin: dst row"},
                                           BrokenKernel{"WriteOnePastRowEnd", AddRowOverrun_sse2,
                                                        "wrote outside its buffers: dst: "},
                                           BrokenKernel{"OddWidthsOnly", AddRowOddTail_sse2,
                                                        "differs from the scalar twin: dst row"}),
                         [](const auto& info) { return std::string(info.param.name); });

// The overrun report names the byte: one past the end of some row.
TEST(KernelChecker, OverrunReportNamesTheByte) {
    std::optional<std::string> report =
        FindKernelMismatch(AddFamily(AddRowOverrun_sse2), {.cases = 300, .tightEnds = false});
    ASSERT_TRUE(report.has_value());
    EXPECT_TRUE(std::regex_search(*report, std::regex("dst: .*byte 1 past the end of row \\d+")))
        << *report;
}

// A fault that only odd widths show must be reported with an odd width.
TEST(KernelChecker, OddWidthFaultReportsAnOddWidth) {
    std::optional<std::string> report =
        FindKernelMismatch(AddFamily(AddRowOddTail_sse2), {.cases = 300, .tightEnds = false});
    ASSERT_TRUE(report.has_value());
    std::smatch match;
    ASSERT_TRUE(std::regex_search(*report, match, std::regex("width (\\d+), height"))) << *report;
    EXPECT_EQ(std::stoi(match[1]) % 2, 1) << *report;
    EXPECT_THAT(*report, HasSubstr("dst: " + match[1].str() + "x")) << *report;
}

#if defined(__SANITIZE_ADDRESS__)
// Tight ends leave no sentinel behind the last row: AddressSanitizer's red
// zone starts right there, so even a write one byte past it is caught.
TEST(KernelCheckerDeathTest, TightEndsLetAddressSanitizerCatchOverruns) {
    // Half of the buffers end tight; one-case runs over fixed seeds meet one soon.
    auto overrunUntilTight = [] {
        for (uint64_t seed = 0; seed < 64; ++seed)
            FindKernelMismatch(AddFamily(AddRowOverrun_sse2),
                               {.cases = 1, .seed = seed, .tightEnds = true});
    };
    EXPECT_DEATH(overrunUntilTight(), "heap-buffer-overflow");
}
#endif

TEST(KernelChecker, SameSeedSameReport) {
    const ncbtest::CheckOptions options{.cases = 300, .seed = 12345, .tightEnds = false};
    std::optional<std::string> first = FindKernelMismatch(AddFamily(AddRowOddTail_sse2), options);
    std::optional<std::string> second = FindKernelMismatch(AddFamily(AddRowOddTail_sse2), options);
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(first, second);
    EXPECT_THAT(*first, HasSubstr("seed 12345"));
}

// Sets environment variables for one scope and restores what was there.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        setenv(name, value, 1);
    }
    ~ScopedEnv() {
        if (old_)
            setenv(name_, old_->c_str(), 1);
        else
            unsetenv(name_);
    }

  private:
    const char* name_;
    std::optional<std::string> old_;
};

TEST(KernelChecker, EnvironmentForcesSeedAndScalesCases) {
    ScopedEnv seed("NCB_CHECK_SEED", "777");
    ScopedEnv iterations("NCB_CHECK_ITERATIONS", "0.5");
    std::optional<std::string> report =
        FindKernelMismatch(AddFamily(AddRowWrapping_sse2), {.cases = 300, .tightEnds = false});
    ASSERT_TRUE(report.has_value());
    EXPECT_THAT(*report, HasSubstr("seed 777"));
    EXPECT_THAT(*report, HasSubstr(" of 150,"));
}

TEST(KernelChecker, RunsEverySupportedLevelAndExtraImpl) {
    std::set<int> levels;
    int extraRuns = 0;
    KernelFamily<AddCase> family = AddFamily(AddRow_sse2);
    family.atLevel = [&levels](AddCase& c, int level) {
        levels.insert(level);
        c.Run(AddRow_sse2);
    };
    family.extra.push_back({"avx2", [&extraRuns](AddCase& c) {
                                ++extraRuns;
                                c.Run(AddRow_sse2);
                            }});
    ncbtest::CheckAllLevels(family, {.cases = 10});
    const std::vector<int> supported = ncbtest::SupportedLevels();
    EXPECT_EQ(levels, std::set<int>(supported.begin(), supported.end()));
    EXPECT_EQ(supported.front(), 0);
    EXPECT_EQ(extraRuns, 10);
}

// Placement promises: every offset 0..15 from a 64-byte boundary, rows back to
// back and padded, both orientations, and requested alignment kept.
class PlanePlacement : public ::testing::TestWithParam<int> {};

TEST_P(PlanePlacement, CoversOffsetsPitchesAndOrientations) {
    const int alignment = GetParam();
    CaseRandom random(99, true);
    std::set<int> offsets;
    bool sawBottomUp = false, sawTopDown = false, sawNoPadding = false, sawPadding = false;
    for (int i = 0; i < 2000; ++i) {
        const int width = random.Size(1, 100);
        const int height = random.Uniform(1, 3);
        Plane plane = random.MakePlane(width, height, alignment, {.alignment = alignment});
        const int stride = std::abs(plane.Pitch());
        const uint8_t* lowest = plane.Pitch() < 0 ? plane.Row(height - 1) : plane.Row(0);
        const int offset = static_cast<int>(reinterpret_cast<uintptr_t>(lowest) % 64);
        ASSERT_EQ(offset, plane.Layout().offset);
        ASSERT_EQ(offset % alignment, 0);
        ASSERT_EQ(stride % alignment, 0);
        ASSERT_GE(stride, plane.RowBytes());
        offsets.insert(offset);
        (plane.Pitch() < 0 ? sawBottomUp : sawTopDown) = true;
        (stride == plane.RowBytes() ? sawNoPadding : sawPadding) = true;
        ASSERT_EQ(plane.FindGuardDamage(), std::nullopt);
    }
    EXPECT_EQ(static_cast<int>(offsets.size()), 64 / alignment);  // every offset in a cache line
    EXPECT_TRUE(sawBottomUp && sawTopDown && sawNoPadding && sawPadding);
}

INSTANTIATE_TEST_SUITE_P(Alignments, PlanePlacement, ::testing::Values(1, 2, 4));

struct StrayWrite {
    const char* name;
    bool bottomUp;
    int row;
    int column;  // relative to the row start; 10 is one past the end
    const char* expected;
};

class PlaneGuards : public ::testing::TestWithParam<StrayWrite> {};

TEST_P(PlaneGuards, ReportWhereAStrayWriteLanded) {
    const StrayWrite& w = GetParam();
    Plane plane(
        {.width = 10, .height = 3, .offset = 3, .padding = 6, .bottomUp = w.bottomUp, .label = "p"},
        7);
    plane.Row(w.row)[w.column] ^= 0x5a;
    std::optional<std::string> damage = plane.FindGuardDamage();
    if (w.expected) {
        ASSERT_TRUE(damage.has_value());
        EXPECT_THAT(*damage, HasSubstr(w.expected));
    } else {
        EXPECT_EQ(damage, std::nullopt);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Writes, PlaneGuards,
    ::testing::Values(
        StrayWrite{"InsidePayload", false, 1, 9, nullptr},
        StrayWrite{"BeforeStart", false, 0, -1, "byte 1 before the start of the buffer"},
        StrayWrite{"IntoPadding", false, 0, 10, "byte 1 past the end of row 0 (pitch padding)"},
        StrayWrite{"DeepIntoPadding", false, 1, 15, "byte 6 past the end of row 1 (pitch"},
        StrayWrite{"BehindLastRow", false, 2, 10, "byte 1 past the end of row 2 (behind"},
        StrayWrite{"BottomUpBehindRowZero", true, 0, 10, "byte 1 past the end of row 0 (behind"},
        StrayWrite{"BottomUpBeforeLastRow", true, 2, -1, "byte 1 before the start"}),
    [](const auto& info) { return std::string(info.param.name); });

// 1-D sample kernels (audio) use the same checker through MakeSamples.
struct MixCase {
    int count = 0;
    Plane a, b, dst;
    std::vector<const Plane*> Planes() const { return {&a, &b, &dst}; }
};

MixCase MakeMixCase(CaseRandom& random) {
    MixCase c;
    c.count = random.Size(1, 500);
    c.a = random.MakeSamples<int16_t>(c.count, "a");
    c.b = random.MakeSamples<int16_t>(c.count, "b");
    c.dst = random.MakeSamples<int16_t>(c.count, "dst");
    return c;
}

void MixSamples_c(MixCase& c) {
    for (int i = 0; i < c.count; ++i)
        c.dst.As<int16_t>()[i] = static_cast<int16_t>(
            std::clamp(c.a.As<int16_t>()[i] + c.b.As<int16_t>()[i], -32768, 32767));
}

void MixSamples_sse2(MixCase& c) {
    const int16_t* a = c.a.As<int16_t>();
    const int16_t* b = c.b.As<int16_t>();
    int16_t* dst = c.dst.As<int16_t>();
    int i = 0;
    for (; i + 8 <= c.count; i += 8) {
        __m128i sum = _mm_adds_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i)),
                                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), sum);
    }
    for (; i < c.count; ++i) dst[i] = static_cast<int16_t>(std::clamp(a[i] + b[i], -32768, 32767));
}

TEST(KernelChecker, SampleArrays) {
    ncbtest::CheckAllLevels<MixCase>({
        .name = "MixSamples",
        .make = MakeMixCase,
        .twin = MixSamples_c,
        .atLevel = [](MixCase& c, int) { MixSamples_sse2(c); },
    });
}

TEST(KernelChecker, SamplesAreAlignedForTheirTypeAndFillStaysInRange) {
    CaseRandom random(5, false);
    for (int i = 0; i < 200; ++i) {
        Plane samples = random.MakeSamples<float>(random.Size(1, 64));
        ASSERT_EQ(reinterpret_cast<uintptr_t>(samples.As<float>()) % alignof(float), 0u);
        random.FillUniform(samples, -1.0f, 1.0f);
        for (int k = 0; k < samples.Width(); ++k) {
            ASSERT_GE(samples.As<float>()[k], -1.0f);
            ASSERT_LE(samples.As<float>()[k], 1.0f);
        }
        ASSERT_EQ(samples.FindGuardDamage(), std::nullopt);
    }
}

}  // namespace

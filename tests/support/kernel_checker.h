// Kernel checker: runs one operation at every processor level this CPU has and
// through its scalar twin on identical random cases, and requires identical
// bytes from all of them.
//
// Every buffer of a case is a Plane: a guarded allocation placed at a random
// offset 0..63 past a 64-byte boundary, with random pitch padding, sometimes
// bottom-up (negative pitch), and with sentinel bytes in front of it, between
// its rows and behind it. A write outside the payload or a byte that differs
// from the twin is reported with the seed, the case's buffers and the first
// position that went wrong. Under AddressSanitizer half of the buffers end
// exactly where their allocation ends instead, so reads past the end are
// caught too. The seed is printed; NCB_CHECK_SEED repeats a run,
// NCB_CHECK_ITERATIONS scales the number of cases, NCB_CHECK_VERBOSE=1 prints
// each case before it runs (for kernels that crash).
//
// Cases are built twice from the same seed rather than copied, so the case
// type stays a plain struct. Not here: timing (bench/) and tolerances (every
// level must equal the twin bit for bit).
#pragma once

#include <gtest/gtest.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace ncbtest {

// Geometry and placement of one guarded buffer.
struct PlaneLayout {
    int width = 1;           // elements per row
    int height = 1;          // rows
    int elementSize = 1;     // bytes per element
    int offset = 0;          // start of the lowest row, modulo 64 (0..63)
    int padding = 0;         // bytes between one row's end and the next row's start
    bool bottomUp = false;   // negative pitch: row 0 lies at the highest address
    bool tightEnd = false;   // the buffer (plus overread) ends where its allocation ends
    int overread = 0;        // bytes a kernel may read past the end of the last row
    std::string label = {};  // names the buffer in reports
};

class Plane {
  public:
    Plane() = default;
    // Payload bytes random (from `seed`), every other byte a sentinel.
    Plane(PlaneLayout layout, uint64_t seed);
    Plane(Plane&&) noexcept = default;
    Plane& operator=(Plane&&) noexcept = default;

    uint8_t* Data() { return block_.get() + rowZero_; }
    const uint8_t* Data() const { return block_.get() + rowZero_; }
    uint8_t* Row(int y) { return Data() + static_cast<ptrdiff_t>(y) * Pitch(); }
    const uint8_t* Row(int y) const { return Data() + static_cast<ptrdiff_t>(y) * Pitch(); }
    // Typed view of row 0, for sample arrays (MakeSamples keeps it aligned).
    template <typename T>
    T* As() {
        return reinterpret_cast<T*>(Data());
    }
    template <typename T>
    const T* As() const {
        return reinterpret_cast<const T*>(Data());
    }

    int Pitch() const;  // bytes from row y to row y + 1; negative when bottom-up
    int Width() const { return layout_.width; }
    int Height() const { return layout_.height; }
    int RowBytes() const { return layout_.width * layout_.elementSize; }
    const PlaneLayout& Layout() const { return layout_; }

    // Where the first sentinel byte that changed lies, or nothing.
    std::optional<std::string> FindGuardDamage() const;
    // "dst: 17x3 x1 B, offset 5, pitch -48 (bottom-up), tight end"
    std::string Describe() const;

  private:
    struct FreeBlock {
        void operator()(uint8_t* p) const;
    };
    size_t Stride() const { return static_cast<size_t>(RowBytes() + layout_.padding); }
    size_t Span() const;  // from the lowest row's start to the highest row's end
    bool IsPayload(size_t index) const;
    uint8_t Sentinel(size_t index) const;
    std::string DescribeIndex(size_t index) const;

    std::unique_ptr<uint8_t, FreeBlock> block_;
    size_t size_ = 0;
    size_t lowest_ = 0;   // index of the lowest row in the block
    size_t rowZero_ = 0;  // index of row 0
    uint64_t salt_ = 0;
    PlaneLayout layout_;
};

struct PlaneOptions {
    const char* label = "";
    int alignment = 1;  // start and pitch stay multiples of this (the element's alignof)
    bool allowBottomUp = true;
    int overread = 0;  // bytes the kernel documents it may read past a row's end
};

// The random source a case is built from. Deterministic in its seed, so the
// checker can build the same case once per implementation.
class CaseRandom {
  public:
    CaseRandom(uint64_t seed, bool tightEnds);

    uint64_t Next() { return engine_(); }
    int Uniform(int lo, int hi);  // inclusive
    bool Chance(int percent);
    // A size in lo..hi, half the time among the smallest 33, where most
    // row-end bugs live; odd and even alike.
    int Size(int lo, int hi);
    // A plane with random contents at a random placement.
    Plane MakePlane(int width, int height, int elementSize, const PlaneOptions& options = {});
    // A 1-D array of `count` samples: one row, start aligned for T.
    template <typename T>
    Plane MakeSamples(int count, const char* label = "") {
        return MakePlane(count, 1, sizeof(T),
                         {.label = label, .alignment = alignof(T), .allowBottomUp = false});
    }
    // Payload elements uniform in lo..hi, for kernels whose inputs must stay
    // in range (floats: random bytes would be NaNs and denormals).
    template <typename T>
    void FillUniform(Plane& plane, T lo, T hi);

    std::mt19937_64& Engine() { return engine_; }

  private:
    std::mt19937_64 engine_;
    bool tightEnds_;
};

template <typename T>
void CaseRandom::FillUniform(Plane& plane, T lo, T hi) {
    using Dist = std::conditional_t<std::is_floating_point_v<T>, std::uniform_real_distribution<T>,
                                    std::uniform_int_distribution<int64_t>>;
    Dist dist(lo, hi);
    for (int y = 0; y < plane.Height(); ++y) {
        T* row = reinterpret_cast<T*>(plane.Row(y));
        for (int x = 0; x < plane.Width(); ++x) row[x] = static_cast<T>(dist(engine_));
    }
}

// A case is any struct that lists its buffers; inputs count too, so a kernel
// that scribbles on an input is caught as well. A case may also have a
// `std::string Describe() const` for its other parameters; reports show it.
template <typename Case>
concept KernelCase = requires(const Case& c) {
    { c.Planes() } -> std::convertible_to<std::vector<const Plane*>>;
};

// An implementation beyond the processor levels, e.g. the AVX2 kernel that
// level 2 picks on capable machines. Add it only when the CPU has it.
template <typename Case>
struct ExtraImpl {
    std::string label;
    std::function<void(Case&)> run;
};

template <typename Case>
struct KernelFamily {
    std::string name;
    std::function<Case(CaseRandom&)> make;  // must draw everything from its CaseRandom
    std::function<void(Case&)> twin;        // the scalar twin
    std::function<void(Case&, int level)> atLevel;
    std::vector<ExtraImpl<Case>> extra = {};
};

struct CheckOptions {
    int cases = 100;                     // multiplied by NCB_CHECK_ITERATIONS
    std::optional<uint64_t> seed = {};   // else NCB_CHECK_SEED, else random
    std::optional<bool> tightEnds = {};  // default: only under AddressSanitizer
};

// Processor levels this CPU runs: 0 (SSE2) always, 1 with SSSE3, 2 with SSE4.1.
std::vector<int> SupportedLevels();
bool CpuHasAvx2();

namespace detail {
struct RunSetup {
    uint64_t seed;
    int cases;
    bool tightEnds;
    bool verbose;
};
RunSetup StartRun(const std::string& family, const CheckOptions& options);
uint64_t CaseSeed(uint64_t runSeed, int index);
std::optional<std::string> FindGuardDamage(const std::vector<const Plane*>& planes);
std::optional<std::string> FirstDifference(const std::vector<const Plane*>& twin,
                                           const std::vector<const Plane*>& got,
                                           const std::string& impl);
std::string DescribeCase(const std::vector<const Plane*>& planes);
std::string Report(const std::string& family, const std::string& impl, const RunSetup& run,
                   int index, const std::string& caseText, const std::string& what);

// The case's own words (if it has a Describe()) followed by its buffers.
template <typename Case>
std::string DescribeCase(const Case& c) {
    std::string text;
    if constexpr (requires {
                      { c.Describe() } -> std::convertible_to<std::string>;
                  })
        text = "  " + std::string(c.Describe()) + "\n";
    return text + DescribeCase(c.Planes());
}
}  // namespace detail

// Runs the family over its random cases; the first mismatch or guard damage
// as a readable report, or nothing when every implementation matched.
template <KernelCase Case>
std::optional<std::string> FindKernelMismatch(const KernelFamily<Case>& family,
                                              const CheckOptions& options = {}) {
    const detail::RunSetup run = detail::StartRun(family.name, options);
    std::vector<ExtraImpl<Case>> impls;
    for (int level : SupportedLevels())
        impls.push_back({"level " + std::to_string(level),
                         [&family, level](Case& c) { family.atLevel(c, level); }});
    impls.insert(impls.end(), family.extra.begin(), family.extra.end());

    for (int i = 0; i < run.cases; ++i) {
        const uint64_t caseSeed = detail::CaseSeed(run.seed, i);
        auto make = [&] {
            CaseRandom random(caseSeed, run.tightEnds);
            return family.make(random);
        };
        Case want = make();
        if (run.verbose)
            std::printf("[ kernels  ] %s case %d\n%s", family.name.c_str(), i,
                        detail::DescribeCase(want).c_str());
        family.twin(want);
        if (auto damage = detail::FindGuardDamage(want.Planes()))
            return detail::Report(family.name, "scalar twin", run, i, detail::DescribeCase(want),
                                  *damage);
        for (const ExtraImpl<Case>& impl : impls) {
            Case got = make();
            impl.run(got);
            if (auto damage = detail::FindGuardDamage(got.Planes()))
                return detail::Report(family.name, impl.label, run, i, detail::DescribeCase(got),
                                      *damage);
            if (auto diff = detail::FirstDifference(want.Planes(), got.Planes(), impl.label))
                return detail::Report(family.name, impl.label, run, i, detail::DescribeCase(got),
                                      *diff);
        }
    }
    return std::nullopt;
}

// The usual entry point in a test: a mismatch fails the current test.
template <KernelCase Case>
void CheckAllLevels(const KernelFamily<Case>& family, const CheckOptions& options = {}) {
    if (std::optional<std::string> mismatch = FindKernelMismatch(family, options))
        ADD_FAILURE() << *mismatch;
}

}  // namespace ncbtest

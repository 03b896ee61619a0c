// Guarded buffers, random placement and reporting for the kernel checker.
// Sentinel bytes are a hash of the plane's seed and the byte's index, so the
// check needs no copy of the block and a stray write of any constant value is
// almost surely seen.
#include "tests/support/kernel_checker.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace ncbtest {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#else
constexpr bool kAddressSanitizer = false;
#endif

constexpr size_t kFrontGuard = 64;  // a multiple of 64 keeps the offset meaningful
constexpr size_t kBackGuard = 64;

uint64_t Mix(uint64_t z) {
    z += 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

std::string Format(const char* format, auto... args) {
    char text[512];
    std::snprintf(text, sizeof(text), format, args...);
    return text;
}

const char* Env(const char* name) {
    const char* value = std::getenv(name);
    return value && *value ? value : nullptr;
}

}  // namespace

void Plane::FreeBlock::operator()(uint8_t* p) const { std::free(p); }

Plane::Plane(PlaneLayout layout, uint64_t seed) : salt_(Mix(seed)), layout_(std::move(layout)) {
    const size_t front = kFrontGuard + static_cast<size_t>(layout_.offset);
    const size_t back = static_cast<size_t>(layout_.overread) + (layout_.tightEnd ? 0 : kBackGuard);
    size_ = front + Span() + back;
    // posix_memalign rather than aligned_alloc: the size need not be a
    // multiple of 64, so AddressSanitizer's red zone starts right at the end.
    void* p = nullptr;
    if (posix_memalign(&p, 64, std::max<size_t>(size_, 1)) != 0) throw std::bad_alloc();
    block_.reset(static_cast<uint8_t*>(p));
    lowest_ = front;
    rowZero_ = lowest_ + (layout_.bottomUp && layout_.height > 0
                              ? static_cast<size_t>(layout_.height - 1) * Stride()
                              : 0);

    for (size_t i = 0; i < size_; ++i) block_.get()[i] = Sentinel(i);
    std::mt19937_64 random(seed);
    for (int y = 0; y < layout_.height; ++y) {
        uint8_t* row = Row(y);
        for (int x = 0; x < RowBytes(); ++x) row[x] = static_cast<uint8_t>(random() >> 56);
    }
}

int Plane::Pitch() const {
    const int stride = static_cast<int>(Stride());
    return layout_.bottomUp ? -stride : stride;
}

size_t Plane::Span() const {
    if (layout_.height <= 0) return 0;
    return static_cast<size_t>(layout_.height - 1) * Stride() + static_cast<size_t>(RowBytes());
}

bool Plane::IsPayload(size_t index) const {
    if (index < lowest_ || index - lowest_ >= Span()) return false;
    return (index - lowest_) % Stride() < static_cast<size_t>(RowBytes());
}

uint8_t Plane::Sentinel(size_t index) const { return static_cast<uint8_t>(Mix(salt_ + index)); }

std::string Plane::DescribeIndex(size_t index) const {
    if (index < lowest_) return Format("byte %zu before the start of the buffer", lowest_ - index);
    const size_t rel = index - lowest_;
    if (Span() == 0) return Format("byte %zu past the start of the empty buffer", rel + 1);
    const size_t stride = Stride();
    const size_t memoryRow = std::min(rel / std::max<size_t>(stride, 1),
                                      static_cast<size_t>(std::max(layout_.height - 1, 0)));
    const int row = layout_.bottomUp ? layout_.height - 1 - static_cast<int>(memoryRow)
                                     : static_cast<int>(memoryRow);
    const size_t pastEnd = rel - memoryRow * stride - static_cast<size_t>(RowBytes()) + 1;
    return Format("byte %zu past the end of row %d%s", pastEnd, row,
                  rel >= Span() ? " (behind the buffer)" : " (pitch padding)");
}

std::optional<std::string> Plane::FindGuardDamage() const {
    for (size_t i = 0; i < size_; ++i) {
        if (IsPayload(i) || block_.get()[i] == Sentinel(i)) continue;
        return Format("%s: %s changed (sentinel 0x%02x, now 0x%02x)", layout_.label.c_str(),
                      DescribeIndex(i).c_str(), Sentinel(i), block_.get()[i]);
    }
    return std::nullopt;
}

std::string Plane::Describe() const {
    return Format("%s: %dx%d x%d B, offset %d, pitch %d%s%s", layout_.label.c_str(), layout_.width,
                  layout_.height, layout_.elementSize, layout_.offset, Pitch(),
                  layout_.bottomUp ? " (bottom-up)" : "", layout_.tightEnd ? ", tight end" : "");
}

CaseRandom::CaseRandom(uint64_t seed, bool tightEnds) : engine_(seed), tightEnds_(tightEnds) {}

int CaseRandom::Uniform(int lo, int hi) {
    return std::uniform_int_distribution<int>(lo, hi)(engine_);
}

bool CaseRandom::Chance(int percent) { return Uniform(0, 99) < percent; }

int CaseRandom::Size(int lo, int hi) {
    return Chance(50) ? Uniform(lo, std::min(hi, lo + 32)) : Uniform(lo, hi);
}

Plane CaseRandom::MakePlane(int width, int height, int elementSize, const PlaneOptions& options) {
    const int align = std::max(options.alignment, 1);
    PlaneLayout layout;
    layout.width = width;
    layout.height = height;
    layout.elementSize = elementSize;
    layout.label = *options.label ? options.label : "plane";
    // Any offset within a cache line: 16 and 48 are 16-byte but not 32-byte
    // aligned, which is where an aligned 256-bit access on a path meant for
    // 16-byte alignment goes wrong.
    layout.offset = Uniform(0, 63) / align * align;
    const int rowBytes = width * elementSize;
    switch (Uniform(0, 2)) {
        case 0:  // rows back to back
            layout.padding = 0;
            break;
        case 1:  // the usual host layout: rows rounded up to 32 bytes
            layout.padding = (rowBytes + 31) / 32 * 32 - rowBytes;
            break;
        default:
            layout.padding = Uniform(1, 80);
            break;
    }
    layout.padding = (layout.padding + align - 1) / align * align;
    layout.bottomUp = options.allowBottomUp && Chance(25);
    layout.tightEnd = tightEnds_ && Chance(50);
    layout.overread = options.overread;
    return Plane(std::move(layout), Next());
}

std::vector<int> SupportedLevels() {
    std::vector<int> levels = {0};
    if (__builtin_cpu_supports("ssse3")) {
        levels.push_back(1);
        if (__builtin_cpu_supports("sse4.1")) levels.push_back(2);
    }
    return levels;
}

bool CpuHasAvx2() { return __builtin_cpu_supports("avx2"); }

namespace detail {

RunSetup StartRun(const std::string& family, const CheckOptions& options) {
    RunSetup run{};
    if (options.seed) {
        run.seed = *options.seed;
    } else if (const char* forced = Env("NCB_CHECK_SEED")) {
        run.seed = std::strtoull(forced, nullptr, 0);
    } else {
        std::random_device device;
        run.seed = (static_cast<uint64_t>(device()) << 32) ^ device();
    }
    double scale = 1.0;
    if (const char* iterations = Env("NCB_CHECK_ITERATIONS"))
        scale = std::strtod(iterations, nullptr);
    run.cases = std::max(1, static_cast<int>(options.cases * (scale > 0 ? scale : 1.0)));
    run.tightEnds = options.tightEnds.value_or(kAddressSanitizer);
    const char* verbose = Env("NCB_CHECK_VERBOSE");
    run.verbose = verbose && std::strcmp(verbose, "0") != 0;

    std::string levels;
    for (int level : SupportedLevels()) levels += " " + std::to_string(level);
    std::printf("[ kernels  ] %s: seed %llu, %d cases, levels%s\n", family.c_str(),
                static_cast<unsigned long long>(run.seed), run.cases, levels.c_str());
    return run;
}

uint64_t CaseSeed(uint64_t runSeed, int index) {
    return Mix(runSeed + 0x9E3779B97F4A7C15ull * static_cast<uint64_t>(index + 1));
}

std::optional<std::string> FindGuardDamage(const std::vector<const Plane*>& planes) {
    for (const Plane* plane : planes)
        if (auto damage = plane->FindGuardDamage()) return "wrote outside its buffers: " + *damage;
    return std::nullopt;
}

std::optional<std::string> FirstDifference(const std::vector<const Plane*>& twin,
                                           const std::vector<const Plane*>& got,
                                           const std::string& impl) {
    for (size_t p = 0; p < twin.size() && p < got.size(); ++p) {
        const Plane& want = *twin[p];
        const Plane& have = *got[p];
        for (int y = 0; y < want.Height(); ++y) {
            const uint8_t* a = want.Row(y);
            const uint8_t* b = have.Row(y);
            if (std::memcmp(a, b, static_cast<size_t>(want.RowBytes())) == 0) continue;
            int x = 0;
            while (a[x] == b[x]) ++x;
            return Format(
                "differs from the scalar twin: %s row %d, byte %d (element %d): twin 0x%02x, "
                "%s 0x%02x",
                want.Layout().label.c_str(), y, x, x / want.Layout().elementSize, a[x],
                impl.c_str(), b[x]);
        }
    }
    return std::nullopt;
}

std::string DescribeCase(const std::vector<const Plane*>& planes) {
    std::string text;
    for (const Plane* plane : planes) text += "  " + plane->Describe() + "\n";
    return text;
}

std::string Report(const std::string& family, const std::string& impl, const RunSetup& run,
                   int index, const std::string& caseText, const std::string& what) {
    const auto seed = static_cast<unsigned long long>(run.seed);
    return family + ": " + impl + " " + what + "\n" +
           Format("  case %d of %d, seed %llu (NCB_CHECK_SEED=%llu repeats the run)\n", index,
                  run.cases, seed, seed) +
           caseText;
}

}  // namespace detail
}  // namespace ncbtest

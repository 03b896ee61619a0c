// CNHelper: processor identification from CPUID, the time-stamp counter and
// the x87 / SSE control words.
//
// The identification rules run over a CpuidSource so that tests can check the
// topology, feature and cache rules on canned register tables; the hardware
// source is the only one the library uses. The rules are followed as written
// even where x86-64 makes a step moot (CPUID always exists there), because
// hosts compare the tag word for word with what they got before.
// Deliberately not done: hybrid-core or multi-socket topology beyond what
// leaves 1, 4 and 11 say, and cache levels above 3.
#include "ncodecbase/helper.h"

#include <cpuid.h>
#include <unistd.h>
#include <x86intrin.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <initializer_list>

#include "base/cpuid_source.h"

namespace ncb {
namespace {

constexpr uint64_t kEflagsId = 1u << 21;

// CPUID exists when the ID flag of EFLAGS can be both cleared and set. The
// compiler builtins keep the push/pop sequence clear of the red zone.
bool EflagsIdToggles() {
    const uint64_t original = __readeflags();
    __writeeflags(original | kEflagsId);
    const bool canSet = (__readeflags() & kEflagsId) != 0;
    __writeeflags(original & ~kEflagsId);
    const bool canClear = (__readeflags() & kEflagsId) == 0;
    __writeeflags(original);
    return canSet && canClear;
}

class HardwareSource final : public CpuidSource {
  public:
    bool HasCpuid() const override { return EflagsIdToggles(); }
    CpuidRegs Query(uint32_t leaf, uint32_t subLeaf) const override {
        CpuidRegs r;
        __cpuid_count(leaf, subLeaf, r.eax, r.ebx, r.ecx, r.edx);
        return r;
    }
    int ProcessorCount() const override {
        const long n = sysconf(_SC_NPROCESSORS_ONLN);
        return n > 0 && n <= INT32_MAX ? static_cast<int>(n) : 1;
    }
    uint64_t Xcr0() const override {
        uint32_t lo, hi;
        asm volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
        return (uint64_t{hi} << 32) | lo;
    }
};

uint32_t Bits(uint32_t value, int low, int high) {
    const int width = high - low + 1;
    const uint32_t mask = width >= 32 ? 0xFFFFFFFFu : ((1u << width) - 1);
    return (value >> low) & mask;
}

int Bit(uint32_t value, int bit) { return static_cast<int>((value >> bit) & 1u); }

int VendorFromLeaf0(const CpuidRegs& leaf0) {
    char name[13];
    std::memcpy(name, &leaf0.ebx, 4);
    std::memcpy(name + 4, &leaf0.edx, 4);
    std::memcpy(name + 8, &leaf0.ecx, 4);
    name[12] = '\0';
    if (std::strcmp(name, "GenuineIntel") == 0) return 0;
    if (std::strcmp(name, "AuthenticAMD") == 0) return 1;
    return 2;
}

// n divides total and fits in it; zero never qualifies.
bool DividesEvenly(uint32_t n, int32_t total) {
    return n != 0 && total > 0 && n <= static_cast<uint32_t>(total) &&
           static_cast<uint32_t>(total) % n == 0;
}

void FillTopology(const CpuidSource& src, uint32_t maxLeaf, CNHelper::CPUInfoTag& t) {
    t.nPackages = src.ProcessorCount();
    t.nCoresPerPackage = 1;
    t.nThreadsPerCore = 1;
    if (maxLeaf >= 1) {
        const uint32_t perPackage =
            maxLeaf < 11 ? Bits(src.Query(1, 0).ebx, 16, 23) : Bits(src.Query(11, 1).ebx, 0, 15);
        if (DividesEvenly(perPackage, t.nPackages)) {
            t.nCoresPerPackage = static_cast<int32_t>(perPackage);
            t.nPackages /= t.nCoresPerPackage;
        }
    }
    if (t.nVendor != 0 || maxLeaf < 4) return;
    if (maxLeaf < 11) {
        const uint32_t eax = src.Query(4, 0).eax;
        const uint32_t cores = Bits(eax, 26, 31) + 1;
        const uint32_t threads = Bits(eax, 14, 25) + 1;
        if (static_cast<uint64_t>(cores) * threads == static_cast<uint64_t>(t.nCoresPerPackage)) {
            t.nCoresPerPackage = static_cast<int32_t>(cores);
            t.nThreadsPerCore = static_cast<int32_t>(threads);
        }
    } else {
        const uint32_t threads = Bits(src.Query(11, 0).ebx, 0, 15);
        if (DividesEvenly(threads, t.nCoresPerPackage)) {
            t.nCoresPerPackage /= static_cast<int32_t>(threads);
            t.nThreadsPerCore = static_cast<int32_t>(threads);
        }
    }
}

void FillFeatures(const CpuidSource& src, uint32_t maxLeaf, uint32_t maxExtLeaf,
                  CNHelper::CPUInfoTag& t) {
    if (maxLeaf >= 1) {
        const CpuidRegs r = src.Query(1, 0);
        t.nMMX = Bit(r.edx, 23);
        t.nSSE = Bit(r.edx, 25);
        t.nSSE2 = Bit(r.edx, 26);
        t.nSSE3 = Bit(r.ecx, 0);
        t.nSSSE3 = Bit(r.ecx, 9);
        t.nSSE41 = Bit(r.ecx, 19);
        t.nSSE42 = Bit(r.ecx, 20);
    }
    if (t.nVendor == 1 && (maxExtLeaf & 0x7FFFFFFFu) >= 1) {
        const uint32_t edx = src.Query(0x80000001u, 0).edx;
        t.n3DNow = Bit(edx, 31);
        t.n3DNowExt = Bit(edx, 30);
    }
}

// Sizes saturate at INT32_MAX, so a nonsensical table can neither wrap a
// word negative nor overflow the 64-bit product.
uint64_t SaturatingProduct(std::initializer_list<uint64_t> factors) {
    uint64_t product = 1;
    for (uint64_t f : factors) {
        if (__builtin_mul_overflow(product, f, &product)) return UINT64_MAX;
    }
    return product;
}

void FillCaches(const CpuidSource& src, uint32_t maxLeaf, CNHelper::CPUInfoTag& t) {
    if (maxLeaf < 4) return;
    uint64_t sums[3] = {0, 0, 0};
    for (uint32_t sub = 0; sub <= 6; ++sub) {
        const CpuidRegs r = src.Query(4, sub);
        const uint32_t level = Bits(r.eax, 5, 7);
        if (level == 0) break;
        if (level > 3) continue;
        const uint64_t size =
            SaturatingProduct({uint64_t{Bits(r.ebx, 22, 31)} + 1, uint64_t{Bits(r.ebx, 12, 21)} + 1,
                               uint64_t{Bits(r.ebx, 0, 11)} + 1, uint64_t{r.ecx} + 1});
        sums[level - 1] =
            std::min<uint64_t>(sums[level - 1] + std::min<uint64_t>(size, INT32_MAX), INT32_MAX);
    }
    t.nL1CacheSize = static_cast<int32_t>(sums[0]);
    t.nL2CacheSize = static_cast<int32_t>(sums[1]);
    t.nL3CacheSize = static_cast<int32_t>(sums[2]);
}

}  // namespace

const CpuidSource& HardwareCpuidSource() {
    static const HardwareSource source;
    return source;
}

int FillCpuInfo(const CpuidSource& source, CNHelper::CPUInfoTag* info) {
    if (!info || !source.HasCpuid()) return 0;
    const CpuidRegs leaf0 = source.Query(0, 0);
    const uint32_t maxLeaf = leaf0.eax;
    const uint32_t maxExtLeaf = source.Query(0x80000000u, 0).eax;
    CNHelper::CPUInfoTag t{};
    t.nVendor = VendorFromLeaf0(leaf0);
    FillTopology(source, maxLeaf, t);
    FillFeatures(source, maxLeaf, maxExtLeaf, t);
    FillCaches(source, maxLeaf, t);
    *info = t;
    return 1;
}

}  // namespace ncb

namespace {

// The six exception masks in tag order: invalid, denormal, zero divide,
// overflow, underflow, precision. Both control words keep them in six
// consecutive bits.
template <typename Tag>
std::array<int32_t*, 6> MaskFields(Tag* t) {
    return {&t->nInvalidMask,  &t->nDenormalMask,  &t->nZeroDivideMask,
            &t->nOverflowMask, &t->nUnderflowMask, &t->nPrecisionMask};
}

uint32_t ApplyMasks(uint32_t word, const std::array<int32_t*, 6>& masks, int firstBit) {
    for (int i = 0; i < 6; ++i) {
        const uint32_t bit = 1u << (firstBit + i);
        word = *masks[i] == 1 ? (word | bit) : (word & ~bit);
    }
    return word;
}

void ReadMasks(uint32_t word, const std::array<int32_t*, 6>& masks, int firstBit) {
    for (int i = 0; i < 6; ++i) *masks[i] = static_cast<int32_t>((word >> (firstBit + i)) & 1u);
}

uint16_t ReadX87ControlWord() {
    uint16_t cw;
    asm volatile("fnstcw %0" : "=m"(cw));
    return cw;
}

void WriteX87ControlWord(uint16_t cw) { asm volatile("fldcw %0" : : "m"(cw)); }

constexpr uint32_t kMxcsrDaz = 1u << 6;
constexpr uint32_t kMxcsrFtz = 1u << 15;

}  // namespace

int CNHelper::GetCpuInfo(CPUInfoTag* info) {
    return ncb::FillCpuInfo(ncb::HardwareCpuidSource(), info);
}

uint64_t CNHelper::GetCpuTick() { return __rdtsc(); }

int CNHelper::GetFpuControlInfo(FpuControlInfoTag* info) {
    if (!info) return 0;
    const uint32_t cw = ReadX87ControlWord();
    info->nRoundingControl = static_cast<int32_t>((cw >> 10) & 3u);
    info->nPrecisionControl = static_cast<int32_t>((cw >> 8) & 3u);
    ReadMasks(cw, MaskFields(info), 0);
    return 1;
}

// The two-bit fields go in shifted but not masked: an out-of-range value
// spills into the neighbouring bits exactly as hosts have always seen it.
// The x87 unit ignores its reserved bits, so no value can fault here.
int CNHelper::SetFpuControlInfo(FpuControlInfoTag* info) {
    if (!info) return 0;
    uint32_t cw = ReadX87ControlWord();
    cw &= ~0x0F00u;
    cw |= static_cast<uint32_t>(info->nRoundingControl) << 10;
    cw |= static_cast<uint32_t>(info->nPrecisionControl) << 8;
    cw = ApplyMasks(cw, MaskFields(info), 0);
    WriteX87ControlWord(static_cast<uint16_t>(cw));
    return 1;
}

int CNHelper::GetSseControlInfo(SseControlInfoTag* info) {
    if (!info) return 0;
    const uint32_t csr = _mm_getcsr();
    info->nRoundingControl = static_cast<int32_t>((csr >> 13) & 3u);
    info->nDenormalsAreZero = (csr & kMxcsrDaz) ? 1 : 0;
    info->nFlushToZero = (csr & kMxcsrFtz) ? 1 : 0;
    ReadMasks(csr, MaskFields(info), 7);
    return 1;
}

// Unlike the x87 word, MXCSR faults when a reserved bit is written, so the
// rounding field is confined to its two bits.
int CNHelper::SetSseControlInfo(SseControlInfoTag* info) {
    if (!info) return 0;
    uint32_t csr = _mm_getcsr();
    csr = (csr & ~(3u << 13)) | ((static_cast<uint32_t>(info->nRoundingControl) & 3u) << 13);
    csr = info->nDenormalsAreZero == 1 ? (csr | kMxcsrDaz) : (csr & ~kMxcsrDaz);
    csr = info->nFlushToZero == 1 ? (csr | kMxcsrFtz) : (csr & ~kMxcsrFtz);
    csr = ApplyMasks(csr, MaskFields(info), 7);
    _mm_setcsr(csr);
    return 1;
}

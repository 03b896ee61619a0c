// Detection of AVX2 and PCLMULQDQ for the optional fast kernels. AVX needs
// both the processor bit and the OS's promise to save YMM registers across
// context switches (XCR0), which is why XGETBV is consulted; XGETBV itself is
// only executed when OSXSAVE says it exists. Nothing here chooses kernels: the
// families ask once and keep their own table.
#include "base/cpu_features.h"

namespace ncb {
namespace {

bool Bit(uint32_t value, int bit) { return ((value >> bit) & 1u) != 0; }

constexpr uint64_t kXcr0SseAndYmm = 0x6;

}  // namespace

CpuFeatures DetectCpuFeatures(const CpuidSource& source) {
    CpuFeatures f;
    if (!source.HasCpuid()) return f;
    const uint32_t maxLeaf = source.Query(0, 0).eax;
    if (maxLeaf < 1) return f;
    const CpuidRegs leaf1 = source.Query(1, 0);
    f.pclmul = Bit(leaf1.ecx, 1) && Bit(leaf1.ecx, 19);
    const bool osxsave = Bit(leaf1.ecx, 27);
    const bool avx = Bit(leaf1.ecx, 28);
    const bool fma = Bit(leaf1.ecx, 12);
    if (maxLeaf < 7 || !osxsave || !avx || !fma) return f;
    if ((source.Xcr0() & kXcr0SseAndYmm) != kXcr0SseAndYmm) return f;
    f.avx2 = Bit(source.Query(7, 0).ebx, 5);
    return f;
}

const CpuFeatures& GetCpuFeatures() {
    static const CpuFeatures features = DetectCpuFeatures(HardwareCpuidSource());
    return features;
}

}  // namespace ncb

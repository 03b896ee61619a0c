// Which kernels a video operation runs: the processor level argument (0 SSE2,
// 1 SSSE3, 2 SSE4.1) becomes one of the kernel sets below, and every kernel
// family keeps one table of function pointers per set, filled once. Call
// sites index the table; none of them tests CPU flags.
//
// The scalar set is never chosen by a level: it holds the scalar twins that
// the tests compare every other set with. Level 2 picks the AVX2 set when the
// processor and OS support it; a level the processor lacks is served by the
// highest one it has, so a wrong level from a host costs speed, never a crash.
#pragma once

#include <array>
#include <initializer_list>

namespace ncb::video {

enum class KernelSet { kScalar = 0, kSse2, kSsse3, kSse41, kAvx2 };
inline constexpr int kKernelSetCount = 5;

// False for levels other than 0, 1, 2 (the operation then does nothing).
bool KernelSetForLevel(int level, KernelSet* out);
// Whether this processor can run the set's kernels.
bool KernelSetSupported(KernelSet set);
const char* KernelSetName(KernelSet set);

// Tables of one family, one per set: the scalar installer fills every entry,
// then each higher set starts as a copy of the one below and its installer
// (may be null) replaces the entries it has kernels for.
template <typename Table>
using KernelInstaller = void (*)(Table*);

template <typename Table>
std::array<Table, kKernelSetCount> BuildKernelTables(
    KernelInstaller<Table> scalar, std::initializer_list<KernelInstaller<Table>> higher) {
    std::array<Table, kKernelSetCount> tables{};
    scalar(&tables[0]);
    int i = 1;
    for (KernelInstaller<Table> install : higher) {
        tables[i] = tables[i - 1];
        if (install) install(&tables[i]);
        ++i;
    }
    for (; i < kKernelSetCount; ++i) tables[i] = tables[i - 1];
    return tables;
}

}  // namespace ncb::video

// Level to kernel set, clamped to what the running processor has.
#include "video/kernels/kernel_set.h"

#include "base/cpu_features.h"
#include "base/processor_level.h"

namespace ncb::video {

bool KernelSetForLevel(int level, KernelSet* out) {
    if (level < kProcessorLevelSse2 || level > kProcessorLevelSse41) return false;
    const int have = ProcessorLevel();
    const int use = level < have ? level : (have < 0 ? kProcessorLevelSse2 : have);
    switch (use) {
        case kProcessorLevelSse2:
            *out = KernelSet::kSse2;
            break;
        case kProcessorLevelSsse3:
            *out = KernelSet::kSsse3;
            break;
        default:
            *out = GetCpuFeatures().avx2 ? KernelSet::kAvx2 : KernelSet::kSse41;
            break;
    }
    return true;
}

bool KernelSetSupported(KernelSet set) {
    switch (set) {
        case KernelSet::kScalar:
        case KernelSet::kSse2:
            return true;
        case KernelSet::kSsse3:
            return ProcessorLevel() >= kProcessorLevelSsse3;
        case KernelSet::kSse41:
            return ProcessorLevel() >= kProcessorLevelSse41;
        case KernelSet::kAvx2:
            return ProcessorLevel() >= kProcessorLevelSse41 && GetCpuFeatures().avx2;
    }
    return false;
}

const char* KernelSetName(KernelSet set) {
    constexpr const char* kNames[] = {"scalar", "sse2", "ssse3", "sse4.1", "avx2"};
    return kNames[static_cast<int>(set)];
}

}  // namespace ncb::video

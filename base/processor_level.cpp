// Processor level from the CPU tag. Kept apart from CNHelper so that the
// renders and processors share one rule instead of repeating the ladder.
#include "base/processor_level.h"

namespace ncb {

int ProcessorLevelFromCpuInfo(const CNHelper::CPUInfoTag& info) {
    if (info.nSSE2 != 1) return kProcessorLevelNone;
    if (info.nSSE41 == 1) return kProcessorLevelSse41;
    if (info.nSSSE3 == 1) return kProcessorLevelSsse3;
    return kProcessorLevelSse2;
}

int ProcessorLevel() {
    static const int level = [] {
        CNHelper::CPUInfoTag info{};
        if (!CNHelper::GetCpuInfo(&info)) return kProcessorLevelNone;
        return ProcessorLevelFromCpuInfo(info);
    }();
    return level;
}

const char* ProcessorLevelName(int level) {
    switch (level) {
        case kProcessorLevelSse2:
            return "SSE2";
        case kProcessorLevelSsse3:
            return "SSSE3";
        case kProcessorLevelSse41:
            return "SSE4.1";
        default:
            return "none";
    }
}

}  // namespace ncb

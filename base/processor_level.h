// The processor level every kernel-backed operation takes as its last
// argument: 0 SSE2, 1 SSSE3, 2 SSE4.1. Objects that need kernels refuse to
// start without SSE2; the level functions report that case as -1.
#pragma once

#include "ncodecbase/helper.h"

namespace ncb {

inline constexpr int kProcessorLevelNone = -1;
inline constexpr int kProcessorLevelSse2 = 0;
inline constexpr int kProcessorLevelSsse3 = 1;
inline constexpr int kProcessorLevelSse41 = 2;

// 2 with SSE4.1, else 1 with SSSE3, else 0 with SSE2, else -1.
int ProcessorLevelFromCpuInfo(const CNHelper::CPUInfoTag& info);
// The running processor's level (from CNHelper::GetCpuInfo), computed once;
// -1 when it cannot be identified or lacks SSE2.
int ProcessorLevel();
// "SSE2", "SSSE3", "SSE4.1", or "none" for anything else.
const char* ProcessorLevelName(int level);

}  // namespace ncb

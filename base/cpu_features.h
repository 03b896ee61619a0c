// Instruction-set extensions beyond the three processor levels, for the few
// hot kernels (colour conversion, resize, IDCT, CRC) that may pick a faster
// variant once at start-up. Hosts never see these: results are identical to
// the scalar twins either way.
#pragma once

#include "base/cpuid_source.h"

namespace ncb {

struct CpuFeatures {
    // AVX2 and FMA, with the OS saving the YMM state (OSXSAVE, XCR0 bits 1-2).
    // FMA is required too because *_avx2.cpp files are compiled with -mfma.
    bool avx2 = false;
    // PCLMULQDQ together with SSE4.1, the flags *_pclmul.cpp files are built with.
    bool pclmul = false;
};

CpuFeatures DetectCpuFeatures(const CpuidSource& source);
// The running processor, detected on first use.
const CpuFeatures& GetCpuFeatures();

}  // namespace ncb

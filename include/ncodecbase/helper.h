// CNHelper: what the processor is (vendor, topology, instruction-set
// extensions, cache sizes), its time-stamp counter, and the x87 and SSE
// control words of the calling thread.
//
// Ownership: every function is static and works on a structure the caller
// owns; nothing is kept between calls.
// Thread safety: GetCpuInfo and GetCpuTick may be called from any thread. The
// control-word functions act on the calling thread's floating-point state only.
// Failure: GetCpuInfo returns 0 and leaves the tag untouched when the processor
// has no CPUID instruction; the control-word functions return 0 for a null tag.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/export.h"

class NCB_API CNHelper {
  public:
    struct CPUInfoTag {
        int32_t nVendor;           // 0 Intel, 1 AMD, 2 any other
        int32_t nPackages;         // processor packages
        int32_t nCoresPerPackage;  // cores (Intel) or logical processors per package
        int32_t nThreadsPerCore;   // hardware threads per core (Intel), otherwise 1
        int32_t nMMX;              // extension words: 1 present, 0 absent
        int32_t nSSE;
        int32_t nSSE2;
        int32_t nSSE3;
        int32_t nSSSE3;
        int32_t nSSE41;
        int32_t nSSE42;
        int32_t n3DNow;        // AMD only
        int32_t n3DNowExt;     // AMD only
        int32_t nL1CacheSize;  // bytes, level-1 data and instruction caches added
        int32_t nL2CacheSize;  // bytes
        int32_t nL3CacheSize;  // bytes
    };

    // Fields of the x87 control word; masks are 1 when the exception is masked.
    struct FpuControlInfoTag {
        int32_t nRoundingControl;   // 0 nearest, 1 down, 2 up, 3 toward zero
        int32_t nPrecisionControl;  // 0 single, 2 double, 3 extended
        int32_t nInvalidMask;
        int32_t nDenormalMask;
        int32_t nZeroDivideMask;
        int32_t nOverflowMask;
        int32_t nUnderflowMask;
        int32_t nPrecisionMask;
    };

    // Fields of MXCSR; masks are 1 when the exception is masked.
    struct SseControlInfoTag {
        int32_t nRoundingControl;  // 0 nearest, 1 down, 2 up, 3 toward zero
        int32_t nDenormalsAreZero;
        int32_t nFlushToZero;
        int32_t nInvalidMask;
        int32_t nDenormalMask;
        int32_t nZeroDivideMask;
        int32_t nOverflowMask;
        int32_t nUnderflowMask;
        int32_t nPrecisionMask;
    };

    // 1 with the tag filled, 0 when there is no CPUID instruction.
    static int GetCpuInfo(CPUInfoTag* info);
    // The time-stamp counter.
    static uint64_t GetCpuTick();
    // Read or write the calling thread's x87 control word. Set keeps the bits
    // it has no field for; mask fields count as set only when exactly 1.
    static int GetFpuControlInfo(FpuControlInfoTag* info);
    static int SetFpuControlInfo(FpuControlInfoTag* info);
    // Read or write the calling thread's MXCSR; the same rules as the x87 pair.
    static int GetSseControlInfo(SseControlInfoTag* info);
    static int SetSseControlInfo(SseControlInfoTag* info);
};

static_assert(sizeof(CNHelper::CPUInfoTag) == 64);
static_assert(offsetof(CNHelper::CPUInfoTag, nPackages) == 4);
static_assert(offsetof(CNHelper::CPUInfoTag, nMMX) == 16);
static_assert(offsetof(CNHelper::CPUInfoTag, nSSE41) == 36);
static_assert(offsetof(CNHelper::CPUInfoTag, n3DNow) == 44);
static_assert(offsetof(CNHelper::CPUInfoTag, nL1CacheSize) == 52);
static_assert(offsetof(CNHelper::CPUInfoTag, nL3CacheSize) == 60);
static_assert(sizeof(CNHelper::FpuControlInfoTag) == 32);
static_assert(offsetof(CNHelper::FpuControlInfoTag, nInvalidMask) == 8);
static_assert(offsetof(CNHelper::FpuControlInfoTag, nPrecisionMask) == 28);
static_assert(sizeof(CNHelper::SseControlInfoTag) == 36);
static_assert(offsetof(CNHelper::SseControlInfoTag, nFlushToZero) == 8);
static_assert(offsetof(CNHelper::SseControlInfoTag, nInvalidMask) == 12);
static_assert(offsetof(CNHelper::SseControlInfoTag, nPrecisionMask) == 32);

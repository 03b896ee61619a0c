// Where the CPU helper gets its processor facts: the CPUID instruction and the
// system's processor count, behind a small interface so that tests can feed
// canned register tables (a 4-core 8-thread Intel, an AMD with 3DNow!, odd
// topologies) and check the identification rules without owning such a
// machine. The library itself only ever uses HardwareCpuidSource().
#pragma once

#include <cstdint>

#include "ncodecbase/helper.h"

namespace ncb {

struct CpuidRegs {
    uint32_t eax = 0;
    uint32_t ebx = 0;
    uint32_t ecx = 0;
    uint32_t edx = 0;
};

class CpuidSource {
  public:
    virtual ~CpuidSource() = default;
    // Whether the CPUID instruction exists.
    virtual bool HasCpuid() const = 0;
    virtual CpuidRegs Query(uint32_t leaf, uint32_t subLeaf) const = 0;
    // Logical processors the system runs on.
    virtual int ProcessorCount() const = 0;
    // Extended control register 0 (which register states the OS saves). Only
    // called when leaf 1 reports OSXSAVE; XGETBV faults otherwise.
    virtual uint64_t Xcr0() const = 0;
};

// The real processor and the system's online processor count.
const CpuidSource& HardwareCpuidSource();

// The identification rules of CNHelper::GetCpuInfo over any source: 1 with
// *info filled, 0 (info untouched) when the source has no CPUID.
int FillCpuInfo(const CpuidSource& source, CNHelper::CPUInfoTag* info);

}  // namespace ncb

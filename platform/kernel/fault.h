// Fault injection for tests: make the N-th next heap allocation, page commit
// or address-space reservation fail, so every soft-failure path can be driven
// without exhausting the machine. Off unless a test arms it; the check on the
// hot path is one relaxed atomic load.
#pragma once

#include <atomic>

namespace nplat::fault {

enum class Kind { kHeap, kCommit, kReserve, kCount };

// After `skip` successful operations of this kind, the next `count` fail.
void Arm(Kind kind, int skip, int count = 1);
void Disarm();
// Called by the allocation primitives: true when this operation must fail.
bool ShouldFail(Kind kind);

// Arms on construction, disarms on scope exit.
class Scope {
  public:
    Scope(Kind kind, int skip, int count = 1) { Arm(kind, skip, count); }
    ~Scope() { Disarm(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

}  // namespace nplat::fault

// Countdown per fault kind; see fault.h.
#include "platform/kernel/fault.h"

namespace nplat::fault {
namespace {

struct Countdown {
    std::atomic<bool> armed{false};
    std::atomic<int> skip{0};
    std::atomic<int> failures{0};
};
Countdown g_countdowns[static_cast<int>(Kind::kCount)];

}  // namespace

void Arm(Kind kind, int skip, int count) {
    Countdown& c = g_countdowns[static_cast<int>(kind)];
    c.skip.store(skip);
    c.failures.store(count);
    c.armed.store(true);
}

void Disarm() {
    for (Countdown& c : g_countdowns) c.armed.store(false);
}

bool ShouldFail(Kind kind) {
    Countdown& c = g_countdowns[static_cast<int>(kind)];
    if (!c.armed.load(std::memory_order_relaxed)) return false;
    if (c.skip.fetch_sub(1) > 0) return false;
    return c.failures.fetch_sub(1) > 0;
}

}  // namespace nplat::fault

// Kernel events and waits in one synchronisation domain, driven by a clock
// that tests can replace.
//
// Every event shares one domain (one mutex and condition variable), which
// makes multi-object waits simple and exact: a wait looks at all its events
// atomically. With the real clock, timed waits expire on the monotonic clock;
// with a manual clock they expire only when a test advances it, and a test can
// wait until a given number of threads are blocked in the domain (idle).
//
// Closing an event that threads are still waiting on is safe: the event's
// memory lives until the last of those waits has left, and each such wait
// returns WAIT_FAILED at once (a closed event can never be set again, so
// waiting on would only hang). Using a handle after CloseHandle returned is a
// caller error that this layer cannot detect.
//
// Thread safety: every function may be called from any thread, except
// SetClock (see there).
#pragma once

#include <atomic>
#include <cstdint>

#include "ncodecbase/win_types.h"

namespace nplat {

// Milliseconds since an arbitrary origin.
class Clock {
  public:
    virtual ~Clock() = default;
    virtual uint64_t NowMs() = 0;
};

// A clock that moves only when told to. Install with SetClock.
class ManualClock : public Clock {
  public:
    explicit ManualClock(uint64_t startMs = 0);
    uint64_t NowMs() override;
    // Moves time forward and wakes every timed wait whose deadline passed.
    void Advance(uint64_t ms);

  private:
    std::atomic<uint64_t> m_nowMs;
};

// Installs `clock` for the whole domain (null restores the real monotonic
// clock). Any installed clock is treated as manual: timed waits re-read it
// only when the domain is woken, which ManualClock::Advance does. The caller
// keeps ownership; uninstall before destroying it. Timed waits (and sleeps)
// still in progress when the clock changes end at once with WAIT_TIMEOUT, so
// none keeps reading a clock that is gone; infinite waits are unaffected.
void SetClock(Clock* clock);
uint64_t GetTickCount64();
DWORD GetTickCount();

// Blocks the caller until at least `count` threads are waiting in the domain
// (WaitFor..., Sleep) or `realTimeoutMs` of real time pass; true if reached.
// A thread counts as waiting once it has looked at the current state of its
// events and clock and gone to sleep; any SetEvent, ResetEvent, CloseHandle
// or Advance makes every waiter look again before it counts once more, so a
// true result means "idle since the last change".
bool WaitUntilThreadsBlocked(int count, uint32_t realTimeoutMs = 5000);

// A new event, or null when memory runs out.
HANDLE CreateEvent(bool manualReset, bool initialState);
// false for a null or closed handle.
bool SetEvent(HANDLE event);
bool ResetEvent(HANDLE event);
bool CloseHandle(HANDLE event);
// WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED. Timeout 0 polls; INFINITE
// never times out.
DWORD WaitForSingleObject(HANDLE event, DWORD timeoutMs);
// WAIT_OBJECT_0 + index of the lowest signalled event (waitAll false), or
// WAIT_OBJECT_0 once all are signalled at the same moment (waitAll true; the
// auto-reset ones are then all consumed together). WAIT_FAILED for a null
// array or handle, a closed handle, the same handle twice, count 0 or above
// MAXIMUM_WAIT_OBJECTS.
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* events, bool waitAll, DWORD timeoutMs);
// Sleeps on the domain's clock (so a manual clock controls it too).
// Sleep(0) only yields.
void Sleep(DWORD ms);

}  // namespace nplat

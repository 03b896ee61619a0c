// Kernel events and waits in one synchronisation domain, driven by a clock
// that tests can replace.
//
// Every event shares one domain (one mutex and condition variable), which
// makes multi-object waits simple and exact: a wait looks at all its events
// atomically. With the real clock, timed waits expire on the monotonic clock;
// with a manual clock they expire only when a test advances it, and a test can
// wait until a given number of threads are blocked in the domain (idle).
#pragma once

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
    uint64_t m_nowMs;
};

// Installs `clock` for the whole domain (null restores the real monotonic
// clock). Only while no thread is waiting.
void SetClock(Clock* clock);
uint64_t GetTickCount64();
DWORD GetTickCount();

// Blocks the caller until at least `count` threads are waiting in the domain
// (WaitFor..., Sleep) or `realTimeoutMs` of real time pass; true if reached.
bool WaitUntilThreadsBlocked(int count, uint32_t realTimeoutMs = 5000);

HANDLE CreateEvent(bool manualReset, bool initialState);
bool SetEvent(HANDLE event);
bool ResetEvent(HANDLE event);
bool CloseHandle(HANDLE event);
DWORD WaitForSingleObject(HANDLE event, DWORD timeoutMs);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* events, bool waitAll, DWORD timeoutMs);
// Sleeps on the domain's clock (so a manual clock controls it too).
void Sleep(DWORD ms);

}  // namespace nplat

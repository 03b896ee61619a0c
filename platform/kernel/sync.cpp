// Events, waits and the replaceable clock of the synchronisation domain.
//
// One mutex guards every event and one condition variable wakes every waiter:
// a change to any event wakes all waits, and each looks at its own events
// again. That costs a few spurious wake-ups but keeps multi-object waits exact
// (all events of a wait are examined and consumed under the same lock) and
// lets a manual clock wake timed waits with the same broadcast.
//
// Idle detection counts sleeping waiters against a generation number: every
// change that could release a waiter starts a new generation and zeroes the
// count, so a waiter counts only once it has re-examined the latest state.
//
// Not here: mutexes, semaphores, waitable timers, APCs and alertable waits,
// WAIT_ABANDONED. Waiters are woken in no particular order, not FIFO.
#include "platform/kernel/sync.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/kernel/heap.h"

namespace nplat {

class Event {
  public:
    Event(bool manual, bool initial) : manualReset(manual), signalled(initial) {}

    const bool manualReset;
    bool signalled;
    bool closed = false;
    int refs = 1;  // the handle, plus one per wait in progress
};

namespace {

struct Domain {
    std::mutex mutex;
    std::condition_variable changed;  // waiters sleep here
    std::condition_variable idle;     // WaitUntilThreadsBlocked sleeps here
    uint64_t generation = 0;
    int blocked = 0;  // waiters asleep since the current generation began
    int observers = 0;
};

Domain& TheDomain() {
    static Domain domain;
    return domain;
}

std::atomic<Clock*> g_clock{nullptr};

uint64_t RealNowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// Something changed that may release a waiter. Caller holds the mutex.
void WakeAllLocked(Domain& d) {
    ++d.generation;
    d.blocked = 0;
    d.changed.notify_all();
}

void ReleaseLocked(Event* event) {
    if (--event->refs == 0) HeapDelete(event);
}

// Marks a wait that must go on sleeping.
constexpr DWORD kKeepWaiting = 0xFFFFFFFEu;

// Looks at the events once, consuming what a satisfied wait consumes.
DWORD TryAcquireLocked(DWORD count, Event* const* events, bool waitAll) {
    for (DWORD i = 0; i < count; ++i)
        if (events[i]->closed) return WAIT_FAILED;
    if (waitAll) {
        for (DWORD i = 0; i < count; ++i)
            if (!events[i]->signalled) return kKeepWaiting;
        for (DWORD i = 0; i < count; ++i)
            if (!events[i]->manualReset) events[i]->signalled = false;
        return count ? WAIT_OBJECT_0 : kKeepWaiting;
    }
    for (DWORD i = 0; i < count; ++i) {
        if (events[i]->signalled) {
            if (!events[i]->manualReset) events[i]->signalled = false;
            return WAIT_OBJECT_0 + i;
        }
    }
    return kKeepWaiting;
}

// When a timed wait ends, on whichever clock was installed when it began.
class Deadline {
  public:
    explicit Deadline(DWORD timeoutMs)
        : m_infinite(timeoutMs == INFINITE), m_clock(g_clock.load()) {
        if (m_clock)
            m_manualMs = m_clock->NowMs() + timeoutMs;
        else
            m_real = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    }

    // A timed wait that outlives its clock ends: the old clock may be gone.
    bool Passed() const {
        if (m_infinite) return false;
        if (g_clock.load() != m_clock) return true;
        if (m_clock) return m_clock->NowMs() >= m_manualMs;
        return std::chrono::steady_clock::now() >= m_real;
    }

    // A manual clock wakes us through the domain, so only real time needs a timer.
    void SleepOn(std::unique_lock<std::mutex>& lock, std::condition_variable& cv) const {
        if (m_infinite || m_clock)
            cv.wait(lock);
        else
            cv.wait_until(lock, m_real);
    }

  private:
    bool m_infinite;
    Clock* m_clock;
    uint64_t m_manualMs = 0;
    std::chrono::steady_clock::time_point m_real{};
};

DWORD WaitLocked(Domain& d, std::unique_lock<std::mutex>& lock, DWORD count, Event* const* events,
                 bool waitAll, DWORD timeoutMs) {
    DWORD result = TryAcquireLocked(count, events, waitAll);
    if (result != kKeepWaiting) return result;
    if (timeoutMs == 0) return WAIT_TIMEOUT;

    Deadline deadline(timeoutMs);
    for (DWORD i = 0; i < count; ++i) ++events[i]->refs;
    for (;;) {
        uint64_t myGeneration = d.generation;
        ++d.blocked;
        if (d.observers) d.idle.notify_all();
        deadline.SleepOn(lock, d.changed);
        if (d.generation == myGeneration) --d.blocked;

        result = TryAcquireLocked(count, events, waitAll);
        if (result != kKeepWaiting) break;
        if (deadline.Passed()) {
            result = WAIT_TIMEOUT;
            break;
        }
    }
    for (DWORD i = 0; i < count; ++i) ReleaseLocked(events[i]);
    return result;
}

bool ValidHandles(DWORD count, const HANDLE* events) {
    if (!events || count == 0 || count > MAXIMUM_WAIT_OBJECTS) return false;
    for (DWORD i = 0; i < count; ++i) {
        if (!events[i]) return false;
        for (DWORD j = 0; j < i; ++j)
            if (events[j] == events[i]) return false;
    }
    return true;
}

}  // namespace

ManualClock::ManualClock(uint64_t startMs) : m_nowMs(startMs) {}

uint64_t ManualClock::NowMs() { return m_nowMs.load(); }

void ManualClock::Advance(uint64_t ms) {
    Domain& d = TheDomain();
    std::lock_guard<std::mutex> lock(d.mutex);
    m_nowMs.fetch_add(ms);
    WakeAllLocked(d);
}

void SetClock(Clock* clock) {
    Domain& d = TheDomain();
    std::lock_guard<std::mutex> lock(d.mutex);
    g_clock.store(clock);
    WakeAllLocked(d);
}

uint64_t GetTickCount64() {
    Clock* clock = g_clock.load();
    return clock ? clock->NowMs() : RealNowMs();
}

DWORD GetTickCount() { return static_cast<DWORD>(GetTickCount64()); }

bool WaitUntilThreadsBlocked(int count, uint32_t realTimeoutMs) {
    Domain& d = TheDomain();
    std::unique_lock<std::mutex> lock(d.mutex);
    ++d.observers;
    bool reached = d.idle.wait_for(lock, std::chrono::milliseconds(realTimeoutMs),
                                   [&] { return d.blocked >= count; });
    --d.observers;
    return reached;
}

HANDLE CreateEvent(bool manualReset, bool initialState) {
    return HeapNew<Event>(manualReset, initialState);
}

bool SetEvent(HANDLE event) {
    if (!event) return false;
    Domain& d = TheDomain();
    std::lock_guard<std::mutex> lock(d.mutex);
    if (event->closed) return false;
    if (!event->signalled) {
        event->signalled = true;
        WakeAllLocked(d);
    }
    return true;
}

bool ResetEvent(HANDLE event) {
    if (!event) return false;
    Domain& d = TheDomain();
    std::lock_guard<std::mutex> lock(d.mutex);
    if (event->closed) return false;
    event->signalled = false;  // cannot release anyone, so no wake-up
    return true;
}

bool CloseHandle(HANDLE event) {
    if (!event) return false;
    Domain& d = TheDomain();
    std::lock_guard<std::mutex> lock(d.mutex);
    if (event->closed) return false;
    event->closed = true;
    if (event->refs > 1) WakeAllLocked(d);  // its waiters fail rather than hang
    ReleaseLocked(event);
    return true;
}

DWORD WaitForSingleObject(HANDLE event, DWORD timeoutMs) {
    return WaitForMultipleObjects(1, &event, false, timeoutMs);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* events, bool waitAll, DWORD timeoutMs) {
    if (!ValidHandles(count, events)) return WAIT_FAILED;
    Domain& d = TheDomain();
    std::unique_lock<std::mutex> lock(d.mutex);
    return WaitLocked(d, lock, count, events, waitAll, timeoutMs);
}

void Sleep(DWORD ms) {
    if (ms == 0) {
        std::this_thread::yield();
        return;
    }
    Domain& d = TheDomain();
    std::unique_lock<std::mutex> lock(d.mutex);
    WaitLocked(d, lock, 0, nullptr, false, ms);
}

}  // namespace nplat

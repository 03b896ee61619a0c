// Events and waits of the synchronisation domain: the Windows wait rules, the
// manual clock, idle detection, closing under a waiter, and the exported host
// helpers (through the shared library, which also proves they are exported).
#include "platform/kernel/sync.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ncodecbase/host_events.h"
#include "platform/kernel/fault.h"

namespace {

using namespace nplat;

constexpr uint32_t kRealTimeoutMs = 10000;  // only reached when something is broken

// Runs a wait on its own thread and keeps its result.
class AsyncWait {
  public:
    template <typename F>
    explicit AsyncWait(F wait)
        : m_thread([this, wait] {
              m_result.store(wait());
              m_done.store(true);
          }) {}
    ~AsyncWait() {
        if (m_thread.joinable()) m_thread.join();
    }
    bool Done() const { return m_done.load(); }
    DWORD Join() {
        if (m_thread.joinable()) m_thread.join();
        return m_result.load();
    }

  private:
    std::atomic<DWORD> m_result{0xDEADBEEF};
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

// Every test leaves the real clock installed and no fault armed.
class SyncTest : public ::testing::Test {
  protected:
    void TearDown() override {
        SetClock(nullptr);
        fault::Disarm();
        for (HANDLE e : m_events) CloseHandle(e);
    }
    HANDLE Make(bool manual, bool initial = false) {
        HANDLE e = CreateEvent(manual, initial);
        EXPECT_NE(e, nullptr);
        m_events.push_back(e);
        return e;
    }
    // For events a test closes itself.
    void Forget(HANDLE e) { std::erase(m_events, e); }

  private:
    std::vector<HANDLE> m_events;
};

TEST_F(SyncTest, InitialStateAndResetModes) {
    HANDLE autoSet = Make(false, true);
    HANDLE manualSet = Make(true, true);
    HANDLE autoClear = Make(false, false);
    EXPECT_EQ(WaitForSingleObject(autoClear, 0), WAIT_TIMEOUT);

    EXPECT_EQ(WaitForSingleObject(autoSet, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(autoSet, 0), WAIT_TIMEOUT);  // consumed by the wait

    EXPECT_EQ(WaitForSingleObject(manualSet, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(manualSet, 0), WAIT_OBJECT_0);  // stays set
    EXPECT_TRUE(ResetEvent(manualSet));
    EXPECT_EQ(WaitForSingleObject(manualSet, 0), WAIT_TIMEOUT);

    EXPECT_TRUE(SetEvent(autoClear));
    EXPECT_TRUE(SetEvent(autoClear));  // setting twice still gives one wake
    EXPECT_EQ(WaitForSingleObject(autoClear, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(autoClear, 0), WAIT_TIMEOUT);
}

// Every subset of four auto-reset events: the lowest signalled index wins and
// only that event is consumed.
class WaitAnyTest : public SyncTest, public ::testing::WithParamInterface<int> {};

TEST_P(WaitAnyTest, LowestSignalledIndexWinsAndOnlyItIsConsumed) {
    const int mask = GetParam();
    HANDLE events[4];
    for (int i = 0; i < 4; ++i) events[i] = Make(false, (mask >> i) & 1);
    int lowest = __builtin_ctz(mask);
    EXPECT_EQ(WaitForMultipleObjects(4, events, false, 0), WAIT_OBJECT_0 + lowest);
    for (int i = 0; i < 4; ++i) {
        bool stillSet = ((mask >> i) & 1) && i != lowest;
        EXPECT_EQ(WaitForSingleObject(events[i], 0), stillSet ? WAIT_OBJECT_0 : WAIT_TIMEOUT)
            << "event " << i;
    }
}
INSTANTIATE_TEST_SUITE_P(AllSubsets, WaitAnyTest, ::testing::Range(1, 16));

TEST_F(SyncTest, WaitAllConsumesNothingUntilAllAreSet) {
    HANDLE autoA = Make(false, true);
    HANDLE manualB = Make(true, false);
    HANDLE autoC = Make(false, true);
    HANDLE events[] = {autoA, manualB, autoC};
    EXPECT_EQ(WaitForMultipleObjects(3, events, true, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForMultipleObjects(1, &autoA, false, 0), WAIT_OBJECT_0);  // not consumed above
    SetEvent(autoA);

    SetEvent(manualB);
    EXPECT_EQ(WaitForMultipleObjects(3, events, true, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(autoA, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(autoC, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(manualB, 0), WAIT_OBJECT_0);
}

TEST_F(SyncTest, WaitAllBlocksOnPartialSetWithoutTakingIt) {
    HANDLE a = Make(false), b = Make(false);
    HANDLE events[] = {a, b};
    AsyncWait waiter([&] { return WaitForMultipleObjects(2, events, true, INFINITE); });
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));
    SetEvent(a);
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));  // looked again, still blocked
    EXPECT_FALSE(waiter.Done());
    SetEvent(b);
    EXPECT_EQ(waiter.Join(), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(a, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(b, 0), WAIT_TIMEOUT);
}

TEST_F(SyncTest, AutoResetWakesExactlyOneOfTwoWaiters) {
    HANDLE e = Make(false);
    HANDLE done = Make(false);
    std::atomic<int> woken{0};
    auto wait = [&] {
        DWORD r = WaitForSingleObject(e, INFINITE);
        woken.fetch_add(1);
        SetEvent(done);
        return r;
    };
    AsyncWait first(wait), second(wait);
    ASSERT_TRUE(WaitUntilThreadsBlocked(2, kRealTimeoutMs));
    SetEvent(e);
    ASSERT_EQ(WaitForSingleObject(done, kRealTimeoutMs), WAIT_OBJECT_0);
    // The other waiter has seen the event after the wake and went back to sleep.
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));
    EXPECT_EQ(woken.load(), 1);
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
    SetEvent(e);
    EXPECT_EQ(first.Join(), WAIT_OBJECT_0);
    EXPECT_EQ(second.Join(), WAIT_OBJECT_0);
    EXPECT_EQ(woken.load(), 2);
}

TEST_F(SyncTest, ManualResetReleasesEveryWaiter) {
    HANDLE e = Make(true);
    std::vector<std::unique_ptr<AsyncWait>> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.push_back(
            std::make_unique<AsyncWait>([&] { return WaitForSingleObject(e, INFINITE); }));
    ASSERT_TRUE(WaitUntilThreadsBlocked(3, kRealTimeoutMs));
    SetEvent(e);
    for (auto& w : waiters) EXPECT_EQ(w->Join(), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_OBJECT_0);
}

TEST_F(SyncTest, TimedWaitExpiresOnlyWhenManualClockReachesDeadline) {
    ManualClock clock(1000);
    SetClock(&clock);
    HANDLE e = Make(false);
    AsyncWait waiter([&] { return WaitForSingleObject(e, 100); });
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));
    clock.Advance(99);
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));
    EXPECT_FALSE(waiter.Done());
    clock.Advance(1);
    EXPECT_EQ(waiter.Join(), WAIT_TIMEOUT);
    EXPECT_EQ(GetTickCount64(), 1100u);
}

TEST_F(SyncTest, EventBeforeDeadlineWinsUnderManualClock) {
    ManualClock clock;
    SetClock(&clock);
    HANDLE stop = Make(true), wake = Make(false);
    HANDLE events[] = {stop, wake};
    AsyncWait waiter([&] { return WaitForMultipleObjects(2, events, false, 10); });
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));
    clock.Advance(5);
    SetEvent(wake);
    EXPECT_EQ(waiter.Join(), WAIT_OBJECT_0 + 1);
}

TEST_F(SyncTest, SleepFollowsManualClock) {
    ManualClock clock(0x1'0000'0005ull);
    SetClock(&clock);
    EXPECT_EQ(GetTickCount(), 5u);  // 32-bit view wraps like GetTickCount
    AsyncWait sleeper([] {
        Sleep(50);
        return DWORD{1};
    });
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));
    clock.Advance(49);
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));
    EXPECT_FALSE(sleeper.Done());
    clock.Advance(1);
    EXPECT_EQ(sleeper.Join(), 1u);
}

TEST_F(SyncTest, ReplacingTheClockEndsTimedWaitsButNotInfiniteOnes) {
    HANDLE e = Make(false);
    auto clock = std::make_unique<ManualClock>();
    SetClock(clock.get());
    AsyncWait timed([&] { return WaitForSingleObject(e, 1000); });
    AsyncWait infinite([&] { return WaitForSingleObject(e, INFINITE); });
    ASSERT_TRUE(WaitUntilThreadsBlocked(2, kRealTimeoutMs));
    SetClock(nullptr);
    clock.reset();
    EXPECT_EQ(timed.Join(), WAIT_TIMEOUT);
    ASSERT_TRUE(WaitUntilThreadsBlocked(1, kRealTimeoutMs));
    EXPECT_FALSE(infinite.Done());
    SetEvent(e);
    EXPECT_EQ(infinite.Join(), WAIT_OBJECT_0);
}

TEST_F(SyncTest, ZeroTimeoutPollsEvenUnderManualClock) {
    ManualClock clock;
    SetClock(&clock);
    HANDLE e = Make(false);
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
    Sleep(0);
}

TEST_F(SyncTest, RealClockTimedWaitLastsAtLeastItsTimeout) {
    HANDLE e = Make(false);
    auto start = std::chrono::steady_clock::now();
    uint64_t ticks = GetTickCount64();
    EXPECT_EQ(WaitForSingleObject(e, 20), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
    EXPECT_GE(GetTickCount64() - ticks, 19u);  // tick reads may straddle a millisecond
}

TEST_F(SyncTest, NotIdleWhileNobodyWaits) { EXPECT_FALSE(WaitUntilThreadsBlocked(1, 20)); }

TEST_F(SyncTest, ClosingAnEventFailsItsWaitersInsteadOfHangingThem) {
    HANDLE e = CreateEvent(false, false);
    HANDLE other = Make(false);
    HANDLE both[] = {other, e};
    AsyncWait single([&] { return WaitForSingleObject(e, INFINITE); });
    AsyncWait multi([&] { return WaitForMultipleObjects(2, both, false, INFINITE); });
    ASSERT_TRUE(WaitUntilThreadsBlocked(2, kRealTimeoutMs));
    EXPECT_TRUE(CloseHandle(e));
    EXPECT_EQ(single.Join(), WAIT_FAILED);
    EXPECT_EQ(multi.Join(), WAIT_FAILED);
}

struct BadWait {
    const char* name;
    DWORD count;
    int nullAt;  // index of a null handle, or -1
    bool duplicate;
    bool nullArray;
};

class WaitFailedTest : public SyncTest, public ::testing::WithParamInterface<BadWait> {};

TEST_P(WaitFailedTest, ReturnsWaitFailedAndConsumesNothing) {
    const BadWait& bad = GetParam();
    std::vector<HANDLE> events;
    for (DWORD i = 0; i < bad.count; ++i) events.push_back(Make(false, true));
    if (bad.nullAt >= 0) events[bad.nullAt] = nullptr;
    if (bad.duplicate) events[1] = events[0];
    const HANDLE* array = bad.nullArray ? nullptr : events.data();
    for (bool waitAll : {false, true})
        EXPECT_EQ(WaitForMultipleObjects(bad.count, array, waitAll, 0), WAIT_FAILED);
    if (bad.duplicate) events.erase(events.begin() + 1);
    for (HANDLE e : events) {
        if (!e) continue;
        EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_OBJECT_0);
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, WaitFailedTest,
                         ::testing::Values(BadWait{"ZeroCount", 0, -1, false, false},
                                           BadWait{"TooMany", MAXIMUM_WAIT_OBJECTS + 1, -1, false,
                                                   false},
                                           BadWait{"NullArray", 2, -1, false, true},
                                           BadWait{"NullFirst", 3, 0, false, false},
                                           BadWait{"NullLast", 3, 2, false, false},
                                           BadWait{"Duplicate", 3, -1, true, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SyncTest, MaximumWaitObjectsIsAccepted) {
    std::vector<HANDLE> events;
    for (DWORD i = 0; i < MAXIMUM_WAIT_OBJECTS; ++i) events.push_back(Make(true));
    SetEvent(events.back());
    EXPECT_EQ(WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, events.data(), false, 0),
              WAIT_OBJECT_0 + MAXIMUM_WAIT_OBJECTS - 1);
}

TEST_F(SyncTest, NullHandlesFail) {
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    EXPECT_FALSE(SetEvent(nullptr));
    EXPECT_FALSE(ResetEvent(nullptr));
    EXPECT_FALSE(CloseHandle(nullptr));
}

TEST_F(SyncTest, CreateFailsSoftlyWhenMemoryRunsOut) {
    fault::Scope noMemory(fault::Kind::kHeap, 0, 2);
    EXPECT_EQ(CreateEvent(true, false), nullptr);
    EXPECT_EQ(NCreateEvent(0, 0), nullptr);
}

// The host helpers, called through the shared library as a host would: this
// also checks they are exported and the internal layer is not.
class HostEventsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string path = std::string(NCB_BINARY_DIR) + "/libncodecbase.so";
        m_library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_library, nullptr) << dlerror();
    }
    void TearDown() override {
        if (m_library) dlclose(m_library);
    }
    template <typename F>
    F* Symbol(const char* mangled) {
        return reinterpret_cast<F*>(dlsym(m_library, mangled));
    }
    void* m_library = nullptr;
};

TEST_F(HostEventsTest, ExportedHelpersDriveEvents) {
    auto create = Symbol<decltype(NCreateEvent)>("_Z12NCreateEventii");
    auto set = Symbol<decltype(NSetEvent)>("_Z9NSetEventPN5nplat5EventE");
    auto reset = Symbol<decltype(NResetEvent)>("_Z11NResetEventPN5nplat5EventE");
    auto waitOne =
        Symbol<decltype(NWaitForSingleObject)>("_Z20NWaitForSingleObjectPN5nplat5EventEj");
    auto waitMany = Symbol<decltype(NWaitForMultipleObjects)>(
        "_Z23NWaitForMultipleObjectsjPKPN5nplat5EventEij");
    auto close = Symbol<decltype(NCloseHandle)>("_Z12NCloseHandlePN5nplat5EventE");
    ASSERT_TRUE(create && set && reset && waitOne && waitMany && close);
    EXPECT_EQ(dlsym(m_library, "_ZN5nplat8SetEventEPNS_5EventE"), nullptr);

    HANDLE manual = create(1, 0);
    HANDLE autoReset = create(0, 1);
    ASSERT_TRUE(manual && autoReset);
    HANDLE both[] = {manual, autoReset};
    EXPECT_EQ(waitMany(2, both, 0, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(waitMany(2, both, 0, 0), WAIT_TIMEOUT);
    EXPECT_EQ(set(manual), 1);
    EXPECT_EQ(waitOne(manual, 0), WAIT_OBJECT_0);
    EXPECT_EQ(waitMany(2, both, 1, 0), WAIT_TIMEOUT);
    EXPECT_EQ(reset(manual), 1);
    EXPECT_EQ(waitOne(manual, 0), WAIT_TIMEOUT);
    EXPECT_EQ(waitMany(0, both, 0, 0), WAIT_FAILED);
    EXPECT_EQ(set(nullptr), 0);
    EXPECT_EQ(close(manual), 1);
    EXPECT_EQ(close(autoReset), 1);
    EXPECT_EQ(close(nullptr), 0);
}

}  // namespace

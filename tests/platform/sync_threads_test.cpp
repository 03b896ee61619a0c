// Stress for the synchronisation domain, meant for ThreadSanitizer: many
// threads setting and waiting on auto-reset events, waits that race with
// CloseHandle and with a manual clock, and thread exits waited on together.
//
// The hand-off test proves that every set is consumed exactly once: each
// producer sets its own auto-reset event and waits for an acknowledgement
// before setting it again, so no set can be lost by coalescing, and the
// consumers (waiting on all producers at once) count what they took.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "platform/kernel/sync.h"
#include "platform/kernel/thread.h"

namespace {

using namespace nplat;

constexpr DWORD kRealTimeoutMs = 20000;  // only reached when something is broken

struct Channel {
    HANDLE item = CreateEvent(false, false);
    HANDLE ack = CreateEvent(false, false);
    std::atomic<int> sets{0};
    std::atomic<int> taken{0};
    ~Channel() {
        CloseHandle(item);
        CloseHandle(ack);
    }
};

// Consumers alternate between waiting for any item and, when asked, for all
// items at once, which must take every item of the set together.
class HandOffTest : public ::testing::TestWithParam<bool> {};

TEST_P(HandOffTest, EverySetIsConsumedExactlyOnce) {
    const bool mixWaitAll = GetParam();
    constexpr int kProducers = 4, kConsumers = 4, kRounds = 500;
    std::vector<std::unique_ptr<Channel>> channels;
    for (int i = 0; i < kProducers; ++i) channels.push_back(std::make_unique<Channel>());
    HANDLE stop = CreateEvent(true, false);
    std::vector<HANDLE> waitSet{stop};
    for (auto& c : channels) waitSet.push_back(c->item);
    std::atomic<int> overTaken{0};

    auto take = [&](int index) {
        Channel& c = *channels[index];
        if (c.taken.fetch_add(1) + 1 > c.sets.load()) overTaken.fetch_add(1);
        SetEvent(c.ack);
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kConsumers; ++t) {
        threads.emplace_back([&, t] {
            for (int n = 0;; ++n) {
                if (mixWaitAll && (n + t) % 3 == 0) {
                    DWORD r = WaitForMultipleObjects(kProducers, waitSet.data() + 1, true, 1);
                    if (r == WAIT_OBJECT_0)
                        for (int i = 0; i < kProducers; ++i) take(i);
                    if (WaitForSingleObject(stop, 0) == WAIT_OBJECT_0) return;
                    continue;
                }
                DWORD r = WaitForMultipleObjects(static_cast<DWORD>(waitSet.size()), waitSet.data(),
                                                 false, kRealTimeoutMs);
                if (r == WAIT_OBJECT_0) return;
                ASSERT_GT(r, WAIT_OBJECT_0);
                ASSERT_LE(r, WAIT_OBJECT_0 + kProducers);
                take(static_cast<int>(r - WAIT_OBJECT_0 - 1));
            }
        });
    }
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            Channel& c = *channels[p];
            for (int n = 0; n < kRounds; ++n) {
                c.sets.fetch_add(1);
                SetEvent(c.item);
                ASSERT_EQ(WaitForSingleObject(c.ack, kRealTimeoutMs), WAIT_OBJECT_0);
            }
        });
    }
    for (auto& t : producers) t.join();
    SetEvent(stop);
    for (auto& t : threads) t.join();

    EXPECT_EQ(overTaken.load(), 0);
    for (auto& c : channels) {
        EXPECT_EQ(c->taken.load(), kRounds);
        EXPECT_EQ(WaitForSingleObject(c->item, 0), WAIT_TIMEOUT);  // nothing left over
    }
    CloseHandle(stop);
}
INSTANTIATE_TEST_SUITE_P(WaitModes, HandOffTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "MixedWaitAll" : "WaitAny"; });

// Free-running sets coalesce, so consumers may take fewer than were made,
// never more.
TEST(SyncStress, FreeRunningSetsAreNeverConsumedTwice) {
    constexpr int kSetters = 4, kWaiters = 4, kSets = 2000;
    HANDLE e = CreateEvent(false, false);
    std::atomic<int> sets{0}, taken{0};
    std::atomic<bool> settersDone{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kWaiters; ++i) {
        threads.emplace_back([&] {
            while (!settersDone.load() || WaitForSingleObject(e, 0) == WAIT_OBJECT_0) {
                if (WaitForSingleObject(e, 1) == WAIT_OBJECT_0) {
                    int t = taken.fetch_add(1) + 1;
                    EXPECT_LE(t, sets.load());
                }
            }
        });
    }
    std::vector<std::thread> setters;
    for (int i = 0; i < kSetters; ++i) {
        setters.emplace_back([&] {
            for (int n = 0; n < kSets; ++n) {
                sets.fetch_add(1);
                SetEvent(e);
            }
        });
    }
    for (auto& t : setters) t.join();
    settersDone.store(true);
    for (auto& t : threads) t.join();
    EXPECT_GE(taken.load(), 1);
    EXPECT_LE(taken.load(), kSetters * kSets);
    CloseHandle(e);
}

// A set just before the close races with the waiters' wake-ups: each waiter
// either took the set or saw the close, none hangs, and an auto-reset set is
// taken at most once. (Waiting on a handle after closing it is a caller error,
// so every waiter is blocked before the close.)
TEST(SyncStress, CloseRacingWithASetReleasesEveryWaiter) {
    constexpr int kWaiters = 4;
    for (int round = 0; round < 40; ++round) {
        const bool manual = round % 2 == 0;
        HANDLE e = CreateEvent(manual, false);
        std::atomic<int> got{0}, failed{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < kWaiters; ++i) {
            waiters.emplace_back([&] {
                DWORD r = WaitForSingleObject(e, kRealTimeoutMs);
                (r == WAIT_OBJECT_0 ? got : failed).fetch_add(1);
            });
        }
        ASSERT_TRUE(WaitUntilThreadsBlocked(kWaiters, kRealTimeoutMs));
        SetEvent(e);
        CloseHandle(e);
        for (auto& t : waiters) t.join();
        EXPECT_EQ(got.load() + failed.load(), kWaiters);
        EXPECT_LE(got.load(), manual ? kWaiters : 1);
    }
}

TEST(SyncStress, ManualClockReleasesEveryTimedWaitAtItsDeadline) {
    ManualClock clock(0);
    SetClock(&clock);
    constexpr int kWaiters = 8;
    HANDLE never = CreateEvent(true, false);
    std::atomic<int> early{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.emplace_back([&, i] {
            DWORD timeout = 10 + 7 * i;
            for (int n = 0; n < 5; ++n) {
                uint64_t start = GetTickCount64();
                DWORD r = (n % 2) ? WaitForSingleObject(never, timeout) : (Sleep(timeout), 0u);
                if (GetTickCount64() < start + timeout) early.fetch_add(1);
                if (n % 2) {
                    EXPECT_EQ(r, WAIT_TIMEOUT);
                }
            }
        });
    }
    std::atomic<bool> done{false};
    std::thread joiner([&] {
        for (auto& t : waiters) t.join();
        done.store(true);
    });
    std::mt19937 rng(7);
    while (!done.load()) {
        clock.Advance(std::uniform_int_distribution<int>(1, 9)(rng));
        std::this_thread::yield();
    }
    joiner.join();
    SetClock(nullptr);
    EXPECT_EQ(early.load(), 0);
    CloseHandle(never);
}

DWORD Work(void* arg) {
    auto* counter = static_cast<std::atomic<int>*>(arg);
    return static_cast<DWORD>(counter->fetch_add(1));
}

TEST(ThreadStress, ExitsCanBeAwaitedTogether) {
    constexpr int kThreads = 16;
    std::atomic<int> counter{0};
    for (int round = 0; round < 10; ++round) {
        std::vector<ThreadPtr> threads;
        std::vector<HANDLE> exits;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back(Thread::Create(&Work, &counter, 256 * 1024));
            ASSERT_NE(threads.back(), nullptr);
            exits.push_back(threads.back()->ExitEvent());
        }
        ASSERT_EQ(WaitForMultipleObjects(kThreads, exits.data(), true, kRealTimeoutMs),
                  WAIT_OBJECT_0);
        std::vector<bool> seen(kThreads * 10, false);
        for (auto& t : threads) {
            DWORD code = STILL_ACTIVE;
            ASSERT_TRUE(t->GetExitCode(&code));
            ASSERT_LT(code, seen.size());
            EXPECT_FALSE(seen[code]);
            seen[code] = true;
        }
    }
    EXPECT_EQ(counter.load(), 10 * kThreads);
}

}  // namespace

// Threads: exit codes, exits that can be waited on with events, stack sizes
// the system really gives, priorities that land as nice values (or are
// refused quietly), self-destruction and failure on creation.
#include "platform/kernel/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/kernel/fault.h"
#include "platform/kernel/sync.h"

namespace {

using namespace nplat;

constexpr DWORD kRealTimeoutMs = 10000;  // only reached when something is broken

struct Gate {
    HANDLE go = CreateEvent(true, false);
    ~Gate() { CloseHandle(go); }
};

DWORD WaitThenReturn42(void* arg) {
    WaitForSingleObject(static_cast<Gate*>(arg)->go, INFINITE);
    return 42;
}

TEST(Thread, ExitCodeAndExitEventFollowTheStartFunction) {
    Gate gate;
    ThreadPtr thread(Thread::Create(&WaitThenReturn42, &gate));
    ASSERT_NE(thread, nullptr);
    DWORD code = 0;
    ASSERT_TRUE(thread->GetExitCode(&code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(WaitForSingleObject(thread->ExitEvent(), 0), WAIT_TIMEOUT);

    SetEvent(gate.go);
    ASSERT_EQ(WaitForSingleObject(thread->ExitEvent(), kRealTimeoutMs), WAIT_OBJECT_0);
    ASSERT_TRUE(thread->GetExitCode(&code));
    EXPECT_EQ(code, 42u);
    EXPECT_EQ(WaitForSingleObject(thread->ExitEvent(), 0), WAIT_OBJECT_0);  // stays set
    EXPECT_TRUE(thread->Join());
    EXPECT_TRUE(thread->Join());
    EXPECT_FALSE(thread->GetExitCode(nullptr));
}

TEST(Thread, ExitWaitsMixWithEventsInOneWait) {
    Gate gate;
    HANDLE stop = CreateEvent(true, false);
    ThreadPtr thread(Thread::Create(&WaitThenReturn42, &gate));
    ASSERT_NE(thread, nullptr);
    HANDLE events[] = {stop, thread->ExitEvent()};
    EXPECT_EQ(WaitForMultipleObjects(2, events, false, 0), WAIT_TIMEOUT);
    SetEvent(gate.go);
    EXPECT_EQ(WaitForMultipleObjects(2, events, false, kRealTimeoutMs), WAIT_OBJECT_0 + 1);
    CloseHandle(stop);
}

TEST(Thread, OwnerGoingOutOfScopeJoins) {
    std::atomic<bool> ran{false};
    {
        ThreadPtr thread(Thread::Create(
            [](void* arg) -> DWORD {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                static_cast<std::atomic<bool>*>(arg)->store(true);
                return 0;
            },
            &ran));
        ASSERT_NE(thread, nullptr);
    }
    EXPECT_TRUE(ran.load());
}

// The stack size the running thread really has.
size_t OwnStackSize() {
    pthread_attr_t attr;
    size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
        pthread_attr_getstacksize(&attr, &size);
        pthread_attr_destroy(&attr);
    }
    return size;
}

DWORD ReportStackSize(void* arg) {
    static_cast<std::atomic<size_t>*>(arg)->store(OwnStackSize());
    return 0;
}

class StackSizeTest : public ::testing::TestWithParam<size_t> {};

TEST_P(StackSizeTest, ThreadGetsAtLeastTheRequestedStack) {
    std::atomic<size_t> actual{0};
    ThreadPtr thread(Thread::Create(&ReportStackSize, &actual, GetParam()));
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(thread->Join());
    EXPECT_GE(actual.load(), GetParam());
    EXPECT_GE(actual.load(), static_cast<size_t>(PTHREAD_STACK_MIN));
}
INSTANTIATE_TEST_SUITE_P(Sizes, StackSizeTest,
                         ::testing::Values(1, 64 * 1024 + 1, 1024 * 1024, 8 * 1024 * 1024));

// Recursion whose frames cannot be folded away; records how deep the stack went.
struct Depth {
    uintptr_t top = 0;
    uintptr_t bottom = 0;
};

__attribute__((noinline)) int Recurse(int levels, Depth* depth) {
    volatile char frame[1024];
    frame[0] = static_cast<char>(levels);
    if (levels == 0) {
        depth->bottom = reinterpret_cast<uintptr_t>(&frame[0]);
        return frame[0];
    }
    return Recurse(levels - 1, depth) + frame[0];
}

DWORD DeepRecursion(void* arg) {
    auto* depth = static_cast<Depth*>(arg);
    volatile char marker = 0;
    depth->top = reinterpret_cast<uintptr_t>(&marker);
    return static_cast<DWORD>(Recurse(2500, depth) & 0xFF);
}

TEST(Thread, DeepRecursionRunsOnAnEightMegabyteStack) {
    Depth depth;
    ThreadPtr thread(Thread::Create(&DeepRecursion, &depth, 8 * 1024 * 1024));
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(thread->Join());
    EXPECT_GT(depth.top - depth.bottom, 2u * 1024 * 1024);  // far beyond a 1 MB stack
}

struct PriorityCase {
    int priority;
    int nice;
};

int NiceOfCallingThread() {
    errno = 0;
    return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
}

DWORD ReportNice(void* arg) {
    static_cast<std::atomic<int>*>(arg)->store(NiceOfCallingThread());
    return 0;
}

class PriorityTest : public ::testing::TestWithParam<PriorityCase> {};

// The system may refuse a higher priority to an unprivileged process; the
// thread must then still run, at the priority it inherited.
TEST_P(PriorityTest, WindowsPriorityBecomesNiceValueOrIsQuietlyRefused) {
    const PriorityCase& c = GetParam();
    const int inherited = NiceOfCallingThread();
    std::atomic<int> observed{1000};
    ThreadPtr thread(Thread::Create(&ReportNice, &observed, 0, c.priority));
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(thread->Join());
    EXPECT_EQ(Thread::NiceValueFor(c.priority), c.nice);
    EXPECT_EQ(thread->GetPriority(), c.priority);
    if (observed.load() != c.nice) {
        EXPECT_LT(c.nice, inherited) << "lowering priority is never refused";
        EXPECT_EQ(observed.load(), inherited);
    }
}
INSTANTIATE_TEST_SUITE_P(WindowsLevels, PriorityTest,
                         ::testing::Values(PriorityCase{THREAD_PRIORITY_IDLE, 19},
                                           PriorityCase{THREAD_PRIORITY_LOWEST, 10},
                                           PriorityCase{THREAD_PRIORITY_BELOW_NORMAL, 5},
                                           PriorityCase{THREAD_PRIORITY_NORMAL, 0},
                                           PriorityCase{THREAD_PRIORITY_ABOVE_NORMAL, -5},
                                           PriorityCase{THREAD_PRIORITY_HIGHEST, -10},
                                           PriorityCase{THREAD_PRIORITY_TIME_CRITICAL, -20}));

struct Reporter {
    Gate gate;
    std::atomic<int> nice{1000};
};

DWORD ReportNiceAfterGate(void* arg) {
    auto* reporter = static_cast<Reporter*>(arg);
    WaitForSingleObject(reporter->gate.go, INFINITE);
    reporter->nice.store(NiceOfCallingThread());
    return 0;
}

TEST(Thread, PriorityChangeReachesARunningThread) {
    Reporter reporter;
    const int inherited = NiceOfCallingThread();
    ThreadPtr thread(Thread::Create(&ReportNiceAfterGate, &reporter));
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(thread->SetPriority(THREAD_PRIORITY_IDLE));
    SetEvent(reporter.gate.go);
    ASSERT_TRUE(thread->Join());
    EXPECT_EQ(reporter.nice.load(), inherited > 19 ? inherited : 19);
    EXPECT_TRUE(thread->SetPriority(THREAD_PRIORITY_NORMAL));  // after the end: recorded only
}

struct SelfDestroy {
    Gate gate;
    std::atomic<Thread*> self{nullptr};
    std::atomic<pid_t> tid{0};
};

DWORD DestroyOwnObject(void* arg) {
    auto* state = static_cast<SelfDestroy*>(arg);
    state->tid.store(gettid());
    WaitForSingleObject(state->gate.go, INFINITE);
    Thread* self = state->self.load();
    EXPECT_FALSE(self->Join());
    Thread::Destroy(self);
    return 3;
}

TEST(Thread, AThreadMayDestroyItsOwnObject) {
    SelfDestroy state;
    Thread* thread = Thread::Create(&DestroyOwnObject, &state);
    ASSERT_NE(thread, nullptr);
    state.self.store(thread);
    SetEvent(state.gate.go);
    // The object is gone with the thread; watch the thread leave the process.
    while (state.tid.load() == 0) std::this_thread::yield();
    std::string task = "/proc/self/task/" + std::to_string(state.tid.load());
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::filesystem::exists(task) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_FALSE(std::filesystem::exists(task));
}

DWORD ReturnZero(void*) { return 0; }

TEST(Thread, CreationFailsSoftlyOnEveryAllocation) {
    int failures = 0;
    for (int skip = 0;; ++skip) {
        Thread* thread;
        {
            fault::Scope fail(fault::Kind::kHeap, skip);
            thread = Thread::Create(&ReturnZero, nullptr);
        }
        if (thread) {
            Thread::Destroy(thread);
            break;
        }
        ++failures;
        ASSERT_LT(skip, 10);
    }
    EXPECT_GE(failures, 1);
    EXPECT_EQ(Thread::Create(nullptr, nullptr), nullptr);
}

}  // namespace

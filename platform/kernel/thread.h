// Threads shaped like the Windows ones the renders were written for: a plain
// start function with one argument and a DWORD exit code, a stack size, a
// priority in Windows numbers, and an exit that can be waited on through the
// synchronisation domain (so a render can wait for its thread together with
// its events, on the domain's clock).
//
// Priorities map to nice values of the thread alone (Linux applies
// setpriority to a single thread id). Raising priority usually needs
// privileges; a refused change is ignored and the thread runs at whatever
// priority it has.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>

#include "ncodecbase/win_types.h"

namespace nplat {

using ThreadProc = DWORD (*)(void* arg);

class Thread {
  public:
    // Starts proc(arg) on a new thread. stackSize 0 takes the system default;
    // other sizes are rounded up to whole pages and to the system minimum.
    // Null when memory runs out or the system refuses the thread.
    static Thread* Create(ThreadProc proc, void* arg, size_t stackSize = 0,
                          int priority = THREAD_PRIORITY_NORMAL);
    // Waits for the thread to end and frees it. Called from the thread
    // itself, it detaches instead and the object goes when the thread ends.
    static void Destroy(Thread* thread);

    // Waits for the end and reaps the thread; true once joined (repeat calls
    // too). False from the thread itself, which cannot join itself.
    bool Join();
    // Manual-reset event, set once the start function has returned. Owned by
    // the thread object: wait on it, never set, reset or close it.
    HANDLE ExitEvent() const { return m_exitEvent; }
    // STILL_ACTIVE until the start function returns, then its result.
    // False only for a null `code`.
    bool GetExitCode(DWORD* code) const;
    // Records the priority and applies it if the system allows; always true
    // (a refused change is not an error).
    bool SetPriority(int priority);
    int GetPriority() const;

    // The nice value used for a Windows priority: IDLE 19, LOWEST 10,
    // BELOW_NORMAL 5, NORMAL 0, ABOVE_NORMAL -5, HIGHEST -10,
    // TIME_CRITICAL -20; numbers between the named ones take the nearer
    // named level towards normal.
    static int NiceValueFor(int priority);

    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

  private:
    Thread(ThreadProc proc, void* arg, int priority, HANDLE exitEvent);
    ~Thread();
    static void* Run(void* self);
    void Release();
    void ApplyPriorityLocked();

    ThreadProc m_proc;
    void* m_arg;
    HANDLE m_exitEvent;
    pthread_t m_thread{};
    // The owner holds one reference and the running thread another, so a
    // thread may destroy its own object and still finish cleanly.
    std::atomic<int> m_refs{2};
    std::atomic<DWORD> m_exitCode{STILL_ACTIVE};

    mutable std::mutex m_priorityMutex;
    int m_priority;
    pid_t m_tid = 0;  // kernel id while the start function runs, else 0

    std::mutex m_joinMutex;
    bool m_joined = false;
    bool m_detached = false;
};

struct ThreadDeleter {
    void operator()(Thread* thread) const { Thread::Destroy(thread); }
};
// Owns a thread; going out of scope joins it.
using ThreadPtr = std::unique_ptr<Thread, ThreadDeleter>;

}  // namespace nplat

// POSIX threads behind the Windows-shaped Thread. The exit is published
// through a manual-reset event of the synchronisation domain, so waits on a
// thread follow the domain's clock and mix with waits on events.
//
// Priority is applied by the new thread itself before it calls the start
// function (it alone knows its kernel id first), and later changes go through
// the same lock, so no change is lost or applied to a recycled id.
//
// Not here: suspend/resume, thread-local storage, affinity, real-time
// scheduling classes (SCHED_FIFO needs privileges the library cannot assume).
#include "platform/kernel/thread.h"

#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <new>

#include "platform/kernel/heap.h"
#include "platform/kernel/sync.h"
#include "platform/kernel/virtual_memory.h"

namespace nplat {

int Thread::NiceValueFor(int priority) {
    if (priority <= THREAD_PRIORITY_IDLE) return 19;
    if (priority >= THREAD_PRIORITY_TIME_CRITICAL) return -20;
    if (priority < THREAD_PRIORITY_LOWEST) return 10;
    if (priority > THREAD_PRIORITY_HIGHEST) return -10;
    return -5 * priority;
}

Thread::Thread(ThreadProc proc, void* arg, int priority, HANDLE exitEvent)
    : m_proc(proc), m_arg(arg), m_exitEvent(exitEvent), m_priority(priority) {}

Thread::~Thread() { CloseHandle(m_exitEvent); }

Thread* Thread::Create(ThreadProc proc, void* arg, size_t stackSize, int priority) {
    if (!proc) return nullptr;
    HANDLE exitEvent = CreateEvent(true, false);
    if (!exitEvent) return nullptr;
    void* memory = HeapAlloc(sizeof(Thread));
    if (!memory) {
        CloseHandle(exitEvent);
        return nullptr;
    }
    Thread* thread = new (memory) Thread(proc, arg, priority, exitEvent);

    pthread_attr_t attr;
    bool ok = pthread_attr_init(&attr) == 0;
    if (ok && stackSize) {
        const size_t minimum = static_cast<size_t>(PTHREAD_STACK_MIN);
        size_t size = stackSize < minimum ? minimum : stackSize;
        size = (size + kPageSize - 1) & ~(kPageSize - 1);
        ok = pthread_attr_setstacksize(&attr, size) == 0;
    }
    if (ok) ok = pthread_create(&thread->m_thread, &attr, &Thread::Run, thread) == 0;
    pthread_attr_destroy(&attr);
    if (!ok) {
        thread->~Thread();
        HeapFree(thread);
        return nullptr;
    }
    return thread;
}

void* Thread::Run(void* self) {
    Thread* thread = static_cast<Thread*>(self);
    {
        std::lock_guard<std::mutex> lock(thread->m_priorityMutex);
        thread->m_tid = gettid();
        thread->ApplyPriorityLocked();
    }
    DWORD code = thread->m_proc(thread->m_arg);
    {
        std::lock_guard<std::mutex> lock(thread->m_priorityMutex);
        thread->m_tid = 0;
    }
    thread->m_exitCode.store(code);
    SetEvent(thread->m_exitEvent);
    thread->Release();
    return nullptr;
}

void Thread::ApplyPriorityLocked() {
    if (m_tid == 0) return;
    // Refused (EACCES/EPERM without CAP_SYS_NICE): keep running as we are.
    (void)setpriority(PRIO_PROCESS, static_cast<id_t>(m_tid), NiceValueFor(m_priority));
}

void Thread::Release() {
    if (m_refs.fetch_sub(1) == 1) {
        this->~Thread();
        HeapFree(this);
    }
}

bool Thread::Join() {
    std::lock_guard<std::mutex> lock(m_joinMutex);
    if (m_joined) return true;
    if (m_detached || pthread_equal(pthread_self(), m_thread)) return false;
    if (pthread_join(m_thread, nullptr) != 0) return false;
    m_joined = true;
    return true;
}

void Thread::Destroy(Thread* thread) {
    if (!thread) return;
    if (pthread_equal(pthread_self(), thread->m_thread)) {
        std::lock_guard<std::mutex> lock(thread->m_joinMutex);
        if (!thread->m_detached) pthread_detach(thread->m_thread);
        thread->m_detached = true;
    } else {
        thread->Join();
    }
    thread->Release();
}

bool Thread::GetExitCode(DWORD* code) const {
    if (!code) return false;
    *code = m_exitCode.load();
    return true;
}

bool Thread::SetPriority(int priority) {
    std::lock_guard<std::mutex> lock(m_priorityMutex);
    m_priority = priority;
    ApplyPriorityLocked();
    return true;
}

int Thread::GetPriority() const {
    std::lock_guard<std::mutex> lock(m_priorityMutex);
    return m_priority;
}

}  // namespace nplat

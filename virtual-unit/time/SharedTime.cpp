// Virtual time for a process and all that it starts: a library to be preloaded. The first process, which
// finds the shared file empty, leads: when all threads of all of them wait, it moves the time to the earliest
// deadline among them and has the one thread woken that waits for it. Each other has an agent, a thread that
// wakes its fellows when it is told to.

#include "virtual-unit/time/Idleness.h"
#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/VirtualTime.h"
#include "virtual-unit/time/Waits.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace VirtualTime
{

namespace
{

constexpr std::size_t MOST_PROCESSES = 64;
constexpr std::int64_t SHORT_WHILE = 10'000'000; // nanoseconds
constexpr std::int64_t WITHOUT_WAITER = 200'000; // between two looks when nobody waits for a time

/// What a process tells the leader, and is told.
struct Process
{
    std::atomic<pid_t> id{0}; ///< 0: free
    std::atomic<std::int64_t> earliest{Waits::NEVER};
    std::atomic<std::uint32_t> orders{0}; ///< to wake the earliest
    std::atomic<std::uint32_t> done{0};
    std::atomic<bool> woken{false}; ///< by the last order
    std::atomic<bool> hasAgent{false};
};

/// The content of the file that VARIABLE names; all zero at first.
struct Shared
{
    Waits::Time time;
    std::atomic<pid_t> leader{0};
    std::array<Process, MOST_PROCESSES> processes;
};

Shared* shared = nullptr;
std::atomic<bool> joined{false};

void FutexWait(std::atomic<std::uint32_t>& word, std::uint32_t seen, const timespec* limit)
{
    syscall(SYS_futex, &word, FUTEX_WAIT, seen, limit, nullptr, 0);
}

void FutexWake(std::atomic<std::uint32_t>& word)
{
    syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

/// Takes the place of a process away that is gone. Of several that try one does it.
void Free(Process& process, pid_t gone)
{
    constexpr pid_t NOBODY = -1;
    if (process.id.compare_exchange_strong(gone, NOBODY))
    {
        process.earliest = Waits::NEVER;
        process.hasAgent = false;
        process.id = 0;
    }
}

void FreeDead()
{
    for (Process& process : shared->processes)
    {
        if (const pid_t id = process.id; id > 0 && !Idleness::IsAlive(id))
        {
            Free(process, id);
        }
    }
}

Process* ClaimFree()
{
    for (Process& process : shared->processes)
    {
        pid_t none = 0;
        if (process.id.compare_exchange_strong(none, getpid()))
        {
            return &process;
        }
    }
    return nullptr;
}

Process& Claim()
{
    Process* process = ClaimFree();
    if (process == nullptr)
    {
        FreeDead();
        process = ClaimFree();
    }
    if (process == nullptr)
    {
        std::fprintf(stderr, "virtual time: more than %zu processes\n", MOST_PROCESSES);
        std::abort();
    }
    return *process;
}

[[noreturn]] void Serve(Process& process)
{
    for (std::uint32_t seen = process.done;;)
    {
        FutexWait(process.orders, seen, nullptr);
        if (const std::uint32_t orders = process.orders; orders != seen)
        {
            seen = orders;
            process.woken = Waits::FireEarliest();
            process.done = seen;
            FutexWake(process.done);
        }
    }
}

/// Has a process wake its earliest. @return false when it did not
bool Order(Process& process)
{
    const pid_t id = process.id;
    const std::uint32_t order = ++process.orders;
    FutexWake(process.orders);
    while (process.done != order)
    {
        const timespec limit = {0, SHORT_WHILE};
        FutexWait(process.done, order - 1, &limit);
        if (process.done != order && (process.id != id || !Idleness::IsAlive(id)))
        {
            Free(process, id);
            return false;
        }
    }
    return process.woken;
}

bool WakeEarliest(const Process& own)
{
    Process& earliest = *std::ranges::min_element(
        shared->processes, {}, [](const Process& process) { return process.earliest.load(); });
    if (earliest.earliest == Waits::NEVER)
    {
        return false;
    }
    return &earliest == &own ? Waits::FireEarliest() : Order(earliest);
}

[[noreturn]] void Lead(const Process& own)
{
    Idleness threads(true);
    for (;;)
    {
        if (!threads.AllWait())
        {
            Waits::RealPause();
        }
        else if (!WakeEarliest(own))
        {
            Waits::RealPause(WITHOUT_WAITER);
        }
    }
}

void* Agent(void* process)
{
    Process& own = *static_cast<Process*>(process);
    own.hasAgent = true;
    if (shared->leader == getpid())
    {
        Lead(own);
    }
    Serve(own);
}

/// Before a thread of this process waits: from then on its deadline counts.
void Join()
{
    if (joined.exchange(true))
    {
        return;
    }
    Process& process = Claim();
    process.done = process.orders.load();
    Waits::place.earliest = &process.earliest;

    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // the agent takes no signals
    pthread_attr_t detached;
    pthread_attr_init(&detached);
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    pthread_t agent = {};
    if (pthread_create(&agent, &detached, Agent, &process) != 0)
    {
        std::fprintf(stderr, "virtual time: no thread\n");
        std::abort();
    }
    pthread_attr_destroy(&detached);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    while (!process.hasAgent)
    {
        sched_yield(); // a sleep would look as if there were nothing more to do
    }
}

void ForgetParent()
{
    joined = false;
    Waits::ForgetWaiters();
}

/// The shared memory; null: there is none, and time is real.
Shared* Open(const char* path)
{
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    void* const memory = fd >= 0 && ftruncate(fd, sizeof(Shared)) == 0
                             ? mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                             : MAP_FAILED;
    close(fd);
    if (memory == MAP_FAILED)
    {
        std::fprintf(stderr, "virtual time: %s cannot be used, time is real\n", path);
        return nullptr;
    }
    return static_cast<Shared*>(memory);
}

/// The descriptor behind a path "/proc/PID/fd/N" is for this process: what it executes opens the file.
void KeepDescriptor(std::string_view path)
{
    int fd = -1;
    std::from_chars(path.data() + path.rfind('/') + 1, path.data() + path.size(), fd);
    fcntl(fd, F_SETFD, FD_CLOEXEC);
}

__attribute__((constructor)) void Begin()
{
    const char* const path = std::getenv(VARIABLE); // NOLINT(concurrency-mt-unsafe): there is no other thread
    shared = path == nullptr ? nullptr : Open(path);
    if (shared == nullptr)
    {
        return;
    }
    pid_t none = 0;
    const bool leads = shared->leader.compare_exchange_strong(none, getpid());
    if (leads)
    {
        KeepDescriptor(path);
        // NOLINTNEXTLINE(concurrency-mt-unsafe): as above
        if (const char* const preloaded = std::getenv(PRELOAD); preloaded != nullptr)
        {
            KeepDescriptor(std::string_view(preloaded, std::strcspn(preloaded, ":")));
        }
        for (Process& process : shared->processes)
        {
            process.earliest = Waits::NEVER;
        }
        shared->time.startMonotonic = Waits::RealNow(CLOCK_MONOTONIC);
        shared->time.wallAtStart = Waits::RealNow(CLOCK_REALTIME);
        shared->time.on = true;
    }
    for (Process& process : shared->processes)
    {
        Free(process, getpid()); // the program that this process was before
    }
    Waits::place.time = &shared->time;
    Waits::place.beforeWait = Join;
    pthread_atfork(nullptr, nullptr, ForgetParent);
    if (leads)
    {
        Join();
    }
}

}

}

STAND_IN bool VirtualUnitTimeIsVirtual()
{
    return VirtualTime::shared != nullptr;
}

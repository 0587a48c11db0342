#include "virtual-unit/time/Waits.h"

#include "virtual-unit/time/Real.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <tuple>
#include <unistd.h>

namespace VirtualTime::Waits
{

namespace
{

constexpr int HIGH_DESCRIPTOR = 700; // out of the way of tests that count on low numbers

constinit Time ownTime;
constinit std::atomic<std::int64_t> ownEarliest{NEVER};

/// One thread that waits; lives on its stack.
struct Waiter
{
    explicit Waiter(std::int64_t when) : deadline(when) {}

    std::int64_t deadline;
    long thread = syscall(SYS_gettid);   ///< of two with one deadline the older thread comes first
    pthread_cond_t* condition = nullptr; ///< a condition wait
    pthread_mutex_t* mutex = nullptr;
    int event = -1;         ///< a wait for descriptors
    sem_t* sleep = nullptr; ///< a plain sleep
    std::atomic<bool> fired{false};
    Waiter* next = nullptr;
};

/// A real lock, below everything that the process's own locks may be doing.
class CoreLock
{
public:
    CoreLock() { REAL_CALL(pthread_mutex_lock)(&mutex); }

    ~CoreLock() { REAL_CALL(pthread_mutex_unlock)(&mutex); }

    CoreLock(const CoreLock&) = delete;
    CoreLock& operator=(const CoreLock&) = delete;

    static pthread_mutex_t mutex;
};

pthread_mutex_t CoreLock::mutex = PTHREAD_MUTEX_INITIALIZER;

Waiter* waiters = nullptr; // under CoreLock, in the order in which they came
std::array<std::atomic<int>, 64> terminals{};

Waiter* Earliest()
{
    Waiter* earliest = nullptr;
    for (Waiter* waiter = waiters; waiter != nullptr; waiter = waiter->next)
    {
        if (!waiter->fired && (earliest == nullptr || std::tie(waiter->deadline, waiter->thread) <
                                                          std::tie(earliest->deadline, earliest->thread)))
        {
            earliest = waiter;
        }
    }
    return earliest;
}

void TellEarliest()
{
    const Waiter* const earliest = Earliest();
    *place.earliest.load() = earliest == nullptr ? NEVER : earliest->deadline;
}

void Add(Waiter& waiter)
{
    if (place.beforeWait != nullptr)
    {
        place.beforeWait();
    }
    const CoreLock lock;
    Waiter** end = &waiters;
    while (*end != nullptr)
    {
        end = &(*end)->next;
    }
    *end = &waiter;
    TellEarliest();
}

Wake Finish(Waiter& waiter)
{
    const CoreLock lock;
    Waiter** link = &waiters;
    while (*link != &waiter)
    {
        link = &(*link)->next;
    }
    *link = waiter.next;
    TellEarliest();
    return waiter.fired ? Wake::Deadline : Wake::Event;
}

/// Wakes a waiter. False when its mutex is held: it, or another thread, is on its way.
bool Fire(Waiter& waiter)
{
    if (waiter.condition != nullptr)
    {
        if (pthread_mutex_trylock(waiter.mutex) != 0)
        {
            return false;
        }
        waiter.fired = true;
        pthread_cond_broadcast(waiter.condition);
        pthread_mutex_unlock(waiter.mutex);
        return true;
    }
    waiter.fired = true;
    if (waiter.event >= 0)
    {
        const std::uint64_t one = 1;
        syscall(SYS_write, waiter.event, &one, sizeof one);
    }
    else
    {
        sem_post(waiter.sleep);
    }
    return true;
}

}

Place place = {&ownTime, &ownEarliest, nullptr};

bool Virtual()
{
    return place.time->on.load();
}

std::int64_t Monotonic()
{
    const Time& time = *place.time;
    return time.on ? time.startMonotonic + time.passed : RealNow(CLOCK_MONOTONIC) + time.leftBehind;
}

std::int64_t Wall()
{
    return place.time->wallAtStart + place.time->passed;
}

std::int64_t RealNow(clockid_t clock)
{
    timespec now = {};
    REAL_CALL(clock_gettime)(clock, &now);
    return now.tv_sec * NANOSECONDS + now.tv_nsec;
}

Wake SleepUntil(std::int64_t monotonic)
{
    sem_t sleep;
    sem_init(&sleep, 0, 0);
    Waiter waiter(monotonic);
    waiter.sleep = &sleep;
    Add(waiter);
    sem_wait(&sleep); // a handler that runs ends it, as it ends nanosleep and its kin
    const Wake wake = Finish(waiter);
    sem_destroy(&sleep);
    return wake == Wake::Deadline ? wake : Wake::Signal;
}

Wake WaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, std::int64_t monotonic)
{
    Waiter waiter(monotonic);
    waiter.condition = condition;
    waiter.mutex = mutex;
    Add(waiter);
    pthread_cond_wait(condition, mutex);
    return Finish(waiter);
}

Wake WaitDescriptors(pollfd* fds, nfds_t count, std::int64_t monotonic, const sigset_t* mask, int& ready)
{
    constexpr nfds_t MOST = 64;
    std::array<pollfd, MOST + 1> all{};
    if (count > MOST)
    {
        std::fprintf(stderr, "virtual time: a wait for more than 64 descriptors\n");
        std::abort();
    }
    std::copy_n(fds, count, all.begin()); // none at all: fds may be null
    // By plain system calls from first to last: a sanitizer that saw the descriptor come but not go would
    // take its next owner for a racing one.
    const int low = static_cast<int>(syscall(SYS_eventfd2, 0, EFD_CLOEXEC));
    const int event = static_cast<int>(syscall(SYS_fcntl, low, F_DUPFD_CLOEXEC, HIGH_DESCRIPTOR));
    syscall(SYS_close, low);
    all[count] = {event, POLLIN, 0};

    Waiter waiter(monotonic);
    waiter.event = event;
    Add(waiter);
    const int result = REAL_CALL(ppoll)(all.data(), count + 1, nullptr, mask);
    const int error = errno;
    const Wake wake = Finish(waiter);
    syscall(SYS_close, event);
    if (result < 0)
    {
        ready = -1;
        errno = error;
        return Wake::Signal;
    }
    ready = REAL_CALL(poll)(fds, count, 0);
    return wake;
}

bool FireEarliest()
{
    const CoreLock lock;
    Waiter* const earliest = Earliest();
    if (earliest == nullptr)
    {
        return false;
    }
    Time& time = *place.time;
    const std::int64_t due = earliest->deadline - time.startMonotonic;
    const std::int64_t before = time.passed;
    time.passed = std::max(due, before);
    if (!Fire(*earliest))
    {
        time.passed = before;
        return false;
    }
    TellEarliest();
    return true;
}

void FireAll()
{
    const CoreLock lock;
    for (Waiter* waiter = waiters; waiter != nullptr; waiter = waiter->next)
    {
        if (!waiter->fired)
        {
            Fire(*waiter);
        }
    }
    TellEarliest();
}

bool SomebodyWaits()
{
    const CoreLock lock;
    return waiters != nullptr;
}

void ForgetWaiters()
{
    CoreLock::mutex = PTHREAD_MUTEX_INITIALIZER;
    waiters = nullptr;
}

void AddTerminal(int fd)
{
    for (auto& terminal : terminals)
    {
        int none = 0;
        if (terminal.compare_exchange_strong(none, fd))
        {
            return;
        }
    }
}

void RemoveTerminal(int fd)
{
    for (auto& terminal : terminals)
    {
        int present = fd;
        terminal.compare_exchange_strong(present, 0);
    }
}

void DeliverTerminals()
{
    for (auto& terminal : terminals)
    {
        const int fd = terminal.load();
        if (fd > 0)
        {
            // A look at a terminal delivers what is still on its way through the kernel.
            pollfd look = {fd, POLLIN, 0};
            REAL_CALL(poll)(&look, 1, 0);
        }
    }
}

void RealPause(std::int64_t nanoseconds)
{
    timespec pause = {0, static_cast<long>(nanoseconds)};
    syscall(SYS_nanosleep, &pause, nullptr);
}

}

#include "tests/kit/Clock.h"

#include "tests/kit/ClockCore.h"
#include "tests/kit/Real.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Kit
{

namespace
{

constexpr std::int64_t NANOSECONDS = 1'000'000'000;
constexpr int HIGH_DESCRIPTOR = 700; // out of the way of tests that count on low numbers

std::int64_t RealNow(clockid_t clock)
{
    timespec now = {};
    KIT_REAL(clock_gettime)(clock, &now);
    return now.tv_sec * NANOSECONDS + now.tv_nsec;
}

/// One thread that waits; lives on its stack.
struct Waiter
{
    std::int64_t deadline = 0;
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
    CoreLock() { KIT_REAL(pthread_mutex_lock)(&mutex); }

    ~CoreLock() { KIT_REAL(pthread_mutex_unlock)(&mutex); }

    CoreLock(const CoreLock&) = delete;
    CoreLock& operator=(const CoreLock&) = delete;

private:
    static pthread_mutex_t mutex;
};

pthread_mutex_t CoreLock::mutex = PTHREAD_MUTEX_INITIALIZER;

std::atomic<bool> on{false};
std::atomic<bool> ending{false};
std::atomic<std::int64_t> startMonotonic{0};
std::atomic<std::int64_t> passed{0};     // virtual nanoseconds since the start
std::atomic<std::int64_t> leftBehind{0}; // how far virtual time has run ahead of the real one so far
std::atomic<std::int64_t> wallAtStart{0};
Waiter* waiters = nullptr; // under CoreLock, in the order in which they came
std::array<std::atomic<int>, 64> terminals{};
pthread_t ticker = {};
std::atomic<pid_t> tickerId{0};

void Add(Waiter& waiter)
{
    const CoreLock lock;
    Waiter** end = &waiters;
    while (*end != nullptr)
    {
        end = &(*end)->next;
    }
    *end = &waiter;
}

void Remove(Waiter& waiter)
{
    const CoreLock lock;
    for (Waiter** place = &waiters; *place != nullptr; place = &(*place)->next)
    {
        if (*place == &waiter)
        {
            *place = waiter.next;
            return;
        }
    }
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

bool FireEarliest()
{
    const CoreLock lock;
    Waiter* earliest = nullptr;
    for (Waiter* waiter = waiters; waiter != nullptr; waiter = waiter->next)
    {
        if (!waiter->fired && (earliest == nullptr || waiter->deadline < earliest->deadline))
        {
            earliest = waiter;
        }
    }
    if (earliest == nullptr)
    {
        return false;
    }
    const std::int64_t due = earliest->deadline - startMonotonic;
    const std::int64_t before = passed;
    if (due > before)
    {
        passed = due;
    }
    if (!Fire(*earliest))
    {
        passed = before;
        return false;
    }
    return true;
}

bool SomebodyWaits()
{
    const CoreLock lock;
    return waiters != nullptr;
}

/// A look at a terminal delivers what is still on its way through the kernel.
void DeliverTerminals()
{
    for (auto& terminal : terminals)
    {
        const int fd = terminal.load();
        if (fd > 0)
        {
            pollfd look = {fd, POLLIN, 0};
            KIT_REAL(poll)(&look, 1, 0);
        }
    }
}

/**
 * How often the threads of the process have been put on a processor so far, the ticker left out.
 * @return -1 when one of them runs, or is about to
 */
std::int64_t TurnsOfSleepers()
{
    std::int64_t turns = 0;
    const int directory =
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, "/proc/self/task", O_RDONLY | O_DIRECTORY));
    if (directory < 0)
    {
        return -1;
    }
    alignas(8) std::array<char, 4096> entries{};
    bool busy = false;
    long bytes = 0;
    while (!busy && (bytes = syscall(SYS_getdents64, directory, entries.data(), entries.size())) > 0)
    {
        for (long at = 0; at < bytes && !busy;)
        {
            std::uint16_t size = 0;
            std::memcpy(&size, entries.data() + at + 16, sizeof size);
            const char* const name = entries.data() + at + 19;
            at += size;
            if (name[0] == '.' || std::atoi(name) == tickerId)
            {
                continue;
            }
            std::array<char, 64> path{};
            std::array<char, 512> text{};
            const auto look = [&](const char* file) {
                std::snprintf(path.data(), path.size(), "%s/%s", name, file);
                const int fd = static_cast<int>(syscall(SYS_openat, directory, path.data(), O_RDONLY));
                const long length = fd < 0 ? -1 : syscall(SYS_read, fd, text.data(), text.size() - 1);
                if (fd >= 0)
                {
                    syscall(SYS_close, fd);
                }
                text[static_cast<std::size_t>(length > 0 ? length : 0)] = '\0';
                return length > 0;
            };
            if (!look("stat"))
            {
                continue; // the thread has just ended
            }
            const char* const state = std::strrchr(text.data(), ')');
            if (state != nullptr && state[1] == ' ' && state[2] != 'S' && state[2] != 'Z' && state[2] != 'X')
            {
                busy = true;
                continue;
            }
            long long ran = 0;
            long long waited = 0;
            long long slices = 0;
            if (look("schedstat") && std::sscanf(text.data(), "%lld %lld %lld", &ran, &waited, &slices) == 3)
            {
                turns += slices;
            }
        }
    }
    syscall(SYS_close, directory);
    return busy ? -1 : turns;
}

bool AllWait()
{
    const std::int64_t before = TurnsOfSleepers();
    if (before < 0)
    {
        return false;
    }
    DeliverTerminals();
    return TurnsOfSleepers() == before;
}

void RealPause()
{
    timespec pause = {0, 20'000};
    syscall(SYS_nanosleep, &pause, nullptr);
}

void* Tick(void*)
{
    tickerId = static_cast<pid_t>(syscall(SYS_gettid));
    while (!ending)
    {
        if (!SomebodyWaits() || !AllWait() || !FireEarliest())
        {
            RealPause();
        }
    }
    return nullptr;
}

}

namespace ClockCore
{

bool Virtual()
{
    return on.load();
}

std::int64_t Monotonic()
{
    return on ? startMonotonic + passed : RealNow(CLOCK_MONOTONIC) + leftBehind;
}

std::int64_t Wall()
{
    return wallAtStart + passed;
}

namespace
{

Wake Finish(Waiter& waiter)
{
    Remove(waiter);
    return waiter.fired ? Wake::Deadline : Wake::Event;
}

}

Wake SleepUntil(std::int64_t monotonic)
{
    sem_t sleep;
    sem_init(&sleep, 0, 0);
    Waiter waiter;
    waiter.deadline = monotonic;
    waiter.sleep = &sleep;
    Add(waiter);
    sem_wait(&sleep); // a handler that runs ends it, as it ends nanosleep and its kin
    const Wake wake = Finish(waiter);
    sem_destroy(&sleep);
    return wake == Wake::Deadline ? wake : Wake::Signal;
}

Wake WaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, std::int64_t monotonic)
{
    Waiter waiter;
    waiter.deadline = monotonic;
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
        std::fprintf(stderr, "kit: a wait for more than 64 descriptors\n");
        std::abort();
    }
    std::copy_n(fds, count, all.begin()); // none at all: fds may be null
    // By plain system calls from first to last: a sanitizer that saw the descriptor come but not go would
    // take its next owner for a racing one.
    const int low = static_cast<int>(syscall(SYS_eventfd2, 0, EFD_CLOEXEC));
    const int event = static_cast<int>(syscall(SYS_fcntl, low, F_DUPFD_CLOEXEC, HIGH_DESCRIPTOR));
    syscall(SYS_close, low);
    all[count] = {event, POLLIN, 0};

    Waiter waiter;
    waiter.deadline = monotonic;
    waiter.event = event;
    Add(waiter);
    const int result = KIT_REAL(ppoll)(all.data(), count + 1, nullptr, mask);
    const int error = errno;
    const Wake wake = Finish(waiter);
    syscall(SYS_close, event);
    if (result < 0)
    {
        ready = -1;
        errno = error;
        return Wake::Signal;
    }
    ready = KIT_REAL(poll)(fds, count, 0);
    return wake;
}

}

Clock::Clock()
{
    startMonotonic = ClockCore::Monotonic();
    passed = 0;
    wallAtStart = START * NANOSECONDS;
    ending = false;
    tickerId = 0;
    on = true;
    pthread_create(&ticker, nullptr, Tick, nullptr);
    while (tickerId == 0)
    {
        RealPause();
    }
}

Clock::~Clock()
{
    ending = true;
    pthread_join(ticker, nullptr);
    leftBehind = ClockCore::Monotonic() - RealNow(CLOCK_MONOTONIC);
    on = false;
    // Whoever still sleeps sleeps no longer.
    bool left = true;
    while (left)
    {
        {
            const CoreLock lock;
            left = waiters != nullptr;
            for (Waiter* waiter = waiters; waiter != nullptr; waiter = waiter->next)
            {
                if (!waiter->fired)
                {
                    Fire(*waiter);
                }
            }
        }
        if (left)
        {
            RealPause();
        }
    }
}

std::chrono::nanoseconds Clock::Elapsed()
{
    return std::chrono::nanoseconds(passed.load());
}

void Clock::SetWallClock(std::time_t seconds)
{
    wallAtStart = seconds * NANOSECONDS - passed;
}

bool Clock::WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    constexpr std::chrono::milliseconds STEP{5};
    for (auto waited = std::chrono::milliseconds::zero(); waited < limit; waited += STEP)
    {
        if (condition())
        {
            return true;
        }
        ClockCore::SleepUntil(ClockCore::Monotonic() + std::chrono::nanoseconds(STEP).count());
    }
    return condition();
}

void Clock::AddTerminal(int fd)
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

void Clock::RemoveTerminal(int fd)
{
    for (auto& terminal : terminals)
    {
        int present = fd;
        terminal.compare_exchange_strong(present, 0);
    }
}

}

// Waits for what other threads do: conditions, semaphores, futexes, mutexes, other threads. In virtual time
// those with a deadline wait in a list of this process, and whoever makes true what they wait for announces
// it there as well; conditions always do, so that a signal goes to the one that waits longest. In real time
// all of them are the C library's own.
//
// What another process may announce, or the C library in its inside, is looked for each millisecond as well.

#include "virtual-unit/time/Calls.h"
#include "virtual-unit/time/Mapping.h"
#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/ShortTimes.h"
#include "virtual-unit/time/Waits.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <linux/futex.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <threads.h>

using namespace VirtualTime;

// The real declarations carry attributes that a definition elsewhere does not repeat.
#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"
#pragma GCC diagnostic ignored "-Wnonnull-compare"

namespace
{

constexpr std::int64_t LOOK_INTERVAL = 1'000'000; // nanoseconds

/**
 * Tries until it succeeds, the deadline has come, or a signal was handled.
 * @param announced by this process alone, each time when the attempt may succeed
 * @param attempt   true: it is over
 */
template <class Attempt>
Waits::Wake TryUntil(const void* object, std::int64_t deadline, bool announced, Attempt attempt)
{
    while (!attempt())
    {
        const std::int64_t now = Waits::Monotonic();
        if (now >= deadline)
        {
            return Waits::Wake::Deadline;
        }
        Waits::Wake wake = Waits::Wake::Event;
        {
            Waits::ObjectWait wait(object, announced ? deadline : std::min(deadline, now + LOOK_INTERVAL));
            if (attempt())
            {
                return Waits::Wake::Event;
            }
            wake = wait.Wait();
        }
        if (wake == Waits::Wake::Signal)
        {
            return wake;
        }
    }
    return Waits::Wake::Event;
}

/// Unlocks, and tells those who wait for the mutex with a deadline.
int Unlock(pthread_mutex_t* mutex)
{
    const int error = REAL_CALL(pthread_mutex_unlock)(mutex);
    Waits::ObjectWait::Announce(mutex, 1);
    return error;
}

int Unlock(mtx_t* mutex)
{
    const int result = REAL_CALL(mtx_unlock)(mutex);
    Waits::ObjectWait::Announce(mutex, 1);
    return result;
}

void Lock(pthread_mutex_t* mutex)
{
    REAL_CALL(pthread_mutex_lock)(mutex);
}

void Lock(mtx_t* mutex) // by its own name: to the thread sanitizer the other one would be another mutex
{
    REAL_CALL(mtx_lock)(mutex);
}

/// A mutex that is unlocked meanwhile, also when the thread is cancelled.
template <class Mutex>
class Unlocked
{
public:
    explicit Unlocked(Mutex* which) : mutex(which), error(Unlock(which)) {}

    ~Unlocked()
    {
        if (error == 0)
        {
            Lock(mutex);
        }
    }

    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

    int Error() const { return error; }

private:
    Mutex* mutex;
    int error;
};

/// @param deadline by the monotonic clock @return as pthread_cond_timedwait()
template <class Mutex>
int WaitForCondition(pthread_cond_t* condition, Mutex* mutex, std::int64_t deadline)
{
    constexpr unsigned int SHARED = 1; // of the C library, in the lowest bit: other processes may signal it
    const bool announced = (condition->__data.__wrefs & SHARED) == 0;
    const std::int64_t limit = announced ? deadline : std::min(deadline, Waits::Monotonic() + LOOK_INTERVAL);
    Waits::Wake wake = Waits::Wake::Event;
    {
        Waits::ObjectWait wait(condition, limit);
        const Unlocked<Mutex> unlocked(mutex);
        if (unlocked.Error() != 0)
        {
            return unlocked.Error();
        }
        wake = wait.Wait();
    }
    pthread_testcancel();
    return wake == Waits::Wake::Deadline && Waits::Monotonic() >= deadline ? ETIMEDOUT : 0;
}

/// A deadline for the C library's own, in real time: it may come from a virtual time that ran ahead.
timespec RealDeadline(clockid_t clock, const timespec& deadline)
{
    if (clock == CLOCK_REALTIME)
    {
        return deadline;
    }
    const std::int64_t ahead = Waits::Monotonic() - Waits::RealNow(CLOCK_MONOTONIC);
    return ToTimespec(ToNanoseconds(deadline) - ahead);
}

clockid_t ClockOf(const pthread_cond_t* condition)
{
    constexpr unsigned int MONOTONIC = 2; // of the C library, beside the bit above
    return (condition->__data.__wrefs & MONOTONIC) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

template <class Try>
int LockUntil(const void* object, bool announced, clockid_t clock, const timespec* deadline, Try attempt)
{
    int error = attempt();
    if (error != EBUSY)
    {
        return error;
    }
    if (!IsNanosecond(*deadline))
    {
        return EINVAL;
    }
    Waits::Wake wake = Waits::Wake::Signal;
    while (wake == Waits::Wake::Signal)
    {
        wake = TryUntil(object, Calls::Deadline(clock, *deadline), announced, [&] {
            error = attempt();
            return error != EBUSY;
        });
    }
    return wake == Waits::Wake::Deadline ? ETIMEDOUT : error;
}

// What follows the C library keeps to itself: whether other processes may use an object, too.

bool IsShared(const pthread_mutex_t* mutex)
{
    constexpr int SHARED = 128;
    return (mutex->__data.__kind & SHARED) != 0;
}

bool IsShared(const pthread_rwlock_t* lock)
{
    return lock->__data.__shared != 0;
}

bool IsShared(const sem_t* semaphore)
{
    constexpr std::size_t PLACE = sizeof(long) == 8 ? 2 : 1; // behind the value
    return reinterpret_cast<const int*>(semaphore)[PLACE] != 0;
}

}

// Conditions -------------------------------------------------------------------------------------------

STAND_IN int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    return Waits::Virtual() ? WaitForCondition(condition, mutex, Waits::NEVER)
                            : REAL_CALL(pthread_cond_wait)(condition, mutex);
}

STAND_IN int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                    const timespec* deadline)
{
    if (!Waits::Virtual())
    {
        const timespec real = RealDeadline(clock, *deadline);
        return REAL_CALL(pthread_cond_clockwait)(condition, mutex, clock, &real);
    }
    return IsNanosecond(*deadline) ? WaitForCondition(condition, mutex, Calls::Deadline(clock, *deadline))
                                   : EINVAL;
}

STAND_IN int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                    const timespec* deadline)
{
    if (!Waits::Virtual())
    {
        return REAL_CALL(pthread_cond_timedwait)(condition, mutex, deadline);
    }
    return pthread_cond_clockwait(condition, mutex, ClockOf(condition), deadline);
}

STAND_IN int pthread_cond_signal(pthread_cond_t* condition) noexcept
{
    return Waits::ObjectWait::Announce(condition, 1) > 0 ? 0 : REAL_CALL(pthread_cond_signal)(condition);
}

STAND_IN int pthread_cond_broadcast(pthread_cond_t* condition) noexcept
{
    Waits::ObjectWait::Announce(condition, INT_MAX);
    return REAL_CALL(pthread_cond_broadcast)(condition);
}

// Mutexes ----------------------------------------------------------------------------------------------

STAND_IN int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept
{
    return Unlock(mutex);
}

STAND_IN int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                                     const timespec* deadline) noexcept
{
    if (!Waits::Virtual())
    {
        const timespec real = RealDeadline(clock, *deadline);
        return REAL_CALL(pthread_mutex_clocklock)(mutex, clock, &real);
    }
    return LockUntil(mutex, !IsShared(mutex), clock, deadline,
                     [mutex] { return pthread_mutex_trylock(mutex); });
}

STAND_IN int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* deadline) noexcept
{
    return Waits::Virtual() ? pthread_mutex_clocklock(mutex, CLOCK_REALTIME, deadline)
                            : REAL_CALL(pthread_mutex_timedlock)(mutex, deadline);
}

// Semaphores -------------------------------------------------------------------------------------------

STAND_IN int sem_post(sem_t* semaphore) noexcept
{
    const int result = REAL_CALL(sem_post)(semaphore);
    Waits::ObjectWait::Announce(semaphore, 1);
    return result;
}

STAND_IN int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* deadline)
{
    if (!Waits::Virtual())
    {
        const timespec real = RealDeadline(clock, *deadline);
        return REAL_CALL(sem_clockwait)(semaphore, clock, &real);
    }
    if (sem_trywait(semaphore) == 0)
    {
        return 0;
    }
    if (!IsNanosecond(*deadline))
    {
        errno = EINVAL;
        return -1;
    }
    const Waits::Wake wake = TryUntil(semaphore, Calls::Deadline(clock, *deadline), !IsShared(semaphore),
                                      [semaphore] { return sem_trywait(semaphore) == 0; });
    pthread_testcancel();
    if (wake != Waits::Wake::Event)
    {
        errno = wake == Waits::Wake::Deadline ? ETIMEDOUT : EINTR;
        return -1;
    }
    return 0;
}

STAND_IN int sem_timedwait(sem_t* semaphore, const timespec* deadline)
{
    return Waits::Virtual() ? sem_clockwait(semaphore, CLOCK_REALTIME, deadline)
                            : REAL_CALL(sem_timedwait)(semaphore, deadline);
}

// Locks for readers and writers -------------------------------------------------------------------------

STAND_IN int pthread_rwlock_unlock(pthread_rwlock_t* lock) noexcept
{
    const int error = REAL_CALL(pthread_rwlock_unlock)(lock);
    Waits::ObjectWait::Announce(lock, INT_MAX);
    return error;
}

STAND_IN int pthread_rwlock_clockrdlock(pthread_rwlock_t* lock, clockid_t clock,
                                        const timespec* deadline) noexcept
{
    if (!Waits::Virtual())
    {
        const timespec real = RealDeadline(clock, *deadline);
        return REAL_CALL(pthread_rwlock_clockrdlock)(lock, clock, &real);
    }
    return LockUntil(lock, !IsShared(lock), clock, deadline,
                     [lock] { return pthread_rwlock_tryrdlock(lock); });
}

STAND_IN int pthread_rwlock_clockwrlock(pthread_rwlock_t* lock, clockid_t clock,
                                        const timespec* deadline) noexcept
{
    if (!Waits::Virtual())
    {
        const timespec real = RealDeadline(clock, *deadline);
        return REAL_CALL(pthread_rwlock_clockwrlock)(lock, clock, &real);
    }
    return LockUntil(lock, !IsShared(lock), clock, deadline,
                     [lock] { return pthread_rwlock_trywrlock(lock); });
}

STAND_IN int pthread_rwlock_timedrdlock(pthread_rwlock_t* lock, const timespec* deadline) noexcept
{
    return Waits::Virtual() ? pthread_rwlock_clockrdlock(lock, CLOCK_REALTIME, deadline)
                            : REAL_CALL(pthread_rwlock_timedrdlock)(lock, deadline);
}

STAND_IN int pthread_rwlock_timedwrlock(pthread_rwlock_t* lock, const timespec* deadline) noexcept
{
    return Waits::Virtual() ? pthread_rwlock_clockwrlock(lock, CLOCK_REALTIME, deadline)
                            : REAL_CALL(pthread_rwlock_timedwrlock)(lock, deadline);
}

// The names of C for the same ----------------------------------------------------------------------------

namespace
{

int ToThreadResult(int error)
{
    switch (error)
    {
    case 0:
        return thrd_success;
    case ETIMEDOUT:
        return thrd_timedout;
    case EBUSY:
        return thrd_busy;
    case ENOMEM:
        return thrd_nomem;
    default:
        return thrd_error;
    }
}

pthread_cond_t* Of(cnd_t* condition)
{
    return reinterpret_cast<pthread_cond_t*>(condition);
}

}

STAND_IN int cnd_wait(cnd_t* condition, mtx_t* mutex)
{
    return Waits::Virtual() ? ToThreadResult(WaitForCondition(Of(condition), mutex, Waits::NEVER))
                            : REAL_CALL(cnd_wait)(condition, mutex);
}

STAND_IN int cnd_timedwait(cnd_t* condition, mtx_t* mutex, const timespec* deadline)
{
    if (!Waits::Virtual())
    {
        return REAL_CALL(cnd_timedwait)(condition, mutex, deadline);
    }
    return IsNanosecond(*deadline) ? ToThreadResult(WaitForCondition(
                                         Of(condition), mutex, Calls::Deadline(CLOCK_REALTIME, *deadline)))
                                   : thrd_error;
}

STAND_IN int cnd_signal(cnd_t* condition)
{
    return ToThreadResult(pthread_cond_signal(Of(condition)));
}

STAND_IN int cnd_broadcast(cnd_t* condition)
{
    return ToThreadResult(pthread_cond_broadcast(Of(condition)));
}

STAND_IN int mtx_timedlock(mtx_t* mutex, const timespec* deadline)
{
    if (!Waits::Virtual())
    {
        return REAL_CALL(mtx_timedlock)(mutex, deadline);
    }
    return ToThreadResult(LockUntil(mutex, true, CLOCK_REALTIME, deadline, [mutex] {
        const int result = mtx_trylock(mutex);
        return result == thrd_busy ? EBUSY : result == thrd_success ? 0 : EINVAL;
    }));
}

STAND_IN int mtx_unlock(mtx_t* mutex)
{
    return Unlock(mutex);
}

STAND_IN int thrd_sleep(const timespec* duration, timespec* left)
{
    const int result = clock_nanosleep(CLOCK_REALTIME, 0, duration, left);
    return result == 0 ? 0 : result == EINTR ? -1 : -2;
}

// Futexes ----------------------------------------------------------------------------------------------

namespace
{

/// @return what was woken of the waits here
long AnnounceFutex(const void* word, unsigned long most)
{
    return Waits::ObjectWait::Announce(word, static_cast<int>(std::min<unsigned long>(most, INT_MAX)));
}

long WaitForFutex(const std::uint32_t* word, bool isPrivate, std::uint32_t seen, std::int64_t deadline)
{
    // C++'s own waits say of none that it is private.
    const std::int64_t limit = isPrivate || !IsSharedMemory(word)
                                   ? deadline
                                   : std::min(deadline, Waits::Monotonic() + LOOK_INTERVAL);
    Waits::ObjectWait wait(word, limit);
    if (__atomic_load_n(word, __ATOMIC_SEQ_CST) != seen)
    {
        errno = EAGAIN;
        return -1;
    }
    const Waits::Wake wake = wait.Wait();
    if (wake == Waits::Wake::Event || (wake == Waits::Wake::Deadline && Waits::Monotonic() < deadline))
    {
        return 0; // it may be for no reason: whoever waits for a futex looks again
    }
    errno = wake == Waits::Wake::Deadline ? ETIMEDOUT : EINTR;
    return -1;
}

}

/// What C++'s own semaphores, futures and waits for atomic objects are made of. It takes six arguments
/// whether they were given or not, as the C library's own does: to the address sanitizer the last one is
/// beyond the caller's.
STAND_IN __attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept
{
    va_list list;
    va_start(list, number);
    std::array<long, 6> arguments{};
    for (long& argument : arguments)
    {
        argument = va_arg(list, long); // NOLINT(clang-analyzer-valist.Uninitialized): it is, above
    }
    va_end(list);
    const auto real = [&] {
        return RawCall(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                       arguments[5]);
    };
    if (!Waits::Virtual())
    {
        return real();
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an argument of a system call is a number or an address
    const auto time = [&](int index) { return reinterpret_cast<timespec*>(arguments[index]); };
#if VIRTUAL_TIME_LONG_NAMES
    // NOLINTNEXTLINE(performance-no-int-to-ptr): likewise
    const auto shortTime = [&](int index) { return reinterpret_cast<ShortTimespec*>(arguments[index]); };
#endif
    switch (number)
    {
    case FUTEX:
        break;
#if VIRTUAL_TIME_LONG_NAMES
    case SYS_futex:
        break;
    case SYS_nanosleep:
        return ShortNanosleep(shortTime(0), shortTime(1));
    case SYS_clock_nanosleep:
        errno = ShortClockNanosleep(static_cast<clockid_t>(arguments[0]), static_cast<int>(arguments[1]),
                                    shortTime(2), shortTime(3));
        return errno == 0 ? 0 : -1;
    case SYS_clock_gettime:
        return ShortClockGettime(static_cast<clockid_t>(arguments[0]), shortTime(1));
#else
    case SYS_nanosleep:
        return nanosleep(time(0), time(1));
#endif
    case CLOCK_NANOSLEEP:
        errno = clock_nanosleep(static_cast<clockid_t>(arguments[0]), static_cast<int>(arguments[1]), time(2),
                                time(3));
        return errno == 0 ? 0 : -1;
    case CLOCK_GETTIME:
        return clock_gettime(static_cast<clockid_t>(arguments[0]), time(1));
    default:
        return real();
    }
    const auto operation = static_cast<int>(arguments[1]);
    const bool isPrivate = (operation & FUTEX_PRIVATE_FLAG) != 0;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): likewise
    const auto* const word = reinterpret_cast<const std::uint32_t*>(arguments[0]);
    const auto value = static_cast<std::uint32_t>(arguments[2]);
    const bool isLimited = arguments[3] != 0;
    const auto limit = [&] {
#if VIRTUAL_TIME_LONG_NAMES
        if (number == SYS_futex)
        {
            return Long(*shortTime(3));
        }
#endif
        return *time(3);
    };
    switch (operation & FUTEX_CMD_MASK)
    {
    case FUTEX_WAIT:
        return !isLimited ? real()
                          : WaitForFutex(word, isPrivate, value, Waits::Monotonic() + ToNanoseconds(limit()));
    case FUTEX_WAIT_BITSET:
        return !isLimited
                   ? real()
                   : WaitForFutex(word, isPrivate, value,
                                  Calls::Deadline((operation & FUTEX_CLOCK_REALTIME) != 0 ? CLOCK_REALTIME
                                                                                          : CLOCK_MONOTONIC,
                                                  limit()));
    case FUTEX_WAKE:
    case FUTEX_WAKE_BITSET: {
        const long here = AnnounceFutex(word, value);
        arguments[2] = static_cast<long>(value) - here;
        return here >= static_cast<long>(value) ? here : here + std::max(real(), 0L);
    }
    case FUTEX_REQUEUE:
    case FUTEX_CMP_REQUEUE:
    case FUTEX_WAKE_OP:
        AnnounceFutex(word, INT_MAX);
        return real();
    default:
        return real();
    }
}

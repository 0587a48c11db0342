// The stand-ins by the plain names, on a 32-bit machine: each is the one for 64-bit times, whose name
// differs.

#include "virtual-unit/time/ShortTimes.h"

#if VIRTUAL_TIME_LONG_NAMES

#include <aio.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <mqueue.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <threads.h>
#include <type_traits>

namespace VirtualTime
{

namespace
{

struct ShortTimeval
{
    std::int32_t tv_sec;
    std::int32_t tv_usec;
};

struct ShortItimerspec
{
    ShortTimespec it_interval;
    ShortTimespec it_value;
};

struct ShortItimerval
{
    ShortTimeval it_interval;
    ShortTimeval it_value;
};

constexpr timeval Long(const ShortTimeval& time)
{
    return {time.tv_sec, time.tv_usec};
}

constexpr itimerspec Long(const ShortItimerspec& times)
{
    return {VirtualTime::Long(times.it_interval), VirtualTime::Long(times.it_value)};
}

constexpr itimerval Long(const ShortItimerval& times)
{
    return {Long(times.it_interval), Long(times.it_value)};
}

// What does not fit, in 2038 and later, is cut off, as elsewhere on such a machine.

void Shorten(const timespec& time, ShortTimespec& result)
{
    result = {static_cast<std::int32_t>(time.tv_sec), static_cast<std::int32_t>(time.tv_nsec)};
}

void Shorten(const timeval& time, ShortTimeval& result)
{
    result = {static_cast<std::int32_t>(time.tv_sec), static_cast<std::int32_t>(time.tv_usec)};
}

template <class LongTimes, class ShortTimes>
void Shorten(const LongTimes& times, ShortTimes& result)
{
    Shorten(times.it_interval, result.it_interval);
    Shorten(times.it_value, result.it_value);
}

/// A time for a function that takes its address: null where there is none.
template <class LongTime>
class In
{
public:
    template <class ShortTime>
    explicit In(const ShortTime* time) : present(time != nullptr), value(present ? Long(*time) : LongTime())
    {
    }

    operator LongTime*() { return present ? &value : nullptr; } // NOLINT(google-explicit-constructor)

private:
    bool present;
    LongTime value;
};

template <class ShortTime>
In(const ShortTime*) -> In<decltype(Long(std::declval<ShortTime>()))>;

/// A time that a function gives: what it has, or had before.
template <class ShortTime>
class Out
{
public:
    explicit Out(ShortTime* time) : target(time), value(time == nullptr ? LongTime() : Long(*time)) {}

    ~Out()
    {
        if (target != nullptr)
        {
            Shorten(value, *target);
        }
    }

    Out(const Out&) = delete;
    Out& operator=(const Out&) = delete;

    using LongTime = decltype(Long(std::declval<ShortTime>()));

    operator LongTime*()
    {
        return target == nullptr ? nullptr : &value;
    } // NOLINT(google-explicit-constructor)

private:
    ShortTime* target;
    LongTime value;
};

}

}

using namespace VirtualTime;

/// Begins the definition of what the linker knows as `name`.
#define PLAIN_NAME(result, name, function, ...)                                                              \
    STAND_IN result function(__VA_ARGS__) __asm__(#name);                                                    \
    result function(__VA_ARGS__)

// Clocks -----------------------------------------------------------------------------------------------

namespace VirtualTime
{

int ShortClockGettime(clockid_t clock, ShortTimespec* now)
{
    timespec present = {};
    const int result = clock_gettime(clock, &present);
    if (result == 0)
    {
        Shorten(present, *now);
    }
    return result;
}

int ShortNanosleep(const ShortTimespec* duration, ShortTimespec* left)
{
    return nanosleep(In(duration), Out(left));
}

int ShortClockNanosleep(clockid_t clock, int flags, const ShortTimespec* time, ShortTimespec* left)
{
    return clock_nanosleep(clock, flags, In(time), Out(left));
}

}

PLAIN_NAME(int, clock_gettime, PlainClockGettime, clockid_t clock, ShortTimespec* now)
{
    return ShortClockGettime(clock, now);
}

PLAIN_NAME(std::int32_t, time, PlainTime, std::int32_t* now)
{
    const auto present = static_cast<std::int32_t>(time(nullptr));
    if (now != nullptr)
    {
        *now = present;
    }
    return present;
}

PLAIN_NAME(int, gettimeofday, PlainGettimeofday, ShortTimeval* now, void* zone)
{
    return gettimeofday(Out(now), zone);
}

PLAIN_NAME(int, timespec_get, PlainTimespecGet, ShortTimespec* now, int base)
{
    return timespec_get(Out(now), base);
}

// Sleeps, and waits for descriptors --------------------------------------------------------------------

PLAIN_NAME(int, nanosleep, PlainNanosleep, const ShortTimespec* duration, ShortTimespec* left)
{
    return ShortNanosleep(duration, left);
}

PLAIN_NAME(int, clock_nanosleep, PlainClockNanosleep, clockid_t clock, int flags, const ShortTimespec* time,
           ShortTimespec* left)
{
    return ShortClockNanosleep(clock, flags, time, left);
}

PLAIN_NAME(int, thrd_sleep, PlainThrdSleep, const ShortTimespec* duration, ShortTimespec* left)
{
    return thrd_sleep(In(duration), Out(left));
}

PLAIN_NAME(int, select, PlainSelect, int count, fd_set* in, fd_set* out, fd_set* except, ShortTimeval* limit)
{
    return select(count, in, out, except, Out(limit));
}

PLAIN_NAME(int, pselect, PlainPselect, int count, fd_set* in, fd_set* out, fd_set* except,
           const ShortTimespec* limit, const sigset_t* mask)
{
    return pselect(count, in, out, except, In(limit), mask);
}

PLAIN_NAME(int, ppoll, PlainPpoll, pollfd* fds, nfds_t count, const ShortTimespec* limit,
           const sigset_t* mask)
{
    return ppoll(fds, count, In(limit), mask);
}

PLAIN_NAME(int, epoll_pwait2, PlainEpollPwait2, int epoll, epoll_event* events, int most,
           const ShortTimespec* limit, const sigset_t* mask)
{
    return epoll_pwait2(epoll, events, most, In(limit), mask);
}

PLAIN_NAME(int, sigtimedwait, PlainSigtimedwait, const sigset_t* set, siginfo_t* info,
           const ShortTimespec* limit)
{
    return sigtimedwait(set, info, In(limit));
}

// Objects ----------------------------------------------------------------------------------------------

PLAIN_NAME(int, pthread_cond_clockwait, PlainCondClockwait, pthread_cond_t* condition, pthread_mutex_t* mutex,
           clockid_t clock, const ShortTimespec* deadline)
{
    return pthread_cond_clockwait(condition, mutex, clock, In(deadline));
}

PLAIN_NAME(int, pthread_cond_timedwait, PlainCondTimedwait, pthread_cond_t* condition, pthread_mutex_t* mutex,
           const ShortTimespec* deadline)
{
    return pthread_cond_timedwait(condition, mutex, In(deadline));
}

PLAIN_NAME(int, pthread_mutex_clocklock, PlainMutexClocklock, pthread_mutex_t* mutex, clockid_t clock,
           const ShortTimespec* deadline)
{
    return pthread_mutex_clocklock(mutex, clock, In(deadline));
}

PLAIN_NAME(int, pthread_mutex_timedlock, PlainMutexTimedlock, pthread_mutex_t* mutex,
           const ShortTimespec* deadline)
{
    return pthread_mutex_timedlock(mutex, In(deadline));
}

PLAIN_NAME(int, sem_clockwait, PlainSemClockwait, sem_t* semaphore, clockid_t clock,
           const ShortTimespec* deadline)
{
    return sem_clockwait(semaphore, clock, In(deadline));
}

PLAIN_NAME(int, sem_timedwait, PlainSemTimedwait, sem_t* semaphore, const ShortTimespec* deadline)
{
    return sem_timedwait(semaphore, In(deadline));
}

PLAIN_NAME(int, pthread_rwlock_clockrdlock, PlainRwlockClockrdlock, pthread_rwlock_t* lock, clockid_t clock,
           const ShortTimespec* deadline)
{
    return pthread_rwlock_clockrdlock(lock, clock, In(deadline));
}

PLAIN_NAME(int, pthread_rwlock_clockwrlock, PlainRwlockClockwrlock, pthread_rwlock_t* lock, clockid_t clock,
           const ShortTimespec* deadline)
{
    return pthread_rwlock_clockwrlock(lock, clock, In(deadline));
}

PLAIN_NAME(int, pthread_rwlock_timedrdlock, PlainRwlockTimedrdlock, pthread_rwlock_t* lock,
           const ShortTimespec* deadline)
{
    return pthread_rwlock_timedrdlock(lock, In(deadline));
}

PLAIN_NAME(int, pthread_rwlock_timedwrlock, PlainRwlockTimedwrlock, pthread_rwlock_t* lock,
           const ShortTimespec* deadline)
{
    return pthread_rwlock_timedwrlock(lock, In(deadline));
}

PLAIN_NAME(int, cnd_timedwait, PlainCndTimedwait, cnd_t* condition, mtx_t* mutex,
           const ShortTimespec* deadline)
{
    return cnd_timedwait(condition, mutex, In(deadline));
}

PLAIN_NAME(int, mtx_timedlock, PlainMtxTimedlock, mtx_t* mutex, const ShortTimespec* deadline)
{
    return mtx_timedlock(mutex, In(deadline));
}

PLAIN_NAME(int, pthread_clockjoin_np, PlainClockjoin, pthread_t thread, void** result, clockid_t clock,
           const ShortTimespec* deadline)
{
    return pthread_clockjoin_np(thread, result, clock, In(deadline));
}

PLAIN_NAME(int, pthread_timedjoin_np, PlainTimedjoin, pthread_t thread, void** result,
           const ShortTimespec* deadline)
{
    return pthread_timedjoin_np(thread, result, In(deadline));
}

PLAIN_NAME(ssize_t, mq_timedreceive, PlainMqTimedreceive, mqd_t queue, char* bytes, size_t count,
           unsigned int* priority, const ShortTimespec* deadline)
{
    return mq_timedreceive(queue, bytes, count, priority, In(deadline));
}

PLAIN_NAME(int, mq_timedsend, PlainMqTimedsend, mqd_t queue, const char* bytes, size_t count,
           unsigned int priority, const ShortTimespec* deadline)
{
    return mq_timedsend(queue, bytes, count, priority, In(deadline));
}

PLAIN_NAME(int, semtimedop, PlainSemtimedop, int set, sembuf* operations, size_t count,
           const ShortTimespec* limit)
{
    return semtimedop(set, operations, count, In(limit));
}

PLAIN_NAME(int, aio_suspend, PlainAioSuspend, const aiocb* const list[], int count,
           const ShortTimespec* limit)
{
    return aio_suspend(list, count, In(limit));
}

// Timers -----------------------------------------------------------------------------------------------

PLAIN_NAME(int, timerfd_settime, PlainTimerfdSettime, int fd, int flags, const ShortItimerspec* value,
           ShortItimerspec* old)
{
    return timerfd_settime(fd, flags, In(value), Out(old));
}

PLAIN_NAME(int, timerfd_gettime, PlainTimerfdGettime, int fd, ShortItimerspec* value)
{
    return timerfd_gettime(fd, Out(value));
}

PLAIN_NAME(int, timer_settime, PlainTimerSettime, timer_t timer, int flags, const ShortItimerspec* value,
           ShortItimerspec* old)
{
    return timer_settime(timer, flags, In(value), Out(old));
}

PLAIN_NAME(int, timer_gettime, PlainTimerGettime, timer_t timer, ShortItimerspec* value)
{
    return timer_gettime(timer, Out(value));
}

PLAIN_NAME(int, setitimer, PlainSetitimer, __itimer_which_t which, const ShortItimerval* value,
           ShortItimerval* old)
{
    return setitimer(which, In(value), Out(old));
}

PLAIN_NAME(int, getitimer, PlainGetitimer, __itimer_which_t which, ShortItimerval* value)
{
    return getitimer(which, Out(value));
}

// Sockets and files ------------------------------------------------------------------------------------

namespace
{

/// The time-out of a socket by the number that goes with short times: the one that goes with long ones.
int LongOption(int level, int option)
{
    constexpr int SHORT_RECEIVE = 20;
    constexpr int SHORT_SEND = 21;
    if (level != SOL_SOCKET)
    {
        return option;
    }
    return option == SHORT_RECEIVE ? SO_RCVTIMEO : option == SHORT_SEND ? SO_SNDTIMEO : option;
}

}

PLAIN_NAME(int, setsockopt, PlainSetsockopt, int fd, int level, int option, const void* value,
           socklen_t length)
{
    const int longOption = LongOption(level, option);
    if (longOption == option || value == nullptr || length < sizeof(ShortTimeval))
    {
        return setsockopt(fd, level, option, value, length);
    }
    const timeval time = Long(*static_cast<const ShortTimeval*>(value));
    return setsockopt(fd, level, longOption, &time, sizeof time);
}

PLAIN_NAME(int, getsockopt, PlainGetsockopt, int fd, int level, int option, void* value, socklen_t* length)
{
    const int longOption = LongOption(level, option);
    if (longOption == option || *length < sizeof(ShortTimeval))
    {
        return getsockopt(fd, level, option, value, length);
    }
    timeval time = {};
    socklen_t size = sizeof time;
    const int result = getsockopt(fd, level, longOption, &time, &size);
    if (result == 0)
    {
        Shorten(time, *static_cast<ShortTimeval*>(value));
        *length = sizeof(ShortTimeval);
    }
    return result;
}

PLAIN_NAME(ssize_t, recvmsg, PlainRecvmsg, int fd, msghdr* message, int flags)
{
    return recvmsg(fd, message, flags);
}

PLAIN_NAME(int, recvmmsg, PlainRecvmmsg, int fd, mmsghdr* messages, unsigned int count, int flags,
           ShortTimespec* limit)
{
    return recvmmsg(fd, messages, count, flags, Out(limit));
}

PLAIN_NAME(ssize_t, sendmsg, PlainSendmsg, int fd, const msghdr* message, int flags)
{
    return sendmsg(fd, message, flags);
}

PLAIN_NAME(int, open, PlainOpen, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return open(path, flags, mode);
}

#endif

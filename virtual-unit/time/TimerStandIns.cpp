// The functions of the C library that set timers.

#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Timers.h"
#include "virtual-unit/time/Waits.h"

#include <csignal>
#include <ctime>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

using namespace VirtualTime;

// The real declarations carry attributes that a definition elsewhere does not repeat.
#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"

STAND_IN int timerfd_create(clockid_t clock, int flags) noexcept
{
    return Timers::IsVirtual(clock) ? Timers::CreateDescriptor(clock, flags)
                                    : REAL_CALL(timerfd_create)(clock, flags);
}

STAND_IN int timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old) noexcept
{
    return Timers::IsDescriptor(fd) ? Timers::SetDescriptor(fd, flags, value, old)
                                    : REAL_CALL(timerfd_settime)(fd, flags, value, old);
}

STAND_IN int timerfd_gettime(int fd, itimerspec* value) noexcept
{
    return Timers::IsDescriptor(fd) ? Timers::GetDescriptor(fd, value)
                                    : REAL_CALL(timerfd_gettime)(fd, value);
}

STAND_IN int timer_create(clockid_t clock, sigevent* event, timer_t* timer) noexcept
{
    return Timers::IsVirtual(clock) ? Timers::Create(clock, event, timer)
                                    : REAL_CALL(timer_create)(clock, event, timer);
}

STAND_IN int timer_settime(timer_t timer, int flags, const itimerspec* value, itimerspec* old) noexcept
{
    return Timers::IsTimer(timer) ? Timers::Set(timer, flags, value, old)
                                  : REAL_CALL(timer_settime)(timer, flags, value, old);
}

STAND_IN int timer_gettime(timer_t timer, itimerspec* value) noexcept
{
    return Timers::IsTimer(timer) ? Timers::Get(timer, value) : REAL_CALL(timer_gettime)(timer, value);
}

STAND_IN int timer_delete(timer_t timer) noexcept
{
    return Timers::IsTimer(timer) ? Timers::Delete(timer) : REAL_CALL(timer_delete)(timer);
}

STAND_IN int timer_getoverrun(timer_t timer) noexcept
{
    return Timers::IsTimer(timer) ? Timers::Overrun(timer) : REAL_CALL(timer_getoverrun)(timer);
}

STAND_IN int setitimer(__itimer_which_t which, const itimerval* value, itimerval* old) noexcept
{
    if (!Waits::Virtual() || which != ITIMER_REAL || value == nullptr)
    {
        return REAL_CALL(setitimer)(which, value, old);
    }
    Timers::SetAlarm(*value, old);
    return 0;
}

STAND_IN int getitimer(__itimer_which_t which, itimerval* value) noexcept
{
    if (!Waits::Virtual() || which != ITIMER_REAL || value == nullptr)
    {
        return REAL_CALL(getitimer)(which, value);
    }
    Timers::GetAlarm(*value);
    return 0;
}

STAND_IN unsigned int alarm(unsigned int seconds) noexcept
{
    if (!Waits::Virtual())
    {
        return REAL_CALL(alarm)(seconds);
    }
    itimerval old = {};
    Timers::SetAlarm({{0, 0}, {static_cast<time_t>(seconds), 0}}, &old);
    const auto left = static_cast<unsigned int>(old.it_value.tv_sec);
    return left == 0 && old.it_value.tv_usec > 0 ? 1 : left + (old.it_value.tv_usec >= 500'000 ? 1 : 0);
}

STAND_IN useconds_t ualarm(useconds_t microseconds, useconds_t interval) noexcept
{
    if (!Waits::Virtual())
    {
        return REAL_CALL(ualarm)(microseconds, interval);
    }
    constexpr useconds_t SECOND = 1'000'000;
    const auto time = [](useconds_t all) {
        return timeval{static_cast<time_t>(all / SECOND), static_cast<suseconds_t>(all % SECOND)};
    };
    itimerval old = {};
    Timers::SetAlarm({time(interval), time(microseconds)}, &old);
    return static_cast<useconds_t>(old.it_value.tv_sec * SECOND + old.it_value.tv_usec);
}

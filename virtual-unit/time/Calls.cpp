#include "virtual-unit/time/Calls.h"

#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Waits.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace VirtualTime::Calls
{

namespace
{

bool IsWallClock(clockid_t clock)
{
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_REALTIME_ALARM ||
           clock == CLOCK_TAI;
}

bool IsMonotonicClock(clockid_t clock)
{
    return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_MONOTONIC_RAW ||
           clock == CLOCK_BOOTTIME || clock == CLOCK_BOOTTIME_ALARM;
}

/// @return what was left, 0 unless a signal came
std::int64_t SleepFor(std::int64_t nanoseconds)
{
    const std::int64_t deadline = Waits::Monotonic() + nanoseconds;
    if (Waits::SleepUntil(deadline) == Waits::Wake::Deadline)
    {
        return 0;
    }
    return std::max<std::int64_t>(deadline - Waits::Monotonic(), 0);
}

int NanosleepFor(std::int64_t nanoseconds, timespec* left)
{
    const std::int64_t rest = SleepFor(nanoseconds);
    if (rest == 0)
    {
        return 0;
    }
    if (left != nullptr)
    {
        *left = ToTimespec(rest);
    }
    errno = EINTR;
    return -1;
}

int PollFor(pollfd* fds, nfds_t count, std::int64_t nanoseconds, const sigset_t* mask)
{
    int ready = REAL_CALL(poll)(fds, count, 0);
    if (ready != 0 || nanoseconds == 0)
    {
        return ready;
    }
    const std::int64_t deadline = Waits::Monotonic() + nanoseconds;
    while (true)
    {
        const Waits::Wake wake = Waits::WaitDescriptors(fds, count, deadline, mask, ready);
        if (wake != Waits::Wake::Event || ready != 0)
        {
            return wake == Waits::Wake::Signal ? -1 : ready;
        }
    }
}

int SelectFor(int count, fd_set* in, fd_set* out, fd_set* except, std::int64_t nanoseconds,
              const sigset_t* mask)
{
    std::array<pollfd, FD_SETSIZE> fds; // NOLINT(cppcoreguidelines-pro-type-member-init): as much as is used
    nfds_t used = 0;
    for (int fd = 0; fd < std::min(count, FD_SETSIZE); ++fd)
    {
        short events = 0;
        events = static_cast<short>(events | (in != nullptr && FD_ISSET(fd, in) ? POLLIN : 0));
        events = static_cast<short>(events | (out != nullptr && FD_ISSET(fd, out) ? POLLOUT : 0));
        events = static_cast<short>(events | (except != nullptr && FD_ISSET(fd, except) ? POLLPRI : 0));
        if (events != 0)
        {
            fds[used++] = {fd, events, 0};
        }
    }
    const int ready = PollFor(fds.data(), used, nanoseconds, mask);
    if (ready < 0)
    {
        return -1;
    }
    timeval now = {0, 0};
    return REAL_CALL(select)(count, in, out, except, &now);
}

}

std::int64_t Deadline(clockid_t clock, const timespec& time)
{
    return ToNanoseconds(time) + (IsWallClock(clock) ? Waits::Monotonic() - Waits::Wall() : 0);
}

int Poll(pollfd* fds, nfds_t count, int milliseconds)
{
    if (!Waits::Virtual() || milliseconds == 0)
    {
        return REAL_CALL(poll)(fds, count, milliseconds);
    }
    if (milliseconds > 0)
    {
        return PollFor(fds, count, milliseconds * std::int64_t{1'000'000}, nullptr);
    }
    const Waits::Waiting wait(Waits::OwnSlot(), Waits::Stand::InCall, fds, count);
    return REAL_CALL(poll)(fds, count, milliseconds);
}

int Ppoll(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask)
{
    if (!Waits::Virtual())
    {
        return REAL_CALL(ppoll)(fds, count, limit, mask);
    }
    if (limit != nullptr)
    {
        return PollFor(fds, count, ToNanoseconds(*limit), mask);
    }
    const Waits::Waiting wait(Waits::OwnSlot(), Waits::Stand::InCall, fds, count);
    return REAL_CALL(ppoll)(fds, count, limit, mask);
}

int Select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* limit)
{
    const std::int64_t microseconds = limit == nullptr ? -1 : limit->tv_sec * 1'000'000 + limit->tv_usec;
    return Waits::Virtual() && microseconds > 0
               ? SelectFor(count, in, out, except, microseconds * 1000, nullptr)
               : REAL_CALL(select)(count, in, out, except, limit);
}

int Pselect(int count, fd_set* in, fd_set* out, fd_set* except, const timespec* limit, const sigset_t* mask)
{
    return Waits::Virtual() && limit != nullptr
               ? SelectFor(count, in, out, except, ToNanoseconds(*limit), mask)
               : REAL_CALL(pselect)(count, in, out, except, limit, mask);
}

int Usleep(useconds_t microseconds)
{
    return Waits::Virtual() ? NanosleepFor(microseconds * std::int64_t{1000}, nullptr)
                            : REAL_CALL(usleep)(microseconds);
}

unsigned int Sleep(unsigned int seconds)
{
    return Waits::Virtual()
               ? static_cast<unsigned int>((SleepFor(seconds * NANOSECONDS) + NANOSECONDS - 1) / NANOSECONDS)
               : REAL_CALL(sleep)(seconds);
}

int Nanosleep(const timespec* duration, timespec* left)
{
    return Waits::Virtual() ? NanosleepFor(ToNanoseconds(*duration), left)
                            : REAL_CALL(nanosleep)(duration, left);
}

int ClockNanosleep(clockid_t clock, int flags, const timespec* time, timespec* left)
{
    if (!Waits::Virtual())
    {
        return REAL_CALL(clock_nanosleep)(clock, flags, time, left);
    }
    return NanosleepFor(Duration(clock, flags, *time), left) == 0 ? 0 : EINTR;
}

std::int64_t Duration(clockid_t clock, int flags, const timespec& time)
{
    std::int64_t duration = ToNanoseconds(time);
    if ((flags & TIMER_ABSTIME) != 0)
    {
        duration -= IsWallClock(clock) ? Waits::Wall() : Waits::Monotonic();
    }
    return std::max<std::int64_t>(duration, 0);
}

bool ReadTimesOut(int fd)
{
    struct termios settings = {};
    if (!Waits::Virtual() || REAL_CALL(tcgetattr)(fd, &settings) != 0 || (settings.c_lflag & ICANON) != 0 ||
        settings.c_cc[VMIN] != 0 || settings.c_cc[VTIME] == 0)
    {
        return false;
    }
    // The far end of a pseudo terminal tells the settings of the near one, which do not concern it.
    unsigned int number = 0;
    if ((REAL_CALL(fcntl)(fd, F_GETFL) & O_NONBLOCK) != 0 || REAL_CALL(ioctl)(fd, TIOCGPTN, &number) == 0)
    {
        return false;
    }
    pollfd input = {fd, POLLIN, 0};
    return PollFor(&input, 1, settings.c_cc[VTIME] * (NANOSECONDS / 10), nullptr) == 0;
}

}

// The stand-ins that are the same wherever there is virtual time.

using namespace VirtualTime;

// The real declarations carry attributes that a definition elsewhere does not repeat.
#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"
#pragma GCC diagnostic ignored "-Wnonnull-compare"

STAND_IN int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    if (Calls::IsMonotonicClock(clock))
    {
        *now = ToTimespec(Waits::Monotonic());
        return 0;
    }
    if (Waits::Virtual() && Calls::IsWallClock(clock))
    {
        *now = ToTimespec(Waits::Wall());
        return 0;
    }
    return REAL_CALL(clock_gettime)(clock, now);
}

STAND_IN time_t time(time_t* now) noexcept
{
    timespec present = {};
    clock_gettime(CLOCK_REALTIME, &present);
    if (now != nullptr)
    {
        *now = present.tv_sec;
    }
    return present.tv_sec;
}

STAND_IN int gettimeofday(timeval* now, void*) noexcept
{
    timespec present = {};
    clock_gettime(CLOCK_REALTIME, &present);
    if (now != nullptr)
    {
        *now = {present.tv_sec, present.tv_nsec / 1000};
    }
    return 0;
}

STAND_IN int timespec_get(timespec* now, int base) noexcept
{
    if (base != TIME_UTC)
    {
        return REAL_CALL(timespec_get)(now, base);
    }
    clock_gettime(CLOCK_REALTIME, now);
    return base;
}

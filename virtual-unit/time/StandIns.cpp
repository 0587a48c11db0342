// The functions of the C library that wait, for a program that the library is preloaded to.

#include "virtual-unit/time/Calls.h"
#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Waits.h"

#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

using namespace VirtualTime;

// The real declarations carry attributes that a definition elsewhere does not repeat.
#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"

STAND_IN int poll(pollfd* fds, nfds_t count, int milliseconds)
{
    return Calls::Poll(fds, count, milliseconds);
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
STAND_IN int __poll_chk(pollfd* fds, nfds_t count, int milliseconds, size_t)
{
    return poll(fds, count, milliseconds);
}

STAND_IN int ppoll(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask)
{
    return Calls::Ppoll(fds, count, limit, mask);
}

STAND_IN int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* limit)
{
    return Calls::Select(count, in, out, except, limit);
}

STAND_IN int pselect(int count, fd_set* in, fd_set* out, fd_set* except, const timespec* limit,
                     const sigset_t* mask)
{
    return Calls::Pselect(count, in, out, except, limit, mask);
}

STAND_IN int epoll_pwait(int epoll, epoll_event* events, int most, int milliseconds, const sigset_t* mask)
{
    if (milliseconds > 0)
    {
        const timespec limit = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
        pollfd some = {epoll, POLLIN, 0};
        if (Calls::Ppoll(&some, 1, &limit, mask) < 0)
        {
            return -1;
        }
        milliseconds = 0;
    }
    return REAL_CALL(epoll_pwait)(epoll, events, most, milliseconds, mask);
}

STAND_IN int epoll_wait(int epoll, epoll_event* events, int most, int milliseconds)
{
    return epoll_pwait(epoll, events, most, milliseconds, nullptr);
}

STAND_IN int usleep(useconds_t microseconds)
{
    return Calls::Usleep(microseconds);
}

STAND_IN unsigned int sleep(unsigned int seconds)
{
    return Calls::Sleep(seconds);
}

STAND_IN int nanosleep(const timespec* duration, timespec* left)
{
    return Calls::Nanosleep(duration, left);
}

STAND_IN int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left)
{
    return Calls::ClockNanosleep(clock, flags, time, left);
}

STAND_IN int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* limit)
{
    if (limit != nullptr && (limit->tv_sec != 0 || limit->tv_nsec != 0))
    {
        const int signals = signalfd(-1, set, SFD_CLOEXEC);
        pollfd pending = {signals, POLLIN, 0};
        const int ready = Calls::Ppoll(&pending, 1, limit, nullptr);
        close(signals);
        if (ready < 0)
        {
            return -1;
        }
    }
    const timespec atOnce = {0, 0};
    return REAL_CALL(sigtimedwait)(set, info, limit == nullptr ? nullptr : &atOnce);
}

STAND_IN ssize_t read(int fd, void* bytes, size_t count)
{
    return Calls::ReadTimesOut(fd) ? 0 : REAL_CALL(read)(fd, bytes, count);
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
STAND_IN ssize_t __read_chk(int fd, void* bytes, size_t count, size_t room)
{
    return read(fd, bytes, count < room ? count : room);
}

// Terminals: what is on its way through one arrives before the time goes on.

STAND_IN int posix_openpt(int flags)
{
    const int fd = REAL_CALL(posix_openpt)(flags);
    if (fd >= 0)
    {
        Waits::AddTerminal(fd);
    }
    return fd;
}

STAND_IN int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const int fd = REAL_CALL(open)(path, flags, mode);
    constexpr char TERMINALS[] = "/dev/pts/";
    if (fd >= 0 && std::strncmp(path, TERMINALS, sizeof TERMINALS - 1) == 0)
    {
        Waits::AddTerminal(fd);
    }
    return fd;
}

STAND_IN int close(int fd)
{
    Waits::RemoveTerminal(fd);
    return REAL_CALL(close)(fd);
}

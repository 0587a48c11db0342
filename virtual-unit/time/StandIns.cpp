// The functions of the C library that wait, for a program that the library is preloaded to.

#include "virtual-unit/time/Calls.h"
#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Timers.h"
#include "virtual-unit/time/Waits.h"

#include <aio.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <mqueue.h>
#include <sys/epoll.h>
#include <sys/sem.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/time.h>
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

namespace
{

/// Waits until the epoll descriptor has an event. @return as poll()
int AwaitEpoll(int epoll, const timespec& limit, const sigset_t* mask)
{
    pollfd some = {epoll, POLLIN, 0};
    return Calls::Ppoll(&some, 1, &limit, mask);
}

timespec OfMilliseconds(int milliseconds)
{
    return {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
}

}

STAND_IN int epoll_pwait(int epoll, epoll_event* events, int most, int milliseconds, const sigset_t* mask)
{
    if (Waits::Virtual() && milliseconds > 0)
    {
        if (AwaitEpoll(epoll, OfMilliseconds(milliseconds), mask) < 0)
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

STAND_IN int epoll_pwait2(int epoll, epoll_event* events, int most, const timespec* limit,
                          const sigset_t* mask)
{
    if (limit == nullptr)
    {
        return epoll_pwait(epoll, events, most, -1, mask);
    }
    if (Waits::Virtual() && AwaitEpoll(epoll, *limit, mask) < 0)
    {
        return -1;
    }
    const timespec atOnce = {0, 0};
    return REAL_CALL(epoll_pwait2)(epoll, events, most, Waits::Virtual() ? &atOnce : limit, mask);
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
    if (limit == nullptr)
    {
        return sigwaitinfo(set, info);
    }
    const timespec atOnce = {0, 0};
    return REAL_CALL(sigtimedwait)(set, info, &atOnce);
}

STAND_IN int sigwaitinfo(const sigset_t* set, siginfo_t* info)
{
    const Waits::Waiting wait(Waits::OwnSlot(), Waits::Stand::InCall);
    return REAL_CALL(sigwaitinfo)(set, info);
}

STAND_IN int sigwait(const sigset_t* set, int* signal)
{
    const Waits::Waiting wait(Waits::OwnSlot(), Waits::Stand::InCall);
    return REAL_CALL(sigwait)(set, signal);
}

// Descriptors ------------------------------------------------------------------------------------------

namespace
{

/// The time-outs of a socket, which the kernel is not told. A duplicate of the descriptor has none.
struct TimeOuts
{
    std::atomic<std::int64_t> receive{0}; ///< nanoseconds; 0: none
    std::atomic<std::int64_t> send{0};
};

std::array<TimeOuts, 1024> timeOuts;
std::atomic<bool> socketsHaveTimeOuts{false};

TimeOuts* TimeOutsOf(int fd)
{
    return fd >= 0 && static_cast<std::size_t>(fd) < timeOuts.size() ? &timeOuts[static_cast<std::size_t>(fd)]
                                                                     : nullptr;
}

/// Waits as long as a socket may. @return false with errno EAGAIN when it was in vain, or EINTR
bool IsReady(int fd, bool toReceive, int flags = 0)
{
    if (!socketsHaveTimeOuts || (flags & MSG_DONTWAIT) != 0 || !Waits::Virtual())
    {
        return true;
    }
    const TimeOuts* const own = TimeOutsOf(fd);
    const std::int64_t limit = own == nullptr ? 0 : toReceive ? own->receive.load() : own->send.load();
    if (limit == 0 || (REAL_CALL(fcntl)(fd, F_GETFL) & O_NONBLOCK) != 0)
    {
        return true;
    }
    const timespec time = ToTimespec(limit);
    pollfd socket = {fd, static_cast<short>(toReceive ? POLLIN : POLLOUT), 0};
    const int ready = Calls::Ppoll(&socket, 1, &time, nullptr);
    if (ready == 0)
    {
        errno = EAGAIN;
    }
    return ready > 0;
}

}

STAND_IN int setsockopt(int fd, int level, int option, const void* value, socklen_t length) noexcept
{
    TimeOuts* const own = TimeOutsOf(fd);
    if (Waits::Virtual() && level == SOL_SOCKET && (option == SO_RCVTIMEO || option == SO_SNDTIMEO) &&
        own != nullptr && value != nullptr && length >= sizeof(timeval))
    {
        const timeval none = {0, 0};
        const int result = REAL_CALL(setsockopt)(fd, level, option, &none, sizeof none);
        if (result == 0)
        {
            (option == SO_RCVTIMEO ? own->receive : own->send) =
                ToNanoseconds(*static_cast<const timeval*>(value));
            socketsHaveTimeOuts = true;
        }
        return result;
    }
    return REAL_CALL(setsockopt)(fd, level, option, value, length);
}

STAND_IN int getsockopt(int fd, int level, int option, void* value, socklen_t* length) noexcept
{
    const int result = REAL_CALL(getsockopt)(fd, level, option, value, length);
    const TimeOuts* const own = TimeOutsOf(fd);
    if (result == 0 && socketsHaveTimeOuts && level == SOL_SOCKET &&
        (option == SO_RCVTIMEO || option == SO_SNDTIMEO) && own != nullptr && *length >= sizeof(timeval))
    {
        *static_cast<timeval*>(value) = ToTimeval(option == SO_RCVTIMEO ? own->receive : own->send);
    }
    return result;
}

STAND_IN ssize_t recv(int fd, void* bytes, size_t count, int flags)
{
    return IsReady(fd, true, flags) ? REAL_CALL(recv)(fd, bytes, count, flags) : -1;
}

STAND_IN ssize_t recvfrom(int fd, void* bytes, size_t count, int flags, sockaddr* from, socklen_t* length)
{
    return IsReady(fd, true, flags) ? REAL_CALL(recvfrom)(fd, bytes, count, flags, from, length) : -1;
}

STAND_IN ssize_t recvmsg(int fd, msghdr* message, int flags)
{
    return IsReady(fd, true, flags) ? REAL_CALL(recvmsg)(fd, message, flags) : -1;
}

STAND_IN int recvmmsg(int fd, mmsghdr* messages, unsigned int count, int flags, timespec* limit)
{
    if (!Waits::Virtual() || limit == nullptr)
    {
        return IsReady(fd, true, flags) ? REAL_CALL(recvmmsg)(fd, messages, count, flags, limit) : -1;
    }
    // The kernel looks at the limit behind each message only; here it holds for the first one, too.
    pollfd socket = {fd, POLLIN, 0};
    const int ready = Calls::Ppoll(&socket, 1, limit, nullptr);
    if (ready <= 0)
    {
        errno = ready == 0 ? EAGAIN : errno;
        return -1;
    }
    return REAL_CALL(recvmmsg)(fd, messages, count, flags | MSG_DONTWAIT, nullptr);
}

STAND_IN ssize_t send(int fd, const void* bytes, size_t count, int flags)
{
    return IsReady(fd, false, flags) ? REAL_CALL(send)(fd, bytes, count, flags) : -1;
}

STAND_IN ssize_t sendto(int fd, const void* bytes, size_t count, int flags, const sockaddr* to,
                        socklen_t length)
{
    return IsReady(fd, false, flags) ? REAL_CALL(sendto)(fd, bytes, count, flags, to, length) : -1;
}

STAND_IN ssize_t sendmsg(int fd, const msghdr* message, int flags)
{
    return IsReady(fd, false, flags) ? REAL_CALL(sendmsg)(fd, message, flags) : -1;
}

STAND_IN int accept(int fd, sockaddr* from, socklen_t* length)
{
    return IsReady(fd, true) ? REAL_CALL(accept)(fd, from, length) : -1;
}

STAND_IN int accept4(int fd, sockaddr* from, socklen_t* length, int flags)
{
    return IsReady(fd, true) ? REAL_CALL(accept4)(fd, from, length, flags) : -1;
}

STAND_IN ssize_t read(int fd, void* bytes, size_t count)
{
    if (Calls::ReadTimesOut(fd))
    {
        return 0;
    }
    return IsReady(fd, true) ? REAL_CALL(read)(fd, bytes, count) : -1;
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
STAND_IN ssize_t __read_chk(int fd, void* bytes, size_t count, size_t room)
{
    return read(fd, bytes, count < room ? count : room);
}

STAND_IN ssize_t write(int fd, const void* bytes, size_t count)
{
    return IsReady(fd, false) ? REAL_CALL(write)(fd, bytes, count) : -1;
}

// Messages, semaphores of System V, asynchronous input and output ---------------------------------------

namespace
{

/// Tries, and waits until the queue is ready, in turns. @return as `attempt`, which waits until a deadline
template <class Attempt>
auto AwaitQueue(mqd_t queue, short events, const timespec* deadline, Attempt attempt)
{
    const timespec past = {0, 0};
    while (Waits::Virtual() && deadline != nullptr)
    {
        const auto result = attempt(&past);
        if (result >= 0 || errno != ETIMEDOUT)
        {
            return result;
        }
        const std::int64_t left = Calls::Deadline(CLOCK_REALTIME, *deadline) - Waits::Monotonic();
        const timespec limit = ToTimespec(std::max<std::int64_t>(left, 0));
        pollfd look = {queue, events, 0};
        const int ready = Calls::Ppoll(&look, 1, &limit, nullptr);
        if (ready <= 0)
        {
            errno = ready == 0 ? ETIMEDOUT : errno;
            return decltype(result){-1};
        }
    }
    return attempt(deadline);
}

}

STAND_IN ssize_t mq_timedreceive(mqd_t queue, char* bytes, size_t count, unsigned int* priority,
                                 const timespec* deadline)
{
    return AwaitQueue(queue, POLLIN, deadline, [&](const timespec* until) {
        return REAL_CALL(mq_timedreceive)(queue, bytes, count, priority, until);
    });
}

STAND_IN int mq_timedsend(mqd_t queue, const char* bytes, size_t count, unsigned int priority,
                          const timespec* deadline)
{
    return AwaitQueue(queue, POLLOUT, deadline, [&](const timespec* until) {
        return REAL_CALL(mq_timedsend)(queue, bytes, count, priority, until);
    });
}

namespace
{

/**
 * Looks again and again whether it is over, after a millisecond at first, later each fifty.
 * @return as `attempt`, which gives -1 with `notYet` meanwhile
 */
template <class Attempt>
int LookUntil(const timespec& limit, int notYet, Attempt attempt)
{
    constexpr std::int64_t SHORTEST = 1'000'000;
    constexpr std::int64_t LONGEST = 50'000'000;
    const std::int64_t deadline = Waits::Monotonic() + ToNanoseconds(limit);
    for (std::int64_t pause = SHORTEST;; pause = std::min(2 * pause, LONGEST))
    {
        const int result = attempt();
        if (result >= 0 || errno != notYet)
        {
            return result;
        }
        const std::int64_t left = deadline - Waits::Monotonic();
        if (left <= 0)
        {
            errno = EAGAIN;
            return -1;
        }
        const timespec next = {0, static_cast<long>(std::min(pause, left))};
        if (Calls::Nanosleep(&next, nullptr) != 0)
        {
            return -1;
        }
    }
}

}

STAND_IN int semtimedop(int set, sembuf* operations, size_t count, const timespec* limit) noexcept
{
    std::array<sembuf, 500> atOnce{}; // as many as the kernel takes by default
    if (!Waits::Virtual() || limit == nullptr || count > atOnce.size())
    {
        return REAL_CALL(semtimedop)(set, operations, count, limit);
    }
    std::transform(operations, operations + count, atOnce.begin(), [](sembuf operation) {
        operation.sem_flg = static_cast<short>(operation.sem_flg | IPC_NOWAIT);
        return operation;
    });
    return LookUntil(*limit, EAGAIN, [&] { return semop(set, atOnce.data(), count); });
}

STAND_IN int aio_suspend(const aiocb* const list[], int count, const timespec* limit)
{
    if (!Waits::Virtual() || limit == nullptr)
    {
        return REAL_CALL(aio_suspend)(list, count, limit);
    }
    return LookUntil(*limit, EINPROGRESS, [&] {
        for (int i = 0; i < count; ++i)
        {
            if (list[i] != nullptr && aio_error(list[i]) != EINPROGRESS)
            {
                return 0;
            }
        }
        errno = EINPROGRESS;
        return -1;
    });
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
    Timers::CloseDescriptor(fd);
    if (TimeOuts* const own = TimeOutsOf(fd); own != nullptr)
    {
        own->receive = 0;
        own->send = 0;
    }
    return REAL_CALL(close)(fd);
}

#ifndef VIRTUAL_UNIT_TIME_CALLS_H
#define VIRTUAL_UNIT_TIME_CALLS_H

#include <cstdint>
#include <ctime>
#include <poll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/types.h>

/// The C library's functions that wait, as they are in virtual time; in real time they are its own.
/// Parameters, results and errno are those of the functions of like names.
namespace VirtualTime::Calls
{

int Poll(pollfd* fds, nfds_t count, int milliseconds);
int Ppoll(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask);
int Select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* limit);
int Pselect(int count, fd_set* in, fd_set* out, fd_set* except, const timespec* limit, const sigset_t* mask);

int Usleep(useconds_t microseconds);
unsigned int Sleep(unsigned int seconds);
int Nanosleep(const timespec* duration, timespec* left);
int ClockNanosleep(clockid_t clock, int flags, const timespec* time, timespec* left);

/// A deadline of some clock, by the monotonic one in nanoseconds.
std::int64_t Deadline(clockid_t clock, const timespec& time);

/// How long clock_nanosleep() would sleep, in nanoseconds.
std::int64_t Duration(clockid_t clock, int flags, const timespec& time);

/// True when a read would wait for the read time-out of a terminal in raw mode (which runs in the kernel, in
/// real time), and has now waited for it in vain, in virtual time.
bool ReadTimesOut(int fd);

}

#endif

#ifndef VIRTUAL_UNIT_TIME_SHORTTIMES_H
#define VIRTUAL_UNIT_TIME_SHORTTIMES_H

#include "virtual-unit/time/Real.h"

#include <cstdint>
#include <ctime>

#if VIRTUAL_TIME_LONG_NAMES

/// The times of the C library's functions by their plain names, on a 32-bit machine. Programs that are built
/// without 64-bit times call those, and so does the C++ library.
namespace VirtualTime
{

struct ShortTimespec
{
    std::int32_t tv_sec;
    std::int32_t tv_nsec;
};

constexpr timespec Long(const ShortTimespec& time)
{
    return {time.tv_sec, time.tv_nsec};
}

int ShortNanosleep(const ShortTimespec* duration, ShortTimespec* left);
int ShortClockNanosleep(clockid_t clock, int flags, const ShortTimespec* time, ShortTimespec* left);
int ShortClockGettime(clockid_t clock, ShortTimespec* now);

}

#endif
#endif

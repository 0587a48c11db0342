#ifndef VIRTUAL_UNIT_TIME_NANOSECONDS_H
#define VIRTUAL_UNIT_TIME_NANOSECONDS_H

#include <cstdint>
#include <ctime>
#include <sys/time.h>

/// The system's times as numbers of nanoseconds, and back.
namespace VirtualTime
{

constexpr std::int64_t NANOSECONDS = 1'000'000'000; ///< in a second

constexpr std::int64_t ToNanoseconds(const timespec& time)
{
    return time.tv_sec * NANOSECONDS + time.tv_nsec;
}

constexpr std::int64_t ToNanoseconds(const timeval& time)
{
    return time.tv_sec * NANOSECONDS + time.tv_usec * 1000;
}

constexpr timespec ToTimespec(std::int64_t nanoseconds)
{
    return {static_cast<time_t>(nanoseconds / NANOSECONDS), static_cast<long>(nanoseconds % NANOSECONDS)};
}

constexpr timeval ToTimeval(std::int64_t nanoseconds)
{
    return {static_cast<time_t>(nanoseconds / NANOSECONDS),
            static_cast<suseconds_t>(nanoseconds % NANOSECONDS / 1000)};
}

/// As the C library takes it: neither negative nor a second in itself.
constexpr bool IsNanosecond(const timespec& time)
{
    return time.tv_nsec >= 0 && time.tv_nsec < NANOSECONDS;
}

}

#endif

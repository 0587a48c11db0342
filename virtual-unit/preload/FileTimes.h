#ifndef VIRTUAL_UNIT_PRELOAD_FILETIMES_H
#define VIRTUAL_UNIT_PRELOAD_FILETIMES_H

// The stand-ins for functions that tell or change the times of a file. No header as others are: each of the
// two sources that include it, Files.cpp and LongTimes.cpp, has the functions that take times of its own
// size.

#include "virtual-unit/preload/Ask.h"
#include "virtual-unit/preload/StandIns.h"
#include "virtual-unit/preload/Status.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <utime.h>

using namespace VirtualUnit::Preload;

namespace
{

#if VIRTUAL_TIME_LONG_NAMES
constexpr long UTIMENSAT = SYS_utimensat_time64;
#else
constexpr long UTIMENSAT = SYS_utimensat;
#endif

}

STAND_IN int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept
{
    return StatusOf(directory, path, status, flags,
                    [&] { return REAL_CALL(fstatat)(directory, path, status, flags); });
}

STAND_IN int stat(const char* path, struct stat* status) noexcept
{
    return fstatat(AT_FDCWD, path, status, 0);
}

STAND_IN int lstat(const char* path, struct stat* status) noexcept
{
    return fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

STAND_IN int utimensat(int directory, const char* path, const timespec times[2], int flags) noexcept
{
    if (path == nullptr)
    {
        return REAL_CALL(utimensat)(directory, path, times, flags);
    }
    return Either(Ask(UTIMENSAT, directory, path, times, flags),
                  [&] { return REAL_CALL(utimensat)(directory, path, times, flags); });
}

namespace
{

int ChangeTimes(int directory, const char* path, const timeval times[2], int flags)
{
    if (times == nullptr)
    {
        return utimensat(directory, path, nullptr, flags);
    }
    constexpr long NANOSECONDS = 1000;
    const timespec exact[2] = {{times[0].tv_sec, static_cast<long>(times[0].tv_usec) * NANOSECONDS},
                               {times[1].tv_sec, static_cast<long>(times[1].tv_usec) * NANOSECONDS}};
    return utimensat(directory, path, exact, flags);
}

}

STAND_IN int utimes(const char* path, const timeval times[2]) noexcept
{
    return ChangeTimes(AT_FDCWD, path, times, 0);
}

STAND_IN int lutimes(const char* path, const timeval times[2]) noexcept
{
    return ChangeTimes(AT_FDCWD, path, times, AT_SYMLINK_NOFOLLOW);
}

STAND_IN int futimesat(int directory, const char* path, const timeval times[2]) noexcept
{
    return path == nullptr ? REAL_CALL(futimesat)(directory, path, times)
                           : ChangeTimes(directory, path, times, 0);
}

STAND_IN int utime(const char* path, const utimbuf* times) noexcept
{
    if (times == nullptr)
    {
        return utimes(path, nullptr);
    }
    const timeval both[2] = {{times->actime, 0}, {times->modtime, 0}};
    return utimes(path, both);
}

#endif

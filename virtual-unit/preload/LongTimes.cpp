// The stand-ins for programs that have 64-bit times on a 32-bit machine. Compiled with such times, so that
// the C library's headers give them the names that those programs call.

#include "virtual-unit/time/Real.h"

#if VIRTUAL_TIME_LONG_NAMES

#include "virtual-unit/preload/Ask.h"
#include "virtual-unit/preload/Status.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <utime.h>

using namespace VirtualUnit::Preload;

#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"
#pragma GCC diagnostic ignored "-Wnonnull-compare"
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

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
    return Either(Ask(SYS_utimensat_time64, directory, path, times, flags),
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

/// The plain one is of the same kind.
extern "C" int PlainIoctl(int fd, unsigned long request, void* argument) __asm__("ioctl");

STAND_IN int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    return PlainIoctl(fd, request, argument);
}

#endif

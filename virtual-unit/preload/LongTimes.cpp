// The stand-ins for programs that have 64-bit times on a 32-bit machine. Compiled with such times, so that
// the C library's headers give them the names that those programs call.

#include "virtual-unit/time/Real.h"

#if VIRTUAL_TIME_LONG_NAMES

#include "virtual-unit/preload/FileTimes.h"

#include <cstdarg>
#include <sys/ioctl.h>

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

#include "benchmarks/UnitPath.h"

#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace
{

const char* redirectedPath = nullptr;
const char* redirectedTo = nullptr;

int RealOpen(const char* path, int flags, mode_t mode)
{
    if (redirectedPath != nullptr && std::strcmp(path, redirectedPath) == 0)
    {
        path = redirectedTo;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

mode_t ModeOf(int flags, va_list arguments)
{
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}

// The library is shared: its calls of open() come here.
extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return RealOpen(path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return RealOpen(path, flags, mode);
}

namespace Benchmarks
{

UnitPath::UnitPath(const char* unitPath, std::string theTarget) : target(std::move(theTarget))
{
    redirectedTo = target.c_str();
    redirectedPath = unitPath;
}

UnitPath::~UnitPath()
{
    redirectedPath = nullptr;
}

}

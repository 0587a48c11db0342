#include "benchmarks/UnitTerminal.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

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

void Require(bool done, const char* what)
{
    if (!done)
    {
        std::perror(what);
        std::exit(1);
    }
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

UnitTerminal::UnitTerminal(const char* unitPath) : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    Require(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0, "pseudo terminal");
    std::array<char, 64> name{};
    Require(ptsname_r(master, name.data(), name.size()) == 0, "pseudo terminal");
    slavePath = name.data();
    slave = RealOpen(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC, 0);
    Require(slave >= 0, name.data());
    struct termios settings = {};
    Require(tcgetattr(slave, &settings) == 0, name.data());
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    settings.c_iflag &= ~static_cast<tcflag_t>(ICRNL);
    Require(tcsetattr(slave, TCSANOW, &settings) == 0, name.data());
    redirectedTo = slavePath.c_str();
    redirectedPath = unitPath;
}

UnitTerminal::~UnitTerminal()
{
    redirectedPath = nullptr;
    close(slave);
    close(master);
}

void UnitTerminal::Feed(std::string_view text) const
{
    Require(write(master, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "pseudo terminal");
    // The kernel passes it on by a work queue of its own.
    int arrived = 0;
    while (ioctl(slave, FIONREAD, &arrived) == 0 && arrived < static_cast<int>(text.size()))
    {
        sched_yield();
    }
}

}

#include "benchmarks/UnitTerminal.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace
{

void Require(bool done, const char* what)
{
    if (!done)
    {
        std::perror(what);
        std::exit(1);
    }
}

}

namespace Benchmarks
{

UnitTerminal::UnitTerminal(const char* unitPath) : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    Require(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0, "pseudo terminal");
    std::array<char, 64> name{};
    Require(ptsname_r(master, name.data(), name.size()) == 0, "pseudo terminal");
    slavePath = name.data();
    slave = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    Require(slave >= 0, name.data());
    struct termios settings = {};
    Require(tcgetattr(slave, &settings) == 0, name.data());
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    settings.c_iflag &= ~static_cast<tcflag_t>(ICRNL);
    Require(tcsetattr(slave, TCSANOW, &settings) == 0, name.data());
    redirection.emplace(unitPath, slavePath);
}

UnitTerminal::~UnitTerminal()
{
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

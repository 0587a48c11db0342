#include "examples/unit-monitor/Suspension.h"

#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace UnitMonitor
{

namespace
{

sigset_t Signal()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTSTP);
    return set;
}

}

Suspension::Suspension()
{
    const sigset_t set = Signal();
    source = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    if (source < 0)
    {
        throw std::system_error(errno, std::generic_category(), "no descriptor for SIGTSTP");
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

Suspension::~Suspension()
{
    close(source);
}

bool Suspension::Take() const
{
    signalfd_siginfo info = {};
    return read(source, &info, sizeof(info)) > 0;
}

void Suspension::Obey() const
{
    const sigset_t set = Signal();
    raise(SIGTSTP); // for this thread, which is stopped, with all others, as soon as it lets it through
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}

#include "base/Tavbase/Interfaces/InterruptSignal.h"

#include <csignal>

namespace Tavbase::Interfaces
{

namespace
{

void Nothing(int)
{
}

/// The highest free number: applications that use real-time signals count up from SIGRTMIN.
int TakeFreeNumber()
{
    for (int number = SIGRTMAX; number >= SIGRTMIN; --number)
    {
        struct sigaction present = {};
        if (sigaction(number, nullptr, &present) != 0 || (present.sa_flags & SA_SIGINFO) != 0 ||
            present.sa_handler != SIG_DFL)
        {
            continue;
        }
        struct sigaction mine = {};
        mine.sa_handler = Nothing;
        mine.sa_flags = 0; // without SA_RESTART: a blocked read has to come back
        sigemptyset(&mine.sa_mask);
        if (sigaction(number, &mine, nullptr) == 0)
        {
            return number;
        }
    }
    return 0;
}

}

int InterruptSignal::Number()
{
    static const int number = TakeFreeNumber();
    return number;
}

void InterruptSignal::AcceptOnThisThread()
{
    Mask(SIG_UNBLOCK);
}

void InterruptSignal::RefuseOnThisThread()
{
    Mask(SIG_BLOCK);
}

void InterruptSignal::Mask(int how)
{
    if (Number() != 0)
    {
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, Number());
        pthread_sigmask(how, &one, nullptr);
    }
}

void InterruptSignal::Send(pthread_t thread)
{
    if (Number() != 0)
    {
        pthread_kill(thread, Number());
    }
}

}

#ifndef BASE_TAVBASE_INTERFACES_SIGNALSBLOCKED_H
#define BASE_TAVBASE_INTERFACES_SIGNALSBLOCKED_H

#include <csignal>

namespace Tavbase::Interfaces
{

/**
 * While one lives, the calling thread takes no asynchronous signal; a thread created meanwhile inherits
 * that for its whole life. The signals of a fault stay open, so that an application's crash handler works
 * on every thread, and so does a profiler's.
 */
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF})
        {
            sigdelset(&all, fault);
        }
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }

    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before{};
};

}

#endif

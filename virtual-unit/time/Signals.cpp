// Signals that are sent: their handlers run in threads that seem to wait.

#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Waits.h"

#include <csignal>
#include <pthread.h>
#include <unistd.h>

using namespace VirtualTime;

// The real declarations carry attributes that a definition elsewhere does not repeat.
#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"

STAND_IN int pthread_kill(pthread_t thread, int signal)
{
    Waits::Disturb(getpid());
    return REAL_CALL(pthread_kill)(thread, signal);
}

STAND_IN int kill(pid_t process, int signal) noexcept
{
    Waits::Disturb(process > 0 ? process : 0);
    return REAL_CALL(kill)(process, signal);
}

STAND_IN int sigqueue(pid_t process, int signal, const sigval value) noexcept
{
    Waits::Disturb(process);
    return REAL_CALL(sigqueue)(process, signal, value);
}

STAND_IN int pthread_sigqueue(pthread_t thread, int signal, const sigval value) noexcept
{
    Waits::Disturb(getpid());
    return REAL_CALL(pthread_sigqueue)(thread, signal, value);
}

STAND_IN int raise(int signal) noexcept
{
    Waits::Disturb(getpid());
    return REAL_CALL(raise)(signal);
}

STAND_IN int pthread_cancel(pthread_t thread)
{
    const int error = REAL_CALL(pthread_cancel)(thread);
    if (error == 0)
    {
        Waits::Interrupt(thread);
    }
    return error;
}

#ifndef BASE_TAVBASE_INTERFACES_INTERRUPTSIGNAL_H
#define BASE_TAVBASE_INTERFACES_INTERRUPTSIGNAL_H

#include <pthread.h>

namespace Tavbase::Interfaces
{

/**
 * The real-time signal that ends a system call of a worker from outside. Its handler does nothing; what
 * counts is that the call returns with EINTR. One number for the process, taken at the first use from
 * those that still have their default disposition, so that no handler of the application is replaced.
 */
class InterruptSignal
{
public:
    static void AcceptOnThisThread();   ///< for the worker: takes the signal while all others stay blocked
    static void RefuseOnThisThread();   ///< blocked again, as in every new worker
    static void Send(pthread_t thread); ///< nothing when every real-time signal is in use

private:
    static int Number();
    static void Mask(int how);
};

}

#endif

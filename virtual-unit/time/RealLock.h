#ifndef VIRTUAL_UNIT_TIME_REALLOCK_H
#define VIRTUAL_UNIT_TIME_REALLOCK_H

#include "base/ThreadSafety.h"
#include "virtual-unit/time/Real.h"

#include <csignal>
#include <cstdint>
#include <pthread.h>
#include <sys/syscall.h>

namespace VirtualTime
{

using RealMutex TAV_LOCK = pthread_mutex_t;

/// A real lock, below everything that the process's own locks may be doing. Signals wait: their handlers may
/// post semaphores and the like.
class TAV_LOCK_HOLDER RealLock
{
public:
    explicit RealLock(RealMutex& which) TAV_TAKES(which) : mutex(which)
    {
        constexpr std::uint64_t ALL = ~std::uint64_t{0};
        RawCall(SYS_rt_sigprocmask, SIG_BLOCK, &ALL, &signals, sizeof signals);
        REAL_CALL(pthread_mutex_lock)(&mutex);
    }

    ~RealLock() TAV_GIVES_BACK
    {
        REAL_CALL(pthread_mutex_unlock)(&mutex);
        RawCall(SYS_rt_sigprocmask, SIG_SETMASK, &signals, nullptr, sizeof signals);
    }

    RealLock(const RealLock&) = delete;
    RealLock& operator=(const RealLock&) = delete;

private:
    RealMutex& mutex;
    std::uint64_t signals = 0;
};

}

#endif

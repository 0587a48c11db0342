// Threads and processes: whoever creates one says so, and whoever waits for the end of a thread is told of
// it.

#include "virtual-unit/time/Calls.h"
#include "virtual-unit/time/Real.h"
#include "virtual-unit/time/Waits.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <pthread.h>
#include <spawn.h>
#include <unistd.h>

using namespace VirtualTime;

// The real declarations carry attributes that a definition elsewhere does not repeat.
#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace
{

struct Start
{
    void* (*routine)(void*);
    void* argument;
};

const void* ObjectOf(pthread_t thread)
{
    return reinterpret_cast<const void*>(thread); // NOLINT(performance-no-int-to-ptr): nobody looks behind it
}

/// Tells those who wait for the end of the calling thread, however it ends.
struct End
{
    ~End() { Waits::ObjectWait::Announce(ObjectOf(pthread_self()), INT_MAX); }
};

void* Run(void* argument)
{
    const Start start = *static_cast<Start*>(argument);
    delete static_cast<Start*>(argument);
    const End end;
    Waits::AwaitTurn();
    return start.routine(start.argument);
}

}

STAND_IN int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                            void* argument) noexcept
{
    auto* const start = new (std::nothrow) Start{routine, argument};
    if (start == nullptr)
    {
        return EAGAIN;
    }
    const Waits::Creation creation;
    const int error = REAL_CALL(pthread_create)(thread, attributes, Run, start);
    if (error != 0)
    {
        delete start;
    }
    return error;
}

STAND_IN pid_t fork() noexcept
{
    Waits::Creation creation;
    const pid_t child = REAL_CALL(fork)();
    if (child == 0)
    {
        creation.LeaveToOther(); // the parent's part
    }
    return child;
}

STAND_IN int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                         const posix_spawnattr_t* attributes, char* const arguments[],
                         char* const environment[])
{
    const Waits::Creation creation;
    return REAL_CALL(posix_spawn)(process, path, actions, attributes, arguments, environment);
}

STAND_IN int posix_spawnp(pid_t* process, const char* file, const posix_spawn_file_actions_t* actions,
                          const posix_spawnattr_t* attributes, char* const arguments[],
                          char* const environment[])
{
    const Waits::Creation creation;
    return REAL_CALL(posix_spawnp)(process, file, actions, attributes, arguments, environment);
}

STAND_IN int system(const char* command)
{
    const Waits::Creation creation;
    return REAL_CALL(system)(command);
}

STAND_IN FILE* popen(const char* command, const char* mode)
{
    const Waits::Creation creation;
    return REAL_CALL(popen)(command, mode);
}

STAND_IN int pthread_clockjoin_np(pthread_t thread, void** result, clockid_t clock, const timespec* deadline)
{
    const void* const object = ObjectOf(thread);
    while (Waits::Virtual())
    {
        int error = pthread_tryjoin_np(thread, result);
        if (error != EBUSY)
        {
            return error;
        }
        const std::int64_t due = Calls::Deadline(clock, *deadline);
        if (Waits::Monotonic() >= due)
        {
            return ETIMEDOUT;
        }
        Waits::ObjectWait wait(object, due);
        error = pthread_tryjoin_np(thread, result);
        if (error != EBUSY)
        {
            return error;
        }
        if (wait.Wait() == Waits::Wake::Event)
        {
            return pthread_join(thread, result); // it is ending
        }
    }
    return REAL_CALL(pthread_clockjoin_np)(thread, result, clock, deadline);
}

STAND_IN int pthread_timedjoin_np(pthread_t thread, void** result, const timespec* deadline)
{
    return Waits::Virtual() ? pthread_clockjoin_np(thread, result, CLOCK_REALTIME, deadline)
                            : REAL_CALL(pthread_timedjoin_np)(thread, result, deadline);
}

#ifndef TESTS_KIT_CLOCKCORE_H
#define TESTS_KIT_CLOCKCORE_H

// What the stand-ins of the C library need of the virtual clock. Nothing here allocates.

#include <cstdint>
#include <ctime>
#include <poll.h>
#include <pthread.h>

namespace Kit::ClockCore
{

bool Virtual();
std::int64_t Monotonic(); ///< virtual, in nanoseconds
std::int64_t Wall();      ///< virtual, in nanoseconds since 1970

enum class Wake : std::uint8_t
{
    Deadline,
    Event, ///< the condition was signalled, a descriptor is ready
    Signal ///< a signal was handled
};

Wake SleepUntil(std::int64_t monotonic);

/// As pthread_cond_wait() with a deadline; the mutex is held on entry and on return.
Wake WaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, std::int64_t monotonic);

/// As poll() with a deadline. `ready` receives the result of the last look at the descriptors.
Wake WaitDescriptors(pollfd* fds, nfds_t count, std::int64_t monotonic, const sigset_t* mask, int& ready);

}

#endif

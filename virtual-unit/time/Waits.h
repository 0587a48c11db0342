#ifndef VIRTUAL_UNIT_TIME_WAITS_H
#define VIRTUAL_UNIT_TIME_WAITS_H

// What lies under virtual time: the clocks' values, and the threads of this process that wait for them.
// Nothing here allocates. Calling threads: any, but FireEarliest() and FireAll() belong to one, which moves
// the time.

#include <atomic>
#include <cstdint>
#include <ctime>
#include <limits>
#include <poll.h>
#include <pthread.h>

namespace VirtualTime::Waits
{

constexpr std::int64_t NANOSECONDS = 1'000'000'000; ///< in a second
constexpr std::int64_t NEVER = std::numeric_limits<std::int64_t>::max();

/// The present time, in nanoseconds. It may lie in memory that several processes share.
struct Time
{
    std::atomic<bool> on{false}; ///< otherwise time is real
    std::atomic<std::int64_t> startMonotonic{0};
    std::atomic<std::int64_t> passed{0}; ///< since the start
    std::atomic<std::int64_t> wallAtStart{0};
    std::atomic<std::int64_t> leftBehind{0}; ///< how far virtual time has run ahead of the real one so far
};

/// The time that this process lives in. Set before any thread waits, but for `earliest`, which `beforeWait`
/// may set.
struct Place
{
    Time* time;
    std::atomic<std::atomic<std::int64_t>*> earliest; ///< takes the earliest deadline of its threads
    void (*beforeWait)();                             ///< called before each wait; null: nothing
};

extern Place place; ///< of this process alone, unless changed

bool Virtual();
std::int64_t Monotonic(); ///< virtual, in nanoseconds
std::int64_t Wall();      ///< virtual, in nanoseconds since 1970
std::int64_t RealNow(clockid_t clock);

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

/// Moves time to the earliest deadline in this process and wakes the thread that waits for it.
/// @return false when nobody waits, or is on his way already
bool FireEarliest();

void FireAll();       ///< at once, whatever the time
bool SomebodyWaits(); ///< or has not taken notice yet that he does not any more
void ForgetWaiters(); ///< in the child of a fork, which has none of these threads

/// Terminals: what has been written to one is delivered by DeliverTerminals().
void AddTerminal(int fd);
void RemoveTerminal(int fd);
void DeliverTerminals();

void RealPause(std::int64_t nanoseconds = 20'000); ///< less than a second, in real time

}

#endif

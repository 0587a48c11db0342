#ifndef VIRTUAL_UNIT_TIME_WAITS_H
#define VIRTUAL_UNIT_TIME_WAITS_H

// What lies under virtual time: the clocks' values, and the threads that wait for them. Nothing here
// allocates. Calling threads: any, but FireEarliest(), FireAll(), Hold() and LetGo() belong to one, the
// leader, which moves the time.

#include "virtual-unit/time/Nanoseconds.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <poll.h>
#include <pthread.h>

namespace VirtualTime::Waits
{

constexpr std::int64_t NEVER = std::numeric_limits<std::int64_t>::max();

enum class Wake : std::uint8_t
{
    None,
    Deadline,
    Event, ///< the condition was signalled, a descriptor is ready
    Signal ///< a signal was handled
};

/// The present time, in nanoseconds.
struct Time
{
    std::atomic<bool> on{false}; ///< otherwise time is real
    std::atomic<std::int64_t> startMonotonic{0};
    std::atomic<std::int64_t> passed{0}; ///< since the start; while time is held, until it was
    std::atomic<std::int64_t> wallAtStart{0};
    std::atomic<std::int64_t> leftBehind{0}; ///< how far virtual time has run ahead of the real one so far
    std::atomic<std::int64_t> heldSince{0};  ///< by the real clock; 0: it is not
    std::atomic<std::uint32_t> changes{0};   ///< odd while `passed` and `heldSince` change together
};

/// What a thread does, in the lowest bits of Slot::stand.
enum class Stand : std::uint8_t
{
    Runs,     ///< or waits for something that is not known here
    Parked,   ///< waits for its own slot: whoever wakes it says so there first
    InCall,   ///< waits in the kernel, for descriptors
    Disturbed ///< was parked or in a call, and may run now: a signal has been sent to it
};

/// What a thread in a call waits for, as far as it is told: to be read while the stand stays the same.
struct Watched
{
    static constexpr std::uint32_t NOT_TOLD = ~0U;

    struct File
    {
        std::atomic<int> descriptor{-1};
        std::atomic<short> events{0};
    };

    std::atomic<std::uint32_t> count{NOT_TOLD};
    std::array<File, 8> files{};
};

/// A thread that has waited. The slot of one that has ended is given anew.
struct Slot
{
    std::atomic<pid_t> thread{0}; ///< 0: free
    std::atomic<pid_t> process{0};
    std::atomic<pthread_t> handle{};     ///< in its process
    std::atomic<bool> isAgent{false};    ///< see SharedTime.cpp
    std::atomic<bool> isProgram{false};  ///< the first thread of a program that lives in virtual time
    std::atomic<std::uint32_t> stand{0}; ///< above the Stand a number that changes with it
    std::atomic<std::uint32_t> wake{0};  ///< a Wake, likewise; what a parked thread sleeps on
    std::atomic<std::int64_t> deadline{NEVER};
    std::atomic<int> event{-1}; ///< wakes a wait for descriptors, in its process
    Watched watched;
};

/// All threads in one time: of a process, or of several that share the memory.
struct Board
{
    Time time;
    std::atomic<std::uint32_t> entries{0}; ///< how often a thread has begun to wait
    std::atomic<bool> leaderSleeps{false}; ///< on `entries`
    std::atomic<std::uint32_t> used{0};    ///< slots beyond have never been
    // Where the processes count what they create; elsewhere both stay as they are.
    std::atomic<std::uint32_t> created{0};  ///< threads and processes
    std::atomic<std::uint32_t> creators{0}; ///< threads that may be creating some just now
    std::array<Slot, 1024> slots{};

    /// Whether a process has a program that lives in virtual time; not for certain before its first wait.
    bool Has(pid_t process) const;
};

/// The time that this process lives in. Set before any thread waits.
struct Place
{
    Board* board;
    void (*beforeCall)(); ///< called before a wait for descriptors; null: the leader lives in this process
    bool (*wakeCall)(Slot& slot); ///< has a wait for descriptors in another process end; null: there is none
    /// The program closes no descriptors that it has not opened: what ends a thread's waits for descriptors
    /// may stay open as long as the thread.
    bool keepsEvents;
    /// A thread that says that it is parked may still hold up others, in an emulator that runs one at a time.
    bool isEmulated;
};

extern Place place; ///< of this process alone, unless changed

Slot& OwnSlot(); ///< of the calling thread

Stand StandOf(std::uint32_t stand);

/// Parked, and not yet woken.
bool IsParked(const Slot& slot);
void Free(Slot& slot);
void EndCall(Slot& slot); ///< of this process, whose deadline has come: it waits for descriptors

bool Virtual();
std::int64_t Monotonic(); ///< virtual, in nanoseconds
std::int64_t Wall();      ///< virtual, in nanoseconds since 1970
std::int64_t RealNow(clockid_t clock);

Wake SleepUntil(std::int64_t monotonic);

/// The begin of a new thread: waits until all others wait. Which of two threads begins would be left to the
/// kernel, and a run would differ from the next one.
void AwaitTurn();

/**
 * Before a wait for an object (a futex, a semaphore, a mutex ...), which others announce by WakeObject():
 * from its construction on no announcement is missed. Then look once more whether the wait is needed.
 */
class ObjectWait
{
public:
    ObjectWait(const void* what, std::int64_t monotonic);
    ~ObjectWait();
    ObjectWait(const ObjectWait&) = delete;
    ObjectWait& operator=(const ObjectWait&) = delete;

    void Until(std::int64_t monotonic); ///< another deadline

    /// Once. Signal: a handler ran, or the wait was ended for another reason: look again.
    Wake Wait();

    static int Announce(const void* object, int most); ///< @return how many were woken, the oldest first
    static void ForgetAll();                           ///< in the child of a fork

private:
    const void* object;
    Slot& slot;
    const std::uint32_t unwoken;
    ObjectWait* next = nullptr;
};

/// While one lives, the calling thread, whose slot it is, is parked or in a call; also when it is cancelled.
class Waiting
{
public:
    /// @param fds what a call waits for; null: it is not told
    Waiting(Slot& own, Stand how, const pollfd* fds = nullptr, nfds_t count = 0);
    ~Waiting();
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    Slot& slot;
};

/// As poll() with a deadline. `ready` receives the result of the last look at the descriptors.
Wake WaitDescriptors(pollfd* fds, nfds_t count, std::int64_t monotonic, const sigset_t* mask, int& ready);

/// Moves time to the earliest deadline and wakes the thread that waits for it. While time is held: if the
/// deadline has come.
/// @return false when nobody waits (or none whose time has come), or is on his way already
bool FireEarliest();

void FireAll();       ///< at once, whatever the time
bool SomebodyWaits(); ///< or has not taken notice yet that he does not any more
void ForgetWaiters(); ///< in the child of a fork, which has none of these threads

void Wakeful(Slot& slot, Wake wake); ///< ends its wait, if it waits

/// A thread of this process is cancelled: it is to take notice, wherever it is parked.
void Interrupt(pthread_t thread);

/// While one lives, the calling thread creates threads or processes.
class Creation
{
public:
    Creation() { ++place.board->creators; }

    ~Creation()
    {
        ++place.board->created;
        if (own)
        {
            --place.board->creators;
        }
    }

    Creation(const Creation&) = delete;
    Creation& operator=(const Creation&) = delete;

    void LeaveToOther() { own = false; } ///< in the child of a fork

private:
    bool own = true;
};

/// A signal may come to any thread of a process (0: of all of them): it may run at any time, unannounced.
void Disturb(pid_t process);

/// Until LetGo() virtual time goes with the real one. @param since by the real monotonic clock
void Hold(std::int64_t since);
void LetGo();

constexpr std::size_t MOST_TERMINALS = 64;

/// Terminals: a look at one delivers what is still on its way to it through the kernel.
void AddTerminal(int fd);
void RemoveTerminal(int fd);
std::size_t ListTerminals(pollfd* looks); ///< @param looks has room for all @return how many there are

void RealPause(std::int64_t nanoseconds = 20'000); ///< less than a second, in real time

/// The leader's pause until a thread begins to wait, or in vain. @param seen Board::entries before the last
/// look
void AwaitEntry(std::uint32_t seen, std::int64_t most);

}

#endif

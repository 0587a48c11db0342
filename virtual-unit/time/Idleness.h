#ifndef VIRTUAL_UNIT_TIME_IDLENESS_H
#define VIRTUAL_UNIT_TIME_IDLENESS_H

#include "virtual-unit/time/Waits.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <sys/types.h>

namespace VirtualTime
{

/**
 * Tells whether all threads of this process (and of its descendants) wait. Of those that are parked the slots
 * tell; of those in a call of this process what they wait for, if they told it; of all others the kernel, in
 * /proc. One thread makes it and uses it. Nothing here allocates.
 */
class Idleness
{
public:
    /**
     * @param alsoOfDescendants and the processes count what they create (Waits::Creation), as far as they
     * live in virtual time
     */
    explicit Idleness(bool alsoOfDescendants);

    ~Idleness();

    Idleness(const Idleness&) = delete;
    Idleness& operator=(const Idleness&) = delete;

    /// True when no thread but the calling one has been on a processor, or waited for one, between two looks.
    /// What is on its way through a terminal is delivered between them.
    bool AllWait();

    /// True when all threads that can say that they wait do so. It costs nothing.
    bool AllSaySo() const;

    /**
     * Waits in real time: threads that are in a system call with a time-out, which the C library's functions
     * would have made a virtual one.
     * @param lookAgain unless all threads have just been found waiting
     * @return the process of one of them, 0 when there is none
     */
    pid_t WaitsInRealTime(bool lookAgain);

    /// False for a process that is gone, or has ended and not been waited for.
    static bool IsAlive(pid_t process);

private:
    struct Thread
    {
        pid_t id = 0;
        pid_t process = 0;
        int turns = -1; ///< descriptors of its files in /proc
        int place = -1; ///< in the kernel, where it waits
        const Waits::Slot* slot = nullptr;
        std::uint32_t stand = 0; ///< of the slot, at the first look
        std::int64_t turnsThen = 0;
        std::uint64_t sleepsIn = 0; ///< a place where it has been seen to sleep
        std::int64_t judged = -1;   ///< its turns when `inRealTime` was found out
        bool inRealTime = false;
        bool listed = false;
        bool waitsForWatched = false; ///< found by a look at what it waits for
    };

    struct Process
    {
        int task = -1;             ///< descriptor of its directory of threads in /proc
        unsigned long threads = 0; ///< how many links it had when the list was made
    };

    long LatestThread();
    bool IsListStale();
    bool HasOtherThreads() const;
    bool List();
    bool ListProcess(pid_t process);
    bool ListChildren(int task, const char* thread);
    bool Add(pid_t process, pid_t id, int task);
    void FindSlots();
    static void Close(Thread& thread);
    void Forget();
    void ForgetProcesses();
    bool FirstLook();
    bool LookAtFiles();
    bool SecondLook();
    bool Sleeps(Thread& thread);
    static bool IsSeenSleepingAt(std::string_view place, const Thread& thread);
    static bool IsAccountedFor(const Thread& thread);
    static char StateOf(const Thread& thread);
    static bool JudgeRealTime(const Thread& thread);

    static constexpr long NOT_KNOWN = -1;

    bool descendants;
    pid_t own; ///< ID of the thread that looks
    pid_t ownProcess;
    int load = -1;                 ///< /proc/loadavg
    long latestThread = NOT_KNOWN; ///< when the list was made
    bool placesAreTold = false;    ///< by this kernel
    std::uint32_t created = 0;     ///< Board::created, likewise
    bool complete = false;         ///< the list, for certain
    bool strangers = false;        ///< it has processes that do not live in virtual time
    std::array<Thread, 1024> threads{};
    std::size_t count = 0;
    std::array<Process, 64> processes{}; ///< the first ones
    std::size_t processCount = 0;
    std::size_t lastBusy = 0; ///< is looked at first
    std::array<pollfd, Waits::MOST_TERMINALS + 256> looks{};
};

}

#endif

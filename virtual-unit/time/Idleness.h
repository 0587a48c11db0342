#ifndef VIRTUAL_UNIT_TIME_IDLENESS_H
#define VIRTUAL_UNIT_TIME_IDLENESS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace VirtualTime
{

/**
 * Tells whether all threads of this process (and of its descendants) wait, by looking at /proc. One thread
 * makes it and uses it. Nothing here allocates.
 */
class Idleness
{
public:
    explicit Idleness(bool alsoOfDescendants);

    ~Idleness();

    Idleness(const Idleness&) = delete;
    Idleness& operator=(const Idleness&) = delete;

    /// True when no thread but the calling one has been on a processor, or waited for one, between two looks.
    /// What is on its way through a terminal is delivered between them.
    bool AllWait();

    /// False for a process that is gone, or has ended and not been waited for.
    static bool IsAlive(pid_t process);

private:
    struct Thread
    {
        pid_t id = 0;
        int state = -1; ///< descriptors of its files in /proc
        int turns = -1;
        int place = -1; ///< in the kernel, where it waits
    };

    long LatestThread();
    void List();
    std::int64_t SumOfIds() const;
    void ListProcess(pid_t process);
    void ListChildren(int task, const char* thread);
    void Forget();
    std::int64_t Turns();
    bool Waits(const Thread& thread, char state);

    static constexpr long NOT_KNOWN = -1;

    bool descendants;
    pid_t own;                     ///< ID of the thread that looks
    int load = -1;                 ///< /proc/loadavg
    long latestThread = NOT_KNOWN; ///< when the list was made
    bool placesAreTold = false;    ///< by this kernel
    bool complete = false;         ///< the list, for certain
    std::array<Thread, 256> threads{};
    std::size_t count = 0;
    std::size_t lastBusy = 0; ///< is looked at first
};

}

#endif

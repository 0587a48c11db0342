#ifndef TESTS_KIT_LEAKS_H
#define TESTS_KIT_LEAKS_H

#include <cstdint>

namespace Kit
{

/**
 * What the process holds. The kit takes it before each test and after it, and a test that leaves more
 * behind has failed: open descriptors, threads, memory from operator new, a log line that is still open.
 */
class Leaks
{
public:
    struct Holdings
    {
        int descriptors = 0;
        int threads = 0;
        std::int64_t allocations = 0; ///< from operator new, still there; see CanCount()
    };

    static Holdings Present();

    /// The same once there are no more threads than so many, or after a minute: one that has been joined may
    /// take the kernel a moment to forget.
    static Holdings PresentWithThreads(int threads);

    static std::int64_t AllocationsMade(); ///< by operator new so far, freed or not; see CanCount()

    static bool CanCount(); ///< not under a sanitizer, which has the memory itself

    /// The calling thread's allocations by operator new fail from the nth on, counted from now, so many
    /// times.
    static void RefuseAllocations(std::int64_t nth, std::int64_t times);
    static std::int64_t RefusalsDone(); ///< of the calling thread, since RefuseAllocations(), which it ends

    /// While one lives the calling thread is refused nothing: what the kit needs is not the library's.
    class NotRefused
    {
    public:
        NotRefused();
        ~NotRefused();
        NotRefused(const NotRefused&) = delete;
        NotRefused& operator=(const NotRefused&) = delete;

    private:
        std::int64_t before;
    };

    static bool TakeAllocation(); ///< for operator new: counts one @return false when it is refused
    static void GiveAllocation(); ///< for operator delete

    /// Adds the check after each test; called by the kit's main.
    static void CheckEveryTest();

    /// For a test that has to leave something behind, for example memory by order: says what.
    static void Allow(const Holdings& extra);
};

}

#endif

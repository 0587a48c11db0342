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
        std::int64_t allocations = 0; ///< from operator new, still there; not counted under a sanitizer
    };

    static Holdings Present();

    /// Allocations by operator new so far, freed or not. Not counted under a sanitizer (CanCount()).
    static std::int64_t AllocationsMade();
    static bool CanCount();

    /// Adds the check after each test; called by the kit's main.
    static void CheckEveryTest();

    /// For a test that has to leave something behind, for example memory by order: says what.
    static void Allow(const Holdings& extra);
};

}

#endif

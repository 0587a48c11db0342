#ifndef TESTS_KIT_CLOCK_H
#define TESTS_KIT_CLOCK_H

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>

namespace Kit
{

/**
 * Virtual time for the whole test process. While one lives, every clock that the process reads stands
 * still; when all its threads wait, it jumps to the earliest deadline among them and wakes the one thread
 * that waits for it. A sleep of an hour takes as long as a sleep of a millisecond, and what happens at
 * which time is the same in every run.
 *
 * The monotonic clocks go on from the real time; the wall clock starts at START (2026-03-01 08:15:00 UTC).
 */
class Clock
{
public:
    static constexpr std::time_t START = 1772352900;

    Clock();
    ~Clock();
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

    static std::chrono::nanoseconds Elapsed();     ///< virtual time since the construction
    static void SetWallClock(std::time_t seconds); ///< as when the unit gets its time from the network

    /// Waits, in virtual time, until the condition holds. @return false when `limit` has passed
    static bool WaitUntil(const std::function<bool()>& condition,
                          std::chrono::milliseconds limit = std::chrono::seconds(30));

    /// Waits for the kernel, in real time, until the condition holds. Virtual time stands still.
    static void AwaitKernel(const std::function<bool()>& condition);

    /// Terminals of the kit: what has been written to one is delivered before the clock jumps.
    static void AddTerminal(int fd);
    static void RemoveTerminal(int fd);
};

}

#endif

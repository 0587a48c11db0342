#include "tests/kit/Clock.h"

#include "virtual-unit/time/Idleness.h"
#include "virtual-unit/time/Waits.h"

#include <atomic>
#include <pthread.h>

namespace Kit
{

namespace
{

namespace Waits = VirtualTime::Waits;

constexpr std::int64_t PAUSE = 50'000; // nanoseconds, unless somebody begins to wait

std::atomic<bool> ending{false};
pthread_t ticker = {};
std::atomic<bool> ticking{false};
std::atomic<int> kernelWorks{0};    ///< so many threads wait for that
std::atomic<unsigned> hasWorked{0}; ///< so often

void* Tick(void*)
{
    VirtualTime::Idleness threads(false);
    ticking = true;
    while (!ending)
    {
        const std::uint32_t seen = Waits::place.board->entries;
        const unsigned worked = hasWorked;
        if (!Waits::SomebodyWaits() || !threads.AllWait() || kernelWorks > 0 || hasWorked != worked ||
            !Waits::FireEarliest())
        {
            Waits::AwaitEntry(seen, PAUSE);
        }
    }
    return nullptr;
}

}

Clock::Clock()
{
    Waits::Time& time = Waits::place.board->time;
    time.startMonotonic = Waits::Monotonic();
    time.passed = 0;
    time.wallAtStart = START * VirtualTime::NANOSECONDS;
    ending = false;
    ticking = false;
    time.on = true;
    pthread_create(&ticker, nullptr, Tick, nullptr);
    while (!ticking)
    {
        Waits::RealPause();
    }
}

Clock::~Clock()
{
    ending = true;
    pthread_join(ticker, nullptr);
    Waits::Time& time = Waits::place.board->time;
    time.leftBehind = Waits::Monotonic() - Waits::RealNow(CLOCK_MONOTONIC);
    time.on = false;
    // Whoever still sleeps sleeps no longer.
    while (Waits::SomebodyWaits())
    {
        Waits::FireAll();
        Waits::RealPause();
    }
}

std::chrono::nanoseconds Clock::Elapsed()
{
    return std::chrono::nanoseconds(Waits::place.board->time.passed.load());
}

void Clock::SetWallClock(std::time_t seconds)
{
    Waits::Time& time = Waits::place.board->time;
    time.wallAtStart = seconds * VirtualTime::NANOSECONDS - time.passed;
}

bool Clock::WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    constexpr std::chrono::milliseconds STEP{5};
    for (auto waited = std::chrono::milliseconds::zero(); waited < limit; waited += STEP)
    {
        if (condition())
        {
            return true;
        }
        Waits::SleepUntil(Waits::Monotonic() + std::chrono::nanoseconds(STEP).count());
    }
    return condition();
}

void Clock::AwaitKernel(const std::function<bool()>& condition)
{
    ++kernelWorks;
    while (!condition())
    {
        Waits::RealPause(); // not a yield: on a busy machine the kernel's workers get their turn much later
    }
    ++hasWorked; // this thread seemed to sleep a moment ago
    --kernelWorks;
}

void Clock::AddTerminal(int fd)
{
    Waits::AddTerminal(fd);
}

void Clock::RemoveTerminal(int fd)
{
    Waits::RemoveTerminal(fd);
}

}

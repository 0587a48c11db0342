#include "tests/kit/Leaks.h"

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/System.h"
#include "virtual-unit/time/Waits.h"

#include <atomic>
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utility>

namespace
{

std::atomic<std::int64_t> made{0};
std::atomic<std::int64_t> freed{0};

thread_local std::int64_t allocationsLeft = 0; // until one is refused
thread_local std::int64_t refusalsLeft = 0;
thread_local std::int64_t refusalsDone = 0;

}

namespace Kit
{

namespace
{

Leaks::Holdings allowed;

bool counting = false;

int CountEntries(const char* path)
{
    DIR* const directory = opendir(path);
    int count = 0;
    while (readdir(directory) != nullptr)
    {
        ++count;
    }
    closedir(directory);
    return count;
}

void RealPause()
{
    VirtualTime::Waits::RealPause(1'000'000);
}

class Checker : public testing::EmptyTestEventListener
{
    void OnTestStart(const testing::TestInfo&) override
    {
        System::Reset();
        allowed = {};
        before = Leaks::Present();
    }

    void OnTestEnd(const testing::TestInfo& info) override
    {
        System::Reset();
        if (info.result()->Skipped() || info.result()->Failed())
        {
            return;
        }
        CheckSinkLocks();
        const Leaks::Holdings after = Leaks::PresentWithThreads(before.threads + allowed.threads);
        EXPECT_EQ(after.descriptors, before.descriptors + allowed.descriptors) << "descriptors left behind";
        EXPECT_EQ(after.threads, before.threads + allowed.threads) << "threads left behind";
        EXPECT_EQ(after.allocations, before.allocations + allowed.allocations) << "memory left behind";
    }

    /// A line that is still open would keep Flush() waiting for ever: better a message than a time-out.
    static void CheckSinkLocks()
    {
        alarm(60);
        Tavbase::Tavlog::Logger::GetInstance().Flush();
        alarm(0);
    }

    Leaks::Holdings before;
};

}

Leaks::Holdings Leaks::Present()
{
    Holdings present;
    present.descriptors = CountEntries("/proc/self/fd");
    present.threads = CountEntries("/proc/self/task");
    present.allocations = made - freed;
    return present;
}

Leaks::Holdings Leaks::PresentWithThreads(int threads)
{
    constexpr int MOST_PAUSES = 60'000; // a minute
    Holdings present = Present();
    for (int wait = 0; wait < MOST_PAUSES && present.threads > threads; ++wait)
    {
        RealPause();
        present = Present();
    }
    return present;
}

std::int64_t Leaks::AllocationsMade()
{
    return made;
}

Leaks::NotRefused::NotRefused() : before(std::exchange(refusalsLeft, 0))
{
}

Leaks::NotRefused::~NotRefused()
{
    refusalsLeft = before;
}

bool Leaks::TakeAllocation()
{
    counting = true;
    if (refusalsLeft > 0 && --allocationsLeft <= 0)
    {
        --refusalsLeft;
        ++refusalsDone;
        return false;
    }
    made.fetch_add(1, std::memory_order_relaxed);
    return true;
}

void Leaks::GiveAllocation()
{
    freed.fetch_add(1, std::memory_order_relaxed);
}

void Leaks::RefuseAllocations(std::int64_t nth, std::int64_t times)
{
    refusalsDone = 0;
    allocationsLeft = nth;
    refusalsLeft = times;
}

std::int64_t Leaks::RefusalsDone()
{
    refusalsLeft = 0;
    return refusalsDone;
}

bool Leaks::CanCount()
{
    return counting;
}

void Leaks::CheckEveryTest()
{
    testing::UnitTest::GetInstance()->listeners().Append(new Checker);
}

void Leaks::Allow(const Holdings& extra)
{
    allowed = extra;
}

}

#include "tests/kit/Leaks.h"

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/System.h"
#include "virtual-unit/time/Waits.h"

#include <atomic>
#include <cstdlib>
#include <dirent.h>
#include <gtest/gtest.h>
#include <new>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KIT_COUNTS_ALLOCATIONS 0
#else
#define KIT_COUNTS_ALLOCATIONS 1
#endif

namespace
{

std::atomic<std::int64_t> made{0};
std::atomic<std::int64_t> freed{0};

}

#if KIT_COUNTS_ALLOCATIONS

void* operator new(std::size_t size)
{
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    made.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory != nullptr)
    {
        freed.fetch_add(1, std::memory_order_relaxed);
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

#endif

namespace Kit
{

namespace
{

Leaks::Holdings allowed;

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
        Leaks::Holdings after = Leaks::Present();
        // A thread that has been joined may take the kernel a moment to forget.
        constexpr int MOST_PAUSES = 60'000; // a minute
        for (int wait = 0; wait < MOST_PAUSES && after.threads > before.threads + allowed.threads; ++wait)
        {
            RealPause();
            after = Leaks::Present();
        }
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

std::int64_t Leaks::AllocationsMade()
{
    return made;
}

bool Leaks::CanCount()
{
    return KIT_COUNTS_ALLOCATIONS != 0;
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

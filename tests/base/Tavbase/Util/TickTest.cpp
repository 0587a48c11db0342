#include "base/Tavbase/Util/Tick.h"
#include "tests/kit/Child.h"
#include "tests/kit/Clock.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;
using Tavbase::Util::Tick;

namespace
{

/// Taken while the program's static objects are made, a moment after the library was loaded.
const std::uint64_t COUNT_AT_START = Tick::GetInstance().Count();

class TickTest : public testing::Test
{
protected:
    Kit::Clock clock;
    Tick& tick = Tick::GetInstance();
};

}

TEST_F(TickTest, CountsFromTheLoadingOfTheLibrary)
{
    EXPECT_LE(COUNT_AT_START, 5u);
}

TEST_F(TickTest, IsOneObject)
{
    EXPECT_EQ(&Tick::GetInstance(), &tick);
}

TEST_F(TickTest, GoesOnByOneEachSecond)
{
    const std::uint64_t before = tick.Count();
    EXPECT_EQ(tick.Count(), before);
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(tick.Count(), before + 1);
    std::this_thread::sleep_for(100h);
    EXPECT_EQ(tick.Count(), before + 360'001);
}

TEST_F(TickTest, GoesOnFromTheCountThatIsSet)
{
    tick.Set(19);
    EXPECT_EQ(tick.Count(), 19u);
    std::this_thread::sleep_for(999ms);
    EXPECT_EQ(tick.Count(), 19u);
    std::this_thread::sleep_for(1ms);
    EXPECT_EQ(tick.Count(), 20u);
    tick.Set(0);
    EXPECT_EQ(tick.Count(), 0u);
    std::this_thread::sleep_for(20s);
    EXPECT_EQ(tick.Count(), 20u);
}

TEST_F(TickTest, GoesOnWithZeroAfterTheLargestCount)
{
    tick.Set(UINT64_MAX);
    EXPECT_EQ(tick.Count(), UINT64_MAX);
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(tick.Count(), 1u);
}

TEST_F(TickTest, DoesNotFollowTheDate)
{
    tick.Set(5);
    Kit::Clock::SetWallClock(Kit::Clock::START + 1'000'000);
    EXPECT_EQ(tick.Count(), 5u);
    Kit::Clock::SetWallClock(1);
    EXPECT_EQ(tick.Count(), 5u);
}

TEST_F(TickTest, IsReadAndSetByManyThreads)
{
    tick.Set(1);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (std::uint64_t i = 1; i <= 4; ++i)
    {
        threads.emplace_back([&, i] {
            for (int turn = 0; turn < 2000; ++turn)
            {
                tick.Set(i << 40);
                const std::uint64_t count = tick.Count();
                wrong += (count >> 40) >= 1 && (count >> 40) <= 4 && (count & 0xFFFF'FFFF) == 0 ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(TickTest, WorksInStaticDestructors)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        struct AtEnd
        {
            ~AtEnd()
            {
                Tick::GetInstance().Set(42);
                dprintf(STDOUT_FILENO, "%d|", static_cast<int>(Tick::GetInstance().Count()));
            }
        };

        static AtEnd atEnd;
        return 0;
    });
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_THAT(child.output, testing::StartsWith("42|"));
}

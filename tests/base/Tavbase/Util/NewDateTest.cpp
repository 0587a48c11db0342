#include "base/Tavbase/Util/NewDate.h"
#include "tests/kit/Child.h"
#include "tests/kit/Clock.h"
#include "virtual-unit/time/Real.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;
using Tavbase::Util::NewDate;

namespace
{

constexpr const char* LINE = "%Y-%m-%d %H:%M:%S";

std::atomic<int> conversions{0};
std::atomic<bool> yearOutOfRange{false};

class NewDateTest : public testing::Test
{
protected:
    NewDateTest() { conversions = 0; }

    ~NewDateTest() override
    {
        yearOutOfRange = false;
        SetZone("UTC");
    }

    static void SetZone(const char* zone)
    {
        setenv("TZ", zone, 1); // NOLINT(concurrency-mt-unsafe): no other thread runs
        tzset();
    }

    Kit::Clock clock;
};

}

extern "C" __attribute__((visibility("default"))) std::tm* localtime_r(const std::time_t* time,
                                                                       std::tm* local) noexcept
{
    ++conversions;
    if (yearOutOfRange)
    {
        errno = EOVERFLOW;
        return nullptr;
    }
    return REAL_CALL(localtime_r)(time, local);
}

TEST_F(NewDateTest, GivesTheLocalTimeByThePattern)
{
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:00");
    EXPECT_EQ(NewDate("%d.%m.%y"), "01.03.26");
    EXPECT_EQ(NewDate("no field"), "no field");
    EXPECT_EQ(NewDate("%%"), "%");
    EXPECT_EQ(NewDate(" %H "), " 08 ");
}

TEST_F(NewDateTest, GoesOnWithTheClock)
{
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:00");
    std::this_thread::sleep_for(999ms);
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:00");
    std::this_thread::sleep_for(1ms);
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:01");
    std::this_thread::sleep_for(24h);
    EXPECT_EQ(NewDate(LINE), "2026-03-02 08:15:01");
}

TEST_F(NewDateTest, FollowsAClockThatIsSet)
{
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:00");
    Kit::Clock::SetWallClock(0);
    EXPECT_EQ(NewDate(LINE), "1970-01-01 00:00:00");
    Kit::Clock::SetWallClock(1'767'225'599);
    EXPECT_EQ(NewDate(LINE), "2025-12-31 23:59:59");
    Kit::Clock::SetWallClock(4'000'000'000);
    EXPECT_EQ(NewDate(LINE), "2096-10-02 07:06:40");
}

TEST_F(NewDateTest, FollowsTheTimeZone)
{
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:00");
    SetZone("XST-5:30");
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(NewDate("%Y-%m-%d %H:%M:%S %Z"), "2026-03-01 13:45:01 XST");
    EXPECT_EQ(NewDate(LINE), "2026-03-01 13:45:01");
}

TEST_F(NewDateTest, GivesNothingForAnEmptyPattern)
{
    EXPECT_EQ(NewDate(""), "");
    EXPECT_EQ(NewDate(std::string("\0%Y", 3)), "");
}

TEST_F(NewDateTest, GivesATextOfAnyLength)
{
    for (const int count : {3, 4, 5, 7, 8, 9, 100, 10'000})
    {
        std::string format;
        std::string expected;
        for (int i = 0; i < count; ++i)
        {
            format += "%c|";
            expected += "Sun Mar  1 08:15:00 2026|";
        }
        EXPECT_EQ(NewDate(format), expected) << count;
        EXPECT_EQ(NewDate(format), expected) << count;
    }
    for (std::size_t length = 1; length < 200; ++length)
    {
        const std::string text(length, 'x');
        EXPECT_EQ(NewDate(text), text);
        EXPECT_EQ(NewDate(text), text);
    }
}

TEST_F(NewDateTest, TellsPatternsApartWithinASecond)
{
    for (int turn = 0; turn < 3; ++turn)
    {
        EXPECT_EQ(NewDate("%H"), "08");
        EXPECT_EQ(NewDate("%M"), "15");
        EXPECT_EQ(NewDate("%M "), "15 ");
    }
}

TEST_F(NewDateTest, ConvertsTheTimeOfALogLineOnceASecond)
{
    static_cast<void>(NewDate(LINE));
    conversions = 0;
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:00");
    }
    EXPECT_EQ(conversions, 0);
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:01");
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:01");
    EXPECT_EQ(conversions, 1);
}

TEST_F(NewDateTest, GivesNothingWhenTheYearCannotBeExpressed)
{
    static_cast<void>(NewDate(LINE));
    std::this_thread::sleep_for(1s);
    yearOutOfRange = true;
    EXPECT_EQ(NewDate(LINE), "");
    yearOutOfRange = false;
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:01");
}

TEST_F(NewDateTest, EachThreadGetsItsOwnPattern)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"%H", "08"}, {"%M", "15"}, {"%Y", "2026"}, {LINE, "2026-03-01 08:15:00"}};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    threads.reserve(cases.size());
    for (const auto& one : cases)
    {
        threads.emplace_back([&] {
            for (int turn = 0; turn < 1000; ++turn)
            {
                wrong += NewDate(one.first) == one.second ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(NewDateTest, WorksInStaticDestructors)
{
    struct AtEnd
    {
        ~AtEnd() { dprintf(STDOUT_FILENO, "%s|", NewDate("%H:%M").c_str()); }
    };

    const Kit::ChildResult child = Kit::RunInChild([] {
        static AtEnd atEnd;
        return 0;
    });
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_THAT(child.output, testing::StartsWith("08:15|"));
}

TEST_F(NewDateTest, WorksInTheDestructorsOfAThread)
{
    static std::string date;

    struct AtEnd
    {
        ~AtEnd() { date = NewDate("%H:%M"); }
    };

    std::thread thread([] {
        thread_local AtEnd atEnd;
        static_cast<void>(&atEnd);
    });
    thread.join();
    EXPECT_EQ(date, "08:15");
}

TEST_F(NewDateTest, AChangeOfTheZoneShowsFromTheNextSecondOn)
{
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:00");
    SetZone("XST-5:30");
    std::this_thread::sleep_for(999ms);
    EXPECT_EQ(NewDate(LINE), "2026-03-01 08:15:00") << "the text of this second is kept";
    std::this_thread::sleep_for(1ms);
    EXPECT_EQ(NewDate(LINE), "2026-03-01 13:45:01");
}

#include "base/Tavbase/Util/TemperatureMonitor.h"
#include "tests/kit/Child.h"
#include "tests/kit/Clock.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"

#include <cerrno>
#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;
using Kit::System;
using Tavbase::Util::TemperatureMonitor;

namespace
{

constexpr const char* ZONE = "/sys/class/thermal/thermal_zone0/temp";

class TemperatureMonitorTest : public testing::Test
{
protected:
    /// Whatever an earlier test has read is too old now.
    TemperatureMonitorTest() { std::this_thread::sleep_for(10s); }

    static void Set(const std::string& text)
    {
        std::ofstream(File()) << text;
        System::Redirect(ZONE, File());
    }

    /// As on a board without a thermal zone. (Where the path is not redirected the kit does not count it.)
    static void TakeAway() { System::Redirect(ZONE, Kit::TempDir::Path() + "/none"); }

    static void SetNone() { System::Redirect(ZONE, File() + "-none"); }

    static std::string File() { return Kit::TempDir::Path() + "/temp"; }

    static std::size_t Readings() { return System::CallsOf("open").size(); }

    Kit::Clock clock;
};

}

TEST_F(TemperatureMonitorTest, IsOneObject)
{
    EXPECT_EQ(&TemperatureMonitor::GetInstance(), &TemperatureMonitor::GetInstance());
}

TEST_F(TemperatureMonitorTest, IsUnavailableWhereThereIsNoThermalZone)
{
    SetNone();
    TakeAway();
    EXPECT_FALSE(TemperatureMonitor::GetInstance().IsAvailable());
    EXPECT_EQ(Readings(), 1u);
}

TEST_F(TemperatureMonitorTest, GivesWholeDegrees)
{
    const std::pair<const char*, int> cases[] = {
        {"47000\n", 47},          {"47999\n", 47},   {"47000", 47}, {"0\n", 0}, {"999\n", 0},
        {"-5250\n", -5},          {"105000\n", 105}, {"-999\n", 0}, {"7\n", 0}, {"-273150\n", -273},
        {"2147483647\n", 2147483}};
    for (const auto& [text, degrees] : cases)
    {
        Set(text);
        std::this_thread::sleep_for(10s);
        const TemperatureMonitor& monitor = TemperatureMonitor::GetInstance();
        EXPECT_TRUE(monitor.IsAvailable()) << text;
        EXPECT_EQ(monitor.GetTemperature(), degrees) << text;
    }
}

TEST_F(TemperatureMonitorTest, IsUnavailableWhenTheZoneGivesNoTemperature)
{
    for (const char* text : {"", "\n", "abc\n", "47000x", "47 000\n", "47000\n\n", " 47000\n", "+47000\n",
                             "0x10\n", "47.5\n", "-\n", "-274000\n", "2147483648\n", "99999999999999999999\n",
                             "-99999999999999999999\n", "0000000000000000000000000000000000000047000\n"})
    {
        Set("47000\n");
        std::this_thread::sleep_for(10s);
        ASSERT_TRUE(TemperatureMonitor::GetInstance().IsAvailable());
        Set(text);
        std::this_thread::sleep_for(10s);
        EXPECT_FALSE(TemperatureMonitor::GetInstance().IsAvailable()) << text;
    }
}

TEST_F(TemperatureMonitorTest, ReadsAtMostEveryTenSeconds)
{
    Set("47000\n");
    EXPECT_EQ(TemperatureMonitor::GetInstance().GetTemperature(), 47);
    Set("50000\n");
    std::this_thread::sleep_for(9999ms);
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EQ(TemperatureMonitor::GetInstance().GetTemperature(), 47);
    }
    EXPECT_EQ(Readings(), 1u);
    std::this_thread::sleep_for(1ms);
    EXPECT_EQ(TemperatureMonitor::GetInstance().GetTemperature(), 50);
    EXPECT_EQ(Readings(), 2u);
}

TEST_F(TemperatureMonitorTest, WaitsTenSecondsAfterAFailedReadingToo)
{
    SetNone();
    TakeAway();
    EXPECT_FALSE(TemperatureMonitor::GetInstance().IsAvailable());
    Set("47000\n");
    std::this_thread::sleep_for(9999ms);
    EXPECT_FALSE(TemperatureMonitor::GetInstance().IsAvailable());
    std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(TemperatureMonitor::GetInstance().IsAvailable());
    EXPECT_EQ(Readings(), 2u);
}

TEST_F(TemperatureMonitorTest, IsMeasuredByTheSteadyClock)
{
    Set("47000\n");
    static_cast<void>(TemperatureMonitor::GetInstance());
    Kit::Clock::SetWallClock(Kit::Clock::START + 1'000'000);
    static_cast<void>(TemperatureMonitor::GetInstance());
    EXPECT_EQ(Readings(), 1u);
}

TEST_F(TemperatureMonitorTest, IsUnavailableWhileReadingFails)
{
    Set("47000\n");
    System::Fail("read", EAGAIN);
    EXPECT_FALSE(TemperatureMonitor::GetInstance().IsAvailable());
    std::this_thread::sleep_for(10s);
    EXPECT_TRUE(TemperatureMonitor::GetInstance().IsAvailable());
    System::Fail("open", EACCES);
    std::this_thread::sleep_for(10s);
    EXPECT_FALSE(TemperatureMonitor::GetInstance().IsAvailable());
    EXPECT_EQ(System::FailuresDone(), 2);
}

TEST_F(TemperatureMonitorTest, ReadsAgainWhenASignalCameBetween)
{
    Set("47000\n");
    System::Fail("read", EINTR, 1, 2);
    EXPECT_TRUE(TemperatureMonitor::GetInstance().IsAvailable());
    EXPECT_EQ(System::FailuresDone(), 2);
}

TEST_F(TemperatureMonitorTest, LeavesErrnoAsItWas)
{
    SetNone();
    errno = ENOSPC;
    EXPECT_FALSE(TemperatureMonitor::GetInstance().IsAvailable());
    EXPECT_EQ(errno, ENOSPC);
    Set("47000\n");
    System::Fail("read", EIO);
    std::this_thread::sleep_for(10s);
    errno = ENOSPC;
    EXPECT_FALSE(TemperatureMonitor::GetInstance().IsAvailable());
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(TemperatureMonitorTest, OneOfManyThreadsReads)
{
    Set("47000\n");
    static_cast<void>(TemperatureMonitor::GetInstance());
    for (int turn = 0; turn < 20; ++turn)
    {
        System::ForgetCalls();
        std::this_thread::sleep_for(10s);
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i)
        {
            threads.emplace_back([] {
                const TemperatureMonitor& monitor = TemperatureMonitor::GetInstance();
                EXPECT_TRUE(monitor.IsAvailable());
                EXPECT_EQ(monitor.GetTemperature(), 47);
            });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(Readings(), 1u);
    }
}

TEST_F(TemperatureMonitorTest, WorksInStaticDestructors)
{
    Set("47000\n");
    const Kit::ChildResult child = Kit::RunInChild([] {
        struct AtEnd
        {
            ~AtEnd() { dprintf(STDOUT_FILENO, "%d|", TemperatureMonitor::GetInstance().GetTemperature()); }
        };

        static AtEnd atEnd;
        return 0;
    });
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_THAT(child.output, testing::StartsWith("47|"));
}

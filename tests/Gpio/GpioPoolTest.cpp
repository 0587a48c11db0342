// Waiting for a trigger.

#include "Gpio/GpioCore.h"
#include "tests/Gpio/GpioTest.h"

#include <array>
#include <atomic>
#include <fcntl.h>
#include <iomanip>
#include <iostream>
#include <poll.h>
#include <string_view>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

namespace GpioTests
{

namespace
{

using Kit::System;

constexpr int NOT_YET_SET = 77;

/// Nothing came: `trigger` is 0, nothing is logged, and standard output holds these texts.
template <class Matcher>
void ExpectNoTrigger(const Kit::LogCapture& log, Printed& printed, const Matcher& texts)
{
    GpioCore core;
    int trigger = NOT_YET_SET;
    EXPECT_FALSE(core.Pool(trigger));
    EXPECT_EQ(trigger, 0);
    EXPECT_THAT(printed.Texts(), texts);
    EXPECT_THAT(log.File(), IsEmpty());
    EXPECT_THAT(log.Console(), IsEmpty());
    EXPECT_FALSE(core.HasError());
    printed.Forget();
}

class GpioPoolTest : public GpioTest
{
protected:
    /// What a message gives; 0 when it is no trigger.
    int Take(std::string_view message)
    {
        driver.Send(message);
        int trigger = NOT_YET_SET;
        const bool got = core.Pool(trigger);
        EXPECT_EQ(got, trigger != 0);
        return trigger;
    }

    GpioCore core;
};

using GpioPoolAloneTest = GpioAloneTest;

TEST_F(GpioPoolTest, TheTriggerIsTheFirstOfFiveBytes)
{
    using namespace std::string_view_literals;
    EXPECT_EQ(Take("\x03\0\0\0\0"sv), 3);
    EXPECT_EQ(Take("\x03\xFF\xFF\xFF\xFF"sv), 3);
    EXPECT_EQ(Take("\x01\x02\x03\x04\x05"sv), 1);
    EXPECT_THAT(System::CallsOf("read"), SizeIs(3));
    for (const System::Call& call : System::CallsOf("read"))
    {
        EXPECT_EQ(call.argument, 5);
    }
    EXPECT_TRUE(printed.IsEmpty());
}

TEST_F(GpioPoolTest, EveryCodeIsPassedOnUnsigned)
{
    for (int code = 1; code <= 255; ++code)
    {
        driver.Trigger(code);
        int trigger = NOT_YET_SET;
        EXPECT_TRUE(core.Pool(trigger)) << code;
        EXPECT_EQ(trigger, code);
    }
    EXPECT_THAT(log.File(), SizeIs(255));
    EXPECT_EQ(log.File().at(199), "[GPIO] ===> Got trigger [200]");
}

TEST_F(GpioPoolTest, AShortMessageHasItsTriggerInFrontAllTheSame)
{
    EXPECT_EQ(Take("\x04"), 4);
    EXPECT_EQ(Take("\x05\x01"), 5);
    EXPECT_EQ(Take("\x02\x01\x01"), 2);
    EXPECT_EQ(Take("\xC8\x01\x01\x01"), 200);
    EXPECT_TRUE(printed.IsEmpty());
}

TEST_F(GpioPoolTest, NothingOfALongerMessageIsLeftForTheNext)
{
    EXPECT_EQ(Take("\x04\x01\x01\x01\x01\x07\x07\x07\x07\x07"), 4);
    EXPECT_EQ(Take("\x02"), 2);
}

TEST_F(GpioPoolTest, ATriggerIsLoggedWithTheUsualHeader)
{
    EXPECT_EQ(Take("\x03"), 3);
    EXPECT_THAT(log.File(), ElementsAre("[GPIO] ===> Got trigger [3]"));
    EXPECT_EQ(log.Console(), log.File());
    EXPECT_THAT(log.RawFile(),
                MatchesRegex("\\[2026-03-01 08:15:00\\]\\[GPIO\\] ===> Got trigger \\[3\\]\n"));
    EXPECT_TRUE(printed.IsEmpty());
}

TEST_F(GpioPoolTest, ATriggerOf0IsNoEventAndIsNotLogged)
{
    driver.Trigger(0);
    ExpectNoTrigger(log, printed, IsEmpty());
    EXPECT_THAT(System::CallsOf("read"), SizeIs(1));
}

TEST_F(GpioPoolTest, WaitsWithoutALimit)
{
    int trigger = NOT_YET_SET;
    std::atomic<bool> got{false};
    std::thread waiter([&] { got = core.Pool(trigger); });
    std::this_thread::sleep_for(1h);
    EXPECT_FALSE(got);
    driver.Trigger(5);
    waiter.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(trigger, 5);
    ASSERT_THAT(System::CallsOf("poll"), SizeIs(1));
    EXPECT_EQ(System::CallsOf("poll").front().argument, -1);
}

TEST_F(GpioPoolTest, PinsAreDrivenWhileAThreadWaits)
{
    int trigger = NOT_YET_SET;
    std::thread waiter([&] { core.Pool(trigger); });
    LetOthersRun();
    EXPECT_TRUE(GpioCore::SetPin(100, 1));
    EXPECT_TRUE(GpioCore::ShutDownIfIgnitionOff());
    EXPECT_THAT(driver.Written(), ElementsAre(Pin(100, 1), Pin(105, 0), Pin(105, 1)));
    driver.Trigger(1);
    waiter.join();
    EXPECT_EQ(trigger, 1);
    EXPECT_EQ(Opens(), 1u);
}

TEST_F(GpioPoolTest, ObjectsShareOneDevice)
{
    GpioCore other;
    int trigger = 0;
    driver.Trigger(1);
    driver.Trigger(2);
    EXPECT_TRUE(core.Pool(trigger));
    EXPECT_EQ(trigger, 1);
    EXPECT_TRUE(other.Pool(trigger));
    EXPECT_EQ(trigger, 2);
    EXPECT_EQ(Opens(), 1u);
}

TEST_F(GpioPoolTest, SeveralThreadsMayWait)
{
    std::atomic<int> sum{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
    {
        waiters.emplace_back([&] {
            int trigger = 0;
            GpioCore own;
            // Woken together, all but one go on waiting in the read.
            sum += own.Pool(trigger) ? trigger : 1000;
        });
    }
    LetOthersRun();
    for (const int code : {1, 10, 100})
    {
        driver.Trigger(code);
    }
    for (std::thread& waiter : waiters)
    {
        waiter.join();
    }
    EXPECT_EQ(sum, 111);
}

// Failures -----------------------------------------------------------------------------------------------

TEST_F(GpioPoolAloneTest, AMissingDeviceIsToldEachTime)
{
    for (int i = 0; i < 3; ++i)
    {
        ExpectNoTrigger(log, printed, ElementsAre("Event module driver could not be open.\n"));
    }
    EXPECT_EQ(Opens(), 3u);
    EXPECT_THAT(System::CallsOf("poll"), IsEmpty());
    EXPECT_EQ(Kit::Clock::Elapsed(), 0ms);
}

TEST_F(GpioPoolTest, AWaitThatFailsOrGivesNothingIsTold)
{
    System::Fail("poll", EINTR);
    ExpectNoTrigger(log, printed, ElementsAre("---- BAD POLL (-1) ----\n"));
    System::Fail("poll", 0, 1, 1, 0);
    ExpectNoTrigger(log, printed, ElementsAre("---- BAD POLL (0) ----\n"));
    EXPECT_THAT(System::CallsOf("read"), IsEmpty());
    EXPECT_EQ(Take("\x02"), 2) << "it passes";
}

TEST_F(GpioPoolTest, WhatIsToldIsOnePieceWhateverTheApplicationHasSetForItsOwnOutput)
{
    const std::ios_base::fmtflags before = std::cout.flags();
    std::cout << std::hex << std::showbase << std::showpos << std::left << std::setfill('*');
    System::Fail("poll", EINTR);
    std::cout.width(30);
    ExpectNoTrigger(log, printed, ElementsAre("---- BAD POLL (-1) ----\n"));
    driver.Trigger(3);
    System::Fail("read", EIO);
    ExpectNoTrigger(log, printed, ElementsAre("Error while trying to read trigger.\n"));
    EXPECT_EQ(printed.Writes(), 2) << "each in one write";
    std::cout.flags(before);
    std::cout.fill(' ');
    std::cout.width(0);
}

TEST_F(GpioPoolTest, AWaitThatGivesAnotherEventIsNotTold)
{
    driver.Trigger(3);
    System::Fail("poll", 0, 1, 1, 1); // one descriptor has something, and it is not input
    ExpectNoTrigger(log, printed, IsEmpty());
    EXPECT_THAT(System::CallsOf("read"), IsEmpty());
}

TEST_F(GpioPoolTest, AHangUpWithoutInputIsNotTold)
{
    ASSERT_TRUE(GpioCore::Initialize());
    const auto opened = static_cast<int>(System::CallsOf("open").front().result);
    std::array<int, 2> ends{}; // a pipe without a writer only hangs up
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ASSERT_EQ(dup2(ends[0], opened), opened);
    close(ends[0]);
    close(ends[1]);
    pollfd look = {opened, POLLIN, 0};
    ASSERT_EQ(poll(&look, 1, 0), 1);
    ASSERT_EQ(look.revents, POLLHUP);
    ExpectNoTrigger(log, printed, IsEmpty());
    EXPECT_THAT(System::CallsOf("read"), IsEmpty());
}

TEST_F(GpioPoolTest, ADeviceThatGivesNothingAnyMoreGivesNoTrigger)
{
    ASSERT_TRUE(GpioCore::Initialize());
    driver.HangUp();
    ExpectNoTrigger(log, printed, IsEmpty());
}

TEST_F(GpioPoolTest, AFailedReadIsTold)
{
    for (const int error : {EIO, EINTR, EAGAIN})
    {
        driver.Trigger(3);
        System::Fail("read", error);
        ExpectNoTrigger(log, printed, ElementsAre("Error while trying to read trigger.\n"));
    }
    for (int i = 0; i < 3; ++i)
    {
        int trigger = NOT_YET_SET;
        EXPECT_TRUE(core.Pool(trigger)) << "it is still there";
        EXPECT_EQ(trigger, 3);
    }
}

TEST_F(GpioPoolTest, AfterACloseThereIsNoTriggerAndNothingIsTold)
{
    driver.Trigger(3);
    ASSERT_TRUE(GpioCore::Initialize());
    GpioCore::Close();
    ExpectNoTrigger(log, printed, IsEmpty());
    EXPECT_EQ(Opens(), 1u);
}

}

}

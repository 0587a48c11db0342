// The pair of LEDs. It is made once in a process, and so each test here is a process of its own.

#include "Gpio/LedsController.h"
#include "base/Tavbase/IException.h"
#include "tests/Gpio/GpioTest.h"
#include "tests/kit/Interruptions.h"
#include "tests/kit/Leaks.h"
#include "tests/kit/ThreadNames.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::SizeIs;

namespace GpioTests
{

namespace
{

using Kit::Clock;
using Kit::System;
using Kit::ThreadNames;
using std::chrono::milliseconds;
using Tavdevice::Gpio::LedController;
using Tavdevice::Gpio::LedsController;

static_assert(!std::is_polymorphic_v<LedsController>);
static_assert(std::is_nothrow_destructible_v<LedsController>);
static_assert(!std::is_copy_constructible_v<LedsController>);

constexpr unsigned long RIGHT_RED = 100;
constexpr unsigned long RIGHT_GREEN = 101;
constexpr unsigned long LEFT_RED = 102;
constexpr unsigned long LEFT_GREEN = 103;
constexpr bool LEFT = true;
constexpr bool RIGHT = false;

class LedsTest : public GpioTest
{
protected:
    void SetUp() override
    {
        static bool used = false;
        if (used)
        {
            GTEST_SKIP() << "this process has had its LEDs";
        }
        used = true;
    }

    void TearDown() override
    {
        Destroy();
        GpioTest::TearDown();
    }

    void Create() { leds = LedsController::GetInstance(); }

    /// At 10 ms, in the middle of the first idle step, which ends at 100 ms.
    void CreateIdle()
    {
        Create();
        Pass(10ms);
    }

    void Destroy()
    {
        delete leds;
        leds = nullptr;
    }

    static void Pass(milliseconds time) { std::this_thread::sleep_for(time); }

    /// What was written to one LED.
    std::vector<PinWrite> WritesTo(bool left) const
    {
        std::vector<PinWrite> writes = driver.Writes();
        std::erase_if(writes, [left](const PinWrite& write) {
            return (write.pin == LEFT_RED || write.pin == LEFT_GREEN) != left;
        });
        return writes;
    }

    LedsController* leds = nullptr;
};

TEST_F(LedsTest, ThePairIsCreatedOnceWithItsThreadsAndWritesNothing)
{
    Create();
    EXPECT_EQ(LedsController::GetInstance(), leds);
    LetOthersRun();
    const Texts names = ThreadNames();
    EXPECT_EQ(std::ranges::count(names, "LED-LEFT"), 1);
    EXPECT_EQ(std::ranges::count(names, "LED-RIGHT"), 1);
    Pass(10s);
    EXPECT_EQ(LedsController::GetInstance(), leds);
    EXPECT_THAT(ThreadNames(), SizeIs(names.size()));
    EXPECT_THAT(driver.Writes(), IsEmpty());
    EXPECT_EQ(Opens(), 0u);
}

TEST_F(LedsTest, EachSideHasItsPins)
{
    CreateIdle();
    leds->SetLedMode(LEFT, LedController::RedOn);
    leds->SetLedMode(RIGHT, LedController::GreenOn);
    Pass(140ms);
    EXPECT_THAT(WritesTo(LEFT), ElementsAre(PinWrite{LEFT_RED, 1, 100ms}, PinWrite{LEFT_GREEN, 0, 100ms}));
    EXPECT_THAT(WritesTo(RIGHT), ElementsAre(PinWrite{RIGHT_GREEN, 1, 100ms}, PinWrite{RIGHT_RED, 0, 100ms}));
    driver.Forget();
    leds->TurnOffLedMode(LEFT, LedController::GreenOnly);
    leds->TurnOffLedMode(RIGHT, LedController::RedOnly);
    Pass(100ms);
    EXPECT_THAT(WritesTo(LEFT), ElementsAre(PinWrite{LEFT_GREEN, 1, 200ms}, PinWrite{LEFT_RED, 0, 200ms}));
    EXPECT_THAT(WritesTo(RIGHT), ElementsAre(PinWrite{RIGHT_GREEN, 0, 200ms}, PinWrite{RIGHT_RED, 1, 200ms}));
}

TEST_F(LedsTest, TheSidesBlinkEachAtItsOwnRate)
{
    CreateIdle();
    leds->SetLedMode(LEFT, LedController::GreenBlink2000);
    leds->SetLedMode(RIGHT, LedController::RedBlink40);
    Pass(4140ms);
    EXPECT_THAT(WritesTo(LEFT), ElementsAre(PinWrite{LEFT_RED, 0, 100ms}, PinWrite{LEFT_GREEN, 1, 100ms},
                                            PinWrite{LEFT_GREEN, 0, 2100ms}, PinWrite{LEFT_RED, 0, 4100ms},
                                            PinWrite{LEFT_GREEN, 1, 4100ms}));
    const std::vector<PinWrite> right = WritesTo(RIGHT);
    ASSERT_GE(right.size(), 150u);
    for (std::size_t i = 0; i < 150; i += 3)
    {
        const milliseconds begin = 100ms + 80ms * static_cast<int>(i / 3);
        EXPECT_EQ(right[i], (PinWrite{RIGHT_GREEN, 0, begin}));
        EXPECT_EQ(right[i + 1], (PinWrite{RIGHT_RED, 1, begin}));
        EXPECT_EQ(right[i + 2], (PinWrite{RIGHT_RED, 0, begin + 40ms}));
    }
}

TEST_F(LedsTest, OneSideStaysLitWhileItsThreadIdles)
{
    CreateIdle();
    leds->TurnOffLedMode(RIGHT, LedController::BothOn);
    Pass(10s);
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{RIGHT_GREEN, 1, 100ms}, PinWrite{RIGHT_RED, 1, 100ms}));
}

// Stopping -----------------------------------------------------------------------------------------------

TEST_F(LedsTest, StopShowsTheStateOnBothWithin200MillisecondsAndEndsTheThreads)
{
    CreateIdle();
    leds->SetLedMode(LEFT, LedController::RedBlink80);
    leds->SetLedMode(RIGHT, LedController::GreenOn);
    Pass(140ms); // lit, both
    driver.Forget();
    System::ForgetCalls();
    leds->Stop(LedController::BothOff);
    EXPECT_EQ(Clock::Elapsed(), 350ms);
    EXPECT_THAT(System::Sleeps(), ElementsAre(200ms));
    EXPECT_THAT(WritesTo(LEFT), ElementsAre(PinWrite{LEFT_RED, 0, 180ms}, PinWrite{LEFT_GREEN, 0, 260ms},
                                            PinWrite{LEFT_RED, 0, 260ms}));
    EXPECT_THAT(WritesTo(RIGHT), ElementsAre(PinWrite{RIGHT_GREEN, 0, 200ms}, PinWrite{RIGHT_RED, 0, 200ms}));
    EXPECT_THAT(ThreadNames(), Not(Contains("LED-LEFT")));
    EXPECT_THAT(ThreadNames(), Not(Contains("LED-RIGHT")));
}

TEST_F(LedsTest, AfterStopNothingHasAnEffect)
{
    Create();
    leds->Stop(LedController::BothOff);
    ASSERT_EQ(Clock::Elapsed(), 200ms);
    driver.Forget();
    leds->SetLedMode(LEFT, LedController::GreenBlink2000);
    leds->SetLedMode(RIGHT, LedController::RedOn);
    leds->TurnOffLedMode(LEFT, LedController::BothOn);
    leds->TurnOffLedMode(RIGHT, LedController::BothOn);
    leds->Stop(LedController::BothOn);
    EXPECT_EQ(Clock::Elapsed(), 200ms);
    EXPECT_EQ(LedsController::GetInstance(), leds);
    Pass(10s);
    EXPECT_THAT(driver.Writes(), IsEmpty());
    EXPECT_THAT(ThreadNames(), Not(Contains("LED-LEFT")));
    Destroy();
    EXPECT_EQ(Clock::Elapsed(), 10'200ms);
    EXPECT_THAT(driver.Writes(), IsEmpty());
}

TEST_F(LedsTest, StopAppliesEveryOffState)
{
    Create();
    leds->Stop(LedController::GreenOnly);
    EXPECT_THAT(driver.Written(), testing::UnorderedElementsAre(Pin(LEFT_GREEN, 1), Pin(LEFT_RED, 0),
                                                                Pin(RIGHT_GREEN, 1), Pin(RIGHT_RED, 0)));
}

TEST_F(LedsTest, ALedInTheDarkHalfOfASlowBlinkDoesNotComeToTheState)
{
    CreateIdle();
    leds->SetLedMode(LEFT, LedController::GreenBlink2000);
    Pass(2490ms); // dark since 2100 ms, until 4100 ms
    driver.Forget();
    leds->Stop(LedController::BothOn);
    EXPECT_EQ(Clock::Elapsed(), 2700ms) << "it is not waited for";
    EXPECT_THAT(WritesTo(LEFT), IsEmpty());
    EXPECT_THAT(WritesTo(RIGHT),
                ElementsAre(PinWrite{RIGHT_GREEN, 1, 2500ms}, PinWrite{RIGHT_RED, 1, 2500ms}));
}

TEST_F(LedsTest, ALedInTheLitHalfOfASlowBlinkEndsDark)
{
    CreateIdle();
    leds->SetLedMode(RIGHT, LedController::GreenBlink2000);
    Pass(540ms); // lit since 100 ms
    driver.Forget();
    leds->Stop(LedController::BothOn);
    EXPECT_EQ(Clock::Elapsed(), 750ms);
    EXPECT_THAT(WritesTo(RIGHT), ElementsAre(PinWrite{RIGHT_GREEN, 0, 750ms}));
    EXPECT_THAT(WritesTo(LEFT), ElementsAre(PinWrite{LEFT_GREEN, 1, 600ms}, PinWrite{LEFT_RED, 1, 600ms}));
}

TEST_F(LedsTest, StopEndsTheLeftThreadBeforeTheRightOne)
{
    CreateIdle();
    leds->SetLedMode(RIGHT, LedController::GreenBlink2000);
    leds->SetLedMode(LEFT, LedController::GreenBlink2000);
    Pass(540ms); // lit since 100 ms, both: each ends dark
    driver.Forget();
    leds->Stop(LedController::BothOff);
    EXPECT_THAT(driver.Writes(),
                ElementsAre(PinWrite{LEFT_GREEN, 0, 750ms}, PinWrite{RIGHT_GREEN, 0, 750ms}));
}

TEST_F(LedsTest, DestructionEndsTheLeftThreadBeforeTheRightOne)
{
    CreateIdle();
    leds->SetLedMode(RIGHT, LedController::GreenBlink2000);
    leds->SetLedMode(LEFT, LedController::GreenBlink2000);
    Pass(540ms); // lit since 100 ms, both: each ends dark
    driver.Forget();
    Destroy();
    EXPECT_THAT(driver.Writes(),
                ElementsAre(PinWrite{LEFT_GREEN, 0, 550ms}, PinWrite{RIGHT_GREEN, 0, 550ms}));
}

TEST_F(LedsTest, SignalsDoNotShortenTheWaitOfStop)
{
    CreateIdle();
    {
        const Kit::Interruptions interruptions({20ms, 50ms, 120ms});
        leds->Stop(LedController::BothOff);
        EXPECT_EQ(Clock::Elapsed(), 210ms);
    }
    EXPECT_EQ(Kit::Interruptions::Count(), 3);
    EXPECT_THAT(driver.Writes(), SizeIs(4));
}

TEST_F(LedsTest, WithoutADeviceStopTakesItsTime)
{
    System::Fail("open", ENXIO, 1, 1000);
    Create();
    leds->SetLedMode(LEFT, LedController::RedOn);
    Pass(1s);
    leds->Stop(LedController::BothOn);
    EXPECT_EQ(Clock::Elapsed(), 1200ms);
    EXPECT_THAT(driver.Writes(), IsEmpty());
    EXPECT_GE(Opens(), 20u) << "each write looks for it";
}

TEST_F(LedsTest, DestructionWithoutStopEndsTheThreadsAndLeavesTheLeds)
{
    CreateIdle();
    leds->SetLedMode(LEFT, LedController::RedOn);
    leds->SetLedMode(RIGHT, LedController::GreenOn);
    Pass(240ms);
    driver.Forget();
    const auto address = reinterpret_cast<std::uintptr_t>(leds);
    Destroy();
    EXPECT_EQ(Clock::Elapsed(), 250ms);
    EXPECT_THAT(ThreadNames(), Not(Contains("LED-LEFT")));
    EXPECT_THAT(ThreadNames(), Not(Contains("LED-RIGHT")));
    Pass(1s);
    EXPECT_THAT(driver.Writes(), IsEmpty());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(LedsController::GetInstance()), address)
        << "none is made anew";
}

TEST_F(LedsTest, TheOwnersThreadsMaySetModesTogether)
{
    Create();
    std::vector<std::thread> users;
    for (const bool side : {LEFT, RIGHT, LEFT, RIGHT})
    {
        users.emplace_back([this, side] {
            for (int i = 0; i < 100; ++i)
            {
                LedsController::GetInstance()->SetLedMode(side, static_cast<LedController::LedState>(i % 12));
                Pass(7ms);
            }
        });
    }
    for (std::thread& user : users)
    {
        user.join();
    }
    leds->TurnOffLedMode(LEFT, LedController::BothOff);
    leds->TurnOffLedMode(RIGHT, LedController::BothOff);
    Pass(5s);
    leds->Stop(LedController::RedOnly);
    EXPECT_EQ(WritesTo(LEFT).back().value, 1u);
    EXPECT_EQ(WritesTo(RIGHT).back().value, 1u);
}

// Threads that cannot be created -------------------------------------------------------------------------

class LedsRefusedTest : public LedsTest, public testing::WithParamInterface<int>
{
};

TEST_P(LedsRefusedTest, PassAnExceptionOnLeaveNothingAndLetItBeTriedAgain)
{
    const std::size_t threads = ThreadNames().size();
    System::RefuseThreads(GetParam());
    const std::string name = GetParam() == 1 ? "LED-LEFT" : "LED-RIGHT";
    try
    {
        LedsController::GetInstance();
        FAIL() << "no exception";
    }
    catch (const Tavbase::IException& e)
    {
        EXPECT_EQ(std::string(e.what()), name + ": thread not started");
    }
    EXPECT_THAT(ThreadNames(), SizeIs(threads));
    EXPECT_THAT(log.Console(), ElementsAre("[ERROR][#Tavthread] " + name +
                                           ": thread not started: Resource temporarily unavailable"));
    EXPECT_THAT(driver.Writes(), IsEmpty());
    EXPECT_EQ(Clock::Elapsed(), 0ms);
    CreateIdle();
    leds->SetLedMode(LEFT, LedController::RedOn);
    Pass(140ms);
    EXPECT_THAT(driver.Writes(), SizeIs(2));
}

INSTANTIATE_TEST_SUITE_P(Threads, LedsRefusedTest, testing::Values(1, 2));

}

}

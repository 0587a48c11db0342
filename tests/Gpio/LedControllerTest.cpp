// One LED: its modes, step by step and on its thread.

#include "Gpio/LedController.h"
#include "tests/Gpio/GpioTest.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <type_traits>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace GpioTests
{

namespace
{

using Kit::Clock;
using Kit::System;
using std::chrono::milliseconds;
using Tavbase::Interfaces::IThread;
using Tavdevice::Gpio::LedController;

constexpr int RED = 100;
constexpr int GREEN = 101;

// Shape --------------------------------------------------------------------------------------------------

static_assert(std::is_convertible_v<LedController*, IThread*>);
static_assert(std::has_virtual_destructor_v<LedController>);
static_assert(LedController::RedBlink40 == 0 && LedController::GreenBlink40 == 1);
static_assert(LedController::RedBlink80 == 2 && LedController::GreenBlink80 == 3);
static_assert(LedController::RedBlink450 == 4 && LedController::GreenBlink450 == 5);
static_assert(LedController::RedBlink1000 == 6 && LedController::GreenBlink1000 == 7);
static_assert(LedController::GreenBlink2000 == 8);
static_assert(LedController::RedOn == 9 && LedController::GreenOn == 10);
static_assert(LedController::Idle == 11 && LedController::TurnOff == 12);
static_assert(LedController::RedOnly == 0 && LedController::GreenOnly == 1);
static_assert(LedController::BothOn == 2 && LedController::BothOff == 3);
static_assert(sizeof(LedController::LedState) == 4 && sizeof(LedController::LedOffState) == 4);

TEST(LedShapeTest, VirtualOperationsFollowTheTwoDestructors)
{
    EXPECT_EQ(Tests::VirtualSlot(&LedController::RunBefore), 2);
    EXPECT_EQ(Tests::VirtualSlot(&LedController::Run), 3);
    EXPECT_EQ(Tests::VirtualSlot(&LedController::RunAfter), 4);
    EXPECT_EQ(Tests::VirtualSlot(&LedController::Stopping), 5);
    EXPECT_EQ(Tests::VirtualSlot(&LedController::SetLedMode), -1);
    EXPECT_EQ(Tests::VirtualSlot(&LedController::TurnOffLedMode), -1);
    EXPECT_EQ(Tests::VirtualSlot(&LedController::ApplyRedBlink), -1);
    EXPECT_EQ(Tests::VirtualSlot(&LedController::ApplyGreenBlink), -1);
    static_assert(std::is_same_v<decltype(&LedController::RunBefore), int (IThread::*)()>, "inherited");
    static_assert(std::is_same_v<decltype(&LedController::RunAfter), void (IThread::*)()>, "inherited");
    static_assert(std::is_same_v<decltype(&LedController::Stopping), void (IThread::*)()>, "inherited");
}

// Steps --------------------------------------------------------------------------------------------------

/// Steps are taken by the test; at the beginning the pins have not been written.
class LedStepTest : public GpioTest
{
protected:
    /// Takes one step. @return how long it took
    std::chrono::nanoseconds Step()
    {
        driver.Forget();
        begin = Clock::Elapsed();
        led.Run();
        return Clock::Elapsed() - begin;
    }

    /// What the step wrote, with times counted from its beginning.
    std::vector<PinWrite> Writes() const
    {
        std::vector<PinWrite> writes = driver.Writes();
        for (PinWrite& write : writes)
        {
            write.at -= begin;
        }
        return writes;
    }

    void ExpectIdle()
    {
        EXPECT_EQ(Step(), 100ms);
        EXPECT_THAT(driver.Writes(), IsEmpty());
    }

    LedController led{RED, GREEN, "LED"};

private:
    std::chrono::nanoseconds begin{};
};

TEST_F(LedStepTest, ANewLedIsNamedAndIdleAndHasNoThread)
{
    EXPECT_EQ(led.GetName(), "LED");
    EXPECT_FALSE(led.IsRunning());
    std::this_thread::sleep_for(5s);
    EXPECT_THAT(driver.Writes(), IsEmpty());
    EXPECT_EQ(Opens(), 0u);
    ExpectIdle();
    ExpectIdle();
}

TEST_F(LedStepTest, SettingAModeWritesNothingByItself)
{
    led.SetLedMode(LedController::RedOn);
    led.TurnOffLedMode(LedController::BothOn);
    EXPECT_EQ(Opens(), 0u);
}

struct BlinkRow
{
    LedController::LedState mode;
    int pin;
    int otherPin;
    milliseconds period;
};

void PrintTo(const BlinkRow& row, std::ostream* out)
{
    *out << static_cast<int>(row.mode);
}

class LedBlinkTest : public LedStepTest, public testing::WithParamInterface<BlinkRow>
{
};

TEST_P(LedBlinkTest, IsOnForItsPeriodAndThenOffForAsLong)
{
    const auto [mode, pin, otherPin, period] = GetParam();
    const auto lit = static_cast<unsigned long>(pin);
    const auto dark = static_cast<unsigned long>(otherPin);
    led.SetLedMode(mode);
    for (int step = 0; step < 3; ++step)
    {
        EXPECT_EQ(Step(), 2 * period);
        EXPECT_THAT(Writes(),
                    ElementsAre(PinWrite{dark, 0, 0ms}, PinWrite{lit, 1, 0ms}, PinWrite{lit, 0, period}));
    }
}

TEST_P(LedBlinkTest, KeepsItsTimeWhateverTheDriverAnswers)
{
    const auto [mode, pin, otherPin, period] = GetParam();
    driver.AnswerBy([](const PinWrite&) { return -EIO; });
    led.SetLedMode(mode);
    EXPECT_EQ(Step(), 2 * period);
    EXPECT_THAT(driver.Writes(), SizeIs(3));
}

INSTANTIATE_TEST_SUITE_P(Modes, LedBlinkTest,
                         testing::Values(BlinkRow{LedController::RedBlink40, RED, GREEN, 40ms},
                                         BlinkRow{LedController::GreenBlink40, GREEN, RED, 40ms},
                                         BlinkRow{LedController::RedBlink80, RED, GREEN, 80ms},
                                         BlinkRow{LedController::GreenBlink80, GREEN, RED, 80ms},
                                         BlinkRow{LedController::RedBlink450, RED, GREEN, 450ms},
                                         BlinkRow{LedController::GreenBlink450, GREEN, RED, 450ms},
                                         BlinkRow{LedController::RedBlink1000, RED, GREEN, 1000ms},
                                         BlinkRow{LedController::GreenBlink1000, GREEN, RED, 1000ms},
                                         BlinkRow{LedController::GreenBlink2000, GREEN, RED, 2000ms}));

TEST_F(LedStepTest, ABlinkOfAnyDurationCanBeAppliedByHand)
{
    led.ApplyRedBlink(7ms);
    led.ApplyGreenBlink(1500ms);
    EXPECT_THAT(driver.Writes(),
                ElementsAre(PinWrite{GREEN, 0, 0ms}, PinWrite{RED, 1, 0ms}, PinWrite{RED, 0, 7ms},
                            PinWrite{RED, 0, 14ms}, PinWrite{GREEN, 1, 14ms}, PinWrite{GREEN, 0, 1514ms}));
    EXPECT_EQ(Clock::Elapsed(), 3014ms);
    led.ApplyRedBlink(0ms);
    EXPECT_EQ(Clock::Elapsed(), 3014ms);
    EXPECT_THAT(driver.Writes(), SizeIs(9));
}

TEST_F(LedStepTest, ASteadyColourIsWrittenInEachStep)
{
    led.SetLedMode(LedController::RedOn);
    for (int step = 0; step < 3; ++step)
    {
        EXPECT_EQ(Step(), 100ms);
        EXPECT_THAT(Writes(), ElementsAre(PinWrite{RED, 1, 0ms}, PinWrite{GREEN, 0, 0ms}));
    }
    led.SetLedMode(LedController::GreenOn);
    for (int step = 0; step < 3; ++step)
    {
        EXPECT_EQ(Step(), 100ms);
        EXPECT_THAT(Writes(), ElementsAre(PinWrite{GREEN, 1, 0ms}, PinWrite{RED, 0, 0ms}));
    }
    led.SetLedMode(LedController::Idle);
    ExpectIdle();
}

TEST_F(LedStepTest, AModeThatThereIsNotDoesNothingAndTakesNoTime)
{
    for (const int mode : {13, 14, 1000, INT32_MAX, -1, INT32_MIN})
    {
        led.SetLedMode(static_cast<LedController::LedState>(mode));
        EXPECT_EQ(Step(), 0ms) << mode;
        EXPECT_EQ(Step(), 0ms) << mode;
        EXPECT_THAT(driver.Writes(), IsEmpty()) << mode;
    }
    EXPECT_THAT(System::Calls(), IsEmpty());
    led.SetLedMode(LedController::Idle);
    ExpectIdle();
}

TEST_F(LedStepTest, TurnOffShowsItsStateOnceGreenFirst)
{
    struct Row
    {
        LedController::LedOffState state;
        std::uintptr_t green;
        std::uintptr_t red;
    };

    for (const Row& row : {Row{LedController::RedOnly, 0, 1}, Row{LedController::GreenOnly, 1, 0},
                           Row{LedController::BothOn, 1, 1}, Row{LedController::BothOff, 0, 0}})
    {
        led.TurnOffLedMode(row.state);
        EXPECT_EQ(Step(), 0ms) << row.state;
        EXPECT_THAT(driver.Written(), ElementsAre(Pin(GREEN, row.green), Pin(RED, row.red))) << row.state;
        ExpectIdle();
    }
}

TEST_F(LedStepTest, AnOffStateThatThereIsNotWritesNothingAndLeadsToIdle)
{
    for (const int state : {4, 5, INT32_MAX, -1})
    {
        led.SetLedMode(LedController::RedOn);
        led.TurnOffLedMode(static_cast<LedController::LedOffState>(state));
        EXPECT_EQ(Step(), 0ms) << state;
        EXPECT_THAT(driver.Writes(), IsEmpty()) << state;
        ExpectIdle();
    }
}

TEST_F(LedStepTest, TurnOffSetAsAModeShowsTheLastOffState)
{
    led.SetLedMode(LedController::TurnOff);
    EXPECT_EQ(Step(), 0ms);
    EXPECT_THAT(driver.Written(), ElementsAre(Pin(GREEN, 0), Pin(RED, 0))) << "both off at first";
    led.TurnOffLedMode(LedController::RedOnly);
    Step();
    led.SetLedMode(LedController::GreenOn);
    Step();
    led.SetLedMode(LedController::TurnOff);
    EXPECT_EQ(Step(), 0ms);
    EXPECT_THAT(driver.Written(), ElementsAre(Pin(GREEN, 0), Pin(RED, 1)));
    ExpectIdle();
}

TEST_F(LedStepTest, TheLastModeThatWasSetIsPlayed)
{
    led.TurnOffLedMode(LedController::BothOn);
    led.SetLedMode(LedController::RedOn);
    EXPECT_EQ(Step(), 100ms);
    EXPECT_THAT(driver.Written(), ElementsAre(Pin(RED, 1), Pin(GREEN, 0)));
    led.SetLedMode(LedController::GreenOn);
    led.TurnOffLedMode(LedController::BothOn);
    EXPECT_EQ(Step(), 0ms);
    EXPECT_THAT(driver.Written(), ElementsAre(Pin(GREEN, 1), Pin(RED, 1)));
}

TEST_F(LedStepTest, AModeThatIsSetWhileTurnOffIsAppliedIsNotLost)
{
    for (const unsigned long at : {GREEN, RED})
    {
        driver.AnswerBy([&](const PinWrite& write) {
            if (write.pin == at)
            {
                led.SetLedMode(LedController::GreenBlink80);
            }
            return 0;
        });
        led.TurnOffLedMode(LedController::RedOnly);
        EXPECT_EQ(Step(), 0ms);
        EXPECT_THAT(driver.Written(), ElementsAre(Pin(GREEN, 0), Pin(RED, 1)))
            << "the state is shown as a whole";
        driver.AnswerBy(nullptr);
        EXPECT_EQ(Step(), 160ms) << "set at pin " << at;
        EXPECT_THAT(driver.Writes(), SizeIs(3));
    }
}

TEST_F(LedStepTest, AnotherOffStateThatIsSetWhileOneIsAppliedIsNotLost)
{
    for (const unsigned long at : {GREEN, RED})
    {
        driver.AnswerBy([&](const PinWrite& write) {
            if (write.pin == at)
            {
                led.TurnOffLedMode(LedController::BothOn);
            }
            return 0;
        });
        led.TurnOffLedMode(LedController::RedOnly);
        EXPECT_EQ(Step(), 0ms);
        EXPECT_THAT(driver.Written(), ElementsAre(Pin(GREEN, 0), Pin(RED, 1)));
        driver.AnswerBy(nullptr);
        EXPECT_EQ(Step(), 0ms) << "set at pin " << at;
        EXPECT_THAT(driver.Written(), ElementsAre(Pin(GREEN, 1), Pin(RED, 1)));
        ExpectIdle();
    }
}

TEST(LedWithoutDeviceTest, TheStepsTakeTheirTime)
{
    const Kit::Clock clock;
    LedController led(RED, GREEN, "LED");
    led.SetLedMode(LedController::RedBlink450);
    led.Run();
    EXPECT_EQ(Clock::Elapsed(), 900ms);
    led.SetLedMode(LedController::GreenOn);
    led.Run();
    EXPECT_EQ(Clock::Elapsed(), 1000ms);
    led.TurnOffLedMode(LedController::BothOff);
    led.Run();
    EXPECT_EQ(Clock::Elapsed(), 1000ms);
    EXPECT_THAT(System::CallsOf("ioctl"), IsEmpty());
}

// The thread ---------------------------------------------------------------------------------------------

class LedThreadTest : public GpioTest
{
protected:
    void TearDown() override
    {
        led.reset();
        GpioTest::TearDown();
    }

    void Start() { ASSERT_TRUE(led->Start()); }

    static void Pass(milliseconds time) { std::this_thread::sleep_for(time); }

    std::unique_ptr<LedController> led = std::make_unique<LedController>(RED, GREEN, "LED");
};

TEST_F(LedThreadTest, AModeIsTakenUpAfterTheStepAtHand)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(10ms); // idle until 100 ms
    led->SetLedMode(LedController::GreenBlink2000);
    Pass(40ms);
    EXPECT_THAT(driver.Writes(), IsEmpty());
    Pass(60ms);
    led->SetLedMode(LedController::RedOn);
    Pass(4s);
    led->TurnOffLedMode(LedController::BothOff);
    Pass(1s);
    EXPECT_THAT(driver.Writes(),
                ElementsAre(PinWrite{RED, 0, 100ms}, PinWrite{GREEN, 1, 100ms}, PinWrite{GREEN, 0, 2100ms},
                            PinWrite{RED, 1, 4100ms}, PinWrite{GREEN, 0, 4100ms}, PinWrite{GREEN, 0, 4200ms},
                            PinWrite{RED, 0, 4200ms}));
}

TEST_F(LedThreadTest, AStopEndsTheSleepAtOnceAndTheBlinkDark)
{
    for (const auto& [mode, lit, stopAt] : {std::tuple(LedController::GreenBlink2000, true, 500ms),
                                            {LedController::GreenBlink2000, false, 2500ms},
                                            {LedController::RedBlink1000, true, 999ms},
                                            {LedController::Idle, false, 50ms}})
    {
        driver.Forget();
        led->SetLedMode(mode);
        const auto begin = Clock::Elapsed();
        ASSERT_NO_FATAL_FAILURE(Start());
        Pass(stopAt);
        const Pins before = driver.Written();
        led->Stop();
        EXPECT_EQ(Clock::Elapsed() - begin, stopAt);
        EXPECT_FALSE(led->IsRunning());
        EXPECT_EQ(driver.Written().size(), before.size() + (lit ? 1 : 0));
        if (mode != LedController::Idle)
        {
            EXPECT_EQ(driver.Written().back().second, 0u);
        }
    }
}

TEST_F(LedThreadTest, DestructionEndsTheThreadAndLeavesTheLedAsItIs)
{
    led->SetLedMode(LedController::RedOn);
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(250ms);
    driver.Forget();
    led.reset();
    EXPECT_EQ(Clock::Elapsed(), 250ms);
    EXPECT_THAT(driver.Writes(), IsEmpty());
}

TEST_F(LedThreadTest, ModesAreSetFromSeveralThreads)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    std::vector<std::thread> users;
    for (int user = 0; user < 4; ++user)
    {
        users.emplace_back([&, user] {
            for (int i = 0; i < 200; ++i)
            {
                if (user % 2 == 0)
                {
                    led->SetLedMode(static_cast<LedController::LedState>((user + i) % 12));
                }
                else
                {
                    led->TurnOffLedMode(static_cast<LedController::LedOffState>(i % 4));
                }
                Pass(3ms);
            }
        });
    }
    for (std::thread& user : users)
    {
        user.join();
    }
    led->TurnOffLedMode(LedController::GreenOnly);
    Pass(5s);
    const Pins pins = driver.Written();
    ASSERT_GE(pins.size(), 2u);
    EXPECT_EQ(pins[pins.size() - 2], Pin(GREEN, 1));
    EXPECT_EQ(pins.back(), Pin(RED, 0));
}

/// In real time: one thread sets states, the other takes steps that never sleep. Neither waits for the other
/// for long, so that a busy machine does not hold the test up.
TEST(LedRaceTest, AnOffStateIsNeverOlderThanItsMode)
{
    constexpr int ROUNDS = 20'000;
    constexpr int STATES = 4;
    constexpr int LONGEST_SPIN = 2'000;
    std::atomic<int> begun{0}; // settings, the present one included
    std::atomic<int> made{0};
    std::atomic<int> shown{0};
    std::uintptr_t pair = 0; // green and red, as the stepping thread wrote them last
    LedController led(RED, GREEN, "LED");
    led.Cancel(); // no sleep of it takes any time
    Kit::MessageDevice device(DEVICE, [&](unsigned long pin, void* value) {
        pair = (pair << 1 | reinterpret_cast<std::uintptr_t>(value)) & 0b11;
        shown += pin == RED ? 1 : 0;
        return 0;
    });

    std::thread setter([&] {
        for (int round = 0; round < ROUNDS; ++round)
        {
            const int before = shown;
            begun = round + 1;
            led.TurnOffLedMode(static_cast<LedController::LedOffState>(round % STATES));
            made = round + 1;
            for (int spin = 0; shown == before && spin < LONGEST_SPIN; ++spin)
            {
            }
        }
    });
    constexpr std::array<std::uintptr_t, STATES> LOOKS = {0b01, 0b10, 0b11, 0b00};
    int lastShown = -1; // each setting is shown once at most
    int checked = 0;
    int wrong = 0;
    while (made < ROUNDS)
    {
        const int before = shown;
        const int oldest = std::max(made - 1, lastShown + 1);
        led.Run();
        const int latest = begun - 1;
        if (shown == before)
        {
            continue;
        }
        if (latest - oldest >= STATES)
        {
            lastShown = oldest; // it may have been any of them
            continue;
        }
        int round = oldest;
        while (round <= latest && pair != LOOKS.at(static_cast<std::size_t>(round % STATES)))
        {
            ++round;
        }
        ++checked;
        if (round <= latest)
        {
            lastShown = round;
        }
        else
        {
            ++wrong;
        }
    }
    setter.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(checked, 0);
    ForgetDevice();
}

}

}

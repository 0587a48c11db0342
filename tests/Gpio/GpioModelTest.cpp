// From end to end: the library with the emulated event driver.

#include "Gpio/GpioManager.h"
#include "Gpio/LedController.h"
#include "tests/Gpio/GpioTest.h"
#include "tests/Gpio/Listener.h"
#include "tests/virtual-unit/EmulatedDevice.h"
#include "virtual-unit/peripherals/EventDriver.h"

#include <cstddef>
#include <optional>

using Tavdevice::Gpio::LedController;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

namespace GpioTests
{

namespace
{

using Kit::Clock;
using Driver = VirtualUnit::EventDriver;

/// A pin, its value, and how long after the first write.
struct Step
{
    unsigned int pin;
    unsigned int value;
    std::chrono::milliseconds after;

    bool operator==(const Step&) const = default;
};

class EmulatedDriver : public GpioAloneTest
{
protected:
    std::vector<Step> History()
    {
        const auto history = device.Locked([&] { return driver.History(); });
        std::vector<Step> steps;
        for (const Driver::PinWrite& write : history)
        {
            steps.push_back(
                {write.pin, write.value,
                 std::chrono::duration_cast<std::chrono::milliseconds>(write.at - history[0].at)});
        }
        return steps;
    }

    Driver driver;
    EmulatedMessages device{DEVICE, driver};
};

TEST_F(EmulatedDriver, TheInfraredLedsAreTurnedOff)
{
    EXPECT_TRUE(GpioCore::TurnOffIRLEDs());
    EXPECT_EQ(device.Locked([&] { return driver.Pin(104); }), 0U);
}

TEST_F(EmulatedDriver, ThePowerLineIsPulsed)
{
    EXPECT_TRUE(GpioCore::ShutDownIfIgnitionOff());
    EXPECT_THAT(History(), ElementsAre(Step{105, 0, 0ms}, Step{105, 1, 100ms}));
}

TEST_F(EmulatedDriver, TheHubIsResetAndGetsItsTime)
{
    const auto begin = Clock::Elapsed();
    EXPECT_TRUE(GpioCore::HWResetUsbHub());
    EXPECT_THAT(History(), ElementsAre(Step{106, 0, 0ms}, Step{106, 1, 20ms}));
    EXPECT_EQ(Clock::Elapsed() - begin, 8020ms);
}

TEST_F(EmulatedDriver, APinThatIsRefusedIsNotTold)
{
    driver.faults.pins[105] = EIO;
    EXPECT_TRUE(GpioCore::ShutDownIfIgnitionOff());
    EXPECT_THAT(History(), IsEmpty());
}

TEST_F(EmulatedDriver, ALedBlinks)
{
    LedController led(100, 101, "LED");
    led.SetLedMode(LedController::GreenBlink450);
    ASSERT_TRUE(led.Start());
    EXPECT_TRUE(Clock::WaitUntil([&] { return History().size() >= 6; }));
    led.Stop();
    const std::vector<Step> expected = {{100, 0, 0ms},   {101, 1, 0ms},   {101, 0, 450ms},
                                        {100, 0, 900ms}, {101, 1, 900ms}, {101, 0, 1350ms}};
    std::vector<Step> steps = History();
    steps.resize(expected.size());
    EXPECT_THAT(steps, ElementsAreArray(expected));
}

/// A manager that delivers from its first second on.
class EmulatedTriggers : public EmulatedDriver
{
protected:
    EmulatedTriggers()
    {
        manager->startupFilter = false;
        manager->RunIgnitionStart();
    }

    void TearDown() override
    {
        manager.reset(); // before the device is closed
        EmulatedDriver::TearDown();
    }

    void Trigger(unsigned char code, std::size_t times = 1)
    {
        device.Locked([&] { driver.Trigger(code, times); });
    }

    bool Await(std::size_t count)
    {
        return Clock::WaitUntil([&] { return listener.Count() >= count; });
    }

    GpioOutput listener;
    GpioOutput* listeners[1] = {&listener};
    std::optional<GpioManager> manager{std::in_place, listeners, 1u};
};

TEST_F(EmulatedTriggers, OfAllCodesOneToFiveAreEvents)
{
    for (int code = 0; code <= 255; ++code)
    {
        Trigger(static_cast<unsigned char>(code));
    }
    Trigger(4);
    ASSERT_TRUE(Await(6));
    EXPECT_THAT(listener.Codes(), ElementsAre(1, 2, 3, 4, 5, 4));
}

TEST_F(EmulatedTriggers, OfABurstNoneIsLost)
{
    Trigger(3, 100);
    Trigger(4);
    ASSERT_TRUE(Await(101));
    const Codes codes = listener.Codes();
    EXPECT_THAT(codes, SizeIs(101));
    EXPECT_EQ(codes.back(), 4);
}

TEST_F(EmulatedTriggers, AShortMessageIsATriggerToo)
{
    device.Locked([&] {
        driver.faults.messageBytes = 1;
        driver.Trigger(5);
    });
    ASSERT_TRUE(Await(1));
    EXPECT_THAT(listener.Codes(), ElementsAre(5));
}

TEST_F(EmulatedTriggers, WhileTheManagerWaitsPinsCanBeDriven)
{
    EXPECT_TRUE(GpioCore::SetPin(104, 1));
    EXPECT_EQ(device.Locked([&] { return driver.Pin(104); }), 1U);
    Trigger(3);
    EXPECT_TRUE(Await(1));
}

TEST_F(EmulatedTriggers, AfterAHangUpNothingComesAndTheManagerCanBeEnded)
{
    device.Locked([&] { driver.HangUp(); });
    std::this_thread::sleep_for(10s);
    EXPECT_THAT(listener.Codes(), IsEmpty());
}

TEST_F(GpioAloneTest, AScriptOfTriggersIsDelivered)
{
    Driver driver({{1s, 3}, {2s, 4}});
    EmulatedMessages device(DEVICE, driver);
    std::vector<std::chrono::nanoseconds> times;
    GpioOutput listener([&](const GpioArgs&) { times.push_back(Clock::Elapsed()); });
    GpioOutput* listeners[] = {&listener};
    {
        GpioManager manager(listeners, 1u);
        manager.RunIgnitionStart();
        EXPECT_TRUE(Clock::WaitUntil([&] { return listener.Count() == 2; }));
    }
    EXPECT_THAT(listener.Codes(), ElementsAre(3, 4));
    EXPECT_EQ(times[1] - times[0], 1s);
}

}

}

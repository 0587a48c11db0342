#include "virtual-unit/peripherals/EventDriver.h"

#include "tests/virtual-unit/OwnMemory.h"

#include <cerrno>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

class EventDriverTest : public testing::Test
{
protected:
    int Set(unsigned long pin, std::uint64_t value) { return driver.Answer({pin, value, memory}, now); }

    EventDriver::TimePoint now{1h};
    EventDriver driver;
    OwnMemory memory;
};

/// What is sent within `time`.
std::vector<std::string> Wait(EventDriver& driver, EventDriver::TimePoint& now,
                              std::chrono::milliseconds time)
{
    now += time;
    driver.Advance(now);
    return driver.TakeOutput();
}

TEST_F(EventDriverTest, APinIsSetAndRemembered)
{
    EXPECT_EQ(driver.Pin(104), std::nullopt);
    EXPECT_EQ(Set(104, 1), 0);
    EXPECT_EQ(driver.Pin(104), 1U);
    now += 5ms;
    EXPECT_EQ(Set(104, 0), 0);
    EXPECT_EQ(driver.Pin(104), 0U);
    EXPECT_EQ(driver.Pin(105), std::nullopt);
    EXPECT_THAT(driver.History(),
                ElementsAre(EventDriver::PinWrite{now - 5ms, 104, 1}, EventDriver::PinWrite{now, 104, 0}));
}

TEST_F(EventDriverTest, ItHasSevenPins)
{
    for (unsigned int pin = 100; pin <= 106; ++pin)
    {
        EXPECT_EQ(Set(pin, 1), 0) << pin;
    }
    EXPECT_EQ(Set(99, 1), -ENOTTY);
    EXPECT_EQ(Set(107, 1), -ENOTTY);
    EXPECT_THAT(driver.History(), SizeIs(7));
}

TEST_F(EventDriverTest, APinIsOffOrOn)
{
    EXPECT_EQ(Set(100, 2), -EINVAL);
    EXPECT_EQ(driver.Pin(100), std::nullopt);
    EXPECT_EQ(Set(100, 0x5'0000'0001), 0); // what stands above the 32 bits of an argument is nobody's
    EXPECT_EQ(driver.Pin(100), 1U);
}

TEST_F(EventDriverTest, ARefusedPinStaysAsItIs)
{
    Set(105, 1);
    driver.faults.pins[105] = EIO;
    EXPECT_EQ(Set(105, 0), -EIO);
    EXPECT_EQ(driver.Pin(105), 1U);
    EXPECT_EQ(Set(106, 0), 0);
    driver.faults.pins[105] = 0;
    EXPECT_EQ(Set(105, 0), 0);
    EXPECT_THAT(driver.History(), SizeIs(3));
}

TEST_F(EventDriverTest, TheLatestWritesAreRemembered)
{
    Set(100, 1);
    for (std::size_t i = 0; i < EventDriver::LONGEST_HISTORY; ++i)
    {
        Set(101, 1);
    }
    EXPECT_THAT(driver.History(), SizeIs(EventDriver::LONGEST_HISTORY));
    EXPECT_EQ(driver.History().front().pin, 101U);
    EXPECT_EQ(driver.Pin(100), 1U);
}

TEST_F(EventDriverTest, ChangesAreRememberedForLongerThanWritesThatChangeNothing)
{
    Set(100, 1);
    for (std::size_t i = 0; i < EventDriver::LONGEST_HISTORY; ++i)
    {
        Set(101, 0);
    }
    Set(100, 0);
    EXPECT_THAT(driver.Changes(),
                ElementsAre(EventDriver::PinWrite{now, 100, 1}, EventDriver::PinWrite{now, 101, 0},
                            EventDriver::PinWrite{now, 100, 0}));
}

TEST_F(EventDriverTest, ATriggerIsFiveBytes)
{
    driver.rest = {1, 2, 3, 4};
    driver.Trigger(3);
    EXPECT_THAT(driver.TakeOutput(), ElementsAre("\3\1\2\3\4"));
    EXPECT_THAT(driver.TakeOutput(), IsEmpty());
}

TEST_F(EventDriverTest, AnyCodeIsSent)
{
    for (int code = 0; code <= 255; ++code)
    {
        driver.Trigger(static_cast<unsigned char>(code));
        EXPECT_THAT(driver.TakeOutput(), ElementsAre(static_cast<char>(code) + "\0\0\0\0"s)) << code;
    }
}

TEST_F(EventDriverTest, ABurstIsManyMessages)
{
    driver.Trigger(2, 100);
    driver.Trigger(1);
    const std::vector<std::string> messages = driver.TakeOutput();
    ASSERT_THAT(messages, SizeIs(101));
    EXPECT_EQ(messages[99], "\2\0\0\0\0"s);
    EXPECT_EQ(messages[100], "\1\0\0\0\0"s);
}

TEST_F(EventDriverTest, MessagesMayBeShort)
{
    driver.faults.messageBytes = 1;
    driver.Trigger(4);
    driver.faults.messageBytes = 3;
    driver.Trigger(4);
    driver.faults.messageBytes = 0;
    driver.Trigger(4);
    driver.faults.messageBytes = 6;
    driver.Trigger(4);
    EXPECT_THAT(driver.TakeOutput(), ElementsAre("\4", "\4\0\0"s, "\4", "\4\0\0\0\0"s));
}

TEST_F(EventDriverTest, AScriptIsPlayedFromTheFirstCallOn)
{
    EventDriver scripted({{200ms, 5}, {100ms, 1}, {100ms, 2}});
    EXPECT_EQ(scripted.NextDeadline(), std::nullopt);
    EXPECT_THAT(Wait(scripted, now, 0ms), IsEmpty());
    EXPECT_EQ(scripted.NextDeadline(), now + 100ms);
    EXPECT_THAT(Wait(scripted, now, 99ms), IsEmpty());
    EXPECT_THAT(Wait(scripted, now, 1ms), ElementsAre("\1\0\0\0\0"s, "\2\0\0\0\0"s));
    EXPECT_EQ(scripted.NextDeadline(), now + 100ms);
    EXPECT_THAT(Wait(scripted, now, 10s), ElementsAre("\5\0\0\0\0"s));
    EXPECT_EQ(scripted.NextDeadline(), std::nullopt);
}

TEST_F(EventDriverTest, APinWriteLetsTheTimeGoOn)
{
    EventDriver scripted({{100ms, 1}});
    scripted.Answer({100, 1, memory}, now);
    scripted.Answer({100, 0, memory}, now + 100ms);
    EXPECT_THAT(scripted.TakeOutput(), SizeIs(1));
}

TEST_F(EventDriverTest, AHangUpIsForGood)
{
    EXPECT_TRUE(driver.IsConnected());
    driver.HangUp();
    EXPECT_FALSE(driver.IsConnected());
}

TEST_F(EventDriverTest, TheHostIsWoken)
{
    int woken = 0;
    driver.Attach([&] { ++woken; });
    driver.Trigger(1, 5);
    EXPECT_EQ(woken, 1);
    driver.HangUp();
    EXPECT_EQ(woken, 2);
    driver.Attach({});
    driver.Trigger(1);
    EXPECT_EQ(woken, 2);
}

TEST_F(EventDriverTest, ThereIsNothingToWrite)
{
    EXPECT_EQ(driver.Receive("\1", now), EINVAL);
}

}

#include "virtual-unit/recording/ObservedDriver.h"

#include "tests/virtual-unit/OwnMemory.h"
#include "tests/virtual-unit/recording/Notes.h"
#include "virtual-unit/peripherals/EventDriver.h"
#include "virtual-unit/peripherals/HidBridge.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/hidraw.h>
#include <linux/ioctl.h>
#include <memory>
#include <string>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace VirtualUnit;
using testing::ElementsAre;

class ObservedDriverTest : public testing::Test
{
protected:
    IoctlPeripheral::TimePoint begin{1h};
    Notes notes{begin};
    OwnMemory memory;
};

TEST_F(ObservedDriverTest, PinsAndTriggersAreTold)
{
    const auto driver = std::make_shared<EventDriver>(std::vector<EventDriver::Event>{{20ms, 1}});
    driver->faults.pins[105] = ENXIO;
    ObservedDriver observed(driver, notes, begin);
    EXPECT_EQ(observed.Answer({103, 1, memory}, begin + 1ms), 0);
    EXPECT_EQ(observed.Answer({103, 2, memory}, begin + 2ms), -EINVAL);
    EXPECT_EQ(observed.Answer({105, 1, memory}, begin + 3ms), -ENXIO);
    EXPECT_EQ(observed.Answer({107, 1, memory}, begin + 4ms), -ENOTTY);
    EXPECT_EQ(observed.NextDeadline(), begin + 21ms);
    observed.Advance(begin + 21ms);
    EXPECT_THAT(observed.TakeOutput(), ElementsAre("\1\0\0\0\0"s));
    EXPECT_EQ(observed.Receive("x", begin + 22ms), EINVAL);
    EXPECT_EQ(driver->Pin(103), 1U);
    EXPECT_THAT(notes.lines,
                ElementsAre("1 ? pin 103 = 1 -> 0", "2 ? pin 103 = 2 -> EINVAL", "3 ? pin 105 = 1 -> ENXIO",
                            "4 ? ioctl 0x6B -> ENOTTY", "21 < hex 01 00 00 00 00", "22 > \"x\""));
}

TEST_F(ObservedDriverTest, AHangUpIsTold)
{
    const auto driver = std::make_shared<EventDriver>();
    ObservedDriver observed(driver, notes, begin);
    driver->HangUp();
    observed.Advance(begin + 5ms);
    observed.TakeOutput();
    EXPECT_FALSE(observed.IsConnected());
    EXPECT_THAT(notes.lines, ElementsAre("5 ! unplugged"));
}

TEST_F(ObservedDriverTest, ABridgeTellsWhoItIs)
{
    const auto bridge = std::make_shared<HidBridge>();
    ObservedDriver observed(bridge, notes, begin);
    const auto ask = [&](unsigned long request, void* data) {
        return observed.Answer({request, reinterpret_cast<std::uint64_t>(data), memory}, begin);
    };
    int size = 0;
    std::array<char, 256> name = {};
    hidraw_devinfo info = {};
    EXPECT_EQ(ask(HIDIOCGRDESCSIZE, &size), 0);
    EXPECT_EQ(size, 150);
    EXPECT_EQ(ask(HIDIOCGRAWNAME(256), name.data()), 11);
    EXPECT_STREQ(name.data(), "FTDI FT260");
    EXPECT_EQ(ask(HIDIOCGRAWNAME(4), name.data()), 4);
    EXPECT_EQ(ask(HIDIOCGRAWINFO, &info), 0);
    EXPECT_EQ(info.vendor, 0x0403);
    EXPECT_EQ(ask(0x1234, &size), -ENOTTY);
    bridge->faults.name = EIO;
    EXPECT_EQ(ask(HIDIOCGRAWNAME(256), name.data()), -EIO);
    EXPECT_THAT(notes.lines,
                ElementsAre("0 ? descriptor size -> 150", "0 ? name 256 -> 'FTDI FT260'",
                            "0 ? name 4 -> 'FTDI'", "0 ? info -> bus 0x0003, vendor 0x0403, product 0x6030",
                            "0 ? ioctl 0x1234 -> ENOTTY", "0 ? name 256 -> EIO"));
}

TEST_F(ObservedDriverTest, ReportsAreTold)
{
    ObservedDriver observed(std::make_shared<HidBridge>(), notes, begin);
    EXPECT_EQ(observed.Receive("\xD0\x5A\x06\x01\x02", begin), 0);
    EXPECT_EQ(observed.Receive("\xC2\x5A\x07\x01\0"s, begin + 1ms), 0);
    EXPECT_THAT(observed.TakeOutput(), testing::SizeIs(1));
    EXPECT_THAT(notes.lines, ElementsAre("0 > hex D0 5A 06 01 02", "1 > hex C2 5A 07 01 00",
                                         testing::StartsWith("1 < hex D0 01 ")));
}

}

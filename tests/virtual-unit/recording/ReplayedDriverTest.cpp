#include "virtual-unit/recording/ReplayedDriver.h"

#include "tests/virtual-unit/OwnMemory.h"
#include "tests/virtual-unit/recording/Notes.h"
#include "tests/virtual-unit/recording/Transcript.h"
#include "virtual-unit/recording/ObservedDriver.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/hidraw.h>
#include <linux/ioctl.h>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::string>;

class ReplayedDriverTest : public testing::Test
{
protected:
    void Play(const Texts& lines)
    {
        device =
            std::make_shared<ReplayedDriver>(Transcript(lines), begin, differences, [this] { return now; });
    }

    int Ask(unsigned long request, std::uint64_t argument)
    {
        return device->Answer({request, argument, memory}, now);
    }

    int Ask(unsigned long request, void* data) { return Ask(request, reinterpret_cast<std::uint64_t>(data)); }

    /// What is sent within `time`.
    Texts Wait(std::chrono::microseconds time)
    {
        now += time;
        device->Advance(now);
        return device->TakeOutput();
    }

    std::string Difference() const { return differences.First() ? differences.First()->Text() : "none"; }

    const IoctlPeripheral::TimePoint begin{1h};
    IoctlPeripheral::TimePoint now = begin;
    Differences differences;
    OwnMemory memory;
    std::shared_ptr<ReplayedDriver> device;
};

TEST_F(ReplayedDriverTest, TriggersComeAtTheirTimeWhateverIsRequested)
{
    Play({R"(2.000000 ! opened)", R"(2.500000 ? "pin 103 = 1" -> "0")", R"(3.000000 < hex 01 00 00 00 00)",
          R"(3.500000 ? "pin 103 = 0" -> "ENXIO")", R"(4.000000 < hex 02 00 00 00 00)"});
    now += 10s;
    EXPECT_THAT(Wait(0ms), IsEmpty());
    EXPECT_EQ(device->NextDeadline(), now + 1s);
    EXPECT_THAT(Wait(999ms), IsEmpty());
    EXPECT_THAT(Wait(1ms), ElementsAre("\1\0\0\0\0"s));
    EXPECT_THAT(Wait(1s), ElementsAre("\2\0\0\0\0"s));
    EXPECT_EQ(Ask(103, 1), 0);
    EXPECT_EQ(Ask(103, std::uint64_t{0}), -ENXIO);
    device->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedDriverTest, TheTimeOfARequestIsCountedFromTheOpening)
{
    Play({R"(2.000000 ! opened)", R"(3.000000 ? "pin 103 = 1" -> "0" x 2 until 3.500000)",
          R"(4.000000 ? "pin 103 = 1" -> "ENXIO" x 2 until 5.000000)"});
    now += 10s;
    Wait(0ms);
    now += 1999ms;
    EXPECT_EQ(Ask(103, 1), 0);
    EXPECT_EQ(Ask(103, 1), 0);
    now += 1ms;
    EXPECT_EQ(Ask(103, 1), -ENXIO);
}

TEST_F(ReplayedDriverTest, ARequestLetsTheTimeGoOn)
{
    Play({"2.000000 ! opened", R"(2.000000 ? "pin 103 = 1" -> "0" x 9 until 9.000000)", "3.000000 < hex 01"});
    Ask(103, 1);
    now += 1s;
    Ask(103, 1);
    EXPECT_THAT(device->TakeOutput(), ElementsAre("\1"));
}

TEST_F(ReplayedDriverTest, ABridgeIsWhoItWas)
{
    Play({R"(0.000000 ! opened)", R"(0.100000 ? "descriptor size" -> "150")",
          R"(0.200000 ? "name 256" -> "'FTDI FT260'")",
          R"(0.300000 ? "info" -> "bus 0x0003, vendor 0x0403, product 0x6030")",
          R"(0.400000 ? "ioctl 0x1234" -> "ENOTTY")"});
    int size = 0;
    EXPECT_EQ(Ask(HIDIOCGRDESCSIZE, &size), 0);
    EXPECT_EQ(size, 150);
    std::array<char, 256> name = {};
    name[11] = 'x';
    EXPECT_EQ(Ask(HIDIOCGRAWNAME(256), name.data()), 11);
    EXPECT_STREQ(name.data(), "FTDI FT260");
    EXPECT_EQ(name[11], 'x');
    hidraw_devinfo info = {};
    EXPECT_EQ(Ask(HIDIOCGRAWINFO, &info), 0);
    EXPECT_EQ(info.bustype, 3U);
    EXPECT_EQ(info.vendor, 0x0403);
    EXPECT_EQ(info.product, 0x6030);
    EXPECT_EQ(Ask(0x1234, &size), -ENOTTY);
    device->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedDriverTest, MemoryThatCannotBeWrittenIsAFault)
{
    Play({R"(0.100000 ? "descriptor size" -> "150")"});
    EXPECT_EQ(Ask(HIDIOCGRDESCSIZE, std::uint64_t{0}), -EFAULT);
}

const Texts REPORTS = {
    "0.000000 ! opened",
    "0.100000 > hex D0 5A 06 01 02",
    "0.200000 > hex C2 5A 07 01 00",
    "0.201000 < hex D0 01 FF",
};

TEST_F(ReplayedDriverTest, InputReportsFollowWhatWasWritten)
{
    Play(REPORTS);
    Wait(0ms);
    EXPECT_EQ(device->Receive("\xD0\x5A\x06\x01\x02", now), 0);
    EXPECT_THAT(Wait(1s), IsEmpty());
    EXPECT_EQ(device->Receive("\xC2\x5A\x07\x01\0"s, now), 0);
    EXPECT_EQ(device->NextDeadline(), now + 1ms);
    EXPECT_THAT(Wait(1ms), ElementsAre("\xD0\x01\xFF"));
    device->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedDriverTest, EachChangedByteIsToldWithItsPlace)
{
    const std::string expected = "\xC2\x5A\x07\x01\0"s;
    for (std::size_t i = 0; i < expected.size(); ++i)
    {
        Differences own;
        ReplayedDriver replayed(Transcript(REPORTS), begin, own, [this] { return now; });
        std::string changed = expected;
        changed[i] = '\x44';
        replayed.Receive("\xD0\x5A\x06\x01\x02", now);
        replayed.Receive(changed, now);
        replayed.Finish();
        EXPECT_EQ(own.Count(), 1U);
        ASSERT_TRUE(own.First());
        EXPECT_EQ(own.First()->line, 5U);
        EXPECT_EQ(own.First()->byte, i + 1);
    }
}

TEST_F(ReplayedDriverTest, AMessageHasItsLength)
{
    Play(REPORTS);
    device->Receive("\xD0\x5A", now);
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 4, byte 3: expected 0x06 in hex D0 5A 06 .., the program sent a "
              "message that ends before it, hex D0 5A");
    device->Receive("\xC2\x5A\x07\x01\0\0"s, now);
    EXPECT_EQ(differences.Count(), 2U);
    device->Receive("\x01", now);
    EXPECT_EQ(differences.Count(), 3U);
}

TEST_F(ReplayedDriverTest, ALongerMessageIsADifference)
{
    Play({"0.000000 > hex 01 02", "0.000000 > hex 03 04"});
    device->Receive("\1\2\3\4", now);
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 3, byte 3: expected the end of hex 01 02, the program sent 0x03 in "
              "hex 01 02 03");
}

TEST_F(ReplayedDriverTest, TwoMessagesAreNotOne)
{
    Play({"0.000000 > hex 01 02", "0.000000 > hex 03 04"});
    device->Receive("\1", now);
    device->Receive("\2", now);
    device->Finish();
    EXPECT_EQ(differences.Count(), 2U);
}

TEST_F(ReplayedDriverTest, BothMessagesAndRequestsMayBeMissing)
{
    Play({"0.000000 > hex 01 02", R"(0.000000 ? "info" -> "EIO")"});
    device->Finish();
    EXPECT_EQ(differences.Count(), 2U);
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 3, byte 1: expected 0x01 in hex 01 .., the program ended before it "
              "sent that");
}

TEST_F(ReplayedDriverTest, AHangUpIsReplayed)
{
    Play({"0.000000 ! opened", "1.000000 ! unplugged"});
    Wait(0ms);
    EXPECT_EQ(device->NextDeadline(), begin + 1s);
    EXPECT_TRUE(device->IsConnected());
    Wait(1s);
    EXPECT_FALSE(device->IsConnected());
    EXPECT_FALSE(device->IsPlugged());
}

TEST_F(ReplayedDriverTest, TheRecordingOfAReplayIsTheRecording)
{
    Play({"0.000000 ! opened", R"(0.100000 ? "pin 103 = 1" -> "ENXIO")", R"(0.200000 ? "name 4" -> "'FTDI'")",
          "0.300000 > hex 01 02", "0.400000 < hex 03"});
    Notes notes(begin);
    ObservedDriver observed(device, notes, begin);
    std::array<char, 4> name = {};
    observed.Advance(now);
    observed.Answer({103, 1, memory}, now += 100ms);
    observed.Answer({HIDIOCGRAWNAME(4), reinterpret_cast<std::uint64_t>(name.data()), memory}, now += 100ms);
    observed.Receive("\1\2", now += 100ms);
    observed.Advance(now += 100ms);
    observed.TakeOutput();
    EXPECT_THAT(notes.lines, ElementsAre("100 ? pin 103 = 1 -> ENXIO", "200 ? name 4 -> 'FTDI'",
                                         "300 > hex 01 02", "400 < hex 03"));
    EXPECT_EQ(Difference(), "none");
}

}

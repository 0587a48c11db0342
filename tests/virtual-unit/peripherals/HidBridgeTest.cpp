#include "virtual-unit/peripherals/HidBridge.h"

#include "tests/virtual-unit/OwnMemory.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/hidraw.h>
#include <linux/input.h>
#include <linux/ioctl.h>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace VirtualUnit;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using Note = SoundChip::Note;

class HidBridgeTest : public testing::Test
{
protected:
    int Ioctl(unsigned long request, void* argument)
    {
        return bridge.Answer({request, reinterpret_cast<std::uint64_t>(argument), memory}, now);
    }

    int Send(std::string_view report) { return bridge.Receive(report, now); }

    /// An I2C write by a report that is as long as it has to be.
    int Write(unsigned char address, std::string_view bytes, char condition = '\x06')
    {
        const auto id = static_cast<char>(0xD0 + (bytes.size() - 1) / 4);
        return Send(
            std::string{id, static_cast<char>(address), condition, static_cast<char>(bytes.size())}.append(
                bytes));
    }

    std::vector<std::string> Read(unsigned char address, std::size_t count, char condition = '\x06')
    {
        EXPECT_EQ(Send(std::string{'\xC2', static_cast<char>(address), condition,
                                   static_cast<char>(count & 0xFF), static_cast<char>(count >> 8)}),
                  0);
        return bridge.TakeOutput();
    }

    HidBridge::TimePoint now{1h};
    HidBridge bridge;
    OwnMemory memory;
};

TEST_F(HidBridgeTest, ItTellsTheSizeOfItsDescriptor)
{
    bridge.identity.descriptorBytes = 77;
    int size = 0;
    EXPECT_EQ(Ioctl(HIDIOCGRDESCSIZE, &size), 0);
    EXPECT_EQ(size, 77);
}

TEST_F(HidBridgeTest, ItTellsItsNameAsFarAsThereIsRoom)
{
    std::array<char, 256> name{};
    EXPECT_EQ(Ioctl(HIDIOCGRAWNAME(256), name.data()), 11);
    EXPECT_EQ(std::string(name.data()), "FTDI FT260");
    name.fill('x');
    EXPECT_EQ(Ioctl(HIDIOCGRAWNAME(4), name.data()), 4);
    EXPECT_EQ(std::string(name.data(), 6), "FTDIxx");
}

TEST_F(HidBridgeTest, ItIsAnFt260OnUsb)
{
    hidraw_devinfo info = {};
    EXPECT_EQ(Ioctl(HIDIOCGRAWINFO, &info), 0);
    EXPECT_EQ(info.bustype, static_cast<unsigned int>(BUS_USB));
    EXPECT_EQ(info.vendor, 0x0403);
    EXPECT_EQ(info.product, 0x6030);
}

TEST_F(HidBridgeTest, ItsIdentityMayBeAnother)
{
    bridge.identity = {.bus = 0x1D, .vendor = 0xFFFE, .product = 0x8000};
    hidraw_devinfo info = {};
    EXPECT_EQ(Ioctl(HIDIOCGRAWINFO, &info), 0);
    EXPECT_EQ(info.bustype, 0x1DU);
    EXPECT_EQ(static_cast<unsigned short>(info.vendor), 0xFFFE);
    EXPECT_EQ(static_cast<unsigned short>(info.product), 0x8000);
}

TEST_F(HidBridgeTest, EachIoctlMayFail)
{
    int size = 1;
    std::array<char, 8> name{};
    hidraw_devinfo info = {};
    bridge.faults.descriptorSize = EIO;
    bridge.faults.name = ENODEV;
    bridge.faults.info = EPIPE;
    EXPECT_EQ(Ioctl(HIDIOCGRDESCSIZE, &size), -EIO);
    EXPECT_EQ(Ioctl(HIDIOCGRAWNAME(8), name.data()), -ENODEV);
    EXPECT_EQ(Ioctl(HIDIOCGRAWINFO, &info), -EPIPE);
    EXPECT_EQ(size, 1);
    EXPECT_EQ(name[0], '\0');
    EXPECT_EQ(info.bustype, 0U);
    bridge.faults = {};
    EXPECT_EQ(Ioctl(HIDIOCGRDESCSIZE, nullptr), -EFAULT);
    EXPECT_EQ(Ioctl(HIDIOCGRAWNAME(8), nullptr), -EFAULT);
    EXPECT_EQ(Ioctl(HIDIOCGRDESC, nullptr), -ENOTTY);
}

TEST_F(HidBridgeTest, TheTunedChipPlaysNotesAndPauses)
{
    EXPECT_EQ(Write(0x62, "\x05\x56"), 0);
    EXPECT_THAT(bridge.second.TakeNotes(), IsEmpty());
    now += 1ms;
    Write(0x62, "\x11\x0A\x80");
    now += 600ms;
    Write(0x62, "\x11\x05\x80");
    now += 600ms;
    Write(0x62, "\x11\x2B\x00"s);
    now += 800ms;
    Write(0x62, "\x05\x55");
    EXPECT_THAT(bridge.second.TakeNotes(), ElementsAre(Note{now - 2000ms, 0x0A}, Note{now - 1400ms, 0x05},
                                                       Note{now - 800ms, Note::PAUSE}));
    EXPECT_THAT(bridge.second.TakeNotes(), IsEmpty());
    EXPECT_THAT(bridge.first.TakeNotes(), IsEmpty());
}

TEST_F(HidBridgeTest, TheTunedChipIsSilentWhileItIsOff)
{
    Write(0x62, "\x11\x0A\x80");
    EXPECT_THAT(bridge.second.TakeNotes(), IsEmpty());
    Write(0x62, "\x05\x56");
    EXPECT_THAT(bridge.second.TakeNotes(), ElementsAre(Note{now, 0x0A}));
    Write(0x62, "\x05\x55");
    EXPECT_THAT(bridge.second.TakeNotes(), ElementsAre(Note{now, Note::PAUSE}));
}

TEST_F(HidBridgeTest, TheSimpleChipSoundsOrNot)
{
    Write(0x5A, "\x01\x3F");
    now += 100ms;
    Write(0x5A, "\x01\x3F");
    Write(0x5A, "\x01\x2A");
    EXPECT_THAT(bridge.first.TakeNotes(), ElementsAre(Note{now - 100ms, 0x3F}, Note{now, Note::PAUSE}));
    EXPECT_THAT(bridge.second.TakeNotes(), IsEmpty());
}

TEST_F(HidBridgeTest, AReadGoesOnFromTheRegisterThatWasWrittenLast)
{
    Write(0x62, "\x11\x0A\x80");
    EXPECT_THAT(Read(0x62, 2), ElementsAre("\xD0\x02\x0A\x80"));
    Write(0x62, "\x12");
    EXPECT_THAT(Read(0x62, 1), ElementsAre("\xD0\x01\x80"));
}

TEST_F(HidBridgeTest, TheReportIdTellsTheSize)
{
    EXPECT_THAT(Read(0x5A, 4), ElementsAre(AllOf(SizeIs(6), StartsWith("\xD0\x04"))));
    EXPECT_THAT(Read(0x5A, 5), ElementsAre(AllOf(SizeIs(7), StartsWith("\xD1\x05"))));
    EXPECT_THAT(Read(0x5A, 60), ElementsAre(AllOf(SizeIs(62), StartsWith("\xDE\x3C"))));
}

TEST_F(HidBridgeTest, ALongReadTakesSeveralReports)
{
    // 0x0300, for who puts the number into the high byte
    const std::vector<std::string> reports = Read(0x5A, 3 * 256);
    ASSERT_THAT(reports, SizeIs(13));
    EXPECT_THAT(reports.front(), AllOf(SizeIs(62), StartsWith("\xDE\x3C")));
    EXPECT_THAT(reports.back(), AllOf(SizeIs(50), StartsWith("\xDB\x30")));
}

TEST_F(HidBridgeTest, AReadOfNothingIsNotAnswered)
{
    EXPECT_THAT(Read(0x5A, 0), IsEmpty());
}

TEST_F(HidBridgeTest, ASlaveThatIsNotThereIsNotToldToTheWriter)
{
    EXPECT_EQ(Write(0x33, "\x01\x3F"), 0);
    EXPECT_THAT(Read(0x33, 4), IsEmpty());
}

TEST_F(HidBridgeTest, WithoutAStartConditionNothingHappens)
{
    EXPECT_EQ(Write(0x5A, "\x01\x3F", '\x04'), 0);
    EXPECT_THAT(Read(0x5A, 4, '\0'), IsEmpty());
    EXPECT_EQ(Write(0x5A, "\x01\x2A", '\0'), 0);
    EXPECT_THAT(bridge.first.TakeNotes(), IsEmpty());
    EXPECT_EQ(Write(0x5A, "\x01\x3F", '\x02'), 0);
    EXPECT_THAT(bridge.first.TakeNotes(), SizeIs(1));
    EXPECT_THAT(Read(0x5A, 1, '\x03'), SizeIs(1));
}

TEST_F(HidBridgeTest, ReportsThatMakeNoSenseArePassedOver)
{
    const std::string_view reports[] = {
        "\xD0\x5A\x06\x02\x01",                      // fewer bytes than told
        "\xD0\x5A\x06",                              // no number of bytes
        std::string_view("\xD0\x5A\x06\x00\x01", 5), // none told
        "\xD0\x5A\x06\x05\x01\x3F\x3F\x3F\x3F",      // more than the ID allows
        "\xDF\x5A\x06\x02\x01\x3F",
        "\xCF\x5A\x06\x02\x01\x3F",
        "\xC2\x5A\x06\x02", // no high byte
    };
    for (const std::string_view report : reports)
    {
        EXPECT_EQ(Send(report), 0);
    }
    EXPECT_THAT(bridge.first.TakeNotes(), IsEmpty());
    EXPECT_THAT(bridge.TakeOutput(), IsEmpty());
}

TEST_F(HidBridgeTest, TheKernelTakesNoReportWithoutContent)
{
    EXPECT_EQ(Send(""), EINVAL);
    EXPECT_EQ(Send("\xD0"), EINVAL);
}

TEST_F(HidBridgeTest, AWriteMayBeRefused)
{
    bridge.faults.write = EPIPE;
    EXPECT_EQ(Write(0x5A, "\x01\x3F"), EPIPE);
    EXPECT_THAT(bridge.first.TakeNotes(), IsEmpty());
}

TEST_F(HidBridgeTest, InputReportsMayFailToCome)
{
    bridge.faults.noInput = true;
    EXPECT_THAT(Read(0x5A, 100), IsEmpty());
}

TEST_F(HidBridgeTest, InputReportsMayHaveAnotherId)
{
    bridge.faults.reportId = 0x3C;
    EXPECT_THAT(Read(0x5A, 100), AllOf(SizeIs(2), Each(StartsWith("\x3C"))));
}

TEST_F(HidBridgeTest, AChipThatDoesNotAcknowledgeKeepsWhatItHad)
{
    bridge.first.faults.naks = 2;
    EXPECT_EQ(Write(0x5A, "\x01\x3F"), 0);
    EXPECT_THAT(Read(0x5A, 1), IsEmpty());
    EXPECT_THAT(bridge.first.TakeNotes(), IsEmpty());
    EXPECT_THAT(Read(0x5A, 1), SizeIs(1));
}

}

// The bridge: what opening prints, closing, requests and reports.

#include "I2C/HidI2C.h"

#include "tests/I2C/Adapter.h"
#include "tests/I2C/Bridge.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"
#include "tests/kit/Child.h"
#include "tests/kit/ClosedStreams.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Interruptions.h"

#include <type_traits>

using namespace std::chrono_literals;
using namespace Tavdevice;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace I2cTests
{

namespace
{

/// What DoPrint() prints of a report, padded with zeros to twenty bytes.
std::string Dump(const std::string& report)
{
    std::string text = "Report: ";
    for (std::size_t i = 0; i < 20; ++i)
    {
        text += Format("0x%02X ", i < report.size() ? static_cast<unsigned char>(report[i]) : 0U);
    }
    return text + "\n";
}

/// Without virtual time, whose thread opens and closes descriptors too.
class HidI2CTest : public testing::Test
{
protected:
    ~HidI2CTest() override { hid.Close(); }

    bool Open()
    {
        const Printed printed;
        return hid.Open(BRIDGE);
    }

    static int Descriptor() { return static_cast<int>(Kit::System::CallsOf("open").at(0).result); }

    static std::size_t Writes() { return Kit::System::CallsOf("write").size(); }

    Bridge bridge;
    HidI2C hid;
    unsigned char data[4] = {0x11, 0x2B, 0x00, 0xFF};
    int count = 77;
};

// Opening ------------------------------------------------------------------------------------------------

TEST_F(HidI2CTest, OpeningPrintsWhatTheKernelKnowsOfTheDevice)
{
    Printed printed;
    EXPECT_TRUE(hid.Open(BRIDGE));
    EXPECT_EQ(printed.Output(), Bridge::IDENTITY);
    EXPECT_EQ(printed.Errors(), "");
    const auto calls = Kit::System::Calls();
    ASSERT_THAT(calls, SizeIs(4)) << "the report descriptor itself is not fetched";
    EXPECT_STREQ(calls[0].function, "open");
    EXPECT_EQ(calls[0].path, BRIDGE);
    EXPECT_EQ(calls[0].argument, O_RDWR | O_NONBLOCK);
    EXPECT_EQ(calls[1].argument, static_cast<long>(HIDIOCGRDESCSIZE));
    EXPECT_EQ(calls[2].argument, static_cast<long>(HIDIOCGRAWNAME(256)));
    EXPECT_EQ(calls[3].argument, static_cast<long>(HIDIOCGRAWINFO));
}

TEST_F(HidI2CTest, OpensAnotherPath)
{
    const Bridge second("/dev/hidraw7");
    const Printed printed;
    EXPECT_TRUE(hid.Open("/dev/hidraw7"));
    EXPECT_EQ(Kit::System::CallsOf("open").at(0).path, "/dev/hidraw7");
}

TEST_F(HidI2CTest, EachBusTypeHasItsName)
{
    const std::map<unsigned int, const char*> names = {
        {3, "USB"}, {4, "HIL"}, {5, "Bluetooth"}, {6, "Virtual"}};
    for (const unsigned int type : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0x18u, 0x1Du, 0xFFFFu, 0x7FFFFFFFu})
    {
        bridge.info.bustype = type;
        Printed printed;
        EXPECT_TRUE(hid.Open(BRIDGE));
        const auto name = names.find(type);
        EXPECT_THAT(printed.Output(), HasSubstr(Format("\n\tbustype: %u (%s)\n", type,
                                                       name == names.end() ? "Other" : name->second)));
        hid.Close();
    }
}

TEST_F(HidI2CTest, IdentifiersArePrintedAsFourDigitsOfHexadecimal)
{
    bridge.info.vendor = static_cast<short>(0x8403);
    bridge.info.product = 0x001F;
    Printed printed;
    EXPECT_TRUE(hid.Open(BRIDGE));
    EXPECT_THAT(printed.Output(), EndsWith("\tvendor: 0x8403\n\tproduct: 0x001f\n"));
}

TEST_F(HidI2CTest, SizeAndNameArePrintedAsTheyCome)
{
    struct Row
    {
        int size;
        std::string name;
    };

    for (const Row& row : {Row{0, ""}, Row{-1, "%s %n"}, Row{4096, std::string(255, 'n')}})
    {
        bridge.descriptorSize = row.size;
        bridge.name = row.name;
        Printed printed;
        EXPECT_TRUE(hid.Open(BRIDGE));
        EXPECT_THAT(printed.Output(), StartsWith("Report Descriptor Size: " + std::to_string(row.size) +
                                                 "\nRaw Name: " + row.name + "\nRaw Info:\n"));
        hid.Close();
    }
}

TEST_F(HidI2CTest, ANameThatFillsItsRoomWithoutAZeroIsPrintedWhole)
{
    for (const std::size_t length : {256u, 300u})
    {
        bridge.name = std::string(length, 'n');
        Printed printed;
        EXPECT_TRUE(hid.Open(BRIDGE));
        EXPECT_THAT(printed.Output(), HasSubstr("\nRaw Name: " + std::string(256, 'n') + "\nRaw Info:\n"));
        hid.Close();
    }
}

TEST_F(HidI2CTest, AMissingBridgeIsToldOnStandardError)
{
    Printed printed;
    EXPECT_FALSE(hid.Open("/dev/hidraw3"));
    EXPECT_EQ(printed.Output(), "");
    EXPECT_EQ(printed.Errors(), "Unable to open device: No such file or directory\n");
    Kit::System::ForgetCalls();
    EXPECT_TRUE(hid.Close());
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
}

TEST_F(HidI2CTest, AfterAFailedOpenRequestsAreTriedAndFail)
{
    Printed printed;
    EXPECT_FALSE(hid.Open("/dev/hidraw3"));
    EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_EQ(count, -1);
    count = 77;
    EXPECT_FALSE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_EQ(count, 77);
    EXPECT_THAT(printed.Errors(), EndsWith("\nwrite: Bad file descriptor\n"
                                           "write read command: Bad file descriptor\n"));
    EXPECT_THAT(Kit::System::Sleeps(), IsEmpty());
}

// Closing ------------------------------------------------------------------------------------------------

TEST_F(HidI2CTest, ANewBridgeIsClosed)
{
    EXPECT_TRUE(hid.Close());
    EXPECT_TRUE(hid.Close());
    EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_FALSE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_EQ(count, 77);
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
    EXPECT_TRUE(IsOpen(0)) << "descriptor 0 is not the bridge's";
}

TEST_F(HidI2CTest, ClosingAgainClosesTheSameNumberAgain)
{
    ASSERT_TRUE(Open());
    const int fd = Descriptor();
    EXPECT_TRUE(hid.Close());
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_FALSE(hid.Close()) << "nothing is there";
    ASSERT_EQ(dup2(STDERR_FILENO, fd), fd);
    EXPECT_TRUE(hid.Close()) << "whatever has the number now";
    EXPECT_FALSE(IsOpen(fd));
}

TEST_F(HidI2CTest, AfterClosingTheNumberIsStillUsed)
{
    ASSERT_TRUE(Open());
    ASSERT_TRUE(hid.Close());
    Printed printed;
    EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_EQ(count, -1);
    EXPECT_EQ(printed.Errors(), "write: Bad file descriptor\n");
}

TEST_F(HidI2CTest, CanBeOpenedAgain)
{
    ASSERT_TRUE(Open());
    EXPECT_TRUE(hid.Close());
    ASSERT_TRUE(Open());
    EXPECT_TRUE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 1, &count));
    EXPECT_TRUE(hid.Close());
}

TEST_F(HidI2CTest, OpeningAgainWithoutClosingLeavesTheFormerDescriptorOpen)
{
    ASSERT_TRUE(Open());
    const int former = Descriptor();
    ASSERT_TRUE(Open());
    EXPECT_TRUE(hid.Close());
    EXPECT_TRUE(IsOpen(former));
    EXPECT_EQ(close(former), 0);
}

TEST_F(HidI2CTest, TheDestructorDoesNotClose)
{
    {
        const Printed printed;
        HidI2C other;
        ASSERT_TRUE(other.Open(BRIDGE));
    }
    EXPECT_TRUE(IsOpen(Descriptor()));
    close(Descriptor());
}

TEST(HidI2CDescriptorTest, DescriptorZeroCountsAsClosedEvenWhenTheSystemGaveIt)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        Bridge bridge;
        close(STDIN_FILENO);
        HidI2C hid;
        unsigned char data[2] = {1, 2};
        int count = 77;
        EXPECT_TRUE(hid.Open(BRIDGE));
        EXPECT_EQ(Kit::System::CallsOf("open").at(0).result, 0);
        EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
        EXPECT_FALSE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
        EXPECT_EQ(count, 77);
        EXPECT_TRUE(hid.Close());
        EXPECT_TRUE(IsOpen(STDIN_FILENO));
        EXPECT_THAT(bridge.Received(), IsEmpty());
        EXPECT_THAT(Kit::System::CallsOf("close"), IsEmpty());
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exitStatus, 0) << child.output;
}

// Writing ------------------------------------------------------------------------------------------------

TEST_F(HidI2CTest, AWriteIsOneReportWithHeaderAndData)
{
    ASSERT_TRUE(Open());
    const std::string whole = Bytes({0xD0, 0x62, 0x06, 0x00, 0x11, 0x2B, 0x00, 0xFF});
    for (unsigned short len = 0; len <= 4; ++len)
    {
        std::string expected = whole.substr(0, 4U + len);
        expected[3] = static_cast<char>(len);
        count = 77;
        EXPECT_TRUE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, len, &count));
        EXPECT_EQ(count, len);
        EXPECT_THAT(bridge.Received(), ElementsAre(expected));
    }
    EXPECT_EQ(Writes(), 5u);
}

TEST_F(HidI2CTest, AddressAndConditionArePassedOnUnchanged)
{
    ASSERT_TRUE(Open());
    for (const int address : {0x00, 0x5A, 0x7F, 0x80, 0xFF})
    {
        for (const int flag : {0x00, 0x02, 0x03, 0x04, 0x06, 0x07, 0xFF})
        {
            EXPECT_TRUE(hid.I2C_Write(static_cast<unsigned char>(address), static_cast<FT260_I2C_FLAG>(flag),
                                      data, 1, &count));
            EXPECT_THAT(bridge.Received(), ElementsAre(Bytes({0xD0, address, flag, 1, 0x11})));
        }
    }
}

TEST_F(HidI2CTest, TheConditionsHaveTheirNumbers)
{
    EXPECT_EQ(FT260_I2C_NONE, 0x00);
    EXPECT_EQ(FT260_I2C_START, 0x02);
    EXPECT_EQ(FT260_I2C_REPEATED_START, 0x03);
    EXPECT_EQ(FT260_I2C_STOP, 0x04);
    EXPECT_EQ(FT260_I2C_START_AND_STOP, 0x06);
}

TEST_F(HidI2CTest, MoreThanFourBytesAreNotWritten)
{
    ASSERT_TRUE(Open());
    std::vector<unsigned char> much(65'535);
    for (const unsigned short len : std::initializer_list<unsigned short>{5, 6, 60, 64, 256, 260, 65'535})
    {
        EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, much.data(), len, &count)) << len;
    }
    EXPECT_EQ(count, 77);
    EXPECT_EQ(Writes(), 0u);
}

TEST_F(HidI2CTest, NullPointersAreWithoutHarm)
{
    ASSERT_TRUE(Open());
    EXPECT_TRUE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, nullptr, 0, nullptr));
    EXPECT_THAT(bridge.Received(), ElementsAre(Bytes({0xD0, 0x62, 6, 0})));
    EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, nullptr, 2, &count));
    EXPECT_EQ(count, 77);
    EXPECT_THAT(bridge.Received(), IsEmpty());
    EXPECT_TRUE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, nullptr));
    const Printed printed;
    Kit::System::Fail("write", EIO);
    EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, nullptr));
}

TEST_F(HidI2CTest, AWriteOfAnotherLengthIsAFailure)
{
    ASSERT_TRUE(Open());
    for (const long result : {0L, 1L, 5L, 7L, 64L})
    {
        count = 77;
        Kit::System::Fail("write", EAGAIN, 1, 1, result);
        Printed printed;
        EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, &count)) << result;
        EXPECT_EQ(count, -1);
        EXPECT_EQ(printed.Errors(), "write: Resource temporarily unavailable\n");
    }
}

// Reading, in virtual time -------------------------------------------------------------------------------

class HidI2CReadTest : public Kit::DeviceTest
{
protected:
    HidI2CReadTest()
    {
        const Printed printed;
        EXPECT_TRUE(hid.Open(BRIDGE));
    }

    ~HidI2CReadTest() override { hid.Close(); }

    bool Read(unsigned short len = 4)
    {
        const Printed whole;
        return hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, len, &count);
    }

    Bridge bridge;
    HidI2C hid;
    unsigned char data[4] = {1, 2, 3, 4};
    int count = 77;
};

TEST_F(HidI2CReadTest, ARequestHoldsTheLengthInItsFifthByte)
{
    for (unsigned short len = 0; len <= 60; ++len)
    {
        bridge.Send(Bytes({0xDE, 1, 0x55}));
        EXPECT_TRUE(Read(len)) << len;
        EXPECT_THAT(bridge.Received(), ElementsAre(Bytes({0xC2, 0x62, 0x06, 0x00, len})));
    }
}

TEST_F(HidI2CReadTest, AddressAndConditionArePassedOnUnchanged)
{
    for (const int flag : {0x00, 0x02, 0x03, 0x04, 0x06, 0xFF})
    {
        bridge.Send(Bytes({0xDE, 1, 0x55}));
        const Printed printed;
        EXPECT_TRUE(hid.I2C_Read(0x80, static_cast<FT260_I2C_FLAG>(flag), data, 60, &count));
        EXPECT_THAT(bridge.Received(), ElementsAre(Bytes({0xC2, 0x80, flag, 0x00, 0x3C})));
    }
}

TEST_F(HidI2CReadTest, MoreThanSixtyBytesAreNotAskedFor)
{
    bridge.Send(Bytes({0xDE, 1, 0x55}));
    for (const unsigned short len : std::initializer_list<unsigned short>{61, 64, 255, 256, 65'535})
    {
        EXPECT_FALSE(Read(len)) << len;
    }
    EXPECT_THAT(bridge.Received(), IsEmpty());
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s) << "and nothing is waited for";
    EXPECT_EQ(count, 77);
}

TEST_F(HidI2CReadTest, TheReportIsFetchedHalfASecondAfterTheRequest)
{
    Kit::System::ForgetCalls();
    bridge.Send(Bytes({0xDE, 4, 1, 2, 3, 4}));
    Printed printed;
    EXPECT_TRUE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 4, &count));
    EXPECT_EQ(printed.Output(), Dump(Bytes({0xDE, 4, 1, 2, 3, 4})));
    EXPECT_EQ(printed.Errors(), "");
    EXPECT_EQ(count, 4);
    EXPECT_THAT(data, ElementsAre(1, 2, 3, 4)) << "not handed over";
    const auto calls = Kit::System::Calls();
    ASSERT_THAT(calls, SizeIs(3));
    EXPECT_STREQ(calls[0].function, "write");
    EXPECT_EQ(calls[0].argument, 5);
    EXPECT_STREQ(calls[1].function, "nanosleep");
    EXPECT_EQ(calls[1].argument, 500'000);
    EXPECT_STREQ(calls[2].function, "read");
    EXPECT_EQ(calls[2].argument, 64);
}

TEST_F(HidI2CReadTest, TheDataBytesAreNotHandedOver)
{
    bridge.Send(Bytes({0x3C, 4, 0x66, 0x66, 0x66, 0x66}));
    EXPECT_TRUE(Read());
    EXPECT_THAT(data, ElementsAre(1, 2, 3, 4));
    bridge.Send(Bytes({0x3C, 4, 0x66}));
    const Printed printed;
    EXPECT_TRUE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, nullptr, 4, nullptr));
}

TEST_F(HidI2CReadTest, OnlyTheTwoInputReportsAreAccepted)
{
    for (int id = 0; id <= 255; ++id)
    {
        const bool accepted = id == 0xDE || id == 0x3C;
        count = 77;
        bridge.Send(Bytes({id, 9, 0x55}));
        const auto before = Kit::Clock::Elapsed();
        Printed printed;
        EXPECT_EQ(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 4, &count), accepted) << id;
        EXPECT_EQ(count, accepted ? 9 : 77) << id;
        EXPECT_EQ(printed.Output(), accepted ? Dump(Bytes({id, 9, 0x55, 0, 4})) : "");
        EXPECT_EQ(printed.Errors(), "");
        EXPECT_EQ(Kit::Clock::Elapsed() - before, 500ms) << "waited for all the same";
    }
}

TEST_F(HidI2CReadTest, TheCountIsTheReportsWhateverWasAskedFor)
{
    for (const int said : {0, 1, 60, 62, 128, 255})
    {
        bridge.Send(Bytes({0xDE, said, 0x55}));
        EXPECT_TRUE(Read());
        EXPECT_EQ(count, said);
    }
}

TEST_F(HidI2CReadTest, ALongReportIsPrintedAsFarAsItsTwentiethByte)
{
    std::string report = Bytes({0xDE, 62});
    for (int i = 2; i < 64; ++i)
    {
        report += static_cast<char>(0xC0 + i);
    }
    bridge.Send(report + "beyond");
    Printed printed;
    EXPECT_TRUE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 60, &count));
    EXPECT_EQ(printed.Output(), Dump(report));
}

TEST_F(HidI2CReadTest, BehindAShortReportTheRequestShowsThrough)
{
    bridge.Send(Bytes({0xDE}));
    Printed printed;
    EXPECT_TRUE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 4, &count));
    EXPECT_EQ(printed.Output(), Dump(Bytes({0xDE, 0x62, 0x06, 0x00, 0x04})));
    EXPECT_EQ(count, 0x62);
}

TEST_F(HidI2CReadTest, WithoutAReportItFailsAfterTheWait)
{
    Printed printed;
    EXPECT_FALSE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 4, &count));
    EXPECT_EQ(printed.Output(), "");
    EXPECT_EQ(printed.Errors(), "read error =====> -1: Resource temporarily unavailable\n");
    EXPECT_EQ(Kit::Clock::Elapsed(), 500ms);
    EXPECT_EQ(count, 77);
}

TEST_F(HidI2CReadTest, AnEmptyReadIsARefusedReport)
{
    Kit::System::Fail("read", 0, 1, 1, 0);
    Printed printed;
    EXPECT_FALSE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 4, &count));
    EXPECT_EQ(printed.Errors() + printed.Output(), "");
    EXPECT_EQ(count, 77);
}

TEST_F(HidI2CReadTest, AReportThatComesWithinTheWaitIsTaken)
{
    for (const auto& [at, taken] : std::map<std::chrono::milliseconds, bool>{{499ms, true}, {501ms, false}})
    {
        std::thread peer([&, time = at] {
            std::this_thread::sleep_for(time);
            bridge.Send(Bytes({0xDE, 1, 0x55}));
        });
        EXPECT_EQ(Read(), taken) << at.count();
        peer.join();
    }
}

TEST_F(HidI2CReadTest, AShortWriteOfTheRequestIsNoFailure)
{
    Kit::System::Fail("write", 0, 1, 1, 2);
    bridge.Send(Bytes({0xDE, 1, 0x55}));
    EXPECT_TRUE(Read());
}

TEST_F(HidI2CReadTest, SignalsDoNotShortenTheWait)
{
    bridge.Send(Bytes({0xDE, 1, 0x55}));
    const Kit::Interruptions interruptions({100ms, 200ms, 350ms});
    EXPECT_TRUE(Read());
    EXPECT_EQ(Kit::Clock::Elapsed(), 500ms);
    EXPECT_EQ(Kit::Interruptions::Count(), 3);
}

// Printing and shape -------------------------------------------------------------------------------------

TEST_F(HidI2CTest, PrintsBytesAsUnsignedHexadecimal)
{
    std::string bytes;
    std::string expected = "Report: ";
    for (int value = 0; value <= 255; ++value)
    {
        bytes += static_cast<char>(value);
        expected += Format("0x%02X ", value);
    }
    Printed printed;
    hid.DoPrint(bytes.data(), 256);
    EXPECT_EQ(printed.Output(), expected + "\n");
    EXPECT_EQ(printed.Errors(), "");
}

TEST_F(HidI2CTest, PrintsNoBytesAsAnEmptyReport)
{
    Printed printed;
    char byte = 'x';
    hid.DoPrint(&byte, 0);
    hid.DoPrint(nullptr, 0);
    hid.DoPrint(&byte, -1);
    hid.DoPrint(&byte, 1);
    EXPECT_EQ(printed.Output(), "Report: \nReport: \nReport: \nReport: 0x78 \n");
}

TEST(HidI2CShapeTest, OnlyTheDestructorIsVirtual)
{
    static_assert(std::has_virtual_destructor_v<HidI2C>);
    EXPECT_EQ(Tests::VirtualSlot(&HidI2C::Open), -1);
    EXPECT_EQ(Tests::VirtualSlot(&HidI2C::Close), -1);
    EXPECT_EQ(Tests::VirtualSlot(&HidI2C::I2C_Write), -1);
    EXPECT_EQ(Tests::VirtualSlot(&HidI2C::I2C_Read), -1);
    EXPECT_EQ(Tests::VirtualSlot(&HidI2C::DoPrint), -1);
}

// Standard streams that are closed -----------------------------------------------------------------------

KIT_PROGRAM(HidI2CWithoutStreams)
{
    Bridge bridge;
    const Kit::ClosedStreams closed;
    HidI2C hid;
    KIT_REQUIRE(hid.Open(BRIDGE));
    Kit::ClosedStreams::Print();
    KIT_REQUIRE(bridge.Received().empty());
    unsigned char data[2] = {1, 2};
    int count = 0;
    KIT_REQUIRE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    KIT_REQUIRE(bridge.Received().size() == 1);
    KIT_REQUIRE(hid.Close());
    KIT_REQUIRE(Kit::ClosedStreams::WereKept());
    return 0;
}

TEST(HidI2CDescriptorTest, NothingThatIsPrintedGetsToTheBridgeWhenAStandardStreamIsClosed)
{
    Kit::ClosedStreams::Run("HidI2CWithoutStreams");
}

}

}

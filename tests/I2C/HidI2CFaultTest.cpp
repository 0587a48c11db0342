// Every call that the bridge makes fails.

#include "I2C/HidI2C.h"

#include "tests/I2C/Adapter.h"
#include "tests/I2C/Bridge.h"
#include "tests/kit/DeviceTest.h"

using namespace std::chrono_literals;
using namespace Tavdevice;
using testing::ElementsAre;
using testing::IsEmpty;

namespace I2cTests
{

namespace
{

class HidI2CFault : public Kit::DeviceTest, public testing::WithParamInterface<int>
{
protected:
    ~HidI2CFault() override { hid.Close(); }

    bool Open()
    {
        const Printed printed;
        return hid.Open(BRIDGE);
    }

    /// What perror() writes.
    static std::string Line(const char* text)
    {
        return std::string(text) + ": " + std::strerror(GetParam()) + "\n";
    }

    Bridge bridge;
    HidI2C hid;
    unsigned char data[4] = {1, 2, 3, 4};
    int count = 77;
};

INSTANTIATE_TEST_SUITE_P(Errno, HidI2CFault, testing::ValuesIn(BUS_ERRORS));

TEST_P(HidI2CFault, OfOpenLeavesItClosed)
{
    Kit::System::Fail("open", GetParam());
    Printed printed;
    EXPECT_FALSE(hid.Open(BRIDGE));
    EXPECT_EQ(printed.Errors(), Line("Unable to open device"));
    EXPECT_EQ(printed.Output(), "");
    EXPECT_TRUE(hid.Close());
    EXPECT_THAT(Kit::System::CallsOf("close"), IsEmpty());
    EXPECT_TRUE(Open());
}

TEST_P(HidI2CFault, OfTheDescriptorsSizeFailsAndLeavesItOpen)
{
    Kit::System::Fail("ioctl", GetParam(), 1);
    Printed printed;
    EXPECT_FALSE(hid.Open(BRIDGE));
    EXPECT_EQ(printed.Errors(), Line("HIDIOCGRDESCSIZE"));
    EXPECT_EQ(printed.Output(), "");
    EXPECT_EQ(Kit::System::CallsOf("ioctl").size(), 1u);
    EXPECT_TRUE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 1, &count));
    EXPECT_TRUE(hid.Close());
    EXPECT_EQ(Kit::System::CallsOf("close").at(0).fd, Kit::System::CallsOf("open").at(0).result);
}

TEST_P(HidI2CFault, OfTheNameIsToldAndPassedOver)
{
    Kit::System::Fail("ioctl", GetParam(), 2);
    Printed printed;
    EXPECT_TRUE(hid.Open(BRIDGE));
    EXPECT_EQ(printed.Errors(), Line("HIDIOCGRAWNAME"));
    EXPECT_EQ(printed.Output(), "Report Descriptor Size: 145\n"
                                "Raw Info:\n"
                                "\tbustype: 3 (USB)\n"
                                "\tvendor: 0x0403\n"
                                "\tproduct: 0x6030\n");
}

TEST_P(HidI2CFault, OfTheIdentifiersFailsAndLeavesItOpen)
{
    Kit::System::Fail("ioctl", GetParam(), 3);
    Printed printed;
    EXPECT_FALSE(hid.Open(BRIDGE));
    EXPECT_EQ(printed.Errors(), Line("HIDIOCGRAWINFO"));
    EXPECT_EQ(printed.Output(), "Report Descriptor Size: 145\nRaw Name: FTDI FT260\n");
    EXPECT_TRUE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 1, &count));
    EXPECT_TRUE(hid.Close());
}

TEST_P(HidI2CFault, OfAWriteIsToldOnceAndNothingIsTriedAgain)
{
    ASSERT_TRUE(Open());
    Kit::System::Fail("write", GetParam());
    Printed printed;
    EXPECT_FALSE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_EQ(count, -1);
    EXPECT_EQ(printed.Errors(), Line("write"));
    EXPECT_EQ(printed.Output(), "");
    EXPECT_THAT(bridge.Received(), IsEmpty());
    EXPECT_TRUE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_EQ(count, 2);
}

TEST_P(HidI2CFault, OfAReadRequestIsToldAtOnce)
{
    ASSERT_TRUE(Open());
    Kit::System::Fail("write", GetParam());
    Printed printed;
    EXPECT_FALSE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_EQ(count, 77);
    EXPECT_EQ(printed.Errors(), Line("write read command"));
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
    EXPECT_THAT(Kit::System::CallsOf("read"), IsEmpty());
}

TEST_P(HidI2CFault, OfAReadIsToldAfterTheWait)
{
    ASSERT_TRUE(Open());
    Kit::System::Fail("read", GetParam());
    Printed printed;
    EXPECT_FALSE(hid.I2C_Read(0x62, FT260_I2C_START_AND_STOP, data, 2, &count));
    EXPECT_EQ(count, 77);
    EXPECT_EQ(printed.Errors(), Line("read error =====> -1"));
    EXPECT_EQ(printed.Output(), "");
    EXPECT_EQ(Kit::Clock::Elapsed(), 500ms);
    EXPECT_THAT(Kit::System::Sleeps(), ElementsAre(500ms)) << "once";
}

TEST_P(HidI2CFault, OfACloseIsToldByTheResultAlone)
{
    ASSERT_TRUE(Open());
    Kit::System::Fail("close", GetParam());
    Printed printed;
    EXPECT_FALSE(hid.Close());
    EXPECT_EQ(printed.Errors() + printed.Output(), "");
    EXPECT_TRUE(hid.I2C_Write(0x62, FT260_I2C_START_AND_STOP, data, 1, &count)) << "still open";
    EXPECT_TRUE(hid.Close());
}

}

}

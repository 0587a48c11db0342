#include "virtual-unit/recording/RequestText.h"

#include "tests/virtual-unit/OwnMemory.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/hidraw.h>
#include <linux/ioctl.h>
#include <optional>
#include <string>
#include <utility>

namespace
{

using namespace std::string_literals;
using VirtualUnit::RequestText;
using Outcome = RequestText::Outcome;

class RequestTextTest : public testing::Test
{
protected:
    std::string Ioctl(unsigned long request, std::uint64_t argument = 0)
    {
        return RequestText::Of({request, argument, memory});
    }

    static std::string Transfer(unsigned char direction, std::uint32_t type, const i2c_smbus_data& data)
    {
        return RequestText::OfTransfer(0x1C, direction, 0x2A, type, data);
    }

    OwnMemory memory;
};

std::string Name(const std::string& bytes)
{
    return RequestText::Encode("name 8", {static_cast<int>(bytes.size()), bytes});
}

TEST_F(RequestTextTest, IoctlsAreText)
{
    EXPECT_EQ(Ioctl(103, 1), "pin 103 = 1");
    EXPECT_EQ(Ioctl(100, 0x5'0000'0002), "pin 100 = 2"); // what stands above the 32 bits is nobody's
    EXPECT_EQ(Ioctl(99, 1), "ioctl 0x63");
    EXPECT_EQ(Ioctl(107, 1), "ioctl 0x6B");
    EXPECT_EQ(Ioctl(HIDIOCGRDESCSIZE), "descriptor size");
    EXPECT_EQ(Ioctl(HIDIOCGRAWNAME(256)), "name 256");
    EXPECT_EQ(Ioctl(HIDIOCGRAWINFO), "info");
    EXPECT_EQ(Ioctl(0x5401), "ioctl 0x5401");
    EXPECT_EQ(Ioctl(0), "ioctl 0x0");
}

TEST_F(RequestTextTest, SelectionsAndTransfersAreText)
{
    EXPECT_EQ(RequestText::OfSelection(0x1C, false), "select 0x1C");
    EXPECT_EQ(RequestText::OfSelection(5, true), "select 0x05 by force");
    i2c_smbus_data data = {};
    data.block[0] = 2;
    data.block[1] = 0xAA;
    data.block[2] = 0x01;
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, data), "read 0x1C:0x2A");
    EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, I2C_SMBUS_BYTE_DATA, data), "write 0x1C:0x2A 02");
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, data), "read 0x1C:0x2A, 2 bytes");
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_BROKEN, data), "read 0x1C:0x2A, 32 bytes");
    EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, I2C_SMBUS_I2C_BLOCK_DATA, data), "write 0x1C:0x2A AA 01");
    EXPECT_EQ(Transfer(2, I2C_SMBUS_BYTE_DATA, data), "transfer 0x1C:0x2A, direction 2, type 2");
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, I2C_SMBUS_WORD_DATA, data), "transfer 0x1C:0x2A, direction 1, type 3");
    data.block[0] = 33;
    EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, I2C_SMBUS_I2C_BLOCK_DATA, data),
              "transfer 0x1C:0x2A, direction 0, type 8");
    data.block[0] = 0;
    EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, I2C_SMBUS_I2C_BLOCK_DATA, data), "write 0x1C:0x2A");
}

TEST_F(RequestTextTest, WhatTheCallerWasGivenIsCollected)
{
    std::array<char, 16> given = {"FTDI FT260"};
    const auto argument = reinterpret_cast<std::uint64_t>(given.data());
    const auto collected = [&](unsigned long request, int result) {
        return RequestText::Given({request, argument, memory}, result);
    };
    EXPECT_EQ(collected(HIDIOCGRAWNAME(256), 11), (Outcome{11, "FTDI FT260\0"s}));
    EXPECT_EQ(collected(HIDIOCGRAWNAME(4), 4), (Outcome{4, "FTDI"}));
    EXPECT_EQ(collected(HIDIOCGRDESCSIZE, 0), (Outcome{0, "FTDI"}));
    EXPECT_EQ(collected(HIDIOCGRAWINFO, 0), (Outcome{0, "FTDI FT2"}));
    EXPECT_EQ(collected(HIDIOCGRAWNAME(256), -EIO), (Outcome{-EIO, ""}));
    EXPECT_EQ(collected(103, 0), (Outcome{0, ""}));
    EXPECT_EQ(collected(0x5401, 7), (Outcome{7, ""}));
}

TEST_F(RequestTextTest, WhatATransferGaveIsCollected)
{
    i2c_smbus_data data = {};
    std::memcpy(&data, "\2\x11\x22\x33", 4);
    const auto collected = [&](unsigned char direction, std::uint32_t type, std::size_t count, int error) {
        return RequestText::Given(direction, type, count, data, error);
    };
    EXPECT_EQ(collected(I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, 1, 0), (Outcome{0, "\2"}));
    EXPECT_EQ(collected(I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, 3, 0), (Outcome{0, "\2\x11\x22\x33"}));
    EXPECT_EQ(collected(I2C_SMBUS_WRITE, I2C_SMBUS_BYTE_DATA, 1, 0), (Outcome{0, ""}));
    EXPECT_EQ(collected(I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, 1, EIO), (Outcome{-EIO, ""}));
}

TEST_F(RequestTextTest, AnswersAreTextAndReadBack)
{
    hidraw_devinfo info = {};
    info.bustype = 3;
    info.vendor = 0x0403;
    info.product = static_cast<__s16>(0xF030);
    const std::string infoBytes(reinterpret_cast<const char*>(&info), sizeof(info));
    const std::string size150("\x96\0\0\0", 4);

    const struct
    {
        const char* request;
        Outcome outcome;
        const char* answer;
    } rows[] = {
        {"pin 103 = 1", {0, ""}, "0"},
        {"pin 103 = 1", {-ENXIO, ""}, "ENXIO"},
        {"ioctl 0x1234", {7, ""}, "7"},
        {"ioctl 0x1234", {-ENOTTY, ""}, "ENOTTY"},
        {"ioctl 0x1234", {-4000, ""}, "errno 4000"},
        {"descriptor size", {0, size150}, "150"},
        {"descriptor size", {-EIO, ""}, "EIO"},
        {"name 256", {11, "FTDI FT260\0"s}, "'FTDI FT260'"},
        {"name 4", {4, "FTDI"}, "'FTDI'"},
        {"name 256", {4, "EIO\0"s}, "'EIO'"}, // a name like that of an error
        {"name 256", {-EIO, ""}, "EIO"},
        {"name 256", {1, "\0"s}, "''"},
        {"name 256", {5, "it's\0"s}, "'it's'"},
        {"info", {0, infoBytes}, "bus 0x0003, vendor 0x0403, product 0xF030"},
        {"select 0x1C", {0, ""}, "0"},
        {"select 0x1C by force", {-EBUSY, ""}, "EBUSY"},
        {"read 0x1C:0x0C", {0, "\xA5"}, "A5"},
        {"read 0x1C:0x0C", {-EREMOTEIO, ""}, "EREMOTEIO"},
        {"read 0x1C:0x01, 2 bytes", {0, "\2\x11\x22"}, "11 22"},
        {"read 0x1C:0x01, 2 bytes", {0, "\x21\x11\x22"}, "11 22, count 33"},
        {"read 0x1C:0x01, 0 bytes", {0, "\0"s}, ""},
        {"write 0x1C:0x2A 01 02", {0, ""}, "0"},
        {"write 0x1C:0x2A", {0, ""}, "0"},
        {"transfer 0x1C:0x2A, direction 1, type 3", {-EOPNOTSUPP, ""}, "EOPNOTSUPP"},
    };

    for (const auto& row : rows)
    {
        EXPECT_EQ(RequestText::Encode(row.request, row.outcome), row.answer) << row.request;
        EXPECT_EQ(RequestText::Decode(row.request, row.answer), row.outcome)
            << row.request << " " << row.answer;
    }
}

TEST_F(RequestTextTest, TheNameEndsWithItsZero)
{
    EXPECT_EQ(Name("FTDI\0"s), "'FTDI'");
    EXPECT_EQ(Name("FTDI FT2"), "'FTDI FT2'");
}

TEST_F(RequestTextTest, WhatIsNoneIsNotDecoded)
{
    const std::pair<const char*, std::string> rows[] = {
        {"", "0"},
        {"pin", "0"},
        {"pin 103", "0"},
        {"pin 103 = ", "0"},
        {"pin 103 = 1 ", "0"},
        {"pin 103 = 1", ""},
        {"pin 103 = 1", "on"},
        {"pin 103 = 1", "0 "},
        {"pin 103 = 1", "-1"},
        {"pin 103 = 1", "enxio"},
        {"pin 103 = 1", "2147483648"},
        {"pin 103 = 1", "errno 0"},
        {"pin 103 = 1", "errno 4096"},
        {"pin 103 = 1", "errno 5x"},
        {"ioctl 12", "0"},
        {"descriptor size ", "150"},
        {"descriptor size", "many"},
        {"name", "'x'"},
        {"name 4", "x"},
        {"name 4", "'x"},
        {"name 4", "'"},
        {"name 4", "'12345'"},
        {"name 4", "'1\0002'"s},
        {"info", "bus 0x0003"},
        {"info", "bus 0x0003, vendor 0x10000, product 0x0001"},
        {"select 1C", "0"},
        {"select 0x1C with force", "0"},
        {"read 0x1C", "00"},
        {"read 0x1C:0xC", "00"},
        {"read 0x1C:0x0C", "0"},
        {"read 0x1C:0x0C", "00 01"},
        {"read 0x1C:0x0C, 33 bytes", "00"},
        {"read 0x1C:0x0C, 2 bytes", "00"},
        {"read 0x1C:0x0C, 2 bytes", "00 01, count 256"},
        {"read 0x1C:0x0C, 2 bytes", "00 01, count"},
        {"read 0x1C:0x0C", "00, count 1"},
        {"write 0x1C:0x0C 1", "0"},
        {"transfer 0x1C:0x0C, direction 1", "0"},
    };
    for (const auto& [request, answer] : rows)
    {
        EXPECT_EQ(RequestText::Decode(request, answer), std::nullopt) << request << " -> " << answer;
    }
}

TEST_F(RequestTextTest, EachPinIsAChannel)
{
    EXPECT_EQ(RequestText::Channel("pin 103 = 1"), "pin 103");
    EXPECT_EQ(RequestText::Channel("pin 103 = 0"), "pin 103");
    EXPECT_EQ(RequestText::Channel("pin 104 = 1"), "pin 104");
    EXPECT_EQ(RequestText::Channel("read 0x1C:0x0C"), "");
    EXPECT_EQ(RequestText::Channel("ioctl 0x6B"), "");
}

}

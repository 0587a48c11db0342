#include "virtual-unit/recording/ReplayedI2cAdapter.h"

#include "tests/virtual-unit/OwnMemory.h"
#include "tests/virtual-unit/recording/Notes.h"
#include "tests/virtual-unit/recording/Transcript.h"
#include "virtual-unit/recording/ObservedI2cAdapter.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::ElementsAre;

using Texts = std::vector<std::string>;

const Texts SESSION = {
    R"(1.000000 ! opened)",
    R"(2.000000 ? "select 0x1C" -> "0")",
    R"(2.001000 ? "read 0x1C:0x0D" -> "1A")",
    R"(2.002000 ? "write 0x1C:0x2A 01" -> "0")",
    R"(2.003000 ? "read 0x1C:0x0C" -> "00" x 5 until 2.900000)",
    R"(3.000000 ? "read 0x1C:0x0C" -> "04")",
    R"(3.001000 ? "read 0x1C:0x01, 2 bytes" -> "11 22, count 3")",
    R"(3.002000 ? "write 0x1C:0x10 01 02" -> "ENXIO")",
};

class ReplayedI2cAdapterTest : public testing::Test
{
protected:
    void Play(const Texts& lines)
    {
        adapter = std::make_shared<ReplayedI2cAdapter>(Transcript(lines), differences);
        host = adapter.get();
    }

    int Ioctl(unsigned long request, std::uint64_t argument)
    {
        return host->Answer({request, argument, memory}, now);
    }

    int Transfer(unsigned char direction, unsigned char reg, std::uint32_t type = I2C_SMBUS_BYTE_DATA)
    {
        i2c_smbus_ioctl_data request = {direction, reg, type, &data};
        return Ioctl(I2C_SMBUS, reinterpret_cast<std::uint64_t>(&request));
    }

    /// Does what SESSION has, with so many polls; the slave is selected before each transfer.
    void Session(std::size_t polls)
    {
        Ioctl(I2C_SLAVE, 0x1C);
        EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x0D), 0);
        EXPECT_EQ(data.byte, 0x1A);
        data.byte = 1;
        Ioctl(I2C_SLAVE, 0x1C);
        EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, 0x2A), 0);
        now += 999ms;
        for (std::size_t i = 0; i < polls; ++i)
        {
            EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1C), 0);
            EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x0C), 0);
            EXPECT_EQ(data.byte, 0);
        }
        now += 1ms;
        EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x0C), 0);
        EXPECT_EQ(data.byte, 4);
        data.block[0] = 2;
        EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x01, I2C_SMBUS_I2C_BLOCK_DATA), 0);
        EXPECT_EQ(std::vector(data.block, data.block + 3), (std::vector<unsigned char>{3, 0x11, 0x22}));
        data.block[0] = 2;
        data.block[1] = 1;
        data.block[2] = 2;
        EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, 0x10, I2C_SMBUS_I2C_BLOCK_DATA), -ENXIO);
    }

    std::string Difference() const { return differences.First() ? differences.First()->Text() : "none"; }

    IoctlPeripheral::TimePoint now{1h};
    Differences differences;
    OwnMemory memory;
    std::shared_ptr<ReplayedI2cAdapter> adapter;
    I2cPeripheral* host = nullptr;
    i2c_smbus_data data = {};
};

TEST_F(ReplayedI2cAdapterTest, TheSameProgramFindsTheSameBus)
{
    Play(SESSION);
    Session(5);
    adapter->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedI2cAdapterTest, PollsMayBeMoreOrFewer)
{
    for (const std::size_t polls : {1, 4, 6, 500})
    {
        Play(SESSION);
        Session(polls);
        adapter->Finish();
        EXPECT_EQ(Difference(), "none") << polls;
    }
}

TEST_F(ReplayedI2cAdapterTest, AnotherWriteIsADifference)
{
    Play(SESSION);
    Ioctl(I2C_SLAVE, 0x1C);
    Transfer(I2C_SMBUS_READ, 0x0D);
    data.byte = 2;
    EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, 0x2A), -EIO);
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 6: expected \"write 0x1C:0x2A 01\", the program requested \"write "
              "0x1C:0x2A 02\"");
}

TEST_F(ReplayedI2cAdapterTest, AnotherSlaveIsADifference)
{
    Play(SESSION);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1D), -EIO);
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 4: expected \"select 0x1C\", the program requested \"select "
              "0x1D\"");
}

TEST_F(ReplayedI2cAdapterTest, ARefusedSelectionIsReplayed)
{
    Play({R"(1.000000 ? "select 0x1C" -> "0")", R"(1.100000 ? "select 0x1C" -> "EBUSY" x 2 until 1.200000)",
          R"(1.300000 ? "select 0x1D" -> "EBUSY")", R"(2.000000 ? "read 0x1C:0x0D" -> "1A")"});
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1C), 0);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1C), -EBUSY);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1D), -EBUSY); // the selection before holds on
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x0D), 0);
    adapter->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedI2cAdapterTest, TheRecordingOfAReplayIsTheRecording)
{
    Play(SESSION);
    Notes notes(now);
    ObservedI2cAdapter observed(adapter, notes);
    host = &observed;
    Session(2);
    EXPECT_THAT(notes.lines,
                ElementsAre("0 ? select 0x1C -> 0", "0 ? read 0x1C:0x0D -> 1A", "0 ? write 0x1C:0x2A 01 -> 0",
                            "999 ? read 0x1C:0x0C -> 00", "999 ? read 0x1C:0x0C -> 00",
                            "1000 ? read 0x1C:0x0C -> 04", "1000 ? read 0x1C:0x01, 2 bytes -> 11 22, count 3",
                            "1000 ? write 0x1C:0x10 01 02 -> ENXIO"));
    EXPECT_EQ(Difference(), "none");
}

}

#include "virtual-unit/recording/ObservedI2cAdapter.h"

#include "tests/virtual-unit/OwnMemory.h"
#include "tests/virtual-unit/recording/Notes.h"
#include "virtual-unit/peripherals/Accelerometer.h"
#include "virtual-unit/peripherals/I2cAdapter.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <memory>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::IsEmpty;

class ObservedI2cAdapterTest : public testing::Test
{
protected:
    ObservedI2cAdapterTest() { adapter->Add(accelerometer); }

    int Ioctl(unsigned long request, std::uint64_t argument)
    {
        return observed.Answer({request, argument, memory}, begin);
    }

    int Transfer(unsigned char direction, unsigned char reg, std::uint32_t type)
    {
        i2c_smbus_ioctl_data request = {direction, reg, type, &data};
        return Ioctl(I2C_SMBUS, reinterpret_cast<std::uint64_t>(&request));
    }

    IoctlPeripheral::TimePoint begin{1h};
    Notes notes{begin};
    OwnMemory memory;
    Accelerometer accelerometer;
    std::shared_ptr<I2cAdapter> adapter = std::make_shared<I2cAdapter>();
    ObservedI2cAdapter observed{adapter, notes};
    i2c_smbus_data data = {};
};

TEST_F(ObservedI2cAdapterTest, TransfersAreTold)
{
    Ioctl(I2C_SLAVE, 0x1C);
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x0D, I2C_SMBUS_BYTE_DATA), 0);
    EXPECT_EQ(data.byte, 0x1A);
    data.byte = 0x01;
    EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, 0x2A, I2C_SMBUS_BYTE_DATA), 0);
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x2A, I2C_SMBUS_BYTE_DATA), 0);
    EXPECT_EQ(data.byte, 0x01);
    data.block[0] = 2;
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x0D, I2C_SMBUS_I2C_BLOCK_DATA), 0);
    EXPECT_EQ(data.block[1], 0x1A);
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0, I2C_SMBUS_WORD_DATA), -EOPNOTSUPP);
    EXPECT_THAT(notes.lines,
                ElementsAre("0 ? select 0x1C -> 0", "0 ? read 0x1C:0x0D -> 1A", "0 ? write 0x1C:0x2A 01 -> 0",
                            "0 ? read 0x1C:0x2A -> 01", "0 ? read 0x1C:0x0D, 2 bytes -> 1A 00",
                            "0 ? transfer 0x1C:0x00, direction 1, type 3 -> EOPNOTSUPP"));
}

TEST_F(ObservedI2cAdapterTest, AWrongCountIsTold)
{
    Ioctl(I2C_SLAVE, 0x1C);
    adapter->faults.blockCount = 33;
    data.block[0] = 1;
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x0D, I2C_SMBUS_I2C_BLOCK_DATA), 0);
    EXPECT_EQ(data.block[0], 33);
    EXPECT_EQ(notes.lines.back(), "0 ? read 0x1C:0x0D, 1 bytes -> 1A, count 33");
}

TEST_F(ObservedI2cAdapterTest, OnlyAnotherSelectionIsTold)
{
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1C), 0);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1C), 0);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1D), 0);
    EXPECT_EQ(Ioctl(I2C_SLAVE_FORCE, 0x1D), 0);
    EXPECT_EQ(Ioctl(I2C_SLAVE_FORCE, 0x1C), 0);
    EXPECT_THAT(notes.lines,
                ElementsAre("0 ? select 0x1C -> 0", "0 ? select 0x1D -> 0", "0 ? select 0x1C by force -> 0"));
}

TEST_F(ObservedI2cAdapterTest, ARefusedSelectionIsToldAndSelectsNothing)
{
    Ioctl(I2C_SLAVE, 0x1C);
    adapter->faults.selection = EBUSY;
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1C), -EBUSY);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1D), -EBUSY);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x80), -EINVAL);
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0x0D, I2C_SMBUS_BYTE_DATA), 0);
    EXPECT_THAT(notes.lines,
                ElementsAre("0 ? select 0x1C -> 0", "0 ? select 0x1C -> EBUSY", "0 ? select 0x1D -> EBUSY",
                            "0 ? select 0x80 -> EINVAL", "0 ? read 0x1C:0x0D -> 1A"));
}

TEST_F(ObservedI2cAdapterTest, WhatIsNoTransferIsNotTold)
{
    EXPECT_EQ(Ioctl(I2C_RDWR, 0), -ENOTTY);
    EXPECT_EQ(Ioctl(I2C_SMBUS, 0), -EFAULT);
    EXPECT_THAT(notes.lines, IsEmpty());
}

}

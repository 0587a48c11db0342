#include "virtual-unit/peripherals/I2cAdapter.h"

#include "tests/virtual-unit/OwnMemory.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <map>
#include <span>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned char ADDRESS = 0x1C;

/// Each register holds three times its number, until it is written.
class Chip : public I2cSlave
{
public:
    explicit Chip(unsigned char busAddress = ADDRESS) : I2cSlave(busAddress) {}

    std::map<unsigned char, unsigned char> written;
    std::vector<TimePoint> times; ///< of all transfers that arrived

protected:
    Bytes ReadRegisters(unsigned char reg, std::size_t count, TimePoint now) override
    {
        times.push_back(now);
        Bytes bytes;
        for (; bytes.size() < count; ++reg)
        {
            bytes.push_back(static_cast<unsigned char>(3 * reg));
        }
        return bytes;
    }

    void WriteRegisters(unsigned char reg, std::span<const unsigned char> bytes, TimePoint now) override
    {
        times.push_back(now);
        for (const unsigned char value : bytes)
        {
            written[reg++] = value;
        }
    }
};

class I2cAdapterTest : public testing::Test
{
protected:
    I2cAdapterTest()
    {
        adapter.Add(chip);
        EXPECT_EQ(Ioctl(I2C_SLAVE, ADDRESS), 0);
    }

    int Ioctl(unsigned long request, std::uint64_t argument)
    {
        return adapter.Answer({request, argument, memory}, now);
    }

    int Transfer(unsigned char direction, unsigned char reg, std::uint32_t type)
    {
        i2c_smbus_ioctl_data request = {direction, reg, type, &data};
        return Ioctl(I2C_SMBUS, reinterpret_cast<std::uint64_t>(&request));
    }

    int ReadByte(unsigned char reg) { return Transfer(I2C_SMBUS_READ, reg, I2C_SMBUS_BYTE_DATA); }

    int WriteByte(unsigned char reg, unsigned char value)
    {
        data.byte = value;
        return Transfer(I2C_SMBUS_WRITE, reg, I2C_SMBUS_BYTE_DATA);
    }

    int ReadBlock(unsigned char reg, unsigned char count, std::uint32_t type = I2C_SMBUS_I2C_BLOCK_DATA)
    {
        data.block[0] = count;
        return Transfer(I2C_SMBUS_READ, reg, type);
    }

    I2cSlave::TimePoint now{1h};
    Chip chip;
    I2cAdapter adapter;
    OwnMemory memory;
    i2c_smbus_data data = {};
};

TEST_F(I2cAdapterTest, AByteIsRead)
{
    data.word = 0xFFFF;
    EXPECT_EQ(ReadByte(0x0D), 0);
    EXPECT_EQ(data.byte, 0x27);
    EXPECT_EQ(data.block[1], 0xFF); // a byte is all that is stored
    EXPECT_THAT(chip.times, ElementsAre(now));
}

TEST_F(I2cAdapterTest, AByteIsWritten)
{
    EXPECT_EQ(WriteByte(0x2A, 0x85), 0);
    EXPECT_THAT(chip.written, ElementsAre(std::pair(0x2A, 0x85)));
    EXPECT_THAT(chip.times, ElementsAre(now));
}

TEST_F(I2cAdapterTest, ABlockIsReadFromRegisterToRegister)
{
    data.block[4] = 0xEE;
    EXPECT_EQ(ReadBlock(0x10, 3), 0);
    EXPECT_THAT(std::vector(data.block, data.block + 5), ElementsAre(3, 0x30, 0x33, 0x36, 0xEE));
    EXPECT_EQ(ReadBlock(0, I2C_SMBUS_BLOCK_MAX), 0);
    EXPECT_EQ(data.block[0], 32);
    EXPECT_EQ(data.block[32], 3 * 31);
    EXPECT_EQ(ReadBlock(0, 0), 0);
    EXPECT_EQ(data.block[0], 0);
}

TEST_F(I2cAdapterTest, TheOldBlockTypeAlwaysReads32Bytes)
{
    EXPECT_EQ(ReadBlock(0, 4, I2C_SMBUS_I2C_BLOCK_BROKEN), 0);
    EXPECT_EQ(data.block[0], 32);
    EXPECT_EQ(data.block[32], 3 * 31);
}

TEST_F(I2cAdapterTest, ABlockIsWritten)
{
    for (const std::uint32_t type : {I2C_SMBUS_I2C_BLOCK_DATA, I2C_SMBUS_I2C_BLOCK_BROKEN})
    {
        chip.written.clear();
        data.block[0] = 2;
        data.block[1] = 0x11;
        data.block[2] = 0x22;
        EXPECT_EQ(Transfer(I2C_SMBUS_WRITE, 0x20, type), 0);
        EXPECT_THAT(chip.written, ElementsAre(std::pair(0x20, 0x11), std::pair(0x21, 0x22)));
    }
}

TEST_F(I2cAdapterTest, WhatIsNoTransferIsInvalid)
{
    EXPECT_EQ(ReadBlock(0, 33), -EINVAL);
    EXPECT_EQ(Transfer(2, 0, I2C_SMBUS_BYTE_DATA), -EINVAL);
    EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0, 9), -EINVAL);
    i2c_smbus_ioctl_data withoutData = {I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE_DATA, nullptr};
    EXPECT_EQ(Ioctl(I2C_SMBUS, reinterpret_cast<std::uint64_t>(&withoutData)), -EINVAL);
    EXPECT_EQ(Ioctl(I2C_SMBUS, 0), -EFAULT);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x80), -EINVAL);
    EXPECT_THAT(chip.times, IsEmpty());
}

TEST_F(I2cAdapterTest, WhatItCannotDoIsNotSupported)
{
    for (const std::uint32_t type : {I2C_SMBUS_QUICK, I2C_SMBUS_BYTE, I2C_SMBUS_WORD_DATA,
                                     I2C_SMBUS_PROC_CALL, I2C_SMBUS_BLOCK_DATA, I2C_SMBUS_BLOCK_PROC_CALL})
    {
        EXPECT_EQ(Transfer(I2C_SMBUS_READ, 0, type), -EOPNOTSUPP) << type;
    }
    EXPECT_EQ(Ioctl(I2C_RDWR, 0), -ENOTTY);
    EXPECT_THAT(chip.times, IsEmpty());
}

TEST_F(I2cAdapterTest, SelectingASlaveThatIsNotThereWorksUntilTheFirstTransfer)
{
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1D), 0);
    EXPECT_EQ(ReadByte(0), -ENXIO);
    EXPECT_EQ(WriteByte(0, 0), -ENXIO);
    EXPECT_EQ(ReadBlock(0, 1), -ENXIO);
    EXPECT_THAT(chip.times, IsEmpty());
}

TEST_F(I2cAdapterTest, NoSlaveIsSelectedAtFirst)
{
    I2cAdapter fresh;
    fresh.Add(chip);
    EXPECT_EQ(fresh.Transfer(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE_DATA, data, now), ENXIO);
}

TEST_F(I2cAdapterTest, EachSlaveHasItsAddress)
{
    Chip other(0x1D);
    adapter.Add(other);
    WriteByte(1, 10);
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1D), 0);
    WriteByte(1, 20);
    EXPECT_EQ(chip.written[1], 10);
    EXPECT_EQ(other.written[1], 20);
}

TEST_F(I2cAdapterTest, ASlaveThatADriverHasIsRefusedButByForce)
{
    adapter.faults.selection = EBUSY;
    EXPECT_EQ(Ioctl(I2C_SLAVE, 0x1D), -EBUSY);
    EXPECT_EQ(ReadByte(1), 0); // the selection before holds on
    EXPECT_EQ(Ioctl(I2C_SLAVE_FORCE, 0x1D), 0);
    EXPECT_EQ(ReadByte(1), -ENXIO);
}

TEST_F(I2cAdapterTest, TransfersFailBeforeTheyReachASlave)
{
    for (const int error : {ETIMEDOUT, EIO, EAGAIN})
    {
        adapter.faults.transfer = error;
        EXPECT_EQ(ReadByte(1), -error);
        EXPECT_EQ(WriteByte(1, 1), -error);
        EXPECT_EQ(ReadBlock(1, 1), -error);
    }
    EXPECT_THAT(chip.times, IsEmpty());
}

TEST_F(I2cAdapterTest, ABlockReadMayTellAWrongCount)
{
    adapter.faults.blockCount = 33;
    EXPECT_EQ(ReadBlock(0x10, 2), 0);
    EXPECT_THAT(std::vector(data.block, data.block + 3), ElementsAre(33, 0x30, 0x33));
    EXPECT_EQ(ReadByte(0x10), 0);
    EXPECT_EQ(data.byte, 0x30);
}

TEST_F(I2cAdapterTest, TheNextTransferIsNotAcknowledged)
{
    chip.faults.naks = 1;
    EXPECT_EQ(ReadByte(1), -ENXIO);
    EXPECT_EQ(ReadByte(1), 0);
    EXPECT_THAT(chip.times, SizeIs(1));
}

TEST_F(I2cAdapterTest, TheThirdTransferIsNotAcknowledged)
{
    chip.faults = {.goodTransfers = 2, .naks = 1};
    std::vector<int> results;
    for (int i = 0; i < 5; ++i)
    {
        results.push_back(i % 2 == 0 ? WriteByte(1, 1) : ReadBlock(1, 1));
    }
    EXPECT_THAT(results, ElementsAre(0, 0, -ENXIO, 0, 0));
}

TEST_F(I2cAdapterTest, NoTransferIsAcknowledged)
{
    chip.faults.naks = I2cSlave::Faults::EVERY;
    adapter.faults.nak = EREMOTEIO;
    std::vector<int> results;
    for (int i = 0; i < 100; ++i)
    {
        results.push_back(ReadByte(1));
    }
    EXPECT_THAT(results, Each(-EREMOTEIO));
    EXPECT_THAT(chip.times, IsEmpty());
}

TEST_F(I2cAdapterTest, OnlyADeadBusTakesItsTime)
{
    using namespace std::chrono_literals;
    const I2cAdapter other;
    EXPECT_EQ(other.Takes(-ETIMEDOUT), 100ms);
    EXPECT_EQ(other.Takes(-ENXIO), 0ms);
    EXPECT_EQ(other.Takes(-EREMOTEIO), 0ms);
    EXPECT_EQ(other.Takes(0), 0ms);
}

}

#include "I2C/I2c.h"

#include "base/Tavbase/Util/StandardStreams.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>

namespace Tavdevice::I2C
{

namespace
{

constexpr const char* ADAPTER = "/dev/i2c-";
constexpr std::size_t LONGEST_INVALID_PATH = 3;

// What a block holds behind its count: I2C_SMBUS_BLOCK_MAX data bytes and a spare one.
constexpr std::size_t BLOCK_BYTES = sizeof(i2c_smbus_data::block) - 1;
constexpr unsigned int TOO_MANY = I2C_SMBUS_BLOCK_MAX + 1;

int Transfer(int fd, char direction, unsigned char reg, std::uint32_t type, i2c_smbus_data& data)
{
    i2c_smbus_ioctl_data request = {};
    request.read_write = static_cast<unsigned char>(direction);
    request.command = reg;
    request.size = type;
    request.data = &data;
    return ioctl(fd, I2C_SMBUS, &request);
}

}

struct I2c::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has a base, whose part comes first
    static_assert(offsetof(I2c, device) < offsetof(I2c, fd));
#pragma GCC diagnostic pop
};

I2c::I2c()
{
    SetErrorSource("Tavdevice", "I2C");
}

I2c::I2c(int adapter) : I2c()
{
    device = ADAPTER + std::to_string(adapter);
}

I2c::~I2c() = default;

bool I2c::Open()
{
    ResetError();
    if (device.size() <= LONGEST_INVALID_PATH)
    {
        SetError(std::string("Invalid device length"), "Open", true, true);
        return false;
    }
    fd = Tavbase::Util::OpenNoStandardStream(device.c_str(), O_RDWR | O_NONBLOCK | O_SYNC);
    return fd >= 0 || Fail("Unable to open bus: ", "Open");
}

bool I2c::Close()
{
    if (fd < 1)
    {
        return true;
    }
    if (close(fd) != 0)
    {
        return false;
    }
    fd = -1;
    return true;
}

bool I2c::Acquire(int address)
{
    ResetError();
    if (fd < 1 && !Open())
    {
        return false;
    }
    return ioctl(fd, I2C_SLAVE, address) >= 0 || Fail("ioctl error: ", "Acquire");
}

int I2c::ReadByte(unsigned char reg)
{
    i2c_smbus_data data = {};
    return Transfer(fd, I2C_SMBUS_READ, reg, I2C_SMBUS_BYTE_DATA, data) == 0 ? data.byte : -1;
}

bool I2c::ReadBytes(unsigned char reg, TavubufferDynamic& buffer)
{
    if (buffer.capacity == 0 || buffer.data == nullptr)
    {
        return false;
    }
    buffer.length = 0;
    const auto wanted = static_cast<std::uint8_t>(buffer.capacity); // its low eight bits, deliberately
    const auto asked = std::min<std::uint8_t>(wanted, I2C_SMBUS_BLOCK_MAX);
    i2c_smbus_data data = {};
    data.block[0] = asked;
    const std::uint32_t type =
        asked == I2C_SMBUS_BLOCK_MAX ? I2C_SMBUS_I2C_BLOCK_BROKEN : I2C_SMBUS_I2C_BLOCK_DATA;
    if (Transfer(fd, I2C_SMBUS_READ, reg, type, data) != 0)
    {
        return false;
    }
    // The count is the driver's word: neither the block nor the buffer is left, whatever it says.
    const unsigned int count = data.block[0];
    const auto taken = std::min<std::uint64_t>({count, BLOCK_BYTES, buffer.capacity});
    std::copy_n(data.block + 1, taken, buffer.data);
    if (count == TOO_MANY)
    {
        return false;
    }
    buffer.length = taken;
    return true;
}

bool I2c::WriteByte(unsigned char reg, unsigned char value)
{
    i2c_smbus_data data = {};
    data.byte = value;
    return Transfer(fd, I2C_SMBUS_WRITE, reg, I2C_SMBUS_BYTE_DATA, data) >= 0;
}

bool I2c::Fail(const char* message, const char* where)
{
    const int reason = errno;
    SetErrorNumber(reason);
    SetError(message + std::generic_category().message(reason), where, true, true);
    return false;
}

}

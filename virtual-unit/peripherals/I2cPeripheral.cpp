#include "virtual-unit/peripherals/I2cPeripheral.h"

#include <cerrno>
#include <linux/i2c-dev.h>

namespace VirtualUnit
{

namespace
{

/// How many bytes of the union the kernel carries to and from the application.
std::size_t CarriedBytes(std::uint32_t type)
{
    return I2cPeripheral::IsBlock(type) ? sizeof(i2c_smbus_data::block) : sizeof(i2c_smbus_data::byte);
}

}

bool I2cPeripheral::IsBlock(std::uint32_t type)
{
    return type == I2C_SMBUS_I2C_BLOCK_BROKEN || type == I2C_SMBUS_I2C_BLOCK_DATA;
}

std::size_t I2cPeripheral::Count(unsigned char direction, std::uint32_t type, const i2c_smbus_data& data)
{
    if (direction == I2C_SMBUS_READ && type == I2C_SMBUS_I2C_BLOCK_BROKEN)
    {
        return I2C_SMBUS_BLOCK_MAX;
    }
    return IsBlock(type) ? data.block[0] : 1;
}

int I2cPeripheral::Answer(const Ioctl& call, TimePoint now)
{
    switch (call.request)
    {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE:
        return -Select(call.argument, call.request == I2C_SLAVE_FORCE, now);
    case I2C_SMBUS:
        return -AnswerTransfer(call, now);
    default:
        return -ENOTTY;
    }
}

std::chrono::milliseconds I2cPeripheral::Takes(int result) const
{
    constexpr std::chrono::milliseconds TIME_OUT{100}; // of the i.MX6's adapters
    return result == -ETIMEDOUT ? TIME_OUT : std::chrono::milliseconds(0);
}

int I2cPeripheral::AnswerTransfer(const Ioctl& call, TimePoint now)
{
    i2c_smbus_ioctl_data request = {};
    if (const int error = call.memory.Read(call.argument, &request, sizeof(request)); error != 0)
    {
        return error;
    }
    if (request.data == nullptr)
    {
        return EINVAL;
    }
    const auto where = reinterpret_cast<std::uint64_t>(request.data);
    const std::size_t size = CarriedBytes(request.size);
    i2c_smbus_data data = {};
    if (const int error = call.memory.Read(where, &data, size); error != 0)
    {
        return error;
    }
    const int error = Transfer(request.read_write, request.command, request.size, data, now);
    return error != 0 || request.read_write != I2C_SMBUS_READ ? error : call.memory.Write(where, &data, size);
}

}

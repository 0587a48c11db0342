#include "virtual-unit/peripherals/I2cAdapter.h"

#include <algorithm>
#include <cstddef>
#include <linux/i2c-dev.h>
#include <span>

namespace VirtualUnit
{

namespace
{

constexpr std::uint64_t HIGHEST_ADDRESS = 0x7F;

bool IsBlock(std::uint32_t type)
{
    return type == I2C_SMBUS_I2C_BLOCK_BROKEN || type == I2C_SMBUS_I2C_BLOCK_DATA;
}

bool IsOther(std::uint32_t type)
{
    constexpr std::uint32_t TYPES[] = {I2C_SMBUS_QUICK,     I2C_SMBUS_BYTE,       I2C_SMBUS_WORD_DATA,
                                       I2C_SMBUS_PROC_CALL, I2C_SMBUS_BLOCK_DATA, I2C_SMBUS_BLOCK_PROC_CALL};
    return std::ranges::find(TYPES, type) != std::end(TYPES);
}

/// How many bytes of the union the kernel carries to and from the application.
std::size_t CarriedBytes(std::uint32_t type)
{
    return IsBlock(type) ? sizeof(i2c_smbus_data::block) : sizeof(i2c_smbus_data::byte);
}

}

void I2cAdapter::Add(I2cSlave& slave)
{
    slaves.push_back(&slave);
}

int I2cAdapter::Select(std::uint64_t address, bool force)
{
    if (address > HIGHEST_ADDRESS)
    {
        return EINVAL;
    }
    if (faults.selection != 0 && !force)
    {
        return faults.selection;
    }
    selected = static_cast<unsigned char>(address);
    return 0;
}

int I2cAdapter::Transfer(unsigned char direction, unsigned char reg, std::uint32_t type, i2c_smbus_data& data,
                         TimePoint now)
{
    const bool read = direction == I2C_SMBUS_READ;
    const bool block = IsBlock(type);
    if (!read && direction != I2C_SMBUS_WRITE)
    {
        return EINVAL;
    }
    if (!block && type != I2C_SMBUS_BYTE_DATA)
    {
        return IsOther(type) ? EOPNOTSUPP : EINVAL;
    }
    if (read && type == I2C_SMBUS_I2C_BLOCK_BROKEN)
    {
        data.block[0] = I2C_SMBUS_BLOCK_MAX;
    }
    const std::size_t count = block ? data.block[0] : 1;
    if (count > I2C_SMBUS_BLOCK_MAX)
    {
        return EINVAL;
    }
    if (faults.transfer != 0)
    {
        return faults.transfer;
    }
    const auto slave = std::ranges::find(slaves, selected, &I2cSlave::Address);
    if (slave == slaves.end())
    {
        return faults.nak;
    }
    unsigned char* const bytes = block ? data.block + 1 : &data.byte;
    if (!read)
    {
        return (*slave)->Write(reg, std::span(bytes, count), now) ? 0 : faults.nak;
    }
    const std::optional<I2cSlave::Bytes> content = (*slave)->Read(reg, count, now);
    if (!content)
    {
        return faults.nak;
    }
    std::ranges::copy(*content, bytes);
    if (block)
    {
        data.block[0] = faults.blockCount.value_or(data.block[0]);
    }
    return 0;
}

int I2cAdapter::Answer(const Ioctl& call, TimePoint now)
{
    switch (call.request)
    {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE:
        return -Select(call.argument, call.request == I2C_SLAVE_FORCE);
    case I2C_SMBUS:
        return -AnswerTransfer(call, now);
    default:
        return -ENOTTY;
    }
}

int I2cAdapter::AnswerTransfer(const Ioctl& call, TimePoint now)
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

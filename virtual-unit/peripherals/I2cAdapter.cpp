#include "virtual-unit/peripherals/I2cAdapter.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace VirtualUnit
{

namespace
{

constexpr std::uint64_t HIGHEST_ADDRESS = 0x7F;

bool IsOther(std::uint32_t type)
{
    constexpr std::uint32_t TYPES[] = {I2C_SMBUS_QUICK,     I2C_SMBUS_BYTE,       I2C_SMBUS_WORD_DATA,
                                       I2C_SMBUS_PROC_CALL, I2C_SMBUS_BLOCK_DATA, I2C_SMBUS_BLOCK_PROC_CALL};
    return std::ranges::find(TYPES, type) != std::end(TYPES);
}

}

void I2cAdapter::Add(I2cSlave& slave)
{
    slaves.push_back(&slave);
}

int I2cAdapter::Select(std::uint64_t address, bool force, TimePoint /*now*/)
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
    const std::size_t count = Count(direction, type, data);
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
        data.block[0] = faults.blockCount.value_or(static_cast<unsigned char>(count));
    }
    return 0;
}

}

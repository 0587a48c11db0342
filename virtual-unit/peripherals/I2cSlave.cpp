#include "virtual-unit/peripherals/I2cSlave.h"

namespace VirtualUnit
{

std::optional<I2cSlave::Bytes> I2cSlave::Read(unsigned char reg, std::size_t count, TimePoint now)
{
    return Acknowledges() ? std::optional(ReadRegisters(reg, count, now)) : std::nullopt;
}

bool I2cSlave::Write(unsigned char reg, std::span<const unsigned char> bytes, TimePoint now)
{
    if (!Acknowledges())
    {
        return false;
    }
    WriteRegisters(reg, bytes, now);
    return true;
}

bool I2cSlave::Acknowledges()
{
    if (faults.naks == 0)
    {
        return true;
    }
    if (faults.goodTransfers > 0)
    {
        --faults.goodTransfers;
        return true;
    }
    faults.naks -= faults.naks == Faults::EVERY ? 0 : 1;
    return false;
}

}

#ifndef VIRTUAL_UNIT_PERIPHERALS_I2CADAPTER_H
#define VIRTUAL_UNIT_PERIPHERALS_I2CADAPTER_H

#include "virtual-unit/peripherals/I2cPeripheral.h"
#include "virtual-unit/peripherals/I2cSlave.h"

#include <cerrno>
#include <cstdint>
#include <linux/i2c.h>
#include <optional>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated I2C adapter with its slaves.
 *
 * Selecting a slave does not touch the bus: an address at which nothing answers is found out by the first
 * transfer. Of the SMBus transfers there are byte data (2) and I2C block data (8 and 6); for the kernel's
 * others it answers EOPNOTSUPP.
 */
class I2cAdapter : public I2cPeripheral
{
public:
    /// What goes wrong; may be changed at any time. 0: nothing.
    struct Faults
    {
        int selection = 0; ///< errno of I2C_SLAVE; EBUSY: a driver of the kernel has that slave
        int transfer = 0;  ///< errno of each transfer, none of which reaches a slave: ETIMEDOUT, EIO, EAGAIN
        int nak = ENXIO;   ///< errno when a slave does not acknowledge; some adapters say EREMOTEIO or EIO
        std::optional<unsigned char> blockCount; ///< what a block read says that it has read
    };

    Faults faults;

    void Add(I2cSlave& slave); ///< it stays the caller's and outlives the adapter

    int Select(std::uint64_t address, bool force, TimePoint now) override;
    int Transfer(unsigned char direction, unsigned char reg, std::uint32_t type, i2c_smbus_data& data,
                 TimePoint now) override;

private:
    std::vector<I2cSlave*> slaves;
    unsigned char selected = 0;
};

}

#endif

#ifndef VIRTUAL_UNIT_PERIPHERALS_I2CPERIPHERAL_H
#define VIRTUAL_UNIT_PERIPHERALS_I2CPERIPHERAL_H

#include "virtual-unit/peripherals/IoctlPeripheral.h"

#include <cstddef>
#include <cstdint>
#include <linux/i2c.h>

namespace VirtualUnit
{

/**
 * An emulated I2C adapter as the kernel's i2c-dev offers it: the ioctls I2C_SLAVE, I2C_SLAVE_FORCE and
 * I2C_SMBUS; any other is ENOTTY.
 *
 * There is one selection, which all share who have the adapter open; the kernel keeps one for each of them.
 */
class I2cPeripheral : public IoctlPeripheral
{
public:
    static bool IsBlock(std::uint32_t type); ///< an I2C block transfer, of the old or the new type

    /// How many bytes a transfer of byte data or of an I2C block carries. A block read of the old type is
    /// always of 32.
    static std::size_t Count(unsigned char direction, std::uint32_t type, const i2c_smbus_data& data);

    virtual int Select(std::uint64_t address, bool force, TimePoint now) = 0; ///< @return 0 or an errno

    /**
     * One SMBus transfer with the selected slave.
     * @param direction I2C_SMBUS_READ or I2C_SMBUS_WRITE
     * @param type      the transaction, I2C_SMBUS_BYTE_DATA and so on
     * @param data      what is written, or receives what was read; a block begins with its count
     * @return 0 or an errno
     */
    virtual int Transfer(unsigned char direction, unsigned char reg, std::uint32_t type, i2c_smbus_data& data,
                         TimePoint now) = 0;

    int Answer(const Ioctl& call, TimePoint now) override;

    /// A dead bus takes its time, as the kernel waits for it. That no chip acknowledges is known at once: a
    /// program that tries again and again keeps a processor busy, as it would on the unit.
    std::chrono::milliseconds Takes(int result) const override;

private:
    int AnswerTransfer(const Ioctl& call, TimePoint now);
};

}

#endif

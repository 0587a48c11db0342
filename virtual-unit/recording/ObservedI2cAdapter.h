#ifndef VIRTUAL_UNIT_RECORDING_OBSERVEDI2CADAPTER_H
#define VIRTUAL_UNIT_RECORDING_OBSERVEDI2CADAPTER_H

#include "virtual-unit/peripherals/I2cPeripheral.h"
#include "virtual-unit/ports/PortObserver.h"

#include <cstdint>
#include <linux/i2c.h>
#include <memory>
#include <optional>
#include <utility>

namespace VirtualUnit
{

/// An I2C adapter, with an observer that is told its selections and transfers, as RequestText. Selecting the
/// slave that is selected already is not told: whoever uses the bus does so before each transfer.
class ObservedI2cAdapter : public I2cPeripheral
{
public:
    /// @param theObserver stays the caller's and outlives this object
    ObservedI2cAdapter(std::shared_ptr<I2cPeripheral> theAdapter, PortObserver& theObserver)
        : adapter(std::move(theAdapter)), observer(theObserver)
    {
    }

    int Select(std::uint64_t address, bool force, TimePoint now) override;
    int Transfer(unsigned char direction, unsigned char reg, std::uint32_t type, i2c_smbus_data& data,
                 TimePoint now) override;

private:
    std::shared_ptr<I2cPeripheral> adapter;
    PortObserver& observer;
    std::optional<std::uint64_t> selected;
};

}

#endif

#ifndef VIRTUAL_UNIT_RECORDING_OBSERVEDSERIAL_H
#define VIRTUAL_UNIT_RECORDING_OBSERVEDSERIAL_H

#include "virtual-unit/peripherals/SerialPeripheral.h"
#include "virtual-unit/recording/Observed.h"

#include <memory>
#include <string_view>
#include <utility>

namespace VirtualUnit
{

/// A serial device, with an observer that is told its bytes.
class ObservedSerial : public Observed<SerialPeripheral>
{
public:
    /// @param theObserver stays the caller's and outlives this object
    /// @param now a device that is not there is told as unplugged at that time
    ObservedSerial(std::shared_ptr<SerialPeripheral> theDevice, PortObserver& theObserver, TimePoint now)
        : Observed(std::move(theDevice), theObserver, now)
    {
    }

    bool TakesOutput() const override { return Device().TakesOutput(); }

    void Receive(std::string_view bytes, TimePoint now) override
    {
        Elapse(now);
        Observer().Sent(bytes, now);
        Device().Receive(bytes, now);
    }
};

}

#endif

#ifndef GPIO_GPIOARGS_H
#define GPIO_GPIOARGS_H

#include "base/Export.h"

#include <cstdint>

namespace Tavdevice::Gpio
{

/// One event of the event driver, as GpioManager hands it to the listeners.
class TAVDEVICE_API GpioArgs
{
public:
    explicit GpioArgs(std::int32_t eventCode) : code(eventCode) {} ///< @param eventCode as `code`

    virtual ~GpioArgs();

    std::int32_t code; ///< 1 to 5 as the driver's trigger, or 6: a trigger 1 after an ignition start
};

}

#endif

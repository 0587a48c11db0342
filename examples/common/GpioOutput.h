#ifndef EXAMPLES_COMMON_GPIOOUTPUT_H
#define EXAMPLES_COMMON_GPIOOUTPUT_H

#include "Gpio/GpioArgs.h"
#include "base/Tavbase/Interfaces/ISignal.h"
#include "examples/common/Mailbox.h"

#include <optional>

namespace Tavdevice::Gpio
{

/// The application's listener for the triggers: it keeps their codes for the main thread. The library
/// declares the type and leaves it to us.
class GpioOutput : public Tavbase::Interfaces::ISignal::ISignalDelegate
{
public:
    void SignalCallback(void* value) override // on the manager's thread
    {
        codes.Put(static_cast<GpioArgs*>(value)->code);
    }

    std::optional<int> Take() { return codes.Take(); } ///< the oldest code that was not taken yet

private:
    Examples::Mailbox<int> codes;
};

}

#endif

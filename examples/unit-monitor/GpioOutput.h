#ifndef EXAMPLES_UNIT_MONITOR_GPIOOUTPUT_H
#define EXAMPLES_UNIT_MONITOR_GPIOOUTPUT_H

#include "Gpio/GpioArgs.h"
#include "base/Tavbase/Interfaces/ISignal.h"

#include <mutex>
#include <optional>
#include <queue>

namespace Tavdevice::Gpio
{

/// The application's listener for the triggers: it keeps their codes for the main thread. The library
/// declares the type and leaves it to us.
class GpioOutput : public Tavbase::Interfaces::ISignal::ISignalDelegate
{
public:
    void SignalCallback(void* value) override // on the manager's thread
    {
        const std::scoped_lock lock(access);
        codes.push(static_cast<GpioArgs*>(value)->code);
    }

    /// @return the oldest code that was not taken yet
    std::optional<int> Take()
    {
        const std::scoped_lock lock(access);
        if (codes.empty())
        {
            return std::nullopt;
        }
        const int code = codes.front();
        codes.pop();
        return code;
    }

private:
    std::mutex access;
    std::queue<int> codes;
};

}

#endif

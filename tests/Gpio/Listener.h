#ifndef TESTS_GPIO_LISTENER_H
#define TESTS_GPIO_LISTENER_H

#include "Gpio/GpioManager.h"
#include "base/Tavbase/Interfaces/ISignal.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// The application's listener.
class Tavdevice::Gpio::GpioOutput : public Tavbase::Interfaces::ISignal::ISignalDelegate
{
public:
    GpioOutput() = default;

    explicit GpioOutput(std::function<void(const GpioArgs&)> wanted) : action(std::move(wanted)) {}

    void SignalCallback(void* value) override
    {
        const auto* const args = static_cast<GpioArgs*>(value);
        {
            const std::scoped_lock lock(access);
            codes.push_back(args->code);
            thread = std::this_thread::get_id();
        }
        if (action)
        {
            action(*args);
        }
    }

    std::vector<std::int32_t> Codes() const
    {
        const std::scoped_lock lock(access);
        return codes;
    }

    std::size_t Count() const
    {
        const std::scoped_lock lock(access);
        return codes.size();
    }

    std::thread::id LastThread() const
    {
        const std::scoped_lock lock(access);
        return thread;
    }

private:
    std::function<void(const GpioArgs&)> action;
    mutable std::mutex access;
    std::vector<std::int32_t> codes;
    std::thread::id thread;
};

namespace GpioTests
{

using Tavdevice::Gpio::GpioArgs;
using Tavdevice::Gpio::GpioManager;
using Tavdevice::Gpio::GpioOutput;
using Codes = std::vector<std::int32_t>;

}

#endif

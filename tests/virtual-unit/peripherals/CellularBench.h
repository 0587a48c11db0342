#ifndef TESTS_VIRTUAL_UNIT_PERIPHERALS_CELLULARBENCH_H
#define TESTS_VIRTUAL_UNIT_PERIPHERALS_CELLULARBENCH_H

#include "virtual-unit/peripherals/CellularModule.h"

#include <chrono>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

/// A cellular module, switched on at `now`, and the time.
class CellularBench
{
public:
    using Port = VirtualUnit::CellularModule::Port;

    explicit CellularBench(const VirtualUnit::CellularState& state = {}) : module(state)
    {
        module.At(Port::Main).Advance(now);
    }

    /// What each interface has sent by then, in its pieces.
    std::vector<std::string> Wait(std::chrono::milliseconds time, Port port = Port::Main)
    {
        now += time;
        module.At(port).Advance(now);
        return module.At(port).TakeOutput();
    }

    /// The same as one text.
    std::string WaitForText(std::chrono::milliseconds time, Port port = Port::Main)
    {
        const std::vector<std::string> output = Wait(time, port);
        return std::accumulate(output.begin(), output.end(), std::string());
    }

    std::string Ask(std::string_view bytes, Port port = Port::Main)
    {
        module.At(port).Receive(bytes, now);
        return WaitForText(std::chrono::milliseconds(0), port);
    }

    VirtualUnit::SerialPeripheral::TimePoint now{std::chrono::hours(1)};
    VirtualUnit::CellularModule module;
};

#endif

#ifndef VIRTUAL_UNIT_RECORDING_OBSERVED_H
#define VIRTUAL_UNIT_RECORDING_OBSERVED_H

#include "virtual-unit/ports/PortObserver.h"
#include "virtual-unit/recording/PortEntry.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/**
 * A peripheral that is another one, and tells an observer what that sends, and when it is unplugged or
 * plugged in. The latter is found out when the host looks at the device: "unplugged" comes behind the last
 * that it has sent, "plugged in" before the first that a new host sends or receives.
 * @tparam Peripheral SerialPeripheral or MessagePeripheral
 */
template <class Peripheral>
class Observed : public Peripheral
{
public:
    using TimePoint = typename Peripheral::TimePoint;

    std::optional<TimePoint> NextDeadline() const override { return device->NextDeadline(); }

    void Advance(TimePoint now) override
    {
        Elapse(now);
        device->Advance(now);
    }

    std::vector<std::string> TakeOutput() override
    {
        std::vector<std::string> output = device->TakeOutput();
        for (const std::string& piece : output)
        {
            observer.Received(piece, latest);
        }
        if (connected && !device->IsConnected())
        {
            connected = false;
            observer.Happened(std::string(PortEntry::UNPLUGGED), latest);
        }
        return output;
    }

    bool IsConnected() const override { return device->IsConnected(); }

    bool IsPlugged() const override { return device->IsPlugged(); }

    void Attach(const std::function<void()>& wake) override { device->Attach(wake); }

protected:
    Observed(std::shared_ptr<Peripheral> theDevice, PortObserver& theObserver, TimePoint now)
        : device(std::move(theDevice)), observer(theObserver), latest(now), connected(device->IsConnected())
    {
        if (!connected)
        {
            observer.Happened(std::string(PortEntry::UNPLUGGED), now);
        }
    }

    void Elapse(TimePoint now)
    {
        latest = now;
        if (!connected && device->IsConnected())
        {
            connected = true;
            observer.Happened(std::string(PortEntry::PLUGGED_IN), now);
        }
    }

    Peripheral& Device() const { return *device; }

    PortObserver& Observer() const { return observer; }

private:
    std::shared_ptr<Peripheral> device;
    PortObserver& observer;
    TimePoint latest;
    bool connected;
};

}

#endif

#include "virtual-unit/unit/ObservedPorts.h"

#include "virtual-unit/recording/ObservedDriver.h"
#include "virtual-unit/recording/ObservedI2cAdapter.h"
#include "virtual-unit/recording/ObservedSerial.h"
#include "virtual-unit/recording/PortEntry.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Clock = std::chrono::steady_clock;

/// A served device, with an observer that is told when it is opened.
class WatchedDevice : public ServedDevice
{
public:
    WatchedDevice(std::unique_ptr<ServedDevice> watched, PortObserver& whoIsTold)
        : device(std::move(watched)), observer(whoIsTold)
    {
    }

    int Open(int flags) override
    {
        observer.Happened(std::string(PortEntry::OPENED), Clock::now());
        return device->Open(flags);
    }

    std::optional<IoctlResult> Ioctl(unsigned long request, std::uint64_t argument,
                                     CallerMemory& memory) override
    {
        return device->Ioctl(request, argument, memory);
    }

    bool Exists() const override { return device->Exists(); }

    bool HoldsWrites() const override { return device->HoldsWrites(); }

    int WriteError(const struct stat& opened) override { return device->WriteError(opened); }

    unsigned int Node() override { return device->Node(); }

    int Descriptor() const override { return device->Descriptor(); }

private:
    std::unique_ptr<ServedDevice> device;
    PortObserver& observer;
};

}

template <class Served, class Device>
Served* ObservedPorts::Watch(const std::string& path, const std::shared_ptr<Device>& device)
{
    auto served = std::make_unique<Served>(device);
    Served* const result = served.get();
    devices.Serve(path, std::make_unique<WatchedDevice>(std::move(served), traffic[path]));
    return result;
}

ServedSerialLine* ObservedPorts::Serve(const std::string& path, std::shared_ptr<SerialPeripheral> device)
{
    return Watch<ServedSerialLine>(
        path, std::make_shared<ObservedSerial>(std::move(device), traffic[path], Clock::now()));
}

ServedDriver* ObservedPorts::Serve(const std::string& path, std::shared_ptr<MessagePeripheral> device)
{
    const std::shared_ptr<MessagePeripheral> observed =
        std::make_shared<ObservedDriver>(std::move(device), traffic[path], Clock::now());
    return Watch<ServedDriver>(path, observed);
}

ServedDriver* ObservedPorts::Serve(const std::string& path, std::shared_ptr<I2cPeripheral> device)
{
    const std::shared_ptr<IoctlPeripheral> observed =
        std::make_shared<ObservedI2cAdapter>(std::move(device), traffic[path]);
    return Watch<ServedDriver>(path, observed);
}

}

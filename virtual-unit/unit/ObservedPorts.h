#ifndef VIRTUAL_UNIT_UNIT_OBSERVEDPORTS_H
#define VIRTUAL_UNIT_UNIT_OBSERVEDPORTS_H

#include "virtual-unit/peripherals/I2cPeripheral.h"
#include "virtual-unit/peripherals/MessagePeripheral.h"
#include "virtual-unit/peripherals/SerialPeripheral.h"
#include "virtual-unit/ports/DeviceTable.h"
#include "virtual-unit/ports/PortTraffic.h"
#include "virtual-unit/ports/ServedDriver.h"
#include "virtual-unit/ports/ServedSerialLine.h"

#include <map>
#include <memory>
#include <string>

namespace VirtualUnit
{

/// The ports of a unit, and what goes over them.
///
/// Calling threads: one, but for Traffic().
class ObservedPorts
{
public:
    /// What is told of a port; its listeners are added before the service of the port begins.
    PortTraffic& Traffic(const std::string& path) { return traffic[path]; }

    // Begin to serve a device at a path. The result belongs to this object. @throws std::system_error
    ServedSerialLine* Serve(const std::string& path, std::shared_ptr<SerialPeripheral> device);
    ServedDriver* Serve(const std::string& path, std::shared_ptr<MessagePeripheral> device);
    ServedDriver* Serve(const std::string& path, std::shared_ptr<I2cPeripheral> device);

    const DeviceTable& Devices() const { return devices; }

    void EndService() { devices.EndService(); } ///< what is under way has arrived then

private:
    template <class Served, class Device>
    Served* Watch(const std::string& path, const std::shared_ptr<Device>& device);

    std::map<std::string, PortTraffic> traffic; ///< by path
    DeviceTable devices;                        ///< ended before what its threads use
};

}

#endif

#ifndef VIRTUAL_UNIT_SERVEDSERIALLINE_H
#define VIRTUAL_UNIT_SERVEDSERIALLINE_H

#include "virtual-unit/SerialLine.h"
#include "virtual-unit/ServedDevice.h"
#include "virtual-unit/peripherals/SerialPeripheral.h"

#include <memory>
#include <string>

namespace VirtualUnit
{

/// A serial port with an emulated device behind it, which is switched on when the port is first opened. The
/// port is there as long as the device is connected.
class ServedSerialLine : public ServedDevice
{
public:
    ServedSerialLine(std::shared_ptr<SerialPeripheral> device, std::string description);

    int Open(int flags) override;

    bool Exists() const override { return peripheral->IsConnected(); }

    int Descriptor() const override { return line.ApplicationEnd(); }

    std::string Description() const override { return description; }

private:
    std::shared_ptr<SerialPeripheral> peripheral;
    SerialLine line;
    std::string description;
};

}

#endif

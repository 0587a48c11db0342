#ifndef VIRTUAL_UNIT_SERVEDSERIALLINE_H
#define VIRTUAL_UNIT_SERVEDSERIALLINE_H

#include "virtual-unit/SerialLine.h"
#include "virtual-unit/ServedDevice.h"
#include "virtual-unit/peripherals/SerialPeripheral.h"

#include <memory>
#include <string>

namespace VirtualUnit
{

/// A serial port with an emulated device behind it, which is switched on when the port is first opened.
class ServedSerialLine : public ServedDevice
{
public:
    ServedSerialLine(std::unique_ptr<SerialPeripheral> device, std::string description);

    int Open(int flags) override;

    int Descriptor() const override { return line.ApplicationEnd(); }

    std::string Description() const override { return description; }

private:
    std::unique_ptr<SerialPeripheral> peripheral;
    SerialLine line;
    std::string description;
};

}

#endif

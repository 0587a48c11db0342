#ifndef TESTS_VIRTUAL_UNIT_PORTS_EMULATEDLINE_H
#define TESTS_VIRTUAL_UNIT_PORTS_EMULATEDLINE_H

#include "tests/kit/Clock.h"
#include "virtual-unit/ports/SerialLine.h"

/// A serial line with an emulated device in a test with virtual time: the clock does not jump while bytes are
/// on their way between its ends. For the library, redirect the device's path to Path().
class EmulatedLine : public VirtualUnit::SerialLine
{
public:
    explicit EmulatedLine(VirtualUnit::SerialPeripheral& device)
        : SerialLine(device), deviceEnd(DeviceEnd()), applicationEnd(ApplicationEnd())
    {
        Kit::Clock::AddTerminal(deviceEnd);
        Kit::Clock::AddTerminal(applicationEnd);
    }

    ~EmulatedLine()
    {
        Kit::Clock::RemoveTerminal(deviceEnd);
        Kit::Clock::RemoveTerminal(applicationEnd);
    }

private:
    int deviceEnd;
    int applicationEnd;
};

#endif

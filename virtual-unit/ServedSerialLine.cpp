#include "virtual-unit/ServedSerialLine.h"

#include <utility>

namespace VirtualUnit
{

ServedSerialLine::ServedSerialLine(std::shared_ptr<SerialPeripheral> device, std::string theDescription)
    : peripheral(std::move(device)), line(*peripheral), description(std::move(theDescription))
{
}

int ServedSerialLine::Open(int flags)
{
    line.Start();
    return line.Open(flags);
}

}

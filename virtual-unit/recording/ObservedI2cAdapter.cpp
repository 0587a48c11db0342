#include "virtual-unit/recording/ObservedI2cAdapter.h"

#include "virtual-unit/recording/RequestText.h"

#include <cstddef>
#include <string>

namespace VirtualUnit
{

int ObservedI2cAdapter::Select(std::uint64_t address, bool force, TimePoint now)
{
    const int error = adapter->Select(address, force, now);
    if (error != 0 || selected != address)
    {
        const std::string request = RequestText::OfSelection(address, force);
        observer.Answered(request, RequestText::Encode(request, {-error, {}}), now);
    }
    if (error == 0)
    {
        selected = address;
    }
    return error;
}

int ObservedI2cAdapter::Transfer(unsigned char direction, unsigned char reg, std::uint32_t type,
                                 i2c_smbus_data& data, TimePoint now)
{
    const auto slave = static_cast<unsigned char>(selected.value_or(0));
    const std::string request = RequestText::OfTransfer(slave, direction, reg, type, data);
    const std::size_t count = Count(direction, type, data);
    const int error = adapter->Transfer(direction, reg, type, data, now);
    const RequestText::Outcome outcome = RequestText::Given(direction, type, count, data, error);
    observer.Answered(request, RequestText::Encode(request, outcome), now);
    return error;
}

}

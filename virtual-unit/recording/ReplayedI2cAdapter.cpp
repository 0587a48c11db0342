#include "virtual-unit/recording/ReplayedI2cAdapter.h"

#include "virtual-unit/recording/RequestText.h"

#include <algorithm>
#include <cstring>

namespace VirtualUnit
{

ReplayedI2cAdapter::ReplayedI2cAdapter(const PortRecording& recording, Differences& differences)
    : requests(recording, differences)
{
    const auto found = std::ranges::find(recording.entries, PortEntry::Kind::Requests, &PortEntry::kind);
    firstRecorded = found != recording.entries.end() ? found->at : firstRecorded;
}

int ReplayedI2cAdapter::Select(std::uint64_t address, bool force, TimePoint now)
{
    const std::string request = RequestText::OfSelection(address, force);
    if (selected == address && !requests.Expects(request))
    {
        return 0;
    }
    const std::string answer = requests.Answer(request, RecordedTime(now));
    const int error = -RequestText::Decode(request, answer).value().result;
    if (error == 0)
    {
        selected = address;
    }
    return error;
}

int ReplayedI2cAdapter::Transfer(unsigned char direction, unsigned char reg, std::uint32_t type,
                                 i2c_smbus_data& data, TimePoint now)
{
    const auto slave = static_cast<unsigned char>(selected.value_or(0));
    const std::string request = RequestText::OfTransfer(slave, direction, reg, type, data);
    const std::string answer = requests.Answer(request, RecordedTime(now));
    const RequestText::Outcome outcome = RequestText::Decode(request, answer).value();
    std::memcpy(&data, outcome.stored.data(), std::min(outcome.stored.size(), sizeof(data)));
    return -outcome.result;
}

std::chrono::microseconds ReplayedI2cAdapter::RecordedTime(TimePoint now)
{
    first = first.value_or(now);
    return firstRecorded + std::chrono::duration_cast<std::chrono::microseconds>(now - *first);
}

}

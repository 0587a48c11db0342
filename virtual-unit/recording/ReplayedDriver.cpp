#include "virtual-unit/recording/ReplayedDriver.h"

#include "virtual-unit/recording/RequestText.h"

#include <string>

namespace VirtualUnit
{

int ReplayedDriver::Receive(std::string_view message, TimePoint now)
{
    traffic.SentMessage(message, now);
    return 0;
}

int ReplayedDriver::Answer(const Ioctl& call, TimePoint now)
{
    Advance(now);
    const std::string request = RequestText::Of(call);
    const std::string answer = requests.Answer(request, traffic.RecordedTime(now));
    const RequestText::Outcome outcome = RequestText::Decode(request, answer).value();
    const std::string& stored = outcome.stored;
    const int error = stored.empty() ? 0 : call.memory.Write(call.argument, stored.data(), stored.size());
    return error != 0 ? -error : outcome.result;
}

void ReplayedDriver::Finish()
{
    traffic.Finish();
    requests.Finish();
}

}

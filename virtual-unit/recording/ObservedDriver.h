#ifndef VIRTUAL_UNIT_RECORDING_OBSERVEDDRIVER_H
#define VIRTUAL_UNIT_RECORDING_OBSERVEDDRIVER_H

#include "virtual-unit/peripherals/MessagePeripheral.h"
#include "virtual-unit/recording/Observed.h"
#include "virtual-unit/recording/RequestText.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace VirtualUnit
{

/// A device with messages and ioctls, with an observer that is told both; requests are those of RequestText.
class ObservedDriver : public Observed<MessagePeripheral>
{
public:
    /// @param theObserver stays the caller's and outlives this object
    /// @param now a device that is not there is told as unplugged at that time
    ObservedDriver(std::shared_ptr<MessagePeripheral> theDevice, PortObserver& theObserver, TimePoint now)
        : Observed(std::move(theDevice), theObserver, now)
    {
    }

    bool CanBePulledOut() const override { return Device().CanBePulledOut(); }

    int Receive(std::string_view message, TimePoint now) override
    {
        Elapse(now);
        Observer().Sent(message, now);
        return Device().Receive(message, now);
    }

    int Answer(const Ioctl& call, TimePoint now) override
    {
        Elapse(now);
        const std::string request = RequestText::Of(call);
        const int result = Device().Answer(call, now);
        const std::string answer = RequestText::Encode(request, RequestText::Given(call, result));
        Observer().Answered(request, answer, now);
        return result;
    }
};

}

#endif

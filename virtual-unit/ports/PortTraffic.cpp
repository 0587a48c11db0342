#include "virtual-unit/ports/PortTraffic.h"

namespace VirtualUnit
{

void PortTraffic::Tell(PortObserver& listener)
{
    const std::lock_guard lock(access);
    listeners.push_back(&listener);
}

void PortTraffic::Sent(std::string_view bytes, TimePoint at)
{
    const std::lock_guard lock(access);
    for (PortObserver* const listener : listeners)
    {
        listener->Sent(bytes, at);
    }
}

void PortTraffic::Received(std::string_view bytes, TimePoint at)
{
    const std::lock_guard lock(access);
    for (PortObserver* const listener : listeners)
    {
        listener->Received(bytes, at);
    }
}

void PortTraffic::Answered(const std::string& request, const std::string& answer, TimePoint at)
{
    const std::lock_guard lock(access);
    for (PortObserver* const listener : listeners)
    {
        listener->Answered(request, answer, at);
    }
}

void PortTraffic::Happened(const std::string& event, TimePoint at)
{
    const std::lock_guard lock(access);
    for (PortObserver* const listener : listeners)
    {
        listener->Happened(event, at);
    }
}

}

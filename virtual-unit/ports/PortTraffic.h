#ifndef VIRTUAL_UNIT_PORTS_PORTTRAFFIC_H
#define VIRTUAL_UNIT_PORTS_PORTTRAFFIC_H

#include "base/ThreadSafety.h"
#include "virtual-unit/ports/PortObserver.h"

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/// Hands what goes over a port on to everybody who wants to know. Calling threads: any.
class PortTraffic : public PortObserver
{
public:
    void Tell(PortObserver& listener); ///< from now on; it stays the caller's and outlives this object

    void Sent(std::string_view bytes, TimePoint at) override;
    void Received(std::string_view bytes, TimePoint at) override;
    void Answered(const std::string& request, const std::string& answer, TimePoint at) override;
    void Happened(const std::string& event, TimePoint at) override;

private:
    std::mutex access;
    std::vector<PortObserver*> listeners TAV_GUARDED_BY(access);
};

}

#endif

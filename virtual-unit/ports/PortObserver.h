#ifndef VIRTUAL_UNIT_PORTS_PORTOBSERVER_H
#define VIRTUAL_UNIT_PORTS_PORTOBSERVER_H

#include <chrono>
#include <string>
#include <string_view>

namespace VirtualUnit
{

/**
 * Is told what goes over one port of the unit, as it happens.
 *
 * Calling threads: the one that carries the traffic, under the lock of its device; one call at a time for
 * each port. It must return quickly and must not touch the device.
 */
class PortObserver
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~PortObserver() = default;

    virtual void Sent(std::string_view bytes, TimePoint at) = 0;     ///< by the application, to the device
    virtual void Received(std::string_view bytes, TimePoint at) = 0; ///< by the application, from the device

    /// An ioctl and its answer, as text for people: "pin 103 = 1" and "0".
    virtual void Answered(const std::string& request, const std::string& answer, TimePoint at) = 0;

    virtual void Happened(const std::string& event,
                          TimePoint at) = 0; ///< "opened", "unplugged", "plugged in"
};

}

#endif

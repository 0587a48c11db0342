#ifndef VIRTUAL_UNIT_PERIPHERALS_MESSAGEPERIPHERAL_H
#define VIRTUAL_UNIT_PERIPHERALS_MESSAGEPERIPHERAL_H

#include "virtual-unit/peripherals/IoctlPeripheral.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated device whose reads and writes carry whole messages.
 *
 * Whoever hosts it hands over what the application wrote, calls Advance() at the latest at NextDeadline(),
 * and lets each message of TakeOutput() be one read of the application.
 */
class MessagePeripheral : public IoctlPeripheral
{
public:
    virtual int Receive(std::string_view message, TimePoint now) = 0; ///< one write @return 0 or an errno

    /// When the device has something to do next without being spoken to; none: never.
    virtual std::optional<TimePoint> NextDeadline() const { return std::nullopt; }

    virtual void Advance(TimePoint now)
    {
        static_cast<void>(now);
    } ///< does what is due; times must not go back

    virtual std::vector<std::string> TakeOutput() = 0; ///< the messages since the last call, oldest first

    virtual bool IsConnected() const { return true; } ///< false: its host hangs up

    /// true: it is there for a new host, also when it has been away and its former host is hung up.
    virtual bool IsPlugged() const { return IsConnected(); }

    /// true: it may be pulled out while it is open, and writes then fail with ENODEV.
    virtual bool CanBePulledOut() const { return false; }

    /// @param wake makes the host look at the device anew, from any thread and without waiting; empty: the
    ///             host is gone. One host at a time.
    virtual void Attach(const std::function<void()>& /*wake*/) {}
};

}

#endif

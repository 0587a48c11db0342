#ifndef VIRTUAL_UNIT_PERIPHERALS_SERIALPERIPHERAL_H
#define VIRTUAL_UNIT_PERIPHERALS_SERIALPERIPHERAL_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated device at the far end of a serial line: bytes in, bytes out, and a clock that it is given.
 *
 * It knows nothing of how it is reached, starts no thread and never waits. Whoever hosts it hands over what
 * the application sent, calls Advance() at the latest at NextDeadline(), and delivers what TakeOutput()
 * returns. The first call that gives a time switches the device on at that time.
 *
 * Threads: none of its own and no lock; the host sees to it that one call is made at a time.
 */
class SerialPeripheral
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~SerialPeripheral() = default;

    virtual void Receive(std::string_view bytes, TimePoint now) = 0; ///< bytes that the application sent

    /// When the device has something to do next without being spoken to; none: never, or not switched on.
    virtual std::optional<TimePoint> NextDeadline() const = 0;

    virtual void Advance(TimePoint now) = 0; ///< does what is due; times must not go back

    /// What the device has sent since the last call, in the pieces that reach the application separately.
    virtual std::vector<std::string> TakeOutput() = 0;

    /// false: it has been pulled out, and its host hangs the line up.
    virtual bool IsConnected() const { return true; }

    /// true: it is there for a new host, also when it has been away and its former host is hung up.
    virtual bool IsPlugged() const { return IsConnected(); }

    /// false: the line to it is stuck, and its host keeps what the application sends.
    virtual bool TakesOutput() const { return true; }

    /**
     * For a device in which something can happen otherwise than by its host's calls.
     * @param wake makes the host look at the device anew, from any thread and without waiting; empty: the
     *             host is gone. One host at a time.
     */
    virtual void Attach(const std::function<void()>& /*wake*/) {}
};

}

#endif

#ifndef VIRTUAL_UNIT_PERIPHERALS_IOCTLPERIPHERAL_H
#define VIRTUAL_UNIT_PERIPHERALS_IOCTLPERIPHERAL_H

#include "virtual-unit/peripherals/CallerMemory.h"

#include <chrono>
#include <cstdint>

namespace VirtualUnit
{

/**
 * An emulated device that is driven by ioctls, together with its driver.
 *
 * It knows nothing of how it is reached, starts no thread and never waits.
 *
 * Threads: none of its own and no lock; the host sees to it that one call is made at a time.
 */
class IoctlPeripheral
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Ioctl
    {
        unsigned long request = 0;
        std::uint64_t argument = 0; ///< a number, or an address in the caller's memory
        CallerMemory& memory;
    };

    virtual ~IoctlPeripheral() = default;

    /// @return what the ioctl returns, 0 or more; below 0: a negated errno. Times must not go back.
    virtual int Answer(const Ioctl& call, TimePoint now) = 0;

    /// How long an ioctl with that result takes its caller.
    virtual std::chrono::milliseconds Takes(int result) const
    {
        static_cast<void>(result);
        return std::chrono::milliseconds(0);
    }
};

}

#endif

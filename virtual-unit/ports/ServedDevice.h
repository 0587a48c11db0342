#ifndef VIRTUAL_UNIT_PORTS_SERVEDDEVICE_H
#define VIRTUAL_UNIT_PORTS_SERVEDDEVICE_H

#include "virtual-unit/peripherals/CallerMemory.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <sys/stat.h>

namespace VirtualUnit
{

/// A device file of the unit as the supervisor serves it.
class ServedDevice
{
public:
    virtual ~ServedDevice() = default;

    /**
     * Opens the device anew, for the application.
     * @param flags of the application's open(), without those that create a file
     * @return a descriptor, the caller's to close; -1 and errno on failure
     */
    virtual int Open(int flags) = 0;

    /// What an ioctl returns, or below 0 a negated errno, and when: so long after it was made.
    struct IoctlResult
    {
        int value = 0;
        std::chrono::milliseconds takes{0};
        bool again = false; ///< there is no result yet: the ioctl is looked at anew then
    };

    /**
     * Answers an ioctl on a descriptor of the device.
     * @param memory of the process that makes it
     * @return none: the kernel carries it out
     */
    virtual std::optional<IoctlResult> Ioctl(unsigned long request, std::uint64_t argument,
                                             CallerMemory& memory)
    {
        static_cast<void>(request);
        static_cast<void>(argument);
        static_cast<void>(memory);
        return std::nullopt;
    }

    /// It has something to say about writes: see WriteError().
    virtual bool HoldsWrites() const { return false; }

    /**
     * @param opened the status of a descriptor that a process writes to
     * @return the errno that the write fails with, when it is of a node of this device that has gone;
     * otherwise 0
     */
    virtual int WriteError(const struct stat& opened)
    {
        static_cast<void>(opened);
        return 0;
    }

    /// How many of the numbers that end its path the device has to leave out: a program that holds the node
    /// of a device that was pulled out keeps its number.
    virtual unsigned int Node() { return 0; }

    virtual bool Exists() const { return true; } ///< false: it has been pulled out, there is no such file

    /// The supervisor's own descriptor of the device; its status (fstat) is what stat() of the path tells.
    virtual int Descriptor() const = 0;
};

}

#endif

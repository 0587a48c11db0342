#ifndef VIRTUAL_UNIT_CALLS_CALLSOURCE_H
#define VIRTUAL_UNIT_CALLS_CALLSOURCE_H

#include "virtual-unit/calls/Answer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

namespace VirtualUnit
{

/// A system call of the application that waits for its answer.
struct WaitingCall
{
    std::uint64_t id = 0; ///< the source's own
    pid_t thread = 0;     ///< or its process
    int number = -1;      ///< of the system call, on this architecture
    std::array<std::uint64_t, 6> arguments{};
    bool byChild = false; ///< it is a child of the caller that will make it
};

/// The way by which system calls of the application reach the supervisor, and their answers the application.
class CallSource
{
public:
    virtual ~CallSource() = default;

    virtual int Descriptor() const = 0; ///< readable when Next() has something to do

    /// @return the next call, if one has arrived; it is answered by Respond(), at any time, or forgotten
    virtual std::optional<WaitingCall> Next() = 0;

    virtual bool StillWaits(const WaitingCall& call) = 0; ///< false: the caller is gone

    /**
     * Reads a zero-terminated path.
     * @return 0; EFAULT when it does not lie in the caller's memory; ENAMETOOLONG when it is longer than the
     *         kernel takes; EPERM when the process does not let itself be read; ESRCH when it is gone
     */
    virtual int ReadPath(const WaitingCall& call, std::uint64_t address, std::string& path) = 0;

    /// @return 0 or an errno
    virtual int Read(const WaitingCall& call, std::uint64_t address, void* data, std::size_t size) = 0;
    virtual int Write(const WaitingCall& call, std::uint64_t address, const void* data, std::size_t size) = 0;

    /// @param answer one that is given now: not Type::Again, nor Type::None; its descriptor is closed
    /// @throws std::system_error when the kernel lacks what is needed
    virtual void Respond(const WaitingCall& call, const Answer& answer) = 0;

    /**
     * The caller is about to execute a program.
     * @param path absolute
     * @return why calls of the program would not arrive here, for people; none: they will, or nobody knows
     */
    virtual std::optional<std::string> WhyOutOfReach(const std::string& path)
    {
        static_cast<void>(path);
        return std::nullopt;
    }
};

}

#endif

#ifndef VIRTUAL_UNIT_PERIPHERALS_CALLERMEMORY_H
#define VIRTUAL_UNIT_PERIPHERALS_CALLERMEMORY_H

#include <cstddef>
#include <cstdint>

namespace VirtualUnit
{

/// The memory of the process that makes a call, which may be this one or another.
class CallerMemory
{
public:
    virtual ~CallerMemory() = default;

    virtual int Read(std::uint64_t address, void* data, std::size_t size) = 0; ///< @return 0 or an errno
    virtual int Write(std::uint64_t address, const void* data,
                      std::size_t size) = 0; ///< @return 0 or an errno
};

}

#endif

#ifndef TESTS_VIRTUAL_UNIT_OWNMEMORY_H
#define TESTS_VIRTUAL_UNIT_OWNMEMORY_H

#include "virtual-unit/peripherals/CallerMemory.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// The memory of this process. Only the null page cannot be read or written.
class OwnMemory : public VirtualUnit::CallerMemory
{
public:
    int Read(std::uint64_t address, void* data, std::size_t size) override
    {
        return address == 0 ? EFAULT : Copy(data, reinterpret_cast<const void*>(address), size);
    }

    int Write(std::uint64_t address, const void* data, std::size_t size) override
    {
        return address == 0 ? EFAULT : Copy(reinterpret_cast<void*>(address), data, size);
    }

private:
    static int Copy(void* to, const void* from, std::size_t size)
    {
        std::memcpy(to, from, size);
        return 0;
    }
};

#endif

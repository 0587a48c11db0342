#ifndef VIRTUAL_UNIT_RECORDING_DIFFERENCES_H
#define VIRTUAL_UNIT_RECORDING_DIFFERENCES_H

#include "virtual-unit/recording/Difference.h"

#include <cstddef>
#include <mutex>
#include <optional>

namespace VirtualUnit
{

/// The differences of all ports of a run: the first one, and how many there are. Calling threads: any.
class Differences
{
public:
    void Add(const Difference& difference)
    {
        const std::lock_guard lock(access);
        first = first.value_or(difference);
        ++count;
    }

    std::optional<Difference> First() const
    {
        const std::lock_guard lock(access);
        return first;
    }

    std::size_t Count() const
    {
        const std::lock_guard lock(access);
        return count;
    }

private:
    mutable std::mutex access; ///< guards everything below
    std::optional<Difference> first;
    std::size_t count = 0;
};

}

#endif

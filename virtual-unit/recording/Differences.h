#ifndef VIRTUAL_UNIT_RECORDING_DIFFERENCES_H
#define VIRTUAL_UNIT_RECORDING_DIFFERENCES_H

#include "virtual-unit/recording/Difference.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

namespace VirtualUnit
{

/// The differences of all ports of a run: the first one, and how many there are. Calling threads: any.
class Differences
{
public:
    /// @param comparedUntil what came later in the recording is no difference; none: everything counts
    /// @param tell is called with the first difference, at once, on the thread that finds it
    explicit Differences(
        std::optional<std::chrono::microseconds> comparedUntil = std::nullopt,
        std::function<void(const Difference& first)> tell = [](const Difference&) {})
        : end(comparedUntil), tellFirst(std::move(tell))
    {
    }

    /// @param at what time the recording had, or the run, whichever is later
    void Add(const Difference& difference, std::chrono::microseconds at)
    {
        if (!Counts(at))
        {
            return;
        }
        bool isFirst = false;
        {
            const std::lock_guard lock(access);
            isFirst = !first;
            first = first.value_or(difference);
            ++count;
        }
        if (isFirst)
        {
            tellFirst(difference);
        }
    }

    /// What happens at that time, since the run began, is compared.
    bool Counts(std::chrono::microseconds at) const { return !end || at < *end; }

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
    const std::optional<std::chrono::microseconds> end;
    const std::function<void(const Difference&)> tellFirst;
    mutable std::mutex access; ///< guards what follows
    std::optional<Difference> first;
    std::size_t count = 0;
};

}

#endif

#ifndef VIRTUAL_UNIT_RECORDING_DIFFERENCES_H
#define VIRTUAL_UNIT_RECORDING_DIFFERENCES_H

#include "base/ThreadSafety.h"
#include "virtual-unit/recording/Difference.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

namespace VirtualUnit
{

/// The differences of all ports of a run: each is told, the first one and their number are kept. Calling
/// threads: any.
class Differences
{
public:
    /// @param comparedUntil what came later in the recording is no difference; none: everything counts
    /// Is told of a difference and when it was: what time the recording had, or the run, whichever is later.
    using Tell = std::function<void(const Difference& difference, std::chrono::microseconds at, bool first)>;

    /// @param tellOfEach is called at once, on the thread that finds it; one call at a time
    explicit Differences(
        std::optional<std::chrono::microseconds> comparedUntil = std::nullopt,
        Tell tellOfEach = [](const Difference&, std::chrono::microseconds, bool) {})
        : end(comparedUntil), tell(std::move(tellOfEach))
    {
    }

    void Add(const Difference& difference, std::chrono::microseconds at)
    {
        if (!Counts(at))
        {
            return;
        }
        const std::lock_guard lock(access);
        const bool isFirst = !first;
        first = first.value_or(difference);
        ++count;
        tell(difference, at, isFirst);
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
    const Tell tell;
    mutable std::mutex access; ///< guards what follows
    std::optional<Difference> first TAV_GUARDED_BY(access);
    std::size_t count TAV_GUARDED_BY(access) = 0;
};

}

#endif

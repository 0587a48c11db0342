#ifndef VIRTUAL_UNIT_COMMON_DEADLINE_H
#define VIRTUAL_UNIT_COMMON_DEADLINE_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>

namespace VirtualUnit
{

/// The time-out for poll() that ends at a deadline, rounded up to whole milliseconds; without one: no end.
inline int MillisecondsUntil(const std::optional<std::chrono::steady_clock::time_point>& deadline)
{
    constexpr int WITHOUT_END = -1;
    if (!deadline)
    {
        return WITHOUT_END;
    }
    const auto rest =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(rest.count(), 0, std::numeric_limits<int>::max()));
}

}

#endif

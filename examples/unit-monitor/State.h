#ifndef EXAMPLES_UNIT_MONITOR_STATE_H
#define EXAMPLES_UNIT_MONITOR_STATE_H

#include "examples/unit-monitor/Snapshot.h"

#include <mutex>
#include <utility>

namespace UnitMonitor
{

/// What the parts of the monitor know of the unit, shared by all its threads.
class State
{
public:
    /// Runs `change(Snapshot&)` while nobody else reads or changes it; nothing is to be waited for in there.
    template <class Change>
    void Set(Change&& change)
    {
        const std::scoped_lock lock(access);
        std::forward<Change>(change)(present);
    }

    Snapshot Get() const
    {
        const std::scoped_lock lock(access);
        return present;
    }

    /// Reads a part, by `part(const Snapshot&)`.
    template <class Part>
    auto Get(Part&& part) const
    {
        const std::scoped_lock lock(access);
        return std::forward<Part>(part)(present);
    }

private:
    mutable std::mutex access;
    Snapshot present;
};

}

#endif

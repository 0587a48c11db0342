#ifndef VIRTUAL_UNIT_PERIPHERALS_CARDSLOT_H
#define VIRTUAL_UNIT_PERIPHERALS_CARDSLOT_H

#include "base/ThreadSafety.h"

#include <chrono>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/// How the storage card is, whatever is on it, and what became of it. Calling threads: any.
class CardSlot
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Condition
    {
        bool mounted = true;
        bool out = false;                  ///< pulled out: what is on it cannot be reached (EIO)
        bool readOnly = false;             ///< nothing on it can be changed (EROFS)
        bool full = false;                 ///< nothing on it can be made or grow (ENOSPC)
        bool busy = false;                 ///< it cannot be unmounted (EBUSY)
        std::chrono::milliseconds slow{0}; ///< so long each call takes that names a path on it
    };

    struct Event
    {
        TimePoint at;
        std::string text; ///< for people: "card unmounted"
    };

    // Set before the program begins.
    bool losesUnsynced = false; ///< with the power, what was not synced is gone
    bool mayBecomeFull = false; ///< what is opened to write is watched from the begin

    Condition Present() const
    {
        const std::lock_guard lock(access);
        return condition;
    }

    /// Runs `function(Condition&)`.
    template <class Function>
    void Change(Function&& function)
    {
        const std::lock_guard lock(access);
        std::forward<Function>(function)(condition);
    }

    void Tell(const std::string& text, TimePoint at)
    {
        const std::lock_guard lock(access);
        events.push_back({at, text});
    }

    std::vector<Event> History() const ///< all that was told, oldest first
    {
        const std::lock_guard lock(access);
        return events;
    }

private:
    mutable std::mutex access;
    Condition condition TAV_GUARDED_BY(access);
    std::vector<Event> events TAV_GUARDED_BY(access);
};

}

#endif

#ifndef VIRTUAL_UNIT_SCRIPT_PINHISTORY_H
#define VIRTUAL_UNIT_SCRIPT_PINHISTORY_H

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>

namespace VirtualUnit
{

/// How the pins were driven: the latest changes, and how the pins were before them.
class PinHistory
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Change
    {
        TimePoint at;
        unsigned int pin = 0;
        unsigned int value = 0;
    };

    void Add(const Change& change);

    /// Looks for the moment at which a pin has a value, from `since` on and behind what was found before.
    /// @return when it was driven so; none: it has not been
    std::optional<TimePoint> Take(unsigned int pin, unsigned int value, TimePoint since);

    std::optional<Change> Latest(unsigned int pin) const; ///< none: it was never driven

private:
    std::map<unsigned int, Change> before; ///< what was found, and what is forgotten
    std::deque<Change> changes;
    std::map<unsigned int, Change> latest;
};

}

#endif

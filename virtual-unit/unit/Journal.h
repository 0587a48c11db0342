#ifndef VIRTUAL_UNIT_UNIT_JOURNAL_H
#define VIRTUAL_UNIT_UNIT_JOURNAL_H

#include "virtual-unit/peripherals/BuzzerBoard.h"
#include "virtual-unit/peripherals/CardSlot.h"
#include "virtual-unit/peripherals/EventDriver.h"
#include "virtual-unit/peripherals/HidBridge.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// What the application had the unit's outputs do, in the order of time, for people and for tests.
class Journal
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// @param start times are told from there
    explicit Journal(TimePoint start) : begin(start) {}

    void Add(EventDriver& driver);                      ///< each pin when it changed, and the first write
    void Add(const std::string& name, SoundChip& chip); ///< each note and pause
    void Add(const BuzzerBoard& board);                 ///< each buzz

    void Add(const CardSlot& slot); ///< what became of the storage card

    /// Writes one line for each, "    1.234 s  pin 103 = 1 (left LED green)". @return 0 or an errno
    int Write(std::FILE* file) const;

private:
    struct Entry
    {
        TimePoint at;
        std::string text;
    };

    TimePoint begin;
    std::vector<Entry> entries;
};

}

#endif

#ifndef VIRTUAL_UNIT_RECORDING_PORTRECORDING_H
#define VIRTUAL_UNIT_RECORDING_PORTRECORDING_H

#include "virtual-unit/recording/PortEntry.h"

#include <chrono>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// What went over one port of the unit.
struct PortRecording
{
    /// The device came to the port, or left it.
    struct PresenceChange
    {
        std::chrono::microseconds at{0}; ///< since the run began
        bool there = false;

        bool operator==(const PresenceChange&) const = default;
    };

    std::vector<PresenceChange> PresenceChanges() const ///< in order; at first the device is there
    {
        std::vector<PresenceChange> changes;
        for (const PortEntry& entry : entries)
        {
            const bool there = entry.IsEvent(PortEntry::PLUGGED_IN);
            if (there || entry.IsEvent(PortEntry::UNPLUGGED))
            {
                changes.push_back({entry.at, there});
            }
        }
        return changes;
    }

    /// The program was sent a signal.
    struct Signal
    {
        std::chrono::microseconds at{0}; ///< since the run began
        int number = 0;
    };

    std::vector<Signal> Signals() const ///< in order
    {
        std::vector<Signal> signals;
        for (const PortEntry& entry : entries)
        {
            if (entry.kind == PortEntry::Kind::Event && entry.bytes.starts_with(PortEntry::SIGNAL))
            {
                signals.push_back({entry.at, std::stoi(entry.bytes.substr(PortEntry::SIGNAL.size()))});
            }
        }
        return signals;
    }

    /// What the program is sent is recorded like a port of this name.
    static constexpr const char* PROGRAM = "program";

    std::string port; ///< "/dev/ttymxc2"
    std::vector<PortEntry> entries;
};

}

#endif

#ifndef VIRTUAL_UNIT_RECORDING_REQUESTRUNS_H
#define VIRTUAL_UNIT_RECORDING_REQUESTRUNS_H

#include "virtual-unit/recording/PortEntry.h"

#include <chrono>
#include <optional>
#include <vector>

namespace VirtualUnit
{

/**
 * Makes entries of the requests of one channel: of equal ones that follow each other, and of up to
 * PortEntry::MOST_TURNS that take turns (twice at least), it makes one entry. An entry is given out when it
 * is certain that it is complete; a few requests are kept for that reason, and a repetition until another
 * request ends it.
 */
class RequestRuns
{
public:
    /// @return the entries that are complete by that, oldest first
    std::vector<PortEntry> Add(const PortEntry::Exchange& exchange, std::chrono::microseconds at);

    std::vector<PortEntry> Flush(); ///< the rest

private:
    std::vector<PortEntry> Collect(const PortEntry& single);

    std::optional<PortEntry> run;
    std::vector<PortEntry> singles; ///< of which a run may become; none while there is one
};

}

#endif

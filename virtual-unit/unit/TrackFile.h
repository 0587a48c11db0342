#ifndef VIRTUAL_UNIT_UNIT_TRACKFILE_H
#define VIRTUAL_UNIT_UNIT_TRACKFILE_H

#include "virtual-unit/peripherals/Drive.h"

#include <chrono>
#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace VirtualUnit
{

/**
 * A recorded drive, as text: GPX 1.1 (the points of all tracks and segments in their order; those without a
 * time are passed over; speed in metres per second, beside the time or in its extensions), or CSV with the
 * columns time, latitude, longitude and, if it likes, speed in kilometres per hour. A CSV time is a moment of
 * ISO 8601, or a number of seconds, which are counted from that of the first row on.
 */
struct TrackFile
{
    /// When the drive begins, UTC, in whole seconds; none: its times are no dates.
    std::optional<std::chrono::sys_seconds> begin;
    std::vector<Drive::Fix> fixes; ///< at least one; seconds since the begin

    static TrackFile Parse(std::istream& text);     ///< @throws Values::Wrong
    static TrackFile Read(const std::string& path); ///< @throws Values::Wrong
};

}

#endif

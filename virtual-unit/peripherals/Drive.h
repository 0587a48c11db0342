#ifndef VIRTUAL_UNIT_PERIPHERALS_DRIVE_H
#define VIRTUAL_UNIT_PERIPHERALS_DRIVE_H

#include "virtual-unit/peripherals/Track.h"

#include <optional>
#include <vector>

namespace VirtualUnit
{

/**
 * A drive that was recorded: where a vehicle was at which time, and how fast.
 *
 * Between two fixes position and speed change evenly, and the course turns evenly from that of one fix to
 * that of the next, which lies between the directions in which the vehicle came and went on. Before the first
 * fix it stands there; behind the last one it has that fix's speed and course for good, at its place.
 */
class Drive
{
public:
    struct Fix
    {
        double seconds;                        ///< since the drive began, 0 or more
        double latitude;                       ///< degrees, north positive
        double longitude;                      ///< degrees, east positive
        std::optional<double> metresPerSecond; ///< none: as the places tell
    };

    struct Moment
    {
        Track::Point point;
        double ahead; ///< acceleration in the direction of the course, g
        double right; ///< and across it, g: in a right-hand bend it is above 0
    };

    /// @param fixes at least one, each later than the one before
    explicit Drive(const std::vector<Fix>& fixes);

    double Seconds() const { return places.back().seconds; } ///< of the last fix

    Moment At(double seconds) const;

private:
    struct Place
    {
        double seconds;
        double latitude;
        double longitude;
        double metresPerSecond;
        double course; ///< degrees
    };

    std::vector<Place> places;
};

}

#endif

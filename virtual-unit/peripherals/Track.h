#ifndef VIRTUAL_UNIT_PERIPHERALS_TRACK_H
#define VIRTUAL_UNIT_PERIPHERALS_TRACK_H

#include <vector>

namespace VirtualUnit
{

/// A drive round a circuit of straight legs, again and again, with a steady speed on each leg.
class Track
{
public:
    /// A corner, and the speed on the leg that begins there.
    struct Waypoint
    {
        double latitude;          ///< degrees, north positive
        double longitude;         ///< degrees, east positive
        double kilometresPerHour; ///< above 0
    };

    struct Point
    {
        double latitude;  ///< degrees, north positive
        double longitude; ///< degrees, east positive
        double knots;     ///< speed over ground
        double course;    ///< degrees from true north, clockwise, 0 to below 360
    };

    Track(); ///< a made-up circuit of some five kilometres, with fast and slow legs

    /// @param corners at least two, no two alike in a row; the last leg leads back to the first corner
    explicit Track(const std::vector<Waypoint>& corners);

    Point At(double seconds) const; ///< where the drive is, `seconds` (0 or more) after its begin

private:
    struct Leg
    {
        Point begin;
        double latitudePerSecond;
        double longitudePerSecond;
        double seconds;
    };

    std::vector<Leg> legs;
    double lapSeconds = 0;
};

}

#endif

#ifndef VIRTUAL_UNIT_PERIPHERALS_GEOGRAPHY_H
#define VIRTUAL_UNIT_PERIPHERALS_GEOGRAPHY_H

#include <cmath>
#include <numbers>

/// Small ways on the earth, and their units.
namespace VirtualUnit::Geography
{

inline constexpr double METRES_PER_DEGREE = 1852.0 * 60.0; ///< of latitude: a sea mile is a minute
inline constexpr double METRES_PER_SECOND_PER_KNOT = 1852.0 / 3600.0;
inline constexpr double KILOMETRES_PER_HOUR_PER_METRE_PER_SECOND = 3.6;
inline constexpr double RADIANS = std::numbers::pi / 180.0; ///< of a degree
inline constexpr double FULL_TURN = 360.0;                  ///< degrees
inline constexpr double G = 9.80665;                        ///< metres per square second

inline double MetresPerDegreeOfLongitude(double latitude)
{
    return METRES_PER_DEGREE * std::cos(latitude * RADIANS);
}

inline double Normal(double course) ///< 0 to below 360 degrees
{
    const double rest = std::fmod(course, FULL_TURN);
    return rest < 0 ? rest + FULL_TURN : rest;
}

/// Of a way, in degrees from true north, clockwise, 0 to below 360.
inline double Course(double north, double east)
{
    return Normal(std::atan2(east, north) / RADIANS);
}

}

#endif

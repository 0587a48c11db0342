#include "virtual-unit/peripherals/Track.h"

#include "virtual-unit/peripherals/Geography.h"

#include <cmath>
#include <cstddef>

namespace VirtualUnit
{

namespace
{

constexpr double KNOTS_PER_KILOMETRE_PER_HOUR = 1.0 / 1.852;

}

Track::Track()
    : Track({{48.2036, 16.3702, 50.0},
             {48.2046, 16.3702, 50.0},
             {48.2079, 16.3748, 30.0},
             {48.2071, 16.3835, 70.0},
             {48.2012, 16.3864, 50.0},
             {48.1969, 16.3797, 20.0},
             {48.1974, 16.3731, 50.0}})
{
}

Track::Track(const std::vector<Waypoint>& corners)
{
    for (std::size_t i = 0; i < corners.size(); ++i)
    {
        const Waypoint& from = corners[i];
        const Waypoint& to = corners[(i + 1) % corners.size()];
        const double north = to.latitude - from.latitude;
        const double east = to.longitude - from.longitude;
        const double eastMetres = east * Geography::MetresPerDegreeOfLongitude(from.latitude);
        const double northMetres = north * Geography::METRES_PER_DEGREE;
        const double seconds = std::hypot(northMetres, eastMetres) / (from.kilometresPerHour / 3.6);
        legs.push_back({{from.latitude, from.longitude, from.kilometresPerHour * KNOTS_PER_KILOMETRE_PER_HOUR,
                         Geography::Course(northMetres, eastMetres)},
                        north / seconds,
                        east / seconds,
                        seconds});
        lapSeconds += seconds;
    }
}

Track::Point Track::At(double seconds) const
{
    double rest = std::fmod(seconds, lapSeconds);
    std::size_t i = 0;
    while (i + 1 < legs.size() && rest >= legs[i].seconds)
    {
        rest -= legs[i].seconds;
        ++i;
    }
    Point point = legs[i].begin;
    point.latitude += legs[i].latitudePerSecond * rest;
    point.longitude += legs[i].longitudePerSecond * rest;
    return point;
}

}

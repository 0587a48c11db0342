#include "virtual-unit/peripherals/Drive.h"

#include "virtual-unit/peripherals/Geography.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

namespace VirtualUnit
{

namespace
{

// Where a vehicle stands, what a receiver tells wanders about: such a step has no direction.
constexpr double SHORTEST_STEP = 0.5; // metres

/// From one fix to the next.
struct Step
{
    double seconds;
    double north; ///< metres
    double east;  ///< metres

    double Metres() const { return std::hypot(north, east); }

    bool HasDirection() const { return Metres() >= SHORTEST_STEP; }
};

Step Between(const Drive::Fix& from, const Drive::Fix& to)
{
    return {to.seconds - from.seconds, (to.latitude - from.latitude) * Geography::METRES_PER_DEGREE,
            (to.longitude - from.longitude) * Geography::MetresPerDegreeOfLongitude(from.latitude)};
}

double Mean(const std::vector<double>& values)
{
    double sum = 0;
    for (const double value : values)
    {
        sum += value;
    }
    return values.empty() ? 0 : sum / static_cast<double>(values.size());
}

}

Drive::Drive(const std::vector<Fix>& fixes)
{
    std::vector<Step> steps;
    for (std::size_t i = 0; i + 1 < fixes.size(); ++i)
    {
        steps.push_back(Between(fixes[i], fixes[i + 1]));
    }
    const auto first = std::ranges::find_if(steps, &Step::HasDirection);
    double course = first == steps.end() ? 0 : Geography::Course(first->north, first->east);
    for (std::size_t i = 0; i < fixes.size(); ++i)
    {
        double north = 0;
        double east = 0;
        std::vector<double> speeds;
        for (std::size_t j = i == 0 ? 0 : i - 1; j < std::min(i + 1, steps.size()); ++j)
        {
            speeds.push_back(steps[j].Metres() / steps[j].seconds);
            if (steps[j].HasDirection())
            {
                north += steps[j].north / steps[j].Metres();
                east += steps[j].east / steps[j].Metres();
            }
        }
        // Where it turns back on its own way, the two directions cancel each other out.
        constexpr double NO_DIRECTION = 1e-6;
        course = std::hypot(north, east) < NO_DIRECTION ? course : Geography::Course(north, east);
        const Fix& fix = fixes[i];
        places.push_back(
            {fix.seconds, fix.latitude, fix.longitude, fix.metresPerSecond.value_or(Mean(speeds)), course});
    }
}

Drive::Moment Drive::At(double seconds) const
{
    const auto next = std::ranges::upper_bound(places, seconds, {}, &Place::seconds);
    if (next == places.begin())
    {
        return {{next->latitude, next->longitude, 0, next->course}, 0, 0};
    }
    const Place& from = *std::prev(next);
    const double knots = from.metresPerSecond / Geography::METRES_PER_SECOND_PER_KNOT;
    if (next == places.end())
    {
        return {{from.latitude, from.longitude, knots, from.course}, 0, 0};
    }
    const double time = next->seconds - from.seconds;
    const double part = (seconds - from.seconds) / time;
    const auto between = [part](double begin, double end) { return begin + part * (end - begin); };
    const double turn = std::remainder(next->course - from.course, Geography::FULL_TURN);
    const double speed = between(from.metresPerSecond, next->metresPerSecond);
    return {{between(from.latitude, next->latitude), between(from.longitude, next->longitude),
             speed / Geography::METRES_PER_SECOND_PER_KNOT, Geography::Normal(from.course + part * turn)},
            (next->metresPerSecond - from.metresPerSecond) / time / Geography::G,
            speed * turn * Geography::RADIANS / time / Geography::G};
}

}

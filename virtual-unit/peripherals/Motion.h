#ifndef VIRTUAL_UNIT_PERIPHERALS_MOTION_H
#define VIRTUAL_UNIT_PERIPHERALS_MOTION_H

#include <chrono>
#include <functional>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/// What the unit is put through: the acceleration that an accelerometer in it feels, in g. X points ahead, Z
/// up: at rest gravity is felt as 1 g on Z.
class Motion
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Acceleration
    {
        double x = 0;
        double y = 0;
        double z = 0;
    };

    /// Half a sine wave, on top of what else is felt.
    struct Pulse
    {
        TimePoint start;
        std::chrono::milliseconds duration;
        Acceleration peak; ///< after half of the duration
    };

    explicit Motion(const Acceleration& feltAtRest = {0, 0, 1}) : atRest(feltAtRest) {}

    /// From now on that is felt in place of what is felt at rest. It is asked for any time, on the thread
    /// that asks for At().
    void Follow(std::function<Acceleration(TimePoint)> whatIsFelt) { followed = std::move(whatIsFelt); }

    void Add(const Pulse& pulse) { pulses.push_back(pulse); }

    void Bump(TimePoint at);  ///< a pothole: 80 ms, up to 1.2 g upwards. Nothing that a shock alarm is for
    void Crash(TimePoint at); ///< against an obstacle: 120 ms, up to 6 g backwards and 1.5 g sideways

    Acceleration At(TimePoint time) const;

private:
    Acceleration atRest;
    std::function<Acceleration(TimePoint)> followed; ///< empty: it rests
    std::vector<Pulse> pulses;
};

}

#endif

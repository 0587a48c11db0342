#include "virtual-unit/peripherals/Motion.h"

#include <cmath>
#include <numbers>

namespace VirtualUnit
{

void Motion::Bump(TimePoint at)
{
    Add({at, std::chrono::milliseconds(80), {0, 0, 1.2}});
}

void Motion::Crash(TimePoint at)
{
    Add({at, std::chrono::milliseconds(120), {-6.0, 1.5, 0}});
}

Motion::Acceleration Motion::At(TimePoint time) const
{
    using Seconds = std::chrono::duration<double>;
    Acceleration felt = followed ? followed(time) : atRest;
    for (const Pulse& pulse : pulses)
    {
        if (time < pulse.start || time >= pulse.start + pulse.duration)
        {
            continue;
        }
        const double part = Seconds(time - pulse.start) / Seconds(pulse.duration);
        const double strength = std::sin(part * std::numbers::pi);
        felt.x += strength * pulse.peak.x;
        felt.y += strength * pulse.peak.y;
        felt.z += strength * pulse.peak.z;
    }
    return felt;
}

}

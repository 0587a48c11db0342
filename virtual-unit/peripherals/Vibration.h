#ifndef VIRTUAL_UNIT_PERIPHERALS_VIBRATION_H
#define VIRTUAL_UNIT_PERIPHERALS_VIBRATION_H

#include "virtual-unit/peripherals/Motion.h"

#include <chrono>
#include <cstdint>

namespace VirtualUnit
{

/// How a vehicle shakes: an idling engine below 0.02 g, and the road, the more the faster, below 0.05 g at 50
/// kilometres an hour. The same seed shakes in the same way at the same time.
class Vibration
{
public:
    explicit Vibration(std::uint32_t itsSeed) : seed(itsSeed) {}

    Motion::Acceleration At(std::chrono::nanoseconds time, double metresPerSecond, bool engine) const;

private:
    double Noise(std::chrono::nanoseconds time, unsigned int axis) const;

    std::uint32_t seed;
};

}

#endif

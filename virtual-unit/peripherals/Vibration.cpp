#include "virtual-unit/peripherals/Vibration.h"

#include <cmath>
#include <numbers>

namespace VirtualUnit
{

namespace
{

constexpr double ENGINE = 0.015;      // g
constexpr double ENGINE_HERTZ = 26;   // four cylinders at 780 turns a minute
constexpr double ROAD = 0.0025;       // g for each metre per second
constexpr double ROAD_SIDEWAYS = 0.4; // part of that

/// All bits of a number, well mixed (the finalizer of SplitMix64).
std::uint64_t Mixed(std::uint64_t bits)
{
    bits += 0x9E3779B97F4A7C15;
    bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9;
    bits = (bits ^ bits >> 27) * 0x94D049BB133111EB;
    return bits ^ bits >> 31;
}

}

Motion::Acceleration Vibration::At(std::chrono::nanoseconds time, double metresPerSecond, bool engine) const
{
    const double seconds = std::chrono::duration<double>(time).count();
    const double stroke =
        engine ? ENGINE * std::sin(2 * std::numbers::pi * (ENGINE_HERTZ * seconds + Noise({}, 3))) : 0;
    const double road = ROAD * metresPerSecond;
    return {stroke / 2 + ROAD_SIDEWAYS * road * Noise(time, 0), ROAD_SIDEWAYS * road * Noise(time, 1),
            stroke + road * Noise(time, 2)};
}

/// From -1 to 1; each time and axis has one of its own, in whatever order they are asked for.
double Vibration::Noise(std::chrono::nanoseconds time, unsigned int axis) const
{
    constexpr unsigned int BITS = 53; // of a double
    const std::uint64_t value =
        Mixed(Mixed(static_cast<std::uint64_t>(seed) << 2 | axis) ^ static_cast<std::uint64_t>(time.count()));
    return std::ldexp(static_cast<double>(value >> (64 - BITS)), 1 - static_cast<int>(BITS)) - 1;
}

}

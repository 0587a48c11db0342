#include "examples/common/Sample.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Examples
{

namespace
{

using Tavdevice::ACC::AccDevice;

constexpr std::size_t AXES = 3;

/// A sample of 8 bits in two's complement, in g.
double InG(unsigned char sample, AccDevice::GForceScale scale)
{
    constexpr double STEPS = 128; // from zero to the full scale
    return static_cast<std::int8_t>(sample) * static_cast<double>(scale) / STEPS;
}

}

std::vector<Sample> Sample::Of(const TavubufferDynamic& batch, AccDevice::GForceScale scale)
{
    const std::span<const unsigned char> bytes(batch.data, static_cast<std::size_t>(batch.length));
    std::vector<Sample> samples;
    for (std::size_t i = 0; i + AXES <= bytes.size(); i += AXES)
    {
        samples.push_back({InG(bytes[i], scale), InG(bytes[i + 1], scale), InG(bytes[i + 2], scale)});
    }
    return samples;
}

double Sample::Magnitude() const
{
    return std::sqrt(x * x + y * y + z * z);
}

}

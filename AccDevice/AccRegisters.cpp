// The register operations of AccDevice.

#include "AccDevice/AccDevice.h"
#include "AccDevice/Mma8451q.h"

#include <array>
#include <cmath>
#include <cstddef>

namespace Tavdevice::ACC
{

namespace
{

using namespace Mma8451q;

/// TRANSIENT_THS for 0.1 g, 0.2 g, and so on. The steps are uneven, deliberately.
constexpr std::array<unsigned char, 20> THRESHOLDS = {2,  3,  5,  6,  8,  9,  11, 13, 14, 16,
                                                      18, 19, 21, 22, 24, 25, 27, 29, 30, 32};
constexpr unsigned char DEFAULT_THRESHOLD = 8;
constexpr int MILLI_G_STEP = 100;

/// Changes CTRL_REG1: keeps the bits of `mask`, adds `bits`.
bool Change(I2C::I2c& bus, unsigned char mask, unsigned char bits)
{
    const auto present = static_cast<unsigned char>(bus.ReadByte(CTRL_REG1)); // 0xFF after a failed read
    return bus.WriteByte(CTRL_REG1, static_cast<unsigned char>((present & mask) | bits));
}

constexpr unsigned char ALL = 0xFF;

unsigned char Without(unsigned char bits)
{
    return static_cast<unsigned char>(ALL & ~bits);
}

unsigned char Threshold(double g)
{
    const double milliG = std::trunc(g * 1000.0);
    for (std::size_t i = 0; i < THRESHOLDS.size(); ++i)
    {
        if (milliG == static_cast<double>((i + 1) * MILLI_G_STEP))
        {
            return THRESHOLDS[i];
        }
    }
    return DEFAULT_THRESHOLD;
}

}

bool AccDevice::MMA_StandBy(I2C::I2c& bus)
{
    return Change(bus, Without(ACTIVE), 0);
}

bool AccDevice::MMA_WakeUp(I2C::I2c& bus)
{
    return Change(bus, ALL, ACTIVE);
}

bool AccDevice::MMA_8BitsMode(I2C::I2c& bus)
{
    return Change(bus, ALL, FAST_READ);
}

bool AccDevice::MMA_ODR(I2C::I2c& bus, ODR rate)
{
    unsigned char bits = 0x00;
    switch (rate)
    {
    case ODR::Hz12_5:
        bits = 0x28;
        break;
    case ODR::Hz50:
        bits = 0x20;
        break;
    case ODR::Hz100:
        bits = 0x18;
        break;
    case ODR::Hz200:
        bits = 0x10;
        break;
    case ODR::Hz400:
        bits = 0x08;
        break;
    default: // 800 Hz
        break;
    }
    return Change(bus, Without(DATA_RATE), bits);
}

bool AccDevice::MMA_GForceScale(I2C::I2c& bus, GForceScale scale)
{
    switch (scale)
    {
    case GForceScale::Two:
        return bus.WriteByte(XYZ_DATA_CFG, 0x00);
    case GForceScale::Four:
        return bus.WriteByte(XYZ_DATA_CFG, 0x01);
    case GForceScale::Eight:
        return bus.WriteByte(XYZ_DATA_CFG, 0x02);
    }
    return false;
}

bool AccDevice::MMA_GForceThreshold(I2C::I2c& bus, double g)
{
    return bus.WriteByte(TRANSIENT_THS, Threshold(g));
}

}

#ifndef TESTS_VIRTUAL_UNIT_PERIPHERALS_ACCELEROMETERBENCH_H
#define TESTS_VIRTUAL_UNIT_PERIPHERALS_ACCELEROMETERBENCH_H

#include "virtual-unit/peripherals/Accelerometer.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

using namespace std::chrono_literals;
using namespace VirtualUnit;

using Bytes = I2cSlave::Bytes;

// The registers, by the names of the data sheet.
constexpr unsigned char STATUS = 0x00;
constexpr unsigned char OUT_X_MSB = 0x01;
constexpr unsigned char OUT_Y_MSB = 0x03;
constexpr unsigned char OUT_Z_MSB = 0x05;
constexpr unsigned char F_SETUP = 0x09;
constexpr unsigned char TRIG_CFG = 0x0A;
constexpr unsigned char SYSMOD = 0x0B;
constexpr unsigned char INT_SOURCE = 0x0C;
constexpr unsigned char WHO_AM_I = 0x0D;
constexpr unsigned char XYZ_DATA_CFG = 0x0E;
constexpr unsigned char HP_FILTER_CUTOFF = 0x0F;
constexpr unsigned char TRANSIENT_CFG = 0x1D;
constexpr unsigned char TRANSIENT_SRC = 0x1E;
constexpr unsigned char TRANSIENT_THS = 0x1F;
constexpr unsigned char TRANSIENT_COUNT = 0x20;
constexpr unsigned char CTRL_REG1 = 0x2A;
constexpr unsigned char CTRL_REG2 = 0x2B;
constexpr unsigned char CTRL_REG4 = 0x2D;

// CTRL_REG1
constexpr unsigned char ACTIVE = 0x01;
constexpr unsigned char F_READ = 0x02;
constexpr unsigned char HZ_100 = 0x18;

// INT_SOURCE, CTRL_REG4
constexpr unsigned char FIFO = 0x40;
constexpr unsigned char TRANSIENT = 0x20;
constexpr unsigned char DATA_READY = 0x01;

// F_SETUP
constexpr unsigned char CIRCULAR = 0x40;
constexpr unsigned char FILL = 0x80;
constexpr unsigned char TRIGGER = 0xC0;

/// 100 Hz: the period, and the time to the first sample.
constexpr std::chrono::milliseconds PERIOD = 10ms;
constexpr std::chrono::milliseconds TURN_ON = 21ms;

/// A chip and the time.
class AccelerometerTest : public testing::Test
{
protected:
    unsigned char Read(unsigned char reg) { return ReadBlock(reg, 1).front(); }

    Bytes ReadBlock(unsigned char reg, std::size_t count)
    {
        return chip.Read(reg, count, now).value_or(Bytes(count, 0xEE));
    }

    void Write(unsigned char reg, unsigned char value)
    {
        const std::array bytes = {value};
        EXPECT_TRUE(chip.Write(reg, bytes, now));
    }

    /// ACTIVE, at 100 Hz, and the first sample is about to come.
    void Activate(unsigned char control1 = HZ_100 | F_READ)
    {
        Write(CTRL_REG1, control1);
        Write(CTRL_REG1, control1 | ACTIVE);
        now += TURN_ON - PERIOD;
    }

    void TakeSamples(int count) { now += count * PERIOD; }

    /// Numbers the samples from now on: the first feels 1 step of 8 bits on X, 2 on Y, 3 on Z, each one more
    /// than the one before it.
    void NumberSamples(int count)
    {
        chip.motion = Motion({0, 0, 0});
        for (int i = 0; i < count; ++i)
        {
            // Held for as long as the sample is taken, at its peak.
            const double step = 1 / 64.0;
            chip.motion.Add(
                {now + PERIOD + i * PERIOD - 2ms, 4ms, {(i + 1) * step, (i + 2) * step, (i + 3) * step}});
        }
    }

    I2cSlave::TimePoint now{1h};
    Accelerometer chip;
};

#endif

#include "virtual-unit/peripherals/Vibration.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using VirtualUnit::Motion;
using VirtualUnit::Vibration;

constexpr double FIFTY = 50 / 3.6;

struct Felt
{
    double mean = 0;
    double most = 0;
};

Felt Upwards(const Vibration& vibration, double metresPerSecond, bool engine)
{
    Felt felt;
    constexpr int SAMPLES = 4000;
    for (int i = 0; i < SAMPLES; ++i)
    {
        const double z = vibration.At(i * 1250us, metresPerSecond, engine).z;
        felt.mean += z / SAMPLES;
        felt.most = std::max(felt.most, std::abs(z));
    }
    return felt;
}

TEST(VibrationTest, WhatStandsWithItsEngineOffIsQuiet)
{
    EXPECT_EQ(Upwards(Vibration(1), 0, false).most, 0);
}

TEST(VibrationTest, AnEngineIsFeltAndTheRoadTheMoreTheFaster)
{
    const Felt idle = Upwards(Vibration(1), 0, true);
    EXPECT_GT(idle.most, 0.01);
    EXPECT_LT(idle.most, 0.02);
    const Felt road = Upwards(Vibration(1), FIFTY, true);
    EXPECT_GT(road.most, 2 * idle.most);
    EXPECT_LT(road.most, 0.05 + 0.02);
    EXPECT_NEAR(road.mean, 0, 0.002);
}

TEST(VibrationTest, TheSameSeedShakesInTheSameWayAndAnotherInAnother)
{
    const Motion::Acceleration felt = Vibration(7).At(5s, FIFTY, true);
    EXPECT_EQ(Vibration(7).At(5s, FIFTY, true).z, felt.z);
    EXPECT_NE(Vibration(8).At(5s, FIFTY, true).z, felt.z);
    EXPECT_NE(felt.x, felt.y);
}

}

#include "virtual-unit/peripherals/Motion.h"

#include <chrono>
#include <cmath>
#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using VirtualUnit::Motion;

constexpr Motion::TimePoint BEGIN{1h};
constexpr double TOLERANCE_G = 1e-9;

void ExpectAt(const Motion& motion, Motion::TimePoint time, double x, double y, double z)
{
    const Motion::Acceleration felt = motion.At(time);
    EXPECT_NEAR(felt.x, x, TOLERANCE_G);
    EXPECT_NEAR(felt.y, y, TOLERANCE_G);
    EXPECT_NEAR(felt.z, z, TOLERANCE_G);
}

TEST(MotionTest, AtRestGravityIsFelt)
{
    ExpectAt(Motion(), BEGIN, 0, 0, 1);
    ExpectAt(Motion({0.5, -0.5, 0}), BEGIN, 0.5, -0.5, 0);
}

TEST(MotionTest, APulseIsHalfASineWaveOnTopOfTheRest)
{
    Motion motion;
    motion.Add({BEGIN, 100ms, {2, -4, 1}});
    ExpectAt(motion, BEGIN - 1ms, 0, 0, 1);
    ExpectAt(motion, BEGIN, 0, 0, 1);
    ExpectAt(motion, BEGIN + 25ms, 2 * std::sqrt(0.5), -4 * std::sqrt(0.5), 1 + std::sqrt(0.5));
    ExpectAt(motion, BEGIN + 50ms, 2, -4, 2);
    ExpectAt(motion, BEGIN + 75ms, 2 * std::sqrt(0.5), -4 * std::sqrt(0.5), 1 + std::sqrt(0.5));
    ExpectAt(motion, BEGIN + 100ms, 0, 0, 1);
}

TEST(MotionTest, PulsesAddUp)
{
    Motion motion;
    motion.Add({BEGIN, 100ms, {1, 0, 0}});
    motion.Add({BEGIN + 25ms, 50ms, {3, 0, 0}});
    ExpectAt(motion, BEGIN + 50ms, 4, 0, 1);
}

TEST(MotionTest, ABumpIsUpwardsAndACrashBackwards)
{
    Motion motion;
    motion.Bump(BEGIN);
    ExpectAt(motion, BEGIN + 40ms, 0, 0, 2.2);
    ExpectAt(motion, BEGIN + 80ms, 0, 0, 1);
    motion.Crash(BEGIN + 1s);
    ExpectAt(motion, BEGIN + 1060ms, -6, 1.5, 1);
    ExpectAt(motion, BEGIN + 1120ms, 0, 0, 1);
}

}

#include "virtual-unit/peripherals/Drive.h"

#include "virtual-unit/peripherals/Geography.h"

#include <gtest/gtest.h>

namespace
{

using namespace VirtualUnit;

constexpr double METRE = 1 / Geography::METRES_PER_DEGREE; // of latitude, or of longitude at the equator
constexpr double TOLERANCE = 1e-6;

double MetresPerSecond(const Drive::Moment& moment)
{
    return moment.point.knots * Geography::METRES_PER_SECOND_PER_KNOT;
}

TEST(DriveTest, EachFixIsReachedAtItsTime)
{
    const Drive drive({{1, 48.1, 16.1, 10}, {3, 48.2, 16.3, 20}, {4, 48.3, 16.2, 30}});
    EXPECT_EQ(drive.Seconds(), 4);
    EXPECT_DOUBLE_EQ(drive.At(3).point.latitude, 48.2);
    EXPECT_DOUBLE_EQ(drive.At(3).point.longitude, 16.3);
    EXPECT_NEAR(MetresPerSecond(drive.At(3)), 20, TOLERANCE);
    EXPECT_DOUBLE_EQ(drive.At(2).point.latitude, (48.1 + 48.2) / 2);
    EXPECT_NEAR(MetresPerSecond(drive.At(2)), 15, TOLERANCE);
}

TEST(DriveTest, BeforeItsFirstFixItStandsAndBehindItsLastItHasThatOnesSpeed)
{
    const Drive drive({{1, 48.1, 16.1, 10}, {3, 48.2, 16.3, 20}});
    EXPECT_EQ(MetresPerSecond(drive.At(0.5)), 0);
    EXPECT_DOUBLE_EQ(drive.At(0.5).point.latitude, 48.1);
    EXPECT_NEAR(MetresPerSecond(drive.At(100)), 20, TOLERANCE);
    EXPECT_DOUBLE_EQ(drive.At(100).point.latitude, 48.2);
    EXPECT_EQ(drive.At(100).ahead, 0);
}

TEST(DriveTest, SpeedUpAndBrakingAreFeltAlongTheCourse)
{
    const Drive drive({{0, 0, 0, 0}, {2, 10 * METRE, 0, 10}, {3, 15 * METRE, 0, 0}});
    EXPECT_NEAR(drive.At(1).ahead, 5 / Geography::G, TOLERANCE);
    EXPECT_NEAR(drive.At(2.5).ahead, -10 / Geography::G, TOLERANCE);
    EXPECT_NEAR(drive.At(2.5).right, 0, TOLERANCE);
}

TEST(DriveTest, ABendIsFeltAcrossTheCourse)
{
    // North, then east: the course turns by 90 degrees in the two seconds about the corner.
    const Drive drive({{0, 0, 0, 10},
                       {1, 10 * METRE, 0, 10},
                       {2, 20 * METRE, 0, 10},
                       {3, 20 * METRE, 10 * METRE, 10},
                       {4, 20 * METRE, 20 * METRE, 10}});
    EXPECT_NEAR(drive.At(2).point.course, 45, 0.01);
    EXPECT_NEAR(drive.At(1.5).point.course, 22.5, 0.01);
    EXPECT_NEAR(drive.At(1.5).right, 10 * 45 * Geography::RADIANS / Geography::G, 0.001);
    EXPECT_NEAR(drive.At(3.5).right, 0, 0.001);
}

TEST(DriveTest, ABendOverNorthIsTheShorterWay)
{
    const Drive drive({{0, 0, 0, 10}, {1, 10 * METRE, -1 * METRE, 10}, {2, 20 * METRE, 0, 10}});
    EXPECT_GT(drive.At(0).point.course, 350);
    EXPECT_LT(drive.At(2).point.course, 10);
    EXPECT_GT(drive.At(1.2).right, 0);
    EXPECT_LT(drive.At(1.2).right, 0.3);
}

TEST(DriveTest, WithoutSpeedsThePlacesTellThem)
{
    const Drive drive({{0, 0, 0, {}}, {1, 10 * METRE, 0, {}}, {2, 30 * METRE, 0, {}}});
    EXPECT_NEAR(MetresPerSecond(drive.At(0)), 10, TOLERANCE);
    EXPECT_NEAR(MetresPerSecond(drive.At(1)), 15, TOLERANCE);
    EXPECT_NEAR(MetresPerSecond(drive.At(2)), 20, TOLERANCE);
}

TEST(DriveTest, WhatStandsKeepsItsCourse)
{
    const Drive drive(
        {{0, 0, 0, 10}, {1, 0, 10 * METRE, 0}, {2, 0.1 * METRE, 10 * METRE, 0}, {3, 0, 10 * METRE, 0}});
    EXPECT_NEAR(drive.At(2).point.course, 90, 0.01);
    EXPECT_NEAR(drive.At(3).point.course, 90, 0.01);
}

TEST(DriveTest, OneFixIsAPlace)
{
    const Drive drive({{0, 48, 16, {}}});
    EXPECT_EQ(drive.At(0).point.latitude, 48);
    EXPECT_EQ(MetresPerSecond(drive.At(5)), 0);
}

}

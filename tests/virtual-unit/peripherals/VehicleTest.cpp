#include "virtual-unit/peripherals/Vehicle.h"

#include "virtual-unit/peripherals/Geography.h"

#include <chrono>
#include <cmath>
#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using Geography::G;

constexpr Vehicle::TimePoint START{1h};
constexpr double METRE = 1 / Geography::METRES_PER_DEGREE;

/// Due north, ten metres a second, from the begin to the hundredth second; a minute of waiting; ten seconds
/// more.
Drive Northwards()
{
    return Drive({{0, 0, 0, 10},
                  {100, 1000 * METRE, 0, 10},
                  {102, 1010 * METRE, 0, 0},
                  {160, 1010 * METRE, 0, 0},
                  {162, 1020 * METRE, 0, 10},
                  {170, 1100 * METRE, 0, 10}});
}

double Metres(const Vehicle::State& state) ///< northwards
{
    return state.latitude / METRE;
}

/// Speed and place follow from what is felt, from then on for that long.
void ExpectThatSpeedAndPlaceAgreeWithWhatIsFelt(const Vehicle& vehicle, Vehicle::TimePoint begin,
                                                std::chrono::seconds length)
{
    constexpr auto STEP = 5ms;
    const Vehicle::State first = vehicle.At(begin);
    double speed = first.metresPerSecond;
    double metres = Metres(first);
    for (auto time = begin; time < begin + length; time += STEP)
    {
        const double seconds = std::chrono::duration<double>(STEP).count();
        const Vehicle::State state = vehicle.At(time);
        metres += speed * seconds;
        speed += state.ahead * G * seconds;
        ASSERT_NEAR(vehicle.At(time + STEP).metresPerSecond, speed, 0.06) << (time - begin).count();
        ASSERT_NEAR(Metres(vehicle.At(time + STEP)), metres, 0.6) << (time - begin).count();
    }
}

TEST(VehicleTest, FollowsItsCircuitFromItsBeginOn)
{
    const Track circuit({{-1.0, -2.0, 18.52}, {-2.0, -2.0, 18.52}}); // south, 10 knots
    Vehicle vehicle(circuit);
    EXPECT_EQ(vehicle.At(START + 5s).latitude, -1);
    vehicle.Begin(START);
    vehicle.Begin(START + 10s); // the first one counts
    EXPECT_DOUBLE_EQ(vehicle.At(START + 36s).latitude, circuit.At(36).latitude);
    EXPECT_DOUBLE_EQ(vehicle.At(START + 36s).course, 180);
    EXPECT_NEAR(vehicle.At(START + 36s).metresPerSecond, 18.52 / 3.6, 1e-9);
    EXPECT_EQ(vehicle.At(START + 36s).ahead, 0);
}

TEST(VehicleTest, FollowsARecordedDriveInItsOwnTimeAndBrakesAtItsEnd)
{
    const Vehicle vehicle(Northwards(), START);
    EXPECT_NEAR(Metres(vehicle.At(START + 50s)), 500, 1e-6);
    EXPECT_NEAR(vehicle.At(START + 101s).ahead, -5 / G, 1e-6);
    EXPECT_NEAR(Metres(vehicle.At(START + 170s)), 1100, 0.01);
    EXPECT_NEAR(vehicle.At(START + 171s).ahead, -Vehicle::BRAKING, 1e-6);
    EXPECT_EQ(vehicle.At(START + 180s).metresPerSecond, 0);
    EXPECT_EQ(vehicle.At(START + 180s).ahead, 0);
    EXPECT_NEAR(Metres(vehicle.At(START + 180s)), 1100 + 100 / (2 * Vehicle::BRAKING * G), 0.1);
    EXPECT_NEAR(Metres(vehicle.At(START + 50s)), 500, 1e-6) << "what it was up to can be asked later";
}

TEST(VehicleTest, StandsWithTheIgnitionOffAndGoesOnWhereItWas)
{
    Vehicle vehicle(Northwards(), START);
    vehicle.SwitchIgnition(false, START + 20s);
    EXPECT_NEAR(vehicle.At(START + 21s).ahead, -Vehicle::BRAKING, 1e-6);
    const Vehicle::State standing = vehicle.At(START + 30s);
    EXPECT_EQ(standing.metresPerSecond, 0);
    EXPECT_FALSE(standing.engine);
    EXPECT_EQ(Metres(vehicle.At(START + 10h)), Metres(standing));
    vehicle.SwitchIgnition(true, START + 10h);
    EXPECT_NEAR(vehicle.At(START + 10h + 1s).ahead, Vehicle::SPEEDING_UP, 1e-6);
    EXPECT_NEAR(vehicle.At(START + 10h + 20s).metresPerSecond, 10, 1e-6);
    EXPECT_EQ(vehicle.At(START + 10h + 20s).ahead, 0);
    EXPECT_TRUE(vehicle.At(START + 10h + 20s).engine);
    ExpectThatSpeedAndPlaceAgreeWithWhatIsFelt(vehicle, START + 10h, 40s);
}

TEST(VehicleTest, BrakesAsAskedAndThenMeetsItsRoadsSpeedAgain)
{
    Vehicle vehicle(Northwards(), START);
    vehicle.Brake(0.5, 1s, START + 20s);
    EXPECT_NEAR(vehicle.At(START + 20500ms).ahead, -0.5, 1e-6);
    EXPECT_NEAR(vehicle.At(START + 21s).metresPerSecond, 10 - 0.5 * G, 0.01);
    EXPECT_NEAR(vehicle.At(START + 22s).ahead, Vehicle::SPEEDING_UP, 1e-6);
    EXPECT_NEAR(vehicle.At(START + 30s).metresPerSecond, 10, 1e-6);
    ExpectThatSpeedAndPlaceAgreeWithWhatIsFelt(vehicle, START + 20s, 20s);
}

TEST(VehicleTest, BrakesNoLongerThanUntilItStands)
{
    Vehicle vehicle(Northwards(), START);
    vehicle.Brake(1, 10s, START + 20s);
    EXPECT_NEAR(vehicle.At(START + 20900ms).ahead, -1, 1e-6);
    EXPECT_EQ(vehicle.At(START + 22s).metresPerSecond, 0);
    EXPECT_EQ(vehicle.At(START + 22s).ahead, 0);
}

TEST(VehicleTest, KeepsWhatBrakingLeavesOfASpeedOfItsOwn)
{
    Vehicle vehicle(Northwards(), START);
    vehicle.SetSpeed(20, START + 10s);
    EXPECT_NEAR(vehicle.At(START + 30s).metresPerSecond, 20, 1e-6);
    vehicle.Brake(0.5, 1s, START + 30s);
    EXPECT_NEAR(vehicle.At(START + 40s).metresPerSecond, 20 - 0.5 * G, 0.01);
}

TEST(VehicleTest, ASpeedOfItsOwnIsReachedEvenlyAndLeadsAlongTheRoadAndOverItsPauses)
{
    Vehicle vehicle(Northwards(), START);
    vehicle.SetSpeed(15, START + 90s);
    EXPECT_NEAR(vehicle.At(START + 91s).ahead, Vehicle::SPEEDING_UP, 1e-6);
    EXPECT_NEAR(vehicle.At(START + 100s).metresPerSecond, 15, 1e-6);
    EXPECT_EQ(vehicle.At(START + 100s).ahead, 0);
    ExpectThatSpeedAndPlaceAgreeWithWhatIsFelt(vehicle, START + 90s, 5s);
    EXPECT_GT(Metres(vehicle.At(START + 110s)), 1090) << "it would have waited from 1010 on";
    vehicle.SetSpeed(0, START + 110s);
    EXPECT_EQ(vehicle.At(START + 120s).metresPerSecond, 0);
}

TEST(VehicleTest, ABendTurnsTheCourseAndLeavesTheRoad)
{
    Vehicle vehicle(Northwards(), START);
    vehicle.Corner(0.4, 2s, START + 20s);
    EXPECT_NEAR(vehicle.At(START + 21s).right, 0.4, 1e-6);
    EXPECT_NEAR(vehicle.At(START + 21s).ahead, 0, 1e-6);
    const double course = 0.4 * G / 10 * 2 / Geography::RADIANS;
    EXPECT_NEAR(vehicle.At(START + 23s).course, course, 0.5);
    EXPECT_EQ(vehicle.At(START + 23s).right, 0);
    const Vehicle::State later = vehicle.At(START + 33s);
    EXPECT_NEAR(later.course, course, 0.5);
    EXPECT_NEAR(Metres(later) - Metres(vehicle.At(START + 23s)), 100 * std::cos(course * Geography::RADIANS),
                0.5);
    vehicle.Corner(-0.4, 2s, START + 40s);
    EXPECT_NEAR(vehicle.At(START + 41s).right, -0.4, 1e-6);
    EXPECT_NEAR(std::remainder(vehicle.At(START + 43s).course, 360), 0, 0.5);
}

TEST(VehicleTest, WhatStandsFeelsNoBend)
{
    Vehicle vehicle(Northwards(), START);
    vehicle.SetSpeed(0, START + 20s);
    vehicle.Corner(0.4, 2s, START + 30s);
    EXPECT_EQ(vehicle.At(START + 31s).right, 0);
    EXPECT_NEAR(vehicle.At(START + 33s).course, 0, 1e-6);
}

TEST(VehicleTest, PutElsewhereItGoesStraightOnFromThereUntilItFollowsItsRoadAgain)
{
    Vehicle vehicle(Northwards(), START);
    vehicle.PutTo(40, 20, START + 20s);
    EXPECT_NEAR(vehicle.At(START + 20s).latitude, 40, 1e-9);
    EXPECT_NEAR(vehicle.At(START + 30s).latitude, 40 + 100 * METRE, 1e-9);
    EXPECT_NEAR(vehicle.At(START + 30s).longitude, 20, 1e-9);
    EXPECT_NEAR(vehicle.At(START + 30s).metresPerSecond, 10, 1e-9);
    vehicle.FollowRoad(START + 30s);
    EXPECT_NEAR(Metres(vehicle.At(START + 31s)), 210, 0.1);
}

TEST(VehicleTest, AsksOfTheCircuitBeginIt)
{
    Vehicle vehicle;
    vehicle.SwitchIgnition(false, START);
    vehicle.Begin(START + 1s);
    EXPECT_EQ(vehicle.At(START + 10s).metresPerSecond, 0);
}

}

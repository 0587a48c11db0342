#include "virtual-unit/peripherals/Track.h"

#include <cmath>
#include <gtest/gtest.h>

namespace
{

using VirtualUnit::Track;

// One minute of latitude, a sea mile, at 18.52 km/h: 10 knots, six minutes.
constexpr double MILE = 1.0 / 60.0;
constexpr double LEG_SECONDS = 360.0;
constexpr double SPEED = 18.52;

const Track NORTH_AND_BACK({{0.0, 0.0, SPEED}, {MILE, 0.0, SPEED}});

TEST(TrackTest, PositionSpeedAndCourseBelongTogether)
{
    const Track::Point point = NORTH_AND_BACK.At(LEG_SECONDS / 2);
    EXPECT_NEAR(point.latitude, MILE / 2, 1e-9);
    EXPECT_NEAR(point.longitude, 0.0, 1e-9);
    EXPECT_NEAR(point.knots, 10.0, 1e-9);
    EXPECT_NEAR(point.course, 0.0, 1e-9);
}

TEST(TrackTest, TheLastLegLeadsBack)
{
    const Track::Point point = NORTH_AND_BACK.At(LEG_SECONDS * 1.25);
    EXPECT_NEAR(point.latitude, MILE * 0.75, 1e-9);
    EXPECT_NEAR(point.course, 180.0, 1e-9);
}

TEST(TrackTest, TheCircuitIsDrivenAgainAndAgain)
{
    const Track::Point once = NORTH_AND_BACK.At(100.0);
    const Track::Point later = NORTH_AND_BACK.At(100.0 + 20 * LEG_SECONDS);
    EXPECT_NEAR(once.latitude, later.latitude, 1e-9);
    EXPECT_NEAR(once.course, later.course, 1e-9);
}

TEST(TrackTest, WestIsTwoHundredAndSeventyDegrees)
{
    const Track track({{0.0, 0.0, SPEED}, {0.0, -MILE, SPEED}});
    EXPECT_NEAR(track.At(1.0).course, 270.0, 1e-9);
    EXPECT_NEAR(track.At(LEG_SECONDS + 1.0).course, 90.0, 1e-9);
}

TEST(TrackTest, TheBuiltInCircuitMovesWithoutJumps)
{
    const Track track;
    for (int second = 0; second < 1000; ++second)
    {
        const Track::Point from = track.At(second);
        const Track::Point to = track.At(second + 1);
        const double metres =
            std::hypot(to.latitude - from.latitude,
                       (to.longitude - from.longitude) * std::cos(from.latitude * 0.0174533)) *
            111120.0;
        ASSERT_GT(metres, 1.0) << second;
        ASSERT_LT(metres, 70.0 / 3.6 + 0.5) << second;
        ASSERT_GE(from.course, 0.0);
        ASSERT_LT(from.course, 360.0);
    }
}

}

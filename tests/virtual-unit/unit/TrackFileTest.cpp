#include "virtual-unit/unit/TrackFile.h"

#include "virtual-unit/unit/MotionFile.h"
#include "virtual-unit/unit/Values.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::HasSubstr;

TrackFile Parsed(const std::string& text)
{
    std::istringstream stream(text);
    return TrackFile::Parse(stream);
}

template <class Content>
std::string ReasonOf(const std::string& text)
{
    std::istringstream stream(text);
    try
    {
        if constexpr (std::is_same_v<Content, TrackFile>)
        {
            TrackFile::Parse(stream);
        }
        else
        {
            const Content content(stream);
        }
    }
    catch (const Values::Wrong& wrong)
    {
        return wrong.what();
    }
    return "taken";
}

constexpr const char* GPX =
    R"(<?xml version="1.0" encoding="UTF-8"?>
<gpx version="1.1" creator="a logger" xmlns="http://www.topografix.com/GPX/1/1" xmlns:x="http://example.org/x">
  <metadata><time>2026-02-01T00:00:00Z</time></metadata>
  <wpt lat="1" lon="1"><time>2026-02-01T00:00:00Z</time></wpt>
  <trk><name>to the west</name>
    <trkseg>
      <trkpt lat="48.2000" lon="16.3700"><ele>171</ele><time>2026-03-01T08:15:00.500Z</time></trkpt>
      <trkpt lat="48.2001" lon="16.3700"/>
      <trkpt lat="48.2002" lon="16.3699">
        <time>2026-03-01T09:15:01.5+01:00</time><speed>12.5</speed>
      </trkpt>
      <trkpt lat="48.2002" lon="16.3699"><time>2026-03-01T08:15:01.500Z</time></trkpt>
    </trkseg>
    <trkseg>
      <trkpt lat="-48.3" lon="-16.4">
        <time>2026-03-01T08:16:00Z</time>
        <extensions><x:TrackPointExtension><x:speed>7</x:speed></x:TrackPointExtension></extensions>
      </trkpt>
    </trkseg>
  </trk>
</gpx>)";

TEST(TrackFileTest, GpxGivesThePointsThatHaveATimeOnceEach)
{
    const TrackFile track = Parsed(GPX);
    using namespace std::chrono;
    EXPECT_EQ(track.begin, sys_days(2026y / March / 1) + 8h + 15min);
    ASSERT_EQ(track.fixes.size(), 3U);
    EXPECT_DOUBLE_EQ(track.fixes[0].seconds, 0.5);
    EXPECT_EQ(track.fixes[0].latitude, 48.2);
    EXPECT_EQ(track.fixes[0].metresPerSecond, std::nullopt);
    EXPECT_DOUBLE_EQ(track.fixes[1].seconds, 1.5);
    EXPECT_EQ(track.fixes[1].metresPerSecond, 12.5);
    EXPECT_EQ(track.fixes[2].longitude, -16.4);
    EXPECT_DOUBLE_EQ(track.fixes[2].seconds, 60);
    EXPECT_EQ(track.fixes[2].metresPerSecond, 7);
}

TEST(TrackFileTest, GpxThatIsNoneIsRefused)
{
    EXPECT_THAT(ReasonOf<TrackFile>("<gpx><trk>"), HasSubstr("line 1: "));
    EXPECT_THAT(ReasonOf<TrackFile>("<kml></kml>"), HasSubstr("no point with a time"));
    EXPECT_EQ(
        ReasonOf<TrackFile>("<gpx><trk><trkseg><trkpt lat='a' lon='1'><time>2026-03-01T08:15Z</time></trkpt>"
                            "</trkseg></trk></gpx>"),
        "point 1: \"a\" is not a latitude from -90 to 90");
    EXPECT_EQ(ReasonOf<TrackFile>("<gpx><trk><trkseg><trkpt lat='1' lon='1'><time>noon</time></trkpt>"
                                  "</trkseg></trk></gpx>"),
              "point 1: \"noon\" is not a number of seconds from -1e+12 to 1e+12");
}

TEST(TrackFileTest, CsvHasItsColumnsInAnyOrderAndSpeedsInKilometresPerHour)
{
    const TrackFile track = Parsed("# a drive\r\nspeed, latitude,longitude ,height,\"time\"\r\n"
                                   "36,48.1,16.1,171,100.25\r\n\r\n,48.2,16.2,171,101\r\n");
    EXPECT_EQ(track.begin, std::nullopt);
    ASSERT_EQ(track.fixes.size(), 2U);
    EXPECT_DOUBLE_EQ(track.fixes[0].seconds, 0.25);
    EXPECT_DOUBLE_EQ(*track.fixes[0].metresPerSecond, 10);
    EXPECT_EQ(track.fixes[1].metresPerSecond, std::nullopt);
    EXPECT_EQ(track.fixes[1].longitude, 16.2);
    EXPECT_TRUE(Parsed("time,latitude,longitude\n2026-03-01T08:15:00Z,1,2\n").begin);
}

TEST(TrackFileTest, CsvThatIsNoneIsRefusedWithItsLine)
{
    EXPECT_EQ(ReasonOf<TrackFile>(""), "it has no point with a time");
    EXPECT_EQ(ReasonOf<TrackFile>("time,latitude\n1,2\n"), "its first line names no column \"longitude\"");
    const std::string header = "time,latitude,longitude,speed\n";
    EXPECT_EQ(ReasonOf<TrackFile>(header + "1,2,3,4\n0.5,2,3,4\n"),
              "line 3: \"0.5\" is earlier than the point before");
    EXPECT_EQ(ReasonOf<TrackFile>(header + "1,91,3,4\n"), "line 2: \"91\" is not a latitude from -90 to 90");
    EXPECT_EQ(ReasonOf<TrackFile>(header + "1,2\n"), "line 2: \"\" is not a longitude from -180 to 180");
    EXPECT_EQ(ReasonOf<TrackFile>(header + "1,2,3,nan\n"), "line 2: \"nan\" is not a speed from 0 to 1000");
}

TEST(MotionFileTest, ChangesEvenlyFromSampleToSampleAndHoldsAtItsEnds)
{
    std::istringstream text("time,x,y,z\n1,0,0,1\n2,-0.5,0.25,1.5\n");
    const MotionFile motion(text);
    EXPECT_EQ(motion.At(0).z, 1);
    EXPECT_DOUBLE_EQ(motion.At(1.5).x, -0.25);
    EXPECT_DOUBLE_EQ(motion.At(1.5).y, 0.125);
    EXPECT_DOUBLE_EQ(motion.At(1.5).z, 1.25);
    EXPECT_DOUBLE_EQ(motion.At(2).x, -0.5);
    EXPECT_EQ(motion.At(100).x, -0.5);
}

TEST(MotionFileTest, WhatCannotBeUnderstoodIsRefusedWithItsLine)
{
    EXPECT_EQ(ReasonOf<MotionFile>("time,x,y,z\n"), "it has no sample");
    EXPECT_EQ(ReasonOf<MotionFile>("time,x,z\n"), "its first line names no column \"y\"");
    EXPECT_EQ(ReasonOf<MotionFile>("time,x,y,z\n1,0,0,1\n1,0,0,1\n"),
              "line 3: \"1\" is not later than the sample before");
    EXPECT_EQ(ReasonOf<MotionFile>("time,x,y,z\n1,0,0,down\n"),
              "line 2: \"down\" is not an acceleration in g from -100 to 100");
}

TEST(ValuesTest, MomentsAreThoseOfIso8601)
{
    using namespace std::chrono;
    const sys_time<milliseconds> moment = sys_days(2026y / March / 1) + 8h + 15min;
    for (const char* const text : {"2026-03-01T08:15:00Z", "2026-03-01T08:15Z", "2026-03-01 08:15:00",
                                   "2026-03-01T09:15:00+01:00", "2026-03-01T05:45:00-02:30"})
    {
        EXPECT_EQ(Values::Moment(text), moment) << text;
    }
    EXPECT_EQ(Values::Moment("2026-03-01T08:15:00.25Z"), moment + 250ms);
    EXPECT_EQ(Values::Moment("2026-03-01"), sys_days(2026y / March / 1));
    EXPECT_EQ(Values::Moment("2040-02-29T00:00:00Z"), sys_days(2040y / February / 29));
    for (const char* const text :
         {"", "now", "2026-03", "2026-13-01", "2026-02-29", "2026-03-01T25:00", "2026-03-01T08:15:60Z",
          "2026-03-01T08:15:00 CET", "2026-03-01T", "2026-03-01T08:15:", "2026-03-01T08:15Zulu",
          "2026-03-01T08:15:00+-5:00", "2026-03-01T08:15:00+01:-1", "2026-03-01T08:15:00+24:00"})
    {
        EXPECT_THROW(Values::Moment(text), Values::Wrong) << text;
    }
    EXPECT_THROW(Values::Moment(std::string("2026-03-01\0T08:15Z", 18)), Values::Wrong);
}

TEST(ValuesTest, ANumberHasOneSignAtMost)
{
    EXPECT_EQ(Values::Real("+1.5", -90, 90), 1.5);
    EXPECT_EQ(Values::Real("-1.5", -90, 90), -1.5);
    for (const char* const text : {"+-1.5", "-+1.5", "++1.5", "--1.5", "+", "-"})
    {
        EXPECT_THROW(Values::Real(text, -90, 90), Values::Wrong) << text;
    }
}

}

// The trip recorder of examples/, on the virtual unit: what is on the storage card after a drive.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using boost::property_tree::ptree;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string RECORDER = std::string(EXAMPLES) + "/trip-recorder/trip-recorder";
const std::string SOURCES = std::string(EXAMPLE_SOURCES) + "/trip-recorder";

ptree ReadXml(const fs::path& file) ///< @throws when it is not well-formed
{
    ptree tree;
    boost::property_tree::read_xml(file.string(), tree);
    return tree;
}

class TripRecorderTest : public VirtualUnitTest
{
protected:
    TripRecorderTest() { fs::create_directories(work); }

    ~TripRecorderTest() override { fs::remove_all(work); }

    /// A run on the drive of the example.
    Outcome Drive(const std::string& script, const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> options = {
            "--fast", "--strict", "--script", script, "--track", SOURCES + "/drive.csv", "--sdcard", card};
        options.insert(options.end(), more.begin(), more.end());
        return RunProgram(RECORDER, {}, options);
    }

    std::string Script(const std::string& text) const
    {
        std::ofstream(work / "the.script") << "unit date 2026-03-01T08:15:00Z\n" << text;
        return work / "the.script";
    }

    /// The files of the trips, by name.
    std::map<std::string, std::string> Trips() const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::directory_iterator(card / "trips"))
        {
            files[entry.path().filename()] = ReadFile(entry.path());
        }
        return files;
    }

    std::vector<std::string> Rows(const std::string& name) const
    {
        return Lines(ReadFile(card / "trips" / (name + ".csv")));
    }

    /// Each point of a trip's map, as "time" or "time: comment".
    std::vector<std::string> Points(const std::string& name) const
    {
        std::vector<std::string> points;
        const ptree map = ReadXml(card / "trips" / (name + ".gpx"));
        for (const auto& [kind, point] : map.get_child("gpx.trk.trkseg"))
        {
            EXPECT_EQ(kind, "trkpt");
            const std::string comment = point.get("cmt", "");
            points.push_back(point.get<std::string>("time") + (comment.empty() ? "" : ": " + comment));
        }
        return points;
    }

    const fs::path work = Kit::TempDir::Path() + "/trip-recorder";
    const fs::path card = work / "card";
};

constexpr const char* TRIP = "20260301-081501";

TEST_F(TripRecorderTest, ADriveIsOnTheCardAndTheUnitSwitchesItselfOff)
{
    const Outcome outcome = Drive(SOURCES + "/drive.script", {"--junit", work / "junit"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre("trip 20260301-081501 begins", "driver 00A1B2C3D4E5", "harsh braking 0.6 g",
                            "trip 20260301-081501 ends", "POWER OFF, Bye."));
    EXPECT_THAT(Lines(outcome.errors),
                ElementsAre("virtual-unit: /mnt/sdcard is unmounted", HasSubstr("has switched itself off")));

    const ptree suite = ReadXml(work / "junit").get_child("testsuites.testsuite");
    EXPECT_EQ(suite.get<int>("<xmlattr>.failures"), 0);
    EXPECT_GT(suite.get<int>("<xmlattr>.tests"), 9);

    const std::vector<std::string> rows = Rows(TRIP);
    ASSERT_EQ(rows.size(), 52U); // of 54 seconds three in a tunnel
    EXPECT_EQ(rows[0], "time,latitude,longitude,kmh,driver,remark");
    EXPECT_EQ(rows[1], "2026-03-01T08:15:01Z,48.200000,16.370000,0.0,,");
    EXPECT_THAT(rows,
                Contains("2026-03-01T08:15:03Z,48.200000,16.370000,0.0,00A1B2C3D4E5,driver 00A1B2C3D4E5"));
    EXPECT_THAT(rows, Contains(HasSubstr(",48.6,00A1B2C3D4E5,harsh braking 0.6 g")));
    EXPECT_EQ(rows.back(), "2026-03-01T08:15:54Z,48.200000,16.375918,0.0,00A1B2C3D4E5,");

    const std::vector<std::string> points = Points(TRIP);
    EXPECT_EQ(points.size(), rows.size() - 1);
    EXPECT_THAT(points, Contains("2026-03-01T08:15:28Z: harsh braking 0.6 g"));
    EXPECT_EQ(points.back(), "2026-03-01T08:15:54Z");
}

TEST_F(TripRecorderTest, TheSameDriveGivesTheSameFiles)
{
    Drive(SOURCES + "/drive.script", {"--seed", "7"});
    const auto first = Trips();
    fs::remove_all(card);
    Drive(SOURCES + "/drive.script", {"--seed", "7"});
    EXPECT_EQ(Trips(), first);
    EXPECT_EQ(first.size(), 2U);
}

TEST_F(TripRecorderTest, APowerCutTakesFiveSecondsAtMostAndLeavesTheFilesWhole)
{
    for (const std::string second : {"30.53", "31.53", "32.53", "33.53", "34.53"})
    {
        fs::remove_all(card);
        const Outcome outcome =
            Drive(Script("1.13 ignition on\n" + second + " power cut\n"), {"--power-loss", "drop"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        const std::vector<std::string> points = Points(TRIP);
        EXPECT_EQ(points.size() + 1, Rows(TRIP).size());
        EXPECT_GE(points.back().substr(0, 20),
                  "2026-03-01T08:15:" + std::to_string(std::stoi(second) - 5) + "Z");
    }
}

TEST_F(TripRecorderTest, ATripGoesOnWhenTheCardTakesDataAgain)
{
    const Outcome outcome = Drive(Script("1.13 ignition on\n"
                                         "expect pin 101 = 1 within 5\n"
                                         "10.53 card full\n"
                                         "expect pin 101 = 0 within 2\n"
                                         "expect pin 100 = 1 within 1 # red, and blinks\n"
                                         "expect pin 100 = 0 within 1\n"
                                         "20.53 card well\n"
                                         "expect pin 101 = 1 within 2\n"
                                         "30.53 end\n"));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Lines(outcome.errors), ElementsAre("storage card: write: No space left on device"));
    const std::vector<std::string> rows = Rows(TRIP);
    EXPECT_EQ(rows.size(), 20U); // 29 positions less ten, and the head
    EXPECT_EQ(Points(TRIP).size(), 19U);
}

TEST_F(TripRecorderTest, ACardThatIsFullFromTheBeginGetsTheTripUnderItsNameLater)
{
    const Outcome outcome = Drive(Script("0 card full\n1.13 ignition on\n10.53 card well\n20.53 end\n"));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    const auto trips = Trips();
    EXPECT_EQ(trips.size(), 2U);
    EXPECT_THAT(Rows(TRIP)[1], testing::StartsWith("2026-03-01T08:15:10Z,"));
}

TEST_F(TripRecorderTest, EachIgnitionIsATripOfItsOwn)
{
    const Outcome outcome = Drive(Script(
        "1.13 ignition on\n3.03 key 00A1B2C3D4E5\n10.53 ignition off\n12.53 ignition on\n20.53 end\n"));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(Trips().size(), 4U);
    EXPECT_THAT(Rows(TRIP).back(), HasSubstr(",00A1B2C3D4E5,"));
    EXPECT_THAT(Rows("20260301-081512").back(), testing::EndsWith(",,")) << "its driver is not known yet";
}

TEST_F(TripRecorderTest, ATripIsATrackForAnotherRun)
{
    Drive(SOURCES + "/drive.script");
    const Outcome again = RunProgram(std::string(EXAMPLES) + "/gps-monitor/gps-monitor", {"--seconds", "20"},
                                     {"--fast", "--track", card / "trips" / (std::string(TRIP) + ".gpx")});
    EXPECT_THAT(again.output, HasSubstr("08:15:15 UTC  48.20000° N  16.37118° E"));
}

TEST_F(TripRecorderTest, DevicesThatAreMissingDoNotKeepItFromRecording)
{
    const Outcome without = Drive(Script("0 i2c dead\n0 key 00A1B2C3D4E5\n1.13 ignition on\n20.53 end\n"));
    EXPECT_EQ(without.status, 0);
    EXPECT_THAT(Lines(without.errors), ElementsAre("no accelerometer: see the log"));
    EXPECT_THAT(Rows(TRIP), testing::SizeIs(20));
    EXPECT_THAT(Rows(TRIP).back(), HasSubstr(",00A1B2C3D4E5,"));

    fs::remove_all(card);
    const Outcome silent =
        Drive(Script("0 reader silent\n1.13 ignition on\n20.53 ignition off\n21.53 power off\n"));
    EXPECT_EQ(silent.status, 0);
    EXPECT_THAT(silent.errors, HasSubstr("has switched itself off"));
    EXPECT_THAT(Rows(TRIP), testing::SizeIs(20));
}

}

// The unit in a vehicle: what its receiver sends and its accelerometer feels, in virtual time.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <array>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace
{

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::SizeIs;

class MovingUnitTest : public VirtualUnitTest
{
protected:
    static std::string File(const std::string& name, const std::string& content)
    {
        const std::string path = Kit::TempDir::Path() + "/" + name;
        std::ofstream(path) << content;
        return path;
    }

    /// Ten seconds from a stand to 36 km/h, northwards, and as long on; two seconds of braking to a stand.
    static std::string Drive()
    {
        return File("drive.csv", "time,latitude,longitude,speed\n"
                                 "2026-03-01T08:15:00Z,48.0,16.0,0\n"
                                 "2026-03-01T08:15:10Z,48.00045,16.0,36\n"
                                 "2026-03-01T08:15:20Z,48.00135,16.0,36\n"
                                 "2026-03-01T08:15:22Z,48.00144,16.0,0\n"
                                 "2026-03-01T08:16:00Z,48.00144,16.0,0\n");
    }

    /// The RMC sentences of a run.
    static std::vector<std::string> Positions(std::vector<std::string> options,
                                              const std::string& script = {}, int lines = 300)
    {
        options.insert(options.end(), {"--fast", "--gps", "skm53"});
        if (!script.empty())
        {
            options.insert(options.end(), {"--script", File("steps.script", script)});
        }
        const Outcome outcome = Probe({"lines", std::to_string(lines)}, options);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        std::vector<std::string> positions;
        for (const std::string& line : Lines(outcome.output))
        {
            if (line.find("RMC") != std::string::npos)
            {
                positions.push_back(line);
            }
        }
        return positions;
    }

    using Sample = std::array<double, 3>; ///< thousandths of g

    static std::vector<Sample> Felt(int halfSeconds, std::vector<std::string> options,
                                    const std::string& script = {})
    {
        options.emplace_back("--fast");
        if (!script.empty())
        {
            options.insert(options.end(), {"--script", File("steps.script", script)});
        }
        const Outcome outcome = Probe({"felt", std::to_string(halfSeconds)}, options, {}, DRIVER_PROBE);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        std::vector<Sample> samples;
        for (const std::string& line : Lines(outcome.output))
        {
            std::istringstream values(line);
            Sample sample{};
            values >> sample[0] >> sample[1] >> sample[2];
            samples.push_back(sample);
        }
        EXPECT_THAT(samples, SizeIs(halfSeconds));
        samples.resize(static_cast<std::size_t>(halfSeconds));
        return samples;
    }
};

TEST_F(MovingUnitTest, TheReceiverSendsADriveAtItsOwnTimes)
{
    EXPECT_THAT(Positions({"--track", Drive()}),
                AllOf(Contains(HasSubstr("RMC,081510.000,A,4800.0270,N,01600.0000,E,19.44,0.00,010326,")),
                      Contains(HasSubstr("RMC,081515.000,A,4800.0540,N,01600.0000,E,19.44,")),
                      Contains(HasSubstr("RMC,081521.000,A,4800.0837,N,01600.0000,E,9.72,")),
                      Contains(HasSubstr("RMC,081530.000,A,4800.0864,N,01600.0000,E,0.00,"))));
}

TEST_F(MovingUnitTest, TheAccelerometerFeelsADriveTheSameInEachRunOfASeed)
{
    const std::vector<std::string> options = {"--track", Drive()};
    const std::vector<Sample> felt = Felt(60, options);
    constexpr double NOISE = 40;
    EXPECT_NEAR(felt[9][0], 102, NOISE);   // 5 s: 1 m/s2
    EXPECT_NEAR(felt[29][0], 0, NOISE);    // 15 s: steady
    EXPECT_NEAR(felt[41][0], -510, NOISE); // 21 s: 5 m/s2
    EXPECT_NEAR(felt[55][0], 0, NOISE);
    for (const Sample& sample : felt)
    {
        EXPECT_NEAR(sample[1], 0, NOISE);
        EXPECT_NEAR(sample[2], 1000, 2 * NOISE);
    }
    EXPECT_EQ(Felt(60, options), felt);
    EXPECT_NE(Felt(60, {"--track", Drive(), "--seed", "2"}), felt);
}

TEST_F(MovingUnitTest, SamplesOfMotionAreFeltAsTheyAre)
{
    const std::string file =
        File("motion.csv", "time,x,y,z\n0,0,0,1\n1.9,0,0,1\n2,-0.5,0.25,1.5\n9,-0.5,0.25,1.5\n");
    const std::vector<Sample> felt = Felt(8, {"--motion", file});
    constexpr double STEP = 1;
    EXPECT_NEAR(felt[2][0], 0, STEP);
    EXPECT_NEAR(felt[2][2], 1000, STEP);
    EXPECT_NEAR(felt[6][0], -500, STEP);
    EXPECT_NEAR(felt[6][1], 250, STEP);
    EXPECT_NEAR(felt[6][2], 1500, STEP);
}

/// Knots of an RMC sentence.
double Speed(const std::string& rmc)
{
    std::istringstream fields(rmc);
    std::string field;
    for (int i = 0; i <= 7; ++i)
    {
        std::getline(fields, field, ',');
    }
    return std::stod(field);
}

TEST_F(MovingUnitTest, StepsChangeWhatIsFeltAndWhatIsSentAlike)
{
    const std::string script =
        "0 gps stop\n10 gps speed 36\n30.1 motion brake 0.5 1\n40.1 motion corner -0.3 2\n";
    const std::vector<Sample> felt = Felt(90, {}, script);
    constexpr double STEP = 5;
    EXPECT_NEAR(felt[5][0], -300, STEP);  // 3 s: it brakes
    EXPECT_NEAR(felt[15][0], 0, STEP);    // 8 s: it stands
    EXPECT_NEAR(felt[25][0], 200, STEP);  // 13 s: it speeds up
    EXPECT_NEAR(felt[50][0], 0, STEP);    // 25 s: steady
    EXPECT_NEAR(felt[60][0], -500, STEP); // 30.5 s
    EXPECT_NEAR(felt[81][1], 300, STEP);  // 41 s: to the left
    EXPECT_NEAR(felt[87][1], 0, STEP);
    const std::vector<std::string> sent = Positions({}, script, 320);
    ASSERT_GE(sent.size(), 40U);
    EXPECT_EQ(Speed(sent[8]), 0);
    EXPECT_NEAR(Speed(sent[28]), 36 / 1.852, 0.05);
    EXPECT_NEAR(Speed(sent[35]), (36 - 0.5 * 9.80665 * 3.6) / 1.852, 0.3);
}

TEST_F(MovingUnitTest, WithTheIgnitionOffItStandsStill)
{
    const std::vector<std::string> sent = Positions({}, "3.1 ignition off\n20.1 ignition on\n", 250);
    ASSERT_GE(sent.size(), 31U);
    EXPECT_NEAR(Speed(sent[1]), 50 / 1.852, 0.01);
    EXPECT_EQ(Speed(sent[12]), 0);
    EXPECT_EQ(Speed(sent[18]), 0);
    EXPECT_NEAR(Speed(sent[30]), 50 / 1.852, 0.01);
    EXPECT_EQ(Speed(Positions({"--ignition-after", "5"}, "", 10)[0]), 0);
}

TEST_F(MovingUnitTest, ADateMakesTheClocksTheSameInEachRun)
{
    const std::vector<std::string> options = {"--date", "2030-12-31T23:59:58+01:00"};
    const std::vector<std::string> sent = Positions(options, "", 30);
    EXPECT_THAT(sent, Contains(HasSubstr("RMC,225959.000,A,")));
    EXPECT_THAT(sent, Contains(HasSubstr(",311230,")));
    EXPECT_EQ(Positions(options, "", 30), sent);
    EXPECT_THAT(Positions({"--track", Drive(), "--date", "2030-12-31T23:59:58Z"}, "", 300),
                AllOf(Contains(HasSubstr("RMC,000008.000,A,4800.0270,N,01600.0000,E,19.44,0.00,010131,"))));
    EXPECT_EQ(Probe({"lines", "1"}, {"--date", "tomorrow"}).errors,
              "virtual-unit: --date: \"tomorrow\" is no moment such as 2026-03-01T08:15:00Z (see "
              "virtual-unit --help)\n");
}

TEST_F(MovingUnitTest, ARecordingOfAReceiverObeysTheUnit)
{
    const std::string file =
        File("drive.nmea", "$GPRMC,081500.000,A,4800.0000,N,01600.0000,E,10.00,90.00,010320,,,A*53\n");
    const std::string script = "2.5 gps lost\n3.5 gps found\n";
    const std::vector<std::string> sent = Positions({"--nmea", file}, script, 5);
    ASSERT_THAT(sent, SizeIs(5));
    EXPECT_THAT(sent[0], HasSubstr("081500.000,A,4800"));
    EXPECT_THAT(sent[2], HasSubstr("081502.000,V,,,,,"));
    EXPECT_THAT(sent[4], HasSubstr("081504.000,A,4800"));
    EXPECT_THAT(Positions({"--nmea", file, "--gps-fix-after", "3"}, "", 1)[0], HasSubstr("081500.000,V,,"));
    EXPECT_THAT(
        Positions({"--nmea", file, "--nmea-times", "present", "--date", "2026-03-01T12:00:00Z"}, "", 1)[0],
        HasSubstr("RMC,120001.000,A,4800.0000,N,01600.0000,E,10.00,90.00,010326,"));
    EXPECT_EQ(Probe({"lines", "1"}, {"--nmea", file, "--nmea-times", "past"}).status, 2);
}

TEST_F(MovingUnitTest, ItCanBePutElsewhere)
{
    EXPECT_THAT(Positions({}, "0 gps position -33.5 -70.25\n", 20),
                Contains(HasSubstr(",S,07015.0000,W,27.00,0.00,")));
}

TEST_F(MovingUnitTest, StepsThatMakeNoSenseAreRefused)
{
    for (const char* const step : {"gps speed fast", "gps speed -1", "gps position 91 0", "gps position 48",
                                   "motion brake -1 2", "motion brake 0.5", "motion corner 4 1"})
    {
        const std::string script = File("steps.script", std::string("1 ") + step + "\n");
        EXPECT_EQ(Probe({"lines", "1"}, {"--script", script}).status, 2) << step;
    }
}

TEST_F(MovingUnitTest, WhatIsNoDriveIsRefusedBeforeTheProgramBegins)
{
    const std::string broken = File("broken.csv", "time,latitude,longitude\n1,48,16\nnoon,48,16\n");
    const Outcome outcome = Probe({"lines", "1"}, {"--track", broken});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.errors, "virtual-unit: --track: " + broken +
                                  ": line 3: \"noon\" is not a number of seconds from -1e+12 to 1e+12\n");
    EXPECT_THAT(Probe({"lines", "1"}, {"--track", "/no/such/file"}).errors,
                HasSubstr("--track: /no/such/file cannot be read: No such file"));
    EXPECT_THAT(Probe({"lines", "1"}, {"--track", "/dev/null"}).errors, HasSubstr("/dev/null holds nothing"));
    EXPECT_THAT(Probe({"lines", "1"}, {"--track", "/"}).errors, HasSubstr("--track: /"));
    EXPECT_EQ(Probe({"lines", "1"}, {"--motion", broken}).status, 2);
    EXPECT_THAT(Probe({"lines", "1"}, {"--track", Drive(), "--nmea", broken}).errors,
                HasSubstr("--track and --nmea: the receiver can play one of them only"));
}

}

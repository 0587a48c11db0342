// The applications of examples/, each on the virtual unit.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ExamplesTest : public VirtualUnitTest
{
protected:
    static Outcome Run(const std::string& example, std::vector<std::string> options,
                       const std::vector<std::string>& arguments = {}, RunningUnit::Options how = {})
    {
        options.emplace_back("--fast");
        return RunProgram(std::string(EXAMPLES) + "/" + example + "/" + example, arguments, options, how);
    }
};

TEST_F(ExamplesTest, TheGpsMonitorShowsPositions)
{
    const Outcome outcome = Run("gps-monitor", {}, {"--seconds", "4"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr(" km/h "), HasSubstr("with wrong check sums 0\n")));
}

TEST_F(ExamplesTest, TheDriverIsReadAndFoundAgain)
{
    const std::string card = Kit::TempDir::Path() + "/examples-card";
    const std::vector<std::string> options = {"--sdcard", card, "--key", "00A1B2C3D4E5"};
    const Outcome first = Run("driver-id", options, {"--seconds", "10"});
    EXPECT_THAT(first.output, HasSubstr("Driver 00A1B2C3D4E5, the first on record.\n")) << first.errors;
    const Outcome second = Run("driver-id", options, {"--seconds", "10"});
    EXPECT_THAT(second.output, AllOf(StartsWith("Last driver: 00A1B2C3D4E5\n"),
                                     HasSubstr("Driver 00A1B2C3D4E5, the same as last time.\n")));
    EXPECT_EQ(second.status, 0);
    std::filesystem::remove_all(card);
}

TEST_F(ExamplesTest, TheModuleTellsWhatItSees)
{
    const Outcome outcome = Run("modem-info", {"--modem-registration", "roaming", "--modem-signal", "14"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("-85 dBm, OK\n"), HasSubstr("Registered, roaming\n"),
                                      HasSubstr("available UTRAN")));
}

TEST_F(ExamplesTest, ACrashIsAShock)
{
    const Outcome outcome = Run("shock-monitor", {"--crash-after", "1"}, {"--seconds", "2"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("with a shock "), HasSubstr("strongest 6.")));
}

TEST_F(ExamplesTest, BothAlertDevicesSound)
{
    const Outcome outcome = Run("alert", {});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr("sound chips  sounded\n"), HasSubstr("buzzer board sounded\n")));
}

TEST_F(ExamplesTest, TheIgnitionLightsALed)
{
    const std::string journal = Kit::TempDir::Path() + "/examples-journal";
    const Outcome outcome =
        Run("ignition-light", {"--ignition-after", "0", "--journal", journal}, {"--seconds", "2"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(ReadFile(journal), HasSubstr("pin 103 = 1 (left LED green)\n"));
}

TEST_F(ExamplesTest, TheMonitorShowsAPanelOnATerminal)
{
    RunningUnit::Options how;
    how.onTerminal = true;
    const Outcome outcome =
        Run("unit-monitor", {"--ignition-after", "1", "--key", "00A1B2C3D4E5"}, {"--seconds", "5"}, how);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("Ignition"), HasSubstr("●"), HasSubstr("00A1B2C3D4E5"),
                                      HasSubstr("359999012345678"), HasSubstr("▂"), HasSubstr("km/h")));
}

TEST_F(ExamplesTest, TheMonitorEndsWhereNothingIsThere)
{
    const Outcome outcome =
        Run("unit-monitor", {"--modem", "absent", "--script", std::string(SCRIPTS) + "/nothing.script"},
            {"--seconds", "7"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("modem: not on the bus\n"),
                                      HasSubstr("acc: no accelerometer\n"), HasSubstr("end: stopped\n")));
}

TEST_F(ExamplesTest, TheMonitorLeavesTheCardBeforeThePowerGoes)
{
    const std::string script = Kit::TempDir::Path() + "/examples-power-off";
    std::ofstream(script) << "1.13 ignition on\n3.57 power off\n";
    const Outcome outcome =
        Run("unit-monitor", {"--script", script},
            {"--seconds", "60", "--log", "/mnt/sdcard/monitor.log", "--lines", "/mnt/sdcard/lines"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("POWER OFF, Bye.\n"), Not(HasSubstr("Unable to unmount"))));
    EXPECT_THAT(outcome.errors, HasSubstr("virtual-unit: /mnt/sdcard is unmounted\n"));
}

TEST_F(ExamplesTest, TheMonitorRefusesAWrongCommandLine)
{
    EXPECT_EQ(Run("unit-monitor", {}, {"--colour"}).status, 2);
}

}

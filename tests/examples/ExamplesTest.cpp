// The applications of examples/, each on the virtual unit.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <utility>
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

/// The monitor on a terminal, in such an environment.
class PanelTest : public ExamplesTest
{
protected:
    PanelTest()
    {
        for (const auto& [name, value] : {std::pair("TERM", "xterm"), std::pair("LC_ALL", "C.UTF-8")})
        {
            Set(name, value);
        }
        Set("NO_COLOR", "");
    }

    ~PanelTest() override
    {
        for (const auto& [name, value] : former)
        {
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        }
    }

    void Set(const std::string& name, const std::string& value)
    {
        const char* const present = std::getenv(name.c_str());
        former.try_emplace(name, present != nullptr ? std::optional<std::string>(present) : std::nullopt);
        setenv(name.c_str(), value.c_str(), 1);
    }

    static Outcome Show()
    {
        RunningUnit::Options how;
        how.onTerminal = true;
        return Run("unit-monitor", {"--ignition-after", "1", "--key", "00A1B2C3D4E5"}, {"--seconds", "5"},
                   how);
    }

private:
    std::map<std::string, std::optional<std::string>> former;
};

bool IsAscii(const std::string& text)
{
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

const std::string ENTER = "\033[?1049h";
const std::string LEAVE = "\033[?1049l";

TEST_F(PanelTest, IsShownOnATerminal)
{
    const Outcome outcome = Show();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("Ignition"), HasSubstr("●"), HasSubstr("00A1B2C3D4E5"),
                                      HasSubstr("359999012345678"), HasSubstr("▂"), HasSubstr("km/h")));
    EXPECT_THAT(outcome.output, HasSubstr("\033[32m"));
}

TEST_F(PanelTest, HasNoColoursWhereTheyAreNotWanted)
{
    Set("NO_COLOR", "1");
    const Outcome outcome = Show();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr(ENTER), HasSubstr("left green"), HasSubstr("right red"), HasSubstr("▂")));
    EXPECT_FALSE(std::regex_search(outcome.output, std::regex("\033\\[[0-9;]*m")));
}

TEST_F(PanelTest, IsAsciiWhereTheLocaleHasNoUtf8)
{
    for (const char* const locale : {"C", "de_DE.ISO-8859-1", "POSIX"})
    {
        Set("LC_ALL", locale);
        const Outcome outcome = Show();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.output,
                    AllOf(HasSubstr(ENTER), HasSubstr("-----"), HasSubstr("*"), HasSubstr("\033[32m")));
        EXPECT_TRUE(IsAscii(outcome.output)) << outcome.output;
    }
    Set("LC_ALL", "");
    Set("LC_CTYPE", "");
    Set("LANG", "de_DE.utf8");
    EXPECT_THAT(Show().output, HasSubstr("●"));
}

TEST_F(PanelTest, IsNotShownOnATerminalThatIsDumb)
{
    Set("TERM", "dumb");
    const Outcome outcome = Show();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("event: ignition on\r\n"), Not(HasSubstr("\033[H"))));
}

TEST_F(PanelTest, LeavesTheTerminalWhenItIsSuspendedAndComesBack)
{
    RunningUnit::Options how;
    how.onTerminal = true;
    const std::string monitor = Word(std::string(EXAMPLES) + "/unit-monitor/unit-monitor");
    // A shell with job control: it has the terminal while the monitor is suspended.
    RunningUnit run(
        {"run", "--", "/bin/bash", "-mc", monitor + "; echo suspended; fg > /dev/null; echo ended $?"}, how);
    ASSERT_TRUE(run.WaitForOutput(ENTER) && run.WaitForOutput("Ignition"));
    run.Type("\x1A");
    ASSERT_TRUE(run.WaitForOutput("suspended"));
    ASSERT_TRUE(run.WaitForOutput("suspended\r\n" + ENTER));
    run.Type("\x03");
    const std::string output = run.End().output;
    const std::size_t suspended = output.find("suspended\r\n");
    const std::size_t away = output.rfind(LEAVE, suspended);
    ASSERT_NE(away, std::string::npos);
    const std::string between = output.substr(away + LEAVE.size(), suspended - away - LEAVE.size());
    EXPECT_THAT(between, Not(HasSubstr("\033["))) << "nothing is drawn in the meantime";
    EXPECT_NE(output.find("Ignition", suspended), std::string::npos);
    const std::size_t left = output.rfind(LEAVE);
    EXPECT_GT(left, suspended);
    EXPECT_NE(output.find("ended 0", left), std::string::npos);
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

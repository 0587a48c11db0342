// Recordings of runs, and their replay, as users of the program virtual-unit make them.

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
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string MODEM = "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0";
const std::string MODEM_FILE = "/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0.port";

/// A command line of the shell that sends a command to the module and prints so many bytes of its answer.
std::string Ask(const std::string& command, int bytes)
{
    return "exec 3<>" + MODEM + "; stty raw -echo <&3; printf '" + command + "\\r\\n' >&3; head -c " +
           std::to_string(bytes) + " <&3; ";
}

const std::string IDENTITY = "359999012345678";
constexpr int IDENTITY_ANSWER = 33; // "AT+CGSN\r" and the number and OK, each in a line

class RecordedRunTest : public VirtualUnitTest
{
protected:
    ~RecordedRunTest() override { std::filesystem::remove_all(directory); }

    Outcome Record(const std::string& command, std::vector<std::string> options = {}) const
    {
        std::filesystem::remove_all(directory);
        options.insert(options.begin(), {"run", "--record", directory});
        options.insert(options.end(), {"--", "/bin/sh", "-c", command});
        return RunUnit(options);
    }

    Outcome Replay(const std::string& command, const std::vector<std::string>& options = {}) const
    {
        std::vector<std::string> arguments = {"replay", directory};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"--", "/bin/sh", "-c", command});
        return RunUnit(arguments);
    }

    std::string Text(const std::string& file) const { return ReadFile(directory + file); }

    const std::string directory = Kit::TempDir::Path() + "/recorded-run";
};

TEST_F(RecordedRunTest, EachPortHasAFileThatTellsWhatWentOverIt)
{
    const Outcome outcome = Record(Ask("AT+CGSN", IDENTITY_ANSWER) + DRIVER_PROBE_WORD + " pins > /dev/null");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Text(MODEM_FILE), AllOf(StartsWith("# virtual-unit recording 1\n# port " + MODEM + "\n"),
                                        HasSubstr(" ! opened\n"), HasSubstr(" > \"AT+CGSN\\r\\n\"\n"),
                                        HasSubstr("\\r\\n" + IDENTITY + "\\r\\n")));
    EXPECT_THAT(Text("/tav_event.port"), HasSubstr(" ? \"pin 103 = 1\" -> \"0\"  # left LED green\n"));
    for (const char* const file : {"/ttymxc0.port", "/ttymxc2.port", "/i2c-1.port", "/hidraw0.port",
                                   "/program.port", "/usb-1a86_USB2.0-Serial-if00-port0.port"})
    {
        EXPECT_THAT(Text(file), StartsWith("# virtual-unit recording 1\n# port ")) << file;
    }
}

TEST_F(RecordedRunTest, NumbersAreMaskedOnRequest)
{
    const Outcome outcome = Record(Ask("AT+CGSN", IDENTITY_ANSWER), {"--mask"});
    EXPECT_THAT(outcome.output, HasSubstr(IDENTITY)) << "the program gets the number";
    EXPECT_THAT(Text(MODEM_FILE), AllOf(Not(HasSubstr(IDENTITY)), HasSubstr("\\r\\n000000000000000\\r\\n")));
    const Outcome again = Replay(Ask("AT+CGSN", IDENTITY_ANSWER));
    EXPECT_EQ(again.status, 0) << again.errors;
    EXPECT_THAT(again.output, HasSubstr("000000000000000"));
}

TEST_F(RecordedRunTest, AReplayAnswersAsTheUnitDid)
{
    const std::string program =
        Ask("AT+CGSN", IDENTITY_ANSWER) + "lsusb; " + DRIVER_PROBE_WORD + " chip; exit 7";
    const Outcome recorded = Record(program, {"--modem-signal", "7"});
    EXPECT_EQ(recorded.status, 7) << recorded.errors;
    const Outcome replayed = Replay(program);
    EXPECT_EQ(replayed.status, 7) << replayed.errors;
    EXPECT_EQ(replayed.output, recorded.output);
    EXPECT_EQ(replayed.errors, recorded.errors);
}

TEST_F(RecordedRunTest, AModuleThatWasPulledOutIsPulledOutInTheReplay)
{
    const std::string program = "sleep 0.3; lsusb; sleep 0.4; lsusb; test -e " + MODEM + " && echo there";
    std::filesystem::create_directories(directory);
    std::ofstream(directory + ".script") << "0.1 modem unplug\n+0.4 modem plug\n";
    const Outcome recorded = Record(program, {"--script", directory + ".script", "--fast"});
    std::filesystem::remove(directory + ".script");
    EXPECT_THAT(recorded.output, AllOf(StartsWith("Bus 002"), EndsWith("there\n"), HasSubstr("05c6:9090")));
    EXPECT_EQ(Replay(program, {"--fast"}).output, recorded.output);
}

TEST_F(RecordedRunTest, TheFirstDifferenceIsTold)
{
    Record(Ask("AT+CGSN", IDENTITY_ANSWER));
    const Outcome different = Replay("exec 3<>" + MODEM + "; stty raw -echo <&3; printf 'AT+CSQ\\r\\n' >&3");
    EXPECT_EQ(different.status, 4);
    EXPECT_THAT(different.errors, StartsWith("virtual-unit: replay: " + MODEM + ": recording line "));
    EXPECT_THAT(different.errors,
                HasSubstr(", byte 5: expected 0x47 in \"AT+CG\" .., the program sent 0x53 in \"AT+CS\""));
    const Outcome failing = Replay("exit 3");
    EXPECT_EQ(failing.status, 3) << "the program's own status comes first";
    EXPECT_THAT(failing.errors, HasSubstr("the program ended before it sent that"));
}

TEST_F(RecordedRunTest, TheFirstDifferenceIsToldAtOnce)
{
    Record(Ask("AT+CGSN", IDENTITY_ANSWER));
    const Outcome different = Replay(
        "exec 3<>" + MODEM + "; stty raw -echo <&3; printf 'AT+CSQ\\r\\n' >&3; sleep 60; echo later >&2",
        {"--fast"});
    EXPECT_THAT(different.errors, ContainsRegex("expected 0x47 .*\nlater\n"));
}

TEST_F(RecordedRunTest, EveryDifferenceIsToldWithItsTime)
{
    const auto program = [](const std::string& first, const std::string& second, const std::string& third) {
        return "exec 3<>" + MODEM + "; stty raw -echo <&3; printf '" + first +
               "\\r\\n' >&3; sleep 1; printf '" + second + "\\r\\n' >&3; sleep 1.5; printf '" + third +
               "\\r\\n' >&3; sleep 1";
    };
    Record(program("AT+CSQ", "AT+CREG?", "AT+CIMI"), {"--fast"});
    const Outcome different = Replay(program("AT+CSX", "AT+CREG?", "AT+CIMX"), {"--fast"});
    EXPECT_EQ(different.status, 4);
    const std::vector<std::string> lines = Lines(different.errors);
    ASSERT_EQ(lines.size(), 3U) << different.errors;
    EXPECT_THAT(lines[0],
                ContainsRegex("recording line [0-9]+, byte 6: expected 0x51 .*, at 0(\\.[0-9]+)? s$"));
    EXPECT_THAT(lines[1], ContainsRegex("^virtual-unit: replay: " + MODEM +
                                        ": recording line [0-9]+, at 2\\.5[0-9]* s$"));
    EXPECT_EQ(lines[2], "virtual-unit: replay: 1 more differences");
}

TEST_F(RecordedRunTest, ADirectoryThatIsNotEmptyIsRefusedBeforeTheProgramStarts)
{
    std::filesystem::create_directories(directory + "/something");
    const Outcome outcome = RunUnit({"run", "--record", directory, "--", "/bin/echo", "started"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "virtual-unit: --record: \"" + directory + "\" is not empty\n");
}

TEST_F(RecordedRunTest, WhatIsNoRecordingIsRefusedBeforeTheProgramStarts)
{
    const Outcome missing = RunUnit({"replay", directory, "--", "/bin/echo", "started"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.errors,
              "virtual-unit: \"" + directory + "\" cannot be read: No such file or directory\n");
    std::filesystem::create_directories(directory);
    std::ofstream(directory + "/ttymxc0.port")
        << "# virtual-unit recording 1\n# port /dev/ttymxc0\nnonsense\n";
    const Outcome bad = RunUnit({"replay", directory, "--", "/bin/echo", "started"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.output, "");
    EXPECT_THAT(bad.errors, StartsWith("virtual-unit: \"" + directory + "/ttymxc0.port\", line 3: "));
}

TEST_F(RecordedRunTest, AWrongCommandLineIsRefused)
{
    const std::vector<std::vector<std::string>> wrong = {
        {"replay"},
        {"replay", "--", "/bin/true"},
        {"replay", "one", "two", "--", "/bin/true"},
        {"replay", "one"},
        {"replay", "one", "--gps", "l26", "--", "/bin/true"},
        {"replay", "one", "--script", "x", "--", "/bin/true"},
        {"replay", "one", "--mask", "--record", "x", "--", "/bin/true"},
        {"run", "--mask", "--", "/bin/true"},
        {"run", "--record", "--", "/bin/true"},
        {"run", "--record", "", "--", "/bin/true"}};
    for (const std::vector<std::string>& arguments : wrong)
    {
        const Outcome outcome = RunUnit(arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
        EXPECT_THAT(outcome.errors,
                    AllOf(StartsWith("virtual-unit: "), EndsWith(" (see virtual-unit --help)\n")))
            << testing::PrintToString(arguments);
    }
}

}

// What a script expects of the program, and what becomes of it.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string MODEM_LINE = "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0";
constexpr int FAILED = 5;

/// A command line of the shell that sends a command to the module.
std::string Send(const std::string& command)
{
    return "exec 3<>" + MODEM_LINE + "; stty raw -echo <&3; printf '" + command + "\\r\\n' >&3; ";
}

class ExpectTest : public VirtualUnitTest
{
protected:
    ExpectTest() { fs::create_directories(directory); }

    ~ExpectTest() override { fs::remove_all(directory); }

    /// Runs a command line of the shell on a script, in virtual time.
    Outcome Shell(const std::string& command, const std::string& text, std::vector<std::string> options = {},
                  RunningUnit::Options how = {}) const
    {
        std::ofstream(script) << text;
        options.insert(options.end(), {"--script", script, "--fast"});
        return RunProgram("/bin/sh", {"-c", command}, options, how);
    }

    /// The line that tells a failure.
    std::string Failure(int line, const std::string& what) const
    {
        return "virtual-unit: " + script + ":" + std::to_string(line) + ": " + what + "\n";
    }

    const fs::path directory = Kit::TempDir::Path() + "/expect test";
    const std::string script = directory / "the.script";
};

const std::string PINS = DRIVER_PROBE_WORD + " pins > /dev/null; "; // drives pin 103 with 1

TEST_F(ExpectTest, WhatComesIsMetAndTheScriptGoesOnThen)
{
    const std::string log = directory / "log";
    const Outcome outcome =
        Shell("sleep 1; " + PINS + "sleep 1; " + Send("AT+CSQ") + "sleep 1; echo by\\ now; sleep 9",
              "0.5 ignition on\n"
              "expect pin 103 = 1 within 2\n"
              "expect modem hears AT+CSQ\\r within 2.5\n"
              "expect modem says +CSQ: 20,99 within 1\n"
              "expect program prints by now\n"
              "+0.5 ignition off\n"
              "expect no reader opened within 3\n",
              {"--log", log});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.output, "by now\n");
    std::vector<std::string> told = Lines(ReadFile(log));
    for (std::string& line : told)
    {
        line = line.substr(0, line.find('.') + 2) + line.substr(line.find(" s  ")); // tenths of a second
    }
    EXPECT_THAT(told,
                ElementsAre("    0.5 s  script: ignition on", "    1.0 s  met: expect pin 103 = 1 within 2",
                            "    2.0 s  met: expect modem hears AT+CSQ\\r within 2.5",
                            "    2.0 s  met: expect modem says +CSQ: 20,99 within 1",
                            "    3.0 s  met: expect program prints by now", "    3.5 s  script: ignition off",
                            "    6.5 s  met: expect no reader opened within 3"));
}

TEST_F(ExpectTest, WhatDoesNotComeFailsAndIsToldWithWhatCameInItsPlace)
{
    const std::string command = Send("AT+CGSN") + "echo hello; echo world >&2; " + PINS + "sleep 9";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"expect pin 103 = 0 within 2", "it was 1 since 0.000 s"},
        {"expect pin 105 = 0 within 2", "the pin was never driven"},
        {"expect modem hears AT+CSQ within 1.5", "it heard \"AT+CGSN\\r\\n\""},
        {"expect modem-2 hears AT within 2", "it heard nothing"},
        {"expect modem-2 says OK within 2", "it said nothing"},
        {"expect reader opened within 2", "it was not opened"},
        {"expect program prints goodbye within 2", "it printed \"hello\\nworld\\n\""},
        {"expect no pin 103 = 1 within 2", "it was 1 since 0.000 s"},
        {"expect no modem hears AT+CGSN within 2", "it came at 0.000 s"},
        {"expect no program prints world", "it came at 0.000 s"}};
    for (const auto& [line, instead] : cases)
    {
        const Outcome outcome = Shell(command + "; echo done", "# a comment\n" + line + "\n3 ignition on\n");
        EXPECT_EQ(outcome.status, FAILED) << line;
        EXPECT_THAT(outcome.errors, HasSubstr(Failure(2, line + ": failed: " + instead)));
        EXPECT_THAT(outcome.output, EndsWith("done\n")) << "the program goes on";
    }
}

TEST_F(ExpectTest, AFailureIsToldAtOnceAndTheScriptGoesOn)
{
    const Outcome outcome =
        Shell("sleep 3; echo later >&2; sleep 3", "expect reader opened within 2\n+1.5 end\n");
    EXPECT_EQ(outcome.errors, Failure(1, "expect reader opened within 2: failed: it was not opened") +
                                  "later\nvirtual-unit: the program was ended by signal 15\n");
    EXPECT_EQ(outcome.status, 128 + SIGTERM) << "the program's own status comes first";
}

TEST_F(ExpectTest, OnlyWhatComesAfterTheLineBeforeCounts)
{
    const std::string command = "echo one; sleep 2; echo two; sleep 9";
    EXPECT_EQ(Shell(command,
                    "expect program prints one within 1\n1 ignition on\nexpect program prints two within 2\n")
                  .status,
              0);
    EXPECT_EQ(Shell(command, "1 ignition on\nexpect program prints one within 2\n").status, FAILED);
    EXPECT_EQ(Shell(command, "1 ignition on\nexpect no program prints one within 2\n").status, 0);
    EXPECT_EQ(
        Shell(command, "expect program prints one within 1\nexpect program prints one within 1\n").status,
        FAILED)
        << "each counts once";
}

TEST_F(ExpectTest, APinIsAsItIsUntilItIsDriven)
{
    EXPECT_EQ(Shell(PINS + "sleep 9", "3 ignition on\nexpect pin 103 = 1 within 1\n").status, 0);
    EXPECT_EQ(Shell(PINS + "sleep 9", "3 ignition on\nexpect no pin 103 = 1 within 1\n").status, FAILED);
    EXPECT_EQ(
        Shell(PINS + "sleep 9", "when pin 103 = 1\n+1 ignition on\nexpect no pin 103 = 0 within 1\n").status,
        0);
}

TEST_F(ExpectTest, TheProgramsOwnFailureComesFirst)
{
    const Outcome outcome = Shell("exit 7", "expect program prints ready\n");
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.errors, Failure(1, "expect program prints ready: failed: it printed nothing until the "
                                         "program ended"));
    EXPECT_EQ(Shell("echo ready; kill -ABRT $$", "expect program prints ready\n").status, 128 + SIGABRT);
}

TEST_F(ExpectTest, AnExpectationThatIsNotReachedHasFailed)
{
    const Outcome outcome = Shell("true", "when reader opened\nexpect no gps says $GP within 1\n");
    EXPECT_EQ(outcome.status, FAILED);
    EXPECT_EQ(outcome.errors, Failure(1, "the program ended before this was reached") +
                                  Failure(2, "the program ended before this was reached"));
}

TEST_F(ExpectTest, AnyLineThatIsNotReachedIsAFailureOnRequest)
{
    const std::string text = "0 ignition on\n10 ignition off\nwhen reader opened\n";
    const Outcome lenient = Shell("sleep 1", text);
    EXPECT_EQ(lenient.status, 0);
    EXPECT_EQ(lenient.errors, Failure(2, "the program ended before this was reached"));
    const Outcome strict = Shell("sleep 1", text, {"--strict"});
    EXPECT_EQ(strict.status, FAILED);
    EXPECT_EQ(strict.errors, Failure(2, "the program ended before this was reached") +
                                 Failure(3, "the program ended before this was reached"));
    EXPECT_EQ(Shell("sleep 20", "0 ignition on\n10 ignition off\n", {"--strict"}).status, 0);
}

TEST_F(ExpectTest, TheResultsAreWrittenAsJUnitXml)
{
    const std::string junit = directory / "results.xml";
    const Outcome outcome = Shell("printf '<\\033[1m\\377&>\"\\n'; sleep 9; exit 3",
                                  "expect program prints \\x1B[1m within 1\n+1 ignition on\nexpect program "
                                  "prints ]]> within 1\n20 end\n",
                                  {"--strict", "--junit", junit});
    EXPECT_EQ(outcome.status, 3);
    const std::string read = "import sys, xml.etree.ElementTree as T\n"
                             "s = T.parse(sys.argv[1]).getroot().find('testsuite')\n"
                             "print(s.get('name'), s.get('tests'), s.get('failures'))\n"
                             "for c in s.findall('testcase'):\n"
                             "    print(c.get('name'), '|', c.get('time'), '|', *[f.get('message') for f in "
                             "c.findall('failure')])\n";
    const std::string output = directory / "output";
    ASSERT_EQ(std::system(("python3 -c " + Word(read) + " " + Word(junit) + " > " + Word(output)).c_str()),
              0);
    EXPECT_EQ(ReadFile(output),
              script + " 4 3\n"
                       "the program | 9.000 | it ended with status 3\n"
                       "line 1: expect program prints \\x1B[1m within 1 | 0.000 |\n"
                       "line 3: expect program prints ]]> within 1 | 1.000 | it printed nothing\n"
                       "line 4: 20 end | 0.000 | the program ended before this was reached\n");
    const Outcome refused = Shell("echo started", "", {"--junit", "/no/such/file"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.output, "");
}

TEST_F(ExpectTest, WhatTheProgramPrintsGoesWhereItWent)
{
    const std::string text = "expect program prints out\nexpect program prints err\n";
    const Outcome outcome =
        Shell("echo out; sleep 1; echo err >&2; head -c 200000 /dev/zero | tr '\\0' x", text);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "out\n" + std::string(200'000, 'x'));
    EXPECT_EQ(outcome.errors, "err\n");

    RunningUnit::Options closed;
    closed.errorsClosed = true;
    EXPECT_EQ(
        Shell("trap '' PIPE; echo err >&2; sleep 1; echo out", "expect program prints out\n", {}, closed)
            .output,
        "out\n");
}

TEST_F(ExpectTest, ATerminalStaysATerminal)
{
    RunningUnit::Options onTerminal;
    onTerminal.onTerminal = true;
    const Outcome outcome =
        Shell("test -t 1 && test -t 2 && stty size < /dev/tty > /dev/null && echo out; sleep 1; echo err >&2",
              "expect program prints out\nexpect program prints err\n", {}, onTerminal);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "out\r\nerr\r\n");
}

TEST_F(ExpectTest, ItHoldsInRealTimeToo)
{
    std::ofstream(script) << "expect program prints ready within 60\n+0 end\n";
    EXPECT_EQ(RunProgram("/bin/sh", {"-c", "trap 'exit 0' TERM; echo ready; while :; do sleep 0.01; done"},
                         {"--script", script})
                  .status,
              0);
}

/// The script of the document's example of a test.
std::string DocumentedScript()
{
    const std::string document = ReadFile(VIRTUAL_UNIT_DOCUMENT);
    const std::string before = "with this `unplug.script`:\n\n";
    std::string script = document.substr(document.find(before) + before.size());
    return script.substr(0, script.find("\n\n") + 1);
}

TEST_F(ExpectTest, TheTestOfTheDocumentCannotPassWhenTheApplicationAborts)
{
    const std::string application = Send("AT+CSQ") +
                                    "cat <&3 > /dev/null; echo the module is gone; while ! test -e " +
                                    MODEM_LINE + "; do sleep 0.5; done; ";
    const std::string text = DocumentedScript();
    const std::string obedient = "trap 'exit 0' TERM; ";
    const std::string wait = "while :; do sleep 0.5; done";
    EXPECT_EQ(Shell(obedient + application + "echo the module is back; " + wait, text, {"--strict"}).status,
              0);
    EXPECT_EQ(Shell(obedient + application + wait, text, {"--strict"}).status, FAILED);
    EXPECT_EQ(Shell(application + "echo the module is back; kill -ABRT $$", text, {"--strict"}).status,
              128 + SIGABRT);
    EXPECT_EQ(Shell(application + "echo the module is back; exit 0", text, {"--strict"}).status, FAILED)
        << "it ended too soon";
}

TEST_F(ExpectTest, WhatCannotBeExpectedIsRefused)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"expect", "\"\" is not a port: gps, reader, modem, modem-2, buzzer, i2c, sounder, events"},
        {"expect no", "\"\" is not a port: gps, reader, modem, modem-2, buzzer, i2c, sounder, events"},
        {"expect pin 99 = 1 within 2", "\"99\" is not a pin from 100 to 106"},
        {"expect pin 103 1", "\"1\" is not \"=\""},
        {"expect pin 103 = 2", "\"2\" is not a number from 0 to 1"},
        {"expect program says x", "\"says\" is not prints, which is all that a program does"},
        {"expect program prints", "the text is missing"},
        {"expect program prints within 2", "the text is missing"},
        {"expect modem hears AT within 2s", "\"2s\" is not a number of seconds from 0 to 86400"},
        {"expect modem opened now within 2", "\"now\" is too much"}};
    for (const auto& [line, reason] : cases)
    {
        const Outcome outcome = Shell("echo started", line + "\n");
        EXPECT_EQ(outcome.errors, Failure(1, reason)) << line;
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
    }
}

}

// Scripts, live steps and the control socket of the program virtual-unit.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace
{

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string MODEM_PORT = "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0";
const std::string BUZZER = "/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0";

class ScriptTest : public VirtualUnitTest
{
protected:
    ScriptTest()
    {
        setenv("TMPDIR", temporary.c_str(), 1);
        std::filesystem::create_directories(temporary);
    }

    ~ScriptTest() override
    {
        unsetenv("TMPDIR");
        std::filesystem::remove_all(temporary);
    }

    std::string Write(const std::string& text) const
    {
        const std::string path = temporary + "/the.script";
        std::ofstream(path) << text;
        return path;
    }

    /// Runs a command line of the shell, in which `step STEP` does one, in virtual time.
    Outcome Shell(const std::string& command, const std::string& script = "",
                  std::vector<std::string> options = {}) const
    {
        std::vector<std::string> arguments = {"run", "--fast", "--script", Write(script), "--log", log};
        std::ranges::move(options, std::back_inserter(arguments));
        const std::string functions = "step() { " + Word(VIRTUAL_UNIT) + " do \"$@\"; }; ";
        arguments.insert(arguments.end(), {"--", "/bin/sh", "-c", functions + command});
        return RunUnit(arguments);
    }

    /// The lines of the log, without their times.
    std::vector<std::string> Log() const
    {
        std::ifstream file(log);
        std::vector<std::string> lines = Lines(std::string(std::istreambuf_iterator<char>(file), {}));
        for (std::string& line : lines)
        {
            line.erase(0, line.find(" s  ") + 4);
        }
        return lines;
    }

    const std::string temporary = Kit::TempDir::Path() + "/script-test";
    const std::string log = temporary + "/log";
};

TEST_F(ScriptTest, ABadScriptIsRefusedWithItsLineBeforeTheProgramStarts)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"nonsense", "\"nonsense\" is not a number of seconds from 0 to 86400"},
        {"-1 ignition on", "\"-1\" is not a number of seconds from 0 to 86400"},
        {"1e3 ignition on", "\"1e3\" is not a number of seconds from 0 to 86400"},
        {"inf ignition on", "\"inf\" is not a number of seconds from 0 to 86400"},
        {"90000 ignition on", "\"90000\" is not a number of seconds from 0 to 86400"},
        {"+ ignition on", "\"\" is not a number of seconds from 0 to 86400"},
        {"1", "\"\" is not a step"},
        {"1 dance", "\"dance\" is not a step"},
        {"1 ignition", "\"ignition\" is not a step"},
        {"1 ignition on now", "\"ignition on now\" is not \"ignition on\""},
        {"1 key", "\"key\" is not \"key ID|none\""},
        {"1 key 12", "\"12\" is neither 12 hexadecimal digits nor none"},
        {"1 trigger 256", "\"256\" is not a number from 0 to 255"},
        {"1 trigger 1 0", "\"0\" is not a number from 1 to 1000"},
        {"1 trigger 1 2 3", "\"trigger 1 2 3\" is not \"trigger CODE [TIMES]\""},
        {"1 pin 99 well", "\"99\" is not a pin from 100 to 106"},
        {"1 pin 100 ill", "\"ill\" is neither refused nor well"},
        {"1 modem signal 32", "\"32\" is neither a number from 0 to 31 nor 99"},
        {"1 modem registration here", "\"here\" is not none, home, searching, denied, unknown or roaming"},
        {"1 modem sim half", "\"half\" is neither in nor out"},
        {"1 modem late soon", "\"soon\" is not a number of milliseconds from 0 to 600000"},
        {"1 modem noise 0", "\"0\" is not a number of bytes from 1 to 4096"},
        {"when phone hears AT",
         "\"phone\" is not a port: gps, reader, modem, modem-2, buzzer, i2c, sounder, events"},
        {"when modem smells AT", "\"smells\" is neither hears nor says nor opened"},
        {"when modem hears", "the text is missing"},
        {"when modem opened twice", "\"twice\" is too much"},
        {"when modem hears \\q", "\"\\q\" is no text: \\r, \\n, \\t, \\\\ and \\xHH are the escapes"},
        {"when modem hears \\x4", "\"\\x4\" is no text: \\r, \\n, \\t, \\\\ and \\xHH are the escapes"},
        {"unit", ": the value is missing"},
        {"unit gps", "gps: the value is missing"},
        {"unit gps l27", "gps: \"l27\" is neither l26 nor skm53"},
        {"unit foo", "foo: \"foo\" is not an option of the unit"},
        {"unit colour red", "colour: \"colour\" is not an option of the unit"}};
    for (const auto& [line, reason] : cases)
    {
        const Outcome outcome = Shell("echo started", "# a comment\n0 ignition on\n\n" + line + "\n");
        EXPECT_EQ(outcome.errors, "virtual-unit: " + temporary + "/the.script:4: " + reason + "\n") << line;
        EXPECT_EQ(outcome.status, 2) << line;
        EXPECT_EQ(outcome.output, "") << line;
    }
}

TEST_F(ScriptTest, AScriptThatCannotBeReadIsRefused)
{
    const Outcome missing = RunUnit({"run", "--script", "/no/such/file", "--", "/bin/echo", "started"});
    EXPECT_EQ(missing.errors, "virtual-unit: /no/such/file cannot be read: No such file or directory\n");
    EXPECT_EQ(missing.status, 2);
    const Outcome directory = RunUnit({"run", "--script", "/", "--", "/bin/echo", "started"});
    EXPECT_EQ(directory.errors, "virtual-unit: / cannot be read: Is a directory\n");
    EXPECT_EQ(directory.output, "");
}

TEST_F(ScriptTest, ALogThatCannotBeWrittenIsTold)
{
    const Outcome outcome = RunUnit({"run", "--log", "/no/such/log", "--", "/bin/echo", "started"});
    EXPECT_EQ(outcome.errors,
              "virtual-unit: --log: /no/such/log: No such file or directory (see virtual-unit --help)\n");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
}

TEST_F(ScriptTest, BlankLinesAndCommentsAreNothing)
{
    const Outcome outcome = Shell("sleep 0.1", "\n  \t \r\n#1 dance\n  # 1 dance\n0 ignition on # dance\r\n");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Log(), ElementsAre("script: ignition on"));
}

TEST_F(ScriptTest, TheUnitIsFittedAsItSaysUnlessTheCommandLineSaysOtherwise)
{
    const std::string script = "unit gps skm53\nunit key 00A1B2C3D4E5\nunit i2c-adapter 2\n";
    const std::string command = Word(VIRTUAL_UNIT) + " devices";
    const std::string fitted = Shell(command, script).output;
    EXPECT_THAT(fitted, HasSubstr("GPS receiver SKM53\n"));
    EXPECT_THAT(fitted, HasSubstr("driver-ID reader, key 00A1B2C3D4E5\n"));
    EXPECT_THAT(fitted, HasSubstr("\n/dev/i2c-2 "));
    const std::string overruled = Shell(command, script, {"--gps", "l26"}).output;
    EXPECT_THAT(overruled, HasSubstr("GPS receiver L26\n"));
    EXPECT_THAT(overruled, HasSubstr("driver-ID reader, key 00A1B2C3D4E5\n"));
}

TEST_F(ScriptTest, ARecordingIsLookedForBesideTheScript)
{
    std::ofstream(temporary + "/drive.nmea") << "$GPRMC,1*00\n";
    EXPECT_EQ(Shell("true", "unit nmea drive.nmea\n").status, 0);
    EXPECT_THAT(Shell("true", "unit nmea drove.nmea\n").errors,
                AllOf(HasSubstr(temporary + "/drove.nmea cannot be read"), Not(HasSubstr("--help"))));
}

/// The time of each line of a log, in seconds.
std::vector<double> Times(const std::string& path)
{
    std::ifstream file(path);
    std::vector<double> times;
    for (std::string line; std::getline(file, line);)
    {
        times.push_back(std::stod(line));
    }
    return times;
}

TEST_F(ScriptTest, StepsComeAtTheirTimesInTheOrderOfTheLines)
{
    const Outcome outcome =
        Shell("sleep 1", "0.2 gps lost\n+0.3 gps found\n0.1 gps silent\n+0.1 gps well\n0.5 ignition on\n");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Log(), ElementsAre("script: gps lost", "script: gps found", "script: gps silent",
                                   "script: gps well", "script: ignition on"));
    const std::vector<double> times = Times(log);
    ASSERT_EQ(times.size(), 5U);
    EXPECT_GE(times[0], 0.2);
    EXPECT_GE(times[1], 0.5);
    EXPECT_LT(times[3] - times[1], 0.1) << "their time has passed";
    EXPECT_LT(times[4], 0.9);
}

TEST_F(ScriptTest, ItWaitsForWhatTheProgramSendsAndGets)
{
    const std::string script = "when modem opened\n+0 gps lost\n"
                               "when modem hears AT+C\\x53Q\\r\n+0 gps found\n"
                               "when modem says +CSQ: 20,99\n+0 gps silent\n"
                               "when modem hears AT+CSQ\n+0 gps well\n"
                               "when events hears pin 103 = 1\n+0.1 ignition on\n";
    const std::string ask =
        "exec 3<>" + MODEM_PORT + "; stty raw -echo <&3; printf 'AT+CSQ\\r\\n' >&3; head -c 28 <&3; ";
    const Outcome once = Shell(ask + "sleep 0.1", script);
    EXPECT_EQ(once.status, 0) << once.errors;
    EXPECT_THAT(Log(), ElementsAre("script: gps lost", "script: gps found", "script: gps silent",
                                   temporary + "/the.script:7: the program ended before this was reached"));
    EXPECT_EQ(once.errors,
              "virtual-unit: " + temporary + "/the.script:7: the program ended before this was reached\n");

    const Outcome all = Shell(ask + "printf 'AT+CSQ\\r\\n' >&3; head -c 28 <&3 > /dev/null; " +
                                  DRIVER_PROBE_WORD + " pins > /dev/null; " + DRIVER_PROBE_WORD + " trigger",
                              script);
    EXPECT_EQ(all.status, 0) << all.errors;
    EXPECT_THAT(all.output, EndsWith("trigger 1\n"));
    EXPECT_THAT(Log(), ElementsAre("script: gps lost", "script: gps found", "script: gps silent",
                                   "script: gps well", "script: ignition on"));
}

TEST_F(ScriptTest, EachOpeningCountsOnce)
{
    const std::string script = "when reader opened\n+0 gps lost\nwhen reader opened\n+0 gps found\n";
    Shell("exec 3<>/dev/ttymxc2; sleep 0.1", script);
    EXPECT_THAT(Log(), ElementsAre("script: gps lost", HasSubstr("the.script:3: ")));
    Shell("exec 3<>/dev/ttymxc2; exec 4<>/dev/ttymxc2; sleep 0.1", script);
    EXPECT_THAT(Log(), ElementsAre("script: gps lost", "script: gps found"));
}

TEST_F(ScriptTest, TheEndIsASignalThatTheProgramMayObeyInItsTime)
{
    const Outcome obeyed = Shell("trap 'echo asked; exit 5' TERM; while :; do sleep 0.01; done", "0.1 end\n");
    EXPECT_EQ(obeyed.output, "asked\n");
    EXPECT_EQ(obeyed.status, 5);
}

TEST_F(ScriptTest, EveryStepOfTheListCanBeDone)
{
    // The list says which values a step takes.
    const std::vector<std::pair<std::string, std::string>> values = {{"CODE [TIMES]", "9 2"},
                                                                     {"PIN refused|well", "104 refused"},
                                                                     {"ID|none", "00A1B2C3D4E5"},
                                                                     {"MS", "10"},
                                                                     {"BYTES", "7"},
                                                                     {"RSSI", "99"},
                                                                     {"STATE", "roaming"},
                                                                     {"in|out", "out"},
                                                                     {"MILLIVOLTS", "3500"},
                                                                     {"KMH", "50"},
                                                                     {"LAT LON", "48.2 16.37"},
                                                                     {"G SECONDS", "0.5 2"},
                                                                     {"[TEXT...]", "+CME ERROR: 10"},
                                                                     {"TEXT...", "RING"}};
    std::istringstream help(RunUnit({"--help"}).output);
    std::string line;
    while (std::getline(help, line) && line.find("Steps, of do") == std::string::npos)
    {
    }
    std::string script;
    std::vector<std::string> expected;
    for (std::getline(help, line); std::getline(help, line);)
    {
        std::string step = line.substr(2, line.find("  ", 2) - 2);
        step.erase(step.find_last_not_of(' ') + 1);
        for (const auto& [name, value] : values)
        {
            if (step.ends_with(" " + name))
            {
                step.replace(step.size() - name.size(), name.size(), value);
                break;
            }
        }
        if (step == "power cut") // after which nothing else happens
        {
            continue;
        }
        script += "0 " + step + "\n";
        expected.push_back("script: " + step);
    }
    EXPECT_GT(expected.size(), 40U);
    EXPECT_EQ(expected.back(), "script: end");
    Shell("sleep 2", script);
    EXPECT_EQ(Log(), [&] {
        std::vector<std::string> all = expected;
        all.emplace_back("the program was ended by signal 15");
        return all;
    }());
}

TEST_F(ScriptTest, AStepIsDoneWhileTheProgramRuns)
{
    const Outcome outcome = Shell("step modem unplug; lsusb; step modem plug; lsusb");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre(StartsWith("Bus 002"), StartsWith("Bus 001 Device 001"), HasSubstr("05c6:9090"),
                            StartsWith("Bus 002"), StartsWith("Bus 001 Device 001")));
    EXPECT_THAT(Log(), ElementsAre("do: modem unplug", "do: modem plug"));
}

TEST_F(ScriptTest, AWrongStepIsRefusedAndDoesNothing)
{
    const Outcome outcome = Shell("step dance; echo $?; step; echo $?");
    EXPECT_EQ(outcome.output, "2\n2\n");
    EXPECT_EQ(outcome.errors, "virtual-unit: \"dance\" is not a step\n"
                              "virtual-unit: do: no step (see virtual-unit --help)\n");
    EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ScriptTest, ThePortsTellHowTheyAre)
{
    const std::string devices = Word(VIRTUAL_UNIT) + " devices";
    const std::string output =
        Shell("step gps lost; step key 00a1b2c3d4e5; step modem registration roaming; step buzzer unplug; "
              "step i2c dead; step sounder refused; " +
              DRIVER_PROBE_WORD + " pins > /dev/null; " + devices)
            .output;
    EXPECT_THAT(
        Lines(output),
        AllOf(testing::Contains("/dev/ttymxc0           GPS receiver L26, no satellites"),
              testing::Contains("/dev/ttymxc2           driver-ID reader, key 00A1B2C3D4E5"),
              testing::Contains(MODEM_PORT + " cellular module UC15, registration roaming, signal 20"),
              testing::Contains(BUZZER + " buzzer board, unplugged"),
              testing::Contains("/dev/i2c-1             I2C adapter, accelerometer MMA8451Q at 0x1C, dead"),
              testing::Contains(
                  "/dev/hidraw0           HID bridge FT260, sound chips at 0x5A and 0x62, refusing"),
              testing::Contains("/dev/tav_event         event driver, pins 100 to 106, 103 on")));
    EXPECT_THAT(
        Shell("step gps silent; step reader silent; step key none; step modem unplug; step buzzer silent; "
              "step i2c refused; step sounder unplug; " +
              devices)
            .output,
        AllOf(HasSubstr("L26, silent\n"), HasSubstr("reader, no key, silent\n"),
              HasSubstr("UC15, off the bus\n"), HasSubstr("board, silent\n"), HasSubstr("0x1C, refusing\n"),
              HasSubstr("0x62, unplugged\n")));
    EXPECT_THAT(Shell("step modem sim out; " + devices).output, HasSubstr("UC15, no SIM\n"));
}

TEST_F(ScriptTest, WhatIsPulledOutHangsUpAndComesBackAsANewFile)
{
    for (const auto& [name, port] : {std::pair("modem", MODEM_PORT), std::pair("buzzer", BUZZER)})
    {
        const std::string step = std::string("step ") + name;
        const Outcome outcome = Shell("exec 3<>" + port + "; " + step + " unplug; cat <&3; test -e " + port +
                                      " || echo gone; " + step + " plug; exec 4<>" + port +
                                      "; cat <&3; test -c " + port + " && test -t 4 && echo back");
        EXPECT_EQ(outcome.output, "gone\nback\n") << outcome.errors;
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
    }
}

TEST_F(ScriptTest, TheModuleAnswersOnItsNewPorts)
{
    const std::string ask = "stty raw -echo <&3; printf 'AT+CSQ\\r\\n' >&3; head -c 28 <&3; ";
    const Outcome outcome = Shell("exec 3<>" + MODEM_PORT + "; " + ask +
                                  "step modem unplug; step modem plug; exec 3<>" + MODEM_PORT + "; " + ask);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    const std::string reply = "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n";
    EXPECT_EQ(outcome.output, reply + reply);
}

TEST_F(ScriptTest, TheBridgeIsPulledOutAndComesBack)
{
    const Outcome outcome =
        Shell("exec 3<>/dev/hidraw0; step sounder unplug; cat <&3; test -e /dev/hidraw0 || echo gone; "
              "exec 3>&-; step sounder plug; " +
              DRIVER_PROBE_WORD + " bridge");
    EXPECT_THAT(outcome.output, AllOf(StartsWith("gone\n"), EndsWith("write 6\n"))) << outcome.errors;
}

TEST_F(ScriptTest, AProgramThatHoldsTheBridgeKeepsItsNumberFromIt)
{
    const Outcome outcome =
        Shell("exec 3<>/dev/hidraw0; step sounder unplug; step sounder plug; ls /dev/hidraw0 /dev/hidraw1; "
              "exec 3>&-; step sounder unplug; step sounder plug; ls /dev/hidraw0 /dev/hidraw1");
    EXPECT_EQ(outcome.output, "/dev/hidraw1\n/dev/hidraw0\n") << outcome.errors;
}

TEST_F(ScriptTest, AWriteToABridgeThatIsGoneFailsAsTheKernelHasIt)
{
    const Outcome outcome = Shell(DRIVER_PROBE_WORD + " gone " + Word(VIRTUAL_UNIT));
    EXPECT_EQ(Lines(outcome.output), (std::vector<std::string>{"write 6", "write ENODEV", "write ENODEV",
                                                               "/dev/hidraw1 write 6", "old one ENODEV"}))
        << outcome.errors;
}

TEST_F(ScriptTest, ALineThatIsStuckTakesNoOutputUntilItIsWell)
{
    for (const auto& [name, port] : {std::pair("modem", MODEM_PORT), std::pair("buzzer", BUZZER)})
    {
        const Outcome outcome = RunProgram(
            DRIVER_PROBE, {"stuck", port},
            {"--fast", "--script", Write(std::string("0 ") + name + " stuck\n5.03 " + name + " well\n")});
        EXPECT_EQ(outcome.output,
                  "at first 0\nwrite 4\nwaiting 4\ndrained after 5 s\nwaiting 0\nit answers\n")
            << outcome.errors;
    }
}

TEST_F(ScriptTest, ACardThatIsPulledOutAnswersNothingUntilItIsPutBack)
{
    const Outcome outcome = Shell("echo text > /mnt/sdcard/a; step card out; cat /mnt/sdcard/a; "
                                  "echo more > /mnt/sdcard/b; test -d /mnt/sdcard && echo mount point; "
                                  "step card in; cat /mnt/sdcard/a; ls /mnt/sdcard");
    EXPECT_EQ(outcome.output, "mount point\ntext\na\n");
    EXPECT_THAT(outcome.errors, HasSubstr("/mnt/sdcard/a: Input/output error"));
}

TEST_F(ScriptTest, ACardThatIsReadOnlyCanBeReadAndNotChanged)
{
    const Outcome outcome = Shell(
        "cd /; echo text > mnt/sdcard/a; step card read-only; cat mnt/sdcard/a; grep sdcard /proc/mounts; "
        "for c in 'rm mnt/sdcard/a' 'mkdir mnt/sdcard/d' 'mv mnt/sdcard/a mnt/sdcard/b' 'chmod 600 "
        "mnt/sdcard/a' "
        "'truncate -s 0 mnt/sdcard/a' 'touch mnt/sdcard/n' 'cat mnt/sdcard/none'; do $c 2>&1 | sed 's/.*: "
        "//'; done; "
        "test -w mnt/sdcard/a || echo no; step card well; rm mnt/sdcard/a && echo done");
    std::string refused;
    for (int i = 0; i < 6; ++i)
    {
        refused += "Read-only file system\n";
    }
    EXPECT_EQ(outcome.output, "text\n/dev/mmcblk3p1 /mnt/sdcard vfat ro,relatime 0 0\n" + refused +
                                  "No such file or directory\nno\ndone\n")
        << outcome.errors;
}

TEST_F(ScriptTest, OnACardThatIsFullNothingIsMadeOrGrows)
{
    const Outcome outcome = Shell(
        "echo text > /mnt/sdcard/a; echo > /mnt/sdcard/c; step card full; cat /mnt/sdcard/a; "
        "stat -fc '%f %a' /mnt/sdcard; for c in 'mkdir /mnt/sdcard/d' 'touch /mnt/sdcard/n' "
        "'cp /etc/passwd /mnt/sdcard/c' 'truncate -s 9 /mnt/sdcard/a' 'cp /mnt/sdcard/a /mnt/sdcard/b'; "
        "do $c 2>&1 | sed 's/.*: //'; done; mv /mnt/sdcard/a /mnt/sdcard/e; truncate -s 2 /mnt/sdcard/e; "
        "rm /mnt/sdcard/c; ls /mnt/sdcard; step card well; echo more >> /mnt/sdcard/e; cat /mnt/sdcard/e");
    std::string refused;
    for (int i = 0; i < 5; ++i)
    {
        refused += "No space left on device\n";
    }
    EXPECT_EQ(outcome.output, "text\n0 0\n" + refused + "e\ntemore\n") << outcome.errors;
}

const char* const GROWTH_OF_FOUR = "write over 4\n"
                                   "write ENOSPC\n"
                                   "pwrite over 2\n"
                                   "pwrite ENOSPC\n"
                                   "writev ENOSPC\n"
                                   "pwritev over 2\n"
                                   "pwritev ENOSPC\n"
                                   "pwritev2 ENOSPC\n"
                                   "ftruncate ENOSPC\n"
                                   "fallocate ENOSPC\n"
                                   "sendfile ENOSPC\n"
                                   "copy_file_range ENOSPC\n"
                                   "ftruncate to less 0\n"
                                   "write of one for reading EBADF\n"
                                   "appended ENOSPC\n"
                                   "elsewhere 1\n";

TEST_F(ScriptTest, OnACardThatIsFullNoCallMakesAFileGrow)
{
    const Outcome outcome = Shell("echo 123 > /mnt/sdcard/a; step card full; " + DRIVER_PROBE_WORD +
                                  " grow /mnt/sdcard/a; cat /mnt/sdcard/a");
    EXPECT_EQ(outcome.output, GROWTH_OF_FOUR + std::string("12a")) << outcome.errors;
}

TEST_F(ScriptTest, AFileThatIsOpenNoticesAFullCardWhereTheScriptNamesIt)
{
    const std::string command =
        "echo 1 > /mnt/sdcard/a; exec " + Word(DRIVER_PROBE) + " appends /mnt/sdcard/a";
    const Outcome told = Shell(command, "1.5 card full\n3.5 card well\n");
    EXPECT_EQ(told.output, "after 1 s 1\nafter 2 s ENOSPC\nafter 3 s ENOSPC\nafter 4 s 1\n") << told.errors;
    const Outcome live = Shell("(sleep 1.5; step card full) & " + command);
    EXPECT_EQ(live.output, "after 1 s 1\nafter 2 s 1\nafter 3 s 1\nafter 4 s 1\n") << live.errors;
}

TEST_F(ScriptTest, ACardThatIsSlowTakesItsTimeForEachCall)
{
    const Outcome outcome =
        Shell("step card slow 2500; a=$(date +%s); test -e /mnt/sdcard/a; b=$(date +%s); : > /mnt/sdcard/a; "
              "c=$(date +%s); step card well; test -s /mnt/sdcard/a; d=$(date +%s); "
              "echo $(( (b - a) / 2 )) $(( (c - b) / 2 )) $(( d - c ))");
    EXPECT_EQ(outcome.output, "1 1 0\n") << outcome.errors;
}

TEST_F(ScriptTest, ACardThatIsBusyStaysMountedAndTheJournalTellsIt)
{
    const std::string journal = temporary + "/journal";
    const Outcome outcome =
        Shell(DRIVER_PROBE_WORD + " umount; step card busy; " + DRIVER_PROBE_WORD +
                  " umount; step card well; step card in; step card busy; " + DRIVER_PROBE_WORD +
                  " umount; grep -c sdcard /proc/mounts; step card well; " + DRIVER_PROBE_WORD +
                  " umount; grep -c sdcard /proc/mounts",
              "", {"--journal", journal});
    EXPECT_EQ(outcome.output, "umount 0\numount EINVAL\numount EBUSY\n1\numount 0\n0\n") << outcome.errors;
    std::vector<std::string> told = Lines(ReadFile(journal));
    for (std::string& line : told)
    {
        line.erase(0, line.find(" s  ") + 4);
    }
    EXPECT_THAT(told, ElementsAre("card unmounted", "card stays mounted", "card unmounted"));
    EXPECT_THAT(outcome.errors, HasSubstr("/mnt/sdcard stays mounted: it is busy"));
}

TEST_F(ScriptTest, APinIsRefused)
{
    const Outcome outcome = Shell("step pin 103 refused; " + DRIVER_PROBE_WORD +
                                  " pins; step pin 103 well; " + DRIVER_PROBE_WORD + " pins");
    EXPECT_THAT(Lines(outcome.output), AllOf(testing::Contains("pin EIO"), testing::Contains("pin 0")));
}

TEST_F(ScriptTest, OnlyARunCanBeToldAStep)
{
    const Outcome outcome = RunUnit({"do", "ignition", "on"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.errors, "virtual-unit: no virtual unit is running\n");
    EXPECT_EQ(RunUnit({"do", "--control", temporary + "/none", "ignition", "on"}).errors,
              "virtual-unit: " + temporary + "/none: No such file or directory\n");
}

TEST_F(ScriptTest, TheOnlyRunIsFoundFromOutside)
{
    RunningUnit run({"run", "--log", log, "--", "/bin/sh", "-c", "echo started; sleep 600"});
    ASSERT_TRUE(run.WaitForOutput("started"));
    EXPECT_EQ(RunUnit({"do", "ignition", "on"}).errors, "");
    EXPECT_THAT(Log(), ElementsAre("do: ignition on"));
    EXPECT_THAT(RunUnit({"do", "end"}).status, 0);
    EXPECT_EQ(run.End().status, 128 + 15);
}

TEST_F(ScriptTest, OfSeveralRunsOneHasToBeChosen)
{
    const std::string control = temporary + "/chosen";
    const std::vector<std::string> program = {"--", "/bin/sh", "-c", "echo started; sleep 600"};
    std::vector<std::string> first = {"run", "--control", control, "--log", log};
    std::vector<std::string> second = {"run"};
    first.insert(first.end(), program.begin(), program.end());
    second.insert(second.end(), program.begin(), program.end());
    RunningUnit chosen(first);
    RunningUnit other(second);
    RunningUnit third(second);
    ASSERT_TRUE(chosen.WaitForOutput("started") && other.WaitForOutput("started") &&
                third.WaitForOutput("started"));

    const Outcome ambiguous = RunUnit({"do", "ignition", "on"});
    EXPECT_EQ(ambiguous.status, 2);
    EXPECT_THAT(
        ambiguous.errors,
        StartsWith("virtual-unit: more than one virtual unit is running: choose one with --control: " +
                   temporary + "/virtual-unit-"));

    struct stat status = {};
    ASSERT_EQ(stat(control.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U) << "for its owner alone";
    EXPECT_EQ(RunUnit({"do", "--control", control, "ignition", "on"}).status, 0);
    EXPECT_THAT(Log(), ElementsAre("do: ignition on"));
    EXPECT_THAT(RunUnit({"devices", "--control", control}).output, StartsWith("/dev/ttymxc0"));

    const Outcome taken = RunUnit({"run", "--control", control, "--", "/bin/true"});
    EXPECT_EQ(taken.status, 2);
    EXPECT_EQ(taken.errors,
              "virtual-unit: --control: " + control + ": Address already in use (see virtual-unit --help)\n");

    for (RunningUnit* run : {&chosen, &other, &third})
    {
        run->Signal(15);
        EXPECT_EQ(run->End().status, 128 + 15);
    }
    EXPECT_NE(stat(control.c_str(), &status), 0) << "it is left behind";
    EXPECT_THAT(RunUnit({"do", "ignition", "on"}).errors, EndsWith("no virtual unit is running\n"));
}

}

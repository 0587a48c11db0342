// The program virtual-unit as its users run it, on real programs and in real time.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"
#include "virtual-unit/peripherals/Nmea.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <vector>

namespace
{

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* PORT = "/dev/ttymxc0";
constexpr const char* KEY_READER_PORT = "/dev/ttymxc2";

const std::vector<std::string> UNSERVED_PATHS = {"/dev/ttymxc1", "/dev/ttymxc3",
                                                 "/dev/i2c-0",   "/dev/hidraw1",
                                                 "/dev/i2c-2",   "/dev/serial/by-id/usb-another"};

bool IsSentence(std::string line)
{
    if (line.ends_with('\r'))
    {
        line.pop_back();
    }
    return line.starts_with('$') && !VirtualUnit::Nmea::Body(line).empty();
}

TEST_F(VirtualUnitTest, TheExitStatusIsHandedOn)
{
    EXPECT_EQ(RunShell("exit 0").status, 0);
    EXPECT_EQ(RunShell("exit 7").status, 7);
    EXPECT_EQ(RunShell("exit 255").status, 255);
}

TEST_F(VirtualUnitTest, StandardStreamsAreThePrograms)
{
    const Outcome outcome = RunShell("echo out; echo err >&2");
    EXPECT_EQ(outcome.output, "out\n");
    EXPECT_EQ(outcome.errors, "err\n");
}

TEST_F(VirtualUnitTest, ACrashIsHandedOnAndReported)
{
    const Outcome outcome = Probe({"crash"});
    EXPECT_EQ(outcome.status, 128 + SIGSEGV);
    EXPECT_THAT(outcome.errors, HasSubstr("virtual-unit: the program was ended by signal 11\n"));
}

TEST_F(VirtualUnitTest, AProgramThatIsNotThereIsReportedAsByAShell)
{
    const Outcome missing = RunUnit({"run", "--", "no-such-program"});
    EXPECT_EQ(missing.status, 127);
    EXPECT_EQ(missing.errors, "virtual-unit: no-such-program: No such file or directory\n");

    const Outcome notExecutable = RunUnit({"run", "--", "/etc/passwd"});
    EXPECT_EQ(notExecutable.status, 126);
    EXPECT_EQ(notExecutable.errors, "virtual-unit: /etc/passwd: Permission denied\n");
}

TEST_F(VirtualUnitTest, ADirectoryOfThePathThatCannotBeEnteredHidesNothing)
{
    const std::string closed = Kit::TempDir::Path() + "/closed";
    std::filesystem::create_directories(closed + "/below");
    std::filesystem::permissions(closed, std::filesystem::perms::none);
    const std::string path = std::getenv("PATH");
    setenv("PATH", (closed + "/below:" + path).c_str(), 1);
    RunningUnit::Options nobody;
    nobody.unprivileged = true;
    const Outcome missing = RunUnit({"run", "--", "no-such-program"}, nobody);
    const Outcome there = RunUnit({"run", "--", "true"}, nobody);
    setenv("PATH", path.c_str(), 1);
    std::filesystem::permissions(closed, std::filesystem::perms::owner_all);
    EXPECT_EQ(missing.status, 127);
    EXPECT_EQ(missing.errors, "virtual-unit: no-such-program: No such file or directory\n");
    EXPECT_EQ(there.status, 0) << there.errors;
}

TEST_F(VirtualUnitTest, ABadCommandLineIsRefusedInOneLine)
{
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"walk"},
        {"run"},
        {"run", "--"},
        {"run", "/bin/true"},
        {"run", "--gps", "--", "/bin/true"},
        {"run", "--gps", "l27", "--", "/bin/true"},
        {"run", "--gps-fix-after", "soon", "--", "/bin/true"},
        {"run", "--gps-fix-after", "-1", "--", "/bin/true"},
        {"run", "--gps-fix-after", "99999999999", "--", "/bin/true"},
        {"run", "--key", "--", "/bin/true"},
        {"run", "--key", "00A1B2C3D4E", "--", "/bin/true"},
        {"run", "--key", "00A1B2C3D4EG", "--", "/bin/true"},
        {"run", "--key-after", "soon", "--", "/bin/true"},
        {"run", "--nmea", "/no/such/file", "--", "/bin/true"},
        {"run", "--nmea", "/dev/null", "--", "/bin/true"},
        {"run", "--nmea", "/", "--", "/bin/true"},
        {"devices", "--colour"}};
    for (const std::vector<std::string>& arguments : wrong)
    {
        const Outcome outcome = RunUnit(arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
        EXPECT_THAT(Lines(outcome.errors), ElementsAre(StartsWith("virtual-unit: ")));
        EXPECT_EQ(outcome.output, "");
    }
}

TEST_F(VirtualUnitTest, ItTellsAboutItself)
{
    EXPECT_THAT(RunUnit({"--help"}).output, StartsWith("usage: virtual-unit run "));
    EXPECT_EQ(RunUnit({"--help"}).status, 0);
    EXPECT_THAT(RunUnit({"check"}).output, HasSubstr("This machine can run the virtual unit."));
    EXPECT_THAT(RunUnit({"devices", "--gps", "skm53"}).output,
                HasSubstr("/dev/ttymxc0           GPS receiver SKM53\n"));
    EXPECT_THAT(RunUnit({"devices", "--key", "none"}).output,
                HasSubstr("/dev/ttymxc2           driver-ID reader, no key\n"));
    EXPECT_THAT(RunUnit({"devices", "--key", "00A1B2C3D4E5", "--key-after", "7"}).output,
                HasSubstr("/dev/ttymxc2           driver-ID reader, key 00A1B2C3D4E5 after 7 s\n"));
}

TEST_F(VirtualUnitTest, WhatIsNotServedDoesNotExist)
{
    for (const std::string& path : UNSERVED_PATHS)
    {
        const Outcome outcome = Probe({"calls", path});
        EXPECT_EQ(outcome.status, 0);
        for (const std::string& line : Lines(outcome.output))
        {
            EXPECT_THAT(line, testing::EndsWith(" ENOENT")) << path;
        }
        EXPECT_GE(Lines(outcome.output).size(), 12U);
        EXPECT_THAT(Lines(outcome.errors),
                    ElementsAre("virtual-unit: " + path +
                                " is not served by the virtual unit: no such file for the application"));
    }
}

TEST_F(VirtualUnitTest, EachCallOnTheServedPortIsAnswered)
{
    const Outcome outcome = Probe({"calls", PORT});
    EXPECT_EQ(outcome.status, 0);
    for (const std::string& line : Lines(outcome.output))
    {
        const std::string call = line.substr(0, line.find(' '));
        const std::string expected = call.starts_with("readlink") ? "EINVAL"
                                     : call == "getxattr"         ? "EOPNOTSUPP"
                                     : call.starts_with("unlink") || call.starts_with("rename") ||
                                             call == "truncate" || call.ends_with("chmod") ||
                                             call == "fchmodat"
                                         ? "EPERM"
                                         : "ok";
        EXPECT_EQ(line, call + " " + expected);
    }
    EXPECT_GE(Lines(outcome.output).size(), 12U);
    EXPECT_THAT(outcome.errors, HasSubstr("virtual-unit: unlinkat of /dev/ttymxc0 is refused\n"));
}

TEST_F(VirtualUnitTest, ThePortIsATerminalWithItsSettings)
{
    const Outcome outcome = Probe({"terminal"});
    EXPECT_EQ(outcome.output, "terminal: 1\n"
                              "character device: 1\n"
                              "same device: 1\n"
                              "at first: speed 9600 1, 8 bits 1, echo 0\n"
                              "kept: 1\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(VirtualUnitTest, FlagsOfOpenAreHonoured)
{
    EXPECT_EQ(Probe({"flags"}).output, "O_CREAT|O_EXCL EEXIST\n"
                                       "O_CREAT ok\n"
                                       "O_DIRECTORY ENOTDIR\n"
                                       "X_OK EACCES\n"
                                       "close on exec: 0 1\n"
                                       "non-blocking: 0 1\n");
}

TEST_F(VirtualUnitTest, TheReceiverIsHeardOnThePort)
{
    const std::vector<std::string> lines = Lines(Probe({"lines", "6"}).output);
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_TRUE(std::all_of(lines.begin(), lines.end(), IsSentence));
    EXPECT_THAT(lines[0], StartsWith("$GNRMC,"));
}

TEST_F(VirtualUnitTest, TheSkm53IsHeardOnThePort)
{
    const std::vector<std::string> lines =
        Lines(Probe({"lines", "6"}, {"--gps", "skm53", "--gps-fix-after", "9", "--fast"}).output);
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_TRUE(std::all_of(lines.begin(), lines.end(), IsSentence));
    EXPECT_THAT(lines[5], AllOf(StartsWith("$GPRMC,"), HasSubstr(",V,")));
}

TEST_F(VirtualUnitTest, TheReceiverHearsTheProgram)
{
    EXPECT_THAT(Lines(Probe({"release"}).output), ElementsAre("write ok", HasSubstr("Quectel-L26")));
    EXPECT_THAT(Lines(Probe({"release", "500"}, {"--gps", "skm53", "--fast"}).output),
                ElementsAre("write ok", "no answer"));
}

TEST_F(VirtualUnitTest, TheKeyReaderAnswersOnItsPort)
{
    const std::string presence = "AA550201010086AFEF0D";
    const std::string request = "AA550201010386A5EF0D";
    const std::string noKey = "AA550501080000000000000000F965EF0D\n";
    EXPECT_EQ(Probe({"ask", KEY_READER_PORT, presence}).output, "AA5501010100BAAFEF0D\n");
    EXPECT_EQ(Probe({"ask", KEY_READER_PORT, request}).output, noKey);
    EXPECT_EQ(Probe({"ask", KEY_READER_PORT, request}, {"--key", "none"}).output, noKey);
    EXPECT_EQ(Probe({"ask", KEY_READER_PORT, request}, {"--key", "00A1B2C3D4E5"}).output,
              "AA5505010801E5D4C3B2A100D62236EF0D\n");
    EXPECT_EQ(Probe({"ask", KEY_READER_PORT, request}, {"--key", "00A1B2C3D4E5", "--key-after", "60"}).output,
              noKey);
}

TEST_F(VirtualUnitTest, ARecordingIsPlayed)
{
    const std::string file = Kit::TempDir::Path() + "/drive.nmea";
    std::ofstream(file) << "# a comment\n$GPRMC,1*00\n$GPGGA,1*00\n$GPRMC,2*00\r\n";
    EXPECT_EQ(Probe({"lines", "3"}, {"--nmea", file}).output,
              "$GPRMC,1*00\r\n$GPGGA,1*00\r\n$GPRMC,2*00\r\n");
    EXPECT_THAT(RunUnit({"devices", "--nmea", file}).output, HasSubstr("GPS receiver L26, playing " + file));
}

TEST_F(VirtualUnitTest, ChildrenRunOnTheUnitToo)
{
    const Outcome outcome = RunShell("(" + PROBE_WORD + " release; true) && cat /dev/i2c-2");
    EXPECT_THAT(outcome.output, HasSubstr("Quectel-L26"));
    EXPECT_THAT(outcome.errors, HasSubstr("virtual-unit: /dev/i2c-2 is not served"));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(VirtualUnitTest, AStaticallyLinkedProgramRunsOnTheUnit)
{
    EXPECT_THAT(Probe({"release"}, {}, {}, PROBE_STATIC).output, HasSubstr("Quectel-L26"));
}

TEST_F(VirtualUnitTest, ManyThreadsOpenThePortAtOnce)
{
    EXPECT_EQ(Probe({"threads"}).output, "opened 200\n");
}

TEST_F(VirtualUnitTest, BadPointersAreAnsweredAsByTheKernel)
{
    const Outcome outcome = Probe({"bad-pointers"});
    EXPECT_EQ(outcome.output, "null EFAULT\n"
                              "unmapped EFAULT\n"
                              "up to the end of a page ok\n"
                              "beyond the end of a page EFAULT\n"
                              "too long ENAMETOOLONG\n"
                              "empty ENOENT\n"
                              "status to nowhere EFAULT\n"
                              "openat2 from nowhere EFAULT\n"
                              "openat2 with a short structure EINVAL\n"
                              "no such directory EBADF\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(VirtualUnitTest, PathsMayBeWrittenInOtherWays)
{
    EXPECT_EQ(Probe({"relative"}).output, "dots and slashes ok\n"
                                          "by descriptor ok\n"
                                          "refused by descriptor ENOENT\n"
                                          "chdir ok\n"
                                          "by working directory ok\n"
                                          "refused by working directory ENOENT\n");
}

TEST_F(VirtualUnitTest, AProgramWithAllDescriptorsInUseIsToldSo)
{
    const Outcome outcome = RunShell("ulimit -n 64; " + PROBE_WORD + " fill");
    EXPECT_EQ(outcome.output, "one too many EMFILE\none less ok\n");
}

TEST_F(VirtualUnitTest, MountsAndPowerOfThisMachineAreOutOfReach)
{
    const Outcome outcome = Probe({"forbidden"});
    EXPECT_EQ(outcome.output, "umount2 EPERM\nreboot EPERM\nio_uring_setup ENOSYS\n");
    EXPECT_THAT(
        Lines(outcome.errors),
        ElementsAre("virtual-unit: umount2 is refused: it would touch this machine's mounts or power",
                    "virtual-unit: reboot is refused: it would touch this machine's mounts or power"));
}

TEST_F(VirtualUnitTest, ItRunsWithoutPrivileges)
{
    RunningUnit::Options nobody;
    nobody.unprivileged = true;
    const Outcome outcome = RunUnit(
        {"run", "--", "/bin/sh", "-c", "id -u; test -c /dev/ttymxc0 && exec 3<>/dev/ttymxc0 && test -t 3"},
        nobody);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output, "0\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(VirtualUnitTest, AClosedStandardErrorDoesNotEndTheUnit)
{
    RunningUnit::Options closed;
    closed.errorsClosed = true;
    const Outcome outcome =
        RunUnit({"run", "--", "/bin/sh", "-c", "test -e /dev/i2c-2; test -e /dev/i2c-3; exit 5"}, closed);
    EXPECT_EQ(outcome.status, 5);
}

TEST_F(VirtualUnitTest, ItIsHandedTheSignalsThatEndIt)
{
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
    {
        RunningUnit unit({"run", "--", PROBE, "wait", std::to_string(signal)});
        ASSERT_TRUE(unit.WaitForOutput("ready"));
        unit.Signal(signal);
        EXPECT_EQ(unit.End().status, 9) << signal;
    }
}

TEST_F(VirtualUnitTest, AProgramThatDoesNotHandleTheSignalIsEndedByIt)
{
    RunningUnit unit({"run", "--", PROBE, "wait"});
    ASSERT_TRUE(unit.WaitForOutput("ready"));
    unit.Signal(SIGTERM);
    EXPECT_EQ(unit.End().status, 128 + SIGTERM);
}

TEST_F(VirtualUnitTest, ASecondSignalKillsADeafProgram)
{
    RunningUnit unit({"run", "--", PROBE, "ignore", std::to_string(SIGTERM), std::to_string(SIGINT)});
    ASSERT_TRUE(unit.WaitForOutput("ready"));
    unit.Signal(SIGTERM);
    unit.Signal(SIGINT);
    EXPECT_EQ(unit.End().status, 128 + SIGKILL);
}

TEST_F(VirtualUnitTest, CtrlCOnATerminalEndsEverything)
{
    RunningUnit::Options onTerminal;
    onTerminal.onTerminal = true;
    RunningUnit unit({"run", "--", "/bin/sh", "-c", PROBE_WORD + " wait & " + PROBE_WORD + " wait; exit 6"},
                     onTerminal);
    ASSERT_TRUE(unit.WaitForOutput("ready\r\nready"));
    unit.Type("\x03");
    const Outcome outcome = unit.End();
    EXPECT_EQ(outcome.status, 128 + SIGINT) << outcome.output;
}

TEST_F(VirtualUnitTest, TheProgramDecidesAboutCtrlC)
{
    RunningUnit::Options onTerminal;
    onTerminal.onTerminal = true;
    RunningUnit unit({"run", "--", PROBE, "wait", std::to_string(SIGINT)}, onTerminal);
    ASSERT_TRUE(unit.WaitForOutput("ready"));
    unit.Type("\x03");
    EXPECT_EQ(unit.End().status, 9);
}

TEST_F(VirtualUnitTest, WhatTheProgramLeavesBehindIsEnded)
{
    const Outcome outcome =
        RunFast("(" + PROBE_WORD + " wait 15 & " + PROBE_WORD + " wait &); sleep 0.1; exit 3");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.output, HasSubstr("ended by a signal\n"));
}

TEST_F(VirtualUnitTest, WhatIsLeftBehindDeafIsKilled)
{
    const Outcome outcome = RunFast("(" + PROBE_WORD + " ignore 15 &); sleep 0.1; exit 3");
    EXPECT_EQ(outcome.status, 3);
}

TEST_F(VirtualUnitTest, TheProgramDoesNotOutliveTheUnit)
{
    setenv("TMPDIR", Kit::TempDir::Path().c_str(), 1); // killed, it cannot remove its storage card
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);    // the orphan is handed to this process
    RunningUnit unit({"run", "--", PROBE, "wait"});
    ASSERT_TRUE(unit.WaitForOutput("ready"));
    unit.Signal(SIGKILL);
    ASSERT_EQ(unit.End().status, 128 + SIGKILL); // at the end of its output, which the program had open

    int status = 0;
    EXPECT_GT(waitpid(-1, &status, 0), 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

}

// The cellular module as programs on the virtual unit find it: on the USB bus and on its two ports.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string BY_ID = "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-";
const std::string MAIN_PORT = BY_ID + "if03-port0";
const std::string ALTERNATE_PORT = BY_ID + "if02-port0";

// ask PORT COMMAND BYTES: what comes first; the port becomes descriptor 3.
const std::string ASK =
    "ask() { exec 3<>$1; stty raw -echo <&3; printf '%s\\r\\n' \"$2\" >&3; head -c $3 <&3; }; ";

const std::string SIGNAL = "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n";

class ModemPortsTest : public VirtualUnitTest
{
protected:
    ModemPortsTest() { setenv("TMPDIR", Kit::TempDir::Path().c_str(), 1); }

    ~ModemPortsTest() override { unsetenv("TMPDIR"); }

    /// The private directories that runs have left.
    static std::size_t LeftBehind()
    {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(Kit::TempDir::Path()))
        {
            count += entry.path().filename().string().starts_with("virtual-unit-") ? 1 : 0;
        }
        return count;
    }

    static Outcome Run(const std::vector<std::string>& options, const std::string& command)
    {
        std::vector<std::string> arguments = {"run"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"--fast", "--", "/bin/sh", "-c", ASK + command});
        return RunUnit(arguments);
    }

    static std::string Ask(const std::vector<std::string>& options, const std::string& port,
                           const std::string& command, const std::string& reply)
    {
        return Run(options, "ask " + port + " '" + command + "' " + std::to_string(reply.size())).output;
    }
};

TEST_F(ModemPortsTest, TheModuleIsOnTheBus)
{
    const Outcome shell = RunShell("lsusb");
    EXPECT_THAT(Lines(shell.output),
                ElementsAre("Bus 001 Device 004: ID 05c6:9090 Qualcomm, Inc. Quectel UC15 modem",
                            "Bus 002 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub",
                            "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub"));
    EXPECT_EQ(shell.status, 0);
    EXPECT_EQ(RunUnit({"run", "--", "lsusb"}).output, shell.output);
    EXPECT_EQ(shell.errors, "");
}

TEST_F(ModemPortsTest, CommandsThatAskAnInitSystemForPowerOffMeetStubs)
{
    const Outcome outcome =
        RunShell("for c in reboot poweroff halt shutdown systemctl; do command -v $c; done | "
                 "grep -c /virtual-unit-; poweroff -f && systemctl reboot && echo done; systemctl is-active "
                 "x || echo no");
    EXPECT_EQ(outcome.output, "5\ndone\nno\n");
    EXPECT_EQ(outcome.errors,
              "virtual-unit: poweroff -f: not carried out, this machine stays as it is\n"
              "virtual-unit: systemctl reboot: not carried out, this machine stays as it is\n"
              "virtual-unit: systemctl is-active x: not carried out, this machine stays as it is\n");
    EXPECT_EQ(LeftBehind(), 0U);
}

TEST_F(ModemPortsTest, BothPortsAnswer)
{
    EXPECT_EQ(Ask({}, MAIN_PORT, "AT+CSQ", SIGNAL), SIGNAL);
    EXPECT_EQ(Ask({}, ALTERNATE_PORT, "AT+CSQ", SIGNAL), SIGNAL);
    const std::string reply = "AT+CREG?\r\r\n+CREG: 2,1,\"D509\",\"80D413D\"\r\n\r\nOK\r\n";
    EXPECT_THAT(Run({}, "ask " + MAIN_PORT + " AT+CREG=2 16; ask " + ALTERNATE_PORT + " AT+CREG? " +
                            std::to_string(reply.size()))
                    .output,
                EndsWith(reply))
        << "one module";
}

TEST_F(ModemPortsTest, TheOptionsAreTheModules)
{
    const std::string signal = "AT+CSQ\r\r\n+CSQ: 7,99\r\n\r\nOK\r\n";
    EXPECT_EQ(Ask({"--modem-signal", "7"}, MAIN_PORT, "AT+CSQ", signal), signal);
    const std::string registration = "AT+CREG?\r\r\n+CREG: 0,5\r\n\r\nOK\r\n";
    EXPECT_EQ(Ask({"--modem-registration", "roaming"}, MAIN_PORT, "AT+CREG?", registration), registration);
    const std::string foreign = "AT+COPS?\r\r\n+COPS: 0,0,\"Neighbour Mobile\",2\r\n\r\nOK\r\n";
    EXPECT_EQ(Ask({"--modem-registration", "roaming"}, MAIN_PORT, "AT+COPS?", foreign), foreign);
    const std::string noSim = "AT+CIMI\r\r\n+CME ERROR: 10\r\n";
    EXPECT_EQ(Ask({"--modem", "no-sim"}, MAIN_PORT, "AT+CIMI", noSim), noSim);
    EXPECT_EQ(Ask({"--modem", "present"}, MAIN_PORT, "AT+CSQ", SIGNAL), SIGNAL);
}

TEST_F(ModemPortsTest, AnAbsentModuleHasNeitherPortsNorAPlaceOnTheBus)
{
    const Outcome outcome =
        Run({"--modem", "absent"}, "lsusb; test -e " + MAIN_PORT + " || exec 3<>" + MAIN_PORT);
    EXPECT_THAT(Lines(outcome.output), ElementsAre(StartsWith("Bus 002 Device 001: ID 1d6b:"),
                                                   StartsWith("Bus 001 Device 001: ID 1d6b:")));
    EXPECT_NE(outcome.status, 0);
    EXPECT_THAT(outcome.errors,
                StartsWith("virtual-unit: " + MAIN_PORT + " is not there: its device is off the bus\n"));
}

TEST_F(ModemPortsTest, PoweredDownTheModuleLeavesTheBus)
{
    const std::string present = "lsusb | grep -c 05c6:9; ";
    const std::string gone = "test -e " + MAIN_PORT + " || test -e " + ALTERNATE_PORT + " || echo gone; ";
    const std::string readToEnd = "cat <&3; echo end; ";
    const Outcome outcome = Run({}, "ask " + MAIN_PORT + " AT+QPOWD=1 17; exec 4<>" + ALTERNATE_PORT + "; " +
                                        present + readToEnd + "cat <&4; " + present + gone);
    EXPECT_EQ(outcome.output, "AT+QPOWD=1\r\r\nOK\r\n"
                              "1\n"
                              "\r\nPOWERED DOWN\r\nend\n"
                              "0\ngone\n");
}

TEST_F(ModemPortsTest, TheStandInForLsusbIsGoneAfterTheRun)
{
    const Outcome outcome = RunShell("command -v lsusb");
    EXPECT_THAT(outcome.output, StartsWith(Kit::TempDir::Path() + "/virtual-unit-"));
    EXPECT_EQ(LeftBehind(), 0U);
}

TEST_F(ModemPortsTest, TheStandInForLsusbIsGoneAfterASignalACrashAndAFailedStart)
{
    for (const int signal : {SIGTERM, SIGHUP, SIGINT, SIGQUIT})
    {
        RunningUnit unit({"run", "--", PROBE, "wait"});
        ASSERT_TRUE(unit.WaitForOutput("ready"));
        EXPECT_GT(LeftBehind(), 0U);
        unit.Signal(signal);
        unit.End();
        EXPECT_EQ(LeftBehind(), 0U) << signal;
    }
    EXPECT_EQ(Probe({"crash"}).status, 128 + SIGSEGV);
    EXPECT_EQ(LeftBehind(), 0U);
    EXPECT_EQ(RunUnit({"run", "--", "no-such-program"}).status, 127);
    EXPECT_EQ(LeftBehind(), 0U);
}

TEST_F(ModemPortsTest, WithoutAPathTheUsualProgramsAreFound)
{
    const char* path = std::getenv("PATH");
    const std::string former = path != nullptr ? path : "";
    unsetenv("PATH");
    const Outcome outcome = RunUnit({"run", "--", "sh", "-c", "lsusb | grep -c 05c6:9"});
    setenv("PATH", former.c_str(), 1);
    EXPECT_EQ(outcome.output, "1\n");
}

TEST_F(ModemPortsTest, TheModuleIsListedAmongTheDevices)
{
    const auto list = [](const std::vector<std::string>& options) {
        std::vector<std::string> arguments = {"devices"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return RunUnit(arguments).output;
    };
    EXPECT_THAT(list({"--modem", "present"}),
                AllOf(HasSubstr(MAIN_PORT + " cellular module UC15, registration home, signal 20\n"),
                      HasSubstr(ALTERNATE_PORT + " cellular module UC15, registration home, signal 20\n")));
    EXPECT_THAT(list({"--modem-signal", "99", "--modem-registration", "none"}),
                HasSubstr("registration none, signal 99\n"));
    EXPECT_THAT(list({"--modem", "no-sim"}), HasSubstr("cellular module UC15, no SIM\n"));
    EXPECT_THAT(list({"--modem", "absent"}), HasSubstr("cellular module UC15, off the bus\n"));
}

TEST_F(ModemPortsTest, WrongOptionsAreRefused)
{
    const std::vector<std::vector<std::string>> wrong = {
        {"--modem", "here"},      {"--modem", ""},          {"--modem-signal", "32"},
        {"--modem-signal", "-1"}, {"--modem-signal", "1x"}, {"--modem-registration", "5"},
        {"--modem-registration"}};
    for (const std::vector<std::string>& options : wrong)
    {
        std::vector<std::string> arguments = {"devices"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = RunUnit(arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(options);
        EXPECT_THAT(Lines(outcome.errors), ElementsAre(StartsWith("virtual-unit: " + options[0] + ": ")));
    }
}

}

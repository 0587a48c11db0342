// The devices that are driven by ioctls and messages, as programs on the virtual unit find them.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace
{

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

class DriverPortsTest : public VirtualUnitTest
{
protected:
    static Outcome Drive(const std::string& what, const std::vector<std::string>& options = {})
    {
        return Probe({what}, options, {}, DRIVER_PROBE);
    }

    static std::vector<std::string> FileLines(const std::string& path)
    {
        std::ifstream file(path);
        return Lines(std::string(std::istreambuf_iterator<char>(file), {}));
    }
};

TEST_F(DriverPortsTest, PinsAreDrivenAndOthersRefused)
{
    const Outcome outcome = Drive("pins");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre("pin 0", "another value EINVAL", "no pin ENOTTY", "a file's ioctl ENOTTY"));
}

TEST_F(DriverPortsTest, PinsAreDrivenWithoutPrivileges)
{
    RunningUnit::Options how;
    how.unprivileged = true;
    const Outcome outcome = Probe({"pins"}, {}, how, ForNobody(DRIVER_PROBE).c_str());
    EXPECT_THAT(outcome.output, HasSubstr("pin 0\n")) << outcome.errors;
}

TEST_F(DriverPortsTest, TheIgnitionIsATriggerOfFiveBytes)
{
    const Outcome outcome = Drive("trigger", {"--ignition-after", "0"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Lines(outcome.output), ElementsAre("poll 1", "read 5", "trigger 1"));
}

TEST_F(DriverPortsTest, TheResetOfTheHubTakesWhatHangsOnItOffTheBusUntilItIsReleased)
{
    const Outcome outcome = Drive("hub");
    EXPECT_THAT(Lines(outcome.output), ElementsAre("at first: modem buzzer sounder", "held:", "hung up",
                                                   "released: modem buzzer sounder"))
        << outcome.errors;
}

TEST_F(DriverPortsTest, WhatWasAwayBeforeTheHubWasResetStaysAway)
{
    const Outcome outcome = Drive("hub", {"--modem", "absent"});
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre("at first: buzzer sounder", "held:", "hung up", "released: buzzer sounder"))
        << outcome.errors;
}

TEST_F(DriverPortsTest, TheAccelerometerAnswersOnItsAdapter)
{
    const Outcome outcome = Drive("chip");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Lines(outcome.output), ElementsAre("select 0", "who am i 26", "nothing there 0", "read ENXIO",
                                                   "bad address EFAULT", "another adapter ENOENT"));
}

TEST_F(DriverPortsTest, TheBridgeTellsWhatItIsAndTakesReports)
{
    const Outcome outcome = Drive("bridge");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(Lines(outcome.output), ElementsAre("name 11", "info 0", "FTDI FT260 3 0403 6030",
                                                   "nothing to read EAGAIN", "write 6"));
}

TEST_F(DriverPortsTest, AnAdapterHasNothingToRead)
{
    const Outcome outcome = RunShell("cat /dev/i2c-1");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
}

TEST_F(DriverPortsTest, TheyShowAsDeviceFiles)
{
    EXPECT_THAT(Lines(Drive("kinds").output),
                ElementsAre("/dev/tav_event device", "/dev/i2c-1 device", "/dev/hidraw0 device"));
}

TEST_F(DriverPortsTest, TheJournalTellsWhatPinsAndChipsDid)
{
    const std::string journal = Kit::TempDir::Path() + "/journal";
    Drive("pins", {"--journal", journal});
    EXPECT_THAT(FileLines(journal), ElementsAre(EndsWith(" s  pin 103 = 1 (left LED green)")));
    Drive("bridge", {"--journal", journal});
    EXPECT_THAT(FileLines(journal), ElementsAre(EndsWith(" s  sound chip 0x5A sounds at 63")));
    Drive("kinds", {"--journal", journal});
    EXPECT_THAT(FileLines(journal), IsEmpty());
}

TEST_F(DriverPortsTest, AJournalThatCannotBeWrittenIsToldBeforeTheProgramStarts)
{
    const Outcome outcome = Drive("kinds", {"--journal", "/nowhere/journal"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(
        outcome.errors,
        "virtual-unit: --journal: /nowhere/journal: No such file or directory (see virtual-unit --help)\n");
    EXPECT_EQ(Drive("kinds", {"--journal", "/dev/full"}).errors, "");
    EXPECT_EQ(Drive("pins", {"--journal", "/dev/full"}).errors,
              "virtual-unit: --journal: /dev/full cannot be written: No space left on device\n");
}

}

// The power of the unit is cut: by its power line, with the ignition off, or by a step.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::string SWITCHED_OFF =
    "virtual-unit: the program was ended by the power line: the unit has switched itself off";
const std::string CUT = "virtual-unit: the program was ended by a power cut";

class PowerCutTest : public VirtualUnitTest
{
protected:
    PowerCutTest() { fs::create_directories(work); }

    ~PowerCutTest() override { fs::remove_all(work); }

    /// A command line of the shell in virtual time, with that script.
    Outcome Run(const std::string& command, const std::string& script,
                std::vector<std::string> options = {}) const
    {
        const std::string file = work / "the.script";
        std::ofstream(file) << script;
        options.insert(options.end(), {"--script", file, "--sdcard", card});
        return RunFast(command, options);
    }

    std::string OnCard(const std::string& name) const { return ReadFile(card / name); }

    const fs::path work = Kit::TempDir::Path() + "/power-cut";
    const fs::path card = work / "card";
    const std::string powerOff = DRIVER_PROBE_WORD + " power";
    const std::string pulse = DRIVER_PROBE_WORD + " power 100";
};

TEST_F(PowerCutTest, WithTheIgnitionOffThePowerLineEndsTheRunWell)
{
    const std::string journal = work / "journal";
    const std::string junit = work / "junit";
    const Outcome outcome =
        Run("sleep 2; " + powerOff + "; echo no", "1 ignition off\nexpect pin 105 = 0 within 5\n",
            {"--strict", "--journal", journal, "--junit", junit});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(Lines(outcome.errors), ElementsAre(SWITCHED_OFF));
    EXPECT_EQ(ReadFile(journal), "    2.000 s  pin 105 = 0 (power line)\n");
    EXPECT_THAT(ReadFile(junit), HasSubstr("tests=\"2\" failures=\"0\""));
}

TEST_F(PowerCutTest, APulseCutsThePowerOnlyWithTheIgnitionOff)
{
    const Outcome off = Run("sleep 2; " + pulse, "1 ignition off\n");
    EXPECT_EQ(off.output, "");
    EXPECT_THAT(Lines(off.errors), ElementsAre(SWITCHED_OFF));

    const Outcome on = Run("sleep 2; " + pulse + "; sleep 5; exit 7", "1 ignition on\n3 ignition off\n");
    EXPECT_EQ(on.output, "still here\n");
    EXPECT_EQ(on.status, 7);
    EXPECT_EQ(on.errors, "");
}

TEST_F(PowerCutTest, TheIgnitionIsOnAtFirstUnlessItIsToBeSwitchedOn)
{
    EXPECT_EQ(Run(powerOff, "").output, "still here\n");
    EXPECT_EQ(Run(powerOff, "", {"--ignition-after", "5"}).output, "");
}

TEST_F(PowerCutTest, ALineThatStaysAtZeroCutsThePowerWithTheIgnitionOn)
{
    const Outcome outcome = Run(powerOff + "; sleep 0.45; echo on; sleep 0.1; echo off", "");
    EXPECT_EQ(outcome.output, "still here\non\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(Lines(outcome.errors), ElementsAre(SWITCHED_OFF));
}

TEST_F(PowerCutTest, TheIgnitionThatIsSwitchedOffEndsAPulseAtOnce)
{
    const Outcome outcome =
        Run("sleep 1; " + powerOff + "; sleep 0.2; echo on; sleep 0.2; echo off", "1.3 ignition off\n");
    EXPECT_EQ(outcome.output, "still here\non\n");
    EXPECT_THAT(Lines(outcome.errors), ElementsAre(SWITCHED_OFF));
}

TEST_F(PowerCutTest, AStepCutsItWhateverTheIgnitionIs)
{
    const Outcome outcome = Run("echo before; sleep 9; echo after", "3 power cut\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "before\n");
    EXPECT_THAT(Lines(outcome.errors), ElementsAre(CUT));
    EXPECT_EQ(Run("echo before", "0 power cut\n").status, 0);
}

TEST_F(PowerCutTest, WhatIsNotReachedByThenHasFailed)
{
    const Outcome outcome = Run("sleep 9", "3 power cut\nexpect program prints more\n");
    EXPECT_EQ(outcome.status, 5);
    EXPECT_THAT(outcome.errors, HasSubstr("the.script:2: "));
    EXPECT_EQ(Run("sleep 9", "3 power cut\n4 ignition off\n").status, 0);
    EXPECT_EQ(Run("sleep 9", "3 power cut\n4 ignition off\n", {"--strict"}).status, 5);
}

TEST_F(PowerCutTest, AProgramThatHasEndedByItselfKeepsItsStatus)
{
    const Outcome outcome =
        Run("trap '' TERM; (trap '' TERM; sleep 0.5; " + pulse + "; echo no) & exit 7", "0 ignition off\n");
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.output, "");
}

TEST_F(PowerCutTest, AllGenerationsOfProcessesEndAtOnce)
{
    std::string family = "while :; do echo >> /mnt/sdcard/file; sleep 0.005; done";
    for (int generation = 0; generation < 4; ++generation)
    {
        family = "(trap '' TERM; " + family + ") & sleep 20";
    }
    const Outcome outcome = Run(family, "0.5025 power cut\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(OnCard("file").size(), 101U);
    EXPECT_THAT(Lines(outcome.errors), ElementsAre(CUT));
}

TEST_F(PowerCutTest, ARecordingIsCompleteAndItsReplayEndsInTheSameWay)
{
    const std::string recording = work / "recording";
    const std::string program = "sleep 2; " + powerOff + "; sleep 100; echo no";
    ASSERT_EQ(Run(program, "1 ignition off\n", {"--record", recording}).status, 0);
    EXPECT_THAT(ReadFile(recording + "/tav_event.port"), HasSubstr("? \"pin 105 = 0\" -> \"0\""));
    EXPECT_THAT(ReadFile(recording + "/program.port"), HasSubstr("! signal 9\n"));
    const Outcome replay = RunUnit({"replay", recording, "--fast", "--", "/bin/sh", "-c", program});
    EXPECT_EQ(replay.status, 0) << replay.errors;
    EXPECT_THAT(replay.output, Not(HasSubstr("no")));
    EXPECT_THAT(Lines(replay.errors), ElementsAre(CUT));
}

// --- What the storage card has lost

TEST_F(PowerCutTest, NothingIsLostFromTheCardUnlessToldSo)
{
    for (const std::vector<std::string>& options : {std::vector<std::string>(), {"--power-loss", "keep"}})
    {
        Run("echo text > /mnt/sdcard/file; sleep 9", "3 power cut\n", options);
        EXPECT_EQ(OnCard("file"), "text\n");
    }
}

TEST_F(PowerCutTest, WhatWasNotSyncedIsDroppedFromTheCard)
{
    fs::create_directories(card);
    for (const char* const name : {"appended", "again", "emptied", "cut", "replaced", "untouched"})
    {
        std::ofstream(card / name) << "old\n";
    }
    const Outcome outcome = Run(
        "cd /; c=mnt/sdcard; echo new >> $c/appended; echo x > $c/again; sync $c/again; echo y > $c/again; "
        ": > $c/emptied; truncate -s 1 $c/cut; mkdir $c/dir; echo z > $c/dir/new; echo z > $c/tmp; "
        "mv $c/tmp $c/replaced; rm $c/untouched; echo u > $c/untouched; sync $c/untouched; sleep 9",
        "3 power cut\n", {"--power-loss", "drop"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(
        Lines(outcome.errors),
        ElementsAre(CUT, "virtual-unit: /mnt/sdcard/again has lost what was not synced: 2 bytes are left",
                    "virtual-unit: /mnt/sdcard/appended has lost what was not synced: 4 bytes are left",
                    "virtual-unit: /mnt/sdcard/cut has lost what was not synced: 4 bytes are left",
                    "virtual-unit: /mnt/sdcard/dir/new is lost: it was never synced",
                    "virtual-unit: /mnt/sdcard/emptied has lost what was not synced: 4 bytes are left",
                    "virtual-unit: /mnt/sdcard/replaced is lost: it was never synced"));
    EXPECT_EQ(OnCard("again"), "x\n");
    EXPECT_EQ(OnCard("appended"), "old\n");
    EXPECT_EQ(OnCard("cut"), "old\n");
    EXPECT_EQ(OnCard("emptied"), "old\n");
    EXPECT_EQ(OnCard("untouched"), "u\n");
    EXPECT_TRUE(fs::is_directory(card / "dir"));
    EXPECT_FALSE(fs::exists(card / "dir/new"));
    EXPECT_FALSE(fs::exists(card / "replaced"));
}

TEST_F(PowerCutTest, EachWayToSyncKeepsWhatWasWritten)
{
    for (const std::string& sync : std::vector<std::string>{"sync $f", "sync -d $f", "sync -f $f", "sync",
                                                            DRIVER_PROBE_WORD + " umount"})
    {
        fs::remove_all(card);
        Run("f=/mnt/sdcard/file; echo text > $f; " + sync + " > /dev/null; echo more >> $f; sleep 9",
            "3 power cut\n", {"--power-loss", "drop"});
        EXPECT_EQ(OnCard("file"), "text\n") << sync;
    }
    for (const char* const way : {"oflag=sync", "oflag=dsync", "conv=fsync", "conv=fdatasync"})
    {
        fs::remove_all(card);
        Run(std::string("echo text | dd of=/mnt/sdcard/file status=none ") + way + "; sleep 9",
            "3 power cut\n", {"--power-loss", "drop"});
        EXPECT_EQ(OnCard("file"), "text\n") << way;
    }
}

TEST_F(PowerCutTest, WhatIsWrittenThroughMemoryIsKeptWhereItIsSynced)
{
    const Outcome outcome = Run(DRIVER_PROBE_WORD + " mapped /mnt/sdcard/file; sleep 9", "3 power cut\n",
                                {"--power-loss", "drop"});
    EXPECT_EQ(outcome.output, "ftruncate 0\nmsync 0\nmsync that does not wait 0\n");
    EXPECT_STREQ(OnCard("file").c_str(), "synced");
    EXPECT_EQ(OnCard("file").size(), 4096U);
}

TEST_F(PowerCutTest, ARunThatEndsByItselfLosesNothing)
{
    const Outcome outcome = Run("echo text > /mnt/sdcard/file", "", {"--power-loss", "drop"});
    EXPECT_EQ(OnCard("file"), "text\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(PowerCutTest, AScriptMayFitTheCardSoAndAnotherValueIsRefused)
{
    Run("echo text > /mnt/sdcard/file; sleep 9", "unit power-loss drop\n3 power cut\n");
    EXPECT_FALSE(fs::exists(card / "file"));
    const Outcome wrong = Run(":", "", {"--power-loss", "some"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_THAT(wrong.errors, HasSubstr("--power-loss: \"some\" is neither keep nor drop"));
}

}

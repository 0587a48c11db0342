// What one finds beside a run, inside one, and after one that was killed.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class BesideARunTest : public VirtualUnitTest
{
protected:
    BesideARunTest()
    {
        fs::create_directories(temporary);
        setenv("TMPDIR", temporary.c_str(), 1);
    }

    ~BesideARunTest() override
    {
        unsetenv("TMPDIR");
        fs::remove_all(temporary);
    }

    /// The private directories that there are.
    std::vector<std::string> Directories() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(temporary))
        {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    const fs::path temporary = Kit::TempDir::Path() + "/beside-a-run";
};

TEST_F(BesideARunTest, TheDevicesAreThoseOfTheRun)
{
    EXPECT_THAT(RunUnit({"devices"}).output, HasSubstr("GPS receiver L26\n")) << "nothing runs";
    RunningUnit run({"run", "--gps", "skm53", "--", "/bin/sh", "-c", "echo started; sleep 600"});
    ASSERT_TRUE(run.WaitForOutput("started"));
    RunUnit({"do", "modem", "unplug"});
    EXPECT_THAT(RunUnit({"devices"}).output,
                AllOf(HasSubstr("GPS receiver SKM53\n"), HasSubstr("off the bus\n")));
    EXPECT_THAT(RunUnit({"devices", "--gps", "l26"}).output, HasSubstr("GPS receiver L26\n"))
        << "another unit";

    const nlohmann::json list = nlohmann::json::parse(RunUnit({"devices", "--json"}).output);
    EXPECT_EQ(list["devices"][0],
              nlohmann::json({{"name", "gps"}, {"path", "/dev/ttymxc0"}, {"state", "GPS receiver SKM53"}}));
    EXPECT_EQ(list["devices"].back()["name"], "card");
    EXPECT_THAT(list["refused"], Contains("/dev/hidraw*"));

    RunningUnit second({"run", "--", "/bin/sh", "-c", "echo started; sleep 600"});
    ASSERT_TRUE(second.WaitForOutput("started"));
    const Outcome ambiguous = RunUnit({"devices"});
    EXPECT_EQ(ambiguous.status, 2);
    EXPECT_THAT(ambiguous.errors,
                StartsWith("virtual-unit: more than one virtual unit is running: choose one"));
    run.Signal(SIGTERM);
    second.Signal(SIGTERM);
}

TEST_F(BesideARunTest, TheDevicesAsJsonAreThoseOfTheList)
{
    const nlohmann::json list = nlohmann::json::parse(
        RunUnit({"devices", "--sdcard", temporary.string() + "/a \"card\"", "--json"}).output);
    EXPECT_EQ(list["devices"].back()["state"], "storage card, kept in " + temporary.string() + "/a \"card\"");
    EXPECT_EQ(list["devices"].size(), 9U);
}

TEST_F(BesideARunTest, ARunInsideARunIsRefused)
{
    const std::string unit = Word(VIRTUAL_UNIT);
    for (const char* const outer : {"--gps=l26", "--fast"})
    {
        for (const char* const inner : {"run ", "run --fast ", "env -i"})
        {
            const std::string command =
                std::string(inner) == "env -i" ? "env -i " + unit + " run " : unit + " " + inner;
            const Outcome outcome =
                RunProgram("/bin/sh", {"-c", command + "-- /bin/echo started; echo $?"}, {outer});
            EXPECT_EQ(outcome.output, "3\n");
            EXPECT_EQ(outcome.errors,
                      "virtual-unit: a run inside a run is not possible: this program is on a "
                      "virtual unit already\n");
        }
    }
}

TEST_F(BesideARunTest, WhatAKilledRunLeftIsRemovedByTheNext)
{
    {
        RunningUnit killed(
            {"run", "--", "/bin/sh", "-c",
             "mkdir /mnt/sdcard/closed; : > /mnt/sdcard/closed/file; chmod 0 /mnt/sdcard/closed; "
             "echo started; exec sleep 600"});
        ASSERT_TRUE(killed.WaitForOutput("started"));
        killed.Signal(SIGKILL);
        EXPECT_EQ(killed.End().status, 128 + SIGKILL);
    }
    EXPECT_EQ(Directories().size(), 3U) << "socket, card, USB bus";
    EXPECT_EQ(RunShell("true").status, 0);
    EXPECT_THAT(Directories(), IsEmpty());
}

TEST_F(BesideARunTest, WhatALivingRunHasStays)
{
    RunningUnit run({"run", "--", "/bin/sh", "-c",
                     ": > /mnt/sdcard/file; echo started; read line; ls /mnt/sdcard/file && lsusb | wc -l"},
                    {.onTerminal = true});
    ASSERT_TRUE(run.WaitForOutput("started"));
    const std::vector<std::string> before = Directories();
    EXPECT_EQ(RunShell("true").status, 0);
    EXPECT_THAT(Directories(), testing::UnorderedElementsAreArray(before));
    run.Type("\n");
    EXPECT_THAT(run.End().output, AllOf(HasSubstr("/mnt/sdcard/file\r\n"), HasSubstr("3\r\n")));
}

TEST_F(BesideARunTest, WhatAChildOfAKilledRunStillUsesStays)
{
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0); // the orphans are handed to this process
    pid_t child = 0;
    const std::string fifo = Kit::TempDir::Path() + "/fifo";
    {
        // It needs nobody any more when it says so.
        RunningUnit killed({"run", "--", "/bin/sh", "-c",
                            "mkfifo " + Word(fifo) + "; exec 3>/mnt/sdcard/file 4<>" + Word(fifo) +
                                "; env -i /bin/sh -c 'echo child $$; exec >&3 2>&3; read line <&4' & wait"});
        ASSERT_TRUE(killed.WaitForOutput("child ") && killed.WaitForOutput("\n"));
        killed.Signal(SIGKILL);
        child = std::stoi(killed.End().output.substr(6));
    }
    EXPECT_EQ(RunShell("true").status, 0);
    EXPECT_EQ(Directories().size(), 1U) << "the card";
    kill(child, SIGKILL);
    while (wait(nullptr) > 0)
    {
    }
    EXPECT_EQ(RunShell("true").status, 0);
    EXPECT_THAT(Directories(), IsEmpty());
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(BesideARunTest, WhatIsNotTheUsersOwnStays)
{
    fs::create_directories(temporary / "elsewhere/kept");
    fs::create_symlink(temporary / "elsewhere", temporary / "virtual-unit-run-abcdef");
    std::ofstream(temporary / "virtual-unit-run-file") << "kept";
    std::vector<std::string> kept = {"elsewhere", "virtual-unit-run-abcdef", "virtual-unit-run-file"};
    if (geteuid() == 0)
    {
        constexpr unsigned int NOBODY = 65534;
        fs::create_directories(temporary / "virtual-unit-run-another/kept");
        ASSERT_EQ(chown((temporary / "virtual-unit-run-another").c_str(), NOBODY, NOBODY), 0);
        kept.emplace_back("virtual-unit-run-another");
    }
    EXPECT_EQ(RunShell("true").status, 0);
    EXPECT_THAT(Directories(), testing::UnorderedElementsAreArray(kept));
    EXPECT_TRUE(fs::exists(temporary / "elsewhere/kept"));
}

}

// What others on the same machine can do to a run: nothing.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class NeighboursTest : public VirtualUnitTest
{
protected:
    NeighboursTest()
    {
        fs::create_directories(shared);
        // As "/tmp" is, with a way to it for everybody.
        fs::permissions(Kit::TempDir::Path(), fs::perms::others_exec | fs::perms::group_exec,
                        fs::perm_options::add);
        fs::permissions(shared, fs::perms::all | fs::perms::sticky_bit);
        setenv("TMPDIR", shared.c_str(), 1);
    }

    ~NeighboursTest() override
    {
        unsetenv("TMPDIR");
        fs::remove_all(shared);
    }

    /// Ends a run whose program would go on.
    static Outcome Stop(RunningUnit& run)
    {
        run.Signal(SIGTERM);
        return run.End();
    }

    /// The control socket of the run.
    std::string Control() const
    {
        for (const auto& entry : fs::directory_iterator(shared))
        {
            if (fs::is_socket(entry.path() / "control"))
            {
                return entry.path() / "control";
            }
        }
        return {};
    }

    const fs::path shared = Kit::TempDir::Path() + "/shared";
};

TEST_F(NeighboursTest, WhatARunHasIsForItsUserAloneWhateverTheUmask)
{
    RunningUnit run({"run", "--", "/bin/sh", "-c", "echo text >/mnt/sdcard/file; echo started; sleep 600"},
                    {.launcher = {"/bin/sh", "-c", "umask 0; exec \"$@\"", "sh"}});
    ASSERT_TRUE(run.WaitForOutput("started"));
    int directories = 0;
    for (const auto& entry : fs::directory_iterator(shared))
    {
        struct stat status = {};
        ASSERT_EQ(lstat(entry.path().c_str(), &status), 0);
        EXPECT_TRUE(S_ISDIR(status.st_mode)) << entry.path();
        EXPECT_EQ(status.st_mode & 07777U, 0700U) << entry.path();
        ++directories;
    }
    EXPECT_GT(directories, 0);
    struct stat socket = {};
    ASSERT_EQ(lstat(Control().c_str(), &socket), 0);
    EXPECT_EQ(socket.st_mode & 077U, 0U);
    Stop(run);
}

TEST_F(NeighboursTest, TheSocketIsForItsUserAloneWhereTheUserWantsIt)
{
    const std::string socket = shared / "wanted";
    RunningUnit run({"run", "--control", socket, "--", "/bin/sh", "-c", "echo started; sleep 600"},
                    {.launcher = {"/bin/sh", "-c", "umask 0; exec \"$@\"", "sh"}});
    ASSERT_TRUE(run.WaitForOutput("started"));
    struct stat status = {};
    ASSERT_EQ(lstat(socket.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 077U, 0U);
    Stop(run);
}

TEST_F(NeighboursTest, WhatIsInPlaceOfTheSocketIsLeftAlone)
{
    const fs::path victim = shared / "victim";
    std::ofstream(victim) << "kept";
    fs::create_symlink(victim, shared / "wanted");
    fs::create_symlink(shared / "nowhere", shared / "dangling");
    for (const char* const name : {"victim", "wanted", "dangling"})
    {
        const Outcome outcome = RunUnit({"run", "--control", shared / name, "--", "true"});
        EXPECT_NE(outcome.status, 0) << name;
        EXPECT_THAT(outcome.errors, HasSubstr("Address already in use")) << name;
    }
    EXPECT_EQ(ReadFile(victim), "kept");
    EXPECT_TRUE(fs::is_symlink(shared / "wanted"));
    EXPECT_FALSE(fs::exists(shared / "nowhere"));
}

TEST_F(NeighboursTest, AnotherUserCanCauseNothing)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "only root can be another user";
    }
    RunningUnit run({"run", "--", "/bin/sh", "-c", "echo started; sleep 600"});
    ASSERT_TRUE(run.WaitForOutput("started"));
    const RunningUnit::Options nobody = {.unprivileged = true, .launcher = {}};
    const Outcome by_path = RunUnit({"do", "--control", Control(), "modem", "unplug"}, nobody);
    EXPECT_NE(by_path.status, 0);
    EXPECT_THAT(by_path.errors, HasSubstr("Permission denied"));
    const Outcome by_search = RunUnit({"do", "modem", "unplug"}, nobody);
    EXPECT_NE(by_search.status, 0);
    EXPECT_THAT(by_search.errors, HasSubstr("no virtual unit is running"));
    EXPECT_THAT(RunUnit({"devices"}).output, Not(HasSubstr("off the bus")));
    EXPECT_EQ(RunUnit({"do", "modem", "unplug"}).status, 0) << "its own user can";
    EXPECT_THAT(RunUnit({"devices"}).output, HasSubstr("off the bus"));
    Stop(run);
}

TEST_F(NeighboursTest, AFullDiskIsToldAndNothingIsLeft)
{
    std::vector<std::string> own = {"/usr/bin/unshare", "--mount"};
    if (geteuid() != 0)
    {
        own.insert(own.end(), {"--user", "--map-root-user"});
    }
    std::vector<std::string> launcher = own;
    launcher.insert(launcher.end(), {"/bin/sh", "-c",
                                     "mount -t tmpfs -o size=4k none \"$TMPDIR\" || exit 77; "
                                     "head -c 8192 /dev/zero >\"$TMPDIR/all\" 2>/dev/null; "
                                     "\"$@\"; status=$?; ls \"$TMPDIR\"; exit $status",
                                     "sh"});
    const Outcome outcome = RunUnit({"run", "--", "true"}, {.launcher = launcher});
    if (outcome.status == 77 || outcome.errors.starts_with("unshare: "))
    {
        GTEST_SKIP() << "no mount namespace can be had here: " << outcome.errors;
    }
    EXPECT_EQ(outcome.status, 3) << outcome.output;
    EXPECT_THAT(outcome.errors, HasSubstr("No space left on device"));
    EXPECT_EQ(outcome.output, "all\n");
}

}

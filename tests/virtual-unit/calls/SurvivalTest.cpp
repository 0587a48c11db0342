// What programs do to the supervisor, by mistake or by force: it goes on serving, and holds in the end what
// it held before.

#include "tests/kit/Child.h"
#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* STILL_SERVED = "served 1, then 1";
constexpr const char* NOTHING_LEFT = "left: descriptors 0, threads 0, children 0";

class SurvivalTest : public VirtualUnitTest
{
protected:
    void SetUp() override
    {
        VirtualUnitTest::SetUp();
        std::filesystem::create_directory(temporary);
        setenv("TMPDIR", temporary.c_str(), 1);
        ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0); // what outlives the run is handed to this process
    }

    void TearDown() override
    {
        int status = 0;
        EXPECT_EQ(waitpid(-1, &status, WNOHANG), -1) << "a process of the run is left";
        EXPECT_EQ(errno, ECHILD);
        EXPECT_TRUE(std::filesystem::is_empty(temporary)) << "a private directory is left";
        prctl(PR_SET_CHILD_SUBREAPER, 0);
        unsetenv("TMPDIR");
    }

    /// The trial on the virtual unit, with what the supervisor holds before and after.
    static Outcome Try(const std::string& trial)
    {
        std::vector<std::string> arguments = {"run", "--", SURVIVAL_PROBE, "counted", trial};
        const std::vector<std::string> devices = ServedDevices();
        arguments.insert(arguments.end(), devices.begin(), devices.end());
        return RunUnit(arguments);
    }

    static std::vector<std::string> ServedDevices()
    {
        std::vector<std::string> paths;
        for (const std::string& line : Lines(RunUnit({"devices", "--gps", "l26"}).output))
        {
            const std::string path = line.substr(0, line.find(' '));
            if (path.starts_with("/dev/") && path.find('*') == std::string::npos &&
                line.find("refused") == std::string::npos)
            {
                paths.push_back(path);
            }
        }
        return paths;
    }

private:
    const std::string temporary = Kit::TempDir::Path() + "/survival";
};

TEST_F(SurvivalTest, ManyGenerationsOfOrphansUseTheDevices)
{
    const Outcome outcome = Try("orphans");
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre("generations that used a device: 48 of 48", STILL_SERVED, NOTHING_LEFT));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(SurvivalTest, AProgramWithoutAnyDescriptorOpensDevices)
{
    const Outcome outcome = Try("closed");
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre("in the program: 0", "in the next: 0", STILL_SERVED, NOTHING_LEFT));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(SurvivalTest, TwentyThreadsUseEveryDeviceAtOnce)
{
    const Outcome outcome = Try("threads");
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre("missed 0, descriptors left 0", STILL_SERVED, NOTHING_LEFT));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(SurvivalTest, ProgramsAreKilledInTheMidstOfEachCall)
{
    const Outcome outcome = Try("killed");
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre(testing::MatchesRegex("calls [1-9][0-9]+, never killed in the midst of 0"),
                            STILL_SERVED, NOTHING_LEFT));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(SurvivalTest, AProgramIsKilledWhileItsChildrenMakeCalls)
{
    const Outcome outcome = Try("abandoned");
    EXPECT_EQ(outcome.status, 128 + SIGKILL) << outcome.errors;
}

TEST_F(SurvivalTest, SignalsInterruptEachCall)
{
    const Outcome outcome = Try("interrupted");
    EXPECT_THAT(Lines(outcome.output), ElementsAre("signals some, interrupted some, descriptors left 0",
                                                   STILL_SERVED, NOTHING_LEFT));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(SurvivalTest, PathsAtBadAddressesAreAnsweredAsByTheKernel)
{
    const Kit::ChildResult native = Kit::RunInChild([] {
        execl(SURVIVAL_PROBE, SURVIVAL_PROBE, "bad-paths", nullptr);
        return 1;
    });
    ASSERT_EQ(native.exitStatus, 0) << native.output;
    std::vector<std::string> expected = Lines(native.output);
    EXPECT_THAT(expected, testing::Contains(EndsWith(": EFAULT")).Times(testing::Ge(100)));
    expected.insert(expected.end(), {STILL_SERVED, NOTHING_LEFT});

    const Outcome outcome = Try("bad-paths");
    EXPECT_EQ(Lines(outcome.output), expected);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(SurvivalTest, StructuresAtBadAddressesAreAnsweredAsByTheKernel)
{
    const Outcome outcome = Try("bad-structures");
    const std::string all = ": transfer EFAULT, its data EFAULT, info EFAULT, name EFAULT";
    EXPECT_THAT(Lines(outcome.output),
                ElementsAre("structures tried", "kernel" + all, "last byte" + all,
                            "null: transfer EFAULT, its data EINVAL, info EFAULT, name EFAULT", "one" + all,
                            "unmapped" + all, STILL_SERVED, NOTHING_LEFT));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

}

// Whether the module is on the USB bus, by a real shell that finds a "lsusb" of the test's own.

#include "tests/Modem/ModemTest.h"
#include "tests/kit/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <type_traits>

using testing::Each;
using testing::IsEmpty;

namespace ModemTests
{

namespace
{

constexpr const char* PRESENT = "Bus 001 Device 004: ID 05c6:9003 Qualcomm, Inc. Quectel UC20";
constexpr const char* ABSENT = "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub";

class PresenceTest : public ModemStateTest
{
protected:
    PresenceTest() : formerPath(std::getenv("PATH")), directory(Kit::TempDir::Path() + "/bin")
    {
        std::filesystem::create_directories(directory);
        setenv("PATH", (directory + ":" + formerPath).c_str(), 1);
    }

    ~PresenceTest() override
    {
        setenv("PATH", formerPath.c_str(), 1);
        std::filesystem::remove_all(directory);
    }

    /// What the runs of "lsusb" do, the first, the second, ...; shell commands. Further ones print nothing.
    void Script(const Texts& runs) const
    {
        std::ofstream script(directory + "/lsusb");
        script << "#!/bin/sh\necho \"$0 $#\" >> " << directory << "/runs\n"
               << "case $(wc -l < " << directory << "/runs) in\n";
        for (std::size_t run = 0; run < runs.size(); ++run)
        {
            script << run + 1 << ") " << runs[run] << ";;\n";
        }
        script << "esac\n";
        script.close();
        std::filesystem::permissions(directory + "/lsusb", std::filesystem::perms::owner_all);
    }

    static std::string Print(const std::string& text) { return "echo '" + text + "'"; }

    /// One line for each run.
    Texts Runs() const
    {
        std::ifstream file(directory + "/runs");
        Texts lines;
        for (std::string line; std::getline(file, line);)
        {
            lines.push_back(line);
        }
        EXPECT_THAT(lines, Each(directory + "/lsusb 0")) << "without arguments";
        return lines;
    }

    const std::string formerPath;
    const std::string directory;
    Module3G modem;
};

TEST_F(PresenceTest, AModuleOnTheBusIsFoundAfterASecond)
{
    Script({"echo '" + std::string(ABSENT) + "'; " + Print(PRESENT)});
    EXPECT_TRUE(modem.CheckModulePresence(false));
    EXPECT_EQ(Clock::Elapsed(), 1s);
    EXPECT_EQ(Runs().size(), 1u);
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(PresenceTest, AModuleThatIsNotThereIsLookedForTwice)
{
    Script({Print(ABSENT), Print(ABSENT), Print(PRESENT)});
    EXPECT_FALSE(modem.CheckModulePresence(false));
    EXPECT_EQ(Clock::Elapsed(), 2s);
    EXPECT_THAT(Kit::System::Sleeps(), testing::ElementsAre(1s, 1s));
    EXPECT_EQ(Runs().size(), 2u);
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(PresenceTest, TheSecondAttemptMayFindIt)
{
    Script({Print(ABSENT), Print(PRESENT)});
    EXPECT_TRUE(modem.CheckModulePresence(false));
    EXPECT_EQ(Clock::Elapsed(), 2s);
    EXPECT_EQ(Runs().size(), 2u);
}

TEST_F(PresenceTest, OnceFoundItIsNotLookedForAgainUnlessForced)
{
    Script({Print(PRESENT), Print(PRESENT), Print(ABSENT), Print(ABSENT), Print(ABSENT), Print(PRESENT)});
    EXPECT_TRUE(modem.CheckModulePresence(false));
    EXPECT_TRUE(modem.CheckModulePresence(false));
    EXPECT_EQ(Clock::Elapsed(), 1s) << "no time passes";
    EXPECT_EQ(Runs().size(), 1u) << "no command runs";
    EXPECT_TRUE(modem.CheckModulePresence(true));
    EXPECT_EQ(Runs().size(), 2u);
    EXPECT_FALSE(modem.CheckModulePresence(true)) << "it is gone";
    EXPECT_EQ(Runs().size(), 4u);
    EXPECT_TRUE(modem.CheckModulePresence(false)) << "the memory is gone too";
    EXPECT_EQ(Runs().size(), 6u);
}

TEST_F(PresenceTest, EachObjectHasItsOwnMemory)
{
    Script({Print(PRESENT), Print(ABSENT), Print(ABSENT)});
    Module3G other;
    EXPECT_TRUE(modem.CheckModulePresence(false));
    EXPECT_FALSE(other.CheckModulePresence(false));
    EXPECT_TRUE(modem.CheckModulePresence(false));
}

TEST(Module3GShapeTest, AnObjectCanBeNeitherCopiedNorMoved)
{
    EXPECT_FALSE(std::is_copy_constructible_v<Module3G>);
    EXPECT_FALSE(std::is_copy_assignable_v<Module3G>);
    EXPECT_FALSE(std::is_move_constructible_v<Module3G>);
    EXPECT_FALSE(std::is_move_assignable_v<Module3G>);
}

TEST_F(PresenceTest, TheIdentifierIsSearchedAnywhereInTheOutput)
{
    Script({"printf 'x05c6:9y'", "echo 05c6:8003", "echo 05C6:9003"});
    EXPECT_TRUE(modem.CheckModulePresence(true));
    EXPECT_FALSE(modem.CheckModulePresence(true)) << "neither another product nor capitals";
}

TEST_F(PresenceTest, TheApplicationMayLookForAnother)
{
    Script({Print(PRESENT), Print(PRESENT), Print("ID 2c7c:0125")});
    Tavdevice::Modem::Bus_Module3G = "2c7c:0125";
    EXPECT_FALSE(modem.CheckModulePresence(false));
    EXPECT_TRUE(modem.CheckModulePresence(false));
}

TEST_F(PresenceTest, ThePartsOfTheIdentifierInTwoRunsAreNone)
{
    Script({"printf 'ID 05c6'", "printf ':9003'"});
    EXPECT_FALSE(modem.CheckModulePresence(false)) << "the output of the first run is cleared";
}

TEST_F(PresenceTest, AFailingCommandFindsNothing)
{
    Script({"exit 1", "exit 127"});
    EXPECT_FALSE(modem.CheckModulePresence(false));
    std::filesystem::remove(directory + "/lsusb");
    setenv("PATH", directory.c_str(), 1);
    EXPECT_FALSE(modem.CheckModulePresence(false));
    EXPECT_EQ(Clock::Elapsed(), 4s);
}

TEST_F(PresenceTest, TheOutputCountsWhateverTheCommandsEnd)
{
    Script({Print(PRESENT) + "; exit 1"});
    EXPECT_TRUE(modem.CheckModulePresence(false));
}

TEST_F(PresenceTest, WhatAnotherThreadFoundMeanwhileCounts)
{
    const std::string gate = directory + "/gate";
    ASSERT_EQ(mkfifo(gate.c_str(), S_IRUSR | S_IWUSR), 0);
    Script({"cat " + gate, Print(PRESENT)});
    bool found = false;
    std::thread waiting([&] { found = modem.CheckModulePresence(false); });
    {
        const std::ofstream hold(gate); // waits until the first run reads from it, and keeps it reading
        EXPECT_TRUE(modem.CheckModulePresence(true));
    }
    waiting.join();
    EXPECT_TRUE(found) << "though its own look did not find it";
    EXPECT_EQ(Runs().size(), 2u);
}

}

}

#include "tests/base/Tavbase/Tavlog/LogTest.h"
#include "tests/kit/Child.h"
#include "tests/kit/Program.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"

#include <chrono>
#include <cstdlib>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;
using testing::UnorderedElementsAre;
using Tests::Contents;
using Tests::Elsewhere;
using Tests::LetOthersRun;
using Tests::Log;
using Tests::LogType;

namespace
{

/// The parent logs to a file; a child logs to the same file and to its own standard output, which the test
/// gets. The parent's console is off, so that what comes out of a child is the child's.
class LoggerForkTest : public testing::Test
{
protected:
    LoggerForkTest()
    {
        unlink(path.c_str());
        Log().EnableConsole(false);
        Log().OpenFile(path, 0, 0);
    }

    ~LoggerForkTest() override
    {
        Log().CloseFile();
        Log().EnableConsole(true);
        unlink(path.c_str());
    }

    std::vector<std::string> FileLines() const
    {
        Log().Flush();
        return Kit::LogLines(Contents(path));
    }

    static void Say(const std::string& text) { Log() << LogType::Info << text << std::endl; }

    /// Runs `work` in a forked child with its console on. @return its lines
    static std::vector<std::string> InChild(const std::function<void()>& work)
    {
        const Kit::ChildResult result = Kit::RunInChild([&] {
            Log().EnableConsole(true);
            work();
            return 0;
        });
        EXPECT_EQ(result.exitStatus, 0) << "signal " << result.signal;
        return Kit::LogLines(result.output);
    }

    /// For tests in which fork() has to wait for somebody; the child, which has no clock, must not sleep.
    Kit::Clock clock;
    const std::string path = Kit::TempDir::Path() + "/fork.log";
};

TEST_F(LoggerForkTest, AForkedChildLogsToBothSinks)
{
    Say("parent");
    EXPECT_THAT(InChild([] {
                    Say("child");
                    Log() << LogType::Error << Tests::LogModule::CELL << "again " << 5 << std::endl;
                }),
                ElementsAre("child", "[ERROR][#CELL]again 5"));
    Say("parent again");
    EXPECT_THAT(FileLines(), ElementsAre("parent", "child", "[ERROR][#CELL]again 5", "parent again"));
}

TEST_F(LoggerForkTest, AChildOfAChildLogsToo)
{
    EXPECT_THAT(InChild([] {
                    Say("child");
                    const pid_t grandchild = fork();
                    if (grandchild == 0)
                    {
                        Say("grandchild");
                        std::exit(0);
                    }
                    int status = -1;
                    waitpid(grandchild, &status, 0);
                    Say("its status is " + std::to_string(status));
                }),
                ElementsAre("child", "grandchild", "its status is 0"));
    EXPECT_THAT(FileLines(), ElementsAre("child", "grandchild", "its status is 0"));
}

TEST_F(LoggerForkTest, AChildCompletesTheLineInWhichItWasForkedAndSoDoesTheParent)
{
    Log() << LogType::Warning << "begun ";
    EXPECT_THAT(InChild([] {
                    Log() << "by the child" << std::endl;
                    Say("next");
                }),
                testing::SizeIs(2));
    Log() << "by the parent" << std::endl;
    EXPECT_THAT(FileLines(),
                ElementsAre("[WARNING]begun by the child", "next", "[WARNING]begun by the parent"));
}

TEST_F(LoggerForkTest, AChildThatLeavesTheLineOfItsForkAloneLosesItsCopy)
{
    Log() << LogType::Warning << "begun ";
    EXPECT_THAT(InChild([] {}), testing::IsEmpty());
    Log() << "and ended" << std::endl;
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]begun and ended"));
}

TEST_F(LoggerForkTest, ALineThatAnotherThreadKeepsOpenDoesNotHinderTheChild)
{
    std::atomic<bool> go{false};
    const Elsewhere other([&] {
        Log() << LogType::Info << "kept open ";
        Kit::Clock::WaitUntil([&] { return go.load(); });
        Log() << "and ended" << std::endl;
    });
    LetOthersRun();
    Kit::System::ForgetCalls();
    EXPECT_THAT(InChild([] {
                    Say("child");
                    Say("child again");
                    Log().Flush();
                }),
                ElementsAre("child", "child again"));
    std::chrono::microseconds waited{0};
    for (const std::chrono::microseconds sleep : Kit::System::Sleeps())
    {
        waited += sleep;
    }
    EXPECT_EQ(waited, std::chrono::milliseconds(100)) << "the fork waits for a while, and then no longer";
    go = true;
    EXPECT_TRUE(other.IsDone());
    EXPECT_THAT(FileLines(), ElementsAre("child", "child again", "kept open and ended"));
}

TEST_F(LoggerForkTest, AForkWaitsForALineThatIsAboutToBeCompleted)
{
    std::atomic<bool> forked{false};
    const Elsewhere other([&] {
        Log() << LogType::Info << "soon ";
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(forked);
        Log() << "ended" << std::endl;
    });
    LetOthersRun();
    EXPECT_THAT(InChild([] { Say("child"); }), ElementsAre("child"));
    forked = true;
    EXPECT_TRUE(other.IsDone());
    EXPECT_THAT(FileLines(), ElementsAre("soon ended", "child"));
}

TEST_F(LoggerForkTest, AChildOfAThreadThatKeepsNoLineMayBeForkedWhileThePolicyIsInUse)
{
    std::atomic<bool> go{false};
    const Elsewhere other(
        [&] { Log().File().WithPolicy([&](auto&) { Kit::Clock::WaitUntil([&] { return go.load(); }); }); });
    LetOthersRun();
    EXPECT_THAT(InChild([] { Say("child"); }), ElementsAre("child"));
    go = true;
    EXPECT_TRUE(other.IsDone());
    EXPECT_THAT(FileLines(), ElementsAre("child"));
}

TEST_F(LoggerForkTest, NoLineIsLostOrDoubledByAForkRightAfterIt)
{
    std::vector<std::string> expected;
    for (int round = 0; round < 50; ++round)
    {
        const std::string name = std::to_string(round);
        Say("parent " + name);
        EXPECT_THAT(InChild([&] { Say("child " + name); }), ElementsAre("child " + name));
        expected.push_back("parent " + name);
        expected.push_back("child " + name);
    }
    EXPECT_EQ(FileLines(), expected);
}

TEST_F(LoggerForkTest, ForksAmongLinesOfOtherThreadsLoseNothing)
{
    constexpr int LINES = 200;
    std::vector<std::string> expected;
    std::vector<std::unique_ptr<Elsewhere>> others;
    for (int thread = 0; thread < 2; ++thread)
    {
        others.push_back(std::make_unique<Elsewhere>([thread] {
            for (int line = 0; line < LINES; ++line)
            {
                Log() << LogType::Info << "thread " << thread << " line " << line << std::endl;
            }
        }));
        for (int line = 0; line < LINES; ++line)
        {
            expected.push_back("thread " + std::to_string(thread) + " line " + std::to_string(line));
        }
    }
    for (int round = 0; round < 20; ++round)
    {
        expected.push_back("child " + std::to_string(round));
        EXPECT_THAT(InChild([&] { Say(expected.back()); }), ElementsAre(expected.back()));
    }
    for (const auto& other : others)
    {
        EXPECT_TRUE(other->IsDone());
    }
    EXPECT_THAT(FileLines(), testing::UnorderedElementsAreArray(expected));
}

TEST_F(LoggerForkTest, AnExceptionallyShortChildDisturbsNobody)
{
    const pid_t child = fork();
    if (child == 0)
    {
        _exit(3);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 3);
    Say("parent");
    EXPECT_THAT(FileLines(), ElementsAre("parent"));
}

TEST_F(LoggerForkTest, AProgramStartedInTheChildHasNoDescriptorOfTheLog)
{
    Log() << LogType::Info << "open ";
    const Kit::ChildResult result = Kit::RunInChild([] {
        execl("/bin/sh", "sh", "-c", "ls -l /proc/self/fd; echo started", static_cast<char*>(nullptr));
        return 1;
    });
    Log() << "line" << std::endl;
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.output, testing::EndsWith("started\n"));
    EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("fork.log")));
    EXPECT_THAT(FileLines(), ElementsAre("open line"));
}

class SaysGoodBye
{
public:
    SaysGoodBye() = default;
    SaysGoodBye(const SaysGoodBye&) = delete;
    SaysGoodBye& operator=(const SaysGoodBye&) = delete;

    ~SaysGoodBye() { Log() << LogType::Info << "good-bye" << std::endl; }
};

KIT_PROGRAM(ChildWithStaticObjects)
{
    Log() << LogType::Info << "parent" << std::endl;
    Log().Flush();
    const pid_t child = fork();
    if (child == 0)
    {
        static const SaysGoodBye object;
        Log() << LogType::Info << "child" << std::endl;
        std::exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    Log() << LogType::Info << "status " << status << std::endl;
    return 0;
}

TEST_F(LoggerForkTest, AChildsStaticObjectsMayLogInTheirDestructors)
{
    const Kit::ChildResult result = Kit::RunProgram("ChildWithStaticObjects");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Kit::LogLines(result.output), ElementsAre("parent", "child", "good-bye", "status 0"));
}

int LogFromTwoThreads()
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 2; ++thread)
    {
        threads.emplace_back([thread] {
            for (int line = 0; line < 100; ++line)
            {
                Log() << LogType::Info << "thread " << thread << " line " << line << std::endl;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    return 0;
}

KIT_PROGRAM(ChildWithThreads)
{
    Log() << LogType::Info << "parent" << std::endl;
    Log().Flush();
    const pid_t child = fork();
    if (child == 0)
    {
        std::exit(LogFromTwoThreads());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

KIT_PROGRAM(ForkBeforeTheFirstLine)
{
    const pid_t child = fork();
    if (child == 0)
    {
        std::exit(LogFromTwoThreads());
    }
    int status = -1;
    waitpid(child, &status, 0);
    Log() << LogType::Info << "parent" << std::endl;
    return status;
}

TEST_F(LoggerForkTest, AChildWithThreadsOfItsOwnLogsFromAllOfThem)
{
    std::vector<std::string> expected = {"parent"};
    for (int line = 0; line < 100; ++line)
    {
        expected.push_back("thread 0 line " + std::to_string(line));
        expected.push_back("thread 1 line " + std::to_string(line));
    }
    for (const char* const program : {"ChildWithThreads", "ForkBeforeTheFirstLine"})
    {
        const Kit::ChildResult result = Kit::RunProgram(program);
        EXPECT_EQ(result.exitStatus, 0) << result.output;
        EXPECT_THAT(Kit::LogLines(result.output), testing::UnorderedElementsAreArray(expected)) << program;
    }
}

}

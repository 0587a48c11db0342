#include "tests/base/Tavbase/Tavlog/LogTest.h"
#include "tests/kit/Child.h"
#include "tests/kit/Program.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"

#include <chrono>
#include <cstdlib>
#include <pthread.h>
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

// Fork handlers of an application that were registered before those of any library: they run between the
// log's own and the fork itself.

using Handler = void (*)();
std::atomic<Handler> onPrepare{nullptr};
std::atomic<Handler> onParent{nullptr};
std::atomic<Handler> onChild{nullptr};

void Run(const std::atomic<Handler>& handler)
{
    const Handler present = handler.load();
    if (present != nullptr)
    {
        present();
    }
}

__attribute__((no_sanitize("thread", "address", "undefined"))) void RegisterEarly()
{
    pthread_atfork([] { Run(onPrepare); }, [] { Run(onParent); }, [] { Run(onChild); });
}

__attribute__((section(".preinit_array"), used)) const Handler registerEarly = RegisterEarly;

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
        onPrepare = onParent = onChild = nullptr;
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

    /// A child that does nothing.
    static void Fork()
    {
        const pid_t child = fork();
        if (child == 0)
        {
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    }

    static void LogInEachHandler()
    {
        onPrepare = [] { Say("prepare"); };
        onParent = [] { Say("in the parent"); };
        onChild = [] { Say("in the child"); };
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

std::atomic<bool> secondHasForked{false};
thread_local bool isFirst = false;

TEST_F(LoggerForkTest, TwoThreadsMayForkAtTheSameTime)
{
    secondHasForked = false;
    onPrepare = [] {
        if (isFirst)
        {
            Kit::Clock::WaitUntil([] { return secondHasForked.load(); });
        }
    };
    {
        const Elsewhere first([] {
            isFirst = true;
            Fork();
        });
        LetOthersRun();
        Fork(); // waits in vain for the lock that the first has taken for its own
        secondHasForked = true;
    }
    const Elsewhere logging([] {
        Say("one");
        Say("two");
    });
    ASSERT_TRUE(logging.IsDone()) << "the lock was given back";
    EXPECT_THAT(FileLines(), ElementsAre("one", "two"));
}

TEST_F(LoggerForkTest, TwoForksBesideALineThatStaysOpenLeaveTheLogAsItWas)
{
    std::atomic<bool> go{false};
    const Elsewhere other([&] {
        Log() << LogType::Info << "kept open ";
        Kit::Clock::WaitUntil([&] { return go.load(); });
        Log() << "and ended" << std::endl;
    });
    LetOthersRun();
    {
        const Elsewhere first(Fork);
        const Elsewhere second(Fork);
    }
    const Elsewhere logging([] { Say("after it"); });
    EXPECT_FALSE(logging.IsDone()) << "the line is still the other thread's";
    go = true;
    EXPECT_TRUE(other.IsDone());
    EXPECT_TRUE(logging.IsDone());
    EXPECT_THAT(FileLines(), ElementsAre("kept open and ended", "after it"));
}

TEST_F(LoggerForkTest, ForkHandlersOfTheApplicationMayLog)
{
    LogInEachHandler();
    Say("before");
    EXPECT_THAT(InChild([] { Say("child"); }), ElementsAre("child")) << "the console was still off";
    Say("after");
    const std::vector<std::string> lines = FileLines();
    EXPECT_THAT(lines,
                UnorderedElementsAre("before", "prepare", "in the parent", "in the child", "child", "after"));
    EXPECT_EQ(lines[0], "before");
    EXPECT_EQ(lines[1], "prepare");
    EXPECT_EQ(lines.back(), "after");
}

TEST_F(LoggerForkTest, ForkHandlersThatLogLeaveALineOpenThatTheForkingThreadHasBegun)
{
    LogInEachHandler();
    Log() << LogType::Warning << "begun " << std::hex;
    EXPECT_THAT(InChild([] { Log() << "by the child " << 16 << std::endl; }), testing::SizeIs(1));
    Log() << "by the parent " << 16 << std::endl;
    EXPECT_THAT(FileLines(),
                UnorderedElementsAre("prepare", "in the parent", "in the child",
                                     "[WARNING]begun by the child 10", "[WARNING]begun by the parent 10"));
}

TEST_F(LoggerForkTest, AForkHandlerThatLogsWaitsForALineThatAnotherThreadHasOpen)
{
    onPrepare = [] { Say("prepare"); };
    onParent = [] { Say("in the parent"); };
    const Elsewhere other([] {
        Log() << LogType::Info << "kept open ";
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        Log() << "and ended" << std::endl;
    });
    LetOthersRun();
    Fork();
    EXPECT_TRUE(other.IsDone());
    EXPECT_THAT(FileLines(), ElementsAre("kept open and ended", "prepare", "in the parent"));
}

TEST_F(LoggerForkTest, AForkHandlerInTheChildLogsAlthoughAnotherThreadHadALineOpen)
{
    onChild = [] { Say("in the child"); };
    std::atomic<bool> go{false};
    const Elsewhere other([&] {
        Log() << LogType::Info << "kept open ";
        Kit::Clock::WaitUntil([&] { return go.load(); });
        Log() << "and ended" << std::endl;
    });
    LetOthersRun();
    EXPECT_THAT(InChild([] { Say("child"); }), ElementsAre("child"));
    go = true;
    EXPECT_TRUE(other.IsDone());
    EXPECT_THAT(FileLines(), ElementsAre("in the child", "child", "kept open and ended"));
}

TEST_F(LoggerForkTest, ForkHandlersMayUseEveryOperationOfTheLog)
{
    onPrepare = [] {
        Log().Flush();
        Log() << LogType::Info << "never ended";
        Log().OpenFile(Kit::TempDir::Path() + "/fork.log", 0, 0);
        Log() << LogType::Info << "of another file" << std::endl;
        Log().File().Enable(false);
        Say("to nobody");
        Log().File().Enable(true);
    };
    onParent = [] { Log() << LogType::Error << "left open"; };
    Fork();
    Say("after");
    EXPECT_THAT(FileLines(), ElementsAre("never ended", "of another file", "[ERROR]left open", "after"));
}

TEST_F(LoggerForkTest, AForkHandlerThatForksMayLogToo)
{
    static std::atomic<bool> nested;
    nested = false;
    onPrepare = [] {
        if (!nested.exchange(true))
        {
            Say("outer");
            Fork();
            Say("outer again");
        }
        else
        {
            Say("inner");
        }
    };
    Fork();
    const Elsewhere logging([] { Say("after"); });
    ASSERT_TRUE(logging.IsDone());
    EXPECT_THAT(FileLines(), ElementsAre("outer", "inner", "outer again", "after"));
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

KIT_PROGRAM(FirstLineInAForkHandler)
{
    onPrepare = [] { Log() << LogType::Info << "prepare" << std::endl; };
    onParent = [] { Log() << LogType::Info << "in the parent" << std::endl; };
    onChild = [] { Log() << LogType::Info << "in the child" << std::endl; };
    const pid_t child = fork();
    if (child == 0)
    {
        std::exit(LogFromTwoThreads());
    }
    int status = -1;
    waitpid(child, &status, 0);
    Log() << LogType::Info << "parent" << std::endl;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

TEST_F(LoggerForkTest, TheVeryFirstLineMayComeFromAForkHandler)
{
    const Kit::ChildResult result = Kit::RunProgram("FirstLineInAForkHandler");
    EXPECT_EQ(result.exitStatus, 0) << result.output;
    const std::vector<std::string> lines = Kit::LogLines(result.output);
    EXPECT_THAT(lines, testing::SizeIs(204));
    EXPECT_THAT(lines, testing::IsSupersetOf({"prepare", "in the parent", "in the child", "parent"}));
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
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
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
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
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

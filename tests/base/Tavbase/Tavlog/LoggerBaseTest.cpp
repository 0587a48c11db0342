#include "base/Tavbase/Tavlog/LoggerBase.h"

#include "tests/base/Tavbase/Tavlog/LogTest.h"
#include "tests/kit/Leaks.h"
#include "tests/kit/Program.h"
#include "tests/kit/TempDir.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <pthread.h>
#include <sstream>
#include <string>
#include <thread>

using Tests::Elsewhere;
using Tests::LetOthersRun;
using Tests::Log;
using Tests::LogModule;
using Tests::LogType;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

namespace
{

using LoggerBaseTest = Kit::DeviceTest;

std::map<std::string, std::filesystem::path> Threads()
{
    std::map<std::string, std::filesystem::path> threads;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::string name = Tests::Contents(task.path() / "comm");
        threads[name.substr(0, name.find('\n'))] = task.path();
    }
    return threads;
}

/// The value of a field in /proc/PID/status.
std::string Status(const std::filesystem::path& task, const std::string& field)
{
    std::istringstream lines(Tests::Contents(task / "status"));
    for (std::string line; std::getline(lines, line);)
    {
        if (line.starts_with(field + ":\t"))
        {
            return line.substr(field.size() + 2);
        }
    }
    return {};
}

TEST_F(LoggerBaseTest, APieceReturnsTheSinkItself)
{
    auto& sink = Log().File();
    EXPECT_EQ(&(sink << LogType::Info), &sink);
    EXPECT_EQ(&(sink << LogModule::CELL), &sink);
    EXPECT_EQ(&(sink << "text"), &sink);
    EXPECT_EQ(&(sink << std::endl), &sink);
    EXPECT_THAT(log.File(), ElementsAre("[#CELL]text"));
}

TEST_F(LoggerBaseTest, TheHalvesOfALineCanBeCalledByThemselves)
{
    auto& sink = Log().Console();
    sink.WriteHeader(LogType::Warning);
    sink << "text";
    sink.CheckEndOfStream();
    LetOthersRun();
    EXPECT_EQ(log.RawConsole(), "") << "the text does not end in a line end";
    sink << "\n";
    LetOthersRun();
    EXPECT_EQ(log.RawConsole(), "") << "a piece does not look for it";
    sink.CheckEndOfStream();
    EXPECT_THAT(log.Console(), ElementsAre("[WARNING]text"));
    sink.CheckEndOfStream();
    EXPECT_THAT(log.Console(), ElementsAre("[WARNING]text"));
}

TEST_F(LoggerBaseTest, TheEndOfAnotherThreadsLineIsNotThisThreadsAffair)
{
    Log().Console() << LogType::Info << "mine\n";
    std::thread([] {
        Log().Console().CheckEndOfStream();
        Log().Console().CompleteOpenLine();
    }).join();
    LetOthersRun();
    EXPECT_EQ(log.RawConsole(), "");
    Log().Console().CheckEndOfStream();
    EXPECT_THAT(log.Console(), ElementsAre("mine"));
}

TEST_F(LoggerBaseTest, AnOpenLineCanBeCompletedFromOutside)
{
    Log().Console().CompleteOpenLine();
    Log().Console() << LogType::Info << "open";
    Log().Console().CompleteOpenLine();
    Log().Console().CompleteOpenLine();
    EXPECT_THAT(log.Console(), ElementsAre("open"));
}

TEST_F(LoggerBaseTest, ThePolicyIsUsedWhileNoLineIsOpen)
{
    std::unique_ptr<Elsewhere> other;
    Log().File() << LogType::Info << "open";
    const int result = Log().File().WithPolicy([&](auto&) {
        const std::string soFar = Tests::Contents(Kit::TempDir::Path() + "/captured.log");
        EXPECT_THAT(Kit::LogLines(soFar), ElementsAre("open")) << "completed, and out";
        other = std::make_unique<Elsewhere>([] { Log().File() << LogType::Info << "next" << std::endl; });
        EXPECT_FALSE(other->IsDone());
        return 42;
    });
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(other->IsDone());
    EXPECT_THAT(log.File(), ElementsAre("open", "next"));
}

KIT_PROGRAM(FirstUse)
{
    auto& logger = Log();
    std::printf("file %d console %d threads %zu\n", logger.File().IsEnabled() ? 1 : 0,
                logger.Console().IsEnabled() ? 1 : 0, Threads().size());
    std::fflush(stdout);
    logger.EnableConsole(false);
    logger << LogType::Info << "nowhere" << std::endl;
    std::printf("threads %zu\n", Threads().size());
    std::fflush(stdout);
    logger.EnableConsole(true);
    logger << LogType::Info << "first" << std::endl;
    logger.Flush();
    std::printf("console writer %zu file writer %zu\n", Threads().count("log-console"),
                Threads().count("log-file"));
    return 0;
}

TEST_F(LoggerBaseTest, AtFirstTheConsoleIsOnTheFileIsOffAndNoThreadRuns)
{
    const Kit::ChildResult result = Kit::RunProgram("FirstUse");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.output, testing::MatchesRegex("file 0 console 1 threads 1\nthreads 1\n"
                                                     "\\[[-0-9: ]+\\]first\n"
                                                     "console writer 1 file writer 0\n"));
}

TEST_F(LoggerBaseTest, EachSinkHasAWriterOfItsOwnThatTakesNoSignal)
{
    for (const char* const name : {"log-file", "log-console"})
    {
        ASSERT_EQ(Threads().count(name), 1U) << name;
        const unsigned long long blocked = std::stoull(Status(Threads().at(name), "SigBlk"), nullptr, 16);
        for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGUSR1, SIGCHLD, SIGALRM})
        {
            EXPECT_NE(blocked & (1ULL << (number - 1)), 0U) << name << ' ' << number;
        }
        EXPECT_EQ(blocked & (1ULL << (SIGSEGV - 1)), 0U) << name;
    }
}

TEST_F(LoggerBaseTest, NothingWakesAWriterWhileNothingIsLogged)
{
    Log() << LogType::Info << "last" << std::endl;
    Log().Flush();
    LetOthersRun(); // they sleep
    std::map<std::string, std::string> before;
    for (const char* const name : {"log-file", "log-console"})
    {
        before[name] = Status(Threads().at(name), "voluntary_ctxt_switches");
    }
    std::this_thread::sleep_for(24h);
    for (const auto& [name, switches] : before)
    {
        EXPECT_NE(switches, "");
        EXPECT_EQ(Status(Threads().at(name), "voluntary_ctxt_switches"), switches) << name;
    }
}

KIT_PROGRAM(NoThreadForTheWriter)
{
    pthread_attr_t normal;
    pthread_getattr_default_np(&normal);
    pthread_attr_t hopeless; // a stack that no machine has
    pthread_attr_init(&hopeless);
    pthread_attr_setstacksize(&hopeless,
                              sizeof(std::size_t) == 8 ? std::size_t{1} << 46 : std::size_t{15} << 28);
    pthread_setattr_default_np(&hopeless);
    Log() << LogType::Info << "without a writer" << std::endl;
    std::printf("threads %zu\n", Threads().size());
    std::fflush(stdout);
    pthread_setattr_default_np(&normal);
    Log() << LogType::Info << "with a writer" << std::endl;
    Log().Flush();
    std::printf("threads %zu\n", Threads().size());
    return 0;
}

TEST_F(LoggerBaseTest, WhereNoWriterCanBeStartedTheLineIsOutputAllTheSame)
{
    const Kit::ChildResult result = Kit::RunProgram("NoThreadForTheWriter");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Kit::LogLines(result.output),
                ElementsAre("without a writer\nthreads 1", "with a writer\nthreads 2"));
}

KIT_PROGRAM(NoKeyForTheThreadEnd)
{
    pthread_key_t key = {};
    while (pthread_key_create(&key, nullptr) == 0)
    {
    }
    const void* const before = pthread_getspecific(0); // somebody's, and not the log's
    Log() << LogType::Info << "line" << std::endl;
    std::thread([] { Log() << LogType::Info << "completed" << std::endl; }).join();
    return pthread_getspecific(0) == before ? 0 : 1;
}

TEST_F(LoggerBaseTest, AnApplicationMayUseUpTheThreadSpecificKeys)
{
    const Kit::ChildResult result = Kit::RunProgram("NoKeyForTheThreadEnd");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Kit::LogLines(result.output), ElementsAre("line", "completed"));
}

}

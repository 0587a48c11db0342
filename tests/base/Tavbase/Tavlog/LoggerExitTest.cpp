#include "tests/base/Tavbase/Tavlog/LogTest.h"
#include "tests/kit/Program.h"
#include "tests/kit/TempDir.h"

#include <cstdlib>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;
using Tests::Contents;
using Tests::Log;
using Tests::LogType;

namespace
{

/// Logs from its constructor and its destructor.
class Chatty
{
public:
    explicit Chatty(std::string chattyName) : name(std::move(chattyName)) { Say("made"); }

    ~Chatty() { Say("destroyed"); }

    Chatty(const Chatty&) = delete;
    Chatty& operator=(const Chatty&) = delete;

private:
    void Say(const char* what) const { Log() << LogType::Info << name << ' ' << what << std::endl; }

    std::string name;
};

/// Constructed before main(), where the environment asks for it.
class BeforeMain
{
public:
    BeforeMain()
    {
        if (std::getenv("LOG_BEFORE_MAIN") != nullptr)
        {
            chatty = std::make_unique<Chatty>("before main");
        }
    }

private:
    std::unique_ptr<Chatty> chatty;
};

const BeforeMain beforeMain;

class LoggerExitTest : public testing::Test
{
protected:
    LoggerExitTest() { unlink(path.c_str()); }

    ~LoggerExitTest() override { unlink(path.c_str()); }

    /// Runs a program that logs to both sinks, and expects the same lines in both.
    std::vector<std::string> Lines(const std::string& program, std::vector<std::string> environment = {})
    {
        environment.push_back("LOG_FILE=" + path);
        const Kit::ChildResult result = Kit::RunProgram(program, {environment});
        EXPECT_EQ(result.exitStatus, 0) << result.signal;
        const std::vector<std::string> console = Kit::LogLines(result.output);
        EXPECT_EQ(Kit::LogLines(Contents(path)), console);
        return console;
    }

    const std::string path = Kit::TempDir::Path() + "/exit.log";
};

void OpenLogFile()
{
    Log().OpenFile(std::getenv("LOG_FILE"));
}

KIT_PROGRAM(OneLineAndReturn)
{
    OpenLogFile();
    Log() << LogType::Info << "last words" << std::endl;
    return 0;
}

KIT_PROGRAM(ManyLinesAndExit)
{
    OpenLogFile();
    for (int line = 0; line < 1000; ++line)
    {
        Log() << LogType::Info << line << std::endl;
    }
    std::exit(0);
}

TEST_F(LoggerExitTest, LinesCompletedBeforeExitAreOutput)
{
    for (int round = 0; round < 20; ++round)
    {
        EXPECT_THAT(Lines("OneLineAndReturn"), ElementsAre("last words"));
        unlink(path.c_str());
    }
    const std::vector<std::string> lines = Lines("ManyLinesAndExit");
    ASSERT_THAT(lines, testing::SizeIs(1000));
    for (std::size_t line = 0; line < lines.size(); ++line)
    {
        ASSERT_EQ(lines[line], std::to_string(line));
    }
}

KIT_PROGRAM(ExitOnAnotherThread)
{
    OpenLogFile();
    Log() << LogType::Info << "main" << std::endl;
    std::thread([] {
        Log() << LogType::Info << "other" << std::endl;
        std::exit(0);
    }).join();
    return 1;
}

TEST_F(LoggerExitTest, AnyThreadMayExit)
{
    EXPECT_THAT(Lines("ExitOnAnotherThread"), ElementsAre("main", "other"));
}

KIT_PROGRAM(StaticObjectsThatLog)
{
    OpenLogFile();
    static const Chatty first("first");
    Log() << LogType::Info << "between" << std::endl;
    static const Chatty second("second");
    std::atexit([] { Log() << LogType::Info << "at exit" << std::endl; });
    Log() << LogType::Info << "last" << std::endl;
    return 0;
}

TEST_F(LoggerExitTest, StaticObjectsMayLogInTheirDestructors)
{
    EXPECT_THAT(Lines("StaticObjectsThatLog"), ElementsAre("first made", "between", "second made", "last",
                                                           "at exit", "second destroyed", "first destroyed"));
}

struct LogsFirstAtTheEnd
{
    LogsFirstAtTheEnd() = default;
    LogsFirstAtTheEnd(const LogsFirstAtTheEnd&) = delete;
    LogsFirstAtTheEnd& operator=(const LogsFirstAtTheEnd&) = delete;

    ~LogsFirstAtTheEnd()
    {
        OpenLogFile();
        Log() << LogType::Error << "the first line" << std::endl;
    }
};

KIT_PROGRAM(FirstLineInAStaticDestructor)
{
    static const LogsFirstAtTheEnd object;
    return 0;
}

TEST_F(LoggerExitTest, TheVeryFirstLineMayComeFromAStaticDestructor)
{
    EXPECT_THAT(Lines("FirstLineInAStaticDestructor"), ElementsAre("[ERROR]the first line"));
}

KIT_PROGRAM(NothingMore)
{
    return 0;
}

TEST_F(LoggerExitTest, StaticObjectsMayLogBeforeMainAndAfterIt)
{
    const Kit::ChildResult result = Kit::RunProgram("NothingMore", {{"LOG_BEFORE_MAIN=1"}});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Kit::LogLines(result.output), ElementsAre("before main made", "before main destroyed"));
}

TEST_F(LoggerExitTest, AProcessThatNeverLogsSaysNothing)
{
    const Kit::ChildResult result = Kit::RunProgram("NothingMore");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "");
}

KIT_PROGRAM(ExitWithOpenLines)
{
    OpenLogFile();
    Log() << LogType::Info << "complete" << std::endl;
    std::atomic<bool> open{false};
    std::thread([&] {
        Log() << LogType::Info << "of another thread";
        open = true;
        pause();
    }).detach();
    while (!open)
    {
        std::this_thread::yield();
    }
    return 0;
}

TEST_F(LoggerExitTest, AnOpenLineDoesNotKeepTheProcessFromEnding)
{
    EXPECT_THAT(Lines("ExitWithOpenLines"), ElementsAre("complete"));
}

KIT_PROGRAM(MainThreadEndsFirst)
{
    OpenLogFile();
    std::thread([] {
        while (Contents(std::getenv("LOG_FILE")).empty())
        {
            std::this_thread::yield();
        }
        Log() << LogType::Info << "second" << std::endl;
        std::exit(0);
    }).detach();
    Log() << LogType::Info << "first";
    pthread_exit(nullptr);
}

TEST_F(LoggerExitTest, TheMainThreadMayEndBeforeTheOthersWithALineOpen)
{
    EXPECT_THAT(Lines("MainThreadEndsFirst"), ElementsAre("first", "second"));
}

}

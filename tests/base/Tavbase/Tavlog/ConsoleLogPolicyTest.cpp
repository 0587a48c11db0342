#include "base/Tavbase/Tavlog/ConsoleLogPolicy.h"

#include "tests/base/Tavbase/Tavlog/LogTest.h"
#include "tests/kit/Program.h"
#include "tests/kit/TempDir.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

using Tests::Contents;
using Tests::Log;
using Tests::LogType;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

KIT_PROGRAM(LineOfEachType)
{
    Log() << LogType::Info << "plain" << std::endl;
    Log() << LogType::Warning << "careful" << std::endl;
    Log() << LogType::Error << "broken" << std::endl;
    Log() << static_cast<LogType>(3) << "untagged" << std::endl;
    Log() << LogType::Error << "twice" << std::endl;
    Log() << "no header" << std::endl;
    return 0;
}

const std::vector<std::string> UNCOLOURED = {"[T]plain",    "[T][WARNING]careful", "[T][ERROR]broken",
                                             "[T]untagged", "[T][ERROR]twice",     "no header"};

const std::vector<std::string> COLOURED = {
    "[T]plain",    "\033[33m[T][WARNING]careful\033[0m", "\033[31m[T][ERROR]broken\033[0m",
    "[T]untagged", "\033[31m[T][ERROR]twice\033[0m",     "no header"};

/// The lines with all their bytes, but for the date and time.
std::vector<std::string> RawLines(const std::string& text)
{
    constexpr std::size_t DATE_BYTES = sizeof "[2026-03-01 08:15:00]" - 1;
    std::vector<std::string> lines;
    std::istringstream input(text);
    for (std::string line; std::getline(input, line);)
    {
        const std::size_t begin = line.find("[20");
        if (begin != std::string::npos && line.find(']') == begin + DATE_BYTES - 1)
        {
            line.replace(begin, DATE_BYTES, "[T]");
        }
        lines.push_back(line);
    }
    return lines;
}

/// What a program writes to a terminal that is its standard output.
std::vector<std::string> OnATerminal(const std::vector<std::string>& environment)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::array<char, 64> name{};
    if (grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, name.data(), name.size()) != 0)
    {
        std::abort();
    }
    const int slave = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    struct termios settings = {};
    tcgetattr(slave, &settings);
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST); // no carriage returns added
    tcsetattr(slave, TCSANOW, &settings);
    EXPECT_EQ(Kit::RunProgram("LineOfEachType", {environment, slave}).exitStatus, 0);
    std::string text;
    std::array<char, 1024> part{};
    pollfd input = {master, POLLIN, 0};
    while (poll(&input, 1, 0) > 0)
    {
        text.append(part.data(),
                    static_cast<std::size_t>(std::max<ssize_t>(0, read(master, part.data(), part.size()))));
    }
    close(slave);
    close(master);
    return RawLines(text);
}

TEST(ConsoleLogPolicyTest, WarningsAreYellowAndErrorsRedOnATerminal)
{
    EXPECT_EQ(OnATerminal({"TERM=linux", "NO_COLOR="}), COLOURED);
    EXPECT_EQ(OnATerminal({"TERM=xterm-256color", "NO_COLOR="}), COLOURED);
}

TEST(ConsoleLogPolicyTest, NothingIsColouredWhereStandardOutputIsNoTerminal)
{
    EXPECT_EQ(RawLines(Kit::RunProgram("LineOfEachType", {{"TERM=linux", "NO_COLOR="}}).output), UNCOLOURED);
}

TEST(ConsoleLogPolicyTest, NothingIsColouredWhereTheEnvironmentForbidsIt)
{
    EXPECT_EQ(OnATerminal({"TERM=linux", "NO_COLOR=1"}), UNCOLOURED);
    EXPECT_EQ(OnATerminal({"TERM=dumb", "NO_COLOR="}), UNCOLOURED);
}

/// Two ends of a pipe; standard output of a program is its `in`.
class Pipe
{
public:
    Pipe()
    {
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
        {
            std::abort();
        }
    }

    ~Pipe()
    {
        CloseOut();
        close(ends[1]);
    }

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int In() const { return ends[1]; }

    int Out() const { return ends[0]; }

    void CloseOut()
    {
        if (ends[0] >= 0)
        {
            close(ends[0]);
            ends[0] = -1;
        }
    }

private:
    std::array<int, 2> ends{};
};

/// Fills a pipe to its last byte. @return the number of bytes
std::size_t Fill(int descriptor)
{
    const int flags = fcntl(descriptor, F_GETFL);
    fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
    std::size_t total = 0;
    for (const std::size_t size : {std::size_t{4096}, std::size_t{1}})
    {
        const std::string block(size, '.');
        for (ssize_t count = 0; (count = write(descriptor, block.data(), block.size())) > 0;)
        {
            total += static_cast<std::size_t>(count);
        }
    }
    fcntl(descriptor, F_SETFL, flags);
    return total;
}

class ConsoleFailureTest : public testing::Test
{
protected:
    ConsoleFailureTest() { unlink(path.c_str()); }

    ~ConsoleFailureTest() override { unlink(path.c_str()); }

    std::vector<std::string> Lines() const { return Kit::LogLines(Contents(path)); }

    const std::string path = Kit::TempDir::Path() + "/console.log";
    const std::string setting = "LOG_FILE=" + path;
};

KIT_PROGRAM(TwoLinesToBothSinks)
{
    Log().OpenFile(std::getenv("LOG_FILE"));
    Log() << LogType::Info << "one" << std::endl;
    Log() << LogType::Error << "two" << std::endl;
    return 7;
}

TEST_F(ConsoleFailureTest, AClosedStandardOutputLosesTheConsolesLinesAndNothingElse)
{
    const Kit::ChildResult result =
        Kit::RunProgram("TwoLinesToBothSinks", {{setting}, Kit::ProgramSetting::CLOSED});
    EXPECT_EQ(result.exitStatus, 7);
    EXPECT_THAT(Lines(), ElementsAre("one", "[ERROR]two"));
}

TEST_F(ConsoleFailureTest, AReaderThatHasGoneAwayDoesNotEndTheProcess)
{
    Pipe pipe;
    pipe.CloseOut();
    const Kit::ChildResult result = Kit::RunProgram("TwoLinesToBothSinks", {{setting}, pipe.In()});
    EXPECT_EQ(result.signal, 0) << "SIGPIPE";
    EXPECT_EQ(result.exitStatus, 7);
    EXPECT_THAT(Lines(), ElementsAre("one", "[ERROR]two"));
}

KIT_PROGRAM(TwoLinesOfAForkedChild)
{
    Log().OpenFile(std::getenv("LOG_FILE"));
    Log() << LogType::Info << "parent" << std::endl;
    const pid_t child = fork();
    if (child == 0)
    {
        Log() << LogType::Info << "one" << std::endl;
        Log() << LogType::Error << "two" << std::endl;
        sigset_t pending;
        sigpending(&pending);
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        const bool clean = sigismember(&pending, SIGPIPE) == 0 && sigismember(&mask, SIGPIPE) == 0;
        std::exit(clean ? 7 : 8);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

TEST_F(ConsoleFailureTest, AReaderThatHasGoneAwayDoesNotEndAForkedChildEither)
{
    Pipe pipe;
    pipe.CloseOut();
    EXPECT_EQ(Kit::RunProgram("TwoLinesOfAForkedChild", {{setting}, pipe.In()}).exitStatus, 7);
    EXPECT_THAT(Lines(), ElementsAre("parent", "one", "[ERROR]two"));
}

KIT_PROGRAM(LinesIntoAFullPipe)
{
    const Kit::Clock clock;
    const int flags = fcntl(STDOUT_FILENO, F_GETFL);
    fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK);
    Log().OpenFile(std::getenv("LOG_FILE"));
    Log() << LogType::Info << "one" << std::endl;
    Log() << LogType::Info << "two" << std::endl;
    Log().Flush();
    const auto elapsed = Kit::Clock::Elapsed();
    return elapsed == 2s ? 7 : 8;
}

TEST_F(ConsoleFailureTest, AFullPipeThatDoesNotBlockIsWaitedForASecondALine)
{
    const Pipe pipe;
    Fill(pipe.In());
    EXPECT_EQ(Kit::RunProgram("LinesIntoAFullPipe", {{setting}, pipe.In()}).exitStatus, 7);
    EXPECT_THAT(Lines(), ElementsAre("one", "two"));
}

KIT_PROGRAM(LinesIntoAPipeThatIsEmptiedLate)
{
    const Kit::Clock clock;
    const int flags = fcntl(STDOUT_FILENO, F_GETFL);
    fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK);
    const std::string text(50'000, 'x');
    std::thread logging([&] {
        for (int line = 0; line < 3; ++line)
        {
            Log() << LogType::Info << text << std::endl;
        }
        Log().Flush();
    });
    // The other end is read by this program itself, a piece from time to time.
    const int reader = std::atoi(std::getenv("READER"));
    std::string all;
    std::array<char, 4096> part{};
    while (all.size() < 3 * (text.size() + 22))
    {
        std::this_thread::sleep_for(80ms);
        const ssize_t count = read(reader, part.data(), part.size());
        if (count <= 0)
        {
            return 8;
        }
        all.append(part.data(), static_cast<std::size_t>(count));
    }
    logging.join();
    return Kit::LogLines(all) == std::vector<std::string>{text, text, text} ? 7 : 9;
}

TEST_F(ConsoleFailureTest, APipeThatIsReadSlowlyGetsEveryByteWhileItTakesSomeInTime)
{
    const Pipe pipe;
    const int reader = dup(pipe.Out()); // handed on to the program
    EXPECT_EQ(
        Kit::RunProgram("LinesIntoAPipeThatIsEmptiedLate", {{"READER=" + std::to_string(reader)}, pipe.In()})
            .exitStatus,
        7);
    close(reader);
}

KIT_PROGRAM(ExitWithAConsoleThatTakesNothing)
{
    // A clock that is never destroyed: at the very end, too, nobody waits in real time.
    alignas(Kit::Clock) static std::array<std::byte, sizeof(Kit::Clock)> place;
    new (place.data()) Kit::Clock;
    Log().OpenFile(std::getenv("LOG_FILE"));
    Log() << LogType::Info << "one" << std::endl;
    return 7;
}

TEST_F(ConsoleFailureTest, AConsoleThatTakesNothingDoesNotKeepTheProcessFromEnding)
{
    const Pipe pipe;
    Fill(pipe.In());
    const Kit::ChildResult result =
        Kit::RunProgram("ExitWithAConsoleThatTakesNothing", {{setting}, pipe.In()});
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitStatus, 7);
    EXPECT_THAT(Lines(), ElementsAre("one"));
}

KIT_PROGRAM(ThreadsThatLogToAFullPipe)
{
    const Kit::Clock clock;
    Log().OpenFile(std::getenv("LOG_FILE"));
    Log() << LogType::Info << "one" << std::endl; // the writer waits with it
    std::atomic<int> logged{0};
    std::thread both([&] {
        Log() << LogType::Info << "two" << std::endl;
        ++logged;
    });
    std::thread fileAlone([&] {
        std::this_thread::sleep_for(1s);
        Log().File() << LogType::Info << "three" << std::endl;
        ++logged;
    });
    std::this_thread::sleep_for(60s);
    const int loggedMeanwhile = logged;

    const int reader = std::atoi(std::getenv("READER"));
    std::array<char, 65536> part{};
    if (read(reader, part.data(), part.size()) <= 0)
    {
        return 8;
    }
    both.join();
    fileAlone.join();
    Log().Flush();
    return loggedMeanwhile == 0 ? 7 : 9;
}

TEST_F(ConsoleFailureTest, AConsoleThatTakesNothingHoldsEveryThreadThatLogs)
{
    const Pipe pipe;
    Fill(pipe.In());
    const int reader = dup(pipe.Out()); // handed on to the program
    const Kit::ChildResult result = Kit::RunProgram(
        "ThreadsThatLogToAFullPipe", {{setting, "READER=" + std::to_string(reader)}, pipe.In()});
    EXPECT_EQ(result.exitStatus, 7);
    EXPECT_THAT(Lines(), ElementsAre("one", "two", "three"))
        << "the file's alone too, until the pipe is read";
    close(reader);
}

}

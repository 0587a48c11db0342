#include "base/Tavbase/Tavlog/Logger.h"

#include "tests/base/Tavbase/Tavlog/LogTest.h"
#include "tests/kit/Program.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <locale>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using Tests::Elsewhere;
using Tests::LetOthersRun;
using Tests::Log;
using Tests::Logger;
using Tests::LogModule;
using Tests::LogType;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class LoggerTest : public Kit::DeviceTest
{
protected:
    /// A temperature that an earlier test had read is forgotten after that.
    static void LetTheTemperatureExpire() { std::this_thread::sleep_for(10s); }

    void ExpectBoth(const std::vector<std::string>& lines) const
    {
        EXPECT_EQ(log.File(), lines);
        EXPECT_EQ(log.Console(), lines);
    }
};

// The line ---------------------------------------------------------------------------------------------

TEST_F(LoggerTest, AHeaderLeavesErrnoAsItWasEvenWhenItHasToWait)
{
    std::atomic<bool> open{false};
    std::thread other([&] {
        Logger::GetInstance() << LogType::Info << "other";
        open = true;
        std::this_thread::sleep_for(1s);
        Logger::GetInstance() << std::endl;
    });
    ASSERT_TRUE(Kit::Clock::WaitUntil([&] { return open.load(); }));
    errno = EXDEV;
    Logger::GetInstance() << LogType::Error << errno << std::endl;
    other.join();
    EXPECT_THAT(log.File(), testing::ElementsAre("other", "[ERROR]" + std::to_string(EXDEV)));
}

TEST_F(LoggerTest, IsOneForTheProcess)
{
    EXPECT_EQ(&Logger::GetInstance(), &Logger::GetInstance());
}

TEST_F(LoggerTest, HoldsTheFileSinkAndThenTheConsoleSink)
{
    std::array<const void*, 2> pointers{};
    static_assert(sizeof(Logger) == sizeof pointers);
    std::memcpy(pointers.data(), &Log(), sizeof pointers);
    EXPECT_EQ(pointers[0], &Log().File());
    EXPECT_EQ(pointers[1], &Log().Console());
}

TEST_F(LoggerTest, ALineGoesToBothSinks)
{
    Log() << LogType::Info << "text" << std::endl;
    ExpectBoth({"text"});
}

TEST_F(LoggerTest, TheHeaderIsDateAndTimeAndTheTagOfTheType)
{
    LetTheTemperatureExpire();
    Log() << LogType::Info << "plain" << std::endl;
    std::this_thread::sleep_for(50s);
    Log() << LogType::Warning << "careful" << std::endl;
    std::this_thread::sleep_for(2h);
    Log() << LogType::Error << "[SERIAL] Unable to open serial port" << std::endl;
    std::this_thread::sleep_for(24h);
    Log() << static_cast<LogType>(3) << "untagged" << std::endl;
    const std::string expected = "[2026-03-01 08:15:10]plain\n"
                                 "[2026-03-01 08:16:00][WARNING]careful\n"
                                 "[2026-03-01 10:16:00][ERROR][SERIAL] Unable to open serial port\n"
                                 "[2026-03-02 10:16:00]untagged\n";
    EXPECT_EQ(log.RawFile(), expected);
    EXPECT_EQ(log.RawConsole(), expected);
}

TEST_F(LoggerTest, OnlyWarningsAndErrorsHaveATag)
{
    for (const int type : {0, 1, 2, 3, 4, -1, 1000})
    {
        Log() << static_cast<LogType>(type) << type << std::endl;
    }
    ExpectBoth({"0", "[WARNING]1", "[ERROR]2", "3", "4", "-1", "1000"});
}

TEST_F(LoggerTest, TheTemperatureStandsBetweenTheTimeAndTheTagWhereThereIsOne)
{
    const std::string zone = "/sys/class/thermal/thermal_zone0/temp";
    const std::string file = Kit::TempDir::Path() + "/temp";
    Kit::System::Redirect(zone, file);
    std::ofstream(file) << "41900\n";
    LetTheTemperatureExpire();
    Log() << LogType::Error << "[SERIAL] Unable to open serial port" << std::endl;
    std::ofstream(file) << "-5000\n";
    LetTheTemperatureExpire();
    Log() << LogType::Info << LogModule::CELL << "cold" << std::endl;
    Kit::System::Unredirect(zone);
    LetTheTemperatureExpire();
    Log() << LogType::Warning << "gone" << std::endl;
    const std::string expected = "[2026-03-01 08:15:10][41C][ERROR][SERIAL] Unable to open serial port\n"
                                 "[2026-03-01 08:15:20][-5C][#CELL]cold\n"
                                 "[2026-03-01 08:15:30][WARNING]gone\n";
    EXPECT_EQ(log.RawFile(), expected);
    EXPECT_EQ(log.RawConsole(), expected);
}

TEST_F(LoggerTest, TheTimeIsLocalAndFollowsTheClockOfTheUnit)
{
    LetTheTemperatureExpire();
    setenv("TZ", "UNIT-2", 1);
    tzset();
    Log() << LogType::Info << "two hours east" << std::endl;
    setenv("TZ", "UTC", 1);
    tzset();
    Kit::Clock::SetWallClock(0);
    Log() << LogType::Info << "clock lost" << std::endl;
    EXPECT_EQ(log.RawFile(), "[2026-03-01 10:15:10]two hours east\n[1970-01-01 00:00:00]clock lost\n");
}

TEST_F(LoggerTest, TheModuleTagFollowsTheHeader)
{
    Log() << LogType::Error << LogModule::CELL << " no answer" << std::endl;
    Log() << LogType::Info << LogModule::CELL << LogModule::LT << "two" << std::endl;
    Log() << LogType::Info << "late " << LogModule::WNET << std::endl;
    ExpectBoth({"[ERROR][#CELL] no answer", "[#CELL][#LT]two", "late [#WNET]"});
}

TEST_F(LoggerTest, TakesWhatAnOutputStreamTakes)
{
    const std::string text = "text";
    const char* const pointer = "pointer";
    char array[] = "array";
    Log() << LogType::Info << text << ' ' << pointer << ' ' << array << ' ' << std::string_view("view") << ' '
          << std::string("temporary") << ' ' << -42 << ' ' << 18446744073709551615ULL << ' ' << 1.5 << ' '
          << true << std::endl;
    ExpectBoth({"text pointer array view temporary -42 18446744073709551615 1.5 1"});
}

TEST_F(LoggerTest, ThePiecesCanBeNamedByTheirTypes)
{
    const std::string text = "text";
    Logger& logger = Log();
    logger.operator<<(LogType::Warning);
    Logger& same = logger.operator<< <char const*>("pointer ");
    EXPECT_EQ(&same, &logger);
    EXPECT_EQ(&logger.operator<< <std::string>(text), &logger);
    EXPECT_EQ(&logger.operator<<(LogModule::Vdb), &logger);
    std::ostream& (*const end)(std::ostream&) = std::endl;
    EXPECT_EQ(&logger.operator<<(end), &logger);
    ExpectBoth({"[WARNING]pointer text[#Vdb]"});
}

TEST_F(LoggerTest, ALineMayBeEmptyAndMayHaveLineEndsInIt)
{
    LetTheTemperatureExpire();
    Log() << LogType::Info << std::endl;
    Log() << LogType::Error << "one\ntwo\n" << std::endl;
    EXPECT_EQ(log.RawFile(), "[2026-03-01 08:15:10]\n[2026-03-01 08:15:10][ERROR]one\ntwo\n\n");
    EXPECT_EQ(log.RawConsole(), log.RawFile());
}

TEST_F(LoggerTest, ALongLineIsWhole)
{
    const std::string text(300'000, 'x');
    Log() << LogType::Info << text << std::endl;
    Log() << LogType::Info << "a line as long as most of them are" << std::endl;
    ExpectBoth({text, "a line as long as most of them are"});
}

// Beginning and end of a line ----------------------------------------------------------------------------

TEST_F(LoggerTest, ALineWithoutItsEndIsNotHandedToTheWriter)
{
    Log() << LogType::Info << "part";
    LetOthersRun();
    EXPECT_EQ(log.RawFile(), "");
    EXPECT_EQ(log.RawConsole(), "");
    Log() << " and the rest" << std::flush;
    LetOthersRun();
    EXPECT_EQ(log.RawFile(), "");
    Log() << std::endl;
    ExpectBoth({"part and the rest"});
}

TEST_F(LoggerTest, ATextThatEndsInALineEndIsCompletedByAnyManipulator)
{
    Log() << LogType::Info << "flushed\n";
    LetOthersRun();
    EXPECT_EQ(log.RawFile(), "");
    Log() << std::flush;
    ExpectBoth({"flushed"});
    Log() << LogType::Info << "next" << std::endl;
    ExpectBoth({"flushed", "next"});
}

TEST_F(LoggerTest, TextWithoutAHeaderIsALineToo)
{
    Log() << "no header, " << 7 << std::endl;
    EXPECT_EQ(log.RawFile(), "no header, 7\n");
    EXPECT_EQ(log.RawConsole(), "no header, 7\n");
}

TEST_F(LoggerTest, AHeaderWithinALineCompletesTheLineFirst)
{
    Log() << LogType::Warning << "forgotten";
    Log() << LogType::Error << "next" << std::endl;
    ExpectBoth({"[WARNING]forgotten", "[ERROR]next"});
}

TEST_F(LoggerTest, TheEndOfTheThreadCompletesItsLine)
{
    std::thread([] { Log() << LogType::Warning << "left open"; }).join();
    std::thread([] { Log().Console() << LogType::Info << "on the console only"; }).join();
    Log() << LogType::Info << "next" << std::endl;
    EXPECT_THAT(log.File(), ElementsAre("[WARNING]left open", "next"));
    EXPECT_THAT(log.Console(), ElementsAre("[WARNING]left open", "on the console only", "next"));
}

struct Unprintable
{
};

std::ostream& operator<<(std::ostream&, const Unprintable&)
{
    throw std::runtime_error("unprintable");
}

TEST_F(LoggerTest, AnExceptionWithinALineLeavesAPartThatTheNextHeaderCompletes)
{
    EXPECT_THROW(Log() << LogType::Error << "broken " << Unprintable() << "never" << std::endl,
                 std::runtime_error);
    Log() << LogType::Info << "next" << std::endl;
    ExpectBoth({"[ERROR]broken ", "next"});
}

// The text pieces ----------------------------------------------------------------------------------------

TEST_F(LoggerTest, ANullTextLosesTheRestOfTheLineAndNothingElse)
{
    const char* const null = nullptr;
    Log() << LogType::Error << "before " << null << "after " << 5 << LogModule::CELL << std::endl;
    const Elsewhere other([] { Log() << LogType::Info << "next" << std::endl; });
    EXPECT_TRUE(other.IsDone()) << "the lock was given back";
    ExpectBoth({"[ERROR]before ", "next"});
}

TEST_F(LoggerTest, ANullTextAloneIsALineWithItsHeader)
{
    char* const null = nullptr;
    Log() << LogType::Warning << null << std::endl;
    Log().operator<<(LogType::Warning).operator<< <char const*>(nullptr) << "lost" << std::endl;
    ExpectBoth({"[WARNING]", "[WARNING]"});
}

TEST_F(LoggerTest, AfterANullTextAManipulatorDoesNotBringTheRestBack)
{
    const char* const null = nullptr;
    Log() << LogType::Info << "before" << null << std::flush << "after" << std::hex << "more" << std::endl;
    ExpectBoth({"before"});
}

TEST_F(LoggerTest, ANullTextWithoutAHeaderIsALineToo)
{
    const char* const null = nullptr;
    Log() << null << "lost" << std::endl;
    Log() << LogType::Info << "next" << std::endl;
    EXPECT_THAT(log.RawFile(), testing::StartsWith("\n["));
    EXPECT_THAT(log.RawConsole(), testing::StartsWith("\n["));
}

TEST_F(LoggerTest, AFormatDoesNotLeakIntoTheNextLine)
{
    LetTheTemperatureExpire();
    Log() << LogType::Info << std::hex << std::showbase << std::uppercase << 255 << ' '
          << std::setprecision(2) << std::fixed << 1.0 << ' ' << std::setfill('*') << std::setw(4) << 1 << ' '
          << std::boolalpha << true << std::setw(40) << std::endl;
    Log() << LogType::Info << 255 << ' ' << 1.23456789 << ' ' << std::setw(4) << 1 << ' ' << true
          << std::endl;
    EXPECT_EQ(log.RawFile(), "[2026-03-01 08:15:10]0XFF 1.00 *0X1 true\n"
                             "[2026-03-01 08:15:10]255 1.23457    1 1\n");
    EXPECT_EQ(log.RawConsole(), log.RawFile());
}

class Grouping : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override { return '.'; }

    char do_decimal_point() const override { return ','; }

    std::string do_grouping() const override { return "\3"; }
};

TEST_F(LoggerTest, NumbersLookTheSameWhateverLocaleTheApplicationSets)
{
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    Log() << LogType::Info << 1234567 << ' ' << 0.5 << std::endl;
    std::locale::global(before);
    ExpectBoth({"1234567 0.5"});
}

KIT_PROGRAM(LocaleBeforeTheFirstLine)
{
    std::locale::global(std::locale(std::locale::classic(), new Grouping));
    Log() << LogType::Info << 1234567 << std::endl;
    return 0;
}

TEST_F(LoggerTest, NumbersLookTheSameWhereTheLocaleWasSetBeforeTheFirstLine)
{
    EXPECT_THAT(Kit::LogLines(Kit::RunProgram("LocaleBeforeTheFirstLine").output), ElementsAre("1234567"));
}

// Sinks on and off ---------------------------------------------------------------------------------------

TEST_F(LoggerTest, WithBothSinksOffNothingIsWrittenAndNoLockTaken)
{
    Log().File().Enable(false);
    Log().EnableConsole(false);
    std::atomic<bool> release{false};
    const Elsewhere holder([&] {
        Log().File().WithPolicy([&](auto&) {
            Log().Console().WithPolicy([&](auto&) { Kit::Clock::WaitUntil([&] { return release.load(); }); });
        });
    });
    LetOthersRun(); // by now both locks are taken
    const Elsewhere other([] {
        Log() << LogType::Error << LogModule::CELL << "text " << 5 << std::string("more") << std::endl;
        Log() << "no header" << std::endl;
    });
    EXPECT_TRUE(other.IsDone());
    release = true;
    EXPECT_TRUE(holder.IsDone());
    EXPECT_EQ(log.RawFile(), "");
    EXPECT_EQ(log.RawConsole(), "");
}

TEST_F(LoggerTest, ASinkThatIsOffGetsNothingAndTheOtherOneAll)
{
    Log().EnableConsole(false);
    EXPECT_FALSE(Log().Console().IsEnabled());
    Log() << LogType::Error << LogModule::CELL << "file" << std::endl;
    Log().EnableConsole(true);
    Log().File().Enable(false);
    Log() << LogType::Error << "console" << std::endl;
    Log().File().Enable(true);
    Log() << LogType::Info << "both" << std::endl;
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#CELL]file", "both"));
    EXPECT_THAT(log.Console(), ElementsAre("[ERROR]console", "both"));
}

TEST_F(LoggerTest, ASinkThatIsSwitchedOffWithinALineDropsItAndKeepsNoLock)
{
    Log() << LogType::Info << "begun ";
    Log().EnableConsole(false);
    Log() << "and ended" << std::endl;
    const Elsewhere other([] {
        Log().EnableConsole(true);
        Log() << LogType::Info << "next" << std::endl;
    });
    EXPECT_TRUE(other.IsDone());
    EXPECT_THAT(log.File(), ElementsAre("begun and ended", "next"));
    EXPECT_THAT(log.Console(), ElementsAre("next"));
}

TEST_F(LoggerTest, BothSinksMayBeSwitchedOffWithinALineByAnotherThread)
{
    Log() << LogType::Info << "begun ";
    std::thread([] {
        Log().EnableConsole(false);
        Log().File().Enable(false);
    }).join();
    Log() << std::endl;
    Log().EnableConsole(true);
    Log().File().Enable(true);
    Log() << LogType::Info << "next" << std::endl;
    ExpectBoth({"next"});
}

TEST_F(LoggerTest, ASinkThatIsSwitchedOnWithinALineGetsTheRestOfItWithoutAHeader)
{
    Log().EnableConsole(false);
    Log() << LogType::Error << "begun ";
    Log().EnableConsole(true);
    Log() << "and ended" << std::endl;
    EXPECT_THAT(log.File(), ElementsAre("[ERROR]begun and ended"));
    EXPECT_EQ(log.RawConsole(), "and ended\n");
}

TEST_F(LoggerTest, ASinkThatIsSwitchedOffAndOnWithinALineGetsItsEnd)
{
    Log() << LogType::Info << "one ";
    Log().EnableConsole(false);
    Log() << "two ";
    Log().EnableConsole(true);
    Log() << "three" << std::endl;
    EXPECT_THAT(log.File(), ElementsAre("one two three"));
    EXPECT_EQ(log.RawConsole(), "three\n");
}

TEST_F(LoggerTest, ALineMayGoToOneSinkAlone)
{
    Log().Console() << LogType::Info << "Set serial mode to " << 3 << std::endl;
    Log().File() << LogType::Error << LogModule::Event << "file only" << std::endl;
    Log().Console() << LogType::Warning << "console only" << std::endl;
    Log() << LogType::Info << "both" << std::endl;
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#Event]file only", "both"));
    EXPECT_THAT(log.Console(), ElementsAre("Set serial mode to 3", "[WARNING]console only", "both"));
    EXPECT_THAT(log.ConsoleOnly(), ElementsAre("Set serial mode to 3", "[WARNING]console only"));
}

TEST_F(LoggerTest, ANullTextInALineToOneSinkGivesItsLockBack)
{
    const char* const null = nullptr;
    Log().Console() << LogType::Info << "mode " << null << std::endl;
    Log().File() << LogType::Info << null << std::endl;
    const Elsewhere other([] { Log() << LogType::Info << "next" << std::endl; });
    EXPECT_TRUE(other.IsDone());
    EXPECT_THAT(log.File(), ElementsAre("", "next"));
    EXPECT_THAT(log.Console(), ElementsAre("mode ", "next"));
}

// Several threads ----------------------------------------------------------------------------------------

TEST_F(LoggerTest, WhileALineIsOpenOtherThreadsWaitWithTheirs)
{
    Log() << LogType::Info << "first ";
    const Elsewhere other([] { Log() << LogType::Info << "second" << std::endl; });
    EXPECT_FALSE(other.IsDone());
    Log() << "line" << std::endl;
    EXPECT_TRUE(other.IsDone());
    ExpectBoth({"first line", "second"});
}

TEST_F(LoggerTest, LinesOfManyThreadsNeitherMixNorGetLost)
{
    constexpr int THREADS = 4;
    constexpr int LINES = 1000;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread)
    {
        threads.emplace_back([thread] {
            for (int line = 0; line < LINES; ++line)
            {
                Log() << LogType::Info << thread << " says " << std::string(thread * 10, 'x') << " as number "
                      << line << std::endl;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    for (const std::string& text : {log.RawFile(), log.RawConsole()})
    {
        std::map<int, int> next;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
        {
            line.erase(0, line.find_last_of(']') + 1);
            const int thread = line.at(0) - '0';
            ASSERT_EQ(line, std::to_string(thread) + " says " + std::string(thread * 10, 'x') +
                                " as number " + std::to_string(next[thread]++));
        }
        EXPECT_THAT(next, ElementsAre(std::pair(0, LINES), std::pair(1, LINES), std::pair(2, LINES),
                                      std::pair(3, LINES)));
    }
}

TEST_F(LoggerTest, ThreadsThatSwitchTheSinksAndThreadsThatLogDoNotHinderEachOther)
{
    std::atomic<bool> done{false};
    const Elsewhere switcher([&] {
        while (!done)
        {
            Log().EnableConsole(false);
            Log().File().Enable(false);
            Log().EnableConsole(true);
            Log().File().Enable(true);
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread)
    {
        threads.emplace_back([] {
            const char* const null = nullptr;
            for (int line = 0; line < 300; ++line)
            {
                Log() << LogType::Info << "one " << line << std::endl;
                Log().Console() << LogType::Info << "two " << line << std::endl;
                Log() << LogType::Info << "three " << null << std::endl;
                Log().File() << LogType::Info << "left open";
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    done = true;
    EXPECT_TRUE(switcher.IsDone());
    Log() << LogType::Info << "all well" << std::endl;
    EXPECT_EQ(log.File().back(), "all well");
    EXPECT_EQ(log.Console().back(), "all well");
}

// Two threads that each have one of the two locks and want the other one: neither may wait for ever.

/// A line of both sinks, begun by another thread while this one has a line open on the console.
class LoggerOrderTest : public LoggerTest
{
protected:
    LoggerOrderTest()
    {
        Log().Console() << LogType::Info << "left open";
        other = std::make_unique<Elsewhere>([] { Log() << LogType::Info << "other" << std::endl; });
        LetOthersRun(); // by now it has the file and waits for the console
    }

    std::unique_ptr<Elsewhere> other;
};

TEST_F(LoggerOrderTest, ALineOfBothSinksMayBeBegunWithALineOpenOnTheConsole)
{
    Log() << LogType::Info << "mine" << std::endl;
    EXPECT_TRUE(other->IsDone());
    EXPECT_THAT(log.File(), testing::UnorderedElementsAre("mine", "other"));
    EXPECT_THAT(log.Console(), testing::UnorderedElementsAre("left open", "mine", "other"));
}

TEST_F(LoggerOrderTest, ALineOfTheFileMayBeBegunWithALineOpenOnTheConsole)
{
    Log().File() << LogType::Info << "mine" << std::endl;
    Log().Console() << " and completed" << std::endl;
    EXPECT_TRUE(other->IsDone());
    EXPECT_THAT(log.File(), testing::UnorderedElementsAre("mine", "other"));
}

TEST_F(LoggerOrderTest, TheFileMayBeSwitchedOverWithALineOpenOnTheConsole)
{
    EXPECT_TRUE(Log().OpenFile(Kit::TempDir::Path() + "/other.log"));
    Log().CloseFile();
    EXPECT_TRUE(other->IsDone());
}

TEST_F(LoggerOrderTest, TheSinksMayBeFlushedWithALineOpenOnTheConsole)
{
    Log().Flush();
    EXPECT_TRUE(other->IsDone());
}

TEST_F(LoggerTest, TheFileMayBeSwitchedOnWhileALineIsOpenOnTheConsole)
{
    Log().File().Enable(false);
    Log() << LogType::Info << "begun ";
    Log().File().Enable(true);
    const Elsewhere other([] { Log() << LogType::Info << "other" << std::endl; });
    LetOthersRun();
    Log() << "and ended" << std::endl;
    EXPECT_TRUE(other.IsDone());
    EXPECT_THAT(log.RawFile(), testing::EndsWith("]other\nand ended\n"));
}

// Flush --------------------------------------------------------------------------------------------------

TEST_F(LoggerTest, FlushWaitsForTheLineThatAnotherThreadHasOpen)
{
    std::atomic<bool> go{false};
    const Elsewhere writer([&] {
        Log() << LogType::Info << "slow ";
        Kit::Clock::WaitUntil([&] { return go.load(); });
        Log() << "line" << std::endl;
    });
    LetOthersRun();
    const Elsewhere flusher([] { Log().Flush(); });
    EXPECT_FALSE(flusher.IsDone());
    go = true;
    EXPECT_TRUE(flusher.IsDone());
    EXPECT_TRUE(writer.IsDone());
    ExpectBoth({"slow line"});
}

TEST_F(LoggerTest, FlushWithinTheThreadsOwnLineReturnsAtOnce)
{
    Log() << LogType::Info << "mine ";
    Log().Flush();
    Log() << "still" << std::endl;
    ExpectBoth({"mine still"});
}

TEST_F(LoggerTest, WhatWasCompletedBeforeAFlushIsOutAfterIt)
{
    const std::string path = Kit::TempDir::Path() + "/flushed.log";
    Log().OpenFile(path, 0, 0);
    for (int line = 1; line <= 200; ++line)
    {
        Log() << LogType::Info << line << std::endl;
        Log().Flush();
        const std::vector<std::string> lines = Kit::LogLines(Tests::Contents(path));
        ASSERT_THAT(lines, SizeIs(static_cast<std::size_t>(line)));
        ASSERT_EQ(lines.back(), std::to_string(line));
        ASSERT_THAT(Kit::Output::Text(), testing::EndsWith("]" + std::to_string(line) + "\n"));
    }
}

}

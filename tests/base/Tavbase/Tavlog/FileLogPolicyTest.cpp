#include "base/Tavbase/Tavlog/FileLogPolicy.h"

#include "tests/base/Tavbase/Tavlog/LogTest.h"
#include "tests/kit/Program.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using Tests::Contents;
using Tests::Elsewhere;
using Tests::Log;
using Tests::LogType;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// The log file on the storage card, where the kit can make each call fail.
class FileLogPolicyTest : public Kit::DeviceTest
{
protected:
    FileLogPolicyTest()
    {
        std::filesystem::remove_all(card);
        std::filesystem::create_directory(card);
        Kit::System::Redirect("/mnt/sdcard", card);
    }

    ~FileLogPolicyTest() override
    {
        Log().CloseFile();
        std::filesystem::remove_all(card);
    }

    /// The lines of a file of the card, without their headers.
    std::vector<std::string> Lines(const std::string& name = "unit.log") const
    {
        Log().Flush();
        return Kit::LogLines(Contents(card + "/" + name));
    }

    std::uintmax_t Size(const std::string& name) const
    {
        return std::filesystem::file_size(card + "/" + name);
    }

    bool Exists(const std::string& name) const { return std::filesystem::exists(card + "/" + name); }

    /// One line of LINE_BYTES bytes, and out.
    static void Write(const std::string& twoLetters)
    {
        Log() << LogType::Info << twoLetters << std::endl;
        Log().Flush();
    }

    static constexpr std::uint64_t LINE_BYTES = 24; // the header's 21, two letters, the line end
    static constexpr const char* PATH = "/mnt/sdcard/unit.log";
    const std::string card = Kit::TempDir::Path() + "/card";
};

TEST_F(FileLogPolicyTest, ALineIsAppendedToTheFile)
{
    std::ofstream(card + "/unit.log") << "from before\n";
    EXPECT_TRUE(Log().OpenFile(PATH));
    EXPECT_TRUE(Log().File().IsEnabled());
    Write("aa");
    Write("bb");
    EXPECT_THAT(Lines(), ElementsAre("from before", "aa", "bb"));
}

TEST_F(FileLogPolicyTest, TheFileIsReadableForAllAndClosedInOtherPrograms)
{
    const mode_t mask = umask(022);
    Log().OpenFile(PATH);
    umask(mask);
    struct stat status = {};
    ASSERT_EQ(stat((card + "/unit.log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
    const auto opens = Kit::System::CallsOf("open");
    ASSERT_EQ(opens.size(), 1U);
    EXPECT_EQ(fcntl(static_cast<int>(opens[0].result), F_GETFD), FD_CLOEXEC);
}

TEST_F(FileLogPolicyTest, WithoutItsDirectoryLinesAreLostUntilItAppears)
{
    std::filesystem::remove(card);
    EXPECT_FALSE(Log().OpenFile(PATH));
    EXPECT_TRUE(Log().File().IsEnabled());
    Write("aa");
    Write("bb");
    std::filesystem::create_directory(card);
    Write("cc");
    EXPECT_THAT(Lines(), ElementsAre("cc"));
    EXPECT_THAT(log.Console(), ElementsAre("aa", "bb", "cc"));
}

TEST_F(FileLogPolicyTest, APathThatCannotBeAFileLosesLinesAndNothingElse)
{
    for (const std::string path : {"/mnt/sdcard", "", "/mnt/sdcard/unit.log/below"})
    {
        std::ofstream(card + "/unit.log") << "";
        EXPECT_FALSE(Log().OpenFile(path)) << path;
        Write("aa");
    }
    EXPECT_THAT(log.Console(), ElementsAre("aa", "aa", "aa"));
    EXPECT_TRUE(Log().OpenFile(PATH));
    Write("bb");
    EXPECT_THAT(Lines(), ElementsAre("bb"));
}

TEST_F(FileLogPolicyTest, AFailedOpenIsTriedAgainWithEachLine)
{
    for (const int error : {EACCES, EROFS, ENOSPC, EMFILE})
    {
        Kit::System::Fail("open", error, 1, 3);
        EXPECT_FALSE(Log().OpenFile(PATH));
        Write("aa");
        Write("bb");
        Write("cc");
    }
    EXPECT_THAT(Lines(), ElementsAre("cc", "cc", "cc", "cc"));
    EXPECT_EQ(Kit::System::FailuresDone(), 12);
}

TEST_F(FileLogPolicyTest, TheFileSinkWithoutAPathLosesItsLines)
{
    Log().CloseFile();
    Log().File().Enable(true);
    Write("aa");
    EXPECT_THAT(log.Console(), ElementsAre("aa"));
    EXPECT_TRUE(std::filesystem::is_empty(card));
}

TEST_F(FileLogPolicyTest, CloseFileOutputsWhatIsCompleteAndSwitchesTheSinkOff)
{
    Log().OpenFile(PATH);
    Log() << LogType::Info << "last" << std::endl;
    Log().CloseFile();
    EXPECT_FALSE(Log().File().IsEnabled());
    EXPECT_THAT(Kit::LogLines(Contents(card + "/unit.log")), ElementsAre("last"));
    EXPECT_EQ(Kit::System::CallsOf("close").size(), 1U);
    Log() << LogType::Info << "console" << std::endl;
    EXPECT_THAT(Lines(), ElementsAre("last"));
    EXPECT_THAT(log.Console(), ElementsAre("last", "console"));
}

TEST_F(FileLogPolicyTest, AnotherFileTakesTheLinesFromThenOn)
{
    Log().OpenFile(PATH);
    Log() << LogType::Info << "begun ";
    EXPECT_TRUE(Log().OpenFile("/mnt/sdcard/other.log"));
    Log() << "and ended" << std::endl;
    Log() << LogType::Info << "next" << std::endl;
    EXPECT_THAT(Lines(), ElementsAre("begun "));
    EXPECT_THAT(Lines("other.log"), ElementsAre("and ended", "next"));
    EXPECT_THAT(log.Console(), testing::Contains("next"));
    EXPECT_EQ(Kit::System::CallsOf("close").size(), 1U) << "the former file is closed";
}

// Failing writes -----------------------------------------------------------------------------------------

TEST_F(FileLogPolicyTest, AFullDiskLosesTheFilesLinesAndNothingElse)
{
    Log().OpenFile(PATH);
    Write("aa");
    Kit::System::Fail("write", ENOSPC, 1, 3);
    Write("bb");
    Write("cc");
    Write("dd");
    Write("ee");
    EXPECT_EQ(Kit::System::FailuresDone(), 3);
    EXPECT_THAT(Lines(), ElementsAre("aa", "ee"));
    EXPECT_THAT(log.Console(), ElementsAre("aa", "bb", "cc", "dd", "ee"));
}

TEST_F(FileLogPolicyTest, AfterAFailureTheFileIsOpenedAnew)
{
    // The card was pulled and another one put in: the former descriptor will never work again.
    Log().OpenFile(PATH);
    Write("aa");
    std::filesystem::rename(card, card + "-pulled");
    std::filesystem::create_directory(card);
    Kit::System::Fail("write", EIO);
    Write("bb");
    Write("cc");
    EXPECT_THAT(Lines(), ElementsAre("cc"));
    EXPECT_THAT(Kit::LogLines(Contents(card + "-pulled/unit.log")), ElementsAre("aa"));
    std::filesystem::remove_all(card + "-pulled");
}

TEST_F(FileLogPolicyTest, AWriteThatIsInterruptedIsRepeated)
{
    Log().OpenFile(PATH);
    Kit::System::Fail("write", EINTR, 1, 5);
    Write("aa");
    EXPECT_EQ(Kit::System::FailuresDone(), 5);
    EXPECT_THAT(Lines(), ElementsAre("aa"));
}

TEST_F(FileLogPolicyTest, AWriteThatTakesPartIsContinuedWithTheRest)
{
    Log().OpenFile(PATH);
    Kit::System::Fail("write", 0, 1, 1, 10); // says ten bytes, takes none: what follows is seen alone
    Write("aa");
    EXPECT_EQ(Contents(card + "/unit.log").size(), LINE_BYTES - 10);
    EXPECT_THAT(Contents(card + "/unit.log"), testing::EndsWith("]aa\n"));
}

TEST_F(FileLogPolicyTest, AWriteThatTakesNothingIsNotRepeatedForEver)
{
    Log().OpenFile(PATH);
    Kit::System::Fail("write", 0, 1, 1, 0);
    Write("aa");
    Write("bb");
    EXPECT_THAT(Lines(), ElementsAre("bb"));
}

TEST_F(FileLogPolicyTest, EachCallMayFailOnceOrForEverAndTheConsoleGoesOn)
{
    for (const char* const function : {"open", "write", "fstat", "ftruncate", "close", "rename", "*"})
    {
        for (int nth = 1; nth <= 6; ++nth)
        {
            for (const int times : {1, 1000})
            {
                Kit::System::Reset();
                Kit::System::Redirect("/mnt/sdcard", card);
                Kit::System::Fail(function, EIO, nth, times);
                Log().OpenFile(PATH, 3 * LINE_BYTES, 1);
                for (int line = 0; line < 8; ++line)
                {
                    Write("ab");
                }
                Kit::System::Reset();
                Kit::System::Redirect("/mnt/sdcard", card);
                Write("zz");
                EXPECT_THAT(Lines(), testing::Contains("zz")) << function << ' ' << nth << ' ' << times;
                Log().CloseFile();
            }
        }
    }
    EXPECT_THAT(log.Console(), testing::SizeIs(7 * 6 * 2 * 9));
    Kit::System::Reset();
    // A close() that was made to fail has left its descriptor open.
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code none;
        if (std::filesystem::read_symlink(entry, none).string().starts_with(card))
        {
            close(std::stoi(entry.path().filename()));
        }
    }
}

// What really happens to a file on a full disk: the kernel takes a part of the line, and then no more. Here
// it is the limit of the size of files that does it, and it holds for the whole process.

void LimitFileSize(rlim_t bytes)
{
    struct rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
}

KIT_PROGRAM(LineCutShortByAFullDisk)
{
    signal(SIGXFSZ, SIG_IGN);
    const std::string path = std::getenv("LOG_FILE");
    Log().OpenFile(path, 0, 0);
    Log() << LogType::Info << "whole" << std::endl;
    Log().Flush();
    const std::string before = Contents(path);
    LimitFileSize(before.size() + 10);
    Log() << LogType::Info << "cut" << std::endl;
    Log().Flush();
    const std::string after = Contents(path);
    LimitFileSize(RLIM_INFINITY);
    Log() << LogType::Info << "again" << std::endl;
    return after == before ? 0 : 1;
}

TEST_F(FileLogPolicyTest, ALineThatAFullDiskCutsShortIsTakenBack)
{
    const std::string path = card + "/unit.log";
    const Kit::ChildResult result = Kit::RunProgram("LineCutShortByAFullDisk", {{"LOG_FILE=" + path}});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Kit::LogLines(Contents(path)), ElementsAre("whole", "again"));
    EXPECT_THAT(Kit::LogLines(result.output), ElementsAre("whole", "cut", "again"));
}

KIT_PROGRAM(LineCutShortAfterAChildsLines)
{
    signal(SIGXFSZ, SIG_IGN);
    const std::string path = std::getenv("LOG_FILE");
    Log().OpenFile(path, 0, 0);
    Log() << LogType::Info << "parent" << std::endl;
    const pid_t child = fork();
    if (child == 0)
    {
        Log() << LogType::Info << "child" << std::endl;
        std::exit(0);
    }
    waitpid(child, nullptr, 0);
    LimitFileSize(Contents(path).size() + 10);
    Log() << LogType::Info << "cut" << std::endl;
    Log().Flush();
    LimitFileSize(RLIM_INFINITY);
    return 0;
}

TEST_F(FileLogPolicyTest, WhatAForkedChildHasAppendedStaysWhenALineIsTakenBack)
{
    const std::string path = card + "/unit.log";
    EXPECT_EQ(Kit::RunProgram("LineCutShortAfterAChildsLines", {{"LOG_FILE=" + path}}).exitStatus, 0);
    EXPECT_THAT(Kit::LogLines(Contents(path)), ElementsAre("parent", "child"));
}

// Limits -------------------------------------------------------------------------------------------------

TEST_F(FileLogPolicyTest, AFullFileIsKeptUnderANumberAndANewOneBegun)
{
    Log().OpenFile(PATH, 2 * LINE_BYTES, 2);
    Write("aa");
    Write("bb");
    EXPECT_EQ(Size("unit.log"), 2 * LINE_BYTES) << "the limit itself is not over it";
    EXPECT_FALSE(Exists("unit.log.1"));
    Write("cc");
    EXPECT_THAT(Lines(), ElementsAre("cc"));
    EXPECT_THAT(Lines("unit.log.1"), ElementsAre("aa", "bb"));
    EXPECT_FALSE(Exists("unit.log.2"));
    Write("dd");
    Write("ee");
    EXPECT_THAT(Lines(), ElementsAre("ee"));
    EXPECT_THAT(Lines("unit.log.1"), ElementsAre("cc", "dd"));
    EXPECT_THAT(Lines("unit.log.2"), ElementsAre("aa", "bb"));
    Write("ff");
    Write("gg");
    EXPECT_THAT(Lines(), ElementsAre("gg"));
    EXPECT_THAT(Lines("unit.log.1"), ElementsAre("ee", "ff"));
    EXPECT_THAT(Lines("unit.log.2"), ElementsAre("cc", "dd"));
    EXPECT_FALSE(Exists("unit.log.3")) << "the oldest is gone";
}

TEST_F(FileLogPolicyTest, NoFileGoesOverItsLimitAndNoLineIsLostOnTheWay)
{
    constexpr std::uint64_t LIMIT = 1000;
    Log().OpenFile(PATH, LIMIT, 100);
    std::vector<std::string> expected;
    for (int line = 0; line < 300; ++line)
    {
        expected.push_back(std::string(static_cast<std::size_t>(line % 50), 'x') + std::to_string(line));
        Log() << LogType::Info << expected.back() << std::endl;
    }
    Log().Flush();
    std::vector<std::string> all = Lines();
    EXPECT_LE(Size("unit.log"), LIMIT);
    int number = 1;
    for (std::string name = "unit.log.1"; Exists(name); name = "unit.log." + std::to_string(++number))
    {
        EXPECT_LE(Size(name), LIMIT);
        EXPECT_GT(Size(name), LIMIT - 80) << "nor is it begun anew too early";
        const std::vector<std::string> older = Lines(name);
        all.insert(all.begin(), older.begin(), older.end());
    }
    EXPECT_GT(number, 10);
    EXPECT_EQ(all, expected);
}

TEST_F(FileLogPolicyTest, WithoutOldFilesTheFileIsEmptied)
{
    Log().OpenFile(PATH, 2 * LINE_BYTES, 0);
    Write("aa");
    Write("bb");
    Write("cc");
    EXPECT_THAT(Lines(), ElementsAre("cc"));
    EXPECT_FALSE(Exists("unit.log.1"));
    Write("dd");
    EXPECT_THAT(Lines(), ElementsAre("cc", "dd"));
}

TEST_F(FileLogPolicyTest, WithoutALimitTheFileJustGrows)
{
    Log().OpenFile(PATH, 0, 3);
    for (int line = 0; line < 1000; ++line)
    {
        Log() << LogType::Info << "xx" << std::endl;
    }
    Log().Flush();
    EXPECT_EQ(Size("unit.log"), 1000 * LINE_BYTES);
    EXPECT_FALSE(Exists("unit.log.1"));
}

TEST_F(FileLogPolicyTest, ByDefaultAMegabyteAndThreeOldFilesAreKept)
{
    std::ofstream(card + "/unit.log") << std::string(1024 * 1024 - LINE_BYTES, 'x');
    Log().OpenFile(PATH);
    Write("aa");
    EXPECT_EQ(Size("unit.log"), 1024U * 1024U);
    for (int round = 1; round <= 4; ++round)
    {
        Write("bb");
        EXPECT_EQ(Size("unit.log"), LINE_BYTES);
        EXPECT_EQ(Exists("unit.log.3"), round >= 3);
        std::ofstream(card + "/unit.log", std::ios::app) << std::string(1024 * 1024 - LINE_BYTES, 'x');
    }
    EXPECT_FALSE(Exists("unit.log.4"));
}

TEST_F(FileLogPolicyTest, AFileThatIsFullWhenItIsOpenedIsKeptWithTheFirstLine)
{
    std::ofstream(card + "/unit.log") << std::string(100, 'x') << '\n';
    std::ofstream(card + "/unit.log.1") << "older\n";
    Log().OpenFile(PATH, 50, 1);
    EXPECT_EQ(Size("unit.log"), 101U);
    Write("aa");
    EXPECT_THAT(Lines(), ElementsAre("aa"));
    EXPECT_THAT(Lines("unit.log.1"), ElementsAre(std::string(100, 'x')));
}

TEST_F(FileLogPolicyTest, ALineThatIsLongerThanTheLimitHasAFileOfItsOwn)
{
    const std::string longText(500, 'x');
    Log().OpenFile(PATH, 100, 3);
    Log() << LogType::Info << longText << std::endl;
    Write("aa");
    Log() << LogType::Info << longText << std::endl;
    EXPECT_THAT(Lines(), ElementsAre(longText));
    EXPECT_THAT(Lines("unit.log.1"), ElementsAre("aa"));
    EXPECT_THAT(Lines("unit.log.2"), ElementsAre(longText));
    EXPECT_FALSE(Exists("unit.log.3")) << "no empty file is kept";
}

TEST_F(FileLogPolicyTest, WhatOthersAppendCountsForTheLimit)
{
    Log().OpenFile(PATH, 4 * LINE_BYTES, 1);
    Write("aa");
    std::ofstream(card + "/unit.log", std::ios::app) << std::string(3 * LINE_BYTES - 1, 'x') << '\n';
    Write("bb");
    EXPECT_THAT(Lines(), ElementsAre("bb"));
    EXPECT_EQ(Size("unit.log.1"), 4 * LINE_BYTES);
}

TEST_F(FileLogPolicyTest, WhereAFileCannotBeRenamedItGrowsOn)
{
    Log().OpenFile(PATH, 2 * LINE_BYTES, 1);
    Write("aa");
    Write("bb");
    Kit::System::Fail("rename", EROFS);
    Write("cc");
    EXPECT_EQ(Kit::System::FailuresDone(), 1);
    EXPECT_THAT(Lines(), ElementsAre("aa", "bb", "cc"));
    Write("dd");
    EXPECT_THAT(Lines(), ElementsAre("dd"));
    EXPECT_THAT(Lines("unit.log.1"), ElementsAre("aa", "bb", "cc"));
}

TEST_F(FileLogPolicyTest, WhereAFileCannotBeEmptiedItGrowsOn)
{
    Log().OpenFile(PATH, 2 * LINE_BYTES, 0);
    Write("aa");
    Write("bb");
    Kit::System::Fail("ftruncate", EIO);
    Write("cc");
    EXPECT_EQ(Kit::System::FailuresDone(), 1);
    EXPECT_THAT(Lines(), ElementsAre("aa", "bb", "cc"));
    Write("dd");
    EXPECT_THAT(Lines(), ElementsAre("dd"));
}

TEST_F(FileLogPolicyTest, WhatIsNoRegularFileHasNoSizeAndIsNeverRenamed)
{
    const std::string path = card + "/unit.log";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    Log().OpenFile(PATH, 2 * LINE_BYTES, 2);
    for (const char* const text : {"aa", "bb", "cc", "dd"})
    {
        Write(text);
    }
    std::string received(1000, '\0');
    received.resize(
        static_cast<std::size_t>(std::max<ssize_t>(0, read(reader, received.data(), received.size()))));
    close(reader);
    EXPECT_THAT(Kit::LogLines(received), ElementsAre("aa", "bb", "cc", "dd"));
    EXPECT_FALSE(Exists("unit.log.1"));
}

}

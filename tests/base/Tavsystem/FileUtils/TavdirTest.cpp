#include "base/Tavsystem/FileUtils/Tavdir.h"
#include "tests/kit/Child.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using Kit::System;
using Tavsystem::FileUtils::Tavdir;
namespace fs = std::filesystem;

namespace
{

constexpr const char* CARD = "/mnt/sdcard";

class TavdirTest : public testing::Test
{
protected:
    TavdirTest()
    {
        fs::create_directory(root);
        System::Redirect(CARD, root);
    }

    ~TavdirTest() override { fs::remove_all(root); }

    static bool IsDirectory(const std::string& path)
    {
        struct stat status = {};

        return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    }

    const std::string root = Kit::TempDir::Path() + "/card";
};

}

TEST_F(TavdirTest, TouchesNothingBeforeCreate)
{
    {
        const Tavdir directory("/mnt/sdcard/db/");
    }
    EXPECT_TRUE(System::Calls().empty());
}

TEST_F(TavdirTest, MakesTheDirectory)
{
    EXPECT_TRUE(Tavdir("/mnt/sdcard/db/").Create());
    EXPECT_TRUE(IsDirectory(root + "/db"));
    EXPECT_TRUE(Tavdir("/mnt/sdcard/plain").Create());
    EXPECT_TRUE(IsDirectory(root + "/plain"));
}

TEST_F(TavdirTest, MakesTheMissingParents)
{
    EXPECT_TRUE(Tavdir("/mnt/sdcard/a/b/c/d/").Create());
    EXPECT_TRUE(IsDirectory(root + "/a/b/c/d"));
    EXPECT_TRUE(Tavdir("/mnt/sdcard/a/b/x/y").Create());
    EXPECT_TRUE(IsDirectory(root + "/a/b/x/y"));
    EXPECT_TRUE(Tavdir("/mnt/sdcard//p//q//").Create());
    EXPECT_TRUE(IsDirectory(root + "/p/q"));
}

TEST_F(TavdirTest, LeavesAloneWhatIsAbove)
{
    EXPECT_TRUE(Tavdir("/mnt/sdcard/a/b/").Create());
    System::ForgetCalls();
    EXPECT_TRUE(Tavdir("/mnt/sdcard/a/b/").Create());
    ASSERT_EQ(System::CallsOf("mkdir").size(), 1u);
    EXPECT_EQ(System::CallsOf("mkdir")[0].path, "/mnt/sdcard/a/b/");
}

TEST_F(TavdirTest, IsContentWithADirectoryThatIsThere)
{
    EXPECT_TRUE(Tavdir("/mnt/sdcard/db").Create());
    std::ofstream(root + "/db/kept") << "text";
    Tavdir directory("/mnt/sdcard/db/");
    EXPECT_TRUE(directory.Create());
    EXPECT_TRUE(directory.Create());
    EXPECT_TRUE(fs::exists(root + "/db/kept"));
    EXPECT_TRUE(Tavdir("/").Create());
    EXPECT_TRUE(Tavdir(root).Create());
}

TEST_F(TavdirTest, FollowsALinkToADirectory)
{
    fs::create_directory(root + "/real");
    fs::create_directory_symlink(root + "/real", root + "/link");
    EXPECT_TRUE(Tavdir("/mnt/sdcard/link").Create());
    EXPECT_TRUE(Tavdir("/mnt/sdcard/link/in").Create());
    EXPECT_TRUE(IsDirectory(root + "/real/in"));
}

TEST_F(TavdirTest, FailsWhereALinkLeadsNowhere)
{
    fs::create_directory_symlink(root + "/nowhere", root + "/link");
    EXPECT_FALSE(Tavdir("/mnt/sdcard/link").Create());
    EXPECT_FALSE(Tavdir("/mnt/sdcard/link/in").Create());
    EXPECT_FALSE(fs::exists(root + "/nowhere"));
}

TEST_F(TavdirTest, GivesThePermissionsLessTheUmask)
{
    const mode_t before = umask(0);
    EXPECT_TRUE(Tavdir("/mnt/sdcard/a/b").Create());
    umask(0027);
    EXPECT_TRUE(Tavdir("/mnt/sdcard/c").Create());
    umask(before);
    EXPECT_EQ(fs::status(root + "/a").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(root + "/a/b").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(root + "/c").permissions(), fs::perms(0750));
}

TEST_F(TavdirTest, FailsWhereAFileIsInTheWay)
{
    std::ofstream(root + "/file") << "text";
    EXPECT_FALSE(Tavdir("/mnt/sdcard/file").Create());
    EXPECT_FALSE(Tavdir("/mnt/sdcard/file/").Create());
    EXPECT_FALSE(Tavdir("/mnt/sdcard/file/in").Create());
    EXPECT_FALSE(Tavdir("/mnt/sdcard/file/in/deep").Create());
    EXPECT_TRUE(fs::is_regular_file(root + "/file"));
}

TEST_F(TavdirTest, FailsForAPathThatNamesNothing)
{
    EXPECT_FALSE(Tavdir("").Create());
    EXPECT_FALSE(Tavdir(std::string("/mnt/sdcard/a\0/b", 16)).Create());
    EXPECT_FALSE(Tavdir(root + '/' + std::string(NAME_MAX + 1, 'x')).Create());
    EXPECT_FALSE(Tavdir(root + '/' + std::string(std::size_t{2} * PATH_MAX, 'x') + "/a").Create());
    EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(TavdirTest, FailsWhereTheSystemRefuses)
{
    for (const int error : {EACCES, EROFS, ENOSPC, EIO})
    {
        System::Fail("mkdir", error);
        EXPECT_FALSE(Tavdir("/mnt/sdcard/db").Create()) << error;
        EXPECT_FALSE(IsDirectory(root + "/db")) << error;
    }
    EXPECT_EQ(System::FailuresDone(), 4);
    EXPECT_TRUE(Tavdir("/mnt/sdcard/db").Create());
}

TEST_F(TavdirTest, FailsWhicheverStepIsRefused)
{
    // "/mnt/sdcard/a/b/c" takes five steps: three back, which find no parent, and two forward.
    for (int step = 1;; ++step)
    {
        ASSERT_LE(step, 20);
        fs::remove_all(root + "/a");
        System::Fail("mkdir", EACCES, step);
        const int before = System::FailuresDone();
        const bool created = Tavdir("/mnt/sdcard/a/b/c").Create();
        EXPECT_EQ(created, IsDirectory(root + "/a/b/c")) << step;
        if (System::FailuresDone() == before)
        {
            EXPECT_TRUE(created);
            EXPECT_EQ(step, 6);
            break;
        }
        EXPECT_FALSE(created) << step;
    }
}

TEST_F(TavdirTest, BelievesADirectoryThatIsThereMoreThanTheReasonOfARefusal)
{
    ASSERT_TRUE(Tavdir("/mnt/sdcard/db").Create());
    System::Fail("mkdir", EROFS);
    EXPECT_TRUE(Tavdir("/mnt/sdcard/db").Create());
    EXPECT_EQ(System::FailuresDone(), 1);
}

TEST_F(TavdirTest, FailsWhereNoCardIs)
{
    System::Unredirect(CARD);
    EXPECT_FALSE(Tavdir("/mnt/sdcard/db").Create());
}

TEST_F(TavdirTest, TakesARelativePathFromTheWorkingDirectory)
{
    const Kit::ChildResult child = Kit::RunInChild([this] {
        return chdir(root.c_str()) == 0 && Tavdir("a/b").Create() && Tavdir("c").Create() ? 0 : 1;
    });
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_TRUE(IsDirectory(root + "/a/b"));
    EXPECT_TRUE(IsDirectory(root + "/c"));
}

TEST_F(TavdirTest, ManyThreadsMayMakeTheSameDirectory)
{
    for (int turn = 0; turn < 50; ++turn)
    {
        const std::string path = "/mnt/sdcard/t" + std::to_string(turn) + "/a/b/c/d/e";
        std::atomic<int> made{0};
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i)
        {
            threads.emplace_back([&] { made += Tavdir(path).Create() ? 1 : 0; });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(made, 4);
    }
}

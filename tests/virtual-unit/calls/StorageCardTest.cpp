// The storage card of the virtual unit, as shells and other programs find it under "/mnt/sdcard".

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// This machine's own file of the card's name, seen past the kit: where it is, and when it was changed.
std::string RealCard()
{
    struct stat status = {};
    const long result = syscall(SYS_newfstatat, AT_FDCWD, "/mnt/sdcard", &status, AT_SYMLINK_NOFOLLOW);
    return result != 0 ? "none, " + std::to_string(errno)
                       : std::to_string(status.st_ino) + ", " + std::to_string(status.st_mtim.tv_sec) + "." +
                             std::to_string(status.st_mtim.tv_nsec);
}

std::string Content(const fs::path& file)
{
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> NamesIn(const fs::path& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory))
    {
        names.push_back(entry.path().filename());
    }
    return names;
}

class StorageCardTest : public VirtualUnitTest
{
protected:
    void SetUp() override
    {
        VirtualUnitTest::SetUp();
        fs::create_directory(work);
        fs::create_directory(temporary);
        const char* const former = std::getenv("TMPDIR");
        formerTmpdir = former == nullptr ? "" : former;
        setenv("TMPDIR", temporary.c_str(), 1);
    }

    void TearDown() override
    {
        formerTmpdir.empty() ? unsetenv("TMPDIR") : setenv("TMPDIR", formerTmpdir.c_str(), 1);
        EXPECT_EQ(RealCard(), realCard);
        fs::remove_all(work);
        fs::remove_all(temporary);
    }

    /// A command line of the shell, with the card's content in `card`.
    Outcome Shell(const std::string& command) const
    {
        return RunUnit({"run", "--sdcard", card, "--", "/bin/sh", "-c", command});
    }

    const std::string realCard = RealCard();
    const fs::path work = Kit::TempDir::Path() + "/bench";
    const fs::path temporary = Kit::TempDir::Path() + "/temporary";
    const fs::path card = work / "card";
    std::string formerTmpdir;
};

TEST_F(StorageCardTest, FilesAreWrittenReadAppendedToAndTruncated)
{
    const Outcome outcome =
        Shell("cd /; f=/mnt/sdcard/file; echo one > $f; echo two >> $f; cat $f; wc -c < $f; "
              "truncate -s 3 $f; cat $f; : > $f; wc -c < $f; test -f $f && ! test -s $f");
    EXPECT_EQ(outcome.output, "one\ntwo\n8\none0\n");
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(StorageCardTest, DirectoriesAreMadeAndListed)
{
    const Outcome outcome =
        Shell("mkdir /mnt/sdcard/db /mnt/sdcard/db/sub && touch /mnt/sdcard/db/file && "
              "test -d /mnt/sdcard && test -d /mnt/sdcard/db/ && ! test -f /mnt/sdcard/db && "
              "! test -e /mnt/sdcard/none && ls /mnt/sdcard/db && ls -la /mnt/sdcard > /dev/null && "
              "find /mnt/sdcard/ -name 'f*' && stat -c %F /mnt/sdcard /mnt/sdcard/db/file");
    EXPECT_EQ(outcome.output, "file\nsub\n/mnt/sdcard/db/file\ndirectory\nregular empty file\n");
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(fs::is_directory(card / "db/sub"));
}

TEST_F(StorageCardTest, FilesAreRenamedAndMovedInAndOut)
{
    const Outcome outcome =
        Shell("cd " + Word(work) +
              "; mkdir /mnt/sdcard/db; echo text > mine; mv mine /mnt/sdcard/db/a && test ! -e mine && "
              "mv /mnt/sdcard/db/a /mnt/sdcard/b && mv /mnt/sdcard/b /mnt/sdcard/db && ls /mnt/sdcard/db && "
              "mv /mnt/sdcard/db/b back && cat back && ls /mnt/sdcard/db");
    EXPECT_EQ(outcome.output, "b\ntext\n");
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(StorageCardTest, TreesAreCopiedInAndOutAndRemoved)
{
    fs::create_directories(work / "tree/sub");
    std::ofstream(work / "tree/sub/file") << "deep";
    const Outcome outcome = Shell(
        "cd " + Word(work) +
        "; cp -r tree /mnt/sdcard && cp -a /mnt/sdcard/tree /mnt/sdcard/tree2 && "
        "cp -r /mnt/sdcard/tree2 out && rm -r /mnt/sdcard/tree && ls /mnt/sdcard && rm -r /mnt/sdcard/*");
    EXPECT_EQ(outcome.output, "tree2\n");
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(Content(work / "out/sub/file"), "deep");
    EXPECT_THAT(NamesIn(card), IsEmpty());
}

const char* const CARD_CALLS = "mkdirat ok\n"
                               "mkdirat again EEXIST\n"
                               "mkdirat of the root EEXIST\n"
                               "mkdirat without parent ENOENT\n"
                               "openat that creates ok\n"
                               "openat that creates again EEXIST\n"
                               "openat of a file as a directory ENOTDIR\n"
                               "openat of a directory to write EISDIR\n"
                               "openat without a name EOPNOTSUPP\n"
                               "openat for reference ok\n"
                               "openat of what is not there ENOENT\n"
                               "openat2 ok\n"
                               "openat2 bounded EXDEV\n"
                               "faccessat ok\n"
                               "faccessat2 ENOENT\n"
                               "newfstatat ok\n"
                               "newfstatat to nowhere EFAULT\n"
                               "newfstatat of a file as a directory ENOTDIR\n"
                               "statx ok\n"
                               "statfs ok\n"
                               "readlinkat EINVAL\n"
                               "readlinkat of nothing ENOENT\n"
                               "getxattr EOPNOTSUPP\n"
                               "setxattr EOPNOTSUPP\n"
                               "setxattrat EOPNOTSUPP\n"
                               "truncate ok\n"
                               "truncate to less than nothing EINVAL\n"
                               "fchmodat ok\n"
                               "fchmodat2 ok\n"
                               "fchownat to the same ok\n"
                               "fchownat to another EPERM\n"
                               "utimensat ok\n"
                               "stat ok\n"
                               "size 5, mode 640, modified 1000000000\n"
                               "utimensat to the present ok\n"
                               "renameat2 ok\n"
                               "creat ok\n"
                               "renameat2 that replaces not EEXIST\n"
                               "renameat2 that exchanges ok\n"
                               "renameat2 with a whiteout EINVAL\n"
                               "renameat2 of a file to a directory's name ENOTDIR\n"
                               "renameat2 out EXDEV\n"
                               "renameat2 in EXDEV\n"
                               "linkat EPERM\n"
                               "linkat in EPERM\n"
                               "symlinkat EPERM\n"
                               "mknodat EPERM\n"
                               "unlinkat ok\n"
                               "unlinkat of a directory EISDIR\n"
                               "unlinkat of a full directory ENOTEMPTY\n"
                               "unlink ok\n"
                               "rmdir ok\n"
                               "rmdir of the root EBUSY\n"
                               "rmdir of the root with a slash EBUSY\n"
                               "unlink of the root EISDIR\n"
                               "rename of the root EBUSY\n";

TEST_F(StorageCardTest, EachCallIsAnsweredAsByAVolume)
{
    for (const char* program : {PROBE, PROBE_STATIC})
    {
        const Outcome outcome = Probe({"card"}, {}, {}, program);
        EXPECT_EQ(outcome.output, CARD_CALLS) << program;
        EXPECT_EQ(outcome.errors, "");
    }
}

TEST_F(StorageCardTest, WhatTheCardDoesNotDoIsRefusedWithALine)
{
    const Outcome outcome = Probe({"card-refusals"});
    EXPECT_EQ(outcome.output, "chdir EACCES\n"
                              "chdir to nothing ENOENT\n"
                              "execve EACCES\n"
                              "bind EPERM\n"
                              "connect EPERM\n"
                              "inotify_add_watch EPERM\n"
                              "chroot EPERM\n");
    const std::string notDone = "is refused: the storage card does not do it";
    EXPECT_THAT(
        Lines(outcome.errors),
        ElementsAre(
            "virtual-unit: chdir to /mnt/sdcard is refused: the working directory of a program cannot "
            "be set from outside",
            "virtual-unit: execve of /mnt/sdcard/program is refused: programs on the storage card are "
            "not executed",
            "virtual-unit: bind of /mnt/sdcard/socket " + notDone,
            "virtual-unit: connect of /mnt/sdcard/socket " + notDone,
            "virtual-unit: inotify_add_watch of /mnt/sdcard " + notDone,
            "virtual-unit: chroot of /mnt/sdcard " + notDone));
}

TEST_F(StorageCardTest, PathsMayStartAtADirectoryOfTheCard)
{
    const std::vector<std::vector<std::string>> options = {{}, {"--sdcard", work / "../bench/card"}};
    for (const std::vector<std::string>& each : options)
    {
        const Outcome outcome = Probe({"card-relative"}, each);
        EXPECT_EQ(outcome.output, "openat ok\n"
                                  "mkdirat ok\n"
                                  "renameat ok\n"
                                  "symlinkat EPERM\n"
                                  "back and forth ok\n"
                                  "out EACCES\n"
                                  "fchdir ok\n"
                                  "chdir ok\n"
                                  "open ok\n"
                                  "symlink EPERM\n"
                                  "unlink ok\n"
                                  "unlinkat ok\n");
        EXPECT_THAT(
            Lines(outcome.errors),
            ElementsAre("virtual-unit: openat of /etc/passwd is refused: the way leads over the storage "
                        "card and out of it"));
    }
}

TEST_F(StorageCardTest, ACallIsNotCarriedOutTwiceWhenASignalArrives)
{
    EXPECT_EQ(Probe({"card-interrupted"}).output, "failed 0\n");
}

TEST_F(StorageCardTest, NewFilesHaveTheModeThatTheProgramsUmaskLeaves)
{
    const std::string make =
        "mkdir /mnt/sdcard/d; : > /mnt/sdcard/f; stat -c %a /mnt/sdcard/d /mnt/sdcard/f; "
        "rm -r /mnt/sdcard/*; ";
    EXPECT_EQ(Shell("umask 027; " + make + "umask 0; " + make).output, "750\n640\n777\n666\n");
}

TEST_F(StorageCardTest, LinksCannotBeMade)
{
    const Outcome outcome =
        Shell(": > /mnt/sdcard/file; ln -s file /mnt/sdcard/link; ln -s file /mnt/sdcard; "
              "ln /mnt/sdcard/file /mnt/sdcard/hard; mkfifo /mnt/sdcard/fifo");
    EXPECT_THAT(Lines(outcome.errors), testing::Each(HasSubstr("Operation not permitted")));
    EXPECT_EQ(Lines(outcome.errors).size(), 4U);
    EXPECT_THAT(NamesIn(card), ElementsAre("file"));
}

TEST_F(StorageCardTest, DotsLeadOutNeitherToReadNorToWrite)
{
    std::ofstream(work / "secret") << "secret";
    const Outcome outcome =
        Shell("cat /mnt/sdcard/../secret; cat /mnt/sdcard/../.." + Word(work / "secret") +
              "; echo x > /mnt/sdcard/../secret; " +
              "mkdir /mnt/sdcard/../made; cat /mnt/sdcard/../sdcard/../../mnt/sdcard/none");
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors,
                HasSubstr("virtual-unit: openat of /mnt/secret is refused: the way leads over "
                          "the storage card and out of it\n"));
    EXPECT_THAT(outcome.errors, HasSubstr("virtual-unit: mkdir of /mnt/made is refused: "));
    EXPECT_THAT(outcome.errors, HasSubstr("none: No such file or directory\n"));
    EXPECT_EQ(Content(work / "secret"), "secret");
    EXPECT_FALSE(fs::exists(work / "made"));
}

TEST_F(StorageCardTest, SymbolicLinksInTheDirectoryLeadNowhere)
{
    fs::create_directories(card);
    fs::create_directory(work / "outside");
    std::ofstream(work / "outside/secret") << "secret";
    fs::permissions(work / "outside/secret", fs::perms(0600));
    const fs::file_time_type written = fs::last_write_time(work / "outside/secret");
    fs::create_symlink(work / "outside/secret", card / "absolute");
    fs::create_symlink("../outside/secret", card / "relative");
    fs::create_directory_symlink(work / "outside", card / "directory");

    for (const std::string path : {"absolute", "relative", "directory/secret", "directory/../relative"})
    {
        const std::string file = "/mnt/sdcard/" + path;
        const Outcome outcome =
            Shell("cat " + file + "; echo x > " + file + "; echo x >> " + file + "; chmod 644 " + file +
                  "; truncate -s 0 " + file + "; touch -c -d 2001-01-01 " + file + "; cp " + file +
                  " /mnt/sdcard/copy; rm -f /mnt/sdcard/copy; true");
        EXPECT_EQ(outcome.output, "") << path;
        EXPECT_THAT(outcome.errors, HasSubstr("Too many levels of symbolic links")) << path;
    }
    Shell(": > /mnt/sdcard/directory/new; mkdir /mnt/sdcard/directory/sub; "
          "rm -f /mnt/sdcard/directory/secret; rmdir /mnt/sdcard/directory/");

    EXPECT_EQ(Content(work / "outside/secret"), "secret");
    EXPECT_EQ(fs::status(work / "outside/secret").permissions(), fs::perms(0600));
    EXPECT_EQ(fs::last_write_time(work / "outside/secret"), written);
    EXPECT_THAT(NamesIn(work / "outside"), ElementsAre("secret"));

    EXPECT_EQ(Shell("rm /mnt/sdcard/absolute /mnt/sdcard/relative; rm -r /mnt/sdcard/directory").status, 0);
    EXPECT_THAT(NamesIn(card), IsEmpty());
    EXPECT_EQ(Content(work / "outside/secret"), "secret");
}

TEST_F(StorageCardTest, AFifoInTheDirectoryDoesNotHoldUpTheUnit)
{
    fs::create_directories(card);
    ASSERT_EQ(mkfifo((card / "fifo").c_str(), 0600), 0);
    const Outcome outcome = Shell("cat /mnt/sdcard/fifo");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("Permission denied"));
}

TEST_F(StorageCardTest, ChangingToTheCardIsRefused)
{
    const Outcome outcome = Shell("cd /mnt/sdcard || mkdir -p /mnt/sdcard/db/sub || cd /mnt/sdcard");
    EXPECT_NE(outcome.status, 0);
    EXPECT_THAT(Lines(outcome.errors),
                Contains("virtual-unit: chdir to /mnt/sdcard is refused: the working directory of a "
                         "program cannot be set from outside")
                    .Times(1));
}

TEST_F(StorageCardTest, AProgramMayRunInTheDirectoryBehindTheCard)
{
    fs::create_directories(card);
    std::ofstream(card / "script") << "#!/bin/sh\necho here > mine; cat ../card/mine; cat /mnt/sdcard/mine\n";
    fs::permissions(card / "script", fs::perms(0755));
    const fs::path before = fs::current_path();
    fs::current_path(card);
    const Outcome inside = RunUnit({"run", "--sdcard", ".", "--", "./script"});
    fs::current_path(before);
    EXPECT_EQ(inside.output, "here\nhere\n") << inside.errors;
}

TEST_F(StorageCardTest, TheDirectoryKeepsTheContentFromRunToRun)
{
    EXPECT_EQ(Shell("mkdir /mnt/sdcard/db && echo kept > /mnt/sdcard/db/file").status, 0);
    EXPECT_EQ(Content(card / "db/file"), "kept\n");
    EXPECT_EQ(Shell("cat /mnt/sdcard/db/file").output, "kept\n");
    EXPECT_THAT(NamesIn(temporary), IsEmpty());
}

TEST_F(StorageCardTest, WithoutTheOptionEveryRunFindsAnEmptyCard)
{
    EXPECT_EQ(RunShell("echo lost > /mnt/sdcard/file; ls /mnt/sdcard").output, "file\n");
    EXPECT_THAT(NamesIn(temporary), IsEmpty());
    EXPECT_EQ(RunShell("test -d /mnt/sdcard && ls /mnt/sdcard").output, "");
}

TEST_F(StorageCardTest, ThePrivateDirectoryIsGoneHoweverTheRunEnds)
{
    const std::string fill = "mkdir /mnt/sdcard/locked && : > /mnt/sdcard/locked/file && "
                             "chmod 0 /mnt/sdcard/locked; ";
    EXPECT_EQ(RunShell(fill + "exit 4").status, 4);
    EXPECT_THAT(NamesIn(temporary), IsEmpty());

    EXPECT_EQ(RunShell(fill + "exec " + PROBE_WORD + " crash").status, 128 + SIGSEGV);
    EXPECT_THAT(NamesIn(temporary), IsEmpty());

    EXPECT_EQ(RunUnit({"run", "--", "no-such-program"}).status, 127);
    EXPECT_THAT(NamesIn(temporary), IsEmpty());

    RunningUnit ended({"run", "--", "/bin/sh", "-c", fill + "exec " + PROBE_WORD + " wait"});
    ASSERT_TRUE(ended.WaitForOutput("ready"));
    EXPECT_THAT(NamesIn(temporary), Contains(StartsWith("virtual-unit-")));
    ended.Signal(SIGTERM);
    EXPECT_EQ(ended.End().status, 128 + SIGTERM);
    EXPECT_THAT(NamesIn(temporary), IsEmpty());

    RunningUnit killed({"run", "--", "/bin/sh", "-c", fill + "exec " + PROBE_WORD + " ignore 15 2"});
    ASSERT_TRUE(killed.WaitForOutput("ready"));
    killed.Signal(SIGTERM);
    killed.Signal(SIGINT);
    EXPECT_EQ(killed.End().status, 128 + SIGKILL);
    EXPECT_THAT(NamesIn(temporary), IsEmpty());

    RunningUnit::Options onTerminal;
    onTerminal.onTerminal = true;
    RunningUnit interrupted({"run", "--", "/bin/sh", "-c", fill + "exec " + PROBE_WORD + " wait"},
                            onTerminal);
    ASSERT_TRUE(interrupted.WaitForOutput("ready"));
    interrupted.Type("\x03");
    EXPECT_EQ(interrupted.End().status, 128 + SIGINT);
    EXPECT_THAT(NamesIn(temporary), IsEmpty());
}

TEST_F(StorageCardTest, TheCardIsUnmountedWhenTheProgramUsesItNoMore)
{
    const std::string root = "/dev/root / ext4 rw,relatime 0 0\n";
    const std::string both = root + "/dev/mmcblk3p1 /mnt/sdcard vfat rw,relatime 0 0\n";
    const Outcome outcome = Probe({"card-unmount"}, {"--sdcard", card});
    EXPECT_EQ(outcome.output, "81 bytes, close on exec 1\n" + both +
                                  "openat2 of the table ok\n"
                                  "open of the table to write EACCES\n"
                                  "umount2 of the root EPERM\n"
                                  "umount2 below the card EPERM\n"
                                  "umount2 of nowhere EFAULT\n"
                                  "umount2 with an open file EBUSY\n"
                                  "umount2 with a removed file that is open EBUSY\n"
                                  "81 bytes, close on exec 1\n" +
                                  both +
                                  "umount2 ok\n"
                                  "33 bytes, close on exec 1\n" +
                                  root + "umount2 again EINVAL\n");
    EXPECT_THAT(
        Lines(outcome.errors),
        ElementsAre("virtual-unit: umount2 is refused: it would touch this machine's mounts or power",
                    "virtual-unit: /mnt/sdcard stays mounted: the program uses /mnt/sdcard/file",
                    "virtual-unit: /mnt/sdcard stays mounted: the program uses /mnt/sdcard/file (deleted)",
                    "virtual-unit: /mnt/sdcard is unmounted"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(StorageCardTest, TheCardIsDetachedEvenWhileItIsUsed)
{
    EXPECT_EQ(Probe({"card-detach"}).output, "umount2 ok\n");
}

TEST_F(StorageCardTest, TheMountTableIsTheUnitsForEveryProgram)
{
    const Outcome outcome = Shell("cat /proc/self/mounts; cat </proc/mounts");
    EXPECT_EQ(outcome.output, "/dev/root / ext4 rw,relatime 0 0\n"
                              "/dev/mmcblk3p1 /mnt/sdcard vfat rw,relatime 0 0\n"
                              "/dev/root / ext4 rw,relatime 0 0\n"
                              "/dev/mmcblk3p1 /mnt/sdcard vfat rw,relatime 0 0\n");
}

TEST_F(StorageCardTest, ItWorksWithoutPrivileges)
{
    fs::permissions(Kit::TempDir::Path(), fs::perms(0755)); // "nobody" has to get through it
    fs::permissions(temporary, fs::perms(01777));
    RunningUnit::Options nobody;
    nobody.unprivileged = true;
    const Outcome outcome = RunUnit(
        {"run", "--", "/bin/sh", "-c",
         "mkdir /mnt/sdcard/db && echo text > /mnt/sdcard/db/file && mv /mnt/sdcard/db/file /mnt/sdcard && "
         "cat /mnt/sdcard/file && chmod 0 /mnt/sdcard/file /mnt/sdcard/db && ! cat /mnt/sdcard/file"},
        nobody);
    EXPECT_EQ(outcome.output, "text\n");
    EXPECT_THAT(Lines(outcome.errors), ElementsAre(HasSubstr("Permission denied")));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(NamesIn(temporary), IsEmpty());
}

TEST_F(StorageCardTest, ADirectoryThatCannotHoldACardIsRefusedInOneLine)
{
    fs::permissions(Kit::TempDir::Path(), fs::perms(0755));
    std::ofstream(work / "file") << "";
    fs::create_directory(work / "locked");
    fs::permissions(work / "locked", fs::perms(0555));
    fs::permissions(work, fs::perms(0555));
    RunningUnit::Options nobody;
    nobody.unprivileged = true;
    for (const std::string& directory :
         {(work / "file").string(), (work / "locked").string(), (work / "new").string(),
          (work / "no/parent").string(), std::string()})
    {
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"run", "--sdcard", directory, "--", "/bin/true"},
              std::vector<std::string>{"devices", "--sdcard", directory}})
        {
            const Outcome outcome = RunUnit(arguments, nobody);
            EXPECT_EQ(outcome.status, 2) << directory;
            EXPECT_EQ(outcome.output, "");
            EXPECT_THAT(Lines(outcome.errors), ElementsAre(StartsWith("virtual-unit: --sdcard: ")));
        }
    }
    fs::permissions(work, fs::perms(0755));
}

TEST_F(StorageCardTest, TheCardIsListedAmongTheDevices)
{
    EXPECT_THAT(RunUnit({"devices"}).output,
                HasSubstr("/mnt/sdcard            storage card, empty at first, gone after the run\n"));
    EXPECT_THAT(RunUnit({"devices", "--sdcard", card}).output,
                HasSubstr("/mnt/sdcard            storage card, kept in " + card.string() + "\n"));
    EXPECT_THAT(NamesIn(temporary), IsEmpty());
}

}

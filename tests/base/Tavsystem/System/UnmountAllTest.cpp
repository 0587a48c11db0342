#include "base/Tavsystem/System/UnmountAll.h"

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/LogCapture.h"
#include "tests/kit/Output.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"

#include <atomic>
#include <cerrno>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using Kit::System;
using Tavsystem::System::UnmountAll;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// For each sync() how many volumes were unmounted before it. Nothing of this machine is written out.
std::vector<std::size_t> syncs; // NOLINT(cert-err58-cpp)

/// What the mount table says after the last sync(); empty: what it said before.
std::string laterTable; // NOLINT(cert-err58-cpp)

void WriteTable(const std::string& table)
{
    std::ofstream(Kit::TempDir::Path() + "/mounts") << table;
}

class UnmountAllTest : public testing::Test
{
protected:
    UnmountAllTest() { System::AnswerUnmounts(); }

    ~UnmountAllTest() override
    {
        syncs.clear();
        syncs.shrink_to_fit();
        laterTable.clear();
        laterTable.shrink_to_fit();
    }

    static void SetTable(const std::string& table)
    {
        WriteTable(table);
        System::Redirect("/proc/self/mounts", Kit::TempDir::Path() + "/mounts");
    }

    static std::vector<std::string> Unmounted()
    {
        std::vector<std::string> points;
        for (const System::Call& call : System::CallsOf("umount2"))
        {
            EXPECT_EQ(call.argument, 0);
            points.push_back(call.path);
        }
        return points;
    }

    static std::vector<std::string> UnmountedFrom(const std::string& table)
    {
        SetTable(table);
        System::ForgetCalls();
        UnmountAll();
        return Unmounted();
    }

    Kit::LogCapture log;
};

}

extern "C" __attribute__((visibility("default"))) void sync() noexcept
{
    syncs.push_back(System::CallsOf("umount2").size());
    if (syncs.size() > 1 && !laterTable.empty())
    {
        WriteTable(laterTable);
    }
}

TEST_F(UnmountAllTest, UnmountsTheVolumesOnDevicesButTheRoot)
{
    EXPECT_THAT(UnmountedFrom("/dev/root / ext4 rw,relatime 0 0\n"
                              "devtmpfs /dev devtmpfs rw,relatime 0 0\n"
                              "proc /proc proc rw,relatime 0 0\n"
                              "tmpfs /run tmpfs rw,nosuid 0 0\n"
                              "/dev/mmcblk0p2 /data ext4 rw,relatime 0 0\n"
                              "/dev/mmcblk1p1 /mnt/sdcard vfat rw,relatime 0 0\n"
                              "server:/dev/x /mnt/net nfs rw 0 0\n"
                              "/devices/x /mnt/other none rw 0 0\n"),
                ElementsAre("/mnt/sdcard", "/data"));
}

TEST_F(UnmountAllTest, UnmountsWhatLiesOnRawFlashByItsSource)
{
    EXPECT_THAT(UnmountedFrom("ubi0:rootfs / ubifs rw 0 0\n"
                              "mtd:log /1 romfs rw 0 0\n"
                              "mtd12 /2 cramfs rw 0 0\n"
                              "ubi0:data /3 squashfs rw 0 0\n"
                              "ubi:my\\040data /4 other rw 0 0\n"
                              "ubi!data /5 other rw 0 0\n"
                              "ubi10!data /6 other rw 0 0\n"
                              "ubi10_12 /7 other rw 0 0\n"
                              "ubi1 /8 other rw 0 0\n"),
                ElementsAre("/8", "/7", "/6", "/5", "/4", "/3", "/2", "/1"));
}

TEST_F(UnmountAllTest, UnmountsWhatLiesOnRawFlashByItsType)
{
    EXPECT_THAT(UnmountedFrom("root / jffs2 rw 0 0\n"
                              "data /1 ubifs rw 0 0\n"
                              "none /2 jffs2 rw 0 0\n"
                              "log /3 yaffs rw 0 0\n"
                              "31:2 /4 yaffs2 rw 0 0\n"
                              "x /5 logfs rw 0 0\n"),
                ElementsAre("/5", "/4", "/3", "/2", "/1"));
}

TEST_F(UnmountAllTest, LeavesWhatOnlyLooksLikeRawFlash)
{
    EXPECT_THAT(UnmountedFrom("ubi /1 other rw 0 0\n"
                              "ubi: /2 other rw 0 0\n"
                              "ubi0: /3 other rw 0 0\n"
                              "ubi_1 /4 other rw 0 0\n"
                              "ubi0_ /5 other rw 0 0\n"
                              "ubi0_1x /6 other rw 0 0\n"
                              "ubiquity /7 other rw 0 0\n"
                              "ubi0:/srv/data /8 nfs rw 0 0\n"
                              "mtd /9 other rw 0 0\n"
                              "mtd: /10 other rw 0 0\n"
                              "mtd0x /11 other rw 0 0\n"
                              "mtd!log /12 other rw 0 0\n"
                              "mtd:/srv/log /13 nfs4 rw 0 0\n"
                              "xmtd0 /14 other rw 0 0\n"
                              "tmpfs /15 tmpfs rw 0 0\n"
                              "overlay /16 overlay rw,lowerdir=/ubi0:data 0 0\n"
                              "server:data /17 ubifs2 rw 0 0\n"
                              "ub /18 jffs rw 0 0\n"),
                IsEmpty());
}

TEST_F(UnmountAllTest, UnmountsTheDeepestFirst)
{
    EXPECT_THAT(UnmountedFrom("/dev/a /mnt/a/b vfat rw 0 0\n"
                              "/dev/b /x ext4 rw 0 0\n"
                              "/dev/c /mnt/a/b/c/d vfat rw 0 0\n"
                              "/dev/d /mnt vfat rw 0 0\n"
                              "/dev/e /mnt/a/b/c vfat rw 0 0\n"),
                ElementsAre("/mnt/a/b/c/d", "/mnt/a/b/c", "/mnt/a/b", "/mnt", "/x"));
}

TEST_F(UnmountAllTest, UnmountsTheLatestFirstAmongTheEquallyDeep)
{
    EXPECT_THAT(UnmountedFrom("/dev/a /mnt/1 vfat rw 0 0\n"
                              "/dev/b /mnt/2 vfat rw 0 0\n"
                              "/dev/c /mnt/3 vfat rw 0 0\n"),
                ElementsAre("/mnt/3", "/mnt/2", "/mnt/1"));
}

TEST_F(UnmountAllTest, UnmountsAPlaceAsOftenAsItIsMounted)
{
    EXPECT_THAT(UnmountedFrom("/dev/a /mnt/sd vfat rw 0 0\n"
                              "/dev/b /mnt/sd vfat rw 0 0\n"),
                ElementsAre("/mnt/sd", "/mnt/sd"));
}

TEST_F(UnmountAllTest, DecodesEscapedBytes)
{
    EXPECT_THAT(UnmountedFrom("/dev/a /mnt/my\\040card vfat rw 0 0\n"
                              "/dev/b /mnt/tab\\011line\\012back\\134hash\\043 vfat rw 0 0\n"
                              "/dev/c /mnt/caf\\303\\251 vfat rw 0 0\n"),
                ElementsAre("/mnt/caf\u00e9", "/mnt/tab\tline\nback\\hash#", "/mnt/my card"));
}

TEST_F(UnmountAllTest, LeavesABackslashThatBeginsNoEscape)
{
    EXPECT_THAT(UnmountedFrom("/dev/a /mnt/a\\04 vfat rw 0 0\n"
                              "/dev/b /mnt/b\\400 vfat rw 0 0\n"
                              "/dev/c /mnt/c\\080 vfat rw 0 0\n"
                              "/dev/d /mnt/d\\048 vfat rw 0 0\n"
                              "/dev/e /mnt/e\\04+ vfat rw 0 0\n"
                              "/dev/f /mnt/f\\+40 vfat rw 0 0\n"
                              "/dev/g /mnt/g\\ vfat rw 0 0\n"),
                ElementsAre("/mnt/g\\", "/mnt/f\\+40", "/mnt/e\\04+", "/mnt/d\\048", "/mnt/c\\080",
                            "/mnt/b\\400", "/mnt/a\\04"));
}

TEST_F(UnmountAllTest, PassesOverLinesThatAreNotWhole)
{
    EXPECT_THAT(UnmountedFrom("\n"
                              "/dev/a\n"
                              "/dev/b \n"
                              "/dev/c /mnt/c\n"
                              " /dev/d /mnt/d vfat rw 0 0\n"
                              "/dev/e /mnt/e vfat rw 0 0\n"
                              "/dev/f /mnt/f"),
                ElementsAre("/mnt/e"));
}

TEST_F(UnmountAllTest, GoesOnAfterAVolumeThatStaysMounted)
{
    System::Fail("umount2", EBUSY, 1);
    System::Fail("umount2", EPERM, 2);
    EXPECT_THAT(UnmountedFrom("/dev/a /a vfat rw 0 0\n"
                              "/dev/b /b vfat rw 0 0\n"
                              "/dev/c /c vfat rw 0 0\n"),
                ElementsAre("/c", "/b", "/a"));
    EXPECT_EQ(System::FailuresDone(), 2);
    EXPECT_EQ(System::CallsOf("umount2")[0].error, EBUSY);
}

TEST_F(UnmountAllTest, TellsEachVolumeThatStaysMountedOnTheConsole)
{
    System::Fail("umount2", EBUSY, 1);
    System::Fail("umount2", EPERM, 2); // counted without the one before
    UnmountedFrom("/dev/a /a vfat rw 0 0\n"
                  "/dev/b /b vfat rw 0 0\n"
                  "/dev/c /mnt/my\\040card vfat rw 0 0\n");
    EXPECT_THAT(log.ConsoleOnly(),
                ElementsAre("[ERROR]Unable to unmount /mnt/my card: Device or resource busy",
                            "[ERROR]Unable to unmount /a: Operation not permitted"));
    EXPECT_THAT(log.File(), IsEmpty());
    EXPECT_THAT(syncs, ElementsAre(0, 3));
}

TEST_F(UnmountAllTest, SaysNothingOfWhatWasUnmounted)
{
    UnmountedFrom("/dev/a /a vfat rw 0 0\n/dev/b /b vfat rw 0 0\n");
    EXPECT_THAT(log.Console(), IsEmpty());
    EXPECT_THAT(log.File(), IsEmpty());
}

TEST_F(UnmountAllTest, SaysNothingOfAMountThatWentWithAnother)
{
    laterTable = "/dev/root / ext4 rw 0 0\n";
    System::Fail("umount2", EINVAL, 2);
    UnmountedFrom("/dev/root / ext4 rw 0 0\n/dev/a /a vfat rw 0 0\n/dev/a /b vfat rw 0 0\n");
    EXPECT_EQ(System::FailuresDone(), 1);
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(UnmountAllTest, TellsAMountThatIsOutOfReach)
{
    laterTable = "/dev/a /mnt/a vfat rw 0 0\n"; // another volume lay on /mnt
    System::Fail("umount2", EINVAL, 1);
    UnmountedFrom("/dev/a /mnt/a vfat rw 0 0\n/dev/b /mnt vfat rw 0 0\n");
    EXPECT_THAT(log.ConsoleOnly(), ElementsAre("[ERROR]Unable to unmount /mnt/a: Invalid argument"));
}

TEST_F(UnmountAllTest, ReturnsWhenItsLinesAreOut)
{
    constexpr int ROUNDS = 100; // without waiting, the writer is in time now and then
    System::Fail("umount2", EBUSY, 1, ROUNDS);
    SetTable("/dev/a /a vfat rw 0 0\n");
    int missing = 0;
    for (int round = 0; round < ROUNDS; ++round)
    {
        const std::size_t before = Kit::Output::Text().size();
        UnmountAll();
        missing += Kit::Output::Text().size() == before ? 1 : 0;
    }
    EXPECT_EQ(missing, 0);
}

TEST_F(UnmountAllTest, WorksWithoutTheConsole)
{
    Tavbase::Tavlog::Logger::GetInstance().EnableConsole(false);
    System::Fail("umount2", EBUSY, 1);
    EXPECT_THAT(UnmountedFrom("/dev/a /a vfat rw 0 0\n/dev/b /b vfat rw 0 0\n"), ElementsAre("/b", "/a"));
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(UnmountAllTest, WritesOutBeforeAndAfter)
{
    EXPECT_THAT(UnmountedFrom("/dev/a /a vfat rw 0 0\n/dev/b /b vfat rw 0 0\n"), ElementsAre("/b", "/a"));
    EXPECT_THAT(syncs, ElementsAre(0, 2));
}

TEST_F(UnmountAllTest, WritesOutEvenWithoutAMountTable)
{
    System::Unredirect("/proc/self/mounts");
    UnmountAll();
    EXPECT_THAT(Unmounted(), IsEmpty());
    EXPECT_THAT(syncs, ElementsAre(0, 0));
}

TEST_F(UnmountAllTest, ReadsALongTable)
{
    std::string table;
    for (int i = 0; i < 1000; ++i)
    {
        table += "/dev/sd" + std::to_string(i) + " /mnt/" + std::to_string(i) + " vfat rw,relatime 0 0\n";
    }
    const std::vector<std::string> points = UnmountedFrom(table);
    ASSERT_EQ(points.size(), 1000u);
    EXPECT_EQ(points.front(), "/mnt/999");
    EXPECT_EQ(points.back(), "/mnt/0");
}

TEST_F(UnmountAllTest, ReadsOnWhenASignalCameBetween)
{
    System::Fail("read", EINTR, 1, 3);
    EXPECT_THAT(UnmountedFrom("/dev/a /a vfat rw 0 0\n"), ElementsAre("/a"));
    EXPECT_EQ(System::FailuresDone(), 3);
}

TEST_F(UnmountAllTest, UnmountsWhatCouldBeReadOfTheTable)
{
    std::string table = "/dev/a /a vfat rw 0 0\n";
    while (table.size() < 4090)
    {
        table += "tmpfs /t tmpfs rw 0 0\n";
    }
    table += "/dev/b /b vfat rw 0 0\n";
    System::Fail("read", EIO, 2);
    EXPECT_THAT(UnmountedFrom(table), ElementsAre("/a"));
    EXPECT_EQ(System::FailuresDone(), 1);
    EXPECT_THAT(syncs, ElementsAre(0, 1));
}

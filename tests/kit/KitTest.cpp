#include "tests/kit/Child.h"
#include "tests/kit/Clock.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Leaks.h"
#include "tests/kit/MessageDevice.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"
#include "tests/kit/Terminal.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/select.h>
#include <system_error>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace
{

using KitTest = Kit::DeviceTest;

TEST_F(KitTest, SleepsOfAllKindsPassInVirtualTimeAndExactly)
{
    const auto before = steady_clock::now();
    usleep(100'000);
    sleep(3);
    std::this_thread::sleep_for(1h);
    EXPECT_EQ(steady_clock::now() - before, 1h + 3s + 100ms);
    EXPECT_EQ(Kit::Clock::Elapsed(), 1h + 3s + 100ms);
    EXPECT_EQ(time(nullptr), Kit::Clock::START + 3603);
}

TEST_F(KitTest, ConditionWaitsOfSeveralThreadsEndAtTheirDeadlines)
{
    std::mutex mutex;
    std::condition_variable condition;
    std::vector<std::chrono::nanoseconds> ends(3);
    std::vector<std::thread> threads;
    const std::array<std::chrono::seconds, 3> waits = {180s, 90s, 91s};
    for (std::size_t i = 0; i < waits.size(); ++i)
    {
        threads.emplace_back([&, i] {
            std::unique_lock lock(mutex);
            condition.wait_for(lock, waits[i], [] { return false; });
            ends[i] = Kit::Clock::Elapsed();
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_THAT(ends, testing::ElementsAre(180s, 90s, 91s));
}

TEST_F(KitTest, ASelectOnATerminalEndsByTheClockOrByInput)
{
    Kit::Terminal line("/dev/ttymxc0");
    const int fd = open("/dev/ttymxc0", O_RDWR | O_NOCTTY);
    ASSERT_GT(fd, 0);
    fd_set input;
    FD_ZERO(&input);
    FD_SET(fd, &input);
    timeval limit = {1, 0};
    EXPECT_EQ(select(fd + 1, &input, nullptr, nullptr, &limit), 0);
    EXPECT_EQ(Kit::Clock::Elapsed(), 1s);

    std::thread peer([&] {
        std::this_thread::sleep_for(700ms);
        line.Send("x\n");
    });
    FD_SET(fd, &input);
    limit = {5, 0};
    EXPECT_EQ(select(fd + 1, &input, nullptr, nullptr, &limit), 1);
    EXPECT_EQ(Kit::Clock::Elapsed(), 1700ms);
    peer.join();
    close(fd);
    EXPECT_TRUE(Kit::System::Reached());
}

TEST_F(KitTest, TheUnitsPathsDoNotExistUnlessRedirected)
{
    EXPECT_EQ(open("/dev/ttymxc0", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(mkdir("/mnt/sdcard", 0755), -1);
    EXPECT_NE(access("/mnt/sdcard/db", F_OK), 0);
    Kit::System::Redirect("/mnt/sdcard", Kit::TempDir::Path() + "/card");
    EXPECT_EQ(mkdir("/mnt/sdcard", 0755), 0);
    EXPECT_EQ(mkdir("/mnt/sdcard/db", 0755), 0);
    EXPECT_EQ(access((Kit::TempDir::Path() + "/card/db").c_str(), F_OK), 0);
}

TEST_F(KitTest, AnOrderedFailureStrikesOnceAndIsCounted)
{
    Kit::Terminal line("/dev/ttymxc0");
    Kit::System::Fail("open", EIO, 2);
    const int first = open("/dev/ttymxc0", O_RDWR | O_NOCTTY);
    EXPECT_EQ(open("/dev/ttymxc0", O_RDWR | O_NOCTTY), -1);
    EXPECT_EQ(errno, EIO);
    const int third = open("/dev/ttymxc0", O_RDWR | O_NOCTTY);
    EXPECT_GT(first, 0);
    EXPECT_GT(third, 0);
    EXPECT_EQ(Kit::System::FailuresDone(), 1);
    close(first);
    close(third);
}

TEST_F(KitTest, AWriteIsShortenedByOrderAndACloseFailsThatWasDone)
{
    Kit::Terminal line("/dev/ttymxc0");
    const int fd = open("/dev/ttymxc0", O_RDWR | O_NOCTTY);
    ASSERT_GT(fd, 0);
    Kit::System::Shorten("write", 2);
    EXPECT_EQ(write(fd, "abc", 3), 3);
    EXPECT_EQ(write(fd, "def", 3), 1);
    EXPECT_EQ(write(fd, "ghi", 3), 3);
    EXPECT_EQ(line.Received(), "abcdghi");
    Kit::System::FailWhenDone("close", EIO);
    EXPECT_EQ(close(fd), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "it is closed";
    EXPECT_EQ(Kit::System::FailuresDone(), 2);
}

TEST_F(KitTest, ThreadsAndMemoryAreRefusedByOrder)
{
    Kit::System::RefuseThreads(2);
    std::thread([] {}).join();
    EXPECT_THROW(std::thread([] {}), std::system_error);
    std::thread([] {}).join();
    if (!Kit::Leaks::CanCount())
    {
        return; // the sanitizer has the memory
    }
    Kit::Leaks::RefuseAllocations(2, 2);
    auto first = std::make_unique<int>(1);
    int refused = 0;
    for (int i = 0; i < 2; ++i)
    {
        try
        {
            static_cast<void>(std::make_unique<int>(2));
        }
        catch (const std::bad_alloc&)
        {
            ++refused;
        }
    }
    first = std::make_unique<int>(3);
    EXPECT_EQ(refused, 2);
    EXPECT_EQ(Kit::Leaks::RefusalsDone(), 2);
}

TEST_F(KitTest, ReportedSettingsAreFoundUntilOthersAreMade)
{
    Kit::Terminal line("/dev/ttymxc0");
    const int fd = open("/dev/ttymxc0", O_RDWR | O_NOCTTY);
    struct termios settings = {};
    ASSERT_EQ(tcgetattr(fd, &settings), 0);
    const struct termios real = settings;
    settings.c_cflag |= PARENB;
    Kit::System::ReportSettings(settings);
    settings = {};
    EXPECT_EQ(tcgetattr(fd, &settings), 0);
    EXPECT_EQ(settings.c_cflag, real.c_cflag | PARENB);
    EXPECT_EQ(tcsetattr(fd, TCSANOW, &real), 0);
    EXPECT_EQ(Kit::System::LastSettings().c_cflag, real.c_cflag);
    EXPECT_EQ(tcgetattr(fd, &settings), 0);
    EXPECT_EQ(settings.c_cflag, real.c_cflag);
    close(fd);
}

TEST_F(KitTest, AMessageDeviceCarriesMessagesAndAnswersIoctls)
{
    Kit::MessageDevice device("/dev/tav_event", [](unsigned long request, void* argument) {
        *static_cast<int*>(argument) = 7;
        return request == 100 ? 3 : -EPERM;
    });
    EXPECT_EQ(access("/dev/tav_event", F_OK), 0);
    const int fd = open("/dev/tav_event", O_RDWR | O_NONBLOCK);
    ASSERT_GT(fd, 0);
    int value = 0;
    EXPECT_EQ(ioctl(fd, 100, &value), 3);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(ioctl(fd, 101, &value), -1);
    EXPECT_EQ(errno, EPERM);
    Kit::System::Fail("ioctl", EIO);
    EXPECT_EQ(ioctl(fd, 100, &value), -1);
    EXPECT_EQ(errno, EIO);

    std::array<char, 8> bytes{};
    EXPECT_EQ(read(fd, bytes.data(), bytes.size()), -1);
    EXPECT_EQ(errno, EAGAIN);
    device.Send("one");
    device.Send("second");
    EXPECT_EQ(read(fd, bytes.data(), bytes.size()), 3);
    EXPECT_EQ(read(fd, bytes.data(), bytes.size()), 6);
    EXPECT_EQ(write(fd, "ab", 2), 2);
    EXPECT_EQ(write(fd, "c", 1), 1);
    EXPECT_THAT(device.Received(), testing::ElementsAre("ab", "c"));
    close(fd);
}

TEST_F(KitTest, TheLogsTemperatureTakesNoOrderedFailure)
{
    Kit::Terminal line("/dev/ttymxc0");
    Kit::System::Fail("open", EIO);
    EXPECT_EQ(open("/sys/class/thermal/thermal_zone0/temp", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(open("/dev/ttymxc0", O_RDWR | O_NOCTTY), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(Kit::System::Calls().size(), 1u);
}

TEST(KitSafetyTest, ARealUnmountEndsTheProgram)
{
    const Kit::ChildResult child = Kit::RunInChild([] { return umount2("/mnt/nowhere", 0); });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_THAT(child.output, testing::HasSubstr("the test reached a real umount2"));
}

}

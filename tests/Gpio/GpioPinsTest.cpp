// The output lines: opening, closing and writing, and the sequences made of writes.

#include "Gpio/GpioCore.h"
#include "tests/Gpio/GpioTest.h"
#include "tests/kit/Child.h"
#include "tests/kit/ClosedStreams.h"
#include "tests/kit/Interruptions.h"
#include "tests/kit/Leaks.h"
#include "tests/kit/MessageDevice.h"
#include "tests/kit/TempDir.h"

#include <array>
#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <mutex>
#include <type_traits>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

/// For each sync() how many volumes had been unmounted, or -1 when something had been printed already.
/// Nothing of this machine is written out.
std::vector<int> syncs; // NOLINT(cert-err58-cpp)

}

extern "C" __attribute__((visibility("default"))) void sync() noexcept
{
    const auto* const printed = dynamic_cast<GpioTests::Printed*>(std::cout.rdbuf());
    const bool silent = printed != nullptr && printed->IsEmpty();
    syncs.push_back(silent ? static_cast<int>(Kit::System::CallsOf("umount2").size()) : -1);
}

namespace GpioTests
{

namespace
{

using Kit::Clock;
using Kit::System;
using Tavbase::Interfaces::IError;

static_assert(std::is_base_of_v<IError, GpioCore> && std::is_convertible_v<GpioCore*, IError*>);
static_assert(std::has_virtual_destructor_v<GpioCore>);
static_assert(sizeof(GpioCore) == sizeof(IError), "the objects carry nothing of their own");
static_assert(std::is_same_v<decltype(&GpioCore::Initialize), bool (*)()>);
static_assert(std::is_same_v<decltype(&GpioCore::Close), void (*)()>);
static_assert(std::is_same_v<decltype(&GpioCore::SetPin), bool (*)(unsigned int, unsigned int)>);
static_assert(std::is_same_v<decltype(&GpioCore::Pool), bool (GpioCore::*)(int&)>);

using GpioPinsTest = GpioTest;
using GpioPinsAloneTest = GpioAloneTest;

// Opening and closing ------------------------------------------------------------------------------------

TEST_F(GpioPinsTest, AnObjectIsNamedAndDoesNotTouchTheDevice)
{
    {
        const GpioCore core;
        EXPECT_EQ(core.GetNamespaceName(), "Tavdevice::Gpio");
        EXPECT_EQ(core.GetClassName(), "GpioCore");
        EXPECT_FALSE(core.HasError());
    }
    EXPECT_THAT(System::Calls(), IsEmpty());
}

TEST_F(GpioPinsTest, AnObjectLeavesTheDeviceOpenForTheOthers)
{
    {
        const GpioCore core;
        EXPECT_TRUE(GpioCore::Initialize());
    }
    EXPECT_THAT(System::CallsOf("close"), IsEmpty());
    EXPECT_TRUE(GpioCore::SetPin(100, 1));
    EXPECT_EQ(Opens(), 1u);
}

TEST_F(GpioPinsTest, TheDeviceIsOpenedOnceForReadingAndWriting)
{
    EXPECT_TRUE(GpioCore::Initialize());
    EXPECT_TRUE(GpioCore::Initialize());
    EXPECT_TRUE(GpioCore::SetPin(104, 1));
    EXPECT_TRUE(GpioCore::Initialize());
    ASSERT_EQ(Opens(), 1u);
    const System::Call opened = System::CallsOf("open").front();
    EXPECT_EQ(opened.path, "/dev/tav_event");
    EXPECT_EQ(opened.argument, O_RDWR) << "and as a device that waits";
}

TEST_F(GpioPinsTest, ThreadsThatComeFirstTogetherOpenTheDeviceOnce)
{
    std::atomic<bool> go{false};
    std::atomic<int> opened{0};
    std::vector<std::thread> threads;
    for (unsigned int pin = 100; pin < 108; ++pin)
    {
        threads.emplace_back([&, pin] {
            while (!go)
            {
                std::this_thread::yield();
            }
            opened += GpioCore::SetPin(pin, 1) ? 1 : 0;
        });
    }
    go = true;
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(opened, 8);
    EXPECT_EQ(Opens(), 1u);
    EXPECT_THAT(driver.Written(), SizeIs(8));
}

TEST_F(GpioPinsAloneTest, WithoutADeviceEachOperationTriesToOpenItAndFailsInSilence)
{
    EXPECT_FALSE(GpioCore::Initialize());
    EXPECT_FALSE(GpioCore::SetPin(100, 1));
    EXPECT_FALSE(GpioCore::TurnOffIRLEDs());
    EXPECT_EQ(Opens(), 3u);
    EXPECT_THAT(System::CallsOf("ioctl"), IsEmpty());
    EXPECT_TRUE(printed.IsEmpty());
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(GpioPinsTest, ADeviceThatCouldNotBeOpenedIsTriedAgain)
{
    System::Fail("open", EBUSY, 1, 2);
    EXPECT_FALSE(GpioCore::Initialize());
    EXPECT_FALSE(GpioCore::SetPin(100, 1));
    EXPECT_TRUE(GpioCore::SetPin(101, 1));
    EXPECT_THAT(driver.Written(), ElementsAre(Pin(101, 1)));
}

TEST_F(GpioPinsTest, AfterASuccessfulCloseTheDeviceIsNotOpenedAgain)
{
    ASSERT_TRUE(GpioCore::Initialize());
    GpioCore::Close();
    ASSERT_THAT(System::CallsOf("close"), SizeIs(1));
    EXPECT_EQ(System::CallsOf("close").front().fd, System::CallsOf("open").front().result);
    EXPECT_TRUE(GpioCore::Initialize());
    EXPECT_TRUE(GpioCore::SetPin(100, 1)) << "the driver's answer is not looked at, nor that there is none";
    EXPECT_EQ(Opens(), 1u);
    EXPECT_THAT(driver.Written(), IsEmpty());
}

TEST_F(GpioPinsTest, AfterACloseTheFileThatGetsTheNumberIsReadAndClosed)
{
    ASSERT_TRUE(GpioCore::Initialize());
    const auto number = static_cast<int>(System::CallsOf("open").front().result);
    GpioCore::Close();
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ASSERT_EQ(dup2(ends[0], number), number);
    ASSERT_EQ(write(ends[1], "\3 own", 5), 5);

    driver.Trigger(4);
    int trigger = 0;
    EXPECT_TRUE(GpioCore().Pool(trigger));
    EXPECT_EQ(trigger, 3) << "a byte of a file that is not the driver's";
    GpioCore::Close();
    EXPECT_EQ(fcntl(number, F_GETFD), -1) << "and it is closed";
    close(ends[0]);
    close(ends[1]);
}

TEST_F(GpioPinsTest, AFailedCloseLetsTheDeviceBeOpenedAgain)
{
    ASSERT_TRUE(GpioCore::Initialize());
    const int left = static_cast<int>(System::CallsOf("open").front().result);
    System::Fail("close", EIO);
    GpioCore::Close();
    EXPECT_TRUE(GpioCore::Initialize());
    EXPECT_EQ(Opens(), 2u);
    EXPECT_TRUE(GpioCore::SetPin(100, 1));
    EXPECT_EQ(System::CallsOf("ioctl").front().fd, System::CallsOf("open").back().result);
    close(left);
}

TEST_F(GpioPinsTest, CloseBeforeTheFirstUseDoesNothing)
{
    GpioCore::Close();
    EXPECT_THAT(System::Calls(), IsEmpty());
    EXPECT_TRUE(GpioCore::SetPin(100, 1));
    EXPECT_THAT(driver.Written(), SizeIs(1));
}

TEST(GpioDescriptorTest, DescriptorZeroCountsAsOpen)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        EventDriver driver;
        close(STDIN_FILENO);
        EXPECT_TRUE(GpioCore::Initialize());
        EXPECT_EQ(System::CallsOf("open").at(0).result, STDIN_FILENO);
        EXPECT_TRUE(GpioCore::SetPin(100, 1));
        driver.Trigger(3);
        GpioCore core;
        int trigger = 0;
        EXPECT_TRUE(core.Pool(trigger));
        EXPECT_EQ(trigger, 3);
        EXPECT_THAT(driver.Written(), ElementsAre(Pin(100, 1)));
        EXPECT_THAT(System::CallsOf("open"), SizeIs(1));
        GpioCore::Close();
        EXPECT_THAT(System::CallsOf("close"), SizeIs(1));
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exitStatus, 0) << child.output;
}

// Writing ------------------------------------------------------------------------------------------------

TEST_F(GpioPinsTest, APinsNumberIsTheRequestAndItsValueTheArgument)
{
    Pins wanted;
    for (unsigned int pin = 100; pin <= 106; ++pin)
    {
        for (const unsigned int value : {1u, 0u})
        {
            EXPECT_TRUE(GpioCore::SetPin(pin, value));
            wanted.emplace_back(pin, value);
        }
    }
    EXPECT_EQ(driver.Written(), wanted);
    for (const System::Call& call : System::CallsOf("ioctl"))
    {
        EXPECT_EQ(call.fd, System::CallsOf("open").front().result);
    }
}

TEST_F(GpioPinsTest, WhatTheDriverAnswersIsIgnored)
{
    for (const int answer : {0, 1, -EIO, -ENOTTY, -EINTR})
    {
        driver.AnswerBy([answer](const PinWrite&) { return answer; });
        EXPECT_TRUE(GpioCore::SetPin(100, 1)) << answer;
        EXPECT_TRUE(GpioCore::TurnOffIRLEDs()) << answer;
    }
    EXPECT_THAT(driver.Written(), SizeIs(10)) << "no write is repeated";
    EXPECT_TRUE(printed.IsEmpty());
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(GpioPinsTest, WritesOfSeveralThreadsComeOneAtATime)
{
    constexpr unsigned int WRITES = 500;
    std::atomic<int> inside{0};
    std::atomic<int> together{0};
    driver.AnswerBy([&](const PinWrite&) {
        together += ++inside > 1 ? 1 : 0;
        std::this_thread::yield();
        --inside;
        return 0;
    });
    std::vector<std::thread> threads;
    for (unsigned int pin = 100; pin < 104; ++pin)
    {
        threads.emplace_back([pin] {
            for (unsigned int value = 0; value < WRITES; ++value)
            {
                GpioCore::SetPin(pin, value);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(together, 0);
    EXPECT_THAT(driver.Written(), SizeIs(4 * WRITES));
}

TEST_F(GpioPinsTest, AWriteAndACloseDoNotComeTogether)
{
    std::atomic<bool> closed{false};
    std::thread closer;
    driver.AnswerBy([&](const PinWrite&) {
        closer = std::thread([&] {
            GpioCore::Close();
            closed = true;
        });
        LetOthersRun(); // by now it would have closed
        EXPECT_FALSE(closed);
        return 0;
    });
    EXPECT_TRUE(GpioCore::SetPin(100, 1));
    closer.join();
    EXPECT_TRUE(closed);
}

// Sequences ----------------------------------------------------------------------------------------------

TEST_F(GpioPinsTest, TheInfraredLedsAreSwitchedOff)
{
    EXPECT_TRUE(GpioCore::TurnOffIRLEDs());
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{104, 0, 0ms}));
}

TEST_F(GpioPinsTest, ThePowerLineIsPulsedFor100Milliseconds)
{
    EXPECT_TRUE(GpioCore::ShutDownIfIgnitionOff());
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{105, 0, 0ms}, PinWrite{105, 1, 100ms}));
    EXPECT_EQ(Clock::Elapsed(), 100ms);
    EXPECT_THAT(System::Sleeps(), ElementsAre(100ms));
    EXPECT_TRUE(printed.IsEmpty());
}

TEST_F(GpioPinsTest, SignalsDoNotShortenThePulse)
{
    {
        const Kit::Interruptions interruptions({30ms, 60ms});
        EXPECT_TRUE(GpioCore::ShutDownIfIgnitionOff());
    }
    EXPECT_EQ(Kit::Interruptions::Count(), 2);
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{105, 0, 0ms}, PinWrite{105, 1, 100ms}));
}

TEST_F(GpioPinsTest, ThePowerLineIsDrivenBackThoughItsFirstWriteFailed)
{
    driver.AnswerBy([](const PinWrite& write) { return write.value == 0 ? -EIO : 0; });
    EXPECT_TRUE(GpioCore::ShutDownIfIgnitionOff());
    EXPECT_EQ(driver.Writes().back(), (PinWrite{105, 1, 100ms}));
}

TEST_F(GpioPinsTest, ThePowerLineIsDrivenBackThoughTheDeviceCameLate)
{
    System::Fail("open", ENXIO);
    EXPECT_TRUE(GpioCore::ShutDownIfIgnitionOff());
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{105, 1, 100ms}));
}

TEST_F(GpioPinsAloneTest, ThePulseTakesItsTimeWithoutADevice)
{
    EXPECT_FALSE(GpioCore::ShutDownIfIgnitionOff());
    EXPECT_EQ(Clock::Elapsed(), 100ms);
    EXPECT_EQ(Opens(), 2u);
}

TEST_F(GpioPinsTest, TheHubIsResetFor20MillisecondsAndGiven8Seconds)
{
    EXPECT_TRUE(GpioCore::HWResetUsbHub());
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{106, 0, 0ms}, PinWrite{106, 1, 20ms}));
    EXPECT_EQ(Clock::Elapsed(), 8020ms);
    EXPECT_THAT(System::Sleeps(), ElementsAre(20ms, 8s));
}

TEST_F(GpioPinsTest, SignalsShortenNeitherPauseOfTheHubsReset)
{
    {
        const Kit::Interruptions interruptions({10ms, 1s, 7s});
        EXPECT_TRUE(GpioCore::HWResetUsbHub());
    }
    EXPECT_EQ(Kit::Interruptions::Count(), 3);
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{106, 0, 0ms}, PinWrite{106, 1, 20ms}));
    EXPECT_EQ(Clock::Elapsed(), 8020ms);
}

TEST_F(GpioPinsAloneTest, WithoutADeviceTheHubsResetDoesNotSleep)
{
    EXPECT_FALSE(GpioCore::HWResetUsbHub());
    EXPECT_EQ(Clock::Elapsed(), 0ms);
    EXPECT_THAT(System::Sleeps(), IsEmpty());
    EXPECT_EQ(Opens(), 1u);
}

TEST_F(GpioPinsTest, AHubThatCannotBeReleasedIsNotWaitedFor)
{
    std::thread thief([] { // takes the device away within the 20 ms
        std::this_thread::sleep_for(10ms);
        System::Fail("close", EIO);
        GpioCore::Close();
        close(System::CallsOf("close").front().fd);
        System::Fail("open", ENXIO);
    });
    EXPECT_FALSE(GpioCore::HWResetUsbHub());
    thief.join();
    EXPECT_EQ(Clock::Elapsed(), 20ms);
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{106, 0, 0ms}));
}

// The end ------------------------------------------------------------------------------------------------

class GpioShutDownTest : public GpioTest
{
protected:
    GpioShutDownTest()
    {
        const std::string table = Kit::TempDir::Path() + "/mounts";
        std::ofstream(table) << "/dev/root / ext4 rw 0 0\n"
                                "/dev/mmcblk1p1 /mnt/sdcard vfat rw 0 0\n"
                                "/dev/mmcblk0p2 /data ext4 rw 0 0\n";
        System::Redirect("/proc/self/mounts", table);
        System::AnswerUnmounts();
    }

    ~GpioShutDownTest() override
    {
        syncs.clear();
        syncs.shrink_to_fit();
    }
};

TEST_F(GpioShutDownTest, UnmountsThenSaysSoThenCutsThePower)
{
    driver.AnswerBy([this](const PinWrite&) {
        EXPECT_THAT(printed.Texts(), ElementsAre("POWER OFF, Bye.\n")) << "flushed before the power goes";
        EXPECT_THAT(System::CallsOf("umount2"), SizeIs(2));
        return 0;
    });
    EXPECT_TRUE(GpioCore::ShutDown());
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{105, 0, 0ms}));
    EXPECT_THAT(syncs, ElementsAre(0, 2)) << "nothing was printed before all was unmounted";
    EXPECT_THAT(printed.Texts(), ElementsAre("POWER OFF, Bye.\n"));
    EXPECT_THAT(log.Console(), IsEmpty());
    EXPECT_THAT(log.File(), IsEmpty());
}

TEST_F(GpioShutDownTest, WithoutMemoryThePowerIsCutAllTheSame)
{
    constexpr std::int64_t ALL = 1'000'000;
    if (!Kit::Leaks::CanCount())
    {
        GTEST_SKIP() << "under a sanitizer memory cannot be refused here";
    }
    syncs.reserve(8);
    Kit::Leaks::RefuseAllocations(1, ALL);
    const bool done = GpioCore::ShutDown();
    EXPECT_GT(Kit::Leaks::RefusalsDone(), 0);
    EXPECT_TRUE(done);
    EXPECT_THAT(driver.Writes(), ElementsAre(PinWrite{105, 0, 0ms}));
}

TEST_F(GpioShutDownTest, AVolumeThatStaysMountedAndADriverThatRefusesDoNotStopIt)
{
    System::Fail("umount2", EBUSY, 1, 2);
    driver.AnswerBy([](const PinWrite&) { return -EIO; });
    EXPECT_TRUE(GpioCore::ShutDown());
    EXPECT_THAT(driver.Written(), ElementsAre(Pin(105, 0)));
    EXPECT_THAT(printed.Texts(), ElementsAre("POWER OFF, Bye.\n"));
    EXPECT_THAT(log.ConsoleOnly(),
                ElementsAre("[ERROR]Unable to unmount /mnt/sdcard: Device or resource busy",
                            "[ERROR]Unable to unmount /data: Device or resource busy"));
}

TEST_F(GpioShutDownTest, WithoutADeviceItUnmountsAndFails)
{
    System::Fail("open", ENOENT, 2, 8); // the first is that of the mount table
    EXPECT_FALSE(GpioCore::ShutDown());
    EXPECT_THAT(System::CallsOf("umount2"), SizeIs(2));
    EXPECT_THAT(printed.Texts(), ElementsAre("POWER OFF, Bye.\n"));
    EXPECT_THAT(driver.Written(), IsEmpty());
}

// Standard streams that are closed -----------------------------------------------------------------------

KIT_PROGRAM(GpioWithoutStreams)
{
    std::vector<unsigned long> pins;
    Kit::MessageDevice device(DEVICE, [&](unsigned long pin, void*) {
        pins.push_back(pin);
        KIT_REQUIRE(Kit::ClosedStreams::WereKept());
        return 0;
    });
    const Kit::ClosedStreams closed;
    KIT_REQUIRE(GpioCore::Initialize());
    Kit::ClosedStreams::Print();
    KIT_REQUIRE(device.Received().empty());
    KIT_REQUIRE(GpioCore::SetPin(100, 1));
    KIT_REQUIRE(pins == std::vector<unsigned long>{100});
    GpioCore::Close();
    return 0;
}

TEST(GpioDescriptorTest, NothingThatIsPrintedGetsToTheDriverWhenAStandardStreamIsClosed)
{
    Kit::ClosedStreams::Run("GpioWithoutStreams");
}

}

}

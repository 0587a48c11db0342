// The manager's thread: delivery, pauses where the device fails, start and end.

#include "Gpio/GpioManager.h"
#include "base/Tavbase/Util/Tick.h"
#include "tests/Gpio/GpioTest.h"
#include "tests/Gpio/Listener.h"
#include "tests/kit/LogCapture.h"
#include "tests/kit/Program.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <semaphore>

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace GpioTests
{

namespace
{

using Kit::Clock;
using Kit::System;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

/// A manager that can be stopped without being destroyed.
class Stoppable : public GpioManager
{
public:
    using GpioManager::GpioManager;
    using GpioManager::StopWorker;

    Stoppable(const Stoppable&) = delete;
    Stoppable& operator=(const Stoppable&) = delete;

    ~Stoppable() override { StopWorker(); }
};

/// A manager with one listener.
template <class Manager>
class WatchBy
{
public:
    explicit WatchBy(std::function<void(const GpioArgs&)> action = nullptr) : listener(std::move(action))
    {
        GpioOutput* listeners[] = {&listener};
        manager.emplace(listeners, 1u);
    }

    GpioOutput listener;
    std::optional<Manager> manager;
};

using Watch = WatchBy<GpioManager>;

std::vector<nanoseconds> Differences(const std::vector<nanoseconds>& times)
{
    std::vector<nanoseconds> differences;
    for (std::size_t i = 1; i < times.size(); ++i)
    {
        differences.push_back(times[i] - times[i - 1]);
    }
    return differences;
}

using GpioManagerThreadTest = GpioTest;
using GpioManagerAloneTest = GpioAloneTest;

// Delivery -----------------------------------------------------------------------------------------------

TEST_F(GpioManagerThreadTest, DeliversTheTriggersInOrderOnItsThread)
{
    std::string threadName;
    Watch watch([&](const GpioArgs&) { std::getline(std::ifstream("/proc/thread-self/comm"), threadName); });
    watch.manager->startupFilter = false;
    driver.Trigger(5);
    LetOthersRun();
    EXPECT_THAT(watch.listener.Codes(), IsEmpty());
    EXPECT_EQ(Opens(), 0u);
    watch.manager->RunIgnitionStart();
    EXPECT_TRUE(watch.manager->IsRunning());
    for (const int code : {4, 6, 1, 0, 2, 200, 3})
    {
        driver.Trigger(code);
    }
    EXPECT_TRUE(Clock::WaitUntil([&] { return watch.listener.Count() == 5; }));
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(5, 4, 1, 2, 3));
    EXPECT_NE(watch.listener.LastThread(), std::this_thread::get_id());
    watch.manager.reset();
    EXPECT_EQ(threadName, "GPIO");
    EXPECT_THAT(log.File(), ElementsAre("[GPIO] ===> Got trigger [5]", "[GPIO] ===> Got trigger [4]",
                                        "[GPIO] ===> Got trigger [6]", "[GPIO] ===> Got trigger [1]",
                                        "[GPIO] ===> Got trigger [2]", "[GPIO] ===> Got trigger [200]",
                                        "[GPIO] ===> Got trigger [3]"))
        << "what is not delivered is logged all the same";
}

TEST_F(GpioManagerThreadTest, AStartWhileItRunsDoesNothing)
{
    Watch watch;
    watch.manager->RunIgnitionStart();
    watch.manager->RunIgnitionStart();
    driver.Trigger(3);
    LetOthersRun();
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(3));
}

TEST_F(GpioManagerThreadTest, ASlowListenerDelaysTheNextTriggerAndLosesNone)
{
    std::vector<nanoseconds> times;
    Watch watch([&](const GpioArgs&) {
        times.push_back(Clock::Elapsed());
        std::this_thread::sleep_for(2s);
    });
    watch.manager->RunIgnitionStart();
    for (const int code : {3, 4, 3})
    {
        driver.Trigger(code);
    }
    std::this_thread::sleep_for(7s);
    watch.manager.reset();
    EXPECT_THAT(times, ElementsAre(0s, 2s, 4s));
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(3, 4, 3));
}

TEST_F(GpioManagerThreadTest, TheStartUpPeriodEndsWhileItRuns)
{
    Tavbase::Util::Tick::GetInstance().Set(0);
    Watch watch;
    watch.manager->RunIgnitionStart();
    for (int second = 0; second < 22; ++second)
    {
        driver.Trigger(second % 2 == 0 ? 1 : 4);
        std::this_thread::sleep_for(1s);
    }
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 1, 4));
}

TEST_F(GpioManagerThreadTest, CanBeStartedAgain)
{
    WatchBy<Stoppable> watch;
    for (const int code : {3, 4, 3})
    {
        watch.manager->RunIgnitionStart();
        driver.Trigger(code);
        LetOthersRun();
        watch.manager->StopWorker();
        EXPECT_FALSE(watch.manager->IsRunning());
    }
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(3, 4, 3));
    EXPECT_EQ(Opens(), 1u);
}

// Pauses -------------------------------------------------------------------------------------------------

TEST_F(GpioManagerAloneTest, WithoutADeviceThePausesGrowToASecond)
{
    Watch watch;
    watch.manager->RunIgnitionStart();
    std::this_thread::sleep_for(5s);
    watch.manager.reset();
    EXPECT_THAT(printed.Texts(),
                AllOf(SizeIs(11), Each(std::string("Event module driver could not be open.\n"))));
    EXPECT_EQ(printed.Times().front(), 0ms);
    EXPECT_THAT(Differences(printed.Times()),
                ElementsAre(10ms, 20ms, 40ms, 80ms, 160ms, 320ms, 640ms, 1s, 1s, 1s));
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(GpioManagerThreadTest, ATriggerSetsThePauseBack)
{
    System::Fail("poll", EIO, 1, 4);
    Watch watch;
    watch.manager->RunIgnitionStart();
    std::this_thread::sleep_for(1s);
    EXPECT_THAT(printed.Times(), ElementsAre(0ms, 10ms, 30ms, 70ms));
    System::Fail("poll", EIO, 3, 4); // the wait at hand has been counted already
    driver.Trigger(3);
    driver.Trigger(4);
    driver.Trigger(3);
    std::this_thread::sleep_for(1s);
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(3, 4, 3));
    EXPECT_THAT(printed.Times(), ElementsAre(0ms, 10ms, 30ms, 70ms, 1000ms, 1010ms, 1030ms, 1070ms));
}

TEST_F(GpioManagerThreadTest, ATriggerBehindAnyNumberOfZerosArrivesAtOnce)
{
    Watch watch;
    watch.manager->RunIgnitionStart();
    for (const int zeros : {1, 8, 100})
    {
        for (int zero = 0; zero < zeros; ++zero)
        {
            driver.Trigger(0);
        }
        driver.Trigger(3);
        LetOthersRun();
    }
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(3, 3, 3));
    EXPECT_EQ(Clock::Elapsed(), 3ms);
}

TEST_F(GpioManagerThreadTest, ATriggerAfterZerosThatCameOneByOneArrivesAtOnce)
{
    Watch watch;
    watch.manager->RunIgnitionStart();
    for (int zero = 0; zero < 10; ++zero)
    {
        driver.Trigger(0);
        LetOthersRun();
    }
    driver.Trigger(3);
    LetOthersRun();
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(3));
}

TEST_F(GpioManagerThreadTest, ADeviceThatHangsUpIsNotPolledWithoutPause)
{
    Watch watch;
    watch.manager->RunIgnitionStart();
    LetOthersRun();
    driver.HangUp();
    std::this_thread::sleep_for(60s);
    EXPECT_LE(System::CallsOf("poll").size(), 70u);
    EXPECT_TRUE(printed.IsEmpty());
}

TEST_F(GpioManagerAloneTest, ADeviceThatAppearsLaterIsUsed)
{
    Watch watch;
    watch.manager->RunIgnitionStart();
    std::this_thread::sleep_for(10s);
    EventDriver late;
    late.Trigger(4);
    std::this_thread::sleep_for(1s);
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(4));
    watch.manager.reset();
    ForgetDevice();
}

TEST_F(GpioManagerAloneTest, DestructionEndsThePauseAtOnce)
{
    Watch watch;
    watch.manager->RunIgnitionStart();
    std::this_thread::sleep_for(1900ms); // within the first pause of a second, which began at 1270 ms
    watch.manager.reset();
    EXPECT_EQ(Clock::Elapsed(), 1900ms);
}

// The end ------------------------------------------------------------------------------------------------

TEST_F(GpioManagerThreadTest, DestructionWaitsForTheEventThatIsBeingDelivered)
{
    std::atomic<bool> ended{false};
    Watch watch([&](const GpioArgs&) {
        std::this_thread::sleep_for(300ms);
        ended = true;
    });
    watch.manager->RunIgnitionStart();
    driver.Trigger(3);
    driver.Trigger(4);
    LetOthersRun();
    watch.manager.reset();
    EXPECT_TRUE(ended);
    EXPECT_THAT(watch.listener.Codes(), ElementsAre(3)) << "the next one is not begun";
}

/// Real time at the end: how long destruction takes must not depend on the virtual clock.
class GpioManagerEndTest : public testing::Test
{
protected:
    void TearDown() override { ForgetDevice(); }

    static constexpr std::chrono::minutes LONGEST{1}; // against hanging, however busy the machine is

    Printed printed;
    Kit::LogCapture log;
    EventDriver driver;
};

TEST_F(GpioManagerEndTest, DestructionEndsAThreadThatWaitsForEver)
{
    std::optional<Clock> clock(std::in_place);
    Watch watch;
    watch.manager->RunIgnitionStart();
    driver.Trigger(3);
    std::this_thread::sleep_for(1ms); // returns when the thread waits
    ASSERT_THAT(watch.listener.Codes(), ElementsAre(3));
    clock.reset();
    const auto begin = std::chrono::steady_clock::now();
    watch.manager.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, LONGEST);
    EXPECT_THAT(log.File(), ElementsAre("[GPIO] ===> Got trigger [3]"));
    EXPECT_TRUE(log.RawFile().ends_with("\n"));
    EXPECT_THAT(System::CallsOf("poll"), testing::SizeIs(2)) << "the second was interrupted";
    EXPECT_TRUE(printed.IsEmpty()) << "in good order: there is nothing to tell";
    EXPECT_TRUE(GpioCore::SetPin(100, 1)) << "the device stays open";
    EXPECT_THAT(System::CallsOf("close"), IsEmpty());
}

TEST_F(GpioManagerEndTest, DestructionRightAfterTheStartIsPromptToo)
{
    for (int round = 0; round < 100; ++round)
    {
        Watch watch;
        watch.manager->RunIgnitionStart();
        driver.Trigger(3);
        const auto begin = std::chrono::steady_clock::now();
        watch.manager.reset();
        ASSERT_LT(std::chrono::steady_clock::now() - begin, LONGEST) << round;
    }
    for (const std::string& line : log.File())
    {
        EXPECT_EQ(line, "[GPIO] ===> Got trigger [3]");
    }
}

/// Standard output leads into a pipe that nobody reads, and that is full.
class FullOutput
{
public:
    FullOutput()
    {
        if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0 || dup2(ends[1], STDOUT_FILENO) < 0)
        {
            std::abort();
        }
        const std::string filling(4096, '.');
        while (write(ends[1], filling.data(), filling.size()) > 0)
        {
        }
        fcntl(ends[1], F_SETFL, 0); // writes wait from now on
    }

    FullOutput(const FullOutput&) = delete;
    FullOutput& operator=(const FullOutput&) = delete;

    ~FullOutput()
    {
        close(ends[0]);
        close(ends[1]);
    }

    /// What is in it by now, but for the filling, which is of dots.
    std::string Take() const
    {
        std::string text;
        std::array<char, 65536> part{};
        for (ssize_t count = 0; (count = read(ends[0], part.data(), part.size())) > 0;)
        {
            text.append(part.data(), static_cast<std::size_t>(count));
        }
        std::erase(text, '.');
        return text;
    }

private:
    std::array<int, 2> ends{};
};

KIT_PROGRAM(DestructionWhileTheThreadPrints)
{
    const Clock clock;
    const FullOutput output;
    Watch watch;
    watch.manager->RunIgnitionStart(); // there is no device, which it tells
    std::this_thread::sleep_for(1ms);
    std::thread destroyer([&] { watch.manager.reset(); });
    std::this_thread::sleep_for(50ms);
    std::string printed = output.Take();
    destroyer.join();
    std::cout << "and the application goes on" << std::endl;
    printed += output.Take();
    return std::cout.good() &&
                   printed == "Event module driver could not be open\nand the application goes on\n"
               ? 0
               : 1;
}

TEST(GpioManagerOutputTest, DestructionInterruptsNothingThatIsPrinted)
{
    const Kit::ChildResult result = Kit::RunProgram("DestructionWhileTheThreadPrints");
    EXPECT_EQ(result.exitStatus, 0) << result.output;
}

std::atomic<int> applicationHandled{0};

KIT_PROGRAM(SignalsAroundAManager)
{
    const std::vector<int> taken = {SIGINT, SIGTERM, SIGUSR1, SIGUSR2, SIGALRM, SIGRTMIN, SIGRTMAX};
    const auto handler = [](int) { ++applicationHandled; };
    for (const int number : taken)
    {
        struct sigaction wanted = {};
        wanted.sa_handler = handler;
        wanted.sa_flags = SA_RESTART;
        sigaction(number, &wanted, nullptr);
    }
    std::vector<struct sigaction> before(static_cast<std::size_t>(SIGRTMAX) + 1);
    for (int number = 1; number <= SIGRTMAX; ++number)
    {
        sigaction(number, nullptr, &before[static_cast<std::size_t>(number)]);
    }
    {
        const Clock clock;
        EventDriver driver;
        Watch watch;
        watch.manager->RunIgnitionStart();
        std::this_thread::sleep_for(1ms);
        watch.manager.reset();
        ForgetDevice();
    }
    int changed = 0;
    for (int number = 1; number <= SIGRTMAX; ++number)
    {
        struct sigaction now = {};
        sigaction(number, nullptr, &now);
        const struct sigaction& then = before[static_cast<std::size_t>(number)];
        if (now.sa_handler != then.sa_handler || now.sa_flags != then.sa_flags)
        {
            ++changed;
            std::fprintf(stderr, "signal %d of %d has changed\n", number, SIGRTMAX);
            if (then.sa_handler != SIG_DFL || number < SIGRTMIN)
            {
                return 1;
            }
        }
    }
    // The library takes one real-time signal that nobody uses, for good.
    return changed == 1 && applicationHandled == 0 ? 0 : 2;
}

TEST(GpioManagerSignalsTest, TheApplicationsDispositionsStayAsTheyAre)
{
    const Kit::ChildResult result = Kit::RunProgram("SignalsAroundAManager");
    EXPECT_EQ(result.exitStatus, 0) << result.output;
}

// Load ---------------------------------------------------------------------------------------------------

/// In real time. With each burst of triggers four threads get pins to drive.
TEST(GpioManagerLoadTest, EveryTriggerIsDeliveredOnceAndInOrderWhilePinsAreDriven)
{
#ifdef __SANITIZE_THREAD__
    constexpr std::size_t TRIGGERS = 10'000; // each takes many times as long
#else
    constexpr std::size_t TRIGGERS = 100'000;
#endif
    constexpr unsigned int FIRST_PIN = 100;
    constexpr unsigned int DRIVERS = 4;
    Printed printed;
    const Kit::LogCapture log;
    std::array<std::uintptr_t, DRIVERS> levels{};
    std::atomic<int> inside{0};
    std::atomic<int> wrong{0};
    Kit::MessageDevice device(DEVICE, [&](unsigned long pin, void* value) {
        // One after the other: `levels` needs no lock of its own.
        wrong += ++inside > 1 ? 1 : 0;
        std::uintptr_t& level = levels.at(pin - FIRST_PIN);
        wrong += reinterpret_cast<std::uintptr_t>(value) == ++level ? 0 : 1;
        --inside;
        return 0;
    });

    std::array<GpioOutput, 3> listeners;
    std::array<GpioOutput*, 3> registered = {&listeners[0], &listeners[1], &listeners[2]};
    std::optional<GpioManager> manager(std::in_place, registered.data(), 3u);
    manager->startupFilter = false;
    manager->RunIgnitionStart();
    std::counting_semaphore<> burst(0);
    std::atomic<bool> done{false};
    std::array<unsigned int, DRIVERS> driven{};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < DRIVERS; ++i)
    {
        threads.emplace_back([&, i] {
            while (!done)
            {
                for (int write = 0; write < 5; ++write)
                {
                    GpioCore::SetPin(FIRST_PIN + i, ++driven.at(i));
                }
                burst.acquire();
            }
        });
    }

    std::mt19937 random(20260301); // NOLINT(cert-msc51-cpp): the same in each run
    Codes sent;
    while (sent.size() < TRIGGERS)
    {
        burst.release(DRIVERS);
        for (std::size_t left = 1 + random() % 400; left > 0 && sent.size() < TRIGGERS; --left)
        {
            sent.push_back(static_cast<std::int32_t>(1 + random() % 5));
            device.Send(std::string(1, static_cast<char>(sent.back())) + "\1\2\3\4");
        }
        while (random() % 4 == 0 && listeners[2].Count() < sent.size())
        {
            std::this_thread::yield(); // now and then until the thread waits again
        }
    }
    // Ends without the last ones, too, when none has come for long.
    std::size_t delivered = 0;
    for (int idle = 0; idle < 10'000'000 && delivered < sent.size(); ++idle)
    {
        const std::size_t now = listeners[2].Count();
        idle = now > delivered ? 0 : idle;
        delivered = now;
        std::this_thread::yield();
    }
    done = true;
    burst.release(DRIVERS);
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    manager.reset();
    for (const GpioOutput& listener : listeners)
    {
        EXPECT_TRUE(listener.Codes() == sent);
    }
    EXPECT_EQ(wrong, 0);
    for (unsigned int i = 0; i < DRIVERS; ++i)
    {
        EXPECT_GT(driven.at(i), 0u);
        EXPECT_EQ(levels.at(i), driven.at(i));
    }
    EXPECT_THAT(log.File(), SizeIs(sent.size()));
    ForgetDevice();
}

}

}

#include "base/Tavbase/Interfaces/IThread.h"

#include "base/Tavbase/IException.h"
#include "base/Tavbase/Interfaces/ISemaphore.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"
#include "tests/kit/Child.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Emulator.h"
#include "tests/kit/Leaks.h"
#include "tests/kit/ThreadNames.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

using Kit::ThreadNames;
using Tavbase::Interfaces::ISemaphore;
using Tavbase::Interfaces::IThread;
using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace
{

static_assert(std::has_virtual_destructor_v<IThread>);
static_assert(std::has_virtual_destructor_v<IThread::IThreadDelegate>);

constexpr milliseconds POLL{1000}; // the second duration, as all callers pass it

/// A thread whose operations are set by the test; what it runs is kept in order.
class ThreadProbe : public IThread
{
public:
    explicit ThreadProbe(const std::string& threadName = "PROBE") { name = threadName; }

    ThreadProbe(const ThreadProbe&) = delete;
    ThreadProbe& operator=(const ThreadProbe&) = delete;

    ~ThreadProbe() override { Stop(); }

    int RunBefore() override
    {
        Note("before");
        return before();
    }

    void Run() override
    {
        Note("run");
        step();
    }

    void RunAfter() override
    {
        Note("after");
        after();
    }

    void Stopping() override
    {
        Note("stopping");
        stopping();
    }

    using IThread::DoCallback;
    using IThread::StopRequested;
    using IThread::ThreadSleep;

    std::vector<std::string> Events() const
    {
        const std::scoped_lock lock(access);
        return events;
    }

    /// Stopping() runs beside the thread: where it comes among the others is not settled.
    std::vector<std::string> EventsOfTheThread() const
    {
        std::vector<std::string> own = Events();
        std::erase(own, "stopping");
        return own;
    }

    bool HasEnded() const
    {
        return Kit::Clock::WaitUntil([this] { return !IsRunning(); });
    }

    std::function<int()> before = [] { return 1; };
    std::function<void()> step = [this] { Cancel(); };
    std::function<void()> after = [] {};
    std::function<void()> stopping = [] {};

private:
    void Note(const char* event)
    {
        const std::scoped_lock lock(access);
        events.emplace_back(event);
    }

    mutable std::mutex access;
    std::vector<std::string> events;
};

class IThreadTest : public Kit::DeviceTest
{
protected:
    /// In virtual time a sleep returns when every other thread waits: what they could do they have done.
    static void LetOthersRun() { std::this_thread::sleep_for(1ms); }
};

// Order and ends ---------------------------------------------------------------------------------------

TEST_F(IThreadTest, IsIdleUntilItIsStarted)
{
    const ThreadProbe probe;
    LetOthersRun();
    EXPECT_FALSE(probe.IsRunning());
    EXPECT_THAT(probe.Events(), IsEmpty());
    EXPECT_EQ(probe.GetName(), "PROBE");
}

TEST_F(IThreadTest, RunsBeforeThenTheStepsThenAfter)
{
    ThreadProbe probe;
    probe.step = [&] { probe.ThreadSleep(10ms, POLL); };
    EXPECT_TRUE(probe.Start());
    EXPECT_TRUE(probe.IsRunning());
    std::this_thread::sleep_for(35ms);
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "run", "run", "run"));
    probe.Stop();
    EXPECT_FALSE(probe.IsRunning());
    EXPECT_THAT(probe.EventsOfTheThread(), ElementsAre("before", "run", "run", "run", "run", "after"));
    EXPECT_THAT(probe.Events(), Contains("stopping").Times(1));
}

TEST_F(IThreadTest, RunsOnAThreadOfItsOwnAndAllThreeOnTheSame)
{
    ThreadProbe probe;
    std::vector<std::thread::id> ids;
    const auto note = [&ids] { ids.push_back(std::this_thread::get_id()); };
    probe.before = [&] {
        note();
        return 1;
    };
    probe.step = [&] {
        note();
        probe.Cancel();
    };
    probe.after = note;
    probe.Start();
    ASSERT_TRUE(probe.HasEnded());
    probe.Stop();
    ASSERT_THAT(ids, SizeIs(3));
    EXPECT_THAT(ids, Each(ids.front()));
    EXPECT_NE(ids.front(), std::this_thread::get_id());
}

TEST_F(IThreadTest, ZeroFromRunBeforeEndsItAfterRunAfterWithoutARun)
{
    ThreadProbe probe;
    probe.before = [] { return 0; };
    EXPECT_TRUE(probe.Start());
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "after"));
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(IThreadTest, AnyOtherValueFromRunBeforeGoesOn)
{
    for (const int value : {1, 2, -1})
    {
        ThreadProbe probe;
        probe.before = [value] { return value; };
        probe.Start();
        EXPECT_TRUE(probe.HasEnded());
        EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "after")) << value;
    }
}

TEST_F(IThreadTest, TheDefaultBodiesGoOnAndDoNothing)
{
    IThread bare;
    EXPECT_EQ(bare.RunBefore(), 1);
    bare.Run();
    bare.RunAfter();
    EXPECT_TRUE(bare.Start());
    EXPECT_TRUE(bare.IsRunning());
    bare.Stop();
    EXPECT_FALSE(bare.IsRunning());
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(IThreadTest, TheVirtualOperationsStandInTheStatedSlotsAfterTheDestructor)
{
    EXPECT_EQ(Tests::VirtualSlot(&IThread::RunBefore), 2);
    EXPECT_EQ(Tests::VirtualSlot(&IThread::Run), 3);
    EXPECT_EQ(Tests::VirtualSlot(&IThread::RunAfter), 4);
    EXPECT_EQ(Tests::VirtualSlot(&IThread::Stopping), 5);
    EXPECT_EQ(Tests::VirtualSlot(&IThread::Cancel), -1);
    // The table pointer is the first word of the object.
    const ThreadProbe probe;
    EXPECT_EQ(static_cast<const void*>(&probe),
              static_cast<const void*>(static_cast<const IThread*>(&probe)));
}

// Stop -------------------------------------------------------------------------------------------------

TEST_F(IThreadTest, StopEndsASleepAtOnce)
{
    ThreadProbe probe;
    bool slept = true;
    probe.step = [&] { slept = probe.ThreadSleep(1h, POLL); };
    probe.Start();
    std::this_thread::sleep_for(5ms);
    probe.Stop();
    EXPECT_EQ(Kit::Clock::Elapsed(), 5ms);
    EXPECT_FALSE(slept);
    EXPECT_THAT(probe.EventsOfTheThread(), ElementsAre("before", "run", "after"));
}

TEST_F(IThreadTest, ThreadSleepLastsItsFirstDurationWhateverTheSecond)
{
    ThreadProbe probe;
    std::vector<std::chrono::nanoseconds> ends;
    probe.step = [&] {
        for (const milliseconds poll : {milliseconds(1), POLL, milliseconds(1h)})
        {
            EXPECT_TRUE(probe.ThreadSleep(2500ms, poll));
            ends.push_back(Kit::Clock::Elapsed());
        }
        EXPECT_TRUE(probe.ThreadSleep(0ms, POLL));
        EXPECT_TRUE(probe.ThreadSleep(-5ms, POLL));
        ends.push_back(Kit::Clock::Elapsed());
        probe.Cancel();
    };
    probe.Start();
    ASSERT_TRUE(probe.HasEnded());
    EXPECT_THAT(ends, ElementsAre(2500ms, 5s, 7500ms, 7500ms));
}

TEST_F(IThreadTest, TheLongestAndTheShortestDurationDoNotOverflow)
{
    ThreadProbe probe;
    bool shortest = false;
    probe.step = [&] {
        shortest = probe.ThreadSleep(milliseconds::min(), POLL);
        probe.ThreadSleep(milliseconds::max(), POLL);
    };
    probe.Start();
    std::this_thread::sleep_for(24h);
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run"));
    probe.Stop();
    EXPECT_TRUE(shortest);
    EXPECT_EQ(Kit::Clock::Elapsed(), 24h);
}

TEST_F(IThreadTest, ThreadSleepDoesNotBeginAfterTheRequest)
{
    ThreadProbe probe;
    probe.step = [&] {
        probe.Cancel();
        EXPECT_FALSE(probe.ThreadSleep(1h, POLL));
    };
    probe.after = [&] { EXPECT_FALSE(probe.ThreadSleep(1h, POLL)); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_LT(Kit::Clock::Elapsed(), 1h);
}

TEST_F(IThreadTest, StoppingIsCalledAsTheStopBeginsOnTheThreadThatStops)
{
    ThreadProbe probe;
    ISemaphore wake;
    std::thread::id stopper;
    int steps = 0;
    probe.step = [&] {
        if (++steps == 1)
        {
            wake.Wait();
        }
        else
        {
            probe.Cancel();
        }
    };
    probe.stopping = [&] {
        stopper = std::this_thread::get_id();
        wake.Notify();
        LetOthersRun(); // the step has come back: that there is no other shows that the request came first
    };
    probe.Start();
    LetOthersRun();
    probe.Stop();
    EXPECT_EQ(stopper, std::this_thread::get_id());
    EXPECT_THAT(probe.EventsOfTheThread(), ElementsAre("before", "run", "after"));
    EXPECT_THAT(probe.Events(), Contains("stopping").Times(1));
}

TEST_F(IThreadTest, StopWaitsUntilRunAfterHasReturned)
{
    ThreadProbe probe;
    std::atomic<bool> returned{false};
    probe.step = [&] { probe.ThreadSleep(1h, POLL); };
    probe.after = [&] {
        std::this_thread::sleep_for(3s);
        returned = true;
    };
    probe.Start();
    LetOthersRun();
    probe.Stop();
    EXPECT_TRUE(returned);
    EXPECT_EQ(Kit::Clock::Elapsed(), 3001ms);
}

TEST_F(IThreadTest, StopOfAThreadThatDoesNotRunDoesNothing)
{
    ThreadProbe probe;
    probe.Stop();
    EXPECT_THAT(probe.Events(), IsEmpty());
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    probe.Stop();
    probe.Stop();
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "after"));
}

TEST_F(IThreadTest, StopFromTheThreadItselfEndsItWithoutWaiting)
{
    ThreadProbe probe;
    bool wentOn = false;
    probe.step = [&] {
        probe.Stop();
        wentOn = true;
    };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_TRUE(wentOn);
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "stopping", "after"));
}

TEST_F(IThreadTest, TwoThreadsMayStopItAtOnce)
{
    ThreadProbe probe;
    probe.step = [&] { probe.ThreadSleep(1h, POLL); };
    probe.after = [&] { std::this_thread::sleep_for(50ms); };
    probe.Start();
    LetOthersRun();
    std::atomic<int> returned{0};
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 2; ++i)
    {
        stoppers.emplace_back([&] {
            probe.Stop();
            EXPECT_FALSE(probe.IsRunning());
            ++returned;
        });
    }
    for (std::thread& stopper : stoppers)
    {
        stopper.join();
    }
    EXPECT_EQ(returned, 2);
    EXPECT_EQ(Kit::Clock::Elapsed(), 51ms);
    EXPECT_THAT(probe.Events(), Contains("after").Times(1));
}

TEST_F(IThreadTest, AStopThatComesBeforeTheThreadHasBegunStillGetsItsBeforeAndAfter)
{
    for (int i = 0; i < 50; ++i)
    {
        ThreadProbe probe;
        probe.step = [&] { probe.ThreadSleep(1h, POLL); };
        probe.Start();
        probe.Stop();
        const std::vector<std::string> events = probe.EventsOfTheThread();
        EXPECT_THAT(events, Contains("before").Times(1));
        EXPECT_THAT(events, Contains("after").Times(1));
        EXPECT_EQ(events.back(), "after");
    }
    EXPECT_EQ(Kit::Clock::Elapsed(), 0ms);
}

// Cancel -----------------------------------------------------------------------------------------------

TEST_F(IThreadTest, CancelFromWithinRunMakesTheStepTheLastOne)
{
    ThreadProbe probe;
    int steps = 0;
    probe.step = [&] {
        if (++steps == 3)
        {
            probe.Cancel();
        }
    };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "run", "run", "after"));
}

TEST_F(IThreadTest, CancelFromWithinRunBeforeMeansNoRun)
{
    ThreadProbe probe;
    probe.before = [&] {
        probe.Cancel();
        return 1;
    };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "after"));
}

TEST_F(IThreadTest, CancelFromOutsideDoesNotWaitForTheLoop)
{
    ThreadProbe probe;
    ISemaphore wake;
    probe.step = [&] { wake.Wait(); };
    probe.Start();
    LetOthersRun();
    probe.Cancel();
    LetOthersRun();
    EXPECT_TRUE(probe.IsRunning());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run"));
    wake.Notify();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "after"));
}

TEST_F(IThreadTest, CancelEndsASleepAtOnceWithoutStopping)
{
    ThreadProbe probe;
    probe.step = [&] { probe.ThreadSleep(1h, POLL); };
    probe.Start();
    LetOthersRun();
    probe.Cancel();
    LetOthersRun();
    EXPECT_FALSE(probe.IsRunning());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "after"));
    EXPECT_EQ(Kit::Clock::Elapsed(), 2ms);
}

TEST_F(IThreadTest, TheThreadItselfSeesThatItsEndIsRequestedAndNoOtherThreadDoes)
{
    ThreadProbe probe;
    std::vector<bool> seen;
    ISemaphore wake;
    probe.step = [&] {
        seen.push_back(probe.StopRequested());
        wake.Wait();
        seen.push_back(probe.StopRequested());
    };
    probe.after = [&] { seen.push_back(probe.StopRequested()); };
    EXPECT_FALSE(probe.StopRequested());
    for (int round = 0; round < 2; ++round) // a new start forgets the request
    {
        probe.Start();
        LetOthersRun();
        probe.Cancel();
        EXPECT_FALSE(probe.StopRequested());
        wake.Notify();
        EXPECT_TRUE(probe.HasEnded());
        EXPECT_FALSE(probe.StopRequested()) << "the end of a thread that is gone";
    }
    EXPECT_THAT(seen, ElementsAre(false, true, true, false, true, true));
}

TEST_F(IThreadTest, CancelOfAThreadThatDoesNotRunDoesNothing)
{
    ThreadProbe probe;
    probe.Cancel();
    EXPECT_TRUE(probe.Start());
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "after"));
}

// Start ------------------------------------------------------------------------------------------------

TEST_F(IThreadTest, StartGivesFalseWhileItRuns)
{
    ThreadProbe probe;
    probe.step = [&] { probe.ThreadSleep(1h, POLL); };
    EXPECT_TRUE(probe.Start());
    EXPECT_FALSE(probe.Start());
    LetOthersRun();
    EXPECT_FALSE(probe.Start());
    probe.Stop();
    EXPECT_THAT(probe.Events(), Contains("before").Times(1));
}

TEST_F(IThreadTest, StartGivesFalseOnTheThreadItselfAndWhileACancelledStepStillRuns)
{
    ThreadProbe probe;
    ISemaphore wake;
    std::atomic<bool> fromWithin{true};
    probe.step = [&] {
        probe.Cancel();
        fromWithin = probe.Start();
        wake.Wait();
    };
    probe.Start();
    LetOthersRun();
    EXPECT_FALSE(fromWithin);
    EXPECT_FALSE(probe.Start());
    wake.Notify();
    EXPECT_TRUE(probe.HasEnded());
}

TEST_F(IThreadTest, CanBeStartedAgainAfterAStop)
{
    ThreadProbe probe;
    probe.step = [&] { probe.ThreadSleep(1s, POLL); };
    for (int round = 1; round <= 3; ++round)
    {
        EXPECT_TRUE(probe.Start());
        std::this_thread::sleep_for(1500ms); // the sleep works again: two steps in each round
        probe.Stop();
        EXPECT_THAT(probe.Events(), Contains("run").Times(2 * round));
        EXPECT_THAT(probe.Events(), Contains("after").Times(round));
    }
    EXPECT_EQ(Kit::Clock::Elapsed(), 4500ms);
}

TEST_F(IThreadTest, CanBeStartedAgainAfterItEndedByItself)
{
    ThreadProbe probe; // its step cancels
    for (int round = 1; round <= 3; ++round)
    {
        EXPECT_TRUE(probe.Start());
        EXPECT_TRUE(probe.HasEnded());
        EXPECT_THAT(probe.Events(), Contains("after").Times(round));
    }
}

TEST_F(IThreadTest, CanBeStartedAgainAfterAnException)
{
    ThreadProbe probe;
    probe.step = [] { throw std::runtime_error("boom"); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    probe.step = [&] { probe.Cancel(); };
    EXPECT_TRUE(probe.Start());
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "after", "before", "run", "after"));
    EXPECT_THAT(log.Console(), SizeIs(1));
}

TEST_F(IThreadTest, CanBeStartedAgainAfterRunBeforeEndedIt)
{
    ThreadProbe probe;
    int results = 0;
    probe.before = [&] { return results++; };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_TRUE(probe.Start());
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "after", "before", "run", "after"));
}

TEST_F(IThreadTest, AThousandRoundsOfStartAndStop)
{
    ThreadProbe probe;
    int balance = 0;
    probe.before = [&] {
        ++balance;
        return 1;
    };
    probe.step = [&] { probe.ThreadSleep(1s, POLL); };
    probe.after = [&] { --balance; };
    for (int round = 0; round < 1000; ++round)
    {
        ASSERT_TRUE(probe.Start());
        probe.Stop();
        ASSERT_EQ(balance, 0);
    }
    EXPECT_THAT(probe.Events(), Contains("after").Times(1000));
    EXPECT_EQ(Kit::Clock::Elapsed(), 0ms);
}

TEST_F(IThreadTest, StopDoesNotWaitForAThreadThatWasStartedAfterItsRequest)
{
    ThreadProbe probe;
    probe.step = [&] { probe.ThreadSleep(1h, POLL); };
    bool startedAgain = false;
    probe.stopping = [&] {
        if (!std::exchange(startedAgain, true))
        {
            EXPECT_TRUE(probe.HasEnded());
            EXPECT_TRUE(probe.Start());
        }
    };
    probe.Start();
    LetOthersRun();
    probe.Stop();
    EXPECT_TRUE(probe.IsRunning());
    EXPECT_LT(Kit::Clock::Elapsed(), 1h);
}

TEST_F(IThreadTest, StartsAndStopsOfManyThreadsAtOnceNeitherBlockNorMix)
{
    ThreadProbe probe;
    std::atomic<int> inside{0};
    probe.before = [&] {
        EXPECT_EQ(++inside, 1) << "never two threads of one object";
        return 1;
    };
    probe.step = [&] { probe.ThreadSleep(1ms, POLL); };
    probe.after = [&] { --inside; };
    std::vector<std::thread> users;
    for (int user = 0; user < 4; ++user)
    {
        users.emplace_back([&probe, user] {
            for (int round = 0; round < 100; ++round)
            {
                if (user % 2 == 0)
                {
                    probe.Start();
                }
                else
                {
                    probe.Stop();
                }
            }
        });
    }
    for (std::thread& user : users)
    {
        user.join();
    }
    probe.Stop();
    EXPECT_EQ(inside, 0);
    EXPECT_FALSE(probe.IsRunning());
}

/// While one lives, a new thread asks for a stack that no machine has.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_getattr_default_np(&before);
        pthread_attr_t hopeless;
        pthread_attr_init(&hopeless);
        pthread_attr_setstacksize(&hopeless,
                                  sizeof(std::size_t) == 8 ? std::size_t{1} << 46 : std::size_t{15} << 28);
        pthread_setattr_default_np(&hopeless);
        pthread_attr_destroy(&hopeless);
    }

    ~NoThreads()
    {
        pthread_setattr_default_np(&before);
        pthread_attr_destroy(&before);
    }

    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t before{};
};

TEST_F(IThreadTest, AThreadThatCannotBeCreatedIsLoggedAndStartGivesFalse)
{
    ThreadProbe probe;
    {
        const NoThreads none;
        EXPECT_FALSE(probe.Start());
    }
    EXPECT_FALSE(probe.IsRunning());
    EXPECT_THAT(log.Console(), ElementsAre("[ERROR][#Tavthread] PROBE: thread not started: "
                                           "Resource temporarily unavailable"));
    probe.Stop();
    EXPECT_TRUE(probe.Start());
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "after"));
}

// Exceptions -------------------------------------------------------------------------------------------

TEST_F(IThreadTest, AnExceptionThatLeavesRunIsLoggedAndEndsTheThread)
{
    ThreadProbe probe;
    probe.step = [] { throw std::runtime_error("boom"); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "after"));
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#Tavthread] PROBE: ended by an exception: boom"));
    EXPECT_EQ(log.Console(), log.File());
}

TEST_F(IThreadTest, AnExceptionThatLeavesRunBeforeMeansNoRun)
{
    ThreadProbe probe;
    probe.before = []() -> int { throw Tavbase::IException("refused", -1); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "after"));
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#Tavthread] PROBE: ended by an exception: refused"));
}

TEST_F(IThreadTest, AnExceptionThatLeavesRunAfterIsLoggedToo)
{
    ThreadProbe probe;
    probe.step = [] { throw std::runtime_error("first"); };
    probe.after = [] { throw std::logic_error("second"); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#Tavthread] PROBE: ended by an exception: first",
                                        "[ERROR][#Tavthread] PROBE: ended by an exception: second"));
}

TEST_F(IThreadTest, AnExceptionOfNoStandardTypeIsLoggedWithoutAText)
{
    ThreadProbe probe;
    probe.step = [] { throw 42; };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    probe.step = [&] { probe.Cancel(); };
    probe.after = [] { throw "text"; };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    probe.before = []() -> int { throw std::string("text"); };
    probe.after = [] {};
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(log.File(), AllOf(SizeIs(3), Each("[ERROR][#Tavthread] PROBE: ended by an exception")));
}

TEST_F(IThreadTest, AThreadThatEndsItselfEndsWithoutALineAndCanBeStartedAgain)
{
    ThreadProbe probe;
    probe.step = [] { pthread_exit(nullptr); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run"));
    EXPECT_THAT(log.Console(), IsEmpty());
    probe.Stop();
    EXPECT_TRUE(probe.Start());
    EXPECT_TRUE(probe.HasEnded());
}

TEST_F(IThreadTest, AnExceptionInTheMiddleOfALogLineCompletesTheLine)
{
    ThreadProbe probe;
    probe.step = [] {
        Logger::GetInstance() << LogType::Warning << "half a line";
        throw std::runtime_error("boom");
    };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(log.File(), ElementsAre("[WARNING]half a line",
                                        "[ERROR][#Tavthread] PROBE: ended by an exception: boom"));
    EXPECT_EQ(log.Console(), log.File());
}

// Destruction ------------------------------------------------------------------------------------------

TEST_F(IThreadTest, AnObjectMayBeDestroyedRightAfterStart)
{
    std::atomic<int> started{0};
    std::atomic<int> ended{0};
    for (int i = 0; i < 200; ++i)
    {
        ThreadProbe probe;
        probe.before = [&] {
            ++started;
            return 1;
        };
        probe.step = [&] { probe.ThreadSleep(1h, POLL); };
        probe.after = [&] { ++ended; };
        ASSERT_TRUE(probe.Start());
    }
    EXPECT_EQ(started, 200);
    EXPECT_EQ(ended, 200);
    EXPECT_EQ(Kit::Clock::Elapsed(), 0ms);
}

/// Forgets to stop its thread, which sleeps when the object goes.
class ForgetfulThread : public IThread
{
public:
    explicit ForgetfulThread(std::atomic<int>& stepCount) : steps(stepCount) {}

    void Run() override
    {
        ++steps;
        ThreadSleep(1h, POLL);
    }

private:
    std::atomic<int>& steps;
};

TEST_F(IThreadTest, TheBaseEndsAThreadThatWasForgotten)
{
    std::atomic<int> steps{0};
    {
        ForgetfulThread forgetful(steps);
        forgetful.Start();
        LetOthersRun();
        EXPECT_TRUE(forgetful.IsRunning());
    }
    EXPECT_EQ(steps, 1);
    EXPECT_EQ(Kit::Clock::Elapsed(), 1ms);
}

TEST_F(IThreadTest, AnObjectWhoseThreadEndedByItselfIsJustDestroyed)
{
    auto probe = std::make_unique<ThreadProbe>();
    probe->Start();
    EXPECT_TRUE(probe->HasEnded());
    probe.reset();
    EXPECT_THAT(log.Console(), IsEmpty());
}

// Callbacks --------------------------------------------------------------------------------------------

class ReceivingThread : public IThread::IThreadDelegate
{
public:
    explicit ReceivingThread(std::function<void(void*)> action) : received(std::move(action)) {}

    void ThreadCallback(void* value) override { received(value); }

private:
    std::function<void(void*)> received;
};

TEST_F(IThreadTest, CallsItsReceiversInTheOrderInWhichTheyWereAdded)
{
    ThreadProbe probe;
    std::vector<std::string> calls;
    int value = 0;
    ReceivingThread first([&](void* given) { calls.emplace_back(given == &value ? "first" : "wrong"); });
    ReceivingThread second([&](void* given) { calls.emplace_back(given == &value ? "second" : "wrong"); });
    probe.AddCallback(&second);
    probe.AddCallback(nullptr);
    probe.AddCallback(&first);
    probe.AddCallback(&second);
    probe.DoCallback(&value);
    EXPECT_THAT(calls, ElementsAre("second", "first", "second"));
}

TEST_F(IThreadTest, CallsTheReceiversOnTheThreadThatDelivers)
{
    ThreadProbe probe;
    std::thread::id id;
    std::thread::id stepId;
    ReceivingThread receiver([&](void*) { id = std::this_thread::get_id(); });
    probe.AddCallback(&receiver);
    probe.DoCallback(nullptr);
    EXPECT_EQ(id, std::this_thread::get_id());
    probe.step = [&] {
        stepId = std::this_thread::get_id();
        probe.DoCallback(nullptr);
        probe.Cancel();
    };
    probe.Start();
    ASSERT_TRUE(probe.HasEnded());
    probe.Stop();
    EXPECT_EQ(id, stepId);
    EXPECT_NE(id, std::this_thread::get_id());
}

TEST_F(IThreadTest, ADeliveryWithoutReceiversDoesNothing)
{
    ThreadProbe probe;
    probe.DoCallback(&probe);
    EXPECT_THAT(probe.Events(), IsEmpty());
}

TEST_F(IThreadTest, AReceiverThatIsAddedWithinADeliveryGetsTheNextOne)
{
    ThreadProbe probe;
    int late = 0;
    ReceivingThread second([&](void*) { ++late; });
    ReceivingThread first([&](void*) { probe.AddCallback(&second); });
    probe.AddCallback(&first);
    probe.DoCallback(nullptr);
    EXPECT_EQ(late, 0);
    probe.DoCallback(nullptr);
    EXPECT_EQ(late, 1);
}

TEST_F(IThreadTest, AReceiverMayStopTheThread)
{
    ThreadProbe probe;
    ReceivingThread receiver([&](void*) { probe.Stop(); });
    probe.AddCallback(&receiver);
    probe.step = [&] { probe.DoCallback(nullptr); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Events(), ElementsAre("before", "run", "stopping", "after"));
}

TEST_F(IThreadTest, AnExceptionOfAReceiverIsOneOfTheStep)
{
    ThreadProbe probe;
    ReceivingThread receiver([](void*) { throw std::runtime_error("receiver"); });
    probe.AddCallback(&receiver);
    probe.step = [&] { probe.DoCallback(nullptr); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#Tavthread] PROBE: ended by an exception: receiver"));
}

TEST_F(IThreadTest, ADeliveryAllocatesNothing)
{
    ThreadProbe probe;
    int calls = 0;
    ReceivingThread receiver([&](void*) { ++calls; });
    probe.AddCallback(&receiver);
    probe.AddCallback(&receiver);
    const std::int64_t before = Kit::Leaks::AllocationsMade();
    for (int i = 0; i < 1000; ++i)
    {
        probe.DoCallback(&probe);
    }
    EXPECT_EQ(Kit::Leaks::AllocationsMade(), before);
    EXPECT_EQ(calls, 2000);
}

// The thread as the system sees it -----------------------------------------------------------------------

TEST_F(IThreadTest, CarriesItsNameForTheSystemsTools)
{
    ThreadProbe probe("GPS-DEVICE");
    ThreadProbe longName("A-NAME-OF-22-CHARACTERS");
    for (ThreadProbe* each : {&probe, &longName})
    {
        each->step = [each] { each->ThreadSleep(1h, POLL); };
        each->Start();
    }
    LetOthersRun();
    EXPECT_THAT(ThreadNames(), AllOf(Contains("GPS-DEVICE"), Contains("A-NAME-OF-22-CH")));
    probe.Stop();
    EXPECT_THAT(ThreadNames(), Not(Contains("GPS-DEVICE")));
    EXPECT_EQ(longName.GetName(), "A-NAME-OF-22-CHARACTERS");
}

TEST_F(IThreadTest, TakesNoSignalMeantForTheApplication)
{
    KIT_SKIP_EMULATED("it has not all of the real-time signals");
    ThreadProbe probe;
    sigset_t mask;
    sigset_t mine;
    sigset_t mineAfter;
    pthread_sigmask(SIG_BLOCK, nullptr, &mine);
    probe.step = [&] {
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        probe.Cancel();
    };
    probe.Start();
    ASSERT_TRUE(probe.HasEnded());
    probe.Stop();
    pthread_sigmask(SIG_BLOCK, nullptr, &mineAfter);
    for (int number = 1; number <= SIGRTMAX; ++number)
    {
        if (number == SIGKILL || number == SIGSTOP || (number > SIGSYS && number < SIGRTMIN))
        {
            continue; // these cannot be blocked, or are the C library's own
        }
        bool open = false; // the signals of a fault, and a profiler's
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF})
        {
            open = open || number == fault;
        }
        EXPECT_EQ(sigismember(&mask, number), open ? 0 : 1) << number;
        EXPECT_EQ(sigismember(&mineAfter, number), sigismember(&mine, number)) << number;
    }
}

TEST_F(IThreadTest, InAForkedChildItIsSaidToRunThoughTheThreadIsNotThere)
{
    KIT_SKIP_EMULATED("it has a thread of its own");
    ISemaphore held;
    ThreadProbe probe;
    probe.step = [&] {
        held.Wait();
        probe.Cancel();
    };
    ASSERT_TRUE(probe.Start());
    LetOthersRun();
    const Kit::ChildResult child = Kit::RunInChild([&] {
        const std::filesystem::directory_iterator threads("/proc/self/task");
        const bool alone = std::distance(begin(threads), end(threads)) == 1;
        _exit(alone && probe.IsRunning() ? 7 : 8); // not by exit(), which destroys objects
        return 0;
    });
    EXPECT_EQ(child.exitStatus, 7);
    held.Notify();
    EXPECT_TRUE(probe.HasEnded());
    probe.Stop();
}

}

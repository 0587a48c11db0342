#include "base/Tavbase/Interfaces/ISignal.h"

#include "base/Tavbase/Interfaces/ISemaphore.h"
#include "base/Tavbase/Interfaces/InterruptibleWait.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Emulator.h"
#include "tests/kit/Leaks.h"
#include "tests/kit/Program.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

using Tavbase::Interfaces::InterruptibleWait;
using Tavbase::Interfaces::ISemaphore;
using Tavbase::Interfaces::ISignal;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

static_assert(std::has_virtual_destructor_v<ISignal>);
static_assert(std::has_virtual_destructor_v<ISignal::ISignalDelegate>);
static_assert(std::is_abstract_v<ISignal>);

/// A signal whose wait and fire are set by the test.
class Probe : public ISignal
{
public:
    Probe() { name = "PROBE"; }

    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    ~Probe() override { StopWorker(); }

    bool SignalWait(int& value) override { return wait(value); }

    void SignalFire(int value) override
    {
        fire(value);
        const std::scoped_lock lock(access);
        fired.push_back(value);
    }

    using ISignal::StopWorker;

    std::vector<int> Fired() const
    {
        const std::scoped_lock lock(access);
        return fired;
    }

    bool HasEnded() const
    {
        return Kit::Clock::WaitUntil([this] { return !IsRunning(); });
    }

    std::function<bool(int&)> wait = [](int&) { return false; };
    std::function<void(int)> fire = [](int) {};

private:
    mutable std::mutex access;
    std::vector<int> fired;
};

/// Takes some processor time, for races that are to be hit at different places.
void Compute(int turns)
{
    static std::atomic<int> sum{0};
    for (int turn = 0; turn < turns; ++turn)
    {
        sum.fetch_add(turn, std::memory_order_relaxed);
    }
}

/// A pipe in which nothing arrives unless the test writes it.
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
        close(ends[0]);
        close(ends[1]);
    }

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int Out() const { return ends[0]; }

    void Send(char byte) const { EXPECT_EQ(write(ends[1], &byte, 1), 1); }

private:
    std::array<int, 2> ends{};
};

class ISignalTest : public Kit::DeviceTest
{
protected:
    /// In virtual time a sleep returns when every other thread waits: what they could do they have done.
    static void LetOthersRun() { std::this_thread::sleep_for(1ms); }

    /// A wait that blocks in the kernel without a limit, as the event device's does.
    std::function<bool(int&)> BlockInPoll()
    {
        return [this](int& value) {
            pollfd input = {pipe.Out(), POLLIN, 0};
            if (poll(&input, 1, -1) != 1)
            {
                interrupted += errno == EINTR ? 1 : 0;
                return false;
            }
            char byte = 0;
            const bool got = read(pipe.Out(), &byte, 1) == 1;
            value = byte;
            return got;
        };
    }

    std::function<bool(int&)> BlockInRead()
    {
        return [this](int& value) {
            char byte = 0;
            if (read(pipe.Out(), &byte, 1) != 1)
            {
                interrupted += errno == EINTR ? 1 : 0;
                return false;
            }
            value = byte;
            return true;
        };
    }

    Pipe pipe;
    std::atomic<int> interrupted{0};
};

// The loop ---------------------------------------------------------------------------------------------

TEST_F(ISignalTest, IsIdleUntilItIsStarted)
{
    const Probe probe;
    LetOthersRun();
    EXPECT_FALSE(probe.IsRunning());
    EXPECT_THAT(probe.Fired(), IsEmpty());
    EXPECT_EQ(probe.GetName(), "PROBE");
}

TEST_F(ISignalTest, FiresEachValueThatItWaitedFor)
{
    Probe probe;
    probe.wait = BlockInPoll();
    EXPECT_TRUE(probe.Start());
    EXPECT_TRUE(probe.IsRunning());
    for (const char value : {'\3', '\1', '\2'})
    {
        pipe.Send(value);
    }
    LetOthersRun();
    EXPECT_THAT(probe.Fired(), ElementsAre(3, 1, 2));
    pipe.Send(5);
    LetOthersRun();
    EXPECT_THAT(probe.Fired(), ElementsAre(3, 1, 2, 5));
    probe.StopWorker();
    EXPECT_FALSE(probe.IsRunning());
}

TEST_F(ISignalTest, TheVirtualOperationsStandInTheOrderOfTheLoopAfterTheDestructor)
{
    EXPECT_EQ(Tests::VirtualSlot(&ISignal::SignalWait), 2);
    EXPECT_EQ(Tests::VirtualSlot(&ISignal::SignalFire), 3);
}

TEST_F(ISignalTest, WaitsAndFiresOnOneThreadOfItsOwn)
{
    Probe probe;
    std::thread::id waited;
    std::thread::id fired;
    bool first = true;
    probe.wait = [&](int& value) {
        waited = std::this_thread::get_id();
        value = 9;
        return std::exchange(first, false);
    };
    probe.fire = [&](int) { fired = std::this_thread::get_id(); };
    probe.Start();
    LetOthersRun();
    probe.StopWorker();
    EXPECT_THAT(probe.Fired(), ElementsAre(9));
    EXPECT_EQ(waited, fired);
    EXPECT_NE(waited, std::this_thread::get_id());
}

TEST_F(ISignalTest, AFailedWaitFiresNothingAndPausesLongerEachTimeUpToASecond)
{
    Probe probe;
    std::vector<std::chrono::nanoseconds> calls;
    probe.wait = [&](int& value) {
        calls.push_back(Kit::Clock::Elapsed());
        value = 1;
        return false;
    };
    probe.Start();
    std::this_thread::sleep_for(4s);
    probe.StopWorker();
    std::vector<milliseconds> pauses;
    for (std::size_t i = 1; i < calls.size(); ++i)
    {
        pauses.push_back(std::chrono::duration_cast<milliseconds>(calls[i] - calls[i - 1]));
        EXPECT_EQ(calls[i] - calls[i - 1], pauses.back()) << "whole milliseconds";
    }
    EXPECT_THAT(pauses, ElementsAre(10ms, 20ms, 40ms, 80ms, 160ms, 320ms, 640ms, 1000ms, 1000ms));
    EXPECT_THAT(probe.Fired(), IsEmpty());
}

TEST_F(ISignalTest, ASuccessfulWaitSetsThePauseBack)
{
    Probe probe;
    std::vector<std::chrono::nanoseconds> calls;
    probe.wait = [&](int&) {
        calls.push_back(Kit::Clock::Elapsed());
        return calls.size() == 5;
    };
    probe.Start();
    std::this_thread::sleep_for(200ms);
    probe.StopWorker();
    // Four failures, a success, which does not pause, and failures again.
    EXPECT_THAT(calls, ElementsAre(0ms, 10ms, 30ms, 70ms, 150ms, 150ms, 160ms, 180ms));
}

/// The first `count` calls of a wait that takes `duration` and fails, in virtual time.
std::vector<std::chrono::nanoseconds> FailingCalls(Probe& probe, milliseconds duration, std::size_t count)
{
    std::vector<std::chrono::nanoseconds> calls;
    probe.wait = [&](int&) {
        if (calls.size() < count)
        {
            calls.push_back(Kit::Clock::Elapsed());
        }
        std::this_thread::sleep_for(duration);
        return false;
    };
    probe.Start();
    std::this_thread::sleep_for(duration * count + 10s);
    probe.StopWorker();
    return calls;
}

TEST_F(ISignalTest, AWaitThatHasBlockedBeforeItFailedIsFollowedByTheNextOneAtOnce)
{
    Probe probe;
    EXPECT_THAT(FailingCalls(probe, 300ms, 5), ElementsAre(0ms, 300ms, 600ms, 900ms, 1200ms));
}

TEST_F(ISignalTest, WaitsThatBlockForAShortTimeBeforeTheyFailAreTenMillisecondsApart)
{
    Probe probe;
    EXPECT_THAT(FailingCalls(probe, 2ms, 5), ElementsAre(0ms, 10ms, 20ms, 30ms, 40ms));
}

TEST_F(ISignalTest, AWaitThatHasBlockedSetsThePauseBack)
{
    Probe probe;
    std::vector<std::chrono::nanoseconds> calls;
    probe.wait = [&](int&) {
        calls.push_back(Kit::Clock::Elapsed());
        if (calls.size() == 4)
        {
            std::this_thread::sleep_for(50ms);
        }
        return false;
    };
    probe.Start();
    std::this_thread::sleep_for(165ms);
    probe.StopWorker();
    EXPECT_THAT(calls, ElementsAre(0ms, 10ms, 30ms, 70ms, 120ms, 130ms, 150ms));
}

TEST_F(ISignalTest, AFailedWaitThatTookSomethingFromItsDeviceIsFollowedByTheNextOneAtOnce)
{
    Probe probe;
    std::vector<std::chrono::nanoseconds> calls;
    probe.wait = [&](int& value) {
        InterruptibleWait().NoteProgress();
        calls.push_back(Kit::Clock::Elapsed());
        value = 7;
        return calls.size() > 100;
    };
    probe.fire = [&](int) { probe.StopWorker(); };
    probe.Start();
    LetOthersRun();
    EXPECT_THAT(probe.Fired(), ElementsAre(7));
    EXPECT_THAT(calls, testing::AllOf(SizeIs(101), testing::Each(0ms)));
}

TEST_F(ISignalTest, AStopEndsThePauseAtOnce)
{
    Probe probe;
    probe.Start();
    std::this_thread::sleep_for(1900ms); // within the first pause of a second, which began at 1270 ms
    probe.StopWorker();
    EXPECT_EQ(Kit::Clock::Elapsed(), 1900ms);
    EXPECT_FALSE(probe.IsRunning());
}

TEST_F(ISignalTest, StartGivesFalseWhileItRuns)
{
    Probe probe;
    probe.wait = BlockInPoll();
    EXPECT_TRUE(probe.Start());
    EXPECT_FALSE(probe.Start());
    probe.StopWorker();
    EXPECT_TRUE(probe.Start());
}

TEST_F(ISignalTest, CarriesItsNameForTheSystemsTools)
{
    Probe probe;
    std::string seen;
    probe.wait = [&](int&) {
        std::getline(std::ifstream("/proc/thread-self/comm"), seen);
        return false;
    };
    probe.Start();
    LetOthersRun();
    probe.StopWorker();
    EXPECT_EQ(seen, "PROBE");
}

// Ending the worker ------------------------------------------------------------------------------------

TEST_F(ISignalTest, StopWorkerEndsAWorkerThatIsBlockedInTheKernel)
{
    for (const auto& block : {BlockInPoll(), BlockInRead()})
    {
        Probe probe;
        probe.wait = block;
        interrupted = 0;
        probe.Start();
        LetOthersRun(); // by now it is blocked
        const auto before = Kit::Clock::Elapsed();
        probe.StopWorker();
        EXPECT_FALSE(probe.IsRunning());
        EXPECT_EQ(interrupted, 1) << "the call came back with EINTR, once";
        EXPECT_LT(Kit::Clock::Elapsed() - before, 50ms);
        EXPECT_THAT(probe.Fired(), IsEmpty());
    }
}

TEST_F(ISignalTest, StopWorkerEndsTheWorkerWhereverItIsOnItsWayIntoTheKernel)
{
    Probe probe;
    for (int round = 0; round < 400; ++round)
    {
        // A different head start each time: not begun, before the call, in it.
        probe.wait = round % 2 == 0 ? BlockInPoll() : BlockInRead();
        ASSERT_TRUE(probe.Start());
        Compute((round % 20) * 500);
        const auto before = Kit::Clock::Elapsed();
        probe.StopWorker();
        ASSERT_FALSE(probe.IsRunning());
        ASSERT_LT(Kit::Clock::Elapsed() - before, 50ms);
    }
}

TEST_F(ISignalTest, StopWorkerEndsAWorkerThatHasLookedForARequestButNotYetEnteredTheCall)
{
    Probe probe;
    std::atomic<bool> entered{false};
    std::atomic<bool> requested{false};
    const auto block = BlockInPoll();
    probe.wait = [&](int& value) {
        entered = true;
        while (!requested)
        {
            std::this_thread::yield();
        }
        return block(value);
    };
    for (int round = 0; round < 100; ++round)
    {
        entered = false;
        requested = false;
        ASSERT_TRUE(probe.Start());
        while (!entered)
        {
            std::this_thread::yield();
        }
        std::thread stopper([&] { probe.StopWorker(); });
        // Long enough for some of its signals to be handled, and lost, before the call.
        Compute(50'000);
        requested = true;
        stopper.join();
        ASSERT_FALSE(probe.IsRunning());
    }
}

TEST_F(ISignalTest, StopWorkerEndsAWorkerThatNeverBlocks)
{
    Probe probe;
    std::atomic<int> count{0};
    probe.wait = [&](int& value) {
        value = 1;
        return true;
    };
    probe.fire = [&](int) { ++count; };
    probe.Start();
    while (count < 10)
    {
        std::this_thread::yield();
    }
    probe.StopWorker();
    const int atEnd = count;
    EXPECT_FALSE(probe.IsRunning());
    LetOthersRun();
    EXPECT_EQ(count, atEnd);
}

TEST_F(ISignalTest, StopWorkerWaitsForAValueThatIsBeingFired)
{
    Probe probe;
    probe.wait = [](int& value) {
        value = 4;
        return true;
    };
    std::atomic<int> begun{0};
    std::atomic<int> done{0};
    probe.fire = [&](int) {
        ++begun;
        std::this_thread::sleep_for(20ms);
        ++done;
    };
    probe.Start();
    LetOthersRun();
    EXPECT_EQ(begun, 1);
    EXPECT_EQ(done, 0);
    probe.StopWorker();
    EXPECT_EQ(begun, 1);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(Kit::Clock::Elapsed(), 20ms);
}

/// Ends the worker on another thread, and sees that it waits; then sends what the worker waits for.
void StopWhileItIsBlocked(Probe& probe, const Pipe& pipe)
{
    std::atomic<bool> stopped{false};
    std::thread stopper([&] {
        probe.StopWorker();
        stopped = true;
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(stopped);
    pipe.Send(9);
    stopper.join();
    EXPECT_FALSE(probe.IsRunning());
}

TEST_F(ISignalTest, StopWorkerInterruptsNoSystemCallOfAReceiver)
{
    Probe probe;
    probe.wait = [](int& value) {
        value = 4;
        return true;
    };
    ssize_t result = 0;
    char byte = 0;
    probe.fire = [&](int) { result = read(pipe.Out(), &byte, 1); };
    probe.Start();
    LetOthersRun();
    StopWhileItIsBlocked(probe, pipe);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(byte, 9);
}

TEST_F(ISignalTest, AWaitThatSaysWhichCallMayBeInterruptedIsInterruptedInNoOther)
{
    Probe probe;
    const Pipe second;
    std::vector<std::string> calls;
    probe.wait = [&](int&) {
        InterruptibleWait wait;
        char byte = 0;
        const auto readFrom = [&byte](const Pipe& from) { return read(from.Out(), &byte, 1); };
        const auto tell = [&](ssize_t result) {
            calls.push_back(result == 1 ? "read" : "failed with " + std::to_string(errno));
        };
        tell(readFrom(pipe));
        EXPECT_TRUE(wait.StopRequested());
        tell(wait.During([&] { return readFrom(second); }));
        return false;
    };
    probe.Start();
    LetOthersRun();
    StopWhileItIsBlocked(probe, pipe);
    EXPECT_THAT(calls, ElementsAre("read", "failed with " + std::to_string(EINTR)));
}

TEST_F(ISignalTest, WhatIsInterruptedIsWhatItWasAfterAnInnerWait)
{
    Probe probe;
    const auto block = BlockInRead();
    probe.wait = [&](int& value) {
        {
            const InterruptibleWait inner;
        }
        return block(value);
    };
    probe.Start();
    LetOthersRun();
    probe.StopWorker();
    EXPECT_EQ(interrupted, 1);
}

TEST_F(ISignalTest, OnAThreadThatIsNoWorkersAnInterruptibleWaitOnlyMakesTheCall)
{
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    InterruptibleWait wait;
    wait.NoteProgress();
    sigset_t during;
    EXPECT_EQ(wait.During([&] { return pthread_sigmask(SIG_BLOCK, nullptr, &during); }), 0);
    for (int number = 1; number <= SIGRTMAX; ++number)
    {
        EXPECT_EQ(sigismember(&during, number), sigismember(&before, number)) << number;
    }
    EXPECT_FALSE(wait.StopRequested());
}

TEST_F(ISignalTest, StopWorkerOnTheWorkerItselfRequestsTheEnd)
{
    Probe probe;
    probe.wait = [](int& value) {
        value = 4;
        return true;
    };
    probe.fire = [&](int) { probe.StopWorker(); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(probe.Fired(), ElementsAre(4));
}

TEST_F(ISignalTest, TwoThreadsMayStopTheWorkerAtOnce)
{
    Probe probe;
    probe.wait = BlockInPoll();
    for (int round = 0; round < 20; ++round)
    {
        probe.Start();
        std::thread other([&] { probe.StopWorker(); });
        probe.StopWorker();
        other.join();
        EXPECT_FALSE(probe.IsRunning());
    }
}

TEST_F(ISignalTest, StartsAndStopsOfManyThreadsAtOnceDoNotBlock)
{
    Probe probe;
    probe.wait = BlockInPoll();
    std::vector<std::thread> users;
    for (int user = 0; user < 4; ++user)
    {
        users.emplace_back([&probe, user] {
            for (int round = 0; round < 50; ++round)
            {
                if (user % 2 == 0)
                {
                    probe.Start();
                }
                else
                {
                    probe.StopWorker();
                }
            }
        });
    }
    for (std::thread& user : users)
    {
        user.join();
    }
    probe.StopWorker();
    EXPECT_FALSE(probe.IsRunning());
}

TEST_F(ISignalTest, StopWorkerOfASignalThatDoesNotRunDoesNothing)
{
    Probe probe;
    probe.StopWorker();
    probe.wait = BlockInPoll();
    EXPECT_TRUE(probe.Start());
    probe.StopWorker();
    probe.StopWorker();
    EXPECT_EQ(probe.IsRunning(), false);
}

TEST_F(ISignalTest, CanBeStartedAgainAfterStopWorker)
{
    Probe probe;
    probe.wait = BlockInPoll();
    for (const char value : {'\1', '\2', '\3'})
    {
        EXPECT_TRUE(probe.Start());
        pipe.Send(value);
        LetOthersRun();
        probe.StopWorker();
    }
    EXPECT_THAT(probe.Fired(), ElementsAre(1, 2, 3));
}

TEST_F(ISignalTest, AnObjectMayBeDestroyedRightAfterStart)
{
    for (int i = 0; i < 100; ++i)
    {
        Probe probe;
        probe.wait = BlockInPoll();
        ASSERT_TRUE(probe.Start());
    }
}

/// Forgets to end its worker, which is blocked when the object goes.
class Forgetful : public ISignal
{
public:
    explicit Forgetful(int descriptor) : input{descriptor, POLLIN, 0} {}

    bool SignalWait(int&) override
    {
        pollfd wanted = input;
        return poll(&wanted, 1, -1) > 0;
    }

    void SignalFire(int) override {}

private:
    pollfd input;
};

TEST_F(ISignalTest, TheBaseEndsAWorkerThatWasForgotten)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "what is forgotten here is a race by itself, and the thread sanitizer says so";
#endif
    Forgetful forgetful(pipe.Out()); // a worker that were left behind would show after the test
    forgetful.Start();
    LetOthersRun();
    EXPECT_TRUE(forgetful.IsRunning());
}

// Exceptions -------------------------------------------------------------------------------------------

TEST_F(ISignalTest, AnExceptionThatLeavesTheWaitIsLoggedAndEndsTheWorker)
{
    Probe probe;
    probe.wait = [](int&) -> bool { throw std::runtime_error("no device"); };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#Tavthread] PROBE: ended by an exception: no device"));
    EXPECT_EQ(log.Console(), log.File());
    probe.wait = BlockInPoll();
    EXPECT_TRUE(probe.Start());
    probe.StopWorker();
}

TEST_F(ISignalTest, AnExceptionThatLeavesTheFireIsLoggedAndEndsTheWorker)
{
    Probe probe;
    probe.wait = [](int& value) {
        value = 1;
        return true;
    };
    probe.fire = [](int) { throw 42; };
    probe.Start();
    EXPECT_TRUE(probe.HasEnded());
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#Tavthread] PROBE: ended by an exception"));
}

// Receivers --------------------------------------------------------------------------------------------

class Receiver : public ISignal::ISignalDelegate
{
public:
    explicit Receiver(std::function<void(void*)> action) : received(std::move(action)) {}

    void SignalCallback(void* value) override { received(value); }

private:
    std::function<void(void*)> received;
};

TEST_F(ISignalTest, CallsItsReceiversInTheOrderInWhichTheyWereAdded)
{
    Probe probe;
    std::vector<std::string> calls;
    int value = 0;
    Receiver first([&](void* given) { calls.emplace_back(given == &value ? "first" : "wrong"); });
    Receiver second([&](void* given) { calls.emplace_back(given == &value ? "second" : "wrong"); });
    probe.AddCallback(&second);
    probe.AddCallback(nullptr);
    probe.AddCallback(&first);
    probe.DoCallback(&value);
    EXPECT_THAT(calls, ElementsAre("second", "first"));
}

TEST_F(ISignalTest, FansAFiredValueOutOnItsWorker)
{
    Probe probe;
    std::vector<int> got;
    std::thread::id id;
    Receiver receiver([&](void* given) {
        got.push_back(*static_cast<int*>(given));
        id = std::this_thread::get_id();
    });
    probe.AddCallback(&receiver);
    probe.AddCallback(&receiver);
    probe.wait = BlockInPoll();
    probe.fire = [&](int value) { probe.DoCallback(&value); };
    probe.Start();
    pipe.Send(7);
    LetOthersRun();
    probe.StopWorker();
    EXPECT_THAT(got, ElementsAre(7, 7));
    EXPECT_NE(id, std::this_thread::get_id());
}

TEST_F(ISignalTest, AReceiverThatIsAddedWithinADeliveryGetsTheNextOne)
{
    Probe probe;
    int late = 0;
    Receiver second([&](void*) { ++late; });
    Receiver first([&](void*) { probe.AddCallback(&second); });
    probe.AddCallback(&first);
    probe.DoCallback(nullptr);
    EXPECT_EQ(late, 0);
    probe.DoCallback(nullptr);
    EXPECT_EQ(late, 1);
}

TEST_F(ISignalTest, ADeliveryAllocatesNothing)
{
    Probe probe;
    int calls = 0;
    Receiver receiver([&](void*) { ++calls; });
    probe.AddCallback(&receiver);
    const std::int64_t before = Kit::Leaks::AllocationsMade();
    for (int i = 0; i < 1000; ++i)
    {
        probe.DoCallback(&probe);
    }
    EXPECT_EQ(Kit::Leaks::AllocationsMade(), before);
    EXPECT_EQ(calls, 1000);
}

// The application's signals ------------------------------------------------------------------------------

std::atomic<int> applicationHandled{0};

void ApplicationHandler(int)
{
    ++applicationHandled;
}

void ApplicationHandlerWithInformation(int, siginfo_t*, void*)
{
    ++applicationHandled;
}

using Handler = void (*)(int);

struct Disposition
{
    Handler handler;
    int flags;

    bool operator==(const Disposition&) const = default;
};

Disposition DispositionOf(int number)
{
    struct sigaction present = {};
    sigaction(number, nullptr, &present);
    return {present.sa_handler, present.sa_flags & (SA_SIGINFO | SA_RESTART)};
}

void Install(int number, Handler handler)
{
    struct sigaction wanted = {};
    wanted.sa_handler = handler;
    wanted.sa_flags = SA_RESTART;
    sigaction(number, &wanted, nullptr);
}

/// One worker blocked in the kernel, ended.
bool EndsABlockedWorker()
{
    const Kit::Clock clock;
    const Pipe pipe;
    std::atomic<bool> interrupted{false};
    Probe probe;
    probe.wait = [&](int&) {
        pollfd input = {pipe.Out(), POLLIN, 0};
        interrupted = poll(&input, 1, -1) == -1 && errno == EINTR;
        return false;
    };
    probe.Start();
    std::this_thread::sleep_for(1ms);
    probe.StopWorker();
    return !probe.IsRunning() && interrupted;
}

// The number is chosen once in a process, by the first worker that is ended: each case is a program.

KIT_PROGRAM(SignalsOfTheApplication)
{
    Install(SIGRTMAX, ApplicationHandler);
    Install(SIGRTMAX - 1, SIG_IGN);
    struct sigaction withInformation = {};
    withInformation.sa_sigaction = ApplicationHandlerWithInformation;
    withInformation.sa_flags = SA_SIGINFO;
    sigaction(SIGRTMAX - 2, &withInformation, nullptr);
    Install(SIGUSR1, ApplicationHandler);
    std::vector<Disposition> before;
    for (int number = 1; number <= SIGRTMAX; ++number)
    {
        before.push_back(DispositionOf(number));
    }
    const bool ended = EndsABlockedWorker();
    std::vector<int> changed;
    for (int number = 1; number <= SIGRTMAX; ++number)
    {
        if (DispositionOf(number) != before[static_cast<std::size_t>(number - 1)])
        {
            changed.push_back(number);
        }
    }
    return ended && changed == std::vector<int>{SIGRTMAX - 3} && applicationHandled == 0 ? 0 : 1;
}

TEST(ISignalDispositionTest, NoDispositionOfTheApplicationIsChanged)
{
    const Kit::ChildResult result = Kit::RunProgram("SignalsOfTheApplication");
    EXPECT_EQ(result.exitStatus, 0) << result.output;
}

KIT_PROGRAM(SignalsAllFree)
{
    const bool ended = EndsABlockedWorker();
    const Disposition taken = DispositionOf(SIGRTMAX);
    // Without SA_RESTART: a call that were restarted would not end.
    return ended && taken.handler != SIG_DFL && taken.handler != SIG_IGN && taken.flags == 0 &&
                   DispositionOf(SIGRTMAX - 1).handler == SIG_DFL
               ? 0
               : 1;
}

TEST(ISignalDispositionTest, TheHighestFreeNumberIsTaken)
{
    KIT_SKIP_EMULATED("it has not all of the real-time signals");
    const Kit::ChildResult result = Kit::RunProgram("SignalsAllFree");
    EXPECT_EQ(result.exitStatus, 0) << result.output;
}

KIT_PROGRAM(SignalsAllTaken)
{
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number)
    {
        Install(number, ApplicationHandler);
    }
    const Kit::Clock clock;
    Probe probe;
    probe.wait = [](int&) {
        poll(nullptr, 0, 100);
        return false;
    };
    probe.Start();
    std::this_thread::sleep_for(1ms);
    probe.StopWorker();
    return !probe.IsRunning() && Kit::Clock::Elapsed() == 100ms && applicationHandled == 0 ? 0 : 1;
}

TEST(ISignalDispositionTest, WhereEveryNumberIsTakenAWorkerEndsWhenItsWaitReturns)
{
    const Kit::ChildResult result = Kit::RunProgram("SignalsAllTaken");
    EXPECT_EQ(result.exitStatus, 0) << result.output;
}

}

#include "virtual-unit/time/Idleness.h"
#include "virtual-unit/time/Waits.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using VirtualTime::Idleness;

// In real time: what the kernel tells of threads is looked at.

/// Looks again and again, for a minute at most.
bool ComesToRest(Idleness& idleness)
{
    constexpr int MOST_LOOKS = 60'000;
    constexpr std::int64_t PAUSE = 1'000'000;
    for (int look = 0; look < MOST_LOOKS; ++look)
    {
        if (idleness.AllWait())
        {
            return true;
        }
        VirtualTime::Waits::RealPause(PAUSE);
    }
    return false;
}

bool NeverAtRest(Idleness& idleness)
{
    constexpr int LOOKS = 100;
    for (int look = 0; look < LOOKS; ++look)
    {
        if (idleness.AllWait())
        {
            return false;
        }
    }
    return true;
}

/// A child that computes, or waits, until it is ended.
class ChildProcess
{
public:
    explicit ChildProcess(bool computes) : id(fork())
    {
        while (id == 0)
        {
            if (!computes)
            {
                pause();
            }
        }
    }

    ~ChildProcess()
    {
        Kill();
        waitpid(id, nullptr, 0);
    }

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void Kill() const { kill(id, SIGKILL); }

    void AwaitEnd() const ///< it stays a zombie
    {
        siginfo_t info = {};
        waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT);
    }

    const pid_t id;
};

TEST(IdlenessTest, TheThreadThatLooksDoesNotCount)
{
    Idleness idleness(true);
    EXPECT_TRUE(ComesToRest(idleness));
}

TEST(IdlenessTest, AThreadThatComputesIsSeenUntilItWaits)
{
    Idleness idleness(false);
    std::atomic<bool> computes{true};
    std::atomic<bool> ends{false};
    std::thread thread([&] {
        while (computes)
        {
        }
        ends.wait(false);
    });
    EXPECT_TRUE(NeverAtRest(idleness));
    computes = false;
    EXPECT_TRUE(ComesToRest(idleness));
    ends = true;
    ends.notify_all();
    thread.join();
}

TEST(IdlenessTest, OfDescendantsItIsSeenWhereTheyCount)
{
    const ChildProcess child(true);
    Idleness alone(false);
    EXPECT_TRUE(ComesToRest(alone));
    Idleness all(true);
    EXPECT_TRUE(NeverAtRest(all));
}

TEST(IdlenessTest, AChildThatWaitsWaits)
{
    const ChildProcess child(false);
    Idleness idleness(true);
    EXPECT_TRUE(ComesToRest(idleness));
}

TEST(IdlenessTest, AnEndedChildThatNobodyHasCaredForIsNoReasonToWait)
{
    const ChildProcess child(true);
    Idleness idleness(true);
    EXPECT_TRUE(NeverAtRest(idleness));
    child.Kill();
    child.AwaitEnd();
    EXPECT_TRUE(ComesToRest(idleness));
}

TEST(IdlenessTest, AProcessIsAliveUntilItHasEnded)
{
    const ChildProcess child(false);
    EXPECT_TRUE(Idleness::IsAlive(child.id));
    child.Kill();
    child.AwaitEnd();
    EXPECT_FALSE(Idleness::IsAlive(child.id));
}

}

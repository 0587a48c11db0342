#include "base/Tavbase/Tavlog/LineMutex.h"

#include "tests/base/Tavbase/Tavlog/LogTest.h"

#include <mutex>
#include <thread>
#include <vector>

using Tavbase::Tavlog::LineMutex;
using Tests::Elsewhere;
using namespace std::chrono_literals;

namespace
{

using LineMutexTest = Kit::DeviceTest;

TEST_F(LineMutexTest, IsHeldByTheThreadThatLockedIt)
{
    LineMutex mutex;
    EXPECT_FALSE(mutex.HeldByThisThread());
    mutex.lock();
    EXPECT_TRUE(mutex.HeldByThisThread());
    EXPECT_FALSE(mutex.try_lock()) << "nor does the holder get it twice";
    std::thread([&] { EXPECT_FALSE(mutex.HeldByThisThread() || mutex.try_lock()); }).join();
    mutex.unlock();
    EXPECT_FALSE(mutex.HeldByThisThread());
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_TRUE(mutex.HeldByThisThread());
    mutex.unlock();
}

TEST_F(LineMutexTest, LockWaitsUntilAnotherThreadUnlocks)
{
    LineMutex mutex;
    mutex.lock();
    bool locked = false;
    const Elsewhere other([&] {
        const std::scoped_lock lock(mutex);
        locked = true;
    });
    EXPECT_FALSE(other.IsDone());
    EXPECT_FALSE(locked);
    mutex.unlock();
    EXPECT_TRUE(other.IsDone());
}

TEST_F(LineMutexTest, AnotherThreadMayUnlockWhatWasHandedOver)
{
    LineMutex mutex;
    mutex.lock();
    EXPECT_FALSE(mutex.HandedOver());
    mutex.HandOver();
    EXPECT_TRUE(mutex.HandedOver());
    EXPECT_FALSE(mutex.HeldByThisThread());
    EXPECT_FALSE(mutex.try_lock());
    std::thread([&] { mutex.unlock(); }).join();
    EXPECT_FALSE(mutex.HandedOver());
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST_F(LineMutexTest, TryLockForGivesUpAtItsLimit)
{
    LineMutex mutex;
    mutex.lock();
    EXPECT_FALSE(mutex.TryLockFor(100ms));
    EXPECT_EQ(Kit::Clock::Elapsed(), 100ms);
    EXPECT_FALSE(mutex.TryLockFor(0ms));
    EXPECT_EQ(Kit::Clock::Elapsed(), 100ms);
    mutex.unlock();
    EXPECT_TRUE(mutex.TryLockFor(100ms));
    EXPECT_EQ(Kit::Clock::Elapsed(), 100ms);
    mutex.unlock();
}

TEST_F(LineMutexTest, TryLockForLocksAsSoonAsItIsFree)
{
    LineMutex mutex;
    mutex.lock();
    const Elsewhere other([&] {
        std::this_thread::sleep_for(30ms);
        mutex.unlock();
    });
    EXPECT_TRUE(mutex.TryLockFor(100ms));
    EXPECT_LE(Kit::Clock::Elapsed(), 31ms);
    EXPECT_TRUE(mutex.HeldByThisThread());
    mutex.unlock();
}

TEST_F(LineMutexTest, IsFreeAfterRenewWhateverWasDoneWithIt)
{
    LineMutex mutex;
    mutex.lock();
    mutex.HandOver();
    mutex.Renew();
    EXPECT_FALSE(mutex.HandedOver());
    EXPECT_FALSE(mutex.HeldByThisThread());
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_FALSE(mutex.try_lock());
    mutex.unlock();
}

TEST_F(LineMutexTest, OneThreadAtATimeIsInside)
{
    LineMutex mutex;
    int count = 0; // no atomic: the lock orders it
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([&] {
            for (int n = 0; n < 2000; ++n)
            {
                const std::scoped_lock lock(mutex);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(count, 8000);
}

}

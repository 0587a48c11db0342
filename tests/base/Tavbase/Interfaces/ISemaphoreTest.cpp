#include "base/Tavbase/Interfaces/ISemaphore.h"

#include "tests/kit/DeviceTest.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <pthread.h>
#include <thread>
#include <vector>

using Tavbase::Interfaces::ISemaphore;
using namespace std::chrono_literals;

namespace
{

/// In virtual time a sleep returns when every other thread waits: what a thread could do it has done by then.
void LetOthersRun()
{
    std::this_thread::sleep_for(1ms);
}

using ISemaphoreTest = Kit::DeviceTest;

TEST_F(ISemaphoreTest, HoldsNothingAtFirst)
{
    ISemaphore semaphore;
    EXPECT_FALSE(semaphore.TryWait());
}

TEST_F(ISemaphoreTest, TheFirstCountPassesWithoutANotification)
{
    ISemaphore semaphore(2);
    EXPECT_TRUE(semaphore.TryWait());
    EXPECT_TRUE(semaphore.TryWait());
    EXPECT_FALSE(semaphore.TryWait());
}

TEST_F(ISemaphoreTest, NotificationsAreCounted)
{
    ISemaphore semaphore;
    semaphore.Notify();
    semaphore.Notify();
    semaphore.Notify();
    semaphore.Wait();
    semaphore.WaitBusy();
    EXPECT_TRUE(semaphore.TryWait());
    EXPECT_FALSE(semaphore.TryWait());
}

TEST_F(ISemaphoreTest, WaitBlocksUntilANotification)
{
    ISemaphore semaphore;
    std::atomic<bool> passed{false};
    std::thread waiter([&] {
        semaphore.Wait();
        passed = true;
    });
    LetOthersRun();
    EXPECT_FALSE(passed);
    semaphore.Notify();
    waiter.join();
    EXPECT_TRUE(passed);
    EXPECT_FALSE(semaphore.TryWait());
}

TEST_F(ISemaphoreTest, WaitBusyBlocksUntilANotificationHoweverLate)
{
    ISemaphore semaphore;
    std::atomic<bool> passed{false};
    std::thread waiter([&] {
        semaphore.WaitBusy();
        passed = true;
    });
    std::this_thread::sleep_for(1h); // passes only when the waiter has stopped looking and sleeps
    EXPECT_FALSE(passed);
    semaphore.Notify();
    waiter.join();
    EXPECT_FALSE(semaphore.TryWait());
}

TEST_F(ISemaphoreTest, EachNotificationWakesOneWaiter)
{
    constexpr int WAITERS = 4;
    ISemaphore semaphore;
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < WAITERS; ++i)
    {
        waiters.emplace_back([&semaphore, &passed, i] {
            if (i % 2 == 0)
            {
                semaphore.Wait();
            }
            else
            {
                semaphore.WaitBusy();
            }
            ++passed;
        });
    }
    for (int woken = 0; woken < WAITERS; ++woken)
    {
        LetOthersRun();
        EXPECT_EQ(passed, woken);
        semaphore.Notify();
    }
    for (std::thread& waiter : waiters)
    {
        waiter.join();
    }
    EXPECT_EQ(passed, WAITERS);
}

TEST_F(ISemaphoreTest, NoNotificationIsLostBetweenManyThreads)
{
    constexpr int THREADS = 4;
    constexpr int EACH = 5000;
    ISemaphore semaphore;
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i)
    {
        threads.emplace_back([&semaphore] {
            for (int n = 0; n < EACH; ++n)
            {
                semaphore.Notify();
            }
        });
        threads.emplace_back([&semaphore] {
            for (int n = 0; n < EACH; ++n)
            {
                semaphore.WaitBusy();
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join(); // does not return where one is lost
    }
    EXPECT_FALSE(semaphore.TryWait()) << "and none is counted twice";
}

TEST_F(ISemaphoreTest, WhatWasWrittenBeforeTheNotificationIsSeenAfterTheWait)
{
    ISemaphore semaphore;
    int written = 0; // no atomic: the semaphore orders it
    std::thread writer([&] {
        written = 42;
        semaphore.Notify();
    });
    semaphore.Wait();
    EXPECT_EQ(written, 42);
    writer.join();
}

std::atomic<int> handled{0};

TEST_F(ISemaphoreTest, AHandledSignalDoesNotEndAWait)
{
    struct sigaction before = {};
    struct sigaction counting = {};
    counting.sa_handler = [](int) { ++handled; };
    sigaction(SIGUSR1, &counting, &before);
    handled = 0;

    ISemaphore semaphore;
    std::atomic<bool> passed{false};
    std::thread waiter([&] {
        semaphore.Wait();
        passed = true;
    });
    for (int sent = 1; sent <= 3; ++sent)
    {
        LetOthersRun();
        pthread_kill(waiter.native_handle(), SIGUSR1);
        LetOthersRun();
        EXPECT_EQ(handled, sent);
        EXPECT_FALSE(passed);
    }
    semaphore.Notify();
    waiter.join();
    EXPECT_TRUE(passed);
    sigaction(SIGUSR1, &before, nullptr);
}

}

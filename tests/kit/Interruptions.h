#ifndef TESTS_KIT_INTERRUPTIONS_H
#define TESTS_KIT_INTERRUPTIONS_H

#include "tests/kit/Clock.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <pthread.h>
#include <thread>
#include <utility>
#include <vector>

namespace Kit
{

/**
 * Interrupts the thread that makes it at each of these (virtual) times, counted from the construction, with
 * a signal whose handler does not let system calls go on. The destructor waits for the last one.
 */
class Interruptions
{
public:
    explicit Interruptions(std::vector<std::chrono::milliseconds> times)
    {
        count = 0;
        struct sigaction counting = {};
        counting.sa_handler = [](int) { ++count; };
        sigaction(SIGUSR1, &counting, &before);
        thread = std::thread([target = pthread_self(), all = std::move(times), begin = Clock::Elapsed()] {
            for (const std::chrono::milliseconds at : all)
            {
                std::this_thread::sleep_for(begin + at - Clock::Elapsed());
                pthread_kill(target, SIGUSR1);
            }
        });
    }

    ~Interruptions()
    {
        thread.join();
        sigaction(SIGUSR1, &before, nullptr);
    }

    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

    static int Count() { return count; } ///< that were handled since the construction

private:
    static inline std::atomic<int> count{0};
    struct sigaction before = {};
    std::thread thread;
};

}

#endif

// A dozen threads in virtual time, one of which sleeps again and again: each sleep is one jump of time.
// usage: jumps SLEEPS

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

int main(int, char** arguments)
{
    constexpr int OTHERS = 11;
    constexpr useconds_t SLEEP = 1000;
    std::mutex access;
    std::condition_variable ended;
    bool end = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < OTHERS; ++i)
    {
        threads.emplace_back([&] {
            std::unique_lock lock(access);
            ended.wait(lock, [&] { return end; });
        });
    }
    for (int i = std::atoi(arguments[1]); i > 0; --i)
    {
        usleep(SLEEP);
    }
    {
        const std::lock_guard lock(access);
        end = true;
    }
    ended.notify_all();
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

// What the tests of virtual time run on the virtual unit: each way to wait for a quarter of an hour, by name.
// Prints how long it took by the steady clock and by the wall clock, in milliseconds.

#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <map>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace
{

constexpr int SECONDS = 900; // more than a test is given in real time
constexpr timespec DURATION = {SECONDS, 0};

void WaitForCondition(
    const std::function<void(std::condition_variable&, std::unique_lock<std::mutex>&)>& wait)
{
    std::mutex access;
    std::condition_variable never;
    std::unique_lock lock(access);
    wait(never, lock);
}

void WaitForSignal()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    sigtimedwait(&signals, nullptr, &DURATION);
}

void SleepUntilThen()
{
    timespec then = {};
    clock_gettime(CLOCK_MONOTONIC, &then);
    then.tv_sec += SECONDS;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &then, nullptr);
}

void WaitForEpoll()
{
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event = {};
    epoll_wait(epoll, &event, 1, SECONDS * 1000);
    close(epoll);
}

/// A read from a terminal whose time-out is at most 25.5 seconds.
void ReadFromSilentPort()
{
    const int port = open("/dev/ttymxc2", O_RDWR | O_NOCTTY);
    termios settings = {};
    tcgetattr(port, &settings);
    cfmakeraw(&settings);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 100;
    tcsetattr(port, TCSANOW, &settings);
    char byte = 0;
    for (int i = 0; i < SECONDS / 10; ++i)
    {
        if (read(port, &byte, 1) != 0)
        {
            std::exit(EXIT_FAILURE);
        }
    }
    close(port);
}

void SleepInThreads()
{
    std::thread shorter([] { sleep(SECONDS / 2); });
    std::thread longer([] { sleep(SECONDS); });
    shorter.join();
    longer.join();
}

/// A child that goes on with this program.
void SleepInChild()
{
    const pid_t child = fork();
    if (child == 0)
    {
        sleep(SECONDS);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

/// A sleep that a signal ends after half the time, and the rest of it.
void SleepInterrupted()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, nullptr);
    const pthread_t sleeper = pthread_self();
    std::thread waker([sleeper] {
        sleep(SECONDS / 2);
        pthread_kill(sleeper, SIGUSR2);
    });
    timespec left = {};
    if (nanosleep(&DURATION, &left) != -1 || left.tv_sec != SECONDS / 2)
    {
        std::exit(EXIT_FAILURE);
    }
    nanosleep(&left, nullptr);
    waker.join();
}

const std::map<std::string, std::function<void()>> WAYS = {
    {"usleep", [] { usleep(SECONDS * 1'000'000); }},
    {"sleep", [] { sleep(SECONDS); }},
    {"nanosleep", [] { nanosleep(&DURATION, nullptr); }},
    {"clock_nanosleep", [] { clock_nanosleep(CLOCK_REALTIME, 0, &DURATION, nullptr); }},
    {"clock_nanosleep-until", SleepUntilThen},
    {"poll", [] { poll(nullptr, 0, SECONDS * 1000); }},
    {"ppoll", [] { ppoll(nullptr, 0, &DURATION, nullptr); }},
    {"select",
     [] {
         timeval limit = {SECONDS, 0};
         select(0, nullptr, nullptr, nullptr, &limit);
     }},
    {"pselect", [] { pselect(0, nullptr, nullptr, nullptr, &DURATION, nullptr); }},
    {"epoll_wait", WaitForEpoll},
    {"sigtimedwait", WaitForSignal},
    {"condition",
     [] {
         WaitForCondition(
             [](auto& never, auto& lock) { never.wait_for(lock, std::chrono::seconds(SECONDS)); });
     }},
    {"condition-until",
     [] {
         WaitForCondition([](auto& never, auto& lock) {
             never.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(SECONDS));
         });
     }},
    {"terminal", ReadFromSilentPort},
    {"threads", SleepInThreads},
    {"child", SleepInChild},
    {"interrupted", SleepInterrupted},
};

template <class Clock>
long Milliseconds(typename Clock::duration duration)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

}

int main(int, char** arguments)
{
    using Steady = std::chrono::steady_clock;
    using Wall = std::chrono::system_clock;
    const auto way = WAYS.find(arguments[1]);
    if (way == WAYS.end())
    {
        return EXIT_FAILURE;
    }
    const Steady::time_point steady = Steady::now();
    const Wall::time_point wall = Wall::now();
    way->second();
    std::printf("%ld %ld\n", Milliseconds<Steady>(Steady::now() - steady),
                Milliseconds<Wall>(Wall::now() - wall));
    return EXIT_SUCCESS;
}

// What a test of virtual time runs on the virtual unit: random programs of threads that sleep, wait for
// semaphores with a limit and post them, compared with what they must do.
// usage: PROBE PROGRAMS SEED

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <poll.h>
#include <random>
#include <semaphore>
#include <string>
#include <sys/select.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

enum class Kind : std::uint8_t
{
    Sleep, ///< in one of several ways
    Post,
    Wait ///< for the thread's own semaphore, with a limit
};

struct Step
{
    Kind kind;
    int way;    ///< of several that do the same
    int thread; ///< whose semaphore is posted
    std::int64_t duration;
};

using Thread = std::vector<Step>;
using Times = std::vector<std::vector<std::int64_t>>; ///< the end of each step, in microseconds, by thread

// What the program must do -------------------------------------------------------------------------------

/// @return false when two threads do something at the same moment: either order would be right
bool Foresee(const std::vector<Thread>& threads, Times& ends)
{
    struct State
    {
        std::size_t step = 0;
        std::int64_t due = 0; ///< when the present step is over, unless it is posted before
        bool waits = false;
        int posts = 0;
    };

    std::vector<State> states(threads.size());
    ends.assign(threads.size(), {});
    std::int64_t now = 0;
    const auto begin = [&](std::size_t index) {
        State& state = states[index];
        while (state.step < threads[index].size())
        {
            const Step& step = threads[index][state.step];
            if (step.kind == Kind::Post)
            {
                State& other = states[static_cast<std::size_t>(step.thread)];
                ++other.posts;
                if (other.waits)
                {
                    other.due = now;
                }
            }
            else if (step.kind == Kind::Wait && state.posts > 0)
            {
                --state.posts;
            }
            else
            {
                state.due = now + step.duration;
                state.waits = step.kind == Kind::Wait;
                return;
            }
            ends[index].push_back(now);
            ++state.step;
        }
        state.due = INT64_MAX;
    };
    for (std::size_t i = 0; i < threads.size(); ++i)
    {
        begin(i);
    }
    while (true)
    {
        const auto next = std::ranges::min_element(states, {}, &State::due);
        if (next->due == INT64_MAX)
        {
            return true;
        }
        const bool posted = next->waits && next->posts > 0;
        if (!posted && (std::ranges::count(states, next->due, &State::due) > 1 || next->due == now))
        {
            return false;
        }
        now = next->due;
        next->posts -= posted ? 1 : 0;
        next->waits = false;
        const auto index = static_cast<std::size_t>(next - states.begin());
        ends[index].push_back(now);
        ++next->step;
        begin(index);
    }
}

// What it does ---------------------------------------------------------------------------------------------

constexpr int SLEEPS = 6;

void Sleep(int way, microseconds duration)
{
    const timespec time = {duration.count() / 1'000'000, duration.count() % 1'000'000 * 1000};
    switch (way)
    {
    case 0:
        std::this_thread::sleep_for(duration);
        break;
    case 1:
        usleep(static_cast<useconds_t>(duration.count()));
        break;
    case 2:
        ppoll(nullptr, 0, &time, nullptr);
        break;
    case 3:
        pselect(0, nullptr, nullptr, nullptr, &time, nullptr);
        break;
    case 4:
        std::this_thread::sleep_until(std::chrono::system_clock::now() + duration);
        break;
    default: {
        std::mutex mutex;
        std::unique_lock lock(mutex);
        std::condition_variable().wait_for(lock, duration);
        break;
    }
    }
}

/// A semaphore of one of several kinds.
class Semaphore
{
public:
    explicit Semaphore(int which) : kind(which) {}

    void Post()
    {
        if (kind == 0)
        {
            counting.release();
            return;
        }
        {
            const std::lock_guard lock(mutex);
            ++count;
        }
        condition.notify_one();
    }

    void Wait(microseconds limit)
    {
        if (kind == 0)
        {
            static_cast<void>(counting.try_acquire_for(limit));
            return;
        }
        std::unique_lock lock(mutex);
        if (condition.wait_for(lock, limit, [this] { return count > 0; }))
        {
            --count;
        }
    }

private:
    const int kind;
    std::counting_semaphore<> counting{0};
    std::mutex mutex;
    std::condition_variable condition;
    int count = 0;
};

void Run(const std::vector<Thread>& threads, int kind, Times& ends)
{
    std::vector<std::unique_ptr<Semaphore>> semaphores;
    for (std::size_t i = 0; i < threads.size(); ++i)
    {
        semaphores.push_back(std::make_unique<Semaphore>(kind));
    }
    ends.assign(threads.size(), {});
    std::atomic<bool> go{false};
    std::vector<std::thread> running;
    Clock::time_point begin;
    for (std::size_t i = 0; i < threads.size(); ++i)
    {
        running.emplace_back([&, i] {
            go.wait(false);
            for (const Step& step : threads[i])
            {
                const microseconds duration(step.duration);
                switch (step.kind)
                {
                case Kind::Sleep:
                    Sleep(step.way, duration);
                    break;
                case Kind::Post:
                    semaphores[static_cast<std::size_t>(step.thread)]->Post();
                    break;
                case Kind::Wait:
                    semaphores[i]->Wait(duration);
                    break;
                }
                ends[i].push_back(std::chrono::duration_cast<microseconds>(Clock::now() - begin).count());
            }
        });
    }
    begin = Clock::now();
    go = true;
    go.notify_all();
    for (std::thread& thread : running)
    {
        thread.join();
    }
}

std::vector<Thread> MakeProgram(std::mt19937& random)
{
    const auto number = [&](int from, int to) {
        return std::uniform_int_distribution<int>(from, to)(random);
    };
    std::vector<Thread> threads(static_cast<std::size_t>(number(1, 5)));
    for (Thread& thread : threads)
    {
        const int steps = number(1, 8);
        for (int i = 0; i < steps; ++i)
        {
            // Each thread begins with a sleep: none acts at the moment of the begin.
            const Kind kind = i == 0 ? Kind::Sleep : static_cast<Kind>(number(0, 2));
            thread.push_back({kind, number(0, SLEEPS - 1), number(0, static_cast<int>(threads.size()) - 1),
                              number(1, 900'000)});
        }
    }
    return threads;
}

}

int main(int, char** arguments)
{
    std::mt19937 random(static_cast<unsigned>(std::atoi(arguments[2])));
    int wrong = 0;
    for (int program = 0; program < std::atoi(arguments[1]);)
    {
        const std::vector<Thread> threads = MakeProgram(random);
        Times expected;
        if (!Foresee(threads, expected))
        {
            continue;
        }
        Times seen;
        Run(threads, program % 2, seen);
        ++program;
        if (seen != expected && ++wrong < 4)
        {
            std::printf("program %d\n", program);
            for (std::size_t i = 0; i < threads.size(); ++i)
            {
                for (std::size_t j = 0; j < threads[i].size(); ++j)
                {
                    const Step& step = threads[i][j];
                    std::printf("thread %zu: kind %d way %d of %d for %lld: ended at %lld, expected %lld\n",
                                i, static_cast<int>(step.kind), step.way, step.thread,
                                static_cast<long long>(step.duration), static_cast<long long>(seen[i][j]),
                                static_cast<long long>(expected[i][j]));
                }
            }
        }
    }
    std::printf("%s programs, %d wrong\n", arguments[1], wrong);
}

// System calls of a program on the virtual unit, beside the same calls of the same program without it: two
// processes of this program make them, in turns.

#include "benchmarks/Run.h"

#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr const char* MAKE_CALLS = "--make-calls";
constexpr const char* ORDINARY_FILE = "/etc/passwd";
constexpr const char* EVENT_DRIVER = "/dev/tav_event";
constexpr unsigned long PIN = 103;

constexpr int BATCH = 100;
using Piece = std::array<char, 64>; // BATCH of them find room in a pipe

enum class Call
{
    OpenAndClose,
    Write,
    Read,
    Poll,
    Pin
};

void Require(bool done, const char* what)
{
    if (!done)
    {
        std::perror(what);
        std::exit(1);
    }
}

struct Pipe
{
    Pipe()
    {
        std::array<int, 2> ends = {};
        Require(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
        out = ends[0];
        in = ends[1];
    }

    int out;
    int in;
};

// --- the processes that are measured

template <class Work>
double SecondsOf(Work work)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    for (int i = 0; i < BATCH; ++i)
    {
        work();
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Makes calls as it is told by standard input, and tells the seconds that a batch took, until there is no
/// more input.
int MakeCalls()
{
    const Pipe pipe;
    Piece piece = {};
    const auto write = [&] { Require(::write(pipe.in, piece.data(), piece.size()) > 0, "write"); };
    const auto read = [&] { Require(::read(pipe.out, piece.data(), piece.size()) > 0, "read"); };
    const auto poll = [&] {
        pollfd room = {pipe.in, POLLOUT, 0};
        Require(::poll(&room, 1, 0) == 1, "poll");
    };
    const auto openAndClose = [] {
        const int fd = open(ORDINARY_FILE, O_RDONLY);
        Require(fd >= 0, ORDINARY_FILE);
        close(fd);
    };
    int driver = -1;
    const auto setPin = [&driver] { Require(ioctl(driver, PIN, 1) == 0, "pin"); };

    Call call = Call::OpenAndClose;
    while (::read(STDIN_FILENO, &call, sizeof(call)) == sizeof(call))
    {
        double seconds = 0;
        switch (call)
        {
        case Call::OpenAndClose:
            seconds = SecondsOf(openAndClose);
            break;
        case Call::Write:
            seconds = SecondsOf(write);
            SecondsOf(read);
            break;
        case Call::Read:
            SecondsOf(write);
            seconds = SecondsOf(read);
            break;
        case Call::Poll:
            seconds = SecondsOf(poll);
            break;
        case Call::Pin:
            driver = open(EVENT_DRIVER, O_RDWR);
            Require(driver >= 0, EVENT_DRIVER);
            seconds = SecondsOf(setPin);
            close(driver);
            break;
        }
        Require(::write(STDOUT_FILENO, &seconds, sizeof(seconds)) == sizeof(seconds), "answer");
    }
    return 0;
}

// --- the process that measures

/// A process that makes calls, from its start to its end.
class Caller
{
public:
    explicit Caller(std::vector<const char*> command)
    {
        const Pipe orders;
        const Pipe answers;
        command.push_back(nullptr);
        process = fork();
        if (process == 0)
        {
            dup2(orders.out, STDIN_FILENO);
            dup2(answers.in, STDOUT_FILENO);
            execv(command[0], const_cast<char**>(command.data()));
            std::perror(command[0]);
            _exit(1);
        }
        close(orders.out);
        close(answers.in);
        order = orders.in;
        answer = answers.out;
    }

    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    ~Caller()
    {
        close(order);
        close(answer);
        waitpid(process, nullptr, 0);
    }

    /// @return the seconds that a batch took; negative when the process is not there any more
    double Measure(Call call) const
    {
        double seconds = 0;
        return write(order, &call, sizeof(call)) == sizeof(call) &&
                       read(answer, &seconds, sizeof(seconds)) == sizeof(seconds)
                   ? seconds
                   : -1;
    }

private:
    pid_t process;
    int order;
    int answer;
};

std::unique_ptr<Caller> native;
std::unique_ptr<Caller> onUnit;

void Measure(benchmark::State& state, const std::unique_ptr<Caller>& caller, Call call)
{
    while (state.KeepRunningBatch(BATCH))
    {
        const double seconds = caller->Measure(call);
        if (seconds < 0)
        {
            state.SkipWithError("the process that makes the calls has ended");
            return;
        }
        state.SetIterationTime(seconds);
    }
}

void Native(benchmark::State& state, Call call)
{
    Measure(state, native, call);
}

void Unit(benchmark::State& state, Call call)
{
    Measure(state, onUnit, call);
}

BENCHMARK_CAPTURE(Native, OpenAndClose, Call::OpenAndClose)->UseManualTime();
BENCHMARK_CAPTURE(Unit, OpenAndClose, Call::OpenAndClose)->UseManualTime();
BENCHMARK_CAPTURE(Native, Write, Call::Write)->UseManualTime();
BENCHMARK_CAPTURE(Unit, Write, Call::Write)->UseManualTime();
BENCHMARK_CAPTURE(Native, Read, Call::Read)->UseManualTime();
BENCHMARK_CAPTURE(Unit, Read, Call::Read)->UseManualTime();
BENCHMARK_CAPTURE(Native, Poll, Call::Poll)->UseManualTime();
BENCHMARK_CAPTURE(Unit, Poll, Call::Poll)->UseManualTime();
BENCHMARK_CAPTURE(Unit, Pin, Call::Pin)->UseManualTime();

}

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == MAKE_CALLS)
    {
        return MakeCalls();
    }
    std::signal(SIGPIPE, SIG_IGN);
    native = std::make_unique<Caller>(std::vector<const char*>{argv[0], MAKE_CALLS});
    onUnit =
        std::make_unique<Caller>(std::vector<const char*>{VIRTUAL_UNIT, "run", "--", argv[0], MAKE_CALLS});
    const int status = Benchmarks::Run(argc, argv);
    onUnit.reset();
    native.reset();
    return status;
}

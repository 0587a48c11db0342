// One short exchange with a module that answers at once, on a pseudo terminal, and the parsing of a long
// operator scan.

#include "Modem/Module3G.h"
#include "Modem/Replies.h"
#include "benchmarks/Allocations.h"
#include "benchmarks/Run.h"
#include "benchmarks/UnitTerminal.h"

#include <array>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <list>
#include <poll.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace
{

using Tavdevice::Modem::Module3G;
using Tavdevice::Modem::Operator;

constexpr const char* MAIN_PORT = "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0";
constexpr std::chrono::milliseconds FIRST_WAIT{100}; // of each exchange
constexpr int OPERATORS = 30;

/// A module that answers every line with its echo, a signal line and "OK".
class Module
{
public:
    explicit Module(int line) : master(line), thread([this] { Answer(); }) {}

    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    ~Module()
    {
        ending = true;
        thread.join();
    }

private:
    void Answer()
    {
        constexpr int LOOK_FOR_THE_END_MILLISECONDS = 20;
        std::string command;
        while (!ending)
        {
            pollfd input = {master, POLLIN, 0};
            std::array<char, 256> bytes;
            if (poll(&input, 1, LOOK_FOR_THE_END_MILLISECONDS) <= 0)
            {
                continue;
            }
            const ssize_t count = read(master, bytes.data(), bytes.size());
            command.append(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
            if (command.ends_with('\n'))
            {
                const std::string answer = command + "\r\n+CSQ: 21,99\r\n\r\nOK\r\n";
                if (write(master, answer.data(), answer.size()) < 0)
                {
                    return;
                }
                command.clear();
            }
        }
    }

    int master;
    std::atomic<bool> ending{false};
    std::thread thread;
};

/// Time: what an exchange takes above its first wait, or its processor time.
template <class Clock>
void Exchange(benchmark::State& state, Clock measure)
{
    const Benchmarks::UnitTerminal terminal(MAIN_PORT);
    const Module module(terminal.Master());
    std::uint64_t allocations = 0;
    for (auto _ : state)
    {
        const std::uint64_t before = Benchmarks::Allocations();
        bool done = false;
        state.SetIterationTime(measure([&] { done = Module3G::CheckSignal() == 0; }));
        allocations += Benchmarks::Allocations() - before;
        if (!done)
        {
            state.SkipWithError("the exchange failed");
            return;
        }
    }
    state.counters["allocations"] =
        static_cast<double>(allocations) / static_cast<double>(state.iterations());
}

void ExchangeAboveFirstWait(benchmark::State& state)
{
    Exchange(state, [](auto exchange) {
        const auto start = std::chrono::steady_clock::now();
        exchange();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start - FIRST_WAIT).count();
    });
}

void ExchangeProcessorTime(benchmark::State& state)
{
    Exchange(state, [](auto exchange) {
        const double start = Benchmarks::ThreadSeconds();
        exchange();
        return Benchmarks::ThreadSeconds() - start;
    });
}

void OperatorScan(benchmark::State& state)
{
    std::string reply = "AT+COPS=?\r\r\n+COPS: ";
    for (int i = 0; i < OPERATORS; ++i)
    {
        reply += "(1,\"Operator number " + std::to_string(i) + "\",\"Op " + std::to_string(i) + "\",\"" +
                 std::to_string(26201 + i) + "\"," + (i % 2 == 0 ? "0" : "2") + "),";
    }
    reply += ",(0,1,2,3,4),(0,1,2)\r\n\r\nOK\r\n";
    for (auto _ : state)
    {
        std::list<Operator> operators;
        benchmark::DoNotOptimize(Tavdevice::Modem::Replies::Operators(reply, operators));
        if (operators.size() < OPERATORS)
        {
            state.SkipWithError("operators are missing");
            return;
        }
    }
}

BENCHMARK(ExchangeAboveFirstWait)->UseManualTime()->Iterations(10);
BENCHMARK(ExchangeProcessorTime)->UseManualTime()->Iterations(10);
BENCHMARK(OperatorScan)->UseRealTime();

}

int main(int argc, char** argv)
{
    return Benchmarks::Run(argc, argv);
}

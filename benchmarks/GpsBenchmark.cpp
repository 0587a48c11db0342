// One step of the GPS thread on a pseudo terminal, beside what no reader can do without: a read() of the
// same line and its bytes appended to a text. Feeding the terminal is not measured.

#include "GpsDevice/GpsDevice.h"
#include "benchmarks/Allocations.h"
#include "benchmarks/Run.h"
#include "benchmarks/UnitTerminal.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/select.h>
#include <unistd.h>

namespace
{

constexpr const char* UNIT_PATH = "/dev/ttymxc0";
constexpr int SECONDS_FED = 6; // at once; a terminal keeps 4095 bytes

// One second of an L26.
constexpr std::string_view SECOND =
    "$GPRMC,064951.000,A,3226.2342,N,03456.1278,E,12.30,165.48,260426,,,A*5E\r\n"
    "$GPVTG,165.48,T,,M,12.30,N,22.78,K,A*3A\r\n"
    "$GPGGA,064951.000,3226.2342,N,03456.1278,E,1,8,0.95,39.9,M,17.8,M,,*6B\r\n"
    "$GPGSA,A,3,29,21,26,15,18,09,06,10,,,,,2.32,0.95,2.11*00\r\n"
    "$GPGSV,3,1,09,29,36,029,42,21,46,314,43,26,44,020,43,15,21,321,39*7D\r\n"
    "$GPGSV,3,2,09,18,26,314,40,09,57,170,44,06,20,229,37,10,26,084,37*77\r\n"
    "$GPGSV,3,3,09,07,,,26*73\r\n"
    "$GPGLL,3226.2342,N,03456.1278,E,064951.000,A,A*53\r\n";
constexpr int LINES = static_cast<int>(std::count(SECOND.begin(), SECOND.end(), '\n')) * SECONDS_FED;

std::string FedText()
{
    std::string text;
    for (int second = 0; second < SECONDS_FED; ++second)
    {
        text += SECOND;
    }
    return text;
}

/// Measures `step`, which takes one line from the terminal.
template <class Step>
void Measure(benchmark::State& state, const Benchmarks::UnitTerminal& terminal, Step step)
{
    using Clock = std::chrono::steady_clock;
    const std::string text = FedText();
    std::uint64_t allocations = 0;
    while (state.KeepRunningBatch(LINES))
    {
        terminal.Feed(text);
        const std::uint64_t before = Benchmarks::Allocations();
        const auto start = Clock::now();
        for (int line = 0; line < LINES; ++line)
        {
            step();
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        allocations += Benchmarks::Allocations() - before;
    }
    state.counters["allocations"] =
        static_cast<double>(allocations) / static_cast<double>(state.iterations());
}

/// A line that is open in the mode that the GPS device uses.
class BareLine
{
public:
    explicit BareLine(const char* path) : descriptor(open(path, O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        if (descriptor < 0)
        {
            std::perror(path);
            std::exit(1);
        }
    }

    ~BareLine() { close(descriptor); }

    BareLine(const BareLine&) = delete;
    BareLine& operator=(const BareLine&) = delete;

    void ReadAndAppend()
    {
        const ssize_t count = read(descriptor, bytes.data(), bytes.size());
        if (count < 1)
        {
            std::perror("read");
            std::exit(1);
        }
        if (block.size() > SECOND.size())
        {
            block.clear();
        }
        block.append(bytes.data(), static_cast<std::size_t>(count));
        benchmark::DoNotOptimize(block.data());
    }

    void Await() const
    {
        fd_set input;
        FD_ZERO(&input);
        FD_SET(descriptor, &input);
        timeval limit = {1, 0};
        if (select(descriptor + 1, &input, nullptr, nullptr, &limit) != 1)
        {
            std::perror("select");
            std::exit(1);
        }
    }

private:
    int descriptor;
    std::array<char, 4096> bytes;
    std::string block;
};

void ReadAndAppend(benchmark::State& state)
{
    const Benchmarks::UnitTerminal terminal(UNIT_PATH);
    BareLine line(terminal.SlavePath());
    Measure(state, terminal, [&] { line.ReadAndAppend(); });
}

void SelectReadAndAppend(benchmark::State& state)
{
    const Benchmarks::UnitTerminal terminal(UNIT_PATH);
    BareLine line(terminal.SlavePath());
    Measure(state, terminal, [&] {
        line.Await();
        line.ReadAndAppend();
    });
}

class Receiver : public Tavbase::Interfaces::IThread::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override { benchmark::DoNotOptimize(value); }
};

void GpsRun(benchmark::State& state)
{
    const Benchmarks::UnitTerminal terminal(UNIT_PATH);
    Receiver receiver;
    Tavbase::Interfaces::IThread::IThreadDelegate* delegate = &receiver;
    Tavdevice::GpsDevice::GpsDevice gps;
    gps.Prepare(delegate);
    if (gps.HasError())
    {
        state.SkipWithError(gps.GetErrorMessage().c_str());
        return;
    }
    terminal.Feed(FedText()); // the steady state: texts have their storage
    for (int line = 0; line < LINES; ++line)
    {
        gps.Run();
    }
    Measure(state, terminal, [&] { gps.Run(); });
}

BENCHMARK(ReadAndAppend)->UseManualTime();
BENCHMARK(SelectReadAndAppend)->UseManualTime();
BENCHMARK(GpsRun)->UseManualTime();

}

int main(int argc, char** argv)
{
    return Benchmarks::Run(argc, argv);
}

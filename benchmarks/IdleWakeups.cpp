// Counts how often the log's threads wake up while nothing is logged. Prints the count for two seconds.

#include "base/Tavbase/Tavlog/Logger.h"
#include "benchmarks/Console.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <unistd.h>

namespace
{

/// Context switches, voluntary or not, of all threads but the calling one; `threads` is their number.
std::uint64_t SwitchesOfOthers(int& threads)
{
    std::uint64_t sum = 0;
    threads = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
    {
        if (task.path().filename() == std::to_string(gettid()))
        {
            continue;
        }
        ++threads;
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);)
        {
            const std::size_t at = line.find("_ctxt_switches:");
            if (at != std::string::npos)
            {
                sum += std::stoull(line.substr(line.find(':') + 1));
            }
        }
    }
    return sum;
}

}

int main()
{
    using namespace Tavbase::Tavlog;
    Benchmarks::SilenceStandardOutput();
    Logger& log = Logger::GetInstance();
    log.OpenFile("/dev/null");
    for (int line = 0; line < 1000; ++line)
    {
        log << LogType::Info << "line " << line << std::endl;
    }
    log.Flush();
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // the writers go to sleep

    int threads = 0;
    const std::uint64_t before = SwitchesOfOthers(threads);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const std::uint64_t after = SwitchesOfOthers(threads);
    std::cerr << after - before << " wake-ups of " << threads << " threads in 2 s without a line\n";
    return threads == 2 && after == before ? 0 : 1;
}

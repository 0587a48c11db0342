// gps-monitor: an application of the device library that shows what the GPS receiver reports.

#include "GpsDevice/GpsDevice.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "examples/gps-monitor/Monitor.h"
#include "examples/gps-monitor/Options.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <optional>

namespace
{

using Clock = std::chrono::steady_clock;

/// The signals that end the program, taken by the main thread only. To be made before any other thread,
/// which then never gets them.
class EndingSignals
{
public:
    EndingSignals()
    {
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
    }

    /// Returns when one has come, or when the time is over.
    void Await(const std::optional<std::chrono::seconds>& longest) const
    {
        if (!longest)
        {
            int signal = 0;
            sigwait(&set, &signal);
            return;
        }
        const auto end = Clock::now() + *longest;
        for (auto rest = *longest + Clock::duration::zero(); rest > Clock::duration::zero();
             rest = end - Clock::now())
        {
            const auto seconds = std::chrono::floor<std::chrono::seconds>(rest);
            const timespec limit = {static_cast<std::time_t>(seconds.count()),
                                    static_cast<long>((rest - seconds).count())};
            if (sigtimedwait(&set, nullptr, &limit) > 0)
            {
                return;
            }
        }
    }

private:
    sigset_t set;
};

}

int main(int argc, char** argv)
{
    using Tavbase::Tavlog::Logger;

    constexpr int NOTHING_RECEIVED = 1;
    constexpr int WRONG_COMMAND_LINE = 2;

    const std::optional<GpsMonitor::Options> options = GpsMonitor::Options::Parse(argc, argv);
    if (!options || options->help)
    {
        std::fputs(GpsMonitor::Options::USAGE, options ? stdout : stderr);
        return options ? 0 : WRONG_COMMAND_LINE;
    }

    const EndingSignals endingSignals;
    Logger::GetInstance().EnableConsole(false); // the console belongs to the positions
    if (!options->logFile.empty() && !Logger::GetInstance().OpenFile(options->logFile))
    {
        std::perror(options->logFile.c_str());
    }

    GpsMonitor::Monitor monitor;
    Tavbase::Interfaces::IThread::IThreadDelegate* receiver = &monitor;
    Tavdevice::GpsDevice::GpsDevice gps;
    gps.Prepare(receiver);
    if (gps.HasError())
    {
        std::fprintf(stderr, "no GPS receiver: %s\n", gps.GetErrorMessage().c_str());
        return NOTHING_RECEIVED;
    }
    if (!gps.Start())
    {
        std::fprintf(stderr, "the GPS thread could not be started\n");
        return NOTHING_RECEIVED;
    }

    std::printf("Asking the GPS receiver what it is; this takes up to six seconds.\n");
    std::fflush(stdout);
    endingSignals.Await(options->seconds);
    gps.Stop();

    monitor.PrintSummary();
    if (monitor.Blocks() == 0)
    {
        const std::string reason = gps.GetErrorMessage();
        std::fprintf(stderr, "no block received: %s\n",
                     reason.empty() ? "the receiver is silent" : reason.c_str());
        return NOTHING_RECEIVED;
    }
    return 0;
}

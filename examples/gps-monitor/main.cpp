// gps-monitor: an application of the device library that shows what the GPS receiver reports.

#include "GpsDevice/GpsDevice.h"
#include "examples/common/EndingSignals.h"
#include "examples/common/Options.h"
#include "examples/gps-monitor/Monitor.h"

#include <cstdio>

namespace
{

constexpr const char* USAGE =
    "usage: gps-monitor [--seconds N] [--log FILE]\n"
    "\n"
    "Prints each position that the GPS receiver reports, until Ctrl-C, and a summary at the end.\n"
    "\n"
    "  --seconds N  end after N seconds\n"
    "  --log FILE   append the device library's log to FILE\n"
    "\n"
    "Exit status: 0 when something was received, 1 when not, 2 for a wrong command line.\n";

constexpr int NOTHING_RECEIVED = 1;

}

int main(int argc, char** argv)
{
    const Examples::Options options = Examples::Options::ParseOrExit(argc, argv, USAGE);
    const Examples::EndingSignals endingSignals;
    options.SetUpLog();

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
    endingSignals.Await(options.seconds);
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

// unit-monitor: an application of the device library that watches all peripherals of the unit during a drive,
// from the ignition to the power-off.

#include "base/Tavbase/Tavlog/Logger.h"
#include "examples/common/EndingSignals.h"
#include "examples/common/Options.h"
#include "examples/unit-monitor/Monitor.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/Style.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <unistd.h>

namespace
{

constexpr const char* USAGE =
    "usage: unit-monitor [--seconds N] [--log FILE] [--lines FILE] [--plain] [--scan]\n"
    "\n"
    "Watches all peripherals of the unit until it is to be switched off, or Ctrl-C: a live panel on a "
    "terminal,\n"
    "otherwise a line for each change.\n"
    "\n"
    "  --seconds N   end after N seconds\n"
    "  --log FILE    append the device library's log to FILE\n"
    "  --lines FILE  write the lines to FILE as well\n"
    "  --plain       lines on a terminal, too\n"
    "  --scan        look for the operators at the start, which may take three minutes\n"
    "\n"
    "The panel is without colours where NO_COLOR is set, in ASCII where the locale has no UTF-8; where TERM "
    "is "
    "dumb\n"
    "there are lines. Ctrl-Z leaves the terminal in order.\n"
    "\n"
    "Exit status: 0 when it ended in order, 1 when it could not start, 2 for a wrong command line.\n";

int Run(UnitMonitor::Monitor& monitor, bool panel, const Examples::EndingSignals& signals,
        const Examples::Options& options)
{
    int status = EXIT_SUCCESS;
    std::string reason;
    try
    {
        if (panel)
        {
            monitor.ShowPanel();
        }
        monitor.Start();
        monitor.Watch(signals, options.seconds);
    }
    catch (const std::exception& e)
    {
        status = EXIT_FAILURE;
        reason = e.what();
    }
    const bool allEnded = monitor.End();
    if (!reason.empty())
    {
        std::fprintf(stderr, "%s\n", reason.c_str());
    }
    if (!allEnded)
    {
        Tavbase::Tavlog::Logger::GetInstance().Flush();
        std::fflush(stdout);
        _exit(status); // a thread is still held by its device, and uses what an ordinary end destroys
    }
    return status;
}

}

int main(int argc, char** argv)
{
    bool plain = false;
    bool scan = false;
    std::string linesFile;
    const Examples::Options options = Examples::Options::ParseOrExit(
        argc, argv, USAGE, {{"--lines", &linesFile}, {"--plain", &plain}, {"--scan", &scan}});
    const Examples::EndingSignals endingSignals;
    options.SetUpLog();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    UnitMonitor::PlainOutput output;
    if (!linesFile.empty() && !output.OpenFile(linesFile))
    {
        std::perror(linesFile.c_str());
        return EXIT_FAILURE;
    }
    try
    {
        UnitMonitor::Monitor monitor(output, scan);
        return Run(monitor, !plain && isatty(STDOUT_FILENO) == 1 && !UnitMonitor::Style::IsDumb(),
                   endingSignals, options);
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "%s\n", e.what());
        return EXIT_FAILURE;
    }
}

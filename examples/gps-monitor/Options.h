#ifndef EXAMPLES_GPS_MONITOR_OPTIONS_H
#define EXAMPLES_GPS_MONITOR_OPTIONS_H

#include <chrono>
#include <optional>
#include <string>

namespace GpsMonitor
{

struct Options
{
    static const char* const USAGE;

    /// @return none when the command line is wrong
    static std::optional<Options> Parse(int argc, const char* const* argv);

    std::optional<std::chrono::seconds> seconds; ///< how long to run; none: until a signal
    std::string logFile;                         ///< the library's log; empty: none
    bool help = false;
};

}

#endif

#include "examples/gps-monitor/Options.h"

#include <charconv>
#include <string_view>

namespace GpsMonitor
{

const char* const Options::USAGE =
    "usage: gps-monitor [--seconds N] [--log FILE]\n"
    "\n"
    "Prints each position that the GPS receiver reports, until Ctrl-C, and a summary at the end.\n"
    "\n"
    "  --seconds N  end after N seconds\n"
    "  --log FILE   append the device library's log to FILE\n"
    "\n"
    "Exit status: 0 when something was received, 1 when not, 2 for a wrong command line.\n";

std::optional<Options> Options::Parse(int argc, const char* const* argv)
{
    Options options;
    for (int i = 1; i < argc; ++i)
    {
        const std::string_view option = argv[i];
        if (option == "--help" || option == "-h")
        {
            options.help = true;
        }
        else if (option == "--seconds" && i + 1 < argc)
        {
            const std::string_view text = argv[++i];
            unsigned int value = 0;
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            if (error != std::errc() || end != text.data() + text.size())
            {
                return std::nullopt;
            }
            options.seconds = std::chrono::seconds(value);
        }
        else if (option == "--log" && i + 1 < argc)
        {
            options.logFile = argv[++i];
        }
        else
        {
            return std::nullopt;
        }
    }
    return options;
}

}

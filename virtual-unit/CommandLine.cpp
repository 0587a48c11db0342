#include "virtual-unit/CommandLine.h"

#include <charconv>
#include <chrono>

namespace VirtualUnit
{

namespace
{

constexpr std::string_view PROGRAM_FOLLOWS = "--";

std::chrono::seconds Seconds(const std::string& text, const std::string& option)
{
    constexpr unsigned int LONGEST = 24 * 60 * 60;
    unsigned int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > LONGEST)
    {
        throw CommandLine::Wrong(option + ": \"" + text + "\" is not a number of seconds from 0 to " +
                                 std::to_string(LONGEST));
    }
    return std::chrono::seconds(value);
}

GpsReceiver::Model Model(const std::string& text)
{
    if (text != "l26" && text != "skm53")
    {
        throw CommandLine::Wrong("--gps: \"" + text + "\" is neither l26 nor skm53");
    }
    return text == "l26" ? GpsReceiver::Model::L26 : GpsReceiver::Model::SKM53;
}

CommandLine::Command Command(const std::string& text)
{
    if (text == "run")
    {
        return CommandLine::Command::Run;
    }
    if (text == "check")
    {
        return CommandLine::Command::Check;
    }
    if (text == "devices")
    {
        return CommandLine::Command::Devices;
    }
    if (text == "help" || text == "--help" || text == "-h")
    {
        return CommandLine::Command::Help;
    }
    throw CommandLine::Wrong("\"" + text + "\" is not a command");
}

}

const char* const CommandLine::USAGE =
    "usage: virtual-unit run [OPTION...] -- PROGRAM [ARGUMENT...]\n"
    "       virtual-unit devices [OPTION...]\n"
    "       virtual-unit check\n"
    "       virtual-unit --help\n"
    "\n"
    "run      runs PROGRAM, unmodified, on an emulated unit, and ends with its exit status\n"
    "devices  lists the device files of the unit and what stands behind them\n"
    "check    tells whether this machine can run the virtual unit, and what is missing\n"
    "\n"
    "  --gps l26|skm53          the GPS receiver that is fitted (l26)\n"
    "  --gps-fix-after SECONDS  it has no fix for so long after the port is first opened (0)\n"
    "  --nmea FILE              it plays a recording, one second a second, again and again\n"
    "\n"
    "Exit status: that of PROGRAM, 128+N when signal N ended it; 2 for a wrong command line, 3 when this\n"
    "machine cannot run the virtual unit, 126 or 127 when PROGRAM cannot be executed or found.\n";

CommandLine CommandLine::Parse(const std::vector<std::string>& arguments)
{
    CommandLine line;
    if (arguments.empty())
    {
        throw Wrong("no command");
    }
    line.command = ::VirtualUnit::Command(arguments.front());

    auto argument = arguments.begin() + 1;
    for (; argument != arguments.end() && *argument != PROGRAM_FOLLOWS; ++argument)
    {
        const std::string& option = *argument;
        if (option != "--gps" && option != "--nmea" && option != "--gps-fix-after")
        {
            throw Wrong("\"" + option + "\" is not an option" +
                        (line.command == Command::Run ? "; the program stands behind \"--\"" : ""));
        }
        if (++argument == arguments.end() || *argument == PROGRAM_FOLLOWS)
        {
            throw Wrong(option + ": the value is missing");
        }
        if (option == "--gps")
        {
            line.gps.model = Model(*argument);
        }
        else if (option == "--nmea")
        {
            line.nmeaFile = *argument;
        }
        else
        {
            line.gps.fixAfter = Seconds(*argument, option);
        }
    }
    if (argument != arguments.end())
    {
        line.program.assign(argument + 1, arguments.end());
    }
    if (line.command == Command::Run && line.program.empty())
    {
        throw Wrong("run: no program; it stands behind \"--\"");
    }
    return line;
}

}

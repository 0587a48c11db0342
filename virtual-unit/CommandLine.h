#ifndef VIRTUAL_UNIT_COMMANDLINE_H
#define VIRTUAL_UNIT_COMMANDLINE_H

#include "virtual-unit/peripherals/CellularState.h"
#include "virtual-unit/peripherals/GpsReceiver.h"
#include "virtual-unit/peripherals/KeyReader.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// What the user asked for.
struct CommandLine
{
    enum class Command
    {
        Run,
        Check,
        Devices,
        Help
    };

    /// A command line that cannot be understood; what() says why, in one line.
    class Wrong : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    static const char* const USAGE;

    /// @param arguments without the program's own name @throws Wrong
    static CommandLine Parse(const std::vector<std::string>& arguments);

    Command command = Command::Help;
    GpsReceiver::Options gps;
    KeyReader::Options keyReader;
    CellularState modem;
    bool modemOnBus = true;
    std::optional<std::chrono::seconds> crashAfter;    ///< from the begin of the run; none: no crash
    std::optional<std::chrono::seconds> ignitionAfter; ///< from the first use of the event driver; none: off
    std::string journal;                               ///< file that tells what the outputs did; empty: none
    std::string nmeaFile;                              ///< a recording to play; empty: none
    std::string sdcard;               ///< directory with the storage card's content; empty: a private one
    std::vector<std::string> program; ///< and its arguments; not empty for Command::Run
};

}

#endif

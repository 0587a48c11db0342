#include "virtual-unit/CommandLine.h"

#include "virtual-unit/script/Step.h"
#include "virtual-unit/unit/Values.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace VirtualUnit
{

namespace
{

using Command = CommandLine::Command;
using Commands = std::initializer_list<Command>;

constexpr std::string_view PROGRAM_FOLLOWS = "--";

struct CommandName
{
    std::string_view name;
    Command command;
};

constexpr CommandName COMMANDS[] = {{"run", Command::Run},         {"replay", Command::Replay},
                                    {"do", Command::Do},           {"check", Command::Check},
                                    {"devices", Command::Devices}, {"help", Command::Help},
                                    {"--help", Command::Help},     {"-h", Command::Help}};

/// An option that is not the unit's.
struct Option
{
    std::string_view name;
    std::string CommandLine::*value;
};

constexpr Option OPTIONS[] = {
    {"--script", &CommandLine::script},   {"--record", &CommandLine::record},
    {"--log", &CommandLine::log},         {"--journal", &CommandLine::journal},
    {"--control", &CommandLine::control}, {"--sdcard", &CommandLine::sdcard},
};

/// An option without a value.
struct Flag
{
    std::string_view name;
    bool CommandLine::*value;
};

constexpr Flag FLAGS[] = {{"--fast", &CommandLine::fast}, {"--mask", &CommandLine::mask}};

using Position = std::vector<std::string>::const_iterator;

void TakeOption(CommandLine& line, Position& argument, Position end)
{
    const std::string& name = *argument;
    if (const auto* const flag = std::ranges::find(FLAGS, name, &Flag::name); flag != std::end(FLAGS))
    {
        line.*flag->value = true;
        return;
    }
    const auto* const option = std::ranges::find(OPTIONS, name, &Option::name);
    const bool ofUnit = name.starts_with("--") && UnitOptions::Has(name.substr(2));
    if (option == std::end(OPTIONS) && !ofUnit)
    {
        throw CommandLine::Wrong("\"" + name + "\" is not an option" +
                                 (line.command == Command::Run ? "; the program stands behind \"--\"" : ""));
    }
    if (std::next(argument) == end || *std::next(argument) == PROGRAM_FOLLOWS)
    {
        throw CommandLine::Wrong(name + ": the value is missing");
    }
    const std::string& value = *++argument;
    if (ofUnit)
    {
        line.unit.emplace_back(name.substr(2), value);
        return;
    }
    if (value.empty())
    {
        throw CommandLine::Wrong(name + ": \"\" is no path");
    }
    line.*option->value = value;
}

/// The words of a command up to the program.
void TakeWord(CommandLine& line, const std::string& word)
{
    if (line.command == Command::Do)
    {
        line.step += (line.step.empty() ? "" : " ") + word;
    }
    else if (line.recording.empty())
    {
        line.recording = word;
    }
    else
    {
        throw CommandLine::Wrong("replay: \"" + word + "\" is too much");
    }
}

void RefuseIncomplete(const CommandLine& line)
{
    const bool runs = line.command == Command::Run || line.command == Command::Replay;
    if (line.command == Command::Replay && line.recording.empty())
    {
        throw CommandLine::Wrong("replay: no recording");
    }
    if (runs && line.program.empty())
    {
        throw CommandLine::Wrong(std::string(line.command == Command::Run ? "run" : "replay") +
                                 ": no program; it stands behind \"--\"");
    }
    if (line.command == Command::Do && line.step.empty())
    {
        throw CommandLine::Wrong("do: no step");
    }
    if (line.mask && line.record.empty())
    {
        throw CommandLine::Wrong("--mask: there is no --record");
    }
    if (line.command == Command::Replay &&
        (line.mask || !line.unit.empty() || !(line.script + line.journal + line.control).empty()))
    {
        throw CommandLine::Wrong(
            "replay: the unit is that of the recording; --sdcard, --log, --record and --fast are all "
            "that can be told");
    }
}

constexpr const char* USAGE =
    "usage: virtual-unit run [OPTION...] -- PROGRAM [ARGUMENT...]\n"
    "       virtual-unit replay DIR [--sdcard DIR] [--log FILE] [--record DIR] [--fast] -- PROGRAM "
    "[ARGUMENT...]\n"
    "       virtual-unit do [--control PATH] STEP\n"
    "       virtual-unit devices [OPTION...]\n"
    "       virtual-unit check\n"
    "       virtual-unit --help\n"
    "\n"
    "run      runs PROGRAM, unmodified, on an emulated unit, and ends with its exit status\n"
    "replay   runs PROGRAM on the ports that --record has recorded, and tells the first difference in what\n"
    "         it sends\n"
    "do       has something happen to the unit of a run\n"
    "devices  lists the device files of the unit, and what stands behind them and how it is: that of the "
    "run\n"
    "         with --control PATH, or inside a run\n"
    "check    tells whether this machine can run the virtual unit, and what is missing\n"
    "\n"
    "  --fast                   time is virtual: it jumps to the next deadline whenever all threads wait\n"
    "  --script FILE            what happens to the unit in the course of the run\n"
    "  --record DIR             the traffic of each port goes to a file in DIR, which is new or empty\n"
    "  --mask                   without the numbers of the module and the SIM: IMEI, IMSI, ICCID\n"
    "  --log FILE               what happened to the unit, and what the program was refused\n"
    "  --journal FILE           what pins, sound chips and buzzer did, at the end of the run\n"
    "  --sdcard DIR             keeps the content of the storage card; without it the card is empty at "
    "first\n"
    "  --control PATH           the socket through which virtual-unit do reaches the run\n"
    "\n"
    "How the unit is fitted, and what it finds:\n"
    "\n"
    "  --gps l26|skm53          the GPS receiver that is fitted (l26)\n"
    "  --gps-fix-after SECONDS  it has no fix for so long after the port is first opened (0)\n"
    "  --nmea FILE              it plays a recording, one second a second, again and again\n"
    "  --nmea-times recorded|present\n"
    "                           its times, moved to the present or not (recorded)\n"
    "  --date MOMENT            UTC when receiver and module are switched on: 2026-03-01T08:15:00Z (the "
    "track's, or\n"
    "                           the present time)\n"
    "  --track FILE             the drive, as GPX or CSV: the receiver sends it, the accelerometer feels it\n"
    "  --motion FILE            what the accelerometer feels, as CSV: time, x, y, z in g\n"
    "  --seed N                 of the noise of engine and road that belongs to --track (1)\n"
    "  --key ID|none            the key at the driver-ID reader, 12 hexadecimal digits (none)\n"
    "  --key-after SECONDS      it is presented so long after the reader's port is first opened (0)\n"
    "  --modem present|absent|no-sim\n"
    "                           the cellular module: with a SIM, not on the USB bus, without a SIM "
    "(present)\n"
    "  --modem-signal RSSI      it receives so well, 0 to 31; 99: not known (20)\n"
    "  --modem-registration none|searching|home|roaming|denied|unknown\n"
    "                           it is registered so (home)\n"
    "  --i2c-adapter N          the adapter with the accelerometer: /dev/i2c-N (1)\n"
    "  --crash-after SECONDS    the unit is in a crash so long after the run begins (never)\n"
    "  --ignition-after SECONDS the ignition is switched on so long after the event driver is first used "
    "(never)\n"
    "\n"
    "Exit status: that of PROGRAM, 128+N when signal N ended it; 2 for a wrong command line or script, 3 "
    "when\n"
    "this machine cannot run the virtual unit, 4 when a replay differs and PROGRAM ended with 0, 126 or 127\n"
    "when PROGRAM cannot be executed or found.\n"
    "\n"
    "Steps, of do and of a script's lines \"SECONDS STEP\" and \"+SECONDS STEP\":\n"
    "\n";

}

std::string CommandLine::Usage()
{
    return USAGE + Step::List();
}

CommandLine CommandLine::Parse(const std::vector<std::string>& arguments)
{
    CommandLine line;
    if (arguments.empty())
    {
        throw Wrong("no command");
    }
    const auto* const named = std::ranges::find(COMMANDS, arguments.front(), &CommandName::name);
    if (named == std::end(COMMANDS))
    {
        throw Wrong("\"" + arguments.front() + "\" is not a command");
    }
    line.command = named->command;

    Position argument = arguments.begin() + 1;
    for (; argument != arguments.end() && *argument != PROGRAM_FOLLOWS; ++argument)
    {
        const bool takesWords = line.command == Command::Do || line.command == Command::Replay;
        if (takesWords && !argument->starts_with("--"))
        {
            TakeWord(line, *argument);
        }
        else
        {
            TakeOption(line, argument, arguments.end());
        }
    }
    if (argument != arguments.end())
    {
        line.program.assign(argument + 1, arguments.end());
    }
    RefuseIncomplete(line);
    return line;
}

void CommandLine::Overrule(UnitOptions& options) const
{
    for (const auto& [name, value] : unit)
    {
        try
        {
            options.Take(name, value);
        }
        catch (const Values::Wrong& wrong)
        {
            throw Wrong("--" + name + ": " + wrong.what());
        }
    }
}

}

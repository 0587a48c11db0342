#include "virtual-unit/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <iterator>
#include <optional>
#include <string_view>

namespace VirtualUnit
{

namespace
{

constexpr std::string_view PROGRAM_FOLLOWS = "--";

/// An option of the command line and its value.
struct Setting
{
    const std::string& option;
    const std::string& value;
};

[[noreturn]] void Refuse(const Setting& setting, const std::string& reason)
{
    throw CommandLine::Wrong(setting.option + ": \"" + setting.value + "\" is " + reason);
}

std::optional<unsigned int> Number(const std::string& text)
{
    unsigned int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

std::chrono::seconds Seconds(const Setting& setting)
{
    constexpr unsigned int LONGEST = 24 * 60 * 60;
    const std::optional<unsigned int> value = Number(setting.value);
    if (!value || *value > LONGEST)
    {
        Refuse(setting, "not a number of seconds from 0 to " + std::to_string(LONGEST));
    }
    return std::chrono::seconds(*value);
}

GpsReceiver::Model Model(const Setting& setting)
{
    if (setting.value != "l26" && setting.value != "skm53")
    {
        Refuse(setting, "neither l26 nor skm53");
    }
    return setting.value == "l26" ? GpsReceiver::Model::L26 : GpsReceiver::Model::SKM53;
}

std::string Key(const Setting& setting)
{
    if (setting.value == "none")
    {
        return {};
    }
    if (!KeyReader::IsKey(setting.value))
    {
        Refuse(setting, "neither 12 hexadecimal digits nor none");
    }
    return setting.value;
}

void FitModem(CommandLine& line, const Setting& setting)
{
    if (setting.value != "present" && setting.value != "absent" && setting.value != "no-sim")
    {
        Refuse(setting, "neither present nor absent nor no-sim");
    }
    line.modemOnBus = setting.value != "absent";
    line.modem.sim = setting.value != "no-sim";
}

int Signal(const Setting& setting)
{
    constexpr unsigned int STRONGEST = 31;
    constexpr unsigned int NOT_KNOWN = 99;
    const std::optional<unsigned int> value = Number(setting.value);
    if (!value || (*value > STRONGEST && *value != NOT_KNOWN))
    {
        Refuse(setting, "neither a number from 0 to 31 nor 99");
    }
    return static_cast<int>(*value);
}

CellularState::Registration Registration(const Setting& setting)
{
    const auto found = std::ranges::find(CellularState::REGISTRATIONS, setting.value);
    if (found == std::end(CellularState::REGISTRATIONS))
    {
        Refuse(setting, "not none, home, searching, denied, unknown or roaming");
    }
    return static_cast<CellularState::Registration>(found - std::begin(CellularState::REGISTRATIONS));
}

std::string Directory(const Setting& setting)
{
    if (setting.value.empty())
    {
        Refuse(setting, "no directory");
    }
    return setting.value;
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

struct Option
{
    std::string_view name;
    void (*take)(CommandLine& line, const Setting& setting);
};

constexpr Option OPTIONS[] = {
    {"--gps", [](CommandLine& line, const Setting& setting) { line.gps.model = Model(setting); }},
    {"--gps-fix-after",
     [](CommandLine& line, const Setting& setting) { line.gps.fixAfter = Seconds(setting); }},
    {"--nmea", [](CommandLine& line, const Setting& setting) { line.nmeaFile = setting.value; }},
    {"--key", [](CommandLine& line, const Setting& setting) { line.keyReader.key = Key(setting); }},
    {"--key-after",
     [](CommandLine& line, const Setting& setting) { line.keyReader.keyAfter = Seconds(setting); }},
    {"--modem", FitModem},
    {"--modem-signal", [](CommandLine& line, const Setting& setting) { line.modem.rssi = Signal(setting); }},
    {"--modem-registration",
     [](CommandLine& line, const Setting& setting) { line.modem.registration = Registration(setting); }},
    {"--crash-after", [](CommandLine& line, const Setting& setting) { line.crashAfter = Seconds(setting); }},
    {"--ignition-after",
     [](CommandLine& line, const Setting& setting) { line.ignitionAfter = Seconds(setting); }},
    {"--journal", [](CommandLine& line, const Setting& setting) { line.journal = setting.value; }},
    {"--sdcard", [](CommandLine& line, const Setting& setting) { line.sdcard = Directory(setting); }},
};

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
    "  --key ID|none            the key at the driver-ID reader, 12 hexadecimal digits (none)\n"
    "  --key-after SECONDS      it is presented so long after the reader's port is first opened (0)\n"
    "  --modem present|absent|no-sim\n"
    "                           the cellular module: with a SIM, not on the USB bus, without a SIM "
    "(present)\n"
    "  --modem-signal RSSI      it receives so well, 0 to 31; 99: not known (20)\n"
    "  --modem-registration none|searching|home|roaming|denied|unknown\n"
    "                           it is registered so (home)\n"
    "  --crash-after SECONDS    the unit is in a crash so long after the run begins (never)\n"
    "  --ignition-after SECONDS the ignition is switched on so long after the event driver is first used "
    "(never)\n"
    "  --journal FILE           tells what pins, sound chips and buzzer did, at the end of the run\n"
    "  --sdcard DIR             keeps the content of the storage card; without it the card is empty at "
    "first\n"
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
        const std::string& name = *argument;
        const auto option = std::ranges::find(OPTIONS, name, &Option::name);
        if (option == std::end(OPTIONS))
        {
            throw Wrong("\"" + name + "\" is not an option" +
                        (line.command == Command::Run ? "; the program stands behind \"--\"" : ""));
        }
        if (++argument == arguments.end() || *argument == PROGRAM_FOLLOWS)
        {
            throw Wrong(name + ": the value is missing");
        }
        option->take(line, {name, *argument});
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

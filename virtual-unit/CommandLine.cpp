#include "virtual-unit/CommandLine.h"

#include "virtual-unit/run/Way.h"
#include "virtual-unit/script/Step.h"
#include "virtual-unit/unit/Values.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

namespace VirtualUnit
{

namespace
{

using Command = CommandLine::Command;

constexpr std::string_view PROGRAM_FOLLOWS = "--";

struct CommandText
{
    std::string_view name;
    std::string_view usage;   ///< what may follow the name
    std::string_view meaning; ///< with a line break, where it needs one
    Command command;
    bool fitsUnit; ///< takes the options of the unit
};

constexpr CommandText COMMANDS[] = {
    {"run", "[OPTION...] -- PROGRAM [ARGUMENT...]",
     "runs PROGRAM, unmodified, on an emulated unit, and ends with its exit status", Command::Run, true},
    {"replay", "DIR [OPTION...] -- PROGRAM [ARGUMENT...]",
     "runs PROGRAM on the ports that --record has recorded, and tells the first difference in what\nit sends",
     Command::Replay, false},
    {"do", "[OPTION...] STEP", "has something happen to the unit of a run", Command::Do, false},
    {"devices", "[OPTION...]",
     "lists the device files of the unit, and what stands behind them and how it is: of the run that do\n"
     "would find; with options of the unit, or when nothing runs, of a unit that is fitted so",
     Command::Devices, true},
    {"check", "[OPTION...]", "tells whether this machine can run the virtual unit, and what is missing",
     Command::Check, true},
};

/// An option that is not the unit's. It has a value or is a flag.
struct Option
{
    std::string_view name;
    std::string_view value; ///< for people
    std::string_view meaning;
    std::string CommandLine::*text;
    bool CommandLine::*flag;
    std::initializer_list<Command> commands; ///< that take it
};

const Option OPTIONS[] = {
    {"--fast",
     "",
     "time is virtual: it jumps to the next deadline whenever all threads wait",
     nullptr,
     &CommandLine::fast,
     {Command::Run, Command::Replay}},
    {"--by",
     "WAY",
     "how the program is reached: kernel or preload; without it the first that works",
     &CommandLine::by,
     nullptr,
     {Command::Run, Command::Replay}},
    {"--script",
     "FILE",
     "what happens to the unit in the course of the run",
     &CommandLine::script,
     nullptr,
     {Command::Run, Command::Devices, Command::Check}},
    {"--strict",
     "",
     "a line of the script that is not reached is a failure",
     nullptr,
     &CommandLine::strict,
     {Command::Run}},
    {"--junit",
     "FILE",
     "what became of the program and of what the script expects, as JUnit XML",
     &CommandLine::junit,
     nullptr,
     {Command::Run}},
    {"--record",
     "DIR",
     "the traffic of each port goes to a file in DIR, which is new or empty",
     &CommandLine::record,
     nullptr,
     {Command::Run, Command::Replay}},
    {"--mask",
     "",
     "without the numbers of the module and the SIM: IMEI, IMSI, ICCID",
     nullptr,
     &CommandLine::mask,
     {Command::Run}},
    {"--log",
     "FILE",
     "what happened to the unit, and what the program was refused",
     &CommandLine::log,
     nullptr,
     {Command::Run, Command::Replay}},
    {"--journal",
     "FILE",
     "what pins, sound chips and buzzer did, at the end of the run",
     &CommandLine::journal,
     nullptr,
     {Command::Run}},
    {"--sdcard",
     "DIR",
     "keeps the content of the storage card; without it the card is empty at first",
     &CommandLine::sdcard,
     nullptr,
     {Command::Run, Command::Replay, Command::Devices}},
    {"--control",
     "PATH",
     "the socket through which virtual-unit do reaches the run",
     &CommandLine::control,
     nullptr,
     {Command::Run, Command::Do, Command::Devices}},
    {"--json", "", "the devices as JSON, for programs", nullptr, &CommandLine::json, {Command::Devices}},
};

bool Takes(const Option& option, Command command)
{
    return std::ranges::find(option.commands, command) != option.commands.end();
}

const CommandText& TextOf(Command command)
{
    return *std::ranges::find(COMMANDS, command, &CommandText::command);
}

Command CommandNamed(const std::string& name)
{
    const auto* const found = std::ranges::find(COMMANDS, name, &CommandText::name);
    if (found == std::end(COMMANDS))
    {
        throw CommandLine::Wrong("\"" + name +
                                 (name.starts_with('-') ? "\" is not an option" : "\" is not a command"));
    }
    return found->command;
}

bool IsOption(const std::string& name)
{
    return std::ranges::find(OPTIONS, name, &Option::name) != std::end(OPTIONS) ||
           (name.starts_with("--") && UnitOptions::Has(name.substr(2)));
}

/// What is neither an option of the command nor a value.
void TakeWord(CommandLine& line, const std::string& word)
{
    // The name ends where a value begins; a value itself may hold anything.
    const std::string option = word.substr(0, word.find('='));
    if (line.command == Command::Replay && IsOption(option))
    {
        throw CommandLine::Wrong(
            "replay: the unit is that of the recording; --sdcard, --log, --record, --fast and --by are all "
            "that can be told");
    }
    if (word.starts_with("--") && IsOption(option))
    {
        throw CommandLine::Wrong("\"" + option + "\" is not an option of " +
                                 std::string(TextOf(line.command).name));
    }
    if (line.command == Command::Do && !word.starts_with("--"))
    {
        line.step += (line.step.empty() ? "" : " ") + word;
    }
    else if (line.command == Command::Replay && !word.starts_with('-'))
    {
        if (!line.recording.empty())
        {
            throw CommandLine::Wrong("replay: \"" + word + "\" is too much");
        }
        line.recording = word;
    }
    else
    {
        throw CommandLine::Wrong("\"" + option + "\" is not an option" +
                                 (line.command == Command::Run ? "; the program stands behind \"--\"" : ""));
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
    if (!line.by.empty() && line.by != Way::KERNEL && line.by != Way::PRELOAD)
    {
        throw CommandLine::Wrong("--by: \"" + line.by + "\" is neither kernel nor preload");
    }
    if (line.mask && line.record.empty())
    {
        throw CommandLine::Wrong("--mask: there is no --record");
    }
}

/// Takes the options of a command. Everything else is left to TakeWord().
void TakeOptions(CommandLine& line, std::span<const std::string> arguments)
{
    using CLI::MultiOptionPolicy::TakeLast;
    CLI::App parser;
    parser.set_help_flag();
    parser.allow_extras();
    const CLI::Option* const help = parser.add_flag("--help,-h")->multi_option_policy(TakeLast);
    std::vector<std::pair<const Option*, const CLI::Option*>> options;
    for (const Option& option : OPTIONS)
    {
        if (Takes(option, line.command))
        {
            const std::string name(option.name);
            CLI::Option* const added =
                option.flag != nullptr ? parser.add_flag(name) : parser.add_option(name);
            options.emplace_back(&option, added->multi_option_policy(TakeLast));
        }
    }
    std::vector<std::pair<std::string, const CLI::Option*>> ofUnit;
    if (TextOf(line.command).fitsUnit)
    {
        for (const UnitOptions::Option& option : UnitOptions::List())
        {
            const std::string name(option.name);
            ofUnit.emplace_back(name, parser.add_option("--" + name)->multi_option_policy(TakeLast));
        }
    }

    for (const std::string& argument : arguments)
    {
        const std::string name = argument.substr(0, argument.find('='));
        if (name.size() + 1 == argument.size() && IsOption(name))
        {
            throw CommandLine::Wrong(name + ": the value is missing");
        }
    }
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try
    {
        parser.parse(reversed);
    }
    catch (const CLI::ArgumentMismatch& mismatch)
    {
        const std::string text = mismatch.what(); // "--gps: ..."
        throw CommandLine::Wrong(text.substr(0, text.find(':')) + ": the value is missing");
    }
    catch (const CLI::ParseError& failure)
    {
        throw CommandLine::Wrong(failure.what());
    }

    if (help->count() > 0)
    {
        line.helpOn = TextOf(line.command).name;
        line.command = Command::Help;
        return;
    }
    for (const auto& [option, parsed] : options)
    {
        if (parsed->count() == 0)
        {
            continue;
        }
        if (option->flag != nullptr)
        {
            if (parsed->results().back() != "true")
            {
                throw CommandLine::Wrong(std::string(option->name) + " takes no value");
            }
            line.*option->flag = true;
            continue;
        }
        line.*option->text = parsed->results().back();
        if ((line.*option->text).empty())
        {
            throw CommandLine::Wrong(std::string(option->name) + ": \"\" is no path");
        }
    }
    for (const auto& [name, parsed] : ofUnit)
    {
        if (parsed->count() > 0)
        {
            line.unit.emplace_back(name, parsed->results().back());
        }
    }
    for (const std::string& word : parser.remaining())
    {
        TakeWord(line, word);
    }
}

constexpr std::size_t MEANING_COLUMN = 27;

/// A line of a list: the left column, and what it means.
std::string Row(std::string left, std::string_view meaning)
{
    left.insert(0, "  ");
    if (left.size() + 1 > MEANING_COLUMN)
    {
        left += "\n" + std::string(MEANING_COLUMN, ' ');
    }
    left.resize(std::max(left.size(), MEANING_COLUMN), ' ');
    return left.append(meaning) + "\n";
}

std::string UsageLine(const CommandText& command)
{
    return "virtual-unit " + std::string(command.name) + " " + std::string(command.usage) + "\n";
}

std::string Meaning(const CommandText& command)
{
    constexpr std::size_t COLUMN = 9;
    std::string text(command.name);
    text.resize(COLUMN, ' ');
    for (const char c : command.meaning)
    {
        text += c == '\n' ? "\n" + std::string(COLUMN, ' ') : std::string(1, c);
    }
    return text + "\n";
}

std::string ListOption(const Option& option)
{
    const std::string blank = option.value.empty() ? "" : " ";
    return Row(std::string(option.name) + blank + std::string(option.value), option.meaning);
}

std::string ListUnitOptions()
{
    std::string text = "\nHow the unit is fitted, and what it finds:\n\n";
    for (const UnitOptions::Option& option : UnitOptions::List())
    {
        text += Row("--" + std::string(option.name) + " " + std::string(option.value), option.meaning);
    }
    return text;
}

constexpr const char* VALUES = "\nA value may stand behind a blank or \"=\"; SECONDS may have a fraction.\n";

constexpr const char* EXIT_STATUS = "\n"
                                    "Exit status: that of PROGRAM, 128+N when signal N ended it, 0 when the "
                                    "power was cut; 2 for a wrong command\n"
                                    "line or script, 3 when this machine cannot run the virtual unit, 126 or "
                                    "127 when PROGRAM cannot be executed\n"
                                    "or found. When PROGRAM ended with 0: 4 when a replay differs, 5 when "
                                    "the script expects what did not come.\n";

std::string Steps()
{
    return "\nSteps, of do and of a script's lines \"SECONDS STEP\" and \"+SECONDS STEP\":\n\n" +
           Step::List();
}

std::string HelpOn(const CommandText& command)
{
    std::string text = "usage: " + UsageLine(command) + "\n" + Meaning(command) + "\n";
    for (const Option& option : OPTIONS)
    {
        text += Takes(option, command.command) ? ListOption(option) : "";
    }
    text += Row("--help", "this text");
    text += command.fitsUnit ? ListUnitOptions() : "";
    text += VALUES;
    text += command.command == Command::Run || command.command == Command::Replay ? EXIT_STATUS : "";
    return text + (command.command == Command::Do ? Steps() : "");
}

std::string HelpOnAll()
{
    std::string text;
    for (const CommandText& command : COMMANDS)
    {
        text += (text.empty() ? "usage: " : "       ") + UsageLine(command);
    }
    text += "       virtual-unit help [COMMAND]\n"
            "       virtual-unit --help | --version\n"
            "\n";
    for (const CommandText& command : COMMANDS)
    {
        text += Meaning(command);
    }
    text += "help     tells which options a command takes, as COMMAND --help does\n\n";
    for (const Option& option : OPTIONS)
    {
        text += ListOption(option);
    }
    return text + ListUnitOptions() + VALUES + EXIT_STATUS + Steps();
}

}

std::string CommandLine::Usage(const std::string& command)
{
    return command.empty() ? HelpOnAll() : HelpOn(TextOf(CommandNamed(command)));
}

CommandLine CommandLine::Parse(const std::vector<std::string>& arguments)
{
    CommandLine line;
    if (arguments.empty())
    {
        throw Wrong("no command");
    }
    const std::string& first = arguments.front();
    if (first == "help" || first == "--help" || first == "-h")
    {
        line.helpOn = arguments.size() > 1 ? arguments[1] : "";
        return line;
    }
    if (first == "--version")
    {
        line.command = Command::Version;
        return line;
    }
    line.command = CommandNamed(first);

    const auto options = arguments.begin() + 1;
    const auto end = std::find(options, arguments.end(), PROGRAM_FOLLOWS);
    TakeOptions(line, {options, end});
    if (end != arguments.end())
    {
        line.program.assign(end + 1, arguments.end());
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

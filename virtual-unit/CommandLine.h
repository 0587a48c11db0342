#ifndef VIRTUAL_UNIT_COMMANDLINE_H
#define VIRTUAL_UNIT_COMMANDLINE_H

#include "virtual-unit/unit/UnitOptions.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/// What the user asked for.
struct CommandLine
{
    enum class Command
    {
        Run,
        Replay,
        Do,
        Check,
        Devices,
        Help,
        Version
    };

    /// A command line that cannot be understood; what() says why, in one line.
    class Wrong : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    static std::string Usage(const std::string& command); ///< empty: of all commands @throws Wrong

    /// @param arguments without the program's own name @throws Wrong
    static CommandLine Parse(const std::vector<std::string>& arguments);

    /// Lets the options of the unit that were given here overrule those of a script. @throws Wrong
    void Overrule(UnitOptions& unit) const;

    Command command = Command::Help;
    std::vector<std::pair<std::string, std::string>> unit; ///< its options, by name without dashes
    std::string script;                                    ///< file; empty: none
    std::string record;               ///< directory that takes the ports' traffic; empty: none
    bool mask = false;                ///< without identities
    bool json = false;                ///< for Command::Devices: for programs
    bool fast = false;                ///< time is virtual
    std::string by;                   ///< how the program is reached: see Way; empty: the first that works
    std::string log;                  ///< file that tells what happened to the unit; empty: none
    std::string journal;              ///< file that tells what the outputs did; empty: none
    bool strict = false;              ///< a line of the script that is not reached is a failure
    std::string junit;                ///< file that takes the results; empty: none
    std::string control;              ///< path of the control socket; empty: chosen by the program
    std::string sdcard;               ///< directory with the storage card's content; empty: a private one
    std::string recording;            ///< for Command::Replay: directory
    std::string step;                 ///< for Command::Do
    std::string helpOn;               ///< for Command::Help: a command; empty: all
    std::vector<std::string> program; ///< and its arguments; not empty for Command::Run and Replay
};

}

#endif

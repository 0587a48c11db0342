#ifndef EXAMPLES_COMMON_OPTIONS_H
#define EXAMPLES_COMMON_OPTIONS_H

#include <chrono>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Examples
{

/// The command line that the examples have in common: [--seconds N] [--log FILE] [--help].
struct Options
{
    static constexpr int WRONG_COMMAND_LINE = 2; ///< exit status

    /// An option that one example has beside those: a switch, which becomes true, or a text that follows it.
    struct Extra
    {
        std::string_view name; ///< with its dashes
        std::variant<bool*, std::string*> target;
    };

    /// Ends the program when `--help` is asked for, or when the command line is wrong.
    /// @param usage printed then
    static Options ParseOrExit(int argc, const char* const* argv, const char* usage,
                               std::initializer_list<Extra> extras = {});

    /// Keeps the device library's log off the console, which belongs to the example, and sends it to the
    /// file, if one was named.
    void SetUpLog() const;

    std::optional<std::chrono::seconds> seconds; ///< how long to run; none: until a signal
    std::string logFile;                         ///< the library's log; empty: none
};

}

#endif

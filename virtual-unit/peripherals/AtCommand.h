#ifndef VIRTUAL_UNIT_PERIPHERALS_ATCOMMAND_H
#define VIRTUAL_UNIT_PERIPHERALS_ATCOMMAND_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/// One AT command in its parts (ITU-T V.250).
struct AtCommand
{
    enum class Kind
    {
        Execute, ///< AT+NAME
        Read,    ///< AT+NAME?
        Test,    ///< AT+NAME=?
        Set      ///< AT+NAME=...
    };

    static AtCommand Parse(std::string_view line); ///< @param line begins with "AT", and has no line end

    static std::optional<int> ToNumber(const std::string& text); ///< the whole text, in decimal

    /// The parameter of that place, when it is a number from `lowest` to `highest`.
    std::optional<int> Number(std::size_t place, int lowest, int highest) const;

    std::string name; ///< in capital letters: "+COPS"; "E0"; empty for AT alone
    Kind kind = Kind::Execute;
    std::vector<std::string> parameters; ///< without quotes; of Kind::Set at least one
};

}

#endif

#ifndef VIRTUAL_UNIT_RECORDING_TEXTCURSOR_H
#define VIRTUAL_UNIT_RECORDING_TEXTCURSOR_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace VirtualUnit
{

/// Reads a text from its begin to its end. What is not there is not taken.
class TextCursor
{
public:
    explicit TextCursor(std::string_view text) : rest(text) {}

    bool AtEnd() const { return rest.empty(); }

    bool Take(std::string_view literal)
    {
        if (!rest.starts_with(literal))
        {
            return false;
        }
        rest.remove_prefix(literal.size());
        return true;
    }

    std::optional<char> TakeCharacter() ///< none: at the end
    {
        if (rest.empty())
        {
            return std::nullopt;
        }
        const char character = rest.front();
        rest.remove_prefix(1);
        return character;
    }

    /// @param digits so many of them; 0: as many as there are @return none also when it does not fit
    std::optional<std::uint64_t> TakeNumber(int base = 10, std::size_t digits = 0)
    {
        const std::string_view text = digits == 0 ? rest : rest.substr(0, digits);
        std::uint64_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
        const auto taken = static_cast<std::size_t>(end - text.data());
        if (error != std::errc() || taken < digits)
        {
            return std::nullopt;
        }
        rest.remove_prefix(taken);
        return number;
    }

private:
    std::string_view rest;
};

}

#endif

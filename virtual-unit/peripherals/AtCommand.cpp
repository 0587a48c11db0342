#include "virtual-unit/peripherals/AtCommand.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>
#include <system_error>

namespace VirtualUnit
{

namespace
{

std::vector<std::string> Split(std::string_view text)
{
    std::vector<std::string> parameters(1);
    bool quoted = false;
    for (const char c : text)
    {
        if (c == '"')
        {
            quoted = !quoted;
        }
        else if (c == ',' && !quoted)
        {
            parameters.emplace_back();
        }
        else
        {
            parameters.back() += c;
        }
    }
    return parameters;
}

}

AtCommand AtCommand::Parse(std::string_view line)
{
    constexpr std::string_view PREFIX = "AT";
    line.remove_prefix(PREFIX.size());
    const std::size_t end = std::min(line.find_first_of("=?"), line.size());
    AtCommand command;
    std::ranges::transform(line.substr(0, end), std::back_inserter(command.name),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const std::string_view rest = line.substr(end);
    if (rest == "?" || rest == "=?")
    {
        command.kind = rest == "?" ? Kind::Read : Kind::Test;
    }
    else if (!rest.empty())
    {
        command.kind = Kind::Set;
        command.parameters = Split(rest.substr(1));
    }
    return command;
}

std::optional<int> AtCommand::ToNumber(const std::string& text)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

std::optional<int> AtCommand::Number(std::size_t place, int lowest, int highest) const
{
    const std::optional<int> value = place < parameters.size() ? ToNumber(parameters[place]) : std::nullopt;
    return value && *value >= lowest && *value <= highest ? value : std::nullopt;
}

}

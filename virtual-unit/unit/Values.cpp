#include "virtual-unit/unit/Values.h"

#include "virtual-unit/peripherals/KeyReader.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>

namespace VirtualUnit::Values
{

namespace
{

std::optional<unsigned int> ReadNumber(const std::string& text)
{
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

}

void Refuse(const std::string& value, const std::string& reason)
{
    throw Wrong("\"" + value + "\" is " + reason);
}

unsigned int Number(const std::string& value, unsigned int least, unsigned int most, const std::string& what)
{
    const std::optional<unsigned int> number = ReadNumber(value);
    if (!number || *number < least || *number > most)
    {
        Refuse(value, "not " + what + " from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return *number;
}

std::string Key(const std::string& value)
{
    if (value == "none")
    {
        return {};
    }
    if (!KeyReader::IsKey(value))
    {
        Refuse(value, "neither 12 hexadecimal digits nor none");
    }
    return value;
}

int Signal(const std::string& value)
{
    constexpr unsigned int STRONGEST = 31;
    constexpr unsigned int NOT_KNOWN = 99;
    const std::optional<unsigned int> number = ReadNumber(value);
    if (!number || (*number > STRONGEST && *number != NOT_KNOWN))
    {
        Refuse(value, "neither a number from 0 to 31 nor 99");
    }
    return static_cast<int>(*number);
}

CellularState::Registration Registration(const std::string& value)
{
    const auto* const found = std::ranges::find(CellularState::REGISTRATIONS, value);
    if (found == std::end(CellularState::REGISTRATIONS))
    {
        Refuse(value, "not none, home, searching, denied, unknown or roaming");
    }
    return static_cast<CellularState::Registration>(found - std::begin(CellularState::REGISTRATIONS));
}

}

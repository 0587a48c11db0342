#include "virtual-unit/unit/Values.h"

#include "virtual-unit/peripherals/KeyReader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <optional>
#include <sstream>

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

double Real(const std::string& value, double least, double most, const std::string& what)
{
    double number = 0;
    const bool plus = value.starts_with('+') && !value.starts_with("+-");
    const char* const begin = value.data() + (plus ? 1 : 0);
    const auto [end, error] = std::from_chars(begin, value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || !(number >= least && number <= most))
    {
        char limits[64];
        std::snprintf(limits, sizeof(limits), " from %g to %g", least, most);
        Refuse(value, "not " + what + limits);
    }
    return number;
}

std::chrono::sys_time<std::chrono::milliseconds> Moment(const std::string& value)
{
    using namespace std::chrono;
    constexpr const char* REASON = "no moment such as 2026-03-01T08:15:00Z";
    int year = 0;
    unsigned int month = 0;
    unsigned int day = 0;
    unsigned int hour = 0;
    unsigned int minute = 0;
    double second = 0;
    int used = 0;
    const char* rest = value.c_str();
    // NOLINTBEGIN(cert-err34-c): of so few digits each number is one
    if (std::sscanf(rest, "%4d-%2u-%2u%n", &year, &month, &day, &used) != 3)
    {
        Refuse(value, REASON);
    }
    rest += used;
    if ((*rest == 'T' || *rest == ' ') && std::sscanf(rest + 1, "%2u:%2u%n", &hour, &minute, &used) == 2)
    {
        rest += 1 + used;
        if (*rest == ':')
        {
            const auto [end, error] =
                std::from_chars(rest + 1, value.c_str() + value.size(), second, std::chars_format::fixed);
            rest = error == std::errc() ? end : rest;
        }
    }
    char sign[2] = "+";
    unsigned int zoneHours = 0;
    unsigned int zoneMinutes = 0;
    if (*rest == 'Z')
    {
        ++rest;
    }
    else if (std::sscanf(rest, "%1[+-]%2u:%2u%n", sign, &zoneHours, &zoneMinutes, &used) == 3)
    {
        rest += used;
    }
    // NOLINTEND(cert-err34-c)
    const year_month_day date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    if (rest != value.c_str() + value.size() || !date.ok() || hour > 23 || minute > 59 ||
        !(second >= 0 && second < 60) || zoneHours > 23 || zoneMinutes > 59)
    {
        Refuse(value, REASON);
    }
    const auto zone = (hours(zoneHours) + minutes(zoneMinutes)) * (sign[0] == '-' ? -1 : 1);
    return sys_days(date) + hours(hour) + minutes(minute) + milliseconds(std::lround(second * 1000)) - zone;
}

std::chrono::milliseconds Seconds(const std::string& value)
{
    constexpr double LONGEST = 24 * 60 * 60;
    constexpr double MILLISECONDS = 1000;
    double seconds = 0;
    const auto [end, error] =
        std::from_chars(value.data(), value.data() + value.size(), seconds, std::chars_format::fixed);
    if (error != std::errc() || end != value.data() + value.size() || !(seconds >= 0 && seconds <= LONGEST))
    {
        Refuse(value, "not a number of seconds from 0 to " + std::to_string(static_cast<int>(LONGEST)));
    }
    return std::chrono::milliseconds(std::llround(seconds * MILLISECONDS));
}

std::string SecondsText(std::chrono::milliseconds time)
{
    constexpr int DIGITS = 12; // of a day in milliseconds, and more
    std::ostringstream text;
    text.precision(DIGITS);
    text << std::chrono::duration<double>(time).count();
    return text.str();
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

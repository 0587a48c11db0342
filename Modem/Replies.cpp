#include "Modem/Replies.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace Tavdevice::Modem::Replies
{

namespace
{

constexpr std::size_t NUMBER_DIGITS = 15; // of an IMEI and an IMSI
constexpr std::size_t SHORTEST_ICCID = 7;
constexpr std::size_t LONGEST_ICCID = 20;

template <class Value>
Reading<Value> Found(Value value)
{
    return {std::move(value), {}};
}

/// The rest of the reply from the first `tag` on; nothing without one.
std::optional<std::string> From(const std::string& reply, std::string_view tag)
{
    const std::size_t start = reply.find(tag);
    return start == std::string::npos ? std::nullopt : std::optional(reply.substr(start));
}

/// The digits that follow the echo, once the line ends are taken out.
Reading<std::string> NumberBehindEcho(std::string reply, std::string_view echo)
{
    // Found before the line ends are taken out: nothing precedes the echo in a whole reply.
    const std::size_t start = reply.find(echo);
    if (start == std::string::npos)
    {
        return {{}, "no echo"};
    }
    std::erase(reply, '\r');
    std::erase(reply, '\n');
    std::string number = reply.substr(start + echo.size(), NUMBER_DIGITS);
    if (number.size() < NUMBER_DIGITS)
    {
        return {{}, "number too short"};
    }
    return Found(std::move(number));
}

/// The text between the quotes that stand right behind `comma` and right before `end`.
std::string Quoted(const std::string& group, std::size_t comma, std::size_t end)
{
    constexpr std::size_t COMMA_AND_QUOTES = 3;
    return end - comma < COMMA_AND_QUOTES ? std::string()
                                          : group.substr(comma + 2, end - comma - COMMA_AND_QUOTES);
}

/// One group, "(status,"long name","short name","numeric",technology)"; nothing when a comma is missing.
std::optional<Operator> ParseOperator(const std::string& group)
{
    constexpr std::size_t OPENING_PARENTHESIS = 0;
    Operator result;
    std::size_t comma = group.find(',');
    if (comma == std::string::npos)
    {
        return std::nullopt;
    }
    result.status = std::stoi(group.substr(OPENING_PARENTHESIS + 1, comma - OPENING_PARENTHESIS - 1));
    for (std::string* field : {&result.longName, &result.shortName, &result.numeric})
    {
        const std::size_t next = group.find(',', comma + 1);
        if (next == std::string::npos)
        {
            return std::nullopt;
        }
        *field = Quoted(group, comma, next);
        comma = next;
    }
    result.accessTechnology = std::stoi(group.substr(comma + 1, group.find(')', comma) - comma - 1));
    return result;
}

}

Reading<std::string> Imei(const std::string& reply)
{
    if (reply.size() <= NUMBER_DIGITS)
    {
        return {{}, "reply too short"};
    }
    return NumberBehindEcho(reply, "AT+CGSN");
}

Reading<std::string> Imsi(const std::string& reply)
{
    return NumberBehindEcho(reply, "AT+CIMI");
}

Reading<std::string> Iccid(const std::string& reply)
{
    constexpr std::size_t COLON_AND_BLANK = 2;
    const std::size_t colon = reply.find(':');
    if (colon == std::string::npos)
    {
        return {{}, "no colon"};
    }
    std::string iccid = reply.substr(colon + COLON_AND_BLANK, LONGEST_ICCID);
    if (iccid.size() < SHORTEST_ICCID)
    {
        return {{}, "ICCID too short"};
    }
    return Found(std::move(iccid));
}

Reading<std::string> FirmwareRevision(const std::string& reply)
{
    constexpr std::string_view TAG = "Revision:";
    const std::optional<std::string> text = From(reply, TAG);
    if (!text)
    {
        return {{}, "no revision"};
    }
    const std::string revision = text->substr(TAG.size() + 1);
    const std::size_t end = revision.find('\r');
    if (end == std::string::npos)
    {
        return {{}, "no end of line"};
    }
    return Found(revision.substr(0, end));
}

Reading<int> Voltage(const std::string& reply)
{
    constexpr std::string_view TAG = "+CBC:";
    constexpr int DECIMAL = 10;
    std::optional<std::string> text = From(reply, TAG);
    if (!text)
    {
        return {{}, "no battery line"};
    }
    *text = text->substr(TAG.size() + 1);
    for (int field = 0; field < 2; ++field) // charge state, charge level
    {
        const std::size_t comma = text->find(',');
        if (comma == std::string::npos)
        {
            return {{}, "fewer than three fields"};
        }
        text->erase(0, comma + 1);
    }
    const std::size_t end = text->find('\r');
    if (end == std::string::npos)
    {
        return {{}, "no end of line"};
    }
    return Found(static_cast<int>(std::strtol(text->substr(0, end).c_str(), nullptr, DECIMAL)));
}

Reading<int> SignalQuality(const std::string& reply)
{
    const std::optional<std::string> text = From(reply, "+CSQ:");
    if (!text)
    {
        return {{}, "no signal line"};
    }
    const std::size_t colon = text->find(':');
    const std::size_t comma = text->find(',');
    if (comma == std::string::npos)
    {
        return {{}, "no comma"};
    }
    return Found(std::stoi(text->substr(colon + 1, comma - colon - 1)));
}

Reading<int> RegistrationState(const std::string& reply)
{
    const std::optional<std::string> text = From(reply, "+CREG:");
    if (!text)
    {
        return {{}, "no registration line"};
    }
    const std::size_t comma = text->find(',');
    if (comma == std::string::npos)
    {
        return {{}, "no comma"};
    }
    return Found(std::stoi(text->substr(comma + 1, 1)));
}

Reading<std::string> CarrierName(const std::string& reply)
{
    std::optional<std::string> text = From(reply, "+COPS:");
    if (!text)
    {
        return {{}, "no operator line"};
    }
    text = From(*text, "\"");
    if (!text)
    {
        return {{}, "no quote"};
    }
    // Two characters more than the quoted name: applications cut the result at its last comma.
    const std::size_t comma = text->find(',');
    std::string name = text->substr(0, (comma == std::string::npos ? 0 : comma) + 2);
    std::erase(name, '"');
    return Found(std::move(name));
}

Reading<std::size_t> Operators(const std::string& reply, std::list<Operator>& list)
{
    const std::optional<std::string> text = From(reply, "+COPS:");
    if (!text)
    {
        return {{}, "no operator line"};
    }
    std::size_t count = 0;
    std::size_t end = 0;
    for (std::size_t start = 0; (start = text->find('(', end)) != std::string::npos; ++count)
    {
        end = text->find(')', start);
        if (end == std::string::npos)
        {
            break;
        }
        std::optional<Operator> parsed = ParseOperator(text->substr(start, end - start + 1));
        if (!parsed)
        {
            break;
        }
        list.push_back(std::move(*parsed));
    }
    return Found(count);
}

}

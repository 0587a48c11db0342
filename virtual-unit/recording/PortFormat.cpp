#include "virtual-unit/recording/PortFormat.h"

#include "virtual-unit/recording/ByteText.h"
#include "virtual-unit/recording/RequestText.h"
#include "virtual-unit/recording/TextCursor.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>

namespace VirtualUnit
{

namespace
{

using Kind = PortEntry::Kind;
using std::chrono::microseconds;

constexpr std::string_view PORT = "# port ";
constexpr std::string_view ANSWER = " -> ";
constexpr std::string_view TURNS = " | ";
constexpr std::string_view TIMES = " x ";
constexpr std::string_view UNTIL = " until ";
constexpr std::string_view COMMENT = "  # ";
constexpr std::string_view EVENTS[] = {PortEntry::OPENED, PortEntry::UNPLUGGED, PortEntry::PLUGGED_IN};

constexpr std::uint64_t LAST_SIGNAL = 64;
constexpr std::int64_t MICROSECONDS = 1'000'000;
constexpr std::uint64_t LONGEST_SECONDS = 1'000'000'000; // three decades
constexpr std::size_t FRACTION_DIGITS = 6;

std::string Time(microseconds time, int width)
{
    std::array<char, 64> text = {};
    std::snprintf(text.data(), text.size(), "%*lld.%06lld", width,
                  static_cast<long long>(time.count() / MICROSECONDS),
                  static_cast<long long>(time.count() % MICROSECONDS));
    return text.data();
}

microseconds TakeTime(TextCursor& cursor)
{
    const std::optional<std::uint64_t> seconds = cursor.TakeNumber();
    const bool point = cursor.Take(".");
    const std::optional<std::uint64_t> fraction = cursor.TakeNumber(10, FRACTION_DIGITS);
    if (!seconds || *seconds > LONGEST_SECONDS || !point || !fraction)
    {
        throw PortFormat::Wrong("has no time in seconds with six digits behind the point");
    }
    return microseconds(static_cast<std::int64_t>(*seconds) * MICROSECONDS +
                        static_cast<std::int64_t>(*fraction));
}

std::string TakeEvent(TextCursor& cursor)
{
    const auto* const event =
        std::ranges::find_if(EVENTS, [&](std::string_view name) { return cursor.Take(name); });
    if (event != std::end(EVENTS))
    {
        return std::string(*event);
    }
    const std::optional<std::uint64_t> signal =
        cursor.Take(PortEntry::SIGNAL) ? cursor.TakeNumber() : std::nullopt;
    if (!signal || *signal == 0 || *signal > LAST_SIGNAL)
    {
        throw PortFormat::Wrong(
            "tells an event that is neither opened nor unplugged nor plugged in nor a signal");
    }
    return PortEntry::SignalEvent(static_cast<int>(*signal));
}

std::string TakeBytes(TextCursor& cursor)
{
    const std::optional<std::string> bytes = ByteText::Take(cursor);
    if (!bytes)
    {
        throw PortFormat::Wrong("has neither a text in quotes nor hexadecimal bytes");
    }
    return *bytes;
}

PortEntry::Exchange TakeExchange(TextCursor& cursor)
{
    const std::optional<std::string> request = ByteText::TakeQuoted(cursor);
    const bool arrow = cursor.Take(ANSWER);
    const std::optional<std::string> answer = ByteText::TakeQuoted(cursor);
    if (!request || !arrow || !answer)
    {
        throw PortFormat::Wrong("has no request and answer in quotes");
    }
    if (!RequestText::Decode(*request, *answer))
    {
        throw PortFormat::Wrong("has a request that is none, or an answer that is none to it");
    }
    return {*request, *answer};
}

void TakeRequests(TextCursor& cursor, PortEntry& entry)
{
    do
    {
        entry.exchanges.push_back(TakeExchange(cursor));
    } while (entry.exchanges.size() < PortEntry::MOST_TURNS && cursor.Take(TURNS));
    const auto channel = [](const PortEntry::Exchange& exchange) {
        return RequestText::Channel(exchange.request);
    };
    if (std::ranges::any_of(entry.exchanges, [&](const PortEntry::Exchange& exchange) {
            return channel(exchange) != channel(entry.exchanges.front());
        }))
    {
        throw PortFormat::Wrong("has requests of different pins that take turns");
    }
    entry.until = entry.at;
    if (cursor.Take(TIMES))
    {
        const std::optional<std::uint64_t> count = cursor.TakeNumber();
        if (!count || *count < 2 || !cursor.Take(UNTIL))
        {
            throw PortFormat::Wrong("does not tell how many requests there were, 2 or more, and until when");
        }
        entry.count = static_cast<std::size_t>(*count);
        entry.until = TakeTime(cursor);
    }
    if (entry.until < entry.at)
    {
        throw PortFormat::Wrong("ends before it begins");
    }
    if (entry.count < entry.exchanges.size())
    {
        throw PortFormat::Wrong("has several requests but no count");
    }
}

std::string Text(const PortEntry::Exchange& exchange)
{
    return ByteText::Quoted(exchange.request) + std::string(ANSWER) + ByteText::Quoted(exchange.answer);
}

std::string Requests(const PortEntry& entry)
{
    std::string text;
    for (const PortEntry::Exchange& exchange : entry.exchanges)
    {
        text += (text.empty() ? "" : std::string(TURNS)) + Text(exchange);
    }
    if (entry.count > 1)
    {
        text += std::string(TIMES) + std::to_string(entry.count) + std::string(UNTIL) + Time(entry.until, 0);
    }
    const std::string_view name = RequestText::NameOf(entry.exchanges.front().request);
    return name.empty() ? text : text.append(COMMENT).append(name);
}

}

std::string PortFormat::PortLine(const std::string& port)
{
    return std::string(PORT) + port;
}

std::optional<std::string> PortFormat::PortOf(std::string_view line)
{
    return line.starts_with(PORT) ? std::optional(std::string(line.substr(PORT.size()))) : std::nullopt;
}

std::string PortFormat::Line(const PortEntry& entry)
{
    constexpr int SECONDS_WIDTH = 4;
    const std::string time = Time(entry.at, SECONDS_WIDTH);
    switch (entry.kind)
    {
    case Kind::Event:
        return time + " ! " + entry.bytes;
    case Kind::Sent:
        return time + " > " + ByteText::Of(entry.bytes);
    case Kind::Received:
        return time + " < " + ByteText::Of(entry.bytes);
    default:
        return time + " ? " + Requests(entry);
    }
}

std::optional<PortEntry> PortFormat::Parse(std::string_view line)
{
    if (line.empty() || line.front() == '#')
    {
        return std::nullopt;
    }
    TextCursor cursor(line);
    while (cursor.Take(" "))
    {
    }
    PortEntry entry;
    entry.at = TakeTime(cursor);
    if (cursor.Take(" ! "))
    {
        entry.bytes = TakeEvent(cursor);
    }
    else if (cursor.Take(" > "))
    {
        entry.kind = Kind::Sent;
        entry.bytes = TakeBytes(cursor);
    }
    else if (cursor.Take(" < "))
    {
        entry.kind = Kind::Received;
        entry.bytes = TakeBytes(cursor);
    }
    else if (cursor.Take(" ? "))
    {
        entry.kind = Kind::Requests;
        TakeRequests(cursor, entry);
        if (cursor.Take(COMMENT))
        {
            return entry;
        }
    }
    else
    {
        throw Wrong("has none of the signs !, >, < and ? behind its time");
    }
    if (!cursor.AtEnd())
    {
        throw Wrong("goes on behind its end");
    }
    return entry;
}

}

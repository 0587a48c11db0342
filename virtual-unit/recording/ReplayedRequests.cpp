#include "virtual-unit/recording/ReplayedRequests.h"

#include "virtual-unit/recording/ByteText.h"
#include "virtual-unit/recording/RequestText.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace VirtualUnit
{

namespace
{

const std::string NO_ANSWER = "EIO";

}

/// The requests that may come next.
ReplayedRequests::Positions ReplayedRequests::Channel::Expected() const
{
    Positions expected;
    if (made.empty() && !steps.empty())
    {
        expected.push_back({0, 0});
    }
    for (const Position& position : made)
    {
        const PortEntry& step = steps[position.step];
        if (step.count > 1)
        {
            expected.push_back({position.step, (position.exchange + 1) % step.exchanges.size()});
        }
        if (position.step + 1 < steps.size())
        {
            expected.push_back({position.step + 1, 0});
        }
    }
    std::sort(expected.begin(), expected.end());
    expected.erase(std::unique(expected.begin(), expected.end()), expected.end());
    return expected;
}

/// Those of them that are this one.
ReplayedRequests::Positions ReplayedRequests::Channel::Expected(const std::string& request) const
{
    Positions expected = Expected();
    std::erase_if(expected, [&](const Position& position) { return At(position).request != request; });
    return expected;
}

/// The next place of a request, wherever that is.
ReplayedRequests::Positions ReplayedRequests::Channel::Ahead(const std::string& request) const
{
    for (std::size_t step = made.empty() ? 0 : made.front().step + 1; step < steps.size(); ++step)
    {
        const std::vector<PortEntry::Exchange>& exchanges = steps[step].exchanges;
        const auto found = std::ranges::find(exchanges, request, &PortEntry::Exchange::request);
        if (found != exchanges.end())
        {
            return {{step, static_cast<std::size_t>(found - exchanges.begin())}};
        }
    }
    return {};
}

/// Those of some positions of one request that have the same answer: that of the last one whose time has
/// come.
ReplayedRequests::Positions ReplayedRequests::Channel::Chosen(const Positions& possible,
                                                              std::chrono::microseconds recordedTime) const
{
    Position chosen = possible.front();
    for (const Position& position : possible)
    {
        chosen = steps[position.step].at <= recordedTime ? position : chosen;
    }
    Positions same;
    std::ranges::copy_if(possible, std::back_inserter(same),
                         [&](const Position& position) { return At(position).answer == At(chosen).answer; });
    return same;
}

/// The rest is short, and made of requests that the program has made again and again: when it stops to poll
/// is not the same each time. A pin that is left as it is remains a difference.
bool ReplayedRequests::Channel::OnlyPollsFrom(std::size_t step) const
{
    constexpr std::chrono::seconds SHORT{1};
    return steps.back().until - steps[step].at < SHORT &&
           std::all_of(
               steps.begin() + static_cast<std::ptrdiff_t>(step), steps.end(), [this](const auto& rest) {
                   return std::ranges::all_of(rest.exchanges, [this](const PortEntry::Exchange& exchange) {
                       return RequestText::Channel(exchange.request).empty() &&
                              answers.contains(exchange.request);
                   });
               });
}

ReplayedRequests::ReplayedRequests(const PortRecording& recording, Differences& theDifferences)
    : port(recording.port), differences(theDifferences)
{
    for (const PortEntry& entry : recording.entries)
    {
        if (entry.kind == PortEntry::Kind::Requests)
        {
            channels[RequestText::Channel(entry.exchanges.front().request)].steps.push_back(entry);
        }
    }
}

bool ReplayedRequests::Expects(const std::string& request) const
{
    const auto channel = channels.find(RequestText::Channel(request));
    return channel != channels.end() && !channel->second.Expected(request).empty();
}

std::string ReplayedRequests::Answer(const std::string& request, std::chrono::microseconds recordedTime)
{
    Channel& channel = channels[RequestText::Channel(request)];
    Positions possible = channel.Expected(request);
    if (possible.empty() && channel.lost)
    {
        possible = channel.Ahead(request);
    }
    if (possible.empty())
    {
        if (!std::exchange(channel.lost, true))
        {
            Tell(channel, channel.Expected(), "requested " + ByteText::Quoted(request), recordedTime);
        }
        const auto last = channel.answers.find(request);
        return last != channel.answers.end() ? last->second : NO_ANSWER;
    }
    channel.lost = false;
    channel.made = channel.Chosen(possible, recordedTime);
    const std::string& answer = channel.At(channel.made.front()).answer;
    channel.answers[request] = answer;
    return answer;
}

bool ReplayedRequests::HasReached(std::chrono::microseconds recordedTime) const
{
    return std::ranges::all_of(channels, [recordedTime](const auto& named) {
        const Channel& channel = named.second;
        const std::size_t next = channel.made.empty() ? 0 : channel.made.back().step + 1;
        return next >= channel.steps.size() || channel.steps[next].at >= recordedTime;
    });
}

void ReplayedRequests::Finish()
{
    for (const auto& [name, channel] : channels)
    {
        const std::size_t next = channel.made.empty() ? 0 : channel.made.back().step + 1;
        if (next < channel.steps.size() && !channel.OnlyPollsFrom(next))
        {
            Tell(channel, {{next, 0}}, "ended before it requested that", channel.steps[next].at);
        }
    }
}

void ReplayedRequests::Tell(const Channel& channel, const Positions& expected, const std::string& program,
                            std::chrono::microseconds at)
{
    Difference difference{port, 0, 0, {}, program};
    std::set<std::string> told;
    for (const Position& position : expected)
    {
        difference.line = difference.line != 0 ? difference.line : channel.steps[position.step].line;
        if (const std::string& request = channel.At(position).request; told.insert(request).second)
        {
            difference.expected += (difference.expected.empty() ? "" : " or ") + ByteText::Quoted(request);
        }
    }
    differences.Add(difference, at);
}

}

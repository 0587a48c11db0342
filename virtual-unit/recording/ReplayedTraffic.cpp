#include "virtual-unit/recording/ReplayedTraffic.h"

#include "virtual-unit/recording/ByteText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Kind = PortEntry::Kind;

std::string Byte(char byte)
{
    std::array<char, 8> text = {};
    std::snprintf(text.data(), text.size(), "0x%02X",
                  static_cast<unsigned int>(static_cast<unsigned char>(byte)));
    return text.data();
}

std::string InContext(std::string_view bytes, std::size_t position)
{
    return (position < bytes.size() ? Byte(bytes[position]) + " in " : "") +
           ByteText::Around(bytes, position);
}

}

ReplayedTraffic::ReplayedTraffic(const PortRecording& recording, TimePoint beginOfRun,
                                 Differences& theDifferences, Clock theClock)
    : port(recording.port), presence(recording.PresenceChanges()), begin(beginOfRun),
      differences(theDifferences), clock(std::move(theClock))
{
    std::ranges::copy_if(recording.entries, std::back_inserter(entries),
                         [](const PortEntry& entry) { return entry.kind != Kind::Requests; });
    reference.recorded = recording.entries.empty() ? reference.recorded : recording.entries.front().at;
    SkipTo(0);
    NewHost();
}

void ReplayedTraffic::SentBytes(std::string_view bytes, TimePoint now)
{
    Elapse(now);
    for (const char byte : bytes)
    {
        if (!differences.Counts(Now()))
        {
            TakeUncompared(byte, now);
            continue;
        }
        while (Expects() && entries[sent].bytes.empty())
        {
            CompleteSent(now);
        }
        Compare(byte);
        if (Expects() && sentBytes.size() == entries[sent].bytes.size())
        {
            CompleteSent(now);
        }
    }
    Release(now);
}

void ReplayedTraffic::SentMessage(std::string_view message, TimePoint now)
{
    Elapse(now);
    const std::string expected = Expects() ? entries[sent].bytes : "";
    for (const char byte : message)
    {
        Compare(byte);
    }
    if (message.size() < expected.size())
    {
        Tell(message.size(), InContext(expected, message.size()),
             "sent a message that ends before it, " + ByteText::Of(message), Now());
    }
    if (Expects())
    {
        CompleteSent(now);
    }
    Release(now);
}

void ReplayedTraffic::Advance(TimePoint now)
{
    Elapse(now);
    Release(now);
}

std::optional<ReplayedTraffic::TimePoint> ReplayedTraffic::NextDeadline() const
{
    std::optional<TimePoint> next;
    if (!latest || !IsConnected())
    {
        return next;
    }
    if (received < sent && entries[received].kind == Kind::Received)
    {
        next = Due();
    }
    if (const std::size_t happened = PresenceChanges(*latest); happened < presence.size())
    {
        const TimePoint at = begin + presence[happened].at;
        const TimePoint change = at > *latest ? at : at + PATIENCE;
        next = std::min(next.value_or(change), change);
    }
    return next;
}

std::vector<std::string> ReplayedTraffic::TakeOutput()
{
    return std::exchange(output, {});
}

bool ReplayedTraffic::IsConnected() const
{
    const std::size_t happened = PresenceChanges(latest ? *latest : clock());
    bool connected = attachedAfter == 0 || presence[attachedAfter - 1].there;
    for (std::size_t i = attachedAfter; i < happened; ++i)
    {
        connected = connected && presence[i].there;
    }
    return connected;
}

bool ReplayedTraffic::IsPlugged() const
{
    const std::size_t happened = PresenceChanges(clock());
    return happened == 0 || presence[happened - 1].there;
}

/// How many changes there have been by now.
std::size_t ReplayedTraffic::PresenceChanges(TimePoint now) const
{
    std::size_t happened = 0;
    for (const PortRecording::PresenceChange& change : presence)
    {
        const TimePoint at = begin + change.at;
        if (now < at || (latest && !change.there && now < at + PATIENCE && !HasReached(change.at)))
        {
            break;
        }
        ++happened;
    }
    return happened;
}

void ReplayedTraffic::NewHost()
{
    const TimePoint now = clock();
    latest.reset();
    attachedAfter = PresenceChanges(now);
    for (std::size_t i = received; i < entries.size() && begin + entries[i].at <= now; ++i)
    {
        if (entries[i].IsEvent(PortEntry::PLUGGED_IN))
        {
            received = i + 1;
            reference.recorded = entries[i].at;
        }
    }
    if (sent < received)
    {
        TellMissing("had not sent that when the device left");
        SkipTo(received);
    }
}

std::chrono::microseconds ReplayedTraffic::RecordedTime(TimePoint now) const
{
    const Reference known = opening.value_or(Reference{});
    return known.recorded + std::chrono::duration_cast<std::chrono::microseconds>(now - known.actual);
}

bool ReplayedTraffic::HasReached(std::chrono::microseconds recordedTime) const
{
    const auto rest = entries.begin() + static_cast<std::ptrdiff_t>(received);
    return std::none_of(rest, entries.end(), [recordedTime](const PortEntry& entry) {
        return entry.kind != Kind::Event && entry.at < recordedTime;
    });
}

void ReplayedTraffic::Finish()
{
    // The device may not even have come back.
    while (!Expects() && sent < entries.size())
    {
        SkipTo(sent + 1);
    }
    TellMissing("ended before it sent that");
}

void ReplayedTraffic::Elapse(TimePoint now)
{
    if (!latest)
    {
        reference = {OpenedAt(), now};
        opening = opening.value_or(reference);
    }
    latest = now;
}

/// When the present host's opening was in the recording, before anything went over the port.
std::chrono::microseconds ReplayedTraffic::OpenedAt() const
{
    for (std::size_t i = received; i < entries.size() && entries[i].kind == Kind::Event; ++i)
    {
        if (entries[i].IsEvent(PortEntry::OPENED))
        {
            return entries[i].at;
        }
    }
    return reference.recorded;
}

void ReplayedTraffic::Release(TimePoint now)
{
    for (; received < sent; ++received)
    {
        const PortEntry& entry = entries[received];
        if (entry.kind == Kind::Sent)
        {
            reference = {entry.at, arrivals[received]};
            arrivals.erase(received);
        }
        else if (entry.kind == Kind::Received)
        {
            if (Due() > now)
            {
                break;
            }
            earliest = Due();
            reference = {entry.at, earliest};
            output.push_back(entry.bytes);
        }
    }
}

/// When the next entry is to be received.
ReplayedTraffic::TimePoint ReplayedTraffic::Due() const
{
    return std::max(reference.actual + (entries[received].at - reference.recorded), earliest);
}

bool ReplayedTraffic::Expects() const
{
    return sent < entries.size() && entries[sent].kind == Kind::Sent;
}

void ReplayedTraffic::Compare(char byte)
{
    const std::string_view expected = Expects() ? std::string_view(entries[sent].bytes) : std::string_view();
    if (told && !Expects())
    {
        return;
    }
    const std::size_t position = sentBytes.size();
    sentBytes += byte;
    if (position >= expected.size() || expected[position] != byte)
    {
        Tell(position,
             position < expected.size() ? InContext(expected, position)
                                        : "the end of " + ByteText::Of(expected),
             "sent " + InContext(sentBytes, position), Now());
    }
}

void ReplayedTraffic::TakeUncompared(char byte, TimePoint now)
{
    sentBytes += byte;
    if (Expects() && entries[sent].bytes.starts_with(sentBytes))
    {
        if (entries[sent].bytes == sentBytes)
        {
            CompleteSent(now);
        }
        return;
    }
    const auto isLike = [this](const PortEntry& entry) {
        return entry.kind == Kind::Sent && entry.bytes.starts_with(sentBytes);
    };
    const auto next = entries.begin() + static_cast<std::ptrdiff_t>(sent);
    const auto before = std::find_if(std::make_reverse_iterator(next), entries.rend(), isLike);
    const auto later = std::find_if(next, entries.end(), isLike);
    if (before != entries.rend() && before->bytes == sentBytes)
    {
        for (auto answer = before.base(); answer != entries.end() && answer->kind == Kind::Received; ++answer)
        {
            output.push_back(answer->bytes);
        }
        sentBytes.clear();
    }
    else if (later != entries.end() && later->bytes == sentBytes)
    {
        sent = received = static_cast<std::size_t>(later - entries.begin());
        CompleteSent(now);
    }
    else if (before == entries.rend() && later == entries.end())
    {
        sentBytes.clear();
    }
}

void ReplayedTraffic::CompleteSent(TimePoint now)
{
    arrivals[sent] = now;
    SkipTo(sent + 1);
}

/// Expects the first that was sent from an entry on, unless the device left before that.
void ReplayedTraffic::SkipTo(std::size_t entry)
{
    for (sent = entry; sent < entries.size(); ++sent)
    {
        if (Expects() || entries[sent].IsEvent(PortEntry::UNPLUGGED))
        {
            break;
        }
    }
    sentBytes.clear();
    told = false;
}

void ReplayedTraffic::TellMissing(const std::string& program)
{
    if (Expects())
    {
        Tell(sentBytes.size(), InContext(entries[sent].bytes, sentBytes.size()), program,
             std::chrono::microseconds(0)); // it would have come when it was recorded
    }
}

/// Since the run began.
std::chrono::microseconds ReplayedTraffic::Now() const
{
    return std::chrono::duration_cast<std::chrono::microseconds>(latest.value_or(begin) - begin);
}

/// @param earliestTime when it happened, unless that is later in the recording
void ReplayedTraffic::Tell(std::size_t position, const std::string& expected, const std::string& program,
                           std::chrono::microseconds earliestTime)
{
    if (std::exchange(told, true))
    {
        return;
    }
    if (Expects())
    {
        differences.Add(Difference{port, entries[sent].line, position + 1, expected, program},
                        std::max(earliestTime, entries[sent].at));
    }
    else
    {
        differences.Add(Difference{port, 0, 0, {}, program}, earliestTime);
    }
}

}

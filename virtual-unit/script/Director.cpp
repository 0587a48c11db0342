#include "virtual-unit/script/Director.h"

#include "virtual-unit/recording/ByteText.h"
#include "virtual-unit/recording/TextCursor.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Kind = Script::Sign::Kind;

/// A pin and a value that was driven. @return none: it is another request, or it was refused
std::optional<std::pair<unsigned int, unsigned int>> Driven(const std::string& request,
                                                            const std::string& answer)
{
    TextCursor cursor(request);
    const auto pin = cursor.Take("pin ") ? cursor.TakeNumber() : std::nullopt;
    const auto value = cursor.Take(" = ") ? cursor.TakeNumber() : std::nullopt;
    if (!pin || !value || answer != "0")
    {
        return std::nullopt;
    }
    return std::pair(static_cast<unsigned int>(*pin), static_cast<unsigned int>(*value));
}

/// The end of what came, for people.
std::string Latest(const std::string& text)
{
    constexpr std::size_t MOST_SHOWN = 200;
    const bool cut = text.size() > MOST_SHOWN;
    return (cut ? ".. " : "") + ByteText::Quoted(cut ? text.substr(text.size() - MOST_SHOWN) : text);
}

std::string Seconds(Director::Duration time)
{
    std::array<char, 64> text = {};
    std::snprintf(text.data(), text.size(), "%.3f s", time.count());
    return text.data();
}

}

void Director::Ear::Answered(const std::string& request, const std::string& answer, TimePoint at)
{
    if (const auto driven = Driven(request, answer))
    {
        const std::lock_guard lock(owner.access);
        owner.noticed.at(port).pins.Add({at, driven->first, driven->second});
    }
    Keep(&Noticed::hears, request + "\n", at);
    Keep(&Noticed::says, answer + "\n", at);
}

void Director::Ear::Happened(const std::string& event, TimePoint at)
{
    if (event == "opened")
    {
        const std::lock_guard lock(owner.access);
        owner.noticed.at(port).openings.push_back(at);
        owner.changed.notify_all();
    }
}

void Director::Ear::Keep(Heard Noticed::*heard, std::string_view bytes, TimePoint at)
{
    const std::lock_guard lock(owner.access);
    (owner.noticed.at(port).*heard).Add(bytes, at);
    owner.changed.notify_all();
}

std::optional<Director::Clock::time_point> Director::Noticed::Take(const Script::Sign& sign,
                                                                   Clock::time_point since)
{
    switch (sign.kind)
    {
    case Kind::Opened: {
        const auto opening = std::ranges::lower_bound(openings, since);
        if (opening == openings.end())
        {
            return std::nullopt;
        }
        const Clock::time_point at = *opening;
        openings.erase(openings.begin(), std::next(opening));
        return at;
    }
    case Kind::Pin:
        return pins.Take(sign.pin, sign.value, since);
    case Kind::Hears:
        return hears.Take(sign.text, since);
    default:
        return says.Take(sign.text, since);
    }
}

std::string Director::Noticed::Instead(const Script::Sign& sign, Clock::time_point since,
                                       Clock::time_point begin) const
{
    const std::string text = sign.kind == Kind::Hears ? hears.Since(since) : says.Since(since);
    const std::optional<PinHistory::Change> pin = pins.Latest(sign.pin);
    switch (sign.kind)
    {
    case Kind::Opened:
        return "it was not opened";
    case Kind::Pin:
        return !pin ? "the pin was never driven"
                    : "it was " + std::to_string(pin->value) + " since " + Seconds(pin->at - begin);
    case Kind::Hears:
        return text.empty() ? "it heard nothing" : "it heard " + Latest(text);
    case Kind::Says:
        return text.empty() ? "it said nothing" : "it said " + Latest(text);
    default:
        return text.empty() ? "it printed nothing" : "it printed " + Latest(text);
    }
}

Director::Director(Script theScript, Unit& theUnit, Listener theListener)
    : script(std::move(theScript)), unit(theUnit), listener(std::move(theListener))
{
    for (const Script::Cue& cue : script.cues)
    {
        if (cue.step && cue.step->FillsCard())
        {
            unit.Card().mayBecomeFull = true;
        }
        if (cue.sign)
        {
            noticed.try_emplace(cue.sign->port);
            ears.try_emplace(cue.sign->port, *this, cue.sign->port);
        }
    }
    for (auto& [port, ear] : ears)
    {
        if (port != Script::Sign::PROGRAM)
        {
            unit.Traffic(unit.PathOf(port)).Tell(ear);
        }
    }
}

PortObserver* Director::ProgramListener()
{
    const auto ear = ears.find(Script::Sign::PROGRAM);
    return ear == ears.end() ? nullptr : &ear->second;
}

Director::~Director()
{
    Stop();
}

void Director::Prepare()
{
    for (std::size_t i = Done(); i < script.cues.size(); ++i)
    {
        const Script::Cue& cue = script.cues[i];
        if (!cue.step || cue.time.count() > 0 || cue.step->EndsProgram())
        {
            return;
        }
        Do(*cue.step);
        const std::lock_guard lock(access);
        ++done;
    }
}

std::size_t Director::Done() const
{
    const std::lock_guard lock(access);
    return done;
}

void Director::Do(const Step& step)
{
    listener.step(step.Words());
    step.Do(unit);
}

void Director::Start()
{
    thread = std::thread(&Director::Perform, this);
}

void Director::Stop()
{
    if (thread.joinable())
    {
        {
            const std::lock_guard lock(access);
            ending = true;
            changed.notify_all();
        }
        thread.join();
    }
}

std::vector<Verdict> Director::NotReached() const
{
    const std::lock_guard lock(access);
    std::vector<Verdict> lines;
    for (std::size_t i = done; i < script.cues.size(); ++i)
    {
        lines.push_back(
            {script.cues[i].line, script.cues[i].words, "the program ended before this was reached"});
    }
    return lines;
}

void Director::Perform()
{
    begin = Clock::now();
    Clock::time_point before = begin;
    Clock::time_point since = Clock::time_point::min(); // the program may have been faster than this thread
    for (std::size_t i = Done(); i < script.cues.size(); ++i)
    {
        const Script::Cue& cue = script.cues[i];
        if (cue.sign)
        {
            const std::optional<Clock::time_point> at =
                cue.expectation ? Expect(cue, before, since) : AwaitSign(*cue.sign, since);
            if (!at)
            {
                return;
            }
            before = std::max(before, *at);
        }
        else
        {
            before = (cue.fromLineBefore ? before : begin) + cue.time;
            if (!AwaitTime(before))
            {
                return;
            }
            Do(*cue.step);
        }
        since = before;
        const std::lock_guard lock(access);
        ++done;
    }
}

/// @return false when it is time to end
bool Director::AwaitTime(Clock::time_point time)
{
    std::unique_lock lock(access);
    return !changed.wait_until(lock, time, [this]() TAV_REQUIRES(access) { return ending; });
}

std::optional<Director::Clock::time_point> Director::AwaitSign(const Script::Sign& sign,
                                                               Clock::time_point since)
{
    std::unique_lock lock(access);
    std::optional<Clock::time_point> at;
    // What a "when" looks for may have come before; a pin is as it is.
    const Clock::time_point from = sign.kind == Kind::Pin ? since : Clock::time_point::min();
    changed.wait(
        lock, [&]() TAV_REQUIRES(access) { return ending || (at = noticed.at(sign.port).Take(sign, from)); });
    return at;
}

/// @return when the script goes on; none: the program has ended
std::optional<Director::Clock::time_point> Director::Expect(const Script::Cue& cue, Clock::time_point before,
                                                            Clock::time_point since)
{
    const Script::Expectation& expectation = *cue.expectation;
    std::unique_lock lock(access);
    Noticed& port = noticed.at(cue.sign->port);
    std::optional<Clock::time_point> at;
    const Clock::time_point limit =
        expectation.within ? before + *expectation.within : Clock::time_point::max();
    const auto decided = [&]() TAV_REQUIRES(access) { return (at = port.Take(*cue.sign, since)) || ending; };
    bool early = true; // decided before the time was over
    if (expectation.within)
    {
        early = changed.wait_until(lock, limit, decided);
    }
    else
    {
        changed.wait(lock, decided);
    }
    const bool came = at && *at <= limit; // a busy machine may have let it come later
    Verdict verdict{cue.line, cue.words, "", Clock::now() - before};
    if (came && expectation.absent)
    {
        const bool pin = cue.sign->kind == Kind::Pin;
        verdict.fault = (pin ? "it was " + std::to_string(cue.sign->value) + " since " : "it came at ") +
                        Seconds(*at - begin);
    }
    else if (!came && !expectation.absent)
    {
        verdict.fault = at ? "it came at " + Seconds(*at - begin) : port.Instead(*cue.sign, since, begin);
        verdict.fault += !at && early ? " until the program ended" : "";
    }
    const bool goesOn = at || !early;
    if (!goesOn)
    {
        ++done; // it is decided
    }
    lock.unlock();
    listener.verdict(verdict);
    return !goesOn ? std::nullopt : std::optional(came ? *at : std::min(limit, Clock::now()));
}

}

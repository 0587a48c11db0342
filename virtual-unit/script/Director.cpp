#include "virtual-unit/script/Director.h"

#include <algorithm>
#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr std::size_t MOST_KEPT = std::size_t{1024} * 1024;

}

void Director::Ear::Answered(const std::string& request, const std::string& answer, TimePoint at)
{
    Keep(hears, request + "\n", at);
    Keep(says, answer + "\n", at);
}

void Director::Ear::Happened(const std::string& event, TimePoint at)
{
    if (event == "opened")
    {
        const std::lock_guard lock(owner.access);
        openings.push_back(at);
        owner.changed.notify_all();
    }
}

void Director::Ear::Keep(Heard& heard, std::string_view bytes, TimePoint at)
{
    const std::lock_guard lock(owner.access);
    heard.text += bytes;
    heard.text.erase(0, heard.text.size() - std::min(heard.text.size(), MOST_KEPT));
    heard.latest = at;
    owner.changed.notify_all();
}

std::optional<PortObserver::TimePoint> Director::Ear::Take(const Script::Sign& sign)
{
    if (sign.kind == Script::Sign::Kind::Opened)
    {
        if (openings.empty())
        {
            return std::nullopt;
        }
        const TimePoint at = openings.front();
        openings.erase(openings.begin());
        return at;
    }
    Heard& heard = sign.kind == Script::Sign::Kind::Hears ? hears : says;
    const std::size_t found = heard.text.find(sign.text);
    if (found == std::string::npos)
    {
        return std::nullopt;
    }
    heard.text.erase(0, found + sign.text.size());
    return heard.latest;
}

Director::Director(Script theScript, Unit& theUnit, std::function<void(const std::string&)> tell)
    : script(std::move(theScript)), unit(theUnit), tellLine(std::move(tell))
{
    for (const Script::Cue& cue : script.cues)
    {
        if (cue.sign && ears.try_emplace(cue.sign->port, *this).second)
        {
            unit.Traffic(unit.PathOf(cue.sign->port)).Tell(ears.at(cue.sign->port));
        }
    }
}

Director::~Director()
{
    Stop();
}

void Director::Prepare()
{
    while (done < script.cues.size())
    {
        const Script::Cue& cue = script.cues[done];
        if (!cue.step || cue.time.count() > 0 || cue.step->EndsProgram())
        {
            return;
        }
        Do(*cue.step);
        ++done; // there is no other thread yet
    }
}

void Director::Do(const Step& step)
{
    tellLine(step.Words());
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

std::optional<int> Director::LineNotReached() const
{
    const std::lock_guard lock(access);
    return done < script.cues.size() ? std::optional(script.cues[done].line) : std::nullopt;
}

void Director::Perform()
{
    const Clock::time_point begin = Clock::now();
    Clock::time_point before = begin;
    for (std::size_t i = done; i < script.cues.size(); ++i)
    {
        const Script::Cue& cue = script.cues[i];
        if (cue.sign)
        {
            const std::optional<Clock::time_point> at = AwaitSign(*cue.sign);
            if (!at)
            {
                return;
            }
            before = *at;
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
        const std::lock_guard lock(access);
        ++done;
    }
}

/// @return false when it is time to end
bool Director::AwaitTime(Clock::time_point time)
{
    std::unique_lock lock(access);
    return !changed.wait_until(lock, time, [this] { return ending; });
}

std::optional<Director::Clock::time_point> Director::AwaitSign(const Script::Sign& sign)
{
    std::unique_lock lock(access);
    std::optional<Clock::time_point> at;
    changed.wait(lock, [&] { return ending || (at = ears.at(sign.port).Take(sign)); });
    return at;
}

}

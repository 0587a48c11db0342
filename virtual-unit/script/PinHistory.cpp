#include "virtual-unit/script/PinHistory.h"

namespace VirtualUnit
{

void PinHistory::Add(const Change& change)
{
    constexpr std::size_t MOST_KEPT = 10'000;
    const auto known = latest.find(change.pin);
    if (known != latest.end() && known->second.value == change.value)
    {
        return; // an LED's steady mode writes its pins again and again
    }
    latest[change.pin] = change;
    changes.push_back(change); // by one thread, that of the port: the times do not go back
    if (changes.size() > MOST_KEPT)
    {
        before[changes.front().pin] = changes.front();
        changes.pop_front();
    }
}

std::optional<PinHistory::TimePoint> PinHistory::Take(unsigned int pin, unsigned int value, TimePoint since)
{
    const auto pass = [this] {
        before[changes.front().pin] = changes.front();
        changes.pop_front();
    };
    while (!changes.empty() && changes.front().at < since)
    {
        pass();
    }
    if (const auto is = before.find(pin); is != before.end() && is->second.value == value)
    {
        return is->second.at;
    }
    for (std::size_t i = 0; i < changes.size(); ++i)
    {
        if (changes[i].pin == pin && changes[i].value == value)
        {
            const TimePoint at = changes[i].at;
            for (std::size_t passed = 0; passed <= i; ++passed)
            {
                pass();
            }
            return at;
        }
    }
    return std::nullopt;
}

std::optional<PinHistory::Change> PinHistory::Latest(unsigned int pin) const
{
    const auto known = latest.find(pin);
    return known == latest.end() ? std::nullopt : std::optional(known->second);
}

}

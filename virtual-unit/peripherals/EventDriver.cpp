#include "virtual-unit/peripherals/EventDriver.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace VirtualUnit
{

namespace
{

void Keep(const EventDriver::PinWrite& write, std::deque<EventDriver::PinWrite>& writes, std::size_t most)
{
    writes.push_back(write);
    if (writes.size() > most)
    {
        writes.pop_front();
    }
}

}

EventDriver::EventDriver(std::vector<Event> theScript)
{
    std::ranges::stable_sort(theScript, {}, &Event::after);
    script.assign(theScript.begin(), theScript.end());
}

void EventDriver::Trigger(unsigned char code, std::size_t times)
{
    for (std::size_t i = 0; i < times; ++i)
    {
        Send(code);
    }
    WakeHost();
}

void EventDriver::HangUp()
{
    connected = false;
    WakeHost();
}

std::string_view EventDriver::NameOf(unsigned int pin)
{
    constexpr std::array<std::string_view, LAST_PIN - FIRST_PIN + 1> NAMES = {
        "right LED red", "right LED green", "left LED red", "left LED green",
        "infrared LEDs", "power line",      "USB hub reset"};
    return pin >= FIRST_PIN && pin <= LAST_PIN ? NAMES[pin - FIRST_PIN] : std::string_view();
}

std::optional<unsigned int> EventDriver::Pin(unsigned int pin) const
{
    const auto found = pins.find(pin);
    return found == pins.end() ? std::nullopt : std::optional(found->second);
}

int EventDriver::Receive(std::string_view /*message*/, TimePoint now)
{
    Advance(now);
    return EINVAL;
}

int EventDriver::Answer(const Ioctl& call, TimePoint now)
{
    Advance(now);
    if (call.request < FIRST_PIN || call.request > LAST_PIN)
    {
        return -ENOTTY;
    }
    const auto pin = static_cast<unsigned int>(call.request);
    const auto value = static_cast<unsigned int>(call.argument); // the callers pass 32 bits
    if (value > 1)
    {
        return -EINVAL;
    }
    if (const auto fault = faults.pins.find(pin); fault != faults.pins.end() && fault->second != 0)
    {
        return -fault->second;
    }
    Keep({now, pin, value}, history, LONGEST_HISTORY);
    if (Pin(pin) != value)
    {
        Keep({now, pin, value}, changes, MOST_CHANGES);
    }
    pins[pin] = value;
    if (driven)
    {
        driven({now, pin, value});
    }
    return 0;
}

std::optional<EventDriver::TimePoint> EventDriver::NextDeadline() const
{
    return switchedOn && !script.empty() ? std::optional(*switchedOn + script.front().after) : std::nullopt;
}

void EventDriver::Advance(TimePoint now)
{
    switchedOn = switchedOn.value_or(now);
    while (!script.empty() && *switchedOn + script.front().after <= now)
    {
        Send(script.front().code);
        script.pop_front();
    }
}

std::vector<std::string> EventDriver::TakeOutput()
{
    return std::exchange(output, {});
}

void EventDriver::Send(unsigned char code)
{
    std::string message(1, static_cast<char>(code));
    message.append(rest.begin(), rest.end());
    message.resize(std::clamp<std::size_t>(faults.messageBytes, 1, MESSAGE_BYTES));
    output.push_back(std::move(message));
    if (triggered)
    {
        triggered(code);
    }
}

void EventDriver::WakeHost() const
{
    if (wake)
    {
        wake();
    }
}

}

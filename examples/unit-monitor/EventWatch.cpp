#include "examples/unit-monitor/EventWatch.h"

#include "Gpio/GpioCore.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace UnitMonitor
{

namespace
{

using Tavdevice::Gpio::GpioCore;
using Tavdevice::Gpio::GpioOutput;

constexpr const char* TAG = "event";
constexpr std::chrono::seconds BETWEEN_TRIES{2};
constexpr int POWER_LOW = 3;

/// What the driver's triggers mean on this unit.
struct Event
{
    int code;
    const char* text;
    void (*apply)(Snapshot::Power& power);
};

constexpr Event EVENTS[] = {
    {1, "ignition on", [](Snapshot::Power& power) { power.ignition = true; }},
    {2, "ignition off", [](Snapshot::Power& power) { power.ignition = false; }},
    {POWER_LOW, "power low", [](Snapshot::Power& power) { power.low = true; }},
    {4, "power off", [](Snapshot::Power& power) { power.off = true; }},
    {5, "power back", [](Snapshot::Power& power) { power.low = false; }},
    {6, "ignition start", [](Snapshot::Power& power) { power.ignition = true; }},
};

}

EventWatch::EventWatch(State& sharedState, PlainOutput& plainOutput, Lights& frontLights, Alerts& theAlerts)
    : state(sharedState), output(plainOutput), lights(frontLights), alerts(theAlerts)
{
}

void EventWatch::Start()
{
    LookForDriver();
    GpioCore::TurnOffIRLEDs();
    GpioOutput* listeners[] = {&listener};
    manager.emplace(listeners, 1);
    manager->startupFilter = false; // what comes at the start is heard too: the lines are steady by then
    manager->RunIgnitionStart();
    if (!manager->IsRunning())
    {
        throw std::runtime_error("the thread for the events could not be started");
    }
}

void EventWatch::Tick()
{
    if (!driverThere && std::chrono::steady_clock::now() - lookedFor >= BETWEEN_TRIES)
    {
        LookForDriver();
    }
    for (std::optional<int> code = listener.Take(); code; code = listener.Take())
    {
        Take(*code);
    }
}

void EventWatch::Stop()
{
    manager.reset();
}

void EventWatch::LookForDriver()
{
    const bool there = GpioCore::Initialize();
    if (there != driverThere)
    {
        output.Tell(TAG, there ? "event driver ready" : "no event driver");
    }
    driverThere = there;
    lookedFor = std::chrono::steady_clock::now();
}

void EventWatch::Take(int code)
{
    const auto* const event = std::ranges::find(EVENTS, code, &Event::code);
    if (event == std::end(EVENTS))
    {
        return;
    }
    state.Set([event](Snapshot& now) { event->apply(now.power); });
    output.Tell(TAG, event->text);
    lights.Refresh();
    if (code == POWER_LOW)
    {
        alerts.Raise(Alerts::Kind::PowerLow);
    }
}

}

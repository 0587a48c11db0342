#include "examples/unit-monitor/Lights.h"

namespace UnitMonitor
{

namespace
{

using Tavdevice::Gpio::LedController;
using Tavdevice::Gpio::LedsController;

const char* Name(Light light)
{
    switch (light)
    {
    case Light::Green:
        return "green";
    case Light::RedBlink450:
        return "red blink 450";
    case Light::Red:
        return "red";
    case Light::Off:
        break;
    }
    return "off";
}

void Set(LedsController& leds, bool left, Light light)
{
    switch (light)
    {
    case Light::Green:
        leds.SetLedMode(left, LedController::GreenOn);
        break;
    case Light::RedBlink450:
        leds.SetLedMode(left, LedController::RedBlink450);
        break;
    case Light::Red:
        leds.SetLedMode(left, LedController::RedOn);
        break;
    case Light::Off:
        leds.TurnOffLedMode(left, LedController::BothOff);
        break;
    }
}

Light WantedLeft(const Snapshot& now)
{
    return now.power.low ? Light::RedBlink450 : now.power.ignition ? Light::Green : Light::Off;
}

Light WantedRight(const Snapshot& now)
{
    return now.gps.block.position ? Light::Green : Light::Red;
}

}

Lights::Lights(State& sharedState, PlainOutput& plainOutput)
    : state(sharedState), output(plainOutput), leds(LedsController::GetInstance())
{
}

Lights::~Lights()
{
    Stop();
}

void Lights::Refresh()
{
    const std::scoped_lock lock(access);
    if (!stopped)
    {
        Show(true, state.Get(WantedLeft));
        Show(false, state.Get(WantedRight));
    }
}

void Lights::Stop()
{
    const std::scoped_lock lock(access);
    if (!stopped)
    {
        leds->Stop(LedController::BothOff);
        stopped = true;
    }
}

void Lights::Show(bool left, Light wanted)
{
    std::optional<Light>& present = shown[left ? 1 : 0];
    if (present == wanted)
    {
        return;
    }
    present = wanted;
    Set(*leds, left, wanted);
    state.Set([&](Snapshot& now) { (left ? now.left : now.right) = wanted; });
    output.Tell("led", std::string(left ? "left " : "right ") + Name(wanted));
}

}

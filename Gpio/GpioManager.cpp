#include "Gpio/GpioManager.h"

#include "base/Tavbase/Util/Tick.h"

#include <cstdint>

namespace Tavdevice::Gpio
{

namespace
{

enum Trigger : int
{
    FIRST = 1,
    SECOND = 2,
    FIFTH = 5
};

constexpr int AFTER_IGNITION_START = 6; // the event that trigger 1 becomes
constexpr std::uint64_t STARTUP_TICKS = 20;

}

GpioManager::GpioManager()
{
    name = "GPIO";
}

GpioManager::~GpioManager()
{
    StopWorker();
}

void GpioManager::RunIgnitionStart()
{
    Start();
}

bool GpioManager::SignalWait(int& trigger)
{
    return Pool(trigger);
}

void GpioManager::SignalFire(int trigger)
{
    const std::uint64_t ticks = Tavbase::Util::Tick::GetInstance().Count();
    if (trigger < FIRST || trigger > FIFTH)
    {
        return;
    }
    const bool unsteadyAtFirst = trigger == FIRST || trigger == SECOND || trigger == FIFTH;
    if (startupFilter && unsteadyAtFirst && ticks < STARTUP_TICKS)
    {
        return;
    }
    GpioArgs args(trigger == FIRST && ignitionStart ? AFTER_IGNITION_START : trigger);
    DoCallback(&args);
}

}

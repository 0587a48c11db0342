#ifndef EXAMPLES_UNIT_MONITOR_EVENTWATCH_H
#define EXAMPLES_UNIT_MONITOR_EVENTWATCH_H

#include "Gpio/GpioManager.h"
#include "examples/common/GpioOutput.h"
#include "examples/unit-monitor/Alerts.h"
#include "examples/unit-monitor/Lights.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/State.h"

#include <chrono>
#include <optional>

namespace UnitMonitor
{

/// The events of the event driver. All operations are the main thread's.
class EventWatch
{
public:
    EventWatch(State& state, PlainOutput& output, Lights& lights, Alerts& alerts);

    void Start(); ///< @throws std::runtime_error when the manager's thread cannot be started
    void Tick();  ///< deals with the events that have come; to be called often
    void Stop();  ///< no event is delivered any more

private:
    void LookForDriver();
    void Take(int code);

    State& state;
    PlainOutput& output;
    Lights& lights;
    Alerts& alerts;
    bool driverThere = true;
    std::chrono::steady_clock::time_point lookedFor;
    Tavdevice::Gpio::GpioOutput listener;
    std::optional<Tavdevice::Gpio::GpioManager> manager; ///< ends before its listener
};

}

#endif

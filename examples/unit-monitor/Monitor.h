#ifndef EXAMPLES_UNIT_MONITOR_MONITOR_H
#define EXAMPLES_UNIT_MONITOR_MONITOR_H

#include "examples/common/EndingSignals.h"
#include "examples/unit-monitor/AccelerometerWatch.h"
#include "examples/unit-monitor/Alerts.h"
#include "examples/unit-monitor/EventWatch.h"
#include "examples/unit-monitor/GpsWatch.h"
#include "examples/unit-monitor/KeyWatch.h"
#include "examples/unit-monitor/Lights.h"
#include "examples/unit-monitor/ModemWatch.h"
#include "examples/unit-monitor/Panel.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/State.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace UnitMonitor
{

/**
 * The whole application: a watch for each peripheral, and what becomes of the unit.
 *
 * All operations are the main thread's.
 */
class Monitor
{
public:
    /// @param scan look for operators, once @throws Tavbase::IException when a thread cannot be started
    Monitor(PlainOutput& output, bool scan);

    /// Shows the panel on standard output until End(). @throws std::system_error, std::runtime_error
    void ShowPanel();

    void Start(); ///< @throws std::exception when a thread cannot be started

    /// Runs until a signal, the end of the time or the event that the unit is to be switched off.
    /// @throws std::exception when a thread cannot be started
    void Watch(const Examples::EndingSignals& signals, const std::optional<std::chrono::seconds>& longest);

    /// Ends everything, within some three seconds, but for a unit that is to be switched off: there the modem
    /// goes first, and the power at last.
    /// @return false when a thread is still held by its device: the process must end without destroying
    ///         anything then
    bool End();

private:
    std::vector<Tavbase::Interfaces::IThread*> Threads(); ///< those of peripherals
    std::vector<std::string> StopThreads();               ///< @return the names of those that have not ended

    PlainOutput& output;
    State state;
    std::optional<Panel> panel;
    Lights lights;
    Alerts alerts;
    ModemWatch modem;
    KeyWatch key;
    EventWatch events;
    GpsWatch gps;
    AccelerometerWatch accelerometer;
};

}

#endif

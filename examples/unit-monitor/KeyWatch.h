#ifndef EXAMPLES_UNIT_MONITOR_KEYWATCH_H
#define EXAMPLES_UNIT_MONITOR_KEYWATCH_H

#include "DriverId/DriverId.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "examples/unit-monitor/Alerts.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/State.h"

#include <string>

namespace UnitMonitor
{

/**
 * The driver-ID reader, asked twice a second on a thread of its own, and the record of the last driver. While
 * the ignition is on without a key the reader annoys.
 */
class KeyWatch : public Tavbase::Interfaces::IThread
{
public:
    KeyWatch(State& state, PlainOutput& output, Alerts& alerts);
    ~KeyWatch() override; ///< ends the thread

    int RunBefore() override; ///< tells the last driver
    void Run() override;      ///< one request
    void RunAfter() override; ///< leaves the reader quiet

private:
    bool FindReader();
    void RequestKey();
    void Take(const std::string& id);
    void Recognise(std::string id);
    void Annoy();

    void Tell(const std::string& text) { output.Tell("key", text); }

    bool Ending() { return !ThreadSleep({}, {}); }

    State& state;
    PlainOutput& output;
    Alerts& alerts;
    TavDevice::DriverId reader;
    bool ready = false;
    bool missing = false;
    int failures = 0;       ///< in a row
    std::string lastDriver; ///< on record; empty: none
    std::string present;    ///< the key that is there; empty: none
    bool annoying = false;
};

}

#endif

#ifndef EXAMPLES_UNIT_MONITOR_ACCELEROMETERWATCH_H
#define EXAMPLES_UNIT_MONITOR_ACCELEROMETERWATCH_H

#include "AccDevice/AccDevice.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "examples/common/Sample.h"
#include "examples/unit-monitor/Alerts.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/State.h"

#include <chrono>
#include <mutex>
#include <optional>

namespace UnitMonitor
{

/// The accelerometer and the shocks. The operations are the main thread's, but for ThreadCallback().
class AccelerometerWatch : public Tavbase::Interfaces::IThread::IThreadDelegate
{
public:
    AccelerometerWatch(State& state, PlainOutput& output, Alerts& alerts);

    /// Programs the chip and starts the device. @throws std::runtime_error when its thread cannot be started
    void Start();

    /// Tries again where there is no chip or it has fallen silent; to be called often. @throws as Start()
    void Tick();

    Tavbase::Interfaces::IThread* Thread() { return device ? &*device : nullptr; } ///< null: not started yet

    void ThreadCallback(void* value) override; ///< on the device's thread

private:
    using Clock = std::chrono::steady_clock;

    void WatchForSilence();
    bool TakeShocks(const TavubufferDynamic& batch); ///< true when there is a new one
    bool IsShock(const Examples::Sample& sample);

    State& state;
    PlainOutput& output;
    Alerts& alerts;
    bool found = false; ///< the chip, at some time
    bool missing = false;
    Clock::time_point tried;

    std::mutex access;           ///< guards the next two
    Clock::time_point lastBatch; ///< or the start
    bool silent = false;

    // On the device's thread.
    std::optional<Examples::Sample> rest; ///< what is felt in the long run: gravity
    unsigned int quietSamples;            ///< since the last one of a shock

    std::optional<Tavdevice::ACC::AccDevice> device; ///< last, so that its thread ends first
};

}

#endif

#ifndef VIRTUAL_UNIT_UNIT_REPLAYEDUNIT_H
#define VIRTUAL_UNIT_UNIT_REPLAYEDUNIT_H

#include "base/ThreadSafety.h"
#include "virtual-unit/peripherals/CellularModule.h"
#include "virtual-unit/recording/Differences.h"
#include "virtual-unit/recording/PortRecording.h"
#include "virtual-unit/recording/Recording.h"
#include "virtual-unit/unit/ObservedPorts.h"
#include "virtual-unit/unit/UnitOptions.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace VirtualUnit
{

/**
 * A unit whose ports do again what was recorded, and compare what the program does with it.
 *
 * Calling threads: one.
 */
class ReplayedUnit
{
public:
    using Clock = std::chrono::steady_clock;

    /// @param tell is called with each difference, at once, on a thread of its own @throws
    /// Recording::Wrong
    ReplayedUnit(const std::string& directory, Differences::Tell tell);
    ReplayedUnit(const ReplayedUnit&) = delete;
    ReplayedUnit& operator=(const ReplayedUnit&) = delete;
    ~ReplayedUnit();

    const UnitOptions& Options() const { return options; } ///< as far as they name the ports

    PortTraffic& Traffic(const std::string& path) { return ports.Traffic(path); }

    void BeginService(); ///< @throws std::system_error when the system gives no terminals or sockets

    /// The program has begun: from now on the module leaves the USB bus and comes as it was recorded, and
    /// this process gets the signals that the program has got.
    void Start();

    const DeviceTable& Devices() const { return ports.Devices(); }

    CellularModule& Module() { return module; } ///< no more than what shows on the USB bus

    Clock::time_point Begin() const { return begin; }

    void EndService(); ///< what the program has not done is a difference from now on

    const Differences& Found() const { return differences; }

private:
    /// Something that the recording tells, and that no port does.
    struct Cue
    {
        std::chrono::microseconds at; ///< since the run began
        std::function<void()> action;
        std::function<bool()> isReady;      ///< empty: then
        std::chrono::milliseconds patience; ///< so much later it happens at last, ready or not
    };

    std::vector<Cue> Cues();
    void Play(const std::vector<Cue>& cues);
    /// @param port its name; empty: all ports
    bool HasReached(std::chrono::microseconds recordedTime, const std::string& port = {}) const;

    Recording recording;
    UnitOptions options;
    Clock::time_point begin = Clock::now();
    Differences differences;
    CellularModule module;
    ObservedPorts ports;

    /// What is asked of the device behind each port.
    struct Replayed
    {
        std::string port; ///< its name
        std::function<bool(std::chrono::microseconds)> hasReached;
        std::function<void()> finish;
    };

    std::vector<Replayed> replayed;

    std::mutex access;
    std::condition_variable changed;
    bool ending TAV_GUARDED_BY(access) = false;
    std::thread player;
};

}

#endif

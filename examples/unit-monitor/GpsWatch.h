#ifndef EXAMPLES_UNIT_MONITOR_GPSWATCH_H
#define EXAMPLES_UNIT_MONITOR_GPSWATCH_H

#include "GpsDevice/GpsDevice.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "examples/common/Nmea.h"
#include "examples/unit-monitor/Lights.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/State.h"

#include <chrono>
#include <string_view>

namespace UnitMonitor
{

/// The GPS receiver. The operations are the main thread's, but for ThreadCallback().
class GpsWatch : public Tavbase::Interfaces::IThread::IThreadDelegate
{
public:
    GpsWatch(State& state, PlainOutput& output, Lights& lights);

    /// Opens the port and starts the device. @throws std::runtime_error when its thread cannot be started
    void Start();

    void Tick(); ///< tries again where the port could not be opened; to be called often @throws as Start()

    Tavbase::Interfaces::IThread& Thread() { return device; }

    void ThreadCallback(void* value) override; ///< on the device's thread

private:
    // On the device's thread.
    void TakeSilence();
    void TakeBlock(std::string_view text);
    void Introduce();
    void TakeRestart(std::string_view text);
    void TakeCheckSums(const Examples::Block& block);
    void TakePosition(const Examples::Block& block);
    int LongestSilence() const; ///< in empty reads

    State& state;
    PlainOutput& output;
    Lights& lights;

    IThreadDelegate* receiver = this; ///< null once it is registered
    bool missing = false;
    std::chrono::steady_clock::time_point tried;

    bool heard = false; ///< there was a block
    int emptyReads = 0; ///< in a row
    bool restarted = false;
    bool checkSumsWrong = false;
    int otherwise = 0; ///< blocks in a row that contradict `checkSumsWrong`
    bool found = false;

    Tavdevice::GpsDevice::GpsDevice device; ///< last, so that its thread ends first
};

}

#endif

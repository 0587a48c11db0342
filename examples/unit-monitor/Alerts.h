#ifndef EXAMPLES_UNIT_MONITOR_ALERTS_H
#define EXAMPLES_UNIT_MONITOR_ALERTS_H

#include "Sensors/Beeper/Beeper.h"
#include "Sensors/Buzzer/BuzzerSerial.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "examples/unit-monitor/PlainOutput.h"

#include <condition_variable>
#include <mutex>
#include <queue>

namespace UnitMonitor
{

/**
 * The audible alerts, on a thread of their own: one device may sound for seconds, and the buzzer board may
 * keep its caller for ever. Who raises an alert never waits.
 */
class Alerts : public Tavbase::Interfaces::IThread
{
public:
    enum class Kind
    {
        Shock,      ///< the buzzer, twice
        Recognised, ///< the buzzer, once and short: a driver's key was read
        PowerLow    ///< the sound chips
    };

    explicit Alerts(PlainOutput& output);
    ~Alerts() override; ///< ends the thread

    void Raise(Kind kind); ///< from any thread; dropped when too many are waiting

    void Run() override; ///< one alert, or a short wait for one

private:
    void Buzz(int count, int milliseconds);
    void SoundChips();

    PlainOutput& output;
    Tavdevice::Beeper beeper;
    Tavdevice::BuzzerSerial buzzer;
    bool buzzerMissing = false;
    bool beeperMissing = false;

    std::mutex access;
    std::condition_variable raised;
    std::queue<Kind> waiting;
};

}

#endif

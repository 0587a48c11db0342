#ifndef EXAMPLES_UNIT_MONITOR_LIGHTS_H
#define EXAMPLES_UNIT_MONITOR_LIGHTS_H

#include "Gpio/LedsController.h"
#include "examples/unit-monitor/Light.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/State.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace UnitMonitor
{

/**
 * The front LEDs. The left one is green while the ignition is on and blinks red while the power is low; the
 * right one is green with a position and blinks red without.
 *
 * Construction, Stop() and destruction belong to the main thread. One object for the process.
 */
class Lights
{
public:
    /// Shows nothing yet. @throws Tavbase::IException when a thread of the LEDs cannot be started
    Lights(State& state, PlainOutput& output);
    Lights(const Lights&) = delete;
    Lights& operator=(const Lights&) = delete;
    ~Lights();

    void Refresh(); ///< shows what the state asks for; from any thread, nothing after Stop()
    void Stop();    ///< both off, for good

private:
    void Show(bool left, Light wanted);

    State& state;
    PlainOutput& output;
    std::mutex access;
    std::unique_ptr<Tavdevice::Gpio::LedsController> leds; ///< the library leaves its pair to the application
    std::optional<Light> shown[2];                         ///< right, left
    bool stopped = false;
};

}

#endif

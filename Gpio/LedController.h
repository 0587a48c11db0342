#ifndef GPIO_LEDCONTROLLER_H
#define GPIO_LEDCONTROLLER_H

#include "base/Export.h"
#include "base/Tavbase/Interfaces/IThread.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace Tavdevice::Gpio
{

/**
 * One LED with a red and a green element, and the thread that plays its mode, step by step. LedsController
 * owns the unit's two.
 *
 * Calling threads: the modes may be set from any thread; the thread takes them up at its next step, four
 * seconds later at most. The blinks are for the thread itself.
 */
class TAVDEVICE_API LedController : public Tavbase::Interfaces::IThread
{
public:
    /// What the LED shows. Any other value shows nothing new and keeps a processor busy, without a pause: do
    /// not use one (docs/limits.md).
    enum LedState : std::int32_t
    {
        RedBlink40 = 0, ///< 40 ms on, 40 ms off; and so on
        GreenBlink40 = 1,
        RedBlink80 = 2,
        GreenBlink80 = 3,
        RedBlink450 = 4,
        GreenBlink450 = 5,
        RedBlink1000 = 6,
        GreenBlink1000 = 7,
        GreenBlink2000 = 8, ///< there is no red one
        RedOn = 9,
        GreenOn = 10,
        Idle = 11,   ///< the LED stays as it is
        TurnOff = 12 ///< the state of TurnOffLedMode() is shown, then Idle
    };

    /// How TurnOffLedMode() leaves the LED. Any other value leaves it as it is.
    enum LedOffState : std::int32_t
    {
        RedOnly = 0,
        GreenOnly = 1,
        BothOn = 2,
        BothOff = 3
    };

    /// Writes no pin and does not start the thread.
    /// @param redPin,greenPin the event driver's request codes of the two elements
    LedController(int redPin, int greenPin, const std::string& name);
    ~LedController() override; ///< ends the thread; the LED stays as it is

    void SetLedMode(LedState state);        ///< the thread plays it from its next step on
    void TurnOffLedMode(LedOffState state); ///< sets the LED to `state` once and lets the thread idle

    void ApplyRedBlink(const std::chrono::milliseconds& d);   ///< one period: red for `d`, dark for `d`
    void ApplyGreenBlink(const std::chrono::milliseconds& d); ///< likewise

    void Run() override; ///< one step of the present mode

private:
    /// Both in one piece, so that the thread never sees a new mode with an old state.
    struct Setting
    {
        LedState mode;
        LedOffState offState;
    };

    struct Layout; ///< checks the order of the fields

    void Blink(int pin, int otherPin, const std::chrono::milliseconds& d);
    void Light(int pin, int otherPin);
    void ShowOffState(LedOffState state) const;
    void Pause(const std::chrono::milliseconds& duration);

    int redPin;
    int greenPin;
    std::atomic<Setting> setting;
};

}

#endif

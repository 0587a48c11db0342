#ifndef GPIO_LEDSCONTROLLER_H
#define GPIO_LEDSCONTROLLER_H

#include "Gpio/LedController.h"
#include "base/Export.h"

namespace Tavdevice::Gpio
{

/**
 * The unit's two front LEDs, one pair for the process.
 *
 *     LedsController::GetInstance()->SetLedMode(true, LedController::GreenBlink1000);
 *
 * Calling threads: the first GetInstance() comes from one thread, before others use the LEDs. From then on
 * modes may be set from any thread; Stop() and destruction belong to one, with no other thread using the
 * pair.
 */
class TAVDEVICE_API LedsController
{
public:
    /// The pair; the first call creates it and starts both threads. It lives until the application deletes
    /// it, after which this must not be called again. @throws Tavbase::IException when a thread cannot be
    /// started
    static LedsController* GetInstance();

    LedsController(const LedsController&) = delete;
    LedsController& operator=(const LedsController&) = delete;
    ~LedsController(); ///< ends the threads; the LEDs stay as they are

    void SetLedMode(bool left, LedController::LedState state);        ///< nothing after Stop()
    void TurnOffLedMode(bool left, LedController::LedOffState state); ///< nothing after Stop()

    /**
     * Switches both LEDs off for good and ends their threads. There is no way back.
     *
     * The threads get 200 ms to show the state: one whose slow blink has longer to go, in its dark half or in
     * the lit one, does not come to it, and its LED is left dark (docs/limits.md).
     * @param state how the LEDs are left
     */
    void Stop(LedController::LedOffState state);

private:
    struct Layout; ///< checks the order of the fields

    LedsController();

    LedController& Led(bool left) { return left ? mLeft : mRight; }

    static LedsController* instance;

    LedController mLeft;
    LedController mRight;
    bool mStopped = false;
};

}

#endif

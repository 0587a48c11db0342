#ifndef GPIO_GPIOMANAGER_H
#define GPIO_GPIOMANAGER_H

#include "Gpio/GpioArgs.h"
#include "Gpio/GpioCore.h"
#include "base/Export.h"
#include "base/Tavbase/Interfaces/ISignal.h"
#include "base/Tavbase/Interfaces/IgnitionStartMode.h"

#include <concepts>
#include <cstddef>

namespace Tavdevice::Gpio
{

/// A listener for the triggers: the application's own type, which it defines in this namespace, derived from
/// ISignal::ISignalDelegate (and from whatever else it likes).
class GpioOutput;

/**
 * Waits for the triggers of the event driver on a thread of its own ("GPIO") and hands each to the listeners.
 *
 *     class Tavdevice::Gpio::GpioOutput : public Tavbase::Interfaces::ISignal::ISignalDelegate
 *     {
 *     public:
 *         void SignalCallback(void* value) override // on the manager's thread
 *         {
 *             Use(static_cast<Tavdevice::Gpio::GpioArgs*>(value)->code);
 *         }
 *     };
 *
 *     GpioOutput listener;
 *     GpioOutput* listeners[] = {&listener};
 *     GpioManager manager(listeners, 1);
 *     manager.startupFilter = false; // else triggers 1, 2 and 5 of the first 20 seconds are dropped
 *     manager.RunIgnitionStart();
 *
 * What a listener gets: a pointer to a GpioArgs, valid only during the call. Triggers 1 to 5 are events; what
 * each means is between the driver and the application.
 *
 * Where the driver is missing, or its wait fails again and again, the thread tries again after a pause, one
 * second at most. A trigger of 0, which is none, is passed over without a pause.
 *
 * Calling threads: construction, RunIgnitionStart() and destruction belong to the application's thread.
 * Listeners are called on the manager's thread, in the order of registration, and delay the next trigger
 * and the destructor. See also docs/limits.md.
 */
class TAVDEVICE_API GpioManager : public GpioCore,
                                  public Tavbase::Interfaces::ISignal,
                                  public Tavbase::Interfaces::IgnitionStartMode
{
public:
    /**
     * Registers listeners; does not touch the device. To be called where GpioOutput is defined.
     * @param outputs `count` pointers, of which some may be null; the listeners stay the caller's and must
     *                outlive the manager
     */
    template <std::same_as<GpioOutput> Output>
    GpioManager(Output** outputs, unsigned int count) : GpioManager()
    {
        for (unsigned int i = 0; i < count; ++i)
        {
            AddCallback(outputs[i]); // null is skipped
        }
    }

    GpioManager(std::nullptr_t, unsigned int) : GpioManager() {} ///< without a listener

    /// Ends the thread, also while it waits; a listener that is being called is waited for, and none of its
    /// system calls is interrupted. A derived class ends it in its own destructor, by StopWorker().
    ~GpioManager() override;

    // In this order: it is that of the table of virtual operations.
    void RunIgnitionStart() override;       ///< starts the thread
    bool SignalWait(int& trigger) override; ///< GpioCore::Pool()
    void SignalFire(int trigger) override;  ///< filters a trigger and delivers it

    bool ignitionStart = false; ///< true: trigger 1 is delivered as event 6
    /// true: triggers 1, 2 and 5 are dropped in the first 20 seconds of the process (Tavbase::Util::Tick),
    /// when the lines settle; they are not delivered later
    bool startupFilter = true;

private:
    GpioManager(); ///< without a listener
};

}

#endif

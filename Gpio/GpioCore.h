#ifndef GPIO_GPIOCORE_H
#define GPIO_GPIOCORE_H

#include "base/Export.h"
#include "base/Tavbase/Interfaces/IError.h"
#include "base/ThreadSafety.h"

#include <array>
#include <mutex>
#include <poll.h>

namespace Tavdevice::Gpio
{

/**
 * The board's event driver, "/dev/tav_event": its output lines (pins) and its triggers.
 *
 * All state is the class's: the process has one descriptor of the device, opened by whichever operation comes
 * first. Objects carry nothing; destroying one changes nothing.
 *
 * A pin's number is the driver's request code: 100 and 101 the red and the green element of the right LED,
 * 102 and 103 those of the left one, 104 the infrared LEDs, 105 the power line, 106 the USB hub's reset.
 *
 * What goes to standard output is printed plainly: ignore SIGPIPE where its reader may end, or the process
 * ends there, in ShutDown() before the power is cut (docs/limits.md).
 *
 * Threads: any thread may drive pins while another waits in Pool().
 */
class TAVDEVICE_API GpioCore : public Tavbase::Interfaces::IError
{
public:
    GpioCore();           ///< does not touch the device
    ~GpioCore() override; ///< leaves the device open for the others

    static bool Initialize(); ///< opens the device once @return false when it cannot be opened

    /**
     * Closes the device. It is not opened again afterwards: after a successful close the device still counts
     * as initialised, and pins and triggers fail in silence until the process ends. Its number is still used:
     * when another file gets it, SetPin() and Pool() reach that one, the LEDs too, and a further Close()
     * closes it. Call it as the last thing, or never.
     */
    static void Close();

    /**
     * Drives an output line; opens the device where that is still to be done.
     * @param pin   100 to 106
     * @param value 0 or 1
     * @return false when the device cannot be opened; true otherwise, whatever the driver said
     */
    static bool SetPin(unsigned int pin, unsigned int value);

    /**
     * Switches the unit off: unmounts all volumes (Tavsystem::System::UnmountAll()), writes "POWER OFF, Bye."
     * to standard output, cuts the power.
     *
     * The application first closes its files on the volumes, that of the log too (Logger::CloseFile()). A
     * volume with an open file cannot be unmounted: the log's console tells it, and the power goes while it
     * is mounted. What was written is on it then, but it is not marked as unmounted in order: it is checked
     * at the next start, and a file system without a journal, such as that of the storage card, may be
     * damaged where something is still writing.
     *
     * @return as SetPin(); it returns when the power is still there
     */
    static bool ShutDown();

    /// Pulses the power line for 100 ms, so that the power controller cuts the supply unless the ignition is
    /// on. @return as SetPin()
    static bool ShutDownIfIgnitionOff();

    static bool TurnOffIRLEDs(); ///< @return as SetPin()

    /// Holds the USB hub in reset for 20 ms, then waits 8 s for the devices behind it. @return as SetPin()
    static bool HWResetUsbHub();

    /**
     * Waits for a trigger, without a limit; a signal ends the wait as a failure. On the thread of a
     * GpioManager that is being destroyed the wait ends too, and nothing is told.
     * @param trigger receives it, 1 to 255; 0 on failure
     * @return false when the device cannot be opened or read, which is told on standard output, and for a
     *         trigger of 0
     */
    bool Pool(int& trigger);

private:
    static std::mutex mGpio; ///< held around opening, closing and each pin write, never across a wait
    static bool initialized TAV_GUARDED_BY(mGpio);
    static std::array<pollfd, 2> fds TAV_GUARDED_BY(mGpio); ///< the first is the device
};

}

#endif

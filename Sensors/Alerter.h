#ifndef SENSORS_ALERTER_H
#define SENSORS_ALERTER_H

#include "base/Export.h"

namespace Tavdevice
{

/**
 * A device that warns the driver audibly: Beeper or BuzzerSerial.
 *
 *     alerter->level = 2;
 *     alerter->Alert();
 *
 * Threads: no lock; one alerter is driven by one thread, which an alert blocks for its whole length.
 * Different alerters may be driven by different threads.
 */
class TAVDEVICE_API Alerter
{
public:
    Alerter();
    Alerter(const Alerter&) = delete;
    Alerter& operator=(const Alerter&) = delete;
    virtual ~Alerter();

    // In this order: it is that of the table of virtual operations.
    virtual bool Open() = 0;  ///< opens the device, for as long as until Close() @return false on failure
    virtual bool Close() = 0; ///< @return false on failure
    virtual bool Alert() = 0; ///< opens the device, plays the alert of the present level, closes the device
    virtual bool CheckPresence() = 0; ///< opens and closes the device @return `isPresent` afterwards

    /**
     * True once an alert device has been opened, until a search for one finds nothing. One flag for all
     * alerters of the process, so that one kind answers for the other (docs/limits.md). It is a plain
     * variable: while any alerter may be used by another thread, look at what CheckPresence() returns, and
     * not at this.
     */
    static bool isPresent;

protected:
    static bool IsPresent();              ///< `isPresent`, from any thread
    static void SetPresent(bool present); ///< the same

    bool busy = false; ///< an alert is being played

public:
    int level = 0; ///< which alert is played; each device tells its own. Set before Alert().

private:
    struct Layout; ///< checks the order of the fields
};

}

#endif

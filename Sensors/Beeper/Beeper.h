#ifndef SENSORS_BEEPER_BEEPER_H
#define SENSORS_BEEPER_BEEPER_H

#include "I2C/HidI2C.h"
#include "Sensors/Alerter.h"
#include "base/Export.h"

#include <initializer_list>

namespace Tavdevice
{

/**
 * Two sound chips on I2C, behind the HID bridge on "/dev/hidraw0".
 *
 * Once a pattern has begun it is played to its end, whatever the bridge says. The bridge prints to standard
 * output and error (HidI2C). One that came back as "/dev/hidraw1" is not found (docs/limits.md).
 */
class TAVDEVICE_API Beeper : public Alerter
{
public:
    Beeper();
    ~Beeper() override; ///< does not close the bridge

    bool Open() override;
    bool Close() override; ///< once for each Open(), and not after an alert: as HidI2C::Close()

    /// Alert_2(). True also when nothing sounded.
    bool Alert() override;

    /// A failure leaves `isPresent` as it was. Where that is false, a node that refused its queries stays
    /// open until Close().
    bool CheckPresence() override;

    /// The first chip: a short double tone, twice at level 2. Some 150 or 300 ms. @return true
    bool Alert_1();

    /// The second chip: two tones, two or three times at level 2 or 3, once at any other but 0. Some 3 s
    /// each.
    /// @return true; false at once at level 0
    bool Alert_2();

private:
    struct Layout; ///< checks the order of the fields

    void Write(unsigned char address, std::initializer_list<unsigned char> bytes);

    HidI2C bridge;
    unsigned char address1;
    unsigned char address2;
};

}

#endif

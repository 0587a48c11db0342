#ifndef VIRTUAL_UNIT_UNIT_UNITOPTIONS_H
#define VIRTUAL_UNIT_UNIT_UNITOPTIONS_H

#include "virtual-unit/peripherals/CellularState.h"
#include "virtual-unit/peripherals/GpsReceiver.h"
#include "virtual-unit/peripherals/KeyReader.h"

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace VirtualUnit
{

/// How the unit is fitted, and what it finds when it is switched on. The command line tells it ("--gps
/// skm53"), and so does a script ("unit gps skm53").
struct UnitOptions
{
    /// One of them.
    struct Option
    {
        std::string_view name;    ///< without dashes
        std::string_view value;   ///< for people: "SECONDS"
        std::string_view meaning; ///< and what it is unless told otherwise, in parentheses
        void (*take)(UnitOptions& unit, const std::string& value);
    };

    static std::span<const Option> List(); ///< all there are, in the order in which people read them

    static bool Has(const std::string& name); ///< there is an option of that name, which is without dashes

    static bool NamesFile(const std::string& name); ///< its value is the path of a file

    void Take(const std::string& name, const std::string& value); ///< @throws Values::Wrong

    GpsReceiver::Options gps;
    std::optional<std::chrono::sys_seconds> date; ///< UTC when receiver and module are switched on; none: as
                                                  ///< the track says, or the PC's present time
    std::string nmeaFile;                         ///< a recording that the receiver plays; empty: none
    std::string trackFile;                        ///< a drive that was recorded; empty: the circuit
    std::string motionFile; ///< what the accelerometer feels; empty: what the vehicle does
    unsigned int seed = 1;  ///< of the noise on a recorded drive
    KeyReader::Options keyReader;
    CellularState modem;
    bool modemOnBus = true;
    unsigned int i2cAdapter = 1;                         ///< the accelerometer's: N of "/dev/i2c-N"
    std::optional<std::chrono::milliseconds> crashAfter; ///< from the begin of the run; none: no crash
    std::optional<std::chrono::milliseconds>
        ignitionAfter;           ///< from the first use of the event driver; none: off
    bool powerLossDrops = false; ///< what was not synced is gone from the card when the power is cut
};

}

#endif

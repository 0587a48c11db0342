#ifndef EXAMPLES_UNIT_MONITOR_SNAPSHOT_H
#define EXAMPLES_UNIT_MONITOR_SNAPSHOT_H

#include "examples/common/Nmea.h"
#include "examples/unit-monitor/Light.h"

#include <deque>
#include <optional>
#include <string>

namespace UnitMonitor
{

/// All that is known of the unit at one time. A text that is not known is empty.
struct Snapshot
{
    struct Power
    {
        bool ignition = false;
        bool low = false;
        bool off = false; ///< the unit is to be switched off
    };

    struct Gps
    {
        std::string receiver; ///< "L26"; empty before the first block
        bool silent = false;
        Examples::Block block; ///< the latest one; without a position while the receiver is silent
    };

    struct Modem
    {
        bool onBus = false;
        bool answers = false;
        std::string imei;
        std::string registration;
        std::string operatorName;
        std::optional<int> rssi; ///< 0 to 31
        std::string signal;      ///< "-73 dBm, Excellent"
        std::optional<int> millivolts;
    };

    struct Key
    {
        bool reader = false; ///< it has answered
        bool silent = false;
        bool annoying = false;
        std::string driver; ///< whose key is there
        std::string remark; ///< how that driver compares with the last one
        std::string lastDriver;
    };

    struct Acceleration
    {
        bool ready = false;            ///< batches come
        std::deque<double> magnitudes; ///< the strongest of each batch, in g, latest last
        double strongest = 0;          ///< since the start, in g
    };

    Power power;
    Light left = Light::Off;
    Light right = Light::Off;
    Gps gps;
    Modem modem;
    Key key;
    Acceleration acceleration;
};

}

#endif

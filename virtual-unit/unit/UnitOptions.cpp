#include "virtual-unit/unit/UnitOptions.h"

#include "virtual-unit/unit/Values.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <string_view>

namespace VirtualUnit
{

namespace
{

using Values::Refuse;
using Values::Seconds;

GpsReceiver::Model Model(const std::string& value)
{
    if (value != "l26" && value != "skm53")
    {
        Refuse(value, "neither l26 nor skm53");
    }
    return value == "l26" ? GpsReceiver::Model::L26 : GpsReceiver::Model::SKM53;
}

bool InPresent(const std::string& value)
{
    if (value != "recorded" && value != "present")
    {
        Refuse(value, "neither recorded nor present");
    }
    return value == "present";
}

bool DropsUnsynced(const std::string& value)
{
    if (value != "keep" && value != "drop")
    {
        Refuse(value, "neither keep nor drop");
    }
    return value == "drop";
}

void FitModem(UnitOptions& unit, const std::string& value)
{
    if (value != "present" && value != "absent" && value != "no-sim")
    {
        Refuse(value, "neither present nor absent nor no-sim");
    }
    unit.modemOnBus = value != "absent";
    unit.modem.sim = value != "no-sim";
}

constexpr UnitOptions::Option OPTIONS[] = {
    {"gps", "l26|skm53", "the GPS receiver that is fitted (l26)",
     [](UnitOptions& unit, const std::string& value) { unit.gps.model = Model(value); }},
    {"gps-fix-after", "SECONDS", "it has no fix for so long after the port is first opened (0)",
     [](UnitOptions& unit, const std::string& value) { unit.gps.fixAfter = Seconds(value); }},
    {"nmea", "FILE", "it plays a recording, one second a second, again and again",
     [](UnitOptions& unit, const std::string& value) { unit.nmeaFile = value; }},
    {"nmea-times", "recorded|present", "its times, moved to the present or not (recorded)",
     [](UnitOptions& unit, const std::string& value) { unit.gps.recordingInPresent = InPresent(value); }},
    {"date", "MOMENT",
     "UTC when receiver and module are switched on: 2026-03-01T08:15:00Z (the track's, or the present time)",
     [](UnitOptions& unit, const std::string& value) {
         unit.date = std::chrono::floor<std::chrono::seconds>(Values::Moment(value));
     }},
    {"track", "FILE", "the drive, as GPX or CSV: the receiver sends it, the accelerometer feels it",
     [](UnitOptions& unit, const std::string& value) { unit.trackFile = value; }},
    {"motion", "FILE", "what the accelerometer feels, as CSV: time, x, y, z in g",
     [](UnitOptions& unit, const std::string& value) { unit.motionFile = value; }},
    {"seed", "N", "of the noise of engine and road that belongs to --track (1)",
     [](UnitOptions& unit, const std::string& value) { unit.seed = Values::Number(value, 0, UINT_MAX); }},
    {"key", "ID|none", "the key at the driver-ID reader, 12 hexadecimal digits (none)",
     [](UnitOptions& unit, const std::string& value) { unit.keyReader.key = Values::Key(value); }},
    {"key-after", "SECONDS", "it is presented so long after the reader's port is first opened (0)",
     [](UnitOptions& unit, const std::string& value) { unit.keyReader.keyAfter = Seconds(value); }},
    {"modem", "present|absent|no-sim",
     "the cellular module: with a SIM, not on the USB bus, without a SIM (present)", FitModem},
    {"modem-signal", "RSSI", "it receives so well, 0 to 31; 99: not known (20)",
     [](UnitOptions& unit, const std::string& value) { unit.modem.rssi = Values::Signal(value); }},
    {"modem-registration", "none|searching|home|roaming|denied|unknown", "it is registered so (home)",
     [](UnitOptions& unit, const std::string& value) { unit.modem.RegisterAs(Values::Registration(value)); }},
    {"i2c-adapter", "N", "the adapter with the accelerometer: /dev/i2c-N (1)",
     [](UnitOptions& unit, const std::string& value) {
         constexpr unsigned int LAST = 9;
         unit.i2cAdapter = Values::Number(value, 0, LAST, "the number of an adapter");
     }},
    {"crash-after", "SECONDS", "the unit is in a crash so long after the run begins (never)",
     [](UnitOptions& unit, const std::string& value) { unit.crashAfter = Seconds(value); }},
    {"ignition-after", "SECONDS",
     "the ignition is switched on so long after the event driver is first used (never)",
     [](UnitOptions& unit, const std::string& value) { unit.ignitionAfter = Seconds(value); }},
    {"power-loss", "keep|drop",
     "what becomes of data on the card that was not synced when the power is cut (keep)",
     [](UnitOptions& unit, const std::string& value) { unit.powerLossDrops = DropsUnsynced(value); }},
};

}

bool UnitOptions::NamesFile(const std::string& name)
{
    return name == "nmea" || name == "track" || name == "motion";
}

std::span<const UnitOptions::Option> UnitOptions::List()
{
    return OPTIONS;
}

bool UnitOptions::Has(const std::string& name)
{
    return std::ranges::find(OPTIONS, name, &Option::name) != std::end(OPTIONS);
}

void UnitOptions::Take(const std::string& name, const std::string& value)
{
    const auto* const option = std::ranges::find(OPTIONS, name, &Option::name);
    if (option == std::end(OPTIONS))
    {
        Refuse(name, "not an option of the unit");
    }
    option->take(*this, value);
}

}

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

std::chrono::seconds Seconds(const std::string& value)
{
    constexpr unsigned int LONGEST = 24 * 60 * 60;
    return std::chrono::seconds(Values::Number(value, 0, LONGEST, "a number of seconds"));
}

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

void FitModem(UnitOptions& unit, const std::string& value)
{
    if (value != "present" && value != "absent" && value != "no-sim")
    {
        Refuse(value, "neither present nor absent nor no-sim");
    }
    unit.modemOnBus = value != "absent";
    unit.modem.sim = value != "no-sim";
}

struct Option
{
    std::string_view name;
    void (*take)(UnitOptions& unit, const std::string& value);
};

constexpr Option OPTIONS[] = {
    {"gps", [](UnitOptions& unit, const std::string& value) { unit.gps.model = Model(value); }},
    {"gps-fix-after",
     [](UnitOptions& unit, const std::string& value) { unit.gps.fixAfter = Seconds(value); }},
    {"nmea", [](UnitOptions& unit, const std::string& value) { unit.nmeaFile = value; }},
    {"nmea-times",
     [](UnitOptions& unit, const std::string& value) { unit.gps.recordingInPresent = InPresent(value); }},
    {"date",
     [](UnitOptions& unit, const std::string& value) {
         unit.date = std::chrono::floor<std::chrono::seconds>(Values::Moment(value));
     }},
    {"track", [](UnitOptions& unit, const std::string& value) { unit.trackFile = value; }},
    {"motion", [](UnitOptions& unit, const std::string& value) { unit.motionFile = value; }},
    {"seed",
     [](UnitOptions& unit, const std::string& value) { unit.seed = Values::Number(value, 0, UINT_MAX); }},
    {"key", [](UnitOptions& unit, const std::string& value) { unit.keyReader.key = Values::Key(value); }},
    {"key-after",
     [](UnitOptions& unit, const std::string& value) { unit.keyReader.keyAfter = Seconds(value); }},
    {"modem", FitModem},
    {"modem-signal",
     [](UnitOptions& unit, const std::string& value) { unit.modem.rssi = Values::Signal(value); }},
    {"modem-registration",
     [](UnitOptions& unit, const std::string& value) { unit.modem.RegisterAs(Values::Registration(value)); }},
    {"i2c-adapter",
     [](UnitOptions& unit, const std::string& value) {
         constexpr unsigned int LAST = 9;
         unit.i2cAdapter = Values::Number(value, 0, LAST, "the number of an adapter");
     }},
    {"crash-after", [](UnitOptions& unit, const std::string& value) { unit.crashAfter = Seconds(value); }},
    {"ignition-after",
     [](UnitOptions& unit, const std::string& value) { unit.ignitionAfter = Seconds(value); }},
};

}

bool UnitOptions::NamesFile(const std::string& name)
{
    return name == "nmea" || name == "track" || name == "motion";
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

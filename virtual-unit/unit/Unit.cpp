#include "virtual-unit/unit/Unit.h"

#include "virtual-unit/peripherals/Nmea.h"
#include "virtual-unit/peripherals/Vibration.h"
#include "virtual-unit/recording/PortEntry.h"
#include "virtual-unit/unit/MotionFile.h"
#include "virtual-unit/unit/TrackFile.h"
#include "virtual-unit/unit/Values.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

namespace VirtualUnit
{

namespace
{

// Of the event driver's triggers.
constexpr unsigned char IGNITION_ON = 1;
constexpr unsigned char IGNITION_OFF = 2;

constexpr unsigned int POWER_PIN = 105;
constexpr unsigned int HUB_RESET_PIN = 106; // 0: held in reset

template <class Content>
Content ReadFile(const char* option, const std::string& path)
{
    try
    {
        return Content::Read(path);
    }
    catch (const Values::Wrong& wrong)
    {
        throw Values::Wrong(std::string(option) + ": " + wrong.what());
    }
}

// A byte takes ten bits of a line, so that answers come at a time of their own.
constexpr unsigned int READER_BYTES_PER_SECOND = 9600 / 10;
constexpr unsigned int BUZZER_BYTES_PER_SECOND = 115200 / 10;

KeyReader::Options FitReader(const UnitOptions& unit)
{
    KeyReader::Options reader = unit.keyReader;
    reader.line.bytesPerSecond = READER_BYTES_PER_SECOND;
    return reader;
}

BuzzerBoard::Options FitBuzzer()
{
    BuzzerBoard::Options buzzer;
    buzzer.line.bytesPerSecond = BUZZER_BYTES_PER_SECOND;
    return buzzer;
}

CellularState FitModem(const UnitOptions& unit, std::chrono::sys_seconds present)
{
    CellularState state = unit.modem;
    state.clock = present;
    return state;
}

std::vector<EventDriver::Event> FitEvents(const UnitOptions& unit)
{
    return unit.ignitionAfter ? std::vector<EventDriver::Event>{{*unit.ignitionAfter, IGNITION_ON}}
                              : std::vector<EventDriver::Event>();
}

}

std::vector<Unit::Port> Unit::Ports(const UnitOptions& options)
{
    using Kind = Port::Kind;
    return {{"gps", "/dev/ttymxc0"},
            {"reader", "/dev/ttymxc2"},
            {"modem", "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0"},
            {"modem-2", "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if02-port0"},
            {"buzzer", "/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0"},
            {"i2c", "/dev/i2c-" + std::to_string(options.i2cAdapter), Kind::I2c},
            {"sounder", "/dev/hidraw0", Kind::Messages},
            {"events", "/dev/tav_event", Kind::Messages}};
}

std::string Unit::Path(const UnitOptions& options, const std::string& name)
{
    const std::vector<Port> all = Ports(options);
    return std::ranges::find(all, name, &Port::name)->path;
}

Unit::Unit(const UnitOptions& theOptions)
    : options(theOptions), vehicle(FitVehicle()), gps(std::make_shared<GpsReceiver>(FitGps())),
      reader(std::make_shared<KeyReader>(FitReader(options))),
      modem(std::make_shared<CellularModule>(FitModem(options, present))),
      buzzer(std::make_shared<BuzzerBoard>(FitBuzzer())), adapter(std::make_shared<I2cAdapter>()),
      bridge(std::make_shared<HidBridge>()), events(std::make_shared<EventDriver>(FitEvents(options)))
{
    adapter->Add(accelerometer);
    FitMotion();
    FitIgnition();
    Card().losesUnsynced = options.powerLossDrops;
    if (options.crashAfter)
    {
        accelerometer.motion.Crash(begin + *options.crashAfter);
    }
    if (!options.modemOnBus)
    {
        modem->Unplug();
    }
}

std::shared_ptr<Vehicle> Unit::FitVehicle()
{
    present =
        options.date.value_or(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
    if (options.trackFile.empty())
    {
        return std::make_shared<Vehicle>();
    }
    if (!options.nmeaFile.empty())
    {
        throw Values::Wrong("--track and --nmea: the receiver can play one of them only");
    }
    const auto track = ReadFile<TrackFile>("--track", options.trackFile);
    present = options.date ? present : track.begin.value_or(present);
    return std::make_shared<Vehicle>(Drive(track.fixes), begin);
}

GpsReceiver::Options Unit::FitGps() const
{
    GpsReceiver::Options fitted = options.gps;
    fitted.start = present;
    fitted.vehicle = vehicle;
    if (!options.trackFile.empty())
    {
        fitted.clockStart = begin;
    }
    if (options.nmeaFile.empty())
    {
        return fitted;
    }
    std::ifstream file(options.nmeaFile, std::ios::binary);
    if (!file)
    {
        throw Values::Wrong("--nmea: " + options.nmeaFile +
                            " cannot be read: " + std::generic_category().message(errno));
    }
    std::ostringstream text;
    text << file.rdbuf();
    fitted.recording =
        Nmea::Epochs(text.str(), fitted.model == GpsReceiver::Model::L26 ? Nmea::RmcPosition::First
                                                                         : Nmea::RmcPosition::Last);
    if (fitted.recording.empty())
    {
        throw Values::Wrong("--nmea: " + options.nmeaFile +
                            " holds no NMEA sentence (a line that begins with '$')");
    }
    return fitted;
}

void Unit::FitMotion()
{
    if (!options.motionFile.empty())
    {
        accelerometer.motion.Follow([samples = ReadFile<MotionFile>("--motion", options.motionFile),
                                     start = begin](Motion::TimePoint time) {
            return samples.At(std::chrono::duration<double>(time - start).count());
        });
        return;
    }
    // On the circuit it is quiet: its corners are none that could be felt.
    const auto vibration = options.trackFile.empty() ? std::nullopt : std::optional(Vibration(options.seed));
    accelerometer.motion.Follow([carrier = vehicle, vibration, start = begin](Motion::TimePoint time) {
        const Vehicle::State state = carrier->At(time);
        const Motion::Acceleration shaken =
            vibration ? vibration->At(time - start, state.metresPerSecond, state.engine)
                      : Motion::Acceleration();
        return Motion::Acceleration{state.ahead + shaken.x, shaken.y - state.right, 1 + shaken.z};
    });
}

void Unit::FitIgnition()
{
    if (options.ignitionAfter)
    {
        vehicle->Park(begin);
        Power().SwitchIgnition(false);
    }
    events->Tell([this](unsigned char code) {
        if (code == IGNITION_ON || code == IGNITION_OFF)
        {
            vehicle->SwitchIgnition(code == IGNITION_ON, Clock::now());
            Power().SwitchIgnition(code == IGNITION_ON);
        }
    });
}

void Unit::BeginService()
{
    using Serial = std::shared_ptr<SerialPeripheral>;
    using Messages = std::shared_ptr<MessagePeripheral>;
    gpsPort = ports.Serve(Path(options, "gps"), Serial(gps));
    readerPort = ports.Serve(Path(options, "reader"), Serial(reader));
    // Each port keeps the whole module.
    ports.Serve(Path(options, "modem"), Serial(modem, &modem->At(CellularModule::Port::Main)));
    ports.Serve(Path(options, "modem-2"), Serial(modem, &modem->At(CellularModule::Port::Alternate)));
    buzzerPort = ports.Serve(Path(options, "buzzer"), Serial(buzzer));
    adapterPort = ports.Serve(Path(options, "i2c"), std::shared_ptr<I2cPeripheral>(adapter));
    bridgePort = ports.Serve(Path(options, "sounder"), Messages(bridge));
    eventsPort = ports.Serve(Path(options, "events"), Messages(events));
    events->TellPins([this](const EventDriver::PinWrite& write) {
        if (write.pin == HUB_RESET_PIN)
        {
            ResetHub(write.value == 0);
        }
        if (write.pin == POWER_PIN)
        {
            Power().DriveLine(write.value != 0, Clock::now());
        }
    });
    modem->TellPresence(this, [this](bool onBus) {
        TellPresence("modem", onBus);
        TellPresence("modem-2", onBus);
    });
}

void Unit::EndService()
{
    modem->TellPresence(this, {});
    ports.EndService();
}

/// Takes what hangs on the USB hub off the bus, or gives back what it has taken: what was away before stays
/// away.
void Unit::ResetHub(bool held)
{
    const auto change = [held](bool& taken, bool isThere, const auto& leave, const auto& comeBack) {
        if (held && isThere)
        {
            taken = true;
            leave();
        }
        else if (!held && std::exchange(taken, false) && !isThere)
        {
            comeBack();
        }
    };
    change(
        reset.modem, modem->OnBus(), [this] { modem->Unplug(); }, [this] { modem->PlugIn(); });
    const auto changePort = [&](const char* name, bool& taken, auto&& fitted) {
        bool isThere = false;
        fitted.Change([&isThere](auto& device) { isThere = device.IsPlugged(); });
        const auto leave = [&] {
            fitted.Change([](auto& device) { device.Unplug(); });
            TellPresence(name, false);
        };
        const auto comeBack = [&] {
            fitted.Change([](auto& device) { device.PlugIn(); });
            TellPresence(name, true);
        };
        change(taken, isThere, leave, comeBack);
    };
    changePort("buzzer", reset.buzzer, Buzzer());
    changePort("sounder", reset.sounder, Sounder());
}

void Unit::TellPresence(const std::string& name, bool there)
{
    Traffic(PathOf(name))
        .Happened(std::string(there ? PortEntry::PLUGGED_IN : PortEntry::UNPLUGGED), Clock::now());
}

std::vector<Unit::Status> Unit::State()
{
    const std::map<std::string, std::string> states = {
        {"gps", GpsState()},         {"reader", ReaderState()}, {"modem", ModemState()},
        {"modem-2", ModemState()},   {"buzzer", BuzzerState()}, {"i2c", AdapterState()},
        {"sounder", SounderState()}, {"events", EventsState()}};
    std::vector<Status> list;
    for (const Port& port : Ports(options))
    {
        list.push_back({port.name, port.path, states.at(port.name)});
    }
    return list;
}

std::vector<std::string> Unit::Secrets() const
{
    const CellularState state = modem->State();
    return {state.imei, state.imsi, state.iccid};
}

std::string Unit::GpsState()
{
    std::string state =
        options.gps.model == GpsReceiver::Model::L26 ? "GPS receiver L26" : "GPS receiver SKM53";
    if (!options.nmeaFile.empty())
    {
        state += ", playing " + options.nmeaFile;
    }
    if (!options.trackFile.empty())
    {
        state += ", on the drive of " + options.trackFile;
    }
    Gps().Change([&state](const GpsReceiver& receiver) {
        state += receiver.faults.silent ? ", silent" : receiver.faults.noSatellites ? ", no satellites" : "";
    });
    return state;
}

std::string Unit::ReaderState()
{
    std::string state = "driver-ID reader";
    Reader().Change([&](const KeyReader& device) {
        const bool toCome = device.KeyIsToCome();
        const std::string key = toCome ? options.keyReader.key : device.Key();
        state += key.empty() ? ", no key" : ", key " + key;
        if (toCome && options.keyReader.keyAfter.count() > 0)
        {
            state += " after " + Values::SecondsText(options.keyReader.keyAfter) + " s";
        }
        state += device.faults.silent ? ", silent" : "";
    });
    return state;
}

std::string Unit::ModemState() const
{
    const CellularState state = modem->State();
    const std::string condition =
        !modem->OnBus() ? "off the bus"
        : !state.sim    ? "no SIM"
                        : "registration " +
                           std::string(CellularState::REGISTRATIONS[static_cast<int>(state.registration)]) +
                           ", signal " + std::to_string(state.rssi);
    return "cellular module UC15, " + condition;
}

std::string Unit::BuzzerState()
{
    std::string state = "buzzer board";
    Buzzer().Change([&state](const BuzzerBoard& board) {
        state += !board.IsPlugged() ? ", unplugged" : board.faults.silent ? ", silent" : "";
    });
    return state;
}

std::string Unit::AdapterState()
{
    std::string state = "I2C adapter, accelerometer MMA8451Q at 0x1C";
    Adapter().Change([&state](const I2cAdapter& bus) {
        state += bus.faults.transfer != 0 ? ", dead" : bus.faults.selection != 0 ? ", refusing" : "";
    });
    return state;
}

std::string Unit::SounderState()
{
    std::string state = "HID bridge FT260, sound chips at 0x5A and 0x62";
    Sounder().Change([&state](const HidBridge& device) {
        state += !device.IsPlugged() ? ", unplugged" : device.faults.descriptorSize != 0 ? ", refusing" : "";
    });
    return state;
}

std::string Unit::EventsState()
{
    std::string state = "event driver, pins 100 to 106";
    Events().Change([&state](const EventDriver& driver) {
        for (unsigned int pin = EventDriver::FIRST_PIN; pin <= EventDriver::LAST_PIN; ++pin)
        {
            state += driver.Pin(pin) == 1U ? ", " + std::to_string(pin) + " on" : "";
        }
    });
    return state;
}

}

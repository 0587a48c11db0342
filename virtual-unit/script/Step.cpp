#include "virtual-unit/script/Step.h"

#include "virtual-unit/peripherals/Geography.h"
#include "virtual-unit/unit/Values.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iterator>
#include <sstream>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace VirtualUnit
{

namespace
{

using Action = std::function<void(Unit&)>;
using WordList = std::vector<std::string>;
using std::chrono::milliseconds;

constexpr unsigned int LONGEST_DELAY = 600'000; // milliseconds
constexpr unsigned int MOST_NOISE = 4096;       // bytes

// What the triggers of the event driver stand for is between the driver and the application. These are the
// meanings that the applications in examples/ give them.
enum TriggerCode : unsigned char
{
    IGNITION_ON = 1,
    IGNITION_OFF = 2,
    POWER_LOW = 3,
    POWER_OFF = 4,
    POWER_BACK = 5
};

template <unsigned char code>
Action Trigger(const WordList& /*words*/)
{
    return [](Unit& unit) { unit.Events().Change([](EventDriver& driver) { driver.Trigger(code); }); };
}

Action AnyTrigger(const WordList& words)
{
    constexpr unsigned int MOST = 1000;
    const auto code = static_cast<unsigned char>(Values::Number(words[0], 0, 255));
    const unsigned int times = words.size() > 1 ? Values::Number(words[1], 1, MOST) : 1;
    return [=](Unit& unit) { unit.Events().Change([=](EventDriver& d) { d.Trigger(code, times); }); };
}

Action Pin(const WordList& words)
{
    const unsigned int pin = Values::Number(words[0], EventDriver::FIRST_PIN, EventDriver::LAST_PIN, "a pin");
    if (words[1] != "refused" && words[1] != "well")
    {
        Values::Refuse(words[1], "neither refused nor well");
    }
    const int error = words[1] == "refused" ? EIO : 0;
    return [=](Unit& unit) { unit.Events().Change([=](EventDriver& d) { d.faults.pins[pin] = error; }); };
}

// --- The key reader

Action Key(const WordList& words)
{
    return [key = Values::Key(words[0])](Unit& unit) {
        unit.Reader().Change([&key](KeyReader& reader) {
            if (key.empty())
            {
                reader.TakeAway();
            }
            else
            {
                reader.Present(key);
            }
        });
    };
}

Action ReaderFault(const std::function<void(KeyReader::Faults&)>& spoil)
{
    return [=](Unit& unit) { unit.Reader().Change([&spoil](KeyReader& reader) { spoil(reader.faults); }); };
}

// --- The GPS receiver

Action GpsFault(const std::function<void(GpsReceiver::Faults&)>& spoil)
{
    return [=](Unit& unit) { unit.Gps().Change([&spoil](GpsReceiver& gps) { spoil(gps.faults); }); };
}

// --- The vehicle

Action Drive(const std::function<void(Vehicle& vehicle, Unit::Clock::time_point now)>& ask)
{
    return [=](Unit& unit) { ask(unit.Car(), Unit::Clock::now()); };
}

template <void (Vehicle::*manoeuvre)(double, milliseconds, Vehicle::TimePoint)>
Action Manoeuvre(const WordList& words, double least)
{
    constexpr double MOST_G = 3;
    constexpr double LONGEST = 600; // seconds
    const double g = Values::Real(words[0], least, MOST_G, "an acceleration in g");
    const double seconds = Values::Real(words[1], 0, LONGEST, "a number of seconds");
    const auto time = std::chrono::round<milliseconds>(std::chrono::duration<double>(seconds));
    return Drive([=](Vehicle& vehicle, auto now) { (vehicle.*manoeuvre)(g, time, now); });
}

Action Speed(const WordList& words)
{
    constexpr double FASTEST = 400;
    const double speed =
        Values::Real(words[0], 0, FASTEST, "a speed") / Geography::KILOMETRES_PER_HOUR_PER_METRE_PER_SECOND;
    return Drive([=](Vehicle& vehicle, auto now) { vehicle.SetSpeed(speed, now); });
}

Action Position(const WordList& words)
{
    const double latitude = Values::Real(words[0], -90, 90, "a latitude");
    const double longitude = Values::Real(words[1], -180, 180, "a longitude");
    return Drive([=](Vehicle& vehicle, auto now) { vehicle.PutTo(latitude, longitude, now); });
}

// --- The cellular module

Action ModemFault(const std::function<void(CellularModule::Faults&)>& spoil)
{
    return [=](Unit& unit) {
        unit.Modem().Spoil(spoil, CellularModule::Port::Main);
        unit.Modem().Spoil(spoil, CellularModule::Port::Alternate);
    };
}

Action ModemChange(const std::function<void(CellularState&)>& change)
{
    return [=](Unit& unit) { unit.Modem().Change(change); };
}

/// The words from `first` on, as they were given but for doubled spaces.
std::string Text(const WordList& words, std::size_t first = 0)
{
    std::string text;
    for (std::size_t i = first; i < words.size(); ++i)
    {
        text += (i > first ? " " : "") + words[i];
    }
    return text;
}

Action Sim(const WordList& words)
{
    if (words[0] != "in" && words[0] != "out")
    {
        Values::Refuse(words[0], "neither in nor out");
    }
    return ModemChange([in = words[0] == "in"](CellularState& state) { state.sim = in; });
}

// --- The accelerometer and its adapter

template <void (Motion::*move)(Motion::TimePoint)>
Action Move(const WordList& /*words*/)
{
    return [](Unit& unit) {
        unit.Chip().Change([](Accelerometer& chip) { (chip.motion.*move)(Unit::Clock::now()); });
    };
}

/// @param transfer,selection errno values, 0: none
Action AdapterFault(int transfer, int selection, std::size_t naks)
{
    return [=](Unit& unit) {
        unit.Adapter().Change([=](I2cAdapter& adapter) {
            adapter.faults.transfer = transfer;
            adapter.faults.selection = selection;
        });
        unit.Chip().Change([=](Accelerometer& chip) { chip.faults.naks = naks; });
    };
}

// --- The alert devices

Action Buzzer(const std::function<void(BuzzerBoard&)>& change)
{
    return [=](Unit& unit) { unit.Buzzer().Change(change); };
}

Action Sounder(const std::function<void(HidBridge&)>& change)
{
    return [=](Unit& unit) { unit.Sounder().Change(change); };
}

/// A change by which the device of a port comes or leaves.
Action Presence(const char* port, bool there, const Action& change)
{
    return [=](Unit& unit) {
        change(unit);
        unit.TellPresence(port, there);
    };
}

void RefuseRequests(HidBridge& bridge, int error)
{
    bridge.faults.descriptorSize = error;
    bridge.faults.name = error;
    bridge.faults.info = error;
}

// --- The storage card

Action Card(const std::function<void(CardSlot::Condition&)>& change)
{
    return [=](Unit& unit) { unit.Card().Change(change); };
}

milliseconds Delay(const WordList& words)
{
    return milliseconds(Values::Number(words[0], 0, LONGEST_DELAY, "a number of milliseconds"));
}

/// Bytes that are no text of any device, the same each time.
std::string Noise(const WordList& words)
{
    std::string noise;
    for (unsigned int i = Values::Number(words[0], 1, MOST_NOISE, "a number of bytes"); i > 0; --i)
    {
        constexpr unsigned int STEP = 151; // goes through all values, and seems to have no order
        noise += static_cast<char>(0x80 | (i * STEP & 0x7F));
    }
    return noise;
}

struct Kind
{
    std::string_view name;
    std::string_view arguments; ///< for people; one in brackets may be left out, "..." stands for any number
    std::string_view meaning;
    Action (*make)(const WordList& arguments);
};

const Kind KINDS[] = {
    {"ignition on", "", "trigger 1", Trigger<IGNITION_ON>},
    {"ignition off", "", "trigger 2", Trigger<IGNITION_OFF>},
    {"power low", "", "trigger 3: the supply voltage is low", Trigger<POWER_LOW>},
    {"power off", "", "trigger 4: the unit is to switch itself off", Trigger<POWER_OFF>},
    {"power back", "", "trigger 5: the supply voltage is as it should be", Trigger<POWER_BACK>},
    {"power cut", "", "the power is gone at once: the program, and all that it started, is killed",
     [](const WordList&) -> Action { return [](Unit& unit) { unit.Power().Lose(); }; }},
    {"trigger", "CODE [TIMES]", "any trigger, 0 to 255", AnyTrigger},
    {"pin", "PIN refused|well", "the event driver refuses to drive the pin (EIO), or drives it", Pin},

    {"key", "ID|none", "a key touches the reader and stays, or is taken away", Key},
    {"reader silent", "", "the reader sends nothing",
     [](const WordList&) { return ReaderFault([](auto& faults) { faults.silent = true; }); }},
    {"reader late", "MS", "its replies come so much later",
     [](const WordList& words) {
         return ReaderFault([delay = Delay(words)](auto& faults) { faults.delay = delay; });
     }},
    {"reader wrong", "", "its replies have a wrong check sum",
     [](const WordList&) { return ReaderFault([](auto& faults) { faults.wrongCrcLow = true; }); }},
    {"reader cut", "BYTES", "only the first bytes of its replies arrive",
     [](const WordList& words) {
         return ReaderFault(
             [count = Values::Number(words[0], 0, MOST_NOISE)](auto& faults) { faults.bytesSent = count; });
     }},
    {"reader noise", "BYTES", "noise on the line before each reply",
     [](const WordList& words) {
         return ReaderFault([noise = Noise(words)](auto& faults) { faults.noise = noise; });
     }},
    {"reader well", "", "the end of all that",
     [](const WordList&) { return ReaderFault([](auto& faults) { faults = {}; }); }},

    {"gps lost", "", "no satellites",
     [](const WordList&) { return GpsFault([](auto& faults) { faults.noSatellites = true; }); }},
    {"gps found", "", "satellites again",
     [](const WordList&) { return GpsFault([](auto& faults) { faults.noSatellites = false; }); }},
    {"gps reset", "", "the receiver starts anew, with its first settings",
     [](const WordList&) -> Action {
         return
             [](Unit& unit) { unit.Gps().Change([](GpsReceiver& gps) { gps.Restart(Unit::Clock::now()); }); };
     }},
    {"gps silent", "", "it sends nothing",
     [](const WordList&) { return GpsFault([](auto& faults) { faults.silent = true; }); }},
    {"gps wrong", "", "wrong check sums",
     [](const WordList&) { return GpsFault([](auto& faults) { faults.wrongCheckSums = true; }); }},
    {"gps noise", "BYTES", "noise on the line before each second's sentences",
     [](const WordList& words) {
         return GpsFault([count = Values::Number(words[0], 0, MOST_NOISE, "a number of bytes")](
                             auto& faults) { faults.noiseBytes = count; });
     }},
    {"gps speed", "KMH", "the vehicle changes to that speed, and keeps it", Speed},
    {"gps stop", "", "it brakes and stands",
     [](const WordList&) { return Drive([](Vehicle& vehicle, auto now) { vehicle.SetSpeed(0, now); }); }},
    {"gps position", "LAT LON", "it is there, and goes straight on", Position},
    {"gps drive", "", "it is back on its circuit or track, where it left it",
     [](const WordList&) { return Drive([](Vehicle& vehicle, auto now) { vehicle.FollowRoad(now); }); }},
    {"gps well", "", "the end of all that but for the vehicle's",
     [](const WordList&) { return GpsFault([](auto& faults) { faults = {}; }); }},

    {"modem unplug", "", "the module leaves the USB bus",
     [](const WordList&) -> Action { return [](Unit& unit) { unit.Modem().Unplug(); }; }},
    {"modem plug", "", "it comes back, and starts anew",
     [](const WordList&) -> Action { return [](Unit& unit) { unit.Modem().PlugIn(); }; }},
    {"modem signal", "RSSI", "it receives so well, 0 to 31; 99: not known",
     [](const WordList& words) {
         return ModemChange([rssi = Values::Signal(words[0])](CellularState& state) { state.rssi = rssi; });
     }},
    {"modem registration", "STATE", "none, searching, home, roaming, denied or unknown",
     [](const WordList& words) {
         return ModemChange(
             [to = Values::Registration(words[0])](CellularState& state) { state.RegisterAs(to); });
     }},
    {"modem sim", "in|out", "the SIM is put in or taken out", Sim},
    {"modem supply", "MILLIVOLTS", "its supply voltage, 0 to 5000",
     [](const WordList& words) {
         constexpr unsigned int MOST = 5000;
         return ModemChange([to = static_cast<int>(Values::Number(words[0], 0, MOST))](CellularState& state) {
             state.millivolts = to;
         });
     }},
    {"modem silent", "", "it sends nothing",
     [](const WordList&) { return ModemFault([](auto& faults) { faults.silent = true; }); }},
    {"modem stuck", "", "its USB line takes no output",
     [](const WordList&) { return ModemFault([](auto& faults) { faults.stuck = true; }); }},
    {"modem late", "MS", "each answer takes so much longer",
     [](const WordList& words) {
         return ModemFault([delay = Delay(words)](auto& faults) { faults.delay = delay; });
     }},
    {"modem error", "[TEXT...]", "each command is answered so (ERROR), and not obeyed",
     [](const WordList& words) {
         return ModemFault([text = words.empty() ? "ERROR" : Text(words)](auto& faults) {
             faults.errors = CellularModule::Faults::EVERY;
             faults.error = text;
         });
     }},
    {"modem noise", "BYTES", "noise on the line before each answer",
     [](const WordList& words) {
         return ModemFault([noise = Noise(words)](auto& faults) { faults.beforeEcho = noise; });
     }},
    {"modem report", "TEXT...", "a line that nobody asked for stands in each answer",
     [](const WordList& words) {
         return ModemFault(
             [text = "\r\n" + Text(words) + "\r\n"](auto& faults) { faults.behindEcho = text; });
     }},
    {"modem well", "", "the end of all that but the unplugging",
     [](const WordList&) { return ModemFault([](auto& faults) { faults = {}; }); }},

    {"motion bump", "", "a pothole, up to 1.2 g more: no shock", Move<&Motion::Bump>},
    {"motion crash", "", "an obstacle, up to 6 g for 120 ms", Move<&Motion::Crash>},
    {"motion brake", "G SECONDS", "the vehicle brakes so hard for so long",
     [](const WordList& words) { return Manoeuvre<&Vehicle::Brake>(words, 0); }},
    {"motion corner", "G SECONDS", "it goes through a bend to the right; below 0 to the left",
     [](const WordList& words) { return Manoeuvre<&Vehicle::Corner>(words, -3); }},
    {"i2c dead", "", "the bus is stuck: each transfer times out",
     [](const WordList&) { return AdapterFault(ETIMEDOUT, 0, 0); }},
    {"i2c refused", "", "the adapter refuses to select the chip (EBUSY)",
     [](const WordList&) { return AdapterFault(0, EBUSY, 0); }},
    {"i2c nak", "", "the chip does not acknowledge",
     [](const WordList&) { return AdapterFault(0, 0, I2cSlave::Faults::EVERY); }},
    {"i2c well", "", "the end of all that", [](const WordList&) { return AdapterFault(0, 0, 0); }},

    {"buzzer unplug", "", "the board is pulled out",
     [](const WordList&) { return Presence("buzzer", false, Buzzer(&BuzzerBoard::Unplug)); }},
    {"buzzer plug", "", "and put back",
     [](const WordList&) { return Presence("buzzer", true, Buzzer(&BuzzerBoard::PlugIn)); }},
    {"buzzer silent", "", "it sends nothing",
     [](const WordList&) { return Buzzer([](BuzzerBoard& board) { board.faults.silent = true; }); }},
    {"buzzer stuck", "", "its USB line takes no output",
     [](const WordList&) { return Buzzer([](BuzzerBoard& board) { board.faults.stuck = true; }); }},
    {"buzzer late", "MS", "its output comes so much later",
     [](const WordList& words) {
         return Buzzer([delay = Delay(words)](BuzzerBoard& board) { board.faults.delay = delay; });
     }},
    {"buzzer well", "", "the end of all that but the unplugging",
     [](const WordList&) { return Buzzer([](BuzzerBoard& board) { board.faults = {}; }); }},

    {"sounder unplug", "", "the HID bridge is pulled out",
     [](const WordList&) { return Presence("sounder", false, Sounder(&HidBridge::Unplug)); }},
    {"sounder plug", "", "and put back",
     [](const WordList&) { return Presence("sounder", true, Sounder(&HidBridge::PlugIn)); }},
    {"sounder refused", "", "it does not tell what it is (EIO)",
     [](const WordList&) { return Sounder([](HidBridge& bridge) { RefuseRequests(bridge, EIO); }); }},
    {"sounder well", "", "it does again",
     [](const WordList&) { return Sounder([](HidBridge& bridge) { RefuseRequests(bridge, 0); }); }},

    {"card out", "", "the storage card is pulled out: what is on it cannot be reached (EIO)",
     [](const WordList&) { return Card([](auto& card) { card.out = true; }); }},
    {"card in", "", "it is put back, and mounted",
     [](const WordList&) {
         return Card([](auto& card) {
             card.out = false;
             card.mounted = true;
         });
     }},
    {"card read-only", "", "nothing on it can be changed (EROFS)",
     [](const WordList&) { return Card([](auto& card) { card.readOnly = true; }); }},
    {"card full", "", "files can be read and overwritten, but not made, and not grow (ENOSPC)",
     [](const WordList&) { return Card([](auto& card) { card.full = true; }); }},
    {"card slow", "MS", "each call that names a path on it takes so long",
     [](const WordList& words) { return Card([delay = Delay(words)](auto& card) { card.slow = delay; }); }},
    {"card busy", "", "it cannot be unmounted (EBUSY)",
     [](const WordList&) { return Card([](auto& card) { card.busy = true; }); }},
    {"card well", "", "the end of all that but the pulling out",
     [](const WordList&) {
         return Card([](auto& card) { card = {.mounted = card.mounted, .out = card.out}; });
     }},

    {"end", "", "the program is asked to end, by SIGTERM",
     [](const WordList&) -> Action {
         return [](Unit&) { kill(getpid(), SIGTERM); };
     }}, // the supervisor hands it on
};

WordList Split(const std::string& text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

bool StartsWith(const WordList& words, const WordList& name)
{
    return words.size() >= name.size() && std::equal(name.begin(), name.end(), words.begin());
}

/// How many arguments a step takes.
std::pair<std::size_t, std::size_t> Limits(const Kind& kind)
{
    std::size_t least = 0;
    std::size_t most = 0;
    for (const std::string& argument : Split(std::string(kind.arguments)))
    {
        least += argument.starts_with('[') ? 0 : 1;
        most = argument.find("...") != std::string::npos ? SIZE_MAX : most + 1;
    }
    return {least, most};
}

}

Step Step::Parse(const std::string& text)
{
    const WordList words = Split(text);
    const auto* const kind = std::ranges::find_if(
        KINDS, [&words](const Kind& k) { return StartsWith(words, Split(std::string(k.name))); });
    if (kind == std::end(KINDS))
    {
        throw Values::Wrong("\"" + Text(words) + "\" is not a step");
    }
    const WordList arguments(
        words.begin() + static_cast<std::ptrdiff_t>(Split(std::string(kind->name)).size()), words.end());
    const auto [least, most] = Limits(*kind);
    if (arguments.size() < least || arguments.size() > most)
    {
        throw Values::Wrong("\"" + Text(words) + "\" is not \"" + std::string(kind->name) +
                            (kind->arguments.empty() ? "" : " ") + std::string(kind->arguments) + "\"");
    }
    return {Text(words), kind->make(arguments)};
}

std::string Step::List()
{
    constexpr std::size_t COLUMN = 26;
    std::string list;
    for (const Kind& kind : KINDS)
    {
        std::string line =
            std::string(kind.name) + (kind.arguments.empty() ? "" : " ") + std::string(kind.arguments);
        line.resize(std::max(line.size() + 1, COLUMN), ' ');
        list += "  " + line + std::string(kind.meaning) + "\n";
    }
    return list;
}

}

// virtual-unit: runs an unmodified application on an emulated unit. See docs/virtual-unit.md.

#include "virtual-unit/Application.h"
#include "virtual-unit/CommandLine.h"
#include "virtual-unit/DeviceTable.h"
#include "virtual-unit/Journal.h"
#include "virtual-unit/ServedDriver.h"
#include "virtual-unit/ServedSerialLine.h"
#include "virtual-unit/StorageCard.h"
#include "virtual-unit/Supervisor.h"
#include "virtual-unit/UnitPath.h"
#include "virtual-unit/peripherals/Accelerometer.h"
#include "virtual-unit/peripherals/BuzzerBoard.h"
#include "virtual-unit/peripherals/CellularModule.h"
#include "virtual-unit/peripherals/EventDriver.h"
#include "virtual-unit/peripherals/GpsReceiver.h"
#include "virtual-unit/peripherals/HidBridge.h"
#include "virtual-unit/peripherals/I2cAdapter.h"
#include "virtual-unit/peripherals/KeyReader.h"
#include "virtual-unit/peripherals/Nmea.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <seccomp.h>
#include <sstream>
#include <string>
#include <sys/utsname.h>
#include <system_error>
#include <utility>
#include <vector>

namespace
{

using namespace VirtualUnit;

constexpr int WRONG_COMMAND_LINE = 2;
constexpr int CANNOT_RUN = 3;

constexpr const char* GPS_PORT = "/dev/ttymxc0";
constexpr const char* KEY_READER_PORT = "/dev/ttymxc2";
constexpr const char* MODEM_PORT = "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0";
constexpr const char* MODEM_ALTERNATE_PORT =
    "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if02-port0";
constexpr const char* BUZZER_PORT = "/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0";
constexpr const char* I2C_ADAPTER = "/dev/i2c-1";
constexpr const char* HID_BRIDGE = "/dev/hidraw0";
constexpr const char* EVENT_DRIVER = "/dev/tav_event";

constexpr unsigned char IGNITION_ON = 1; // of the event driver's triggers

void Report(const std::string& line)
{
    std::fprintf(stderr, "virtual-unit: %s\n", line.c_str());
}

std::vector<Nmea::Epoch> ReadRecording(const std::string& path, GpsReceiver::Model model)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        throw CommandLine::Wrong("--nmea: " + path +
                                 " cannot be read: " + std::generic_category().message(errno));
    }
    std::ostringstream text;
    text << file.rdbuf();
    std::vector<Nmea::Epoch> recording = Nmea::Epochs(
        text.str(), model == GpsReceiver::Model::L26 ? Nmea::RmcPosition::First : Nmea::RmcPosition::Last);
    if (recording.empty())
    {
        throw CommandLine::Wrong("--nmea: " + path + " holds no NMEA sentence (a line that begins with '$')");
    }
    return recording;
}

std::unique_ptr<ServedDevice> BuildGpsReceiver(const CommandLine& line)
{
    GpsReceiver::Options gps = line.gps;
    std::string description =
        gps.model == GpsReceiver::Model::L26 ? "GPS receiver L26" : "GPS receiver SKM53";
    gps.start = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    if (!line.nmeaFile.empty())
    {
        gps.recording = ReadRecording(line.nmeaFile, gps.model);
        description += ", playing " + line.nmeaFile;
    }
    return std::make_unique<ServedSerialLine>(std::make_unique<GpsReceiver>(gps), description);
}

std::unique_ptr<ServedDevice> BuildKeyReader(const KeyReader::Options& options)
{
    std::string description = "driver-ID reader, " + (options.key.empty() ? "no key" : "key " + options.key);
    if (!options.key.empty() && options.keyAfter.count() > 0)
    {
        description += " after " + std::to_string(options.keyAfter.count()) + " s";
    }
    return std::make_unique<ServedSerialLine>(std::make_unique<KeyReader>(options), description);
}

std::shared_ptr<CellularModule> BuildModem(const CommandLine& line)
{
    CellularState state = line.modem;
    state.clock = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    auto modem = std::make_shared<CellularModule>(state);
    if (!line.modemOnBus)
    {
        modem->Unplug();
    }
    return modem;
}

std::unique_ptr<ServedDevice> BuildModemPort(const std::shared_ptr<CellularModule>& modem,
                                             CellularModule::Port port)
{
    const CellularState state = modem->State();
    const std::string condition =
        !modem->OnBus() ? "off the bus"
        : !state.sim    ? "no SIM"
                        : "registration " +
                           std::string(CellularState::REGISTRATIONS[static_cast<int>(state.registration)]) +
                           ", signal " + std::to_string(state.rssi);
    // The port keeps the whole module.
    return std::make_unique<ServedSerialLine>(std::shared_ptr<SerialPeripheral>(modem, &modem->At(port)),
                                              "cellular module UC15, " + condition);
}

/// An I2C adapter and the accelerometer on it.
struct AccelerometerBus
{
    AccelerometerBus() { adapter.Add(accelerometer); }

    Accelerometer accelerometer;
    I2cAdapter adapter;
};

/// The devices whose state is asked for besides what is served of them.
struct Unit
{
    explicit Unit(const CommandLine& line)
        : start(std::chrono::steady_clock::now()), modem(BuildModem(line)),
          events(std::make_shared<EventDriver>(
              line.ignitionAfter ? std::vector<EventDriver::Event>{{*line.ignitionAfter, IGNITION_ON}}
                                 : std::vector<EventDriver::Event>()))
    {
        if (line.crashAfter)
        {
            bus->accelerometer.motion.Crash(start + *line.crashAfter);
        }
    }

    std::chrono::steady_clock::time_point start;
    std::shared_ptr<CellularModule> modem;
    std::shared_ptr<EventDriver> events;
    std::shared_ptr<AccelerometerBus> bus = std::make_shared<AccelerometerBus>();
    std::shared_ptr<HidBridge> bridge = std::make_shared<HidBridge>();
    std::shared_ptr<BuzzerBoard> buzzer = std::make_shared<BuzzerBoard>();
};

DeviceTable BuildTable(const CommandLine& line, const Unit& unit)
{
    const std::shared_ptr<CellularModule>& modem = unit.modem;
    DeviceTable devices;
    devices.Serve(GPS_PORT, BuildGpsReceiver(line));
    devices.Serve(KEY_READER_PORT, BuildKeyReader(line.keyReader));
    devices.Serve(MODEM_PORT, BuildModemPort(modem, CellularModule::Port::Main));
    devices.Serve(MODEM_ALTERNATE_PORT, BuildModemPort(modem, CellularModule::Port::Alternate));
    devices.Serve(BUZZER_PORT, std::make_unique<ServedSerialLine>(unit.buzzer, "buzzer board"));
    // The adapter keeps its slave.
    devices.Serve(I2C_ADAPTER, std::make_unique<ServedDriver>(
                                   std::shared_ptr<IoctlPeripheral>(unit.bus, &unit.bus->adapter),
                                   "I2C adapter, accelerometer MMA8451Q at 0x1C"));
    devices.Serve(HID_BRIDGE,
                  std::make_unique<ServedDriver>(std::shared_ptr<MessagePeripheral>(unit.bridge),
                                                 "HID bridge FT260, sound chips at 0x5A and 0x62"));
    devices.Serve(EVENT_DRIVER,
                  std::make_unique<ServedDriver>(std::shared_ptr<MessagePeripheral>(unit.events),
                                                 "event driver, pins 100 to 106"));
    return devices;
}

int WriteJournal(const Unit& unit, const std::string& path)
{
    Journal journal(unit.start);
    journal.Add(*unit.events);
    journal.Add("sound chip 0x5A", unit.bridge->first);
    journal.Add("sound chip 0x62", unit.bridge->second);
    journal.Add(*unit.buzzer);
    return journal.Write(path);
}

int Run(const CommandLine& line, const Unit& unit)
{
    int status = 0;
    {
        // Ended before the journal is written, so that what is under way has arrived.
        const DeviceTable devices = BuildTable(line, unit);
        status = RunOnVirtualUnit(line.program, devices, *unit.modem, line.sdcard, Report);
    }
    if (!line.journal.empty())
    {
        if (const int error = WriteJournal(unit, line.journal); error != 0)
        {
            Report("--journal: " + line.journal +
                   " cannot be written: " + std::generic_category().message(error));
        }
    }
    return status;
}

int ListDevices(const DeviceTable& devices, const std::string& sdcard)
{
    if (!sdcard.empty())
    {
        const StorageCard usable(sdcard);
    }
    for (const auto& [path, device] : devices.Served())
    {
        std::printf("%-22s %s\n", path.c_str(), device->Description().c_str());
    }
    const std::string card = sdcard.empty() ? "empty at first, gone after the run" : "kept in " + sdcard;
    std::printf("%-22s storage card, %s\n", UnitPath::CARD, card.c_str());
    for (const std::string& pattern : DeviceTable::UnitPaths())
    {
        std::printf("%-22s refused, but for what is served above\n", pattern.c_str());
    }
    return 0;
}

int Check(const DeviceTable& devices, CellularModule& modem)
{
    constexpr unsigned int API_WITH_NOTIFICATION = 5; // of seccomp_api_get()
    utsname system = {};
    uname(&system);
    std::printf("kernel: %s %s, %s\n", system.sysname, system.release, system.machine);
    const bool notification = seccomp_api_get() >= API_WITH_NOTIFICATION;
    std::printf("seccomp user notification: %s\n", notification ? "yes" : "no");

    // The whole of it, once: a shell that looks for the port and opens it, and writes to the card.
    const std::string port = GPS_PORT;
    const std::vector<std::string> trial = {"/bin/sh", "-c",
                                            "test -c " + port + " && exec 3<>" + port +
                                                " && test -t 3 && echo > " + UnitPath::CARD + "/trial"};
    const bool works = RunOnVirtualUnit(trial, devices, modem, {}, Report) == 0;
    std::printf("an application opens %s and writes to %s: %s\n", GPS_PORT, UnitPath::CARD,
                works ? "yes" : "no");
    std::printf(works ? "This machine can run the virtual unit.\n"
                      : "This machine cannot run the virtual unit.\n");
    return works ? 0 : CANNOT_RUN;
}

int Do(const CommandLine& line)
{
    if (line.command == CommandLine::Command::Help)
    {
        std::fputs(CommandLine::USAGE, stdout);
        return 0;
    }
    const Unit unit(line);
    switch (line.command)
    {
    case CommandLine::Command::Devices:
        return ListDevices(BuildTable(line, unit), line.sdcard);
    case CommandLine::Command::Check:
        return Check(BuildTable(line, unit), *unit.modem);
    default:
        return Run(line, unit);
    }
}

}

int main(int argc, char** argv)
{
    try
    {
        const CommandLine line = CommandLine::Parse(std::vector<std::string>(argv + 1, argv + argc));
        return Do(line);
    }
    catch (const CommandLine::Wrong& wrong)
    {
        Report(std::string(wrong.what()) + " (see virtual-unit --help)");
        return WRONG_COMMAND_LINE;
    }
    catch (const StorageCard::Unusable& failure)
    {
        Report(std::string("--sdcard: ") + failure.what());
        return WRONG_COMMAND_LINE;
    }
    catch (const Application::NotStarted& failure)
    {
        Report(failure.what());
        return failure.exitStatus;
    }
    catch (const std::exception& failure)
    {
        Report(std::string("this machine cannot run the virtual unit: ") + failure.what());
        return CANNOT_RUN;
    }
}

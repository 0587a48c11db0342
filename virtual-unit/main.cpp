// virtual-unit: runs an unmodified application on an emulated unit. See docs/virtual-unit.md.

#include "virtual-unit/Application.h"
#include "virtual-unit/CommandLine.h"
#include "virtual-unit/DeviceTable.h"
#include "virtual-unit/ServedSerialLine.h"
#include "virtual-unit/Supervisor.h"
#include "virtual-unit/peripherals/GpsReceiver.h"
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

DeviceTable BuildUnit(CommandLine& line)
{
    GpsReceiver::Options& gps = line.gps;
    std::string description =
        gps.model == GpsReceiver::Model::L26 ? "GPS receiver L26" : "GPS receiver SKM53";
    gps.start = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    if (!line.nmeaFile.empty())
    {
        gps.recording = ReadRecording(line.nmeaFile, gps.model);
        description += ", playing " + line.nmeaFile;
    }
    DeviceTable devices;
    devices.Serve(GPS_PORT,
                  std::make_unique<ServedSerialLine>(std::make_unique<GpsReceiver>(gps), description));
    return devices;
}

int ListDevices(const DeviceTable& devices)
{
    for (const auto& [path, device] : devices.Served())
    {
        std::printf("%-22s %s\n", path.c_str(), device->Description().c_str());
    }
    for (const std::string& pattern : DeviceTable::UnitPaths())
    {
        std::printf("%-22s refused, but for what is served above\n", pattern.c_str());
    }
    return 0;
}

int Check(const DeviceTable& devices)
{
    constexpr unsigned int API_WITH_NOTIFICATION = 5; // of seccomp_api_get()
    utsname system = {};
    uname(&system);
    std::printf("kernel: %s %s, %s\n", system.sysname, system.release, system.machine);
    const bool notification = seccomp_api_get() >= API_WITH_NOTIFICATION;
    std::printf("seccomp user notification: %s\n", notification ? "yes" : "no");

    // The whole of it, once: a shell that looks for the port and opens it.
    const std::string port = GPS_PORT;
    const std::vector<std::string> trial = {"/bin/sh", "-c",
                                            "test -c " + port + " && exec 3<>" + port + " && test -t 3"};
    const bool works = RunOnVirtualUnit(trial, devices, Report) == 0;
    std::printf("an application opens %s: %s\n", GPS_PORT, works ? "yes" : "no");
    std::printf(works ? "This machine can run the virtual unit.\n"
                      : "This machine cannot run the virtual unit.\n");
    return works ? 0 : CANNOT_RUN;
}

int Do(CommandLine& line)
{
    if (line.command == CommandLine::Command::Help)
    {
        std::fputs(CommandLine::USAGE, stdout);
        return 0;
    }
    const DeviceTable devices = BuildUnit(line);
    switch (line.command)
    {
    case CommandLine::Command::Devices:
        return ListDevices(devices);
    case CommandLine::Command::Check:
        return Check(devices);
    default:
        return RunOnVirtualUnit(line.program, devices, Report);
    }
}

}

int main(int argc, char** argv)
{
    try
    {
        CommandLine line = CommandLine::Parse(std::vector<std::string>(argv + 1, argv + argc));
        return Do(line);
    }
    catch (const CommandLine::Wrong& wrong)
    {
        Report(std::string(wrong.what()) + " (see virtual-unit --help)");
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

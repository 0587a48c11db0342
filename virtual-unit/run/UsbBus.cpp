#include "virtual-unit/run/UsbBus.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <system_error>

namespace VirtualUnit
{

namespace
{

constexpr const char* PATH_VARIABLE = "PATH";
constexpr const char* USUAL_PATH = "/usr/local/bin:/usr/bin:/bin"; // where there is none
constexpr mode_t EXECUTABLE = 0700;

constexpr const char* PROGRAM = "/lsusb";
constexpr const char* PROGRAM_TEXT = "#!/bin/sh\n"
                                     "# The USB bus of the virtual unit.\n"
                                     "exec cat \"${0%/*}/devices\"\n";

// Commands that would ask this machine's init system to switch it off.
constexpr const char* POWER_COMMANDS[] = {"/reboot", "/poweroff", "/halt", "/shutdown", "/systemctl"};
constexpr const char* POWER_COMMAND_TEXT =
    "#!/bin/sh\n"
    "echo \"virtual-unit: ${0##*/}${*:+ $*}: not carried out, this machine stays as it is\" >&2\n"
    "case \"${0##*/} $*\" in\n"
    "*reboot* | *poweroff* | *halt* | *kexec* | *suspend* | *hibernate*) ;;\n"
    "systemctl*) exit 1 ;; # there is no init system that could be asked for anything else\n"
    "esac\n";

constexpr const char* DEVICES = "/devices";
constexpr const char* NEW_DEVICES = "/devices.new";
constexpr const char* ROOT_HUBS = "Bus 002 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n"
                                  "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n";
constexpr const char* MODULE = "Bus 001 Device 004: ID 05c6:9090 Qualcomm, Inc. Quectel UC15 modem\n";

bool WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    return static_cast<bool>(file << text << std::flush);
}

void WriteProgram(const std::string& path, const std::string& text)
{
    if (!WriteFile(path, text) || chmod(path.c_str(), EXECUTABLE) != 0)
    {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

}

UsbBus::UsbBus(CellularModule& theModule) : module(theModule)
{
    WriteProgram(directory.Path() + PROGRAM, PROGRAM_TEXT);
    for (const char* const command : POWER_COMMANDS)
    {
        WriteProgram(directory.Path() + command, POWER_COMMAND_TEXT);
    }
    // The threads of the devices, where there are any, do not look at the environment.
    // NOLINTBEGIN(concurrency-mt-unsafe)
    const char* path = std::getenv(PATH_VARIABLE);
    formerPath = path != nullptr ? path : USUAL_PATH;
    setenv(PATH_VARIABLE, (directory.Path() + ":" + formerPath).c_str(), 1);
    // NOLINTEND(concurrency-mt-unsafe)
    module.TellPresence(this, [this](bool onBus) { List(onBus); });
}

UsbBus::~UsbBus()
{
    module.TellPresence(this, {});
    setenv(PATH_VARIABLE, formerPath.c_str(), 1); // NOLINT(concurrency-mt-unsafe): as above
}

void UsbBus::List(bool withModule) const
{
    // In one step, since lsusb may be running. Where that fails, it has nothing to list and says so.
    const std::string list = directory.Path() + DEVICES;
    const std::string newList = directory.Path() + NEW_DEVICES;
    if (!WriteFile(newList, (withModule ? MODULE : std::string()) + ROOT_HUBS) ||
        std::rename(newList.c_str(), list.c_str()) != 0)
    {
        std::remove(list.c_str());
    }
}

}

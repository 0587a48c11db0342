#include "Gpio/GpioCore.h"

#include "base/Tavbase/Interfaces/InterruptibleWait.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavbase/Util/StandardStreams.h"
#include "base/Tavsystem/System/UnmountAll.h"

#include <chrono>
#include <fcntl.h>
#include <iostream>
#include <new>
#include <string>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace Tavdevice::Gpio
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

constexpr const char* DEVICE = "/dev/tav_event";

// Request codes of the driver.
constexpr unsigned int INFRARED_LEDS = 104;
constexpr unsigned int POWER_LINE = 105;
constexpr unsigned int USB_HUB_RESET = 106;

constexpr std::size_t MESSAGE_BYTES = 5; // the trigger, and four that are not used
constexpr int WITHOUT_LIMIT = -1;

constexpr std::chrono::milliseconds POWER_PULSE{100};
constexpr std::chrono::milliseconds HUB_RESET_TIME{20};
constexpr std::chrono::seconds HUB_ENUMERATION_TIME{8};

/// Prints a line in one piece, whatever format the application has given to the stream.
void Print(std::string line)
{
    line += '\n';
    std::cout.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
}

}

std::mutex GpioCore::mGpio;
bool GpioCore::initialized = false;
std::array<pollfd, 2> GpioCore::fds = {};

GpioCore::GpioCore()
{
    SetErrorSource("Tavdevice::Gpio", "GpioCore");
}

GpioCore::~GpioCore() = default;

bool GpioCore::Initialize()
{
    const std::scoped_lock lock(mGpio);
    if (initialized)
    {
        return true;
    }
    fds[0].fd = Tavbase::Util::OpenNoStandardStream(DEVICE, O_RDWR);
    initialized = fds[0].fd >= 0;
    if (initialized)
    {
        fds[0].events = POLLIN;
    }
    return initialized;
}

void GpioCore::Close()
{
    const std::scoped_lock lock(mGpio);
    if (initialized)
    {
        // True after a successful close, deliberately: who closes the device has done with it for good.
        initialized = close(fds[0].fd) >= 0;
    }
}

bool GpioCore::SetPin(unsigned int pin, unsigned int value)
{
    if (!Initialize())
    {
        return false;
    }
    const std::scoped_lock lock(mGpio);
    ioctl(fds[0].fd, pin, static_cast<unsigned long>(value));
    return true;
}

bool GpioCore::ShutDown()
{
    try
    {
        Tavsystem::System::UnmountAll();
        Print("POWER OFF, Bye.");
    }
    catch (const std::bad_alloc&)
    {
        // What could be unmounted without memory is; the unit goes off all the same.
    }
    return SetPin(POWER_LINE, 0);
}

bool GpioCore::ShutDownIfIgnitionOff()
{
    SetPin(POWER_LINE, 0); // the line is driven back, whatever became of this
    std::this_thread::sleep_for(POWER_PULSE);
    return SetPin(POWER_LINE, 1);
}

bool GpioCore::TurnOffIRLEDs()
{
    return SetPin(INFRARED_LEDS, 0);
}

bool GpioCore::HWResetUsbHub()
{
    if (!SetPin(USB_HUB_RESET, 0))
    {
        return false;
    }
    std::this_thread::sleep_for(HUB_RESET_TIME);
    if (!SetPin(USB_HUB_RESET, 1))
    {
        return false;
    }
    std::this_thread::sleep_for(HUB_ENUMERATION_TIME);
    return true;
}

bool GpioCore::Pool(int& trigger)
{
    Tavbase::Interfaces::InterruptibleWait wait; // what is printed here is never cut short
    trigger = 0;
    if (!Initialize())
    {
        Print("Event module driver could not be open.");
        return false;
    }
    const auto opened = [] {
        const std::scoped_lock lock(mGpio);
        return fds[0];
    };
    pollfd device = opened(); // its own: several threads may wait
    const int ready = wait.During([&device] { return poll(&device, 1, WITHOUT_LIMIT); });
    if (ready < 1)
    {
        if (!wait.StopRequested()) // else it was interrupted in good order
        {
            Print("---- BAD POLL (" + std::to_string(ready) + ") ----");
        }
        return false;
    }
    if ((device.revents & POLLIN) == 0)
    {
        return false;
    }
    // Another thread may take the message first: this one then waits here for the next.
    std::array<unsigned char, MESSAGE_BYTES> message{};
    const ssize_t count = wait.During([&] { return read(device.fd, message.data(), message.size()); });
    if (count < 0)
    {
        if (!wait.StopRequested())
        {
            Print("Error while trying to read trigger.");
        }
        return false;
    }
    trigger = message[0];
    if (trigger == 0)
    {
        if (count > 0) // a message without an event: another one may be queued behind it
        {
            wait.NoteProgress();
        }
        return false;
    }
    Logger::GetInstance() << LogType::Info << "[GPIO] ===> Got trigger [" << trigger << "]" << std::endl;
    return true;
}

}

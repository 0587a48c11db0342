#include "tests/board/FarEnds.h"

#include "virtual-unit/common/DescriptorsOfOthers.h"
#include "virtual-unit/ports/ServedDevice.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace Board
{

namespace
{

constexpr int LOOK_MILLISECONDS = 20; // at what is plugged in
constexpr const char* BRIDGE = "/dev/hidraw0";
constexpr const char* EVENTS = "/dev/tav_event";
constexpr const char* MODULE = "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if0";
constexpr const char* BUZZER = "/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0";

void MakeRaw(int fd)
{
    termios settings = {};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    tcsetattr(fd, TCSANOW, &settings);
}

/// Whether another process has a file open: a line's far end that speaks to nobody is lost, not kept.
bool IsOpen(const std::string& path)
{
    return VirtualUnit::IsAmongDescriptorsOfOthers([&path](const std::string& descriptor) {
        // The C++ library would look at the link's times, too, which overflow in 2040.
        std::array<char, 64> target;
        const ssize_t length = readlink(descriptor.c_str(), target.data(), target.size());
        return std::string_view(target.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))) ==
               path;
    });
}

/// The control requests of a CH340 as the kernel's driver makes them.
std::string AnswerBuzzerChip(const std::array<std::uint8_t, 8>& setup, std::size_t length)
{
    constexpr std::uint8_t READ_VERSION = 0x5F;
    constexpr std::uint8_t READ_REGISTER = 0x95;
    switch (setup[1])
    {
    case READ_VERSION:
        return {"\x31\x00", 2};
    case READ_REGISTER:
        return {"\x00\x00", 2}; // all lines of the modem
    default:
        return std::string(length, '\0');
    }
}

/// Of a caller whose ioctl has no argument.
class NoMemory : public VirtualUnit::CallerMemory
{
public:
    int Read(std::uint64_t /*address*/, void* /*data*/, std::size_t /*size*/) override { return EFAULT; }

    int Write(std::uint64_t /*address*/, const void* /*data*/, std::size_t /*size*/) override
    {
        return EFAULT;
    }
};

std::string Read(int fd)
{
    std::array<char, 4096> bytes;
    const ssize_t count = read(fd, bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

}

FarEnds::FarEnds(const VirtualUnit::DeviceTable& devices, const std::vector<Wire>& wires)
    : table(devices), ending(eventfd(0, EFD_CLOEXEC))
{
    for (const Wire& wire : wires)
    {
        Line& line = uarts.emplace_back();
        line.path = wire.path;
        line.uart =
            VirtualUnit::Descriptor(open(wire.farEnd.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
        MakeRaw(line.uart.Get());
        Open(line);
    }
    const auto nothing = [](const std::array<std::uint8_t, 8>&, std::size_t length) {
        return std::string(length, '\0');
    };
    usb.push_back(std::make_unique<UsbPorts>(UsbPorts{
        {0x05C6, 0x9003, "Quectel, Incorporated", "UMTS/HSPA Module", 5, true}, 0, nothing, {}, nullptr}));
    for (unsigned int interface : {2U, 3U})
    {
        Line& line = usb.back()->lines.emplace_back();
        line.path = MODULE + std::to_string(interface) + "-port0";
        line.interface = interface;
    }
    usb.push_back(std::make_unique<UsbPorts>(
        UsbPorts{{0x1A86, 0x7523, "", "USB2.0-Serial", 1, true}, 1, AnswerBuzzerChip, {}, nullptr}));
    usb.back()->lines.emplace_back().path = BUZZER;

    eventsPort = VirtualUnit::Descriptor(Served(EVENTS).Open(O_RDWR | O_NONBLOCK));
    events =
        std::make_unique<CharacterDevice>("tav_event", [this](unsigned long request, std::uint64_t argument,
                                                              VirtualUnit::CallerMemory& memory) {
            return Answer(EVENTS, request, argument, memory);
        });
    for (const std::string adapter : {"i2c-1"})
    {
        adapters.push_back(std::make_unique<CharacterDevice>(
            adapter, [this, adapter](unsigned long request, std::uint64_t argument,
                                     VirtualUnit::CallerMemory& memory) {
                return Answer("/dev/" + adapter, request, argument, memory);
            }));
    }
    Settle();
    thread = std::thread(&FarEnds::Carry, this);
    try
    {
        AwaitNodes();
    }
    catch (...)
    {
        EndThread();
        throw;
    }
}

FarEnds::~FarEnds()
{
    EndThread();
}

void FarEnds::EndThread()
{
    eventfd_write(ending.Get(), 1);
    thread.join();
}

VirtualUnit::ServedDevice& FarEnds::Served(const std::string& path) const
{
    VirtualUnit::ServedDevice* const device = table.Find(path);
    if (device == nullptr)
    {
        throw std::system_error(ENOENT, std::generic_category(), path);
    }
    return *device;
}

int FarEnds::Answer(const std::string& path, unsigned long request, std::uint64_t argument,
                    VirtualUnit::CallerMemory& memory) const
{
    const auto result = Served(path).Ioctl(request, argument, memory);
    if (result && result->takes.count() > 0)
    {
        usleep(static_cast<useconds_t>(result->takes.count() * 1000));
    }
    return result ? result->value : -ENOTTY;
}

bool FarEnds::Open(Line& line) const
{
    VirtualUnit::ServedDevice& device = Served(line.path);
    line.port = device.Exists() ? VirtualUnit::Descriptor(device.Open(O_RDWR | O_NONBLOCK))
                                : VirtualUnit::Descriptor();
    if (line.port.Get() >= 0)
    {
        MakeRaw(line.port.Get());
    }
    return line.port.Get() >= 0;
}

/// Whether the device has taken what was written to its port: otherwise the port would wait, and so does the
/// host.
bool FarEnds::TakesOutput(const Line& line) const
{
    NoMemory memory;
    return !Served(line.path).Ioctl(TCSBRK, 1, memory);
}

void FarEnds::Plug(UsbPorts& ports)
{
    for (Line& line : ports.lines)
    {
        if (!Open(line))
        {
            return;
        }
    }
    ports.device = std::make_unique<UsbDevice>(
        ports.identity, ports.socket, ports.control,
        [this, &ports](unsigned int interface, std::string_view bytes, bool again) {
            const auto line = std::ranges::find(ports.lines, interface, &Line::interface);
            if (line == ports.lines.end())
            {
                return true; // nobody listens there
            }
            if (!again)
            {
                [[maybe_unused]] const ssize_t count = write(line->port.Get(), bytes.data(), bytes.size());
            }
            return TakesOutput(*line);
        });
}

/// Plugs in what has come, and pulls out what has gone.
void FarEnds::Settle()
{
    for (const auto& each : usb)
    {
        const bool there = Served(each->lines.front().path).Exists();
        if (there && each->device == nullptr)
        {
            Plug(*each);
        }
        else if (!there)
        {
            each->device.reset();
        }
        else
        {
            each->device->Retry();
        }
    }
    const bool bridgeIsThere = Served(BRIDGE).Exists();
    if (!bridgeIsThere)
    {
        hid.reset();
    }
    else if (hid == nullptr)
    {
        hidPort = VirtualUnit::Descriptor(Served(BRIDGE).Open(O_RDWR | O_NONBLOCK));
        hid = std::make_unique<HidDevice>([this](std::string_view report) {
            send(hidPort.Get(), report.data(), report.size(), MSG_NOSIGNAL);
        });
    }
}

/// The kernel and udev take their time with what has just been plugged in.
void FarEnds::AwaitNodes() const
{
    constexpr int MOST_LOOKS = 3000;
    std::vector<std::string> paths;
    for (const auto& each : usb)
    {
        for (const Line& line : each->lines)
        {
            paths.push_back(line.path);
        }
    }
    paths.emplace_back(BRIDGE);
    for (const std::string& path : paths)
    {
        for (int look = 0; Served(path).Exists() && !std::filesystem::exists(path); ++look)
        {
            if (look == MOST_LOOKS)
            {
                throw std::system_error(ENOENT, std::generic_category(), path);
            }
            usleep(LOOK_MILLISECONDS * 1000);
        }
    }
}

void FarEnds::Carry()
{
    for (;;)
    {
        std::vector<pollfd> files = {{ending.Get(), POLLIN, 0}};
        const auto add = [&files](const VirtualUnit::Descriptor& file) {
            files.push_back({file.Get(), POLLIN, 0}); // -1: passed over
        };
        for (const Line& line : uarts)
        {
            add(line.port);
            add(line.uart);
        }
        for (const auto& each : usb)
        {
            for (const Line& line : each->lines)
            {
                files.push_back({each->device ? line.port.Get() : -1, POLLIN, 0});
            }
        }
        files.push_back({hid ? hidPort.Get() : -1, POLLIN, 0});
        files.push_back({events ? eventsPort.Get() : -1, POLLIN, 0});
        poll(files.data(), files.size(), LOOK_MILLISECONDS);
        if (files.front().revents != 0)
        {
            return;
        }
        for (Line& line : uarts)
        {
            CarryUart(line);
        }
        for (const auto& each : usb)
        {
            CarryUsb(*each);
        }
        CarryMessages();
        Settle();
    }
}

void FarEnds::CarryUart(Line& line)
{
    line.kept += Read(line.uart.Get());
    if (!line.kept.empty())
    {
        const ssize_t count = write(line.port.Get(), line.kept.data(), line.kept.size());
        line.kept.erase(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    const std::string bytes = Read(line.port.Get());
    if (!bytes.empty() && IsOpen(line.path))
    {
        for (std::size_t sent = 0; sent < bytes.size();)
        {
            const ssize_t count = write(line.uart.Get(), bytes.data() + sent, bytes.size() - sent);
            sent += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
            if (count < 0)
            {
                usleep(1000);
            }
        }
    }
}

void FarEnds::CarryUsb(UsbPorts& ports)
{
    for (Line& line : ports.lines)
    {
        if (ports.device == nullptr)
        {
            continue;
        }
        if (const std::string bytes = Read(line.port.Get()); !bytes.empty())
        {
            ports.device->Send(line.interface, bytes);
        }
    }
}

void FarEnds::CarryMessages()
{
    std::array<char, 4096> bytes;
    ssize_t count = 0;
    while (hid && (count = recv(hidPort.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0)
    {
        hid->Send({bytes.data(), static_cast<std::size_t>(count)});
    }
    while (events && (count = recv(eventsPort.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0)
    {
        events->Send({bytes.data(), static_cast<std::size_t>(count)});
    }
    if (events && count == 0) // the driver is dead
    {
        events.reset();
    }
}

}

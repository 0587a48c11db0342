#include "virtual-unit/ports/SerialLine.h"

#include "virtual-unit/common/Deadline.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

constexpr std::size_t MOST_RECEIVED = std::size_t{64} * 1024;
constexpr std::size_t READ_BYTES = 4096;

// Milliseconds until bytes that found no room are tried again. The kernel tells that there is room as soon as
// the application reads, and wakes who waits for it only when hardly anything is left to read: virtual time
// would wait for a thread that goes on sleeping.
constexpr int BETWEEN_TRIES = 10;

int Checked(int result, const char* what)
{
    if (result < 0)
    {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

void CloseIfOpen(int& fd)
{
    if (fd >= 0)
    {
        close(fd);
        fd = -1;
    }
}

}

SerialLine::SerialLine(SerialPeripheral& device) : peripheral(device)
{
    wake = Checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd");
    try
    {
        OpenTerminal();
    }
    catch (...)
    {
        CloseIfOpen(wake);
        throw;
    }
    peripheral.Attach([this] { Wake(); });
}

SerialLine::~SerialLine()
{
    HangUp();
    peripheral.Attach({});
    CloseIfOpen(slave);
    CloseIfOpen(wake);
}

void SerialLine::OpenTerminal()
{
    try
    {
        master = Checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK), "no pseudo terminal");
        Checked(grantpt(master), "grantpt");
        Checked(unlockpt(master), "unlockpt");
        std::array<char, 64> name = {};
        if (const int error = ptsname_r(master, name.data(), name.size()); error != 0)
        {
            throw std::system_error(error, std::generic_category(), "ptsname");
        }
        path = name.data();
        slave = Checked(Open(O_RDWR | O_CLOEXEC), "pseudo terminal");

        termios settings = {};
        Checked(tcgetattr(slave, &settings), "tcgetattr");
        settings.c_cflag = CS8 | CREAD | HUPCL | CLOCAL;
        settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        cfsetispeed(&settings, B9600);
        cfsetospeed(&settings, B9600);
        Checked(tcsetattr(slave, TCSANOW, &settings), "tcsetattr");
    }
    catch (...)
    {
        CloseTerminal();
        throw;
    }
}

void SerialLine::CloseTerminal()
{
    CloseIfOpen(slave);
    CloseIfOpen(master);
    path.clear();
}

void SerialLine::Start()
{
    if (!thread.joinable() && !HungUp())
    {
        {
            const std::lock_guard lock(access);
            ending = false;
        }
        thread = std::thread(&SerialLine::Carry, this);
    }
}

void SerialLine::Stop()
{
    if (thread.joinable())
    {
        Locked([this]() TAV_REQUIRES(access) { ending = true; });
        thread.join();
    }
}

void SerialLine::HangUp()
{
    Stop();
    const std::lock_guard lock(access);
    CloseIfOpen(master);
}

void SerialLine::Renew()
{
    Stop();
    const std::lock_guard lock(access);
    CloseTerminal();
    waiting.clear();
    OpenTerminal();
    peripheral.Attach([this] { Wake(); });
}

bool SerialLine::HungUp() const
{
    return DeviceEnd() < 0;
}

int SerialLine::DeviceEnd() const
{
    const std::lock_guard lock(access);
    return master;
}

int SerialLine::Open(int flags) const
{
    return open(path.c_str(), flags | O_NOCTTY);
}

void SerialLine::WriteRaw(std::string_view bytes)
{
    Locked([&]() TAV_REQUIRES(access) { Write(bytes); });
}

std::string SerialLine::ReceivedText() const
{
    const std::lock_guard lock(access);
    return received;
}

std::size_t SerialLine::LostBytes() const
{
    const std::lock_guard lock(access);
    return lostBytes;
}

std::size_t SerialLine::BytesNotTaken() const
{
    const std::lock_guard lock(access);
    pollfd input = {master, POLLIN, 0};
    int count = 0;
    // What was written a moment ago may be on its way still: poll() fetches it.
    return !peripheral.TakesOutput() && poll(&input, 1, 0) > 0 && ioctl(master, FIONREAD, &count) == 0
               ? static_cast<std::size_t>(count)
               : 0;
}

void SerialLine::Carry()
{
    for (;;)
    {
        std::array<pollfd, 2> events = {};
        int milliseconds = 0;
        {
            const std::lock_guard lock(access);
            if (peripheral.TakesOutput())
            {
                ReadMaster(); // what is there arrives, also at the end
            }
            if (ending)
            {
                return;
            }
            peripheral.Advance(std::chrono::steady_clock::now());
            FlushWaiting();
            for (const std::string& piece : peripheral.TakeOutput())
            {
                Write(piece);
            }
            if (!peripheral.IsConnected())
            {
                CloseIfOpen(master);
                return;
            }
            const short input = peripheral.TakesOutput() ? POLLIN : 0;
            events = {{{master, input, 0}, {wake, POLLIN, 0}}};
            milliseconds = MillisecondsUntil(peripheral.NextDeadline());
            if (!waiting.empty())
            {
                milliseconds = milliseconds < 0 ? BETWEEN_TRIES : std::min(milliseconds, BETWEEN_TRIES);
            }
        }
        poll(events.data(), events.size(), milliseconds);
        std::uint64_t ignored = 0;
        while (read(wake, &ignored, sizeof(ignored)) > 0)
        {
        }
    }
}

void SerialLine::ReadMaster()
{
    std::array<char, READ_BYTES> bytes;
    ssize_t count = 0;
    while ((count = read(master, bytes.data(), bytes.size())) > 0)
    {
        const std::string_view text(bytes.data(), static_cast<std::size_t>(count));
        received += text;
        received.erase(0, received.size() - std::min(received.size(), MOST_RECEIVED));
        peripheral.Receive(text, std::chrono::steady_clock::now());
    }
}

void SerialLine::Write(std::string_view bytes)
{
    if (waiting.empty())
    {
        const ssize_t count = write(master, bytes.data(), bytes.size());
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    waiting += bytes;
    const std::size_t tooMany = waiting.size() - std::min(waiting.size(), MOST_WAITING);
    waiting.erase(0, tooMany);
    lostBytes += tooMany;
}

void SerialLine::FlushWaiting()
{
    if (!waiting.empty())
    {
        const ssize_t count = write(master, waiting.data(), waiting.size());
        waiting.erase(0, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
}

void SerialLine::Wake() const
{
    const std::uint64_t one = 1;
    // It fails only when the counter is full, and then the thread is being woken anyway.
    [[maybe_unused]] const ssize_t ignored = write(wake, &one, sizeof(one));
}

}

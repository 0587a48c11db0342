#include "Serial/Serial.h"

#include "Serial/ClosingWait.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavbase/Util/StandardStreams.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Tavdevice::SerialPort
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

constexpr std::size_t TEXT_READ_BYTES = 256;
constexpr unsigned int TENTHS_PER_SECOND = 10;
constexpr int MILLISECONDS_PER_SECOND = 1000;

constexpr std::chrono::milliseconds LONGEST_OUTPUT_WAIT = std::chrono::hours(24);
constexpr std::chrono::milliseconds OUTPUT_LOOK_INTERVAL{2};

constexpr int MODE_RAW = 1;
constexpr int MODE_LINES_CR = 2;
constexpr int MODE_LINES_MAY_BE_EMPTY = 3;

/**
 * select() for one descriptor that lies beyond what an fd_set can hold.
 * @return as select(): 1 when a read would not block, 0 when the time ran out, -1 on an error
 */
int PollInput(int fd, int seconds)
{
    constexpr int LONGEST = std::numeric_limits<int>::max() / MILLISECONDS_PER_SECOND;
    pollfd input = {fd, POLLIN, 0};
    const int result = poll(&input, 1, seconds < LONGEST ? seconds * MILLISECONDS_PER_SECOND : -1);
    if (result > 0 && (input.revents & POLLNVAL) != 0)
    {
        errno = EBADF;
        return -1;
    }
    return result;
}

int SelectInput(int fd, int seconds)
{
    if (fd >= FD_SETSIZE)
    {
        return PollInput(fd, seconds);
    }
    fd_set input;
    FD_ZERO(&input);
    FD_SET(fd, &input);
    timeval limit = {seconds, 0};
    return select(fd + 1, &input, nullptr, nullptr, &limit);
}

}

struct Serial::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has a base, whose part comes first
    static_assert(offsetof(Serial, config) >=
                  sizeof(Tavbase::Interfaces::IError) - alignof(std::max_align_t));
    static_assert(offsetof(Serial, config) < offsetof(Serial, fd));
    static_assert(offsetof(Serial, fd) < offsetof(Serial, device));
    static_assert(offsetof(Serial, device) < offsetof(Serial, baud));
    static_assert(offsetof(Serial, baud) < offsetof(Serial, mode));
    static_assert(offsetof(Serial, mode) < offsetof(Serial, timeout));
#pragma GCC diagnostic pop
};

Serial::Serial(std::string path, unsigned int speed) : device(std::move(path)), baud(speed)
{
    SetErrorSource("Tavdevice::SerialPort", "Serial");
}

Serial::~Serial()
{
    Close();
}

bool Serial::Open()
{
    ResetError();
    Logger::GetInstance() << LogType::Info << "[SERIAL] Try to open device " << device << std::endl;

    fd = Tavbase::Util::OpenNoStandardStream(device.c_str(), O_RDWR | O_NOCTTY);
    if (fd < 0)
    {
        return Fail("[SERIAL] Unable to open serial port", "Open");
    }
    if (tcgetattr(fd, &config) < 0)
    {
        return Fail("[SERIAL] Unable to get serial port config", "Open");
    }

    cfsetospeed(&config, baud);
    cfsetispeed(&config, baud);
    config.c_lflag = 0;
    config.c_oflag = 0;
    config.c_cc[VTIME] = 0;
    config.c_cc[VMIN] = 0;
    if (timeout > 0)
    {
        config.c_cc[VTIME] = static_cast<cc_t>(static_cast<unsigned int>(timeout) * TENTHS_PER_SECOND);
    }
    config.c_iflag &=
        ~static_cast<tcflag_t>(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON);
    config.c_iflag |= IGNPAR;
    config.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | CSTOPB | CRTSCTS);
    config.c_cflag |= CS8 | CREAD | CLOCAL;

    switch (mode)
    {
    case MODE_RAW:
        break;
    case MODE_LINES_CR:
        config.c_lflag |= ICANON;
        config.c_iflag |= ICRNL;
        config.c_cc[VMIN] = 1;
        break;
    case MODE_LINES_MAY_BE_EMPTY:
        config.c_lflag |= ICANON;
        break;
    default:
        config.c_lflag |= ICANON;
        config.c_cc[VMIN] = 1;
        break;
    }
    Logger::GetInstance().Console() << LogType::Info << "Set serial mode to " << mode << std::endl;

    config.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    if (tcsetattr(fd, TCSANOW, &config) < 0)
    {
        return Fail("[SERIAL] Unable to set serial port config", "Open");
    }
    Flush();
    return true;
}

bool Serial::Close()
{
    if (fd < 1)
    {
        return false;
    }
    if (close(fd) != 0)
    {
        return Record("[SERIAL] Unable to close serial port", "Close");
    }
    fd = 0;
    return true;
}

bool Serial::Send(unsigned char* data, unsigned int length)
{
    if (data == nullptr || length == 0 || fd < 1)
    {
        return false;
    }
    if (write(fd, data, length) == -1)
    {
        return Record("[SERIAL] Unable to write", "Send");
    }
    return true;
}

bool Serial::Send(TavubufferDynamic& buffer)
{
    return Send(buffer.data, static_cast<unsigned int>(buffer.length));
}

bool Serial::Read(std::string& text)
{
    if (fd < 1)
    {
        return false;
    }
    std::array<char, TEXT_READ_BYTES> bytes;
    const ssize_t count = read(fd, bytes.data(), bytes.size());
    if (count < 1)
    {
        return FailedRead(count, "Read");
    }
    text.assign(bytes.data(), strnlen(bytes.data(), static_cast<std::size_t>(count)));
    return true;
}

bool Serial::Read(TavubufferDynamic& buffer, int seconds)
{
    if (buffer.data == nullptr || buffer.capacity == 0 || fd < 1)
    {
        return false;
    }
    buffer.length = 0;
    if (seconds > 0)
    {
        const int ready = SelectInput(fd, seconds);
        if (ready == -1)
        {
            return Fail("Read serial error", "Read");
        }
        if (ready == 0)
        {
            Logger::GetInstance().Console() << LogType::Info << "Read serial timeout" << std::endl;
            return true; // not a failure: the caller sees the empty buffer
        }
    }
    const ssize_t count = read(fd, buffer.data, static_cast<std::uint32_t>(buffer.capacity));
    if (count < 1)
    {
        return FailedRead(count, "Read");
    }
    buffer.length = static_cast<std::uint64_t>(count);
    return true;
}

bool Serial::ReadLoop(char* c)
{
    const ssize_t count = read(fd, c, 1);
    return count == 1 || FailedRead(count, "ReadLoop");
}

int Serial::Drain()
{
    if (fd < 1)
    {
        return fd;
    }
    const int result = tcdrain(fd);
    if (result < 0)
    {
        Record("[SERIAL] Unable to drain", "Drain");
    }
    return result;
}

void Serial::Flush()
{
    if (fd > 0)
    {
        tcflush(fd, TCIFLUSH);
        tcdrain(fd);
        Logger::GetInstance() << LogType::Info << "[SERIAL] Serial port flashed" << std::endl;
    }
}

bool Serial::AwaitOutput(std::chrono::milliseconds limit)
{
    const auto most = std::clamp(limit, std::chrono::milliseconds(0), LONGEST_OUTPUT_WAIT);
    const auto end = std::chrono::steady_clock::now() + most;
    int waiting = 0;
    while (fd > 0 && ioctl(fd, TIOCOUTQ, &waiting) == 0 && waiting > 0)
    {
        if (std::chrono::steady_clock::now() >= end)
        {
            return false;
        }
        std::this_thread::sleep_for(OUTPUT_LOOK_INTERVAL);
    }
    return true;
}

bool Serial::CloseWithoutWaiting()
{
    return fd > 0 && SerialPort::CloseWithoutWaiting(fd);
}

bool Serial::FailedRead(ssize_t result, const char* where)
{
    // A result of 0 is no error: the end of the line, or nothing there in the raw mode.
    return result < 0 && Record("[SERIAL] Unable to read", where);
}

bool Serial::Fail(const char* message, const char* where)
{
    const int reason = errno;
    Logger::GetInstance() << LogType::Error << message << std::endl;
    errno = reason;
    return Record(message, where);
}

bool Serial::Record(const char* message, const char* where)
{
    const int reason = errno;
    SetErrorNumber(reason);
    SetError(std::string(message) + ": " + device + ": " + std::generic_category().message(reason), where,
             true, true);
    errno = reason; // for a caller that looks at it
    return false;
}

}

// The class-wide state of Module3G, and the AT channel.

#include "Modem/Module3G.h"

#include "Modem/AtChannel.h"
#include "Modem/AtCommands.h"
#include "Serial/ClosingWait.h"
#include "base/DatesBeyond2038.h"
#include "base/Tavbase/IException.h"
#include "base/Tavbase/Util/StandardStreams.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace Tavdevice::Modem
{

namespace
{

using Tavbase::IException;

constexpr std::size_t REPLY_BYTES = 4096;
constexpr std::size_t READ_BYTES = 255;
constexpr std::size_t MOST_GATHERED = REPLY_BYTES - READ_BYTES; // beyond it no further read would fit

constexpr int WRITE_ATTEMPTS = 4;
constexpr std::chrono::milliseconds AFTER_FAILED_WRITE{100};
constexpr std::chrono::milliseconds FIRST_RESPONSE_TIME{100};
constexpr std::chrono::milliseconds POLLING_CYCLE{100};

enum Result : int
{
    SUCCESS = 0,
    ERROR_ANSWERED = -1,
    NO_ANSWER = -2,
    NOT_WRITTEN = -3
};

/// Closes an interface at the end of its exchange; as everywhere, 0 counts as not open. A module that takes
/// no output must not hold that, and with it the lock of all exchanges, for the 30 s of the line's closing
/// wait.
class OpenedInterface
{
public:
    explicit OpenedInterface(int descriptor) : fd(descriptor)
    {
        if (fd > 0)
        {
            SerialPort::CloseWithoutWaiting(fd); // where the driver refuses, it is as it is
        }
    }

    OpenedInterface(const OpenedInterface&) = delete;
    OpenedInterface& operator=(const OpenedInterface&) = delete;

    ~OpenedInterface()
    {
        if (fd > 0)
        {
            close(fd);
        }
    }

private:
    int fd;
};

bool WriteCommand(int fd, const char* command)
{
    const std::size_t length = std::strlen(command);
    for (int attempt = 0; attempt < WRITE_ATTEMPTS; ++attempt)
    {
        // Once more from its begin: a module that got a part of a command drops it with the next line end.
        if (write(fd, command, length) == static_cast<ssize_t>(length))
        {
            return true;
        }
        std::this_thread::sleep_for(AFTER_FAILED_WRITE);
    }
    return false;
}

/// Polls for the answer to `command`. @param buffer receives it; REPLY_BYTES, and one that stays zero
Result GatherReply(int fd, const char* command, int tries, char* buffer)
{
    std::string echo = command;
    std::erase(echo, '\r');
    std::erase(echo, '\n');

    std::memset(buffer, 0, REPLY_BYTES + 1);
    std::this_thread::sleep_for(FIRST_RESPONSE_TIME);
    std::size_t gathered = 0;
    for (int cycle = 1; cycle < tries && gathered <= MOST_GATHERED; ++cycle)
    {
        const ssize_t count = read(fd, buffer + gathered, READ_BYTES);
        if (count > 0)
        {
            gathered += static_cast<std::size_t>(count);
            const bool error = std::strstr(buffer, "ERROR") != nullptr;
            if ((error || std::strstr(buffer, "OK") != nullptr) &&
                std::strstr(buffer, echo.c_str()) != nullptr)
            {
                return error ? ERROR_ANSWERED : SUCCESS;
            }
        }
        std::this_thread::sleep_for(POLLING_CYCLE);
    }
    return NO_ANSWER;
}

}

namespace AtChannel
{

int Open(const char* path)
{
    const int fd = Tavbase::Util::OpenNoStandardStream(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
    {
        return -1;
    }
    fcntl(fd, F_SETFL, O_NONBLOCK);

    termios settings = {};
    tcgetattr(fd, &settings);
    cfsetispeed(&settings, B115200);
    cfsetospeed(&settings, B115200);
    settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS | PARENB | CSTOPB | CSIZE);
    settings.c_cflag |= CS8 | CREAD | CLOCAL;
    settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY | ICRNL | INLCR | IGNCR);
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHOE | ISIG);
    if (tcsetattr(fd, TCSANOW, &settings) != 0)
    {
        // The descriptor stays open, deliberately; see the header.
        std::array<char, IException::MESSAGE_SIZE> message{};
        std::snprintf(message.data(), message.size(), "[Module3G] Error, %s\n",
                      std::generic_category().message(errno).c_str());
        std::puts(message.data());
        throw IException(message.data(), 0);
    }
    return fd;
}

int Exchange(const char* command, int tries, const char* port, std::string& reply)
{
    const std::scoped_lock lock(Module3G::mutexATCommands);
    int fd = 0;
    try
    {
        fd = Open(port);
    }
    catch (const std::exception& e)
    {
        throw IException(e.what(), -1);
    }
    const OpenedInterface opened(fd); // a port that did not open shows as a failed write
    if (!WriteCommand(fd, command))
    {
        return NOT_WRITTEN;
    }
    const Result result = GatherReply(fd, command, tries, Module3G::bufferAtCommands);
    if (result == SUCCESS)
    {
        reply = Module3G::bufferAtCommands;
    }
    return result;
}

}

int NR_OF_TRIES = 2;
std::string Bus_Module3G = "05c6:9";

char* Module3G::bufferAtCommands = new char[REPLY_BYTES + 1](); // one more, which stays zero
std::string Module3G::m3gSimICCID;
std::string Module3G::m3gSimIMSI;
std::string Module3G::m3gIMEI;
std::string Module3G::m3g_fw_version;
std::list<PreferredOperator> Module3G::PreferredOperatorList;

int Module3G::registration_status = -1;
std::chrono::system_clock::time_point Module3G::start;
std::chrono::system_clock::time_point Module3G::end;
std::mutex Module3G::mutexATCommands;
int Module3G::failedRegistrations = 0;
bool Module3G::autoCarrierSelection = false;
std::int64_t Module3G::lastTransmitionTime = 0;
pollfd Module3G::cFds = {};
Module3GSignalStatus Module3G::signal_status = {};

struct Module3G::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has private members too
    static_assert(offsetof(Module3G, label) == 0);
    static_assert(offsetof(Module3G, label) < offsetof(Module3G, counter));
    static_assert(offsetof(Module3G, counter) < offsetof(Module3G, modulePresent));
    static_assert(sizeof(modulePresent) == sizeof(bool));
#pragma GCC diagnostic pop
};

Module3G::Module3G()
{
    const std::unique_lock lock(mutexATCommands, std::try_to_lock);
    if (lock.owns_lock()) // else an exchange is filling it, for three minutes maybe
    {
        std::memset(bufferAtCommands, 0, REPLY_BYTES);
    }
}

Module3G::~Module3G() = default;

int Module3G::OpenPort(char* path)
{
    return AtChannel::Open(path);
}

int Module3G::SendATCommand(char* command, int tries, char* port)
{
    std::string reply;
    return AtChannel::Exchange(command, tries, port, reply);
}

int Module3G::SendATCommand(char* command, int tries)
{
    std::string reply;
    return AtChannel::Exchange(command, tries, AtCommands::MAIN_PORT, reply);
}

void Module3G::SetLastTransmissionTime()
{
    lastTransmitionTime = std::time(nullptr);
}

}

#include "Sensors/Buzzer/BuzzerSerial.h"

#include "base/Tavbase/Tavlog/Logger.h"

#include <chrono>
#include <cstddef>
#include <sstream>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace Tavdevice
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

constexpr const char* ADAPTER = "/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0";
constexpr unsigned int SPEED = B115200;

constexpr unsigned char STX = 0x02;
constexpr unsigned char ETX = 0x03;
constexpr unsigned char EOT = 0x04;

constexpr std::string_view OUTPUT_START = "OMSGS";
constexpr std::string_view OUTPUT_END = "OMSGE";
constexpr const char* PRESENCE = "0";

constexpr std::chrono::milliseconds AFTER_SEQUENCE{10};
constexpr std::chrono::milliseconds AFTER_PRESENCE_COMMAND{10};

}

struct BuzzerSerial::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has a base, whose part comes first
    static_assert(offsetof(BuzzerSerial, port) < offsetof(BuzzerSerial, defaultCount));
    static_assert(offsetof(BuzzerSerial, defaultCount) < offsetof(BuzzerSerial, defaultDuration));
#pragma GCC diagnostic pop
};

BuzzerSerial::BuzzerSerial() : port(ADAPTER, SPEED)
{
}

BuzzerSerial::~BuzzerSerial()
{
    BuzzerSerial::Close();
}

bool BuzzerSerial::Open()
{
    if (access(ADAPTER, F_OK) != 0)
    {
        SetPresent(false);
        Logger::GetInstance() << LogType::Info << "NO BUZZER CONNECTED TO SERIAL PORT" << std::endl;
        return false;
    }
    Logger::GetInstance() << LogType::Info << "FOUND BUZZER PORT AT: " << ADAPTER << std::endl;
    port.Close();
    port = SerialPort::Serial(ADAPTER, SPEED);
    const bool opened = port.Open();
    SetPresent(opened);
    if (!opened)
    {
        return false;
    }
    ResetSequence();
    port.Flush();
    SendLine(PRESENCE);
    std::this_thread::sleep_for(AFTER_PRESENCE_COMMAND);
    AwaitOutput();
    SetPresent(true); // whatever it said: reaching the prompt is enough
    return true;
}

bool BuzzerSerial::Close()
{
    return !IsPresent() || port.Close();
}

bool BuzzerSerial::CheckPresence()
{
    Open();
    if (IsPresent())
    {
        Close();
    }
    return IsPresent();
}

bool BuzzerSerial::Alert()
{
    switch (level)
    {
    case 1:
        return BuzzDevice(1, 500);
    case 3:
        return BuzzDevice(1, 2000);
    default:
        return BuzzDevice(1, 1000);
    }
}

bool BuzzerSerial::BuzzDevice(int count, int duration)
{
    if (busy)
    {
        return false;
    }
    Open();
    if (!IsPresent())
    {
        return false;
    }
    busy = true;
    SendLine("1:" + std::to_string(count) + ":" + std::to_string(duration));
    // Microseconds here, milliseconds for the board, deliberately: the pause is for the command alone.
    std::this_thread::sleep_for(std::chrono::microseconds(duration));
    SendSTX();
    busy = false;
    Close();
    return true;
}

void BuzzerSerial::SendSTX()
{
    SendByte(STX);
}

void BuzzerSerial::SendETX()
{
    SendByte(ETX);
}

void BuzzerSerial::SendEOT()
{
    SendByte(EOT);
}

void BuzzerSerial::ResetSequence()
{
    for (const unsigned char byte : {STX, ETX, STX, ETX, EOT, EOT, STX, STX, ETX, ETX, ETX})
    {
        SendByte(byte);
    }
    std::this_thread::sleep_for(AFTER_SEQUENCE);
}

std::string BuzzerSerial::UnpackOutput(std::string& text)
{
    const std::size_t start = text.find(OUTPUT_START);
    const std::size_t end = text.find(OUTPUT_END);
    if (start == std::string::npos || end == std::string::npos)
    {
        return {};
    }
    // The length is reckoned from the begin of the text, deliberately: a reply begins with its first marker.
    const std::size_t output = start + OUTPUT_START.size() + 1;
    const std::size_t besideOutput = OUTPUT_START.size() + 2;
    return output > text.size() || end < besideOutput ? std::string()
                                                      : text.substr(output, end - besideOutput);
}

std::string BuzzerSerial::SplitLastLine(std::string& text)
{
    std::istringstream lines(text);
    std::string last;
    for (std::string line; std::getline(lines, line);)
    {
        last = line;
    }
    return last;
}

void BuzzerSerial::SendByte(unsigned char byte)
{
    port.Send(&byte, 1);
}

void BuzzerSerial::SendLine(const std::string& command)
{
    std::string line = "\r\nbuzzer.processCMD(\"ICMDS:" + command + ":ICMDE\")\r\n";
    port.Send(reinterpret_cast<unsigned char*>(line.data()), static_cast<unsigned int>(line.size()));
}

void BuzzerSerial::AwaitOutput()
{
    std::string latest; // as much of the reply as the marker is long: a board may chatter for ever
    char c = 0;
    while (port.ReadLoop(&c))
    {
        latest += c;
        if (latest == OUTPUT_END)
        {
            port.Flush();
            return;
        }
        if (latest.size() == OUTPUT_END.size())
        {
            latest.erase(0, 1);
        }
    }
}

}

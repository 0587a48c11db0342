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
constexpr std::chrono::milliseconds OUTPUT_TIME{500}; // a board that works takes it within some milliseconds

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
    port.AwaitOutput(OUTPUT_TIME); // the port is still open where no alert device is present
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
    port.AwaitOutput(OUTPUT_TIME);
    port.Close();
    port = SerialPort::Serial(ADAPTER, SPEED);
    const bool opened = port.Open();
    SetPresent(opened);
    if (!opened)
    {
        return false;
    }
    port.CloseWithoutWaiting(); // a driver that refuses waits as ever
    ResetSequence();
    if (!OutputTaken())
    {
        return false;
    }
    port.Flush();
    SendLine(PRESENCE);
    std::this_thread::sleep_for(AFTER_PRESENCE_COMMAND);
    if (!OutputTaken())
    {
        return false;
    }
    AwaitReply();
    SetPresent(true); // whatever it said: reaching the prompt is enough
    return true;
}

bool BuzzerSerial::Close()
{
    if (!IsPresent())
    {
        return true;
    }
    port.AwaitOutput(OUTPUT_TIME); // the closing drops what is left of it
    return port.Close();
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

bool BuzzerSerial::OutputTaken()
{
    if (port.AwaitOutput(OUTPUT_TIME))
    {
        return true;
    }
    SetPresent(false);
    port.Close();
    Logger::GetInstance() << LogType::Error << "BUZZER TAKES NO OUTPUT" << std::endl;
    return false;
}

void BuzzerSerial::AwaitReply()
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

// The part of GpsDevice that deals with the module behind the line: which one it is, its configuration,
// its resets, and the check sum of its sentences.

#include "GpsDevice/GpsDevice.h"

#include "base/Tavbase/Tavlog/Logger.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace Tavdevice::GpsDevice
{

namespace
{

using std::chrono::steady_clock;
using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

// Commands of the MTK command set, with their check sums and line ends.
constexpr char QUERY_RELEASE[] = "$PMTK605*31\r\n";
constexpr char SELECT_GPS_ONLY[] = "$PMTK353,1,0,0,0,0*2A\r\n";

// What the modules send.
constexpr std::string_view RELEASE_OF_L26 = "Quectel-L26";
constexpr std::string_view TEXT_SENTENCE = "$GPTXT"; // of an L26 only
constexpr std::string_view RMC_SENTENCE = "$GPRMC";
constexpr std::string_view SELECTION_ACKNOWLEDGED = "PMTK001,353";
constexpr std::string_view STARTED = "PMTK010,001";
constexpr std::string_view START_BANNER = "PMTK011,MTKGPS";

constexpr useconds_t AFTER_COMMAND_MICROSECONDS = 100'000; // the module answers within this
constexpr useconds_t AFTER_FAILURE_MICROSECONDS = 100'000; // a dead line must not be asked without a pause
constexpr int READ_SECONDS = 1;
constexpr std::int32_t MOST_RESET_REPORTS = 5000;

bool Contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

void Log(LogType type, const char* text)
{
    Logger::GetInstance() << type << text << std::endl;
}

template <std::size_t SIZE>
void Send(SerialPort::Serial& serial, const char (&command)[SIZE])
{
    unsigned char bytes[SIZE];
    std::memcpy(bytes, command, SIZE);
    serial.Send(bytes, SIZE - 1); // a lost command shows as a missing answer
    usleep(AFTER_COMMAND_MICROSECONDS);
}

}

unsigned int GpsDevice::CalculateCheckSum(char* text)
{
    const char* const start = text == nullptr ? nullptr : std::strchr(text, '$');
    if (start == nullptr)
    {
        return 0;
    }
    const char* const end = std::strchr(text, '*');
    unsigned int sum = 0;
    if (end != nullptr)
    {
        for (const char* byte = start + 1; byte < end; ++byte)
        {
            sum ^= static_cast<unsigned char>(*byte);
        }
    }
    std::printf("========= CalculateCheckSum: %02x", sum); // the line is left to whoever prints next
    return sum;
}

void GpsDevice::FindDeviceType()
{
    module = Module::L26;
    bool rmcSeen = false;
    std::string text;
    const auto deadline = steady_clock::now() + std::chrono::seconds(detectionTimeout);
    while (!StopRequested() && steady_clock::now() < deadline)
    {
        if (!ReadText(text))
        {
            usleep(AFTER_FAILURE_MICROSECONDS);
        }
        if (Contains(text, TEXT_SENTENCE))
        {
            Log(LogType::Warning, "Found L26 GPS module (1)");
            return;
        }
        rmcSeen = rmcSeen || Contains(text, RMC_SENTENCE);
    }
    if (StopRequested())
    {
        return;
    }
    if (rmcSeen)
    {
        module = Module::SKM53;
        Log(LogType::Warning, "Found SKM53 GPS module");
    }
    else
    {
        Log(LogType::Warning, "NO GPS module found, consider it L26");
    }
}

int GpsDevice::CheckL26Gps()
{
    module = Module::L26;
    Send(serial, QUERY_RELEASE);
    IdentifyModule();
    if (!StopRequested())
    {
        // Sent whatever was found: an SKM53 ignores it.
        Send(serial, SELECT_GPS_ONLY);
        AwaitSelection();
    }
    return 1;
}

void GpsDevice::IdentifyModule()
{
    bool textSentenceSeen = false;
    bool rmcSeen = false;
    std::string text;
    const auto deadline = steady_clock::now() + std::chrono::seconds(detectionTimeout);
    while (!StopRequested() && steady_clock::now() < deadline)
    {
        ReadText(text);
        if (text.empty())
        {
            Logger::GetInstance().Console() << LogType::Error << "Read serial error " << std::endl;
            break;
        }
        if (Contains(text, RELEASE_OF_L26))
        {
            Logger::GetInstance() << LogType::Info << "L26 module version: " << text << std::endl;
            Log(LogType::Info, "Found L26 GPS module");
            return;
        }
        textSentenceSeen = textSentenceSeen || Contains(text, TEXT_SENTENCE);
        rmcSeen = rmcSeen || Contains(text, RMC_SENTENCE);
    }
    if (StopRequested())
    {
        return;
    }
    if (textSentenceSeen)
    {
        Log(LogType::Info, "Found L26 GPS module");
    }
    else if (rmcSeen)
    {
        module = Module::SKM53;
        Log(LogType::Info, "Found SKM53 GPS module");
    }
    else
    {
        Log(LogType::Warning, "NO GPS module found, consider it L26");
    }
}

void GpsDevice::AwaitSelection()
{
    std::string text;
    const auto deadline = steady_clock::now() + std::chrono::seconds(detectionTimeout);
    while (!StopRequested() && steady_clock::now() < deadline)
    {
        ReadText(text);
        if (text.empty())
        {
            Logger::GetInstance().Console()
                << LogType::Error << "============ > Read serial error " << std::endl;
            return;
        }
        if (Contains(text, SELECTION_ACKNOWLEDGED))
        {
            Logger::GetInstance().Console()
                << LogType::Warning << "GLONASS has been deactivated; " << text << std::endl;
            return;
        }
    }
}

void GpsDevice::FindDeviceReset()
{
    // For the whole process, so that a module that resets for ever does not fill the log.
    static std::atomic<std::int32_t> cnt{0};
    if (cnt >= MOST_RESET_REPORTS || !(SentenceContains(STARTED) || SentenceContains(START_BANNER)))
    {
        return;
    }
    Logger::GetInstance() << LogType::Error << "GPS had been reset (" << cnt << ") " << currentSentence
                          << std::endl;
    ++cnt;
}

bool GpsDevice::ReadText(std::string& text)
{
    const bool done = serial.Read(readBuffer, READ_SECONDS);
    text.assign(reinterpret_cast<const char*>(readBuffer.data), static_cast<std::size_t>(readBuffer.length));
    return done;
}

}

#include "GpsDevice/GpsDevice.h"

#include "base/Tavbase/Tavlog/Logger.h"

#include <chrono>
#include <cstddef>

namespace Tavdevice::GpsDevice
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

constexpr const char* PORT = "/dev/ttymxc0";
constexpr unsigned int SPEED = B9600;
constexpr std::uint64_t READ_BUFFER_BYTES = 4096;
constexpr int READ_SECONDS = 1;
constexpr std::chrono::milliseconds AFTER_FAILURE{1000};

}

struct GpsDevice::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has bases, whose parts come first
    static_assert(offsetof(GpsDevice, readBuffer) < offsetof(GpsDevice, serial));
    static_assert(offsetof(GpsDevice, serial) < offsetof(GpsDevice, portOpen));
    static_assert(offsetof(GpsDevice, portOpen) < offsetof(GpsDevice, block));
    static_assert(offsetof(GpsDevice, block) < offsetof(GpsDevice, currentSentence));
    static_assert(offsetof(GpsDevice, currentSentence) < offsetof(GpsDevice, spareText));
    static_assert(offsetof(GpsDevice, spareText) < offsetof(GpsDevice, logInterval));
    static_assert(offsetof(GpsDevice, logInterval) < offsetof(GpsDevice, blockCounter));
    static_assert(offsetof(GpsDevice, blockCounter) < offsetof(GpsDevice, detectionTimeout));
    static_assert(offsetof(GpsDevice, detectionTimeout) < offsetof(GpsDevice, module));
    static_assert(sizeof(module) == sizeof(std::int32_t));
#pragma GCC diagnostic pop
};

GpsDevice::GpsDevice() : serial(PORT, SPEED)
{
    name = "GPS-DEVICE";
    SetErrorSource("Tavdevice", "GpsDevice");
}

GpsDevice::~GpsDevice()
{
    Stop();
}

void GpsDevice::Prepare(IThreadDelegate*& delegate)
{
    if (portOpen)
    {
        return;
    }
    ResetError();
    readBuffer.Allocate(READ_BUFFER_BYTES);
    AddCallback(delegate);
    serial.Close(); // a port that was opened but refused its settings is still open
    serial = SerialPort::Serial(PORT, SPEED);
    portOpen = serial.Open();
    if (!portOpen)
    {
        SetErrorNumber(serial.GetErrorNumber());
        // Named for the operation that will find the port closed, not for this one.
        SetError(serial.GetErrorMessage(), "RunBefore", true, true);
    }
}

int GpsDevice::RunBefore()
{
    serial.Flush();
    return CheckL26Gps();
}

void GpsDevice::Run()
{
    if (!portOpen)
    {
        Cancel();
        return;
    }
    const bool read = serial.Read(readBuffer, READ_SECONDS);
    if (readBuffer.length == 0)
    {
        Logger::GetInstance().Console() << LogType::Info << "[GPS-AQ] serial read error" << std::endl;
        char nothing[] = "";
        DoCallback(nothing);
        if (!read)
        {
            ThreadSleep(AFTER_FAILURE, AFTER_FAILURE); // a line that hung up fails at once, every time
        }
        return;
    }
    currentSentence.assign(reinterpret_cast<const char*>(readBuffer.data),
                           static_cast<std::size_t>(readBuffer.length));

    // The RMC sentence is the last of an SKM53's block and the first of an L26's next one.
    if (module == Module::SKM53)
    {
        block += currentSentence;
    }
    FindDeviceReset();
    if (SentenceContains("$GPRMC") || SentenceContains("$GNRMC"))
    {
        DoCallback(block.data());
        if (blockCounter++ % static_cast<std::uint64_t>(logInterval) == 0)
        {
            Logger::GetInstance() << LogType::Info << "GPS data: " << block << std::endl;
        }
        block.clear();
    }
    if (module == Module::L26)
    {
        block += currentSentence;
    }
}

void GpsDevice::RunAfter()
{
}

bool GpsDevice::SentenceContains(std::string_view text) const
{
    return currentSentence.find(text) != std::string::npos;
}

}

// An application on a 32-bit unit in the year 2040. It is built without the macros that choose the C
// library's widths of times and file offsets, and with them; neither may make a difference to the libraries.
// dates DIRECTORY: with "db" and a full "log" in it, both last written to in 2040. In the zone UTC.

#include "DriverId/DriverIdRecord.h"
#include "Modem/Module3G.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavsystem/FileUtils/Tavdir.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <type_traits>

using Tavdevice::Modem::Module3G;

static_assert(sizeof(void*) == 4);
static_assert(sizeof(std::time_t) == TIME_BYTES); // the macros had their effect, or were not there
static_assert(std::is_same_v<decltype(Module3G::lastTransmitionTime), std::int64_t>);

namespace
{

constexpr std::int64_t NOW = 2222222222;
constexpr const char* NOW_IN_A_LOG_LINE = "[2040-06-02 03:57:02]";
constexpr std::uint64_t LOG_LIMIT = 1024; // the file has a thousand

void Require(bool holds, const std::string& what)
{
    if (!holds)
    {
        std::cout << "failed: " << what << std::endl;
        std::exit(1); // NOLINT(concurrency-mt-unsafe): no other thread of this program calls it
    }
}

std::string TextOf(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

}

// time() as the libraries call it: by its name where a time has 64 bits, and by that of the other, which
// cannot tell this one and says so as the C library does.
extern "C" std::int64_t LongTime(std::int64_t* now) __asm__("__time64");
extern "C" std::int32_t ShortTime(std::int32_t* now) __asm__("time");

std::int64_t LongTime(std::int64_t* now)
{
    if (now != nullptr)
    {
        *now = NOW;
    }
    return NOW;
}

std::int32_t ShortTime(std::int32_t* now)
{
    if (now != nullptr)
    {
        *now = -1;
    }
    errno = EOVERFLOW;
    return -1;
}

namespace
{

void KeepATransmissionTime()
{
    Require(Module3G::lastTransmitionTime == 0, "no transmission yet");
    Module3G::SetLastTransmissionTime();
    Require(Module3G::lastTransmitionTime == NOW,
            "time of a transmission: " + std::to_string(Module3G::lastTransmitionTime));
    Module3G::lastTransmitionTime = NOW + 1; // the application's own writing meets the same object
    Require(Module3G::lastTransmitionTime == NOW + 1, "time of a transmission, written");
    Require(!Module3G::autoCarrierSelection && Module3G::cFds.fd == 0, "the members beside it");
}

void KeepADriver(const std::string& directory)
{
    Require(Tavsystem::FileUtils::Tavdir(directory).Create(), "a directory that is there");
    const TavDevice::DriverIdRecord record(directory + "/driver-id.json");
    record.Save("00A1B2C3D4E5");
    std::string id;
    Require(record.Load(id) && id == "00A1B2C3D4E5", "record of a driver: " + id);
}

void WriteALog(const std::string& path)
{
    Tavbase::Tavlog::Logger& log = Tavbase::Tavlog::Logger::GetInstance();
    Require(log.OpenFile(path, LOG_LIMIT, 1), "log file");
    log << Tavbase::Tavlog::LogType::Info << "a line that is the first one of the next file" << std::endl;
    log.CloseFile();
    const std::string text = TextOf(path);
    Require(text.size() < LOG_LIMIT, "size limit of the log file");
    Require(text.starts_with(NOW_IN_A_LOG_LINE), "log line: " + text);
    Require(TextOf(path + ".1").size() == 1000, "the full file, kept");
}

}

int main(int argc, char** argv)
{
    Require(argc == 2, "one argument");
    const std::string directory = argv[1];
    KeepATransmissionTime();
    KeepADriver(directory + "/db");
    WriteALog(directory + "/log");
    std::cout << "dates: all well" << std::endl;
    return 0;
}

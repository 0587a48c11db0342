// driver-id: an application of the device library that waits for a driver's key and remembers it.

#include "DriverId/DriverId.h"
#include "examples/common/EndingSignals.h"
#include "examples/common/Options.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{

constexpr const char* USAGE =
    "usage: driver-id [--seconds N] [--log FILE]\n"
    "\n"
    "Shows the last driver, waits until a key is presented to the driver-ID reader, and records it on the\n"
    "storage card. Until then the reader annoys the driver.\n"
    "\n"
    "  --seconds N  give up after N seconds without a key\n"
    "  --log FILE   append the device library's log to FILE\n"
    "\n"
    "Exit status: 0 when a key was read, 1 when not, 2 for a wrong command line.\n";

constexpr int NO_KEY = 1;
constexpr std::chrono::milliseconds BETWEEN_REQUESTS{500};

using Clock = std::chrono::steady_clock;

/// @return the ID of the key; empty when none came, in time or before a signal
std::string AwaitKey(TavDevice::DriverId& reader, const Examples::Options& options,
                     const Examples::EndingSignals& endingSignals)
{
    const auto start = Clock::now();
    std::string id;
    do
    {
        if (!reader.RequestDriverId(id))
        {
            std::printf("The reader gave no answer; asking again.\n");
        }
        if (!id.empty() || (options.seconds && Clock::now() - start >= *options.seconds))
        {
            break;
        }
    } while (!endingSignals.Await(BETWEEN_REQUESTS));
    return id;
}

}

int main(int argc, char** argv)
{
    const Examples::Options options = Examples::Options::ParseOrExit(argc, argv, USAGE);
    const Examples::EndingSignals endingSignals;
    options.SetUpLog();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    TavDevice::DriverId reader;
    std::string lastId;
    const bool known = reader.LoadFromFile(lastId);
    std::printf("Last driver: %s\n", known ? lastId.c_str() : "none is recorded");
    if (!reader.Init())
    {
        std::fprintf(stderr, "no driver-ID reader answers\n");
        return NO_KEY;
    }

    const bool annoying = reader.StartAnnoying();
    std::printf("The reader is there%s.\n",
                annoying ? " and annoys the driver until a key is presented" : "");
    std::string id = AwaitKey(reader, options, endingSignals);
    reader.StopAnnoying();
    if (id.empty())
    {
        std::printf("No key was presented.\n");
        return NO_KEY;
    }
    std::printf("Driver %s, %s.\n", id.c_str(),
                !known         ? "the first on record"
                : id == lastId ? "the same as last time"
                               : "another one than last time");
    reader.SaveToFile(id);
    return EXIT_SUCCESS;
}

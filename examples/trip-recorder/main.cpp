// trip-recorder: an application of the device library that keeps a record of each trip on the storage card.

#include "Gpio/GpioManager.h"
#include "Gpio/LedsController.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "examples/common/EndingSignals.h"
#include "examples/common/GpioOutput.h"
#include "examples/common/Options.h"
#include "examples/trip-recorder/Devices.h"
#include "examples/trip-recorder/Recorder.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace
{

using namespace Tavdevice::Gpio;
using namespace TripRecorder;

constexpr const char* USAGE =
    "usage: trip-recorder [--seconds N] [--log FILE]\n"
    "\n"
    "Records each trip, from ignition on to ignition off, in /mnt/sdcard/trips: its positions, its driver,\n"
    "and where it was braked harshly. Switches the unit off when the event driver asks for it.\n"
    "\n"
    "  --seconds N  end after N seconds\n"
    "  --log FILE   append the device library's log to FILE\n"
    "\n"
    "Exit status: 0, or 2 for a wrong command line.\n";

constexpr const char* TRIPS = "/mnt/sdcard/trips";
constexpr std::chrono::milliseconds TICK{100};
constexpr std::chrono::hours FOR_EVER{24 * 365};

void Drain(auto& mailbox, const auto& take)
{
    while (const auto item = mailbox.Take())
    {
        take(*item);
    }
}

/// Until somebody wants the program to end. @return true: the unit is to be switched off
bool Record(const Examples::EndingSignals& signals, const Examples::Options& options)
{
    Recorder recorder(TRIPS);
    Positions positions;
    Brakings brakings;
    Drivers drivers;
    GpioOutput events;
    GpioOutput* listeners[] = {&events};
    GpioManager manager(listeners, 1);
    manager.startupFilter = false; // the first ignition counts, too
    manager.RunIgnitionStart();
    for (const auto& [device, started] :
         {std::pair("GPS receiver", positions.Start()), std::pair("accelerometer", brakings.Start()),
          std::pair("thread for the drivers", drivers.Start())})
    {
        if (!started)
        {
            std::fprintf(stderr, "no %s: see the log\n", device); // the others are recorded
        }
    }

    const auto end = std::chrono::steady_clock::now() + options.seconds.value_or(FOR_EVER);
    do
    {
        Drain(events, [&](int code) { recorder.TakeEvent(code); });
        Drain(drivers.ids, [&](const std::string& id) { recorder.TakeDriver(id); });
        Drain(brakings.harsh, [&](double g) { recorder.TakeBraking(g); });
        Drain(positions.blocks, [&](const Examples::Block& block) { recorder.TakePosition(block); });
    } while (!recorder.PowerIsToGo() && !signals.Await(TICK) && std::chrono::steady_clock::now() < end);
    recorder.EndTrip();
    return recorder.PowerIsToGo();
}

}

int main(int argc, char** argv)
{
    const Examples::Options options = Examples::Options::ParseOrExit(argc, argv, USAGE);
    const Examples::EndingSignals signals; // before any thread
    std::signal(SIGPIPE, SIG_IGN);         // or a reader that has gone would keep the unit on
    options.SetUpLog();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    LedsController* const leds = LedsController::GetInstance();
    const bool powerOff = Record(signals, options);
    leds->Stop(LedController::BothOff);
    delete leds;
    if (powerOff)
    {
        auto& log = Tavbase::Tavlog::Logger::GetInstance();
        log.CloseFile();         // with a file open on it a volume cannot be unmounted
        log.EnableConsole(true); // where that is told
        GpioCore::ShutDown();    // returns where the ignition is on again: whoever starts us does so anew
    }
    return EXIT_SUCCESS;
}

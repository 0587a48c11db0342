// ignition-light: an application of the device library whose left LED blinks green once the ignition is on.

#include "Gpio/GpioManager.h"
#include "Gpio/LedsController.h"
#include "examples/common/EndingSignals.h"
#include "examples/common/Options.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Tavdevice::Gpio
{

/// The application's listener. The library declares the type and leaves it to us.
class GpioOutput : public Tavbase::Interfaces::ISignal::ISignalDelegate
{
public:
    void SignalCallback(void* value) override // on the manager's thread
    {
        constexpr int IGNITION_ON = 1;
        const int event = static_cast<GpioArgs*>(value)->code;
        std::printf("event %d%s\n", event, event == IGNITION_ON ? ": the ignition is on" : "");
        if (event == IGNITION_ON)
        {
            LedsController::GetInstance()->SetLedMode(true, LedController::GreenBlink450);
            ignitionSeen = true;
        }
    }

    bool IgnitionSeen() const { return ignitionSeen; }

private:
    std::atomic<bool> ignitionSeen{false};
};

}

namespace
{

constexpr const char* USAGE =
    "usage: ignition-light [--seconds N] [--log FILE]\n"
    "\n"
    "Shows the events of the event driver; the left LED blinks green from the ignition on.\n"
    "\n"
    "  --seconds N  end after N seconds\n"
    "  --log FILE   append the device library's log to FILE\n"
    "\n"
    "Exit status: 0 when the ignition was switched on, 1 when not, 2 for a wrong command\n"
    "line.\n";

constexpr int NO_IGNITION = 1;

}

int main(int argc, char** argv)
{
    using namespace Tavdevice::Gpio;

    const Examples::Options options = Examples::Options::ParseOrExit(argc, argv, USAGE);
    const Examples::EndingSignals endingSignals;
    options.SetUpLog();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    LedsController* const leds = LedsController::GetInstance();
    GpioOutput listener;
    GpioOutput* listeners[] = {&listener};
    {
        GpioManager manager(listeners, 1);
        manager.startupFilter = false; // for the twenty seconds in which the unit itself is starting
        manager.RunIgnitionStart();
        endingSignals.Await(options.seconds);
    }
    leds->Stop(LedController::BothOff);
    delete leds;
    return listener.IgnitionSeen() ? EXIT_SUCCESS : NO_IGNITION;
}

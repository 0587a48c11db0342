// alert: an application of the device library that sounds an alert on each device that is there.

#include "Sensors/Beeper/Beeper.h"
#include "Sensors/Buzzer/BuzzerSerial.h"
#include "examples/common/Options.h"

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr const char* USAGE = "usage: alert [--log FILE]\n"
                              "\n"
                              "Sounds one alert on the sound chips and one on the buzzer board.\n"
                              "\n"
                              "  --log FILE  append the device library's log to FILE\n"
                              "\n"
                              "Exit status: 0 when both sounded, 1 when not, 2 for a wrong command line.\n";

constexpr int NOT_SOUNDED = 1;
constexpr int LEVEL = 1;

bool Sound(const char* name, Tavdevice::Alerter& device)
{
    device.level = LEVEL;
    const bool sounded = device.CheckPresence() && device.Alert();
    std::printf("%-13s%s\n", name, sounded ? "sounded" : "not there");
    return sounded;
}

}

int main(int argc, char** argv)
{
    const Examples::Options options = Examples::Options::ParseOrExit(argc, argv, USAGE);
    options.SetUpLog();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    Tavdevice::Beeper beeper;
    const bool beeped = Sound("sound chips", beeper);
    Tavdevice::BuzzerSerial buzzer;
    const bool buzzed = Sound("buzzer board", buzzer);
    return beeped && buzzed ? EXIT_SUCCESS : NOT_SOUNDED;
}

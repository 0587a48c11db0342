#include "Gpio/LedController.h"

#include "Gpio/GpioCore.h"

#include <cstddef>

namespace Tavdevice::Gpio
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds STEP{100};
constexpr milliseconds SLEEP_POLL_INTERVAL{1000};

constexpr unsigned int OFF = 0;
constexpr unsigned int ON = 1;

void Set(int pin, unsigned int value)
{
    GpioCore::SetPin(static_cast<unsigned int>(pin), value);
}

}

struct LedController::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has a base, whose part comes first
    static_assert(offsetof(LedController, redPin) < offsetof(LedController, greenPin));
    static_assert(offsetof(LedController, greenPin) < offsetof(LedController, setting));
    static_assert(offsetof(Setting, mode) < offsetof(Setting, offState));
    static_assert(sizeof(setting) == sizeof(Setting) && sizeof(Setting) == 2 * sizeof(std::int32_t));
#pragma GCC diagnostic pop
};

LedController::LedController(int red, int green, const std::string& threadName)
    : redPin(red), greenPin(green), setting(Setting{Idle, BothOff})
{
    name = threadName;
}

LedController::~LedController()
{
    Stop();
}

void LedController::SetLedMode(LedState state)
{
    Setting present = setting.load();
    while (!setting.compare_exchange_weak(present, {state, present.offState}))
    {
    }
}

void LedController::TurnOffLedMode(LedOffState state)
{
    setting.store({TurnOff, state});
}

void LedController::Run()
{
    Setting present = setting.load();
    switch (present.mode)
    {
    case RedBlink40:
        ApplyRedBlink(milliseconds(40));
        break;
    case GreenBlink40:
        ApplyGreenBlink(milliseconds(40));
        break;
    case RedBlink80:
        ApplyRedBlink(milliseconds(80));
        break;
    case GreenBlink80:
        ApplyGreenBlink(milliseconds(80));
        break;
    case RedBlink450:
        ApplyRedBlink(milliseconds(450));
        break;
    case GreenBlink450:
        ApplyGreenBlink(milliseconds(450));
        break;
    case RedBlink1000:
        ApplyRedBlink(milliseconds(1000));
        break;
    case GreenBlink1000:
        ApplyGreenBlink(milliseconds(1000));
        break;
    case GreenBlink2000:
        ApplyGreenBlink(milliseconds(2000));
        break;
    case RedOn:
        Light(redPin, greenPin);
        break;
    case GreenOn:
        Light(greenPin, redPin);
        break;
    case Idle:
        Pause(STEP);
        break;
    case TurnOff:
        ShowOffState(present.offState);
        // A mode that was set meanwhile stays.
        setting.compare_exchange_strong(present, {Idle, present.offState});
        break;
    }
}

void LedController::ApplyRedBlink(const milliseconds& d)
{
    Blink(redPin, greenPin, d);
}

void LedController::ApplyGreenBlink(const milliseconds& d)
{
    Blink(greenPin, redPin, d);
}

void LedController::Blink(int pin, int otherPin, const milliseconds& d)
{
    Set(otherPin, OFF);
    Set(pin, ON);
    Pause(d);
    Set(pin, OFF);
    Pause(d);
}

void LedController::Light(int pin, int otherPin)
{
    Set(pin, ON);
    Set(otherPin, OFF);
    Pause(STEP);
}

void LedController::ShowOffState(LedOffState state) const
{
    if (state < RedOnly || state > BothOff)
    {
        return;
    }
    Set(greenPin, state == GreenOnly || state == BothOn ? ON : OFF);
    Set(redPin, state == RedOnly || state == BothOn ? ON : OFF);
}

void LedController::Pause(const milliseconds& duration)
{
    ThreadSleep(duration, SLEEP_POLL_INTERVAL);
}

}

#include "Gpio/LedsController.h"

#include "base/Tavbase/IException.h"

#include <chrono>
#include <cstddef>
#include <thread>
#include <type_traits>

namespace Tavdevice::Gpio
{

namespace
{

// Request codes of the event driver.
constexpr int LEFT_RED = 102;
constexpr int LEFT_GREEN = 103;
constexpr int RIGHT_RED = 100;
constexpr int RIGHT_GREEN = 101;

constexpr std::chrono::milliseconds LAST_STEP_TIME{200};

void StartOrThrow(LedController& led)
{
    if (!led.Start())
    {
        throw Tavbase::IException(led.GetName() + ": thread not started");
    }
}

}

struct LedsController::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // its members have bases
    static_assert(!std::is_polymorphic_v<LedsController>);
    static_assert(offsetof(LedsController, mLeft) == 0);
    static_assert(offsetof(LedsController, mLeft) < offsetof(LedsController, mRight));
    static_assert(offsetof(LedsController, mRight) < offsetof(LedsController, mStopped));
#pragma GCC diagnostic pop
};

LedsController* LedsController::instance = nullptr;

LedsController* LedsController::GetInstance()
{
    if (instance == nullptr)
    {
        instance = new LedsController();
    }
    return instance;
}

LedsController::LedsController()
    : mLeft(LEFT_RED, LEFT_GREEN, "LED-LEFT"), mRight(RIGHT_RED, RIGHT_GREEN, "LED-RIGHT")
{
    StartOrThrow(mLeft);
    StartOrThrow(mRight);
}

LedsController::~LedsController()
{
    if (!mStopped)
    {
        mLeft.Stop();
        mRight.Stop();
    }
}

void LedsController::SetLedMode(bool left, LedController::LedState state)
{
    if (!mStopped)
    {
        Led(left).SetLedMode(state);
    }
}

void LedsController::TurnOffLedMode(bool left, LedController::LedOffState state)
{
    if (!mStopped)
    {
        Led(left).TurnOffLedMode(state);
    }
}

void LedsController::Stop(LedController::LedOffState state)
{
    if (mStopped)
    {
        return;
    }
    TurnOffLedMode(true, state);
    TurnOffLedMode(false, state);
    std::this_thread::sleep_for(LAST_STEP_TIME);
    mLeft.Stop();
    mRight.Stop();
    mStopped = true;
}

}

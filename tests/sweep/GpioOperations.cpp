#include "Gpio/GpioCore.h"
#include "Gpio/GpioManager.h"
#include "Gpio/LedController.h"
#include "tests/Gpio/EventDriver.h"
#include "tests/Gpio/GpioTest.h"
#include "tests/Gpio/Listener.h"
#include "tests/kit/TempDir.h"
#include "tests/sweep/Operation.h"

#include <fstream>
#include <string>
#include <thread>

namespace
{

using Sweep::Text;
using Tavdevice::Gpio::GpioCore;
using Tavdevice::Gpio::LedController;
using namespace std::chrono_literals;

/// A process that has not opened the device, and a table of mounts.
struct Unit
{
    Unit()
    {
        std::ofstream(mounts) << "/dev/root / ext4 rw 0 0\n/dev/mmcblk0p1 /mnt/sdcard vfat rw 0 0\n";
        Kit::System::Redirect("/proc/self/mounts", mounts);
        Kit::System::AnswerUnmounts();
    }

    ~Unit()
    {
        GpioTests::ForgetDevice();
        Kit::System::ForgetOrders();
        Kit::System::Unredirect("/proc/self/mounts");
    }

    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    std::string mounts = Kit::TempDir::Path() + "/mounts";
    GpioTests::EventDriver driver;
    GpioTests::Printed printed;
};

SWEEP(GpioCore, Initialize)
{
    Unit unit;
    Sweep::Try([&] { return Text(GpioCore::Initialize()); });
}

SWEEP(GpioCore, SetPin)
{
    Unit unit;
    Sweep::Try([&] { return Text(GpioCore::SetPin(103, 1)); });
}

SWEEP(GpioCore, ShutDown)
{
    Unit unit;
    Sweep::Try([&] {
        const bool done = GpioCore::ShutDown();
        return Text(done) + " " + Text(static_cast<int>(unit.driver.Writes().size())) + " pin writes";
    });
}

SWEEP(GpioCore, ShutDownIfIgnitionOff)
{
    Unit unit;
    Sweep::Try([&] { return Text(GpioCore::ShutDownIfIgnitionOff()); });
}

SWEEP(GpioCore, TurnOffIRLEDs)
{
    Unit unit;
    Sweep::Try([&] { return Text(GpioCore::TurnOffIRLEDs()); });
}

SWEEP(GpioCore, HWResetUsbHub)
{
    Unit unit;
    Sweep::Try([&] { return Text(GpioCore::HWResetUsbHub()); });
}

SWEEP(GpioCore, Pool)
{
    Unit unit;
    GpioCore core;
    unit.driver.Trigger(5);
    int trigger = 7;
    Sweep::Try([&] { return Text(core.Pool(trigger)) + " " + Text(trigger); });
}

SWEEP(GpioCore, Close)
{
    Unit unit;
    GpioCore::Initialize();
    Sweep::Try([&] {
        GpioCore::Close();
        return std::string("done");
    });
}

/// One LED, whose thread is not started: the steps are made by the caller.
struct Led
{
    Unit unit;
    LedController controller{100, 101, "LED"};

    std::string Pins() const { return std::to_string(unit.driver.Writes().size()) + " pin writes"; }
};

SWEEP(LedController, RunBlinking)
{
    Led led;
    led.controller.SetLedMode(LedController::GreenBlink1000);
    Sweep::Try([&] {
        led.controller.Run();
        return led.Pins();
    });
}

SWEEP(LedController, ApplyRedBlink)
{
    Led led;
    Sweep::Try([&] {
        led.controller.ApplyRedBlink(10ms);
        return led.Pins();
    });
}

SWEEP(LedController, TurnOffLedMode)
{
    Led led;
    Sweep::Try([&] {
        led.controller.TurnOffLedMode(LedController::RedOnly);
        return led.Pins();
    });
}

SWEEP(GpioManager, RunIgnitionStart)
{
    Unit unit;
    GpioTests::GpioOutput listener;
    GpioTests::GpioOutput* listeners[] = {&listener};
    GpioTests::GpioManager manager(listeners, 1);
    manager.startupFilter = false;
    Sweep::Try([&] {
        manager.RunIgnitionStart();
        const bool runs = manager.IsRunning();
        return std::string(runs ? "runs" : "does not run");
    });
    unit.driver.Trigger(3);
    std::this_thread::sleep_for(5s);
}

}

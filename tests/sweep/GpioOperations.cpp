#include "Gpio/GpioCore.h"
#include "Gpio/GpioManager.h"
#include "tests/Gpio/EventDriver.h"
#include "tests/Gpio/GpioTest.h"
#include "tests/kit/TempDir.h"
#include "tests/sweep/Operation.h"

#include <fstream>
#include <string>

namespace
{

using Sweep::Text;
using Tavdevice::Gpio::GpioCore;

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

}

#ifndef TESTS_GPIO_GPIOTEST_H
#define TESTS_GPIO_GPIOTEST_H

#include "Gpio/GpioCore.h"
#include "tests/Gpio/EventDriver.h"
#include "tests/Gpio/Printed.h"
#include "tests/kit/DeviceTest.h"

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace GpioTests
{

using namespace std::chrono_literals;
using Tavdevice::Gpio::GpioCore;
using Texts = std::vector<std::string>;

/// Brings the process back to where it has not opened the device: only a failed close does that.
inline void ForgetDevice()
{
    Kit::System::ForgetCalls();
    Kit::System::Fail("close", EIO);
    GpioCore::Close();
    for (const Kit::System::Call& call : Kit::System::CallsOf("close"))
    {
        close(call.fd);
    }
}

/// The unit has no event device, unless the test makes one.
class GpioAloneTest : public Kit::DeviceTest
{
protected:
    void TearDown() override { ForgetDevice(); }

    static std::size_t Opens() { return Kit::System::CallsOf("open").size(); }

    /// In virtual time a sleep returns when every other thread waits: what they could do they have done.
    static void LetOthersRun() { std::this_thread::sleep_for(1ms); }

    Printed printed;
};

class GpioTest : public GpioAloneTest
{
protected:
    EventDriver driver;
};

}

#endif

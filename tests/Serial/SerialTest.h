#ifndef TESTS_SERIAL_SERIALTEST_H
#define TESTS_SERIAL_SERIALTEST_H

#include "Serial/Serial.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Terminal.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <termios.h>
#include <vector>

namespace SerialTests
{

using namespace std::chrono_literals;
using Tavdevice::SerialPort::Serial;

/// A port on a real terminal whose other end the test holds.
class SerialTest : public Kit::DeviceTest
{
protected:
    static constexpr const char* DEVICE = "/dev/ttymxc1";

    bool OpenIn(int mode, int timeout = 0)
    {
        port.mode = mode;
        port.timeout = timeout;
        return port.Open();
    }

    bool Send(std::string_view bytes)
    {
        std::string copy(bytes);
        return port.Send(reinterpret_cast<unsigned char*>(copy.data()),
                         static_cast<unsigned int>(copy.size()));
    }

    std::string Bytes() const
    {
        return {reinterpret_cast<const char*>(buffer.data), static_cast<std::size_t>(buffer.length)};
    }

    /// What the terminal itself says; both of its ends have the same settings.
    struct termios Settings() const
    {
        struct termios settings = {};
        EXPECT_EQ(tcgetattr(line.Descriptor(), &settings), 0);
        return settings;
    }

    /// The calls made on the device so far, without those of the log.
    static std::vector<Kit::System::Call> Calls()
    {
        auto calls = Kit::System::Calls();
        std::erase_if(calls, [](const Kit::System::Call& call) { return call.path != DEVICE; });
        return calls;
    }

    static std::vector<std::string> Functions()
    {
        std::vector<std::string> names;
        for (const Kit::System::Call& call : Calls())
        {
            names.emplace_back(call.function);
        }
        return names;
    }

    static int Count(const std::string& function)
    {
        const auto names = Functions();
        return static_cast<int>(std::count(names.begin(), names.end(), function));
    }

    Kit::Terminal line{DEVICE};
    Serial port{DEVICE, B9600};
    TavubufferDynamic buffer{64};
};

}

#endif

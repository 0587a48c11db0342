#ifndef TESTS_I2C_BRIDGE_H
#define TESTS_I2C_BRIDGE_H

#include "tests/kit/MessageDevice.h"
#include "tests/kit/System.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <linux/hidraw.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <vector>

namespace I2cTests
{

inline constexpr const char* BRIDGE = "/dev/hidraw0";

inline std::string Bytes(std::initializer_list<int> values)
{
    std::string bytes;
    for (const int value : values)
    {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

/// What a HID bridge behind hidraw tells of itself, and the device itself.
class Bridge
{
public:
    explicit Bridge(const std::string& path = BRIDGE)
        : device(path, [this](unsigned long request, void* argument) { return Answer(request, argument); })
    {
    }

    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    void Send(std::string_view report) { device.Send(report); }

    std::vector<std::string> Received() { return device.Received(); }

    int descriptorSize = 145;
    std::string name = "FTDI FT260";
    hidraw_devinfo info = {3, 0x0403, 0x6030};

    /// What a bridge with these values has the library print when it is opened.
    static constexpr const char* IDENTITY = "Report Descriptor Size: 145\n"
                                            "Raw Name: FTDI FT260\n"
                                            "Raw Info:\n"
                                            "\tbustype: 3 (USB)\n"
                                            "\tvendor: 0x0403\n"
                                            "\tproduct: 0x6030\n";

private:
    int Answer(unsigned long request, void* argument) const
    {
        if (request == HIDIOCGRDESCSIZE)
        {
            *static_cast<int*>(argument) = descriptorSize;
            return 0;
        }
        if (request == HIDIOCGRAWNAME(256))
        {
            // As the kernel does: the name and its zero, as far as there is room.
            const std::size_t bytes = std::min<std::size_t>(name.size() + 1, 256);
            std::memcpy(argument, name.c_str(), bytes);
            return static_cast<int>(bytes);
        }
        if (request == HIDIOCGRAWINFO)
        {
            *static_cast<hidraw_devinfo*>(argument) = info;
            return 0;
        }
        return -ENOTTY;
    }

    Kit::MessageDevice device; // last: it answers with the members above
};

/// What is printed while one lives.
class Printed
{
public:
    Printed()
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
    }

    ~Printed()
    {
        if (!taken)
        {
            Take();
        }
    }

    Printed(const Printed&) = delete;
    Printed& operator=(const Printed&) = delete;

    std::string Output()
    {
        Take();
        return output;
    }

    std::string Errors()
    {
        Take();
        return errors;
    }

private:
    void Take()
    {
        if (!taken)
        {
            taken = true;
            errors = testing::internal::GetCapturedStderr();
            output = testing::internal::GetCapturedStdout();
            if (testing::Test::HasFailure())
            {
                std::printf("%s", output.c_str()); // the failures' messages are among it
            }
        }
    }

    bool taken = false;
    std::string output;
    std::string errors;
};

}

#endif

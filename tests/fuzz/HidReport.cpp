// A HID bridge that tells of itself what it likes, and answers each question with any report.

#include "I2C/HidI2C.h"
#include "tests/I2C/Bridge.h"
#include "tests/fuzz/Target.h"
#include "tests/kit/Clock.h"

#include <array>
#include <deque>
#include <string>
#include <utility>

FUZZ_TARGET(HidReport)
{
    constexpr unsigned char ADDRESS = 0x3A;
    constexpr unsigned short LONGEST = 60;
    using Tavdevice::HidI2C;
    Fuzz::Input rest(input);
    const Kit::Clock clock;
    I2cTests::Bridge bridge;
    bridge.descriptorSize = rest.Byte() - 1;
    bridge.name = rest.Line();
    bridge.info = {rest.Byte(), static_cast<short>(rest.Byte() * 300), static_cast<short>(rest.Byte())};
    HidI2C hid;
    hid.Open(I2cTests::BRIDGE);
    std::deque<std::string> waiting; // reports that were not read yet
    std::array<unsigned char, 4> data = {1, 2, 3, 4};
    for (int reads = 0; reads < 20 && !rest.AtEnd(); ++reads)
    {
        const unsigned short length = rest.Byte();
        if (const std::string report(rest.Bytes(rest.Byte())); !report.empty())
        {
            bridge.Send(report);
            waiting.push_back(report);
        }
        int count = -2;
        const bool read = hid.I2C_Read(ADDRESS, Tavdevice::FT260_I2C_START, data.data(), length, &count);
        FUZZ_REQUIRE(read == (count != -2));
        if (length > LONGEST)
        {
            FUZZ_REQUIRE(!read);
        }
        else if (!waiting.empty())
        {
            // A report of one byte is followed by what the request has there.
            const std::string report = std::exchange(waiting.front(), {});
            waiting.pop_front();
            const unsigned char second = report.size() > 1 ? static_cast<unsigned char>(report[1]) : ADDRESS;
            FUZZ_REQUIRE(!read || count == second);
        }
        int written = -2;
        const bool taken =
            hid.I2C_Write(ADDRESS, Tavdevice::FT260_I2C_START_AND_STOP, data.data(), length, &written);
        FUZZ_REQUIRE(taken == (length <= data.size()) && (!taken || written == length));
    }
    hid.Close();
}

#ifndef TESTS_DRIVERID_DRIVERIDTEST_H
#define TESTS_DRIVERID_DRIVERIDTEST_H

#include "DriverId/DriverId.h"
#include "tests/SerialProtocol/Frames.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Peer.h"
#include "tests/kit/TempDir.h"
#include "tests/kit/Terminal.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace DriverIdTests
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using Kit::Clock;
using Kit::System;
using TavDevice::DriverId;
using Texts = std::vector<std::string>;

inline constexpr const char* DEVICE = "/dev/ttymxc2";
inline constexpr const char* CARD = "/mnt/sdcard";
inline constexpr const char* DIRECTORY = "/mnt/sdcard/db/";
inline constexpr const char* RECORD = "/mnt/sdcard/db/driver-id.json";
inline constexpr const char* UNTOUCHED = "what was there before";

inline const std::string ACKNOWLEDGE = Frames::Short(0x01);

/// The storage card: an empty directory, which is gone with this object.
class Card
{
public:
    Card()
    {
        std::filesystem::create_directory(path);
        System::Redirect(CARD, path);
    }

    ~Card()
    {
        System::Unredirect(CARD);
        std::filesystem::remove_all(path);
    }

    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;

    std::string Directory() const { return path + "/db"; } ///< of the record, where it really is

    std::string Record() const { return Directory() + "/driver-id.json"; }

    /// @return what is in the record file; "none" when there is no file
    std::string Content() const
    {
        std::ifstream file(Record(), std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return file.is_open() ? text.str() : "none";
    }

    void Write(std::string_view content) const { std::ofstream(Record(), std::ios::binary) << content; }

private:
    std::string path = Kit::TempDir::Path() + "/card";
};

/// The lines of the log since the test began to look, each sink by itself.
class DriverIdLogTest : public Kit::DeviceTest
{
protected:
    /// The lines, each of them in both sinks.
    void ExpectLines(const Texts& lines) const
    {
        EXPECT_EQ(FileLines(), lines);
        EXPECT_EQ(ConsoleLines(), lines);
    }

    /// Names of the calls made on the line, in order.
    static Texts Functions()
    {
        Texts names;
        for (const System::Call& call : System::Calls())
        {
            if (call.path == DEVICE)
            {
                names.emplace_back(call.function);
            }
        }
        return names;
    }

    static std::string Last(const Texts& texts) { return texts.empty() ? "none" : texts.back(); }

    static std::ptrdiff_t SleepsOf(std::chrono::milliseconds duration)
    {
        const auto sleeps = System::Sleeps();
        return std::count(sleeps.begin(), sleeps.end(), duration);
    }
};

/// The library on a terminal whose other end the test holds, and a card.
class DriverIdTest : public DriverIdLogTest
{
protected:
    /// The library finds the reader; what that did is not looked at any more.
    void Find()
    {
        {
            const Kit::Peer peer(line, {{50ms, ACKNOWLEDGE}, {150ms, ACKNOWLEDGE}});
            ASSERT_TRUE(reader.Init());
        }
        line.Received();
        ForgetLog();
        System::ForgetCalls();
        begin = Clock::Elapsed();
    }

    /// Virtual time since Find().
    std::chrono::nanoseconds Passed() const { return Clock::Elapsed() - begin; }

    Card card;
    Kit::Terminal line{DEVICE};
    DriverId reader;

private:
    std::chrono::nanoseconds begin{0};
};

}

#endif

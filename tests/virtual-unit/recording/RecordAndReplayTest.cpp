#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/OwnMemory.h"
#include "virtual-unit/peripherals/Accelerometer.h"
#include "virtual-unit/peripherals/CellularModule.h"
#include "virtual-unit/peripherals/EventDriver.h"
#include "virtual-unit/peripherals/I2cAdapter.h"
#include "virtual-unit/recording/Mask.h"
#include "virtual-unit/recording/ObservedDriver.h"
#include "virtual-unit/recording/ObservedI2cAdapter.h"
#include "virtual-unit/recording/ObservedSerial.h"
#include "virtual-unit/recording/Recorder.h"
#include "virtual-unit/recording/Recording.h"
#include "virtual-unit/recording/ReplayedDriver.h"
#include "virtual-unit/recording/ReplayedI2cAdapter.h"
#include "virtual-unit/recording/ReplayedSerial.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

const std::string PORT = "/dev/port";

/// Runs a program twice: on a device that is recorded, and on the recording, which is recorded as well.
class RecordAndReplayTest : public testing::Test
{
protected:
    RecordAndReplayTest() { std::filesystem::remove_all(directory); }

    using TimePoint = PortObserver::TimePoint;

    /// Runs `program` with an observer that records. @return the recording
    PortRecording Record(const std::string& name, const std::function<void(PortObserver&)>& program)
    {
        const std::string path = directory + "/" + name;
        std::filesystem::create_directories(path);
        now = begin;
        Recorder recorder(path, begin, mask);
        PortObserver& observer = recorder.Port(PORT);
        observer.Happened("opened", now);
        program(observer);
        recorder.Finish();
        return Recording::Open(path, {PORT}).Port(PORT);
    }

    /// What was recorded, without times and lines.
    static std::vector<PortEntry> Timeless(const PortRecording& recording)
    {
        std::vector<PortEntry> entries = recording.entries;
        for (PortEntry& entry : entries)
        {
            entry.at = entry.until = 0s;
            entry.line = 0;
        }
        return entries;
    }

    std::string Difference() const { return differences.First() ? differences.First()->Text() : "none"; }

    const std::string directory = Kit::TempDir::Path() + "/recordings";
    const TimePoint begin{1h};
    TimePoint now = begin;
    Mask mask;
    Differences differences;
    OwnMemory memory;
};

/// Talks to a module in lines, each when the answer to the one before has come, and switches it off at last.
/// @param slowness of the program @return what it received
std::string Talk(SerialPeripheral& device, PortObserver::TimePoint& now, std::chrono::milliseconds slowness)
{
    std::string received;
    const auto wait = [&](std::chrono::milliseconds time) {
        for (const auto end = now + time; now < end; now += 1ms)
        {
            device.Advance(now);
            for (const std::string& piece : device.TakeOutput())
            {
                received += piece;
            }
        }
    };
    device.Attach([] {});
    wait(100ms + slowness);
    for (const char* command : {"AT\r", "AT+CIMI\r", "AT+CGSN\r", "AT+CSQ\r", "AT+QPOWD=1\r"})
    {
        device.Receive(command, now);
        wait(500ms + slowness);
    }
    wait(5s);
    return received;
}

TEST_F(RecordAndReplayTest, ACellularModule)
{
    CellularState state;
    mask = Mask({state.imsi, state.imei});
    std::string first;
    const PortRecording recording = Record("first", [&](PortObserver& observer) {
        const auto module = std::make_shared<CellularModule>(state);
        CellularModule::Interface& port = module->At(CellularModule::Port::Main);
        port.SetLine({.pieceBytes = 7, .pieceGap = 2ms, .bytesPerSecond = 960});
        ObservedSerial observed(std::shared_ptr<SerialPeripheral>(module, &port), observer, now);
        first = Talk(observed, now, 0ms);
        EXPECT_FALSE(observed.IsConnected());
    });
    EXPECT_THAT(first, HasSubstr(state.imsi));

    for (const auto slowness : {0ms, 1ms, 70ms})
    {
        std::string second;
        const PortRecording again = Record(std::to_string(slowness.count()), [&](PortObserver& observer) {
            const auto replayed =
                std::make_shared<ReplayedSerial>(recording, begin, differences, [this] { return now; });
            ObservedSerial observed(replayed, observer, now);
            second = Talk(observed, now, slowness);
            EXPECT_FALSE(observed.IsConnected());
            replayed->Finish();
        });
        EXPECT_EQ(second, mask.Apply(first));
        EXPECT_THAT(second, Not(HasSubstr(state.imsi)));
        EXPECT_THAT(Timeless(again), ElementsAreArray(Timeless(recording)));
    }
    EXPECT_EQ(Difference(), "none");
}

TEST_F(RecordAndReplayTest, AnAccelerometer)
{
    const auto program = [this](IoctlPeripheral& device) {
        std::string values;
        const auto transfer = [&](unsigned char direction, unsigned char reg, unsigned char value) {
            i2c_smbus_data data = {};
            data.byte = value;
            i2c_smbus_ioctl_data request = {direction, reg, I2C_SMBUS_BYTE_DATA, &data};
            device.Answer({I2C_SLAVE, 0x1C, memory}, now);
            device.Answer({I2C_SMBUS, reinterpret_cast<std::uint64_t>(&request), memory}, now);
            now += 1ms;
            return data.byte;
        };
        transfer(I2C_SMBUS_WRITE, 0x2A, 0x01);
        for (int i = 0; i < 1000; ++i)
        {
            values += static_cast<char>(transfer(I2C_SMBUS_READ, 0x00, 0));
        }
        return values;
    };
    std::string first;
    const PortRecording recording = Record("first", [&](PortObserver& observer) {
        Accelerometer accelerometer;
        const auto adapter = std::make_shared<I2cAdapter>();
        adapter->Add(accelerometer);
        ObservedI2cAdapter observed(adapter, observer);
        first = program(observed);
    });
    EXPECT_THAT(recording.entries, SizeIs(testing::Lt(100U))); // most reads are like the one before
    const PortRecording again = Record("second", [&](PortObserver& observer) {
        const auto replayed = std::make_shared<ReplayedI2cAdapter>(recording, differences);
        ObservedI2cAdapter observed(replayed, observer);
        EXPECT_EQ(program(observed), first);
        replayed->Finish();
    });
    EXPECT_THAT(again.entries, SizeIs(recording.entries.size()));
    EXPECT_EQ(Difference(), "none");
}

TEST_F(RecordAndReplayTest, AnEventDriver)
{
    const auto program = [this](MessagePeripheral& device, std::chrono::milliseconds period, int blinks) {
        std::string triggers;
        for (int i = 0; i < blinks; ++i)
        {
            const auto on = static_cast<std::uint64_t>(i % 2);
            device.Answer({103, on, memory}, now);
            device.Answer({102, on, memory}, now);
            now += period;
            device.Advance(now);
            for (const std::string& message : device.TakeOutput())
            {
                triggers += message.substr(0, 1);
            }
        }
        return triggers;
    };
    const PortRecording recording = Record("first", [&](PortObserver& observer) {
        ObservedDriver observed(
            std::make_shared<EventDriver>(std::vector<EventDriver::Event>{{100ms, 1}, {200ms, 2}}), observer,
            now);
        EXPECT_EQ(program(observed, 50ms, 10), "\1\2");
    });
    EXPECT_THAT(recording.entries, SizeIs(5)); // the opening, two triggers, two pins
    for (const auto& [period, blinks] : {std::pair(50ms, 10), std::pair(30ms, 21), std::pair(90ms, 4)})
    {
        ReplayedDriver replayed(recording, begin, differences, [this] { return now; });
        replayed.Advance(now);
        EXPECT_EQ(program(replayed, period, blinks), "\1\2");
        replayed.Finish();
    }
    EXPECT_EQ(Difference(), "none");
}

}

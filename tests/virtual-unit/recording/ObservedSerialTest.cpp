#include "virtual-unit/recording/ObservedSerial.h"

#include "tests/virtual-unit/recording/Notes.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::IsEmpty;

/// Answers with two pieces, and sends a third one 10 ms later.
class Device : public SerialPeripheral
{
public:
    void Receive(std::string_view bytes, TimePoint now) override
    {
        received += bytes;
        output = {"a", "b"};
        due = now + 10ms;
    }

    std::optional<TimePoint> NextDeadline() const override { return due; }

    void Advance(TimePoint now) override
    {
        if (due && *due <= now)
        {
            output.emplace_back("c");
            due.reset();
        }
    }

    std::vector<std::string> TakeOutput() override { return std::exchange(output, {}); }

    bool IsConnected() const override { return connected; }

    bool IsPlugged() const override { return plugged; }

    void Attach(const std::function<void()>& theWake) override { wake = theWake; }

    std::string received;
    std::vector<std::string> output;
    std::optional<TimePoint> due;
    bool connected = true;
    bool plugged = true;
    std::function<void()> wake;
};

class ObservedSerialTest : public testing::Test
{
protected:
    SerialPeripheral::TimePoint begin{1h};
    Notes notes{begin};
    std::shared_ptr<Device> device = std::make_shared<Device>();
    ObservedSerial observed{device, notes, begin};
};

TEST_F(ObservedSerialTest, BothDirectionsAreTold)
{
    observed.Receive("AT\r", begin + 5ms);
    EXPECT_THAT(observed.TakeOutput(), ElementsAre("a", "b"));
    observed.Advance(begin + 14ms);
    EXPECT_THAT(observed.TakeOutput(), IsEmpty());
    observed.Advance(begin + 15ms);
    EXPECT_THAT(observed.TakeOutput(), ElementsAre("c"));
    EXPECT_EQ(device->received, "AT\r");
    EXPECT_THAT(notes.lines, ElementsAre("5 > \"AT\\r\"", "5 < \"a\"", "5 < \"b\"", "15 < \"c\""));
}

TEST_F(ObservedSerialTest, TheHostSeesTheDevice)
{
    EXPECT_EQ(observed.NextDeadline(), std::nullopt);
    observed.Receive("AT\r", begin);
    EXPECT_EQ(observed.NextDeadline(), begin + 10ms);
    bool woken = false;
    observed.Attach([&] { woken = true; });
    device->wake();
    EXPECT_TRUE(woken);
    EXPECT_TRUE(observed.IsConnected());
    EXPECT_TRUE(observed.IsPlugged());
    device->connected = false;
    EXPECT_FALSE(observed.IsConnected());
    EXPECT_TRUE(observed.IsPlugged());
    device->plugged = false;
    EXPECT_FALSE(observed.IsPlugged());
}

TEST_F(ObservedSerialTest, PullingThePlugIsToldBehindTheLastPiece)
{
    device->output = {"bye"};
    device->connected = false;
    observed.Advance(begin + 1s);
    observed.TakeOutput();
    observed.Advance(begin + 2s);
    observed.TakeOutput();
    EXPECT_THAT(notes.lines, ElementsAre("1000 < \"bye\"", "1000 ! unplugged"));
}

TEST_F(ObservedSerialTest, PluggingInIsToldBeforeTheFirstByte)
{
    for (const bool sends : {false, true})
    {
        notes.lines.clear();
        device->connected = false;
        observed.TakeOutput();
        device->connected = true;
        if (sends)
        {
            observed.Receive("AT\r", begin + 3s);
        }
        else
        {
            device->output = {"hello"};
            observed.Advance(begin + 3s);
        }
        observed.TakeOutput();
        ASSERT_THAT(notes.lines, testing::SizeIs(testing::Ge(3U)));
        EXPECT_EQ(notes.lines[1], "3000 ! plugged in");
        EXPECT_EQ(notes.lines[2], sends ? "3000 > \"AT\\r\"" : "3000 < \"hello\"");
    }
}

TEST_F(ObservedSerialTest, ADeviceThatIsNotThereIsToldAtFirst)
{
    device->connected = false;
    Notes other(begin);
    ObservedSerial absent(device, other, begin + 7ms);
    absent.Advance(begin + 8ms);
    absent.TakeOutput();
    EXPECT_THAT(other.lines, ElementsAre("7 ! unplugged"));
}

}

#include "virtual-unit/ports/SerialLine.h"

#include "tests/kit/DeviceTest.h"
#include "tests/virtual-unit/ports/EmulatedLine.h"
#include "virtual-unit/peripherals/CellularModule.h"
#include "virtual-unit/peripherals/GpsReceiver.h"

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

/// A device without a clock that answers each byte with `answer`.
class Echo : public SerialPeripheral
{
public:
    explicit Echo(std::string theAnswer) : answer(std::move(theAnswer)) {}

    void Receive(std::string_view bytes, TimePoint) override
    {
        for (std::size_t i = 0; i < bytes.size(); ++i)
        {
            output.push_back(answer);
        }
    }

    std::optional<TimePoint> NextDeadline() const override { return std::nullopt; }

    void Advance(TimePoint) override {}

    std::vector<std::string> TakeOutput() override { return std::exchange(output, {}); }

private:
    std::string answer;
    std::vector<std::string> output;
};

/// The application's end of a line.
class Application
{
public:
    explicit Application(const SerialLine& line) : fd(line.Open(O_RDWR | O_CLOEXEC))
    {
        termios settings = {};
        tcgetattr(fd, &settings);
        cfmakeraw(&settings);
        tcsetattr(fd, TCSANOW, &settings);
    }

    ~Application() { close(fd); }

    /// What comes until `seconds` pass without anything.
    std::string Read(int seconds) const
    {
        std::string text;
        std::array<char, 4096> bytes;
        for (;;)
        {
            fd_set input;
            FD_ZERO(&input);
            FD_SET(fd, &input);
            timeval limit = {seconds, 0};
            if (select(fd + 1, &input, nullptr, nullptr, &limit) <= 0)
            {
                return text;
            }
            const ssize_t count = read(fd, bytes.data(), bytes.size());
            if (count <= 0)
            {
                return text + "<end>";
            }
            text.append(bytes.data(), static_cast<std::size_t>(count));
        }
    }

    void Write(std::string_view text) const { ASSERT_EQ(write(fd, text.data(), text.size()), text.size()); }

    int fd;
};

using SerialLineTest = Kit::DeviceTest;

TEST_F(SerialLineTest, BytesGoThereAndBack)
{
    Echo echo("ab");
    EmulatedLine line(echo);
    const Application application(line);
    line.Start();
    application.Write("xyz");
    EXPECT_EQ(application.Read(1), "ababab");
    EXPECT_EQ(line.ReceivedText(), "xyz");
}

TEST_F(SerialLineTest, TheDeviceLivesInTheTimeOfTheClock)
{
    GpsReceiver::Options options;
    options.model = GpsReceiver::Model::SKM53;
    options.recording = {{"$GPRMC,1\r\n"}, {"$GPRMC,2\r\n"}, {"$GPRMC,3\r\n"}};
    options.repeatRecording = false;
    GpsReceiver receiver(options);
    EmulatedLine line(receiver);
    const Application application(line);
    line.Start();
    const auto begin = Kit::Clock::Elapsed();
    EXPECT_EQ(application.Read(2), "$GPRMC,1\r\n$GPRMC,2\r\n$GPRMC,3\r\n");
    EXPECT_EQ(Kit::Clock::Elapsed() - begin, 5s);
}

TEST_F(SerialLineTest, ADeviceIsSwitchedOnByTheStart)
{
    GpsReceiver receiver;
    EmulatedLine line(receiver);
    const Application application(line);
    EXPECT_EQ(application.Read(5), "");
    line.Start();
    EXPECT_TRUE(
        Kit::Clock::WaitUntil([&] { return !line.Locked([&] { return !receiver.NextDeadline(); }); }));
}

TEST_F(SerialLineTest, ADeviceThatIsChangedUnderWayIsLookedAtAnew)
{
    GpsReceiver receiver;
    EmulatedLine line(receiver);
    const Application application(line);
    line.Start();
    line.Locked([&] { receiver.faults.silent = true; });
    EXPECT_EQ(application.Read(3), "");
    line.Locked([&] {
        receiver.faults.silent = false;
        receiver.Restart(std::chrono::steady_clock::now());
    });
    std::array<char, 64> bytes = {};
    ASSERT_GT(read(application.fd, bytes.data(), bytes.size() - 1), 0); // at once, not at the next second
    EXPECT_THAT(bytes.data(), StartsWith("$PMTK011,MTKGPS*08"));
}

TEST_F(SerialLineTest, RawBytesCanBeSlippedIn)
{
    Echo echo("");
    EmulatedLine line(echo);
    const Application application(line);
    line.WriteRaw("noise");
    EXPECT_EQ(application.Read(1), "noise");
}

TEST_F(SerialLineTest, AHangUpIsTheEndOfTheInput)
{
    Echo echo("ab");
    EmulatedLine line(echo);
    const Application application(line);
    line.Start();
    line.HangUp();
    EXPECT_EQ(application.Read(1), "<end>");
    pollfd event = {application.fd, POLLIN, 0};
    EXPECT_EQ(poll(&event, 1, 0), 1);
    EXPECT_NE(event.revents & POLLHUP, 0);
    line.Start(); // stays without effect
    EXPECT_EQ(write(application.fd, "x", 1), -1);
}

TEST_F(SerialLineTest, ADeviceThatLeavesHangsTheLineUp)
{
    CellularModule module;
    EmulatedLine line(module.At(CellularModule::Port::Main));
    const Application application(line);
    line.Start();
    module.UnplugAt(std::chrono::steady_clock::now() + 5s);
    EXPECT_EQ(application.Read(4), "");
    EXPECT_FALSE(line.HungUp());
    EXPECT_EQ(application.Read(4), "<end>");
    EXPECT_TRUE(line.HungUp());
    line.Start(); // stays without effect
    EXPECT_EQ(write(application.fd, "x", 1), -1);
    line.Stop();
}

TEST_F(SerialLineTest, ADeviceThatHasLeftHangsTheLineUpAtItsStart)
{
    CellularModule module;
    module.Unplug();
    EmulatedLine line(module.At(CellularModule::Port::Main));
    const Application application(line);
    EXPECT_FALSE(line.HungUp());
    line.Start();
    EXPECT_EQ(application.Read(1), "<end>");
}

TEST_F(SerialLineTest, WhatHappensOnOneLineOfADeviceWakesItsOther)
{
    CellularModule module;
    EmulatedLine mainLine(module.At(CellularModule::Port::Main));
    EmulatedLine alternateLine(module.At(CellularModule::Port::Alternate));
    const Application mainEnd(mainLine);
    const Application alternateEnd(alternateLine);
    mainLine.Start();
    alternateLine.Start();
    mainEnd.Write("AT+QPOWD=1\r");
    EXPECT_EQ(alternateEnd.Read(3), "\r\nPOWERED DOWN\r\n<end>");
}

TEST_F(SerialLineTest, ADeviceMayOutliveItsLine)
{
    CellularModule module;
    {
        EmulatedLine line(module.At(CellularModule::Port::Main));
        line.Start();
    }
    module.Unplug(); // wakes nobody
    module.PlugIn();
    EmulatedLine line(module.At(CellularModule::Port::Main));
    const Application application(line);
    line.Start();
    application.Write("AT\r");
    EXPECT_EQ(application.Read(1), "AT\r\r\nOK\r\n");
}

TEST_F(SerialLineTest, AStoppedLineGoesOnWhereItStopped)
{
    Echo echo("ab");
    EmulatedLine line(echo);
    const Application application(line);
    line.Start();
    line.Stop();
    application.Write("x");
    EXPECT_EQ(application.Read(1), "");
    line.Start();
    EXPECT_EQ(application.Read(1), "ab");
}

TEST_F(SerialLineTest, ItBeginsWithTheSettingsOfAUartWithoutEcho)
{
    Echo echo("");
    EmulatedLine line(echo);
    termios settings = {};
    ASSERT_EQ(tcgetattr(line.ApplicationEnd(), &settings), 0);
    EXPECT_EQ(cfgetospeed(&settings), B9600);
    EXPECT_EQ(cfgetispeed(&settings), B9600);
    EXPECT_EQ(settings.c_cflag & (CSIZE | PARENB | CSTOPB | CREAD), CS8 | CREAD);
    EXPECT_EQ(settings.c_lflag & ECHO, 0U);
}

TEST_F(SerialLineTest, WhatNobodyReadsIsDroppedAndCounted)
{
    const std::string chunk(1000, 'x');
    Echo echo(chunk);
    EmulatedLine line(echo);
    const Application application(line);
    constexpr std::size_t CHUNKS = 200;
    line.Start();
    application.Write(std::string(CHUNKS, '?'));
    EXPECT_TRUE(
        Kit::Clock::WaitUntil([&] { return line.ReceivedText().size() == CHUNKS && line.LostBytes() > 0; }));
    const std::size_t read = application.Read(1).size();
    EXPECT_EQ(read + line.LostBytes(), CHUNKS * chunk.size());
    application.Write("?");
    EXPECT_EQ(application.Read(1), chunk);
}

}

// What a receiver sends: the text that it answers the detection with, up to an empty line, and then what it
// goes on with. In plain text every byte comes out once and in order, however the reads are cut.

#include "GpsDevice/GpsDevice.h"
#include "tests/fuzz/Target.h"
#include "tests/kit/Clock.h"
#include "tests/kit/Terminal.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace
{

using Tavdevice::GpsDevice::GpsDevice;

class GpsText : public GpsDevice::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override { all += static_cast<const char*>(value); }

    std::string all;
};

/// The receiver at its end of the line, and a device there.
class FuzzedReceiver
{
public:
    FuzzedReceiver() : nearEnd(ioctl(line.Descriptor(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC)) {}

    ~FuzzedReceiver() { close(nearEnd); }

    FuzzedReceiver(const FuzzedReceiver&) = delete;
    FuzzedReceiver& operator=(const FuzzedReceiver&) = delete;

    /// From now on a read gives what there is, not one line.
    void CutAnywhere() const
    {
        struct termios settings = {};
        tcgetattr(line.Descriptor(), &settings);
        cfmakeraw(&settings);
        settings.c_cc[VMIN] = 1;
        settings.c_cc[VTIME] = 0;
        tcsetattr(line.Descriptor(), TCSANOW, &settings);
    }

    void SendBegin(std::string_view text) { line.Send(text); } ///< of which lines are read one by one

    void Send(std::string_view text)
    {
        line.Send(text);
        Kit::Clock::AwaitKernel([&] { return Unread() >= static_cast<int>(text.size()); });
    }

    int Unread() const
    {
        int bytes = 0;
        ioctl(nearEnd, FIONREAD, &bytes);
        return bytes;
    }

private:
    Kit::Terminal line{"/dev/ttymxc0"};
    int nearEnd;
};

constexpr std::size_t MOST = 600; // bytes: what a line holds that nobody reads

}

FUZZ_TARGET(Gps)
{
    const std::size_t end = std::min(input.find("\n\n"), input.size());
    const std::string_view detection = input.substr(0, std::min(end, MOST));
    Fuzz::Input rest(input.substr(std::min(end + 2, input.size())));
    const bool plain = std::ranges::all_of(
        rest.Rest(), [](char c) { return (c >= ' ' && c <= '~') || c == '\r' || c == '\n'; });

    const Kit::Clock clock;
    FuzzedReceiver receiver;
    GpsText text;
    GpsDevice gps;
    GpsDevice::IThreadDelegate* delegate = &text;
    gps.Prepare(delegate);
    receiver.SendBegin(detection);
    gps.CheckL26Gps();
    const bool last = gps.GetModule() == GpsDevice::Module::SKM53;
    receiver.CutAnywhere();
    while (receiver.Unread() > 0)
    {
        gps.Run();
    }
    text.all.clear();

    std::string sent;
    const auto step = [&](std::string_view piece) {
        receiver.Send(piece);
        sent += piece;
        while (receiver.Unread() > 0)
        {
            gps.Run();
        }
    };
    step("$GPRMC,begin\r\n"); // what came before is out then
    text.all.clear();
    sent = last ? "" : sent;
    for (int steps = 0; steps < 40 && !rest.AtEnd(); ++steps)
    {
        const std::size_t count = static_cast<unsigned char>(rest.Rest().front());
        step(rest.Bytes(std::min<std::size_t>(count, MOST)));
    }
    const std::string before = sent;
    step("\r\n$GPRMC,end\r\n");
    FUZZ_REQUIRE(!plain || text.all == (last ? sent : before));
}
